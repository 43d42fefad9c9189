#include "sim/RoutingPublisher.h"

namespace Sim {

RoutingPublisher::RoutingPublisher(Korba::EntityManager& korba)
    : routingInfo_(Kiv::make<Mpls::RoutingInfo>(kRoutingInfoPath)),
      routeStatus_(Kiv::make<Routing::Hardware::RouteStatus>(kRouteStatusPath)) {
  korba.entityIs(kRoutingInfoPath, Mpls::RoutingInfo::kTypeName, routingInfo_);
  korba.entityIs(kRouteStatusPath, Routing::Hardware::RouteStatus::kTypeName, routeStatus_);
}

void RoutingPublisher::routingIs(const RoutingSpec& given) {
  if (given.allowDefaultRoute) {
    routingInfo_->nexthopResolutionAllowDefaultRouteIs(*given.allowDefaultRoute);
  }
  if (given.mpls) routingInfo_->mplsRoutingIs(*given.mpls);
}

}  // namespace Sim
