#pragma once

// The routing side's state-database entities the agent reads: the MPLS
// routing configuration ("routing/mpls/routingInfo/status") and the VRFs that
// have a hardware status entry ("routing/hardware/route/status").

#include <string>

#include "korba/EntityManager.h"
#include "models/MplsInfo.h"
#include "models/RoutingHwRouteStatus.h"
#include "sim/Scenario.h"

namespace Sim {

class RoutingPublisher {
 public:
  static constexpr const char* kRoutingInfoPath = "routing/mpls/routingInfo/status";
  static constexpr const char* kRouteStatusPath = "routing/hardware/route/status";

  explicit RoutingPublisher(Korba::EntityManager& korba);

  void routingIs(const RoutingSpec& given);
  void vrfIs(const std::string& name) { routeStatus_->vrfStatusIs(name, true); }
  void vrfDel(const std::string& name) { routeStatus_->vrfStatusDel(name); }
  const Mpls::RoutingInfo& routingInfo() const { return *routingInfo_; }

 private:
  Kiv::Ptr<Mpls::RoutingInfo> routingInfo_;
  Kiv::Ptr<Routing::Hardware::RouteStatus> routeStatus_;
};

}  // namespace Sim
