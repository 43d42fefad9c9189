#pragma once

// The simulated platform's helper hooks. The simulated driver programs from
// the shared-memory tables, so the hooks that hand routes over directly only
// acknowledge. The hardware does not keep forwarding across an agent restart
// in the direct mode, so a start is a cold start.

#include <string>

#include "Qel/QelBaseHelper.h"

namespace Sim {

class SimHelper : public QelHelper::MplsSmHelper {
 public:
  SimHelper() : QelHelper::MplsSmHelper("simMplsSmHelper") {}

  QelHelper::RouteUpdateStatus updateRoute(const Mpls::RouteKey&, Bexo::MplsLabelAction,
                                           Mpls::PayloadType, uint64_t&,
                                           Bexo::AddressingMethod) override {
    return QelHelper::routeUpdateSuccess;
  }
  void deleteRoute(const Mpls::RouteKey&) override {}
  bool mplsNonStopForwardingSupported() const override { return false; }
};

}  // namespace Sim
