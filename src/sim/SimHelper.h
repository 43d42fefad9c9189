#pragma once

// The simulated platform's helper hooks. The simulated driver programs from
// the shared-memory tables, so the hooks that hand routes over directly only
// acknowledge. In the direct mode the hardware does not keep forwarding across
// an agent restart, so a start is a cold start; in the mediated mode the FECs
// the allocator granted stay, and the agent recovers without a hit.

#include <string>

#include "Qel/QelBaseHelper.h"

namespace Sim {

class SimHelper : public QelHelper::MplsSmHelper {
 public:
  explicit SimHelper(bool nonStopForwarding)
      : QelHelper::MplsSmHelper("simMplsSmHelper"), nonStopForwarding_(nonStopForwarding) {}

  QelHelper::RouteUpdateStatus updateRoute(const Mpls::RouteKey&, Bexo::MplsLabelAction,
                                           Mpls::PayloadType, uint64_t&,
                                           Bexo::AddressingMethod) override {
    return QelHelper::routeUpdateSuccess;
  }
  void deleteRoute(const Mpls::RouteKey&) override {}
  bool mplsNonStopForwardingSupported() const override { return nonStopForwarding_; }

 private:
  bool nonStopForwarding_;
};

}  // namespace Sim
