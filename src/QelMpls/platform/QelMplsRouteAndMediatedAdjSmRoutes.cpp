// The mediated mode's routes: their hardware records and the driver's answers.

#include "QelMpls/platform/QelMplsRouteAndMediatedAdjSm.h"
#include "QelMpls/platform/QelMplsVoshTables.h"

namespace Qel {

namespace {
constexpr int kTraceRoute = 6;
constexpr int kTraceDetail = 8;
}  // namespace

bool MplsRouteAndMediatedAdjSm::reviewRouteKey(const Mpls::RouteKey& routeKey, MplsRoute* route) {
  PELLET_TRACE(trace_, kTraceRoute, "Review routeKey {}", routeKey);
  Kiv::Ptr<L3Adjacency> adjacency = mplsState()->l3Adjacency(route->l3AdjIndex());
  ExternalFecInfo* info = adjacency ? adjacency->extFecInfo().get() : nullptr;
  bool programmable = info && !adjacency->unprogrammed();
  if (programmable && info->hwFecIdValid() && info->forwarding()) {
    PELLET_TRACE(trace_, kTraceDetail, " fecId: {}", info->fecId());
    writeRouteRecord(routeKey, route, adjacency.get(), info);
    return false;
  }
  if (requeueBehindAdjReview(routeKey, adjacency.get())) return false;
  if (programmable) {
    waitForHwFecId(routeKey, route);
    return false;
  }
  unprogramRoute(routeKey, route, adjacency.get());
  return false;
}

void MplsRouteAndMediatedAdjSm::writeRouteRecord(const Mpls::RouteKey& routeKey, MplsRoute* route,
                                                 const L3Adjacency* adjacency,
                                                 ExternalFecInfo* info) {
  copyRouteAttributes(route, adjacency);
  Vosh::Qel::MplsHwRouteConfig config;
  config.routeKey = routeKey;
  config.labelAction = route->labelAction();
  config.payloadType = route->payloadType();
  config.addressing = route->addressing();
  config.hwFecIdIs(info->hwFecId());
  Vosh::Qel::MplsHwRouteConfig stored = mplsHwCollectionConfig()->mplsHwRoute(routeKey);
  config.version = static_cast<uint8_t>(route->version());
  if (adoptRecoveredRecord(routeKey, route, config, stored, info)) return;
  // Only a record this run wrote counts as written (a route starts at version
  // 1 and each write bumps it); one the driver refused is written again, with
  // a new version, so that the driver looks at it again.
  if (route->version() != 1 && !route->unprogrammed() && stored == config) {
    queueRouteKeyForPublish(routeKey);
    return;
  }
  route->versionInc();
  config.version = static_cast<uint8_t>(route->version());
  mplsHwCollectionConfig()->mplsHwRouteIs(config);
  route->awaitingHwIs(true);
  route->unprogrammedIs(false);
  route->unprogrammedReasonIs(UnprogrammedReason::unprogrammedReasonNone);
  PELLET_TRACE(trace_, kTraceRoute, "routeKey {} hwFecId {} version {}", routeKey,
               info->hwFecId(), config.version);
  queueRouteKeyForPublish(routeKey);
}

// After a restart the hardware still holds what the previous run wrote. A
// route new to this run whose record already says what this run would write,
// and which the driver answered programmed, is taken over as it is: no write,
// no answer to wait for, nothing the hardware notices.
bool MplsRouteAndMediatedAdjSm::adoptRecoveredRecord(const Mpls::RouteKey& routeKey,
                                                     MplsRoute* route,
                                                     Vosh::Qel::MplsHwRouteConfig config,
                                                     const Vosh::Qel::MplsHwRouteConfig& stored,
                                                     ExternalFecInfo* info) {
  if (route->version() != 1 || !stored) return false;
  config.version = stored.version;
  if (!(stored == config)) return false;
  Vosh::Qel::MplsHwRouteStatus status = mplsHwCollectionStatus()->mplsHwRoute(routeKey);
  if (status.version != stored.version ||
      status.state != Vosh::Qel::mplsHwRouteStateProgrammed) {
    return false;
  }
  PELLET_TRACE(trace_, kTraceRoute, "routeKey {} recovered as programmed, version {}", routeKey,
               stored.version);
  route->versionIs(stored.version);
  route->unprogrammedIs(false);
  route->unprogrammedReasonIs(UnprogrammedReason::unprogrammedReasonNone);
  clearRouteMappings(routeKey);
  addRouteKeyToExtFecInfo(routeKey, info);
  queueRouteKeyForPublish(routeKey);
  return true;
}

// The FEC is requested and not answered (or not forwarding): whatever record
// the route has stays, so that it goes on forwarding until the answer comes.
void MplsRouteAndMediatedAdjSm::waitForHwFecId(const Mpls::RouteKey& routeKey, MplsRoute* route) {
  PELLET_TRACE(trace_, kTraceRoute,
               "hwId not yet allocated or it's not forwarding for l3Adj of route {}, so wait until "
               "new extFecInfo response is updated",
               routeKey);
  if (!mplsHwCollectionConfig()->mplsHwRouteHas(routeKey)) {
    route->unprogrammedIs(true);
    route->unprogrammedReasonIs(UnprogrammedReason::unprogrammedReasonHwPending);
  }
  queueRouteKeyForPublish(routeKey);
}

void MplsRouteAndMediatedAdjSm::unprogramRoute(const Mpls::RouteKey& routeKey, MplsRoute* route,
                                               const L3Adjacency* adjacency) {
  PELLET_TRACE(trace_, kTraceRoute, "unprog routeKey {}", routeKey);
  unprogramRouteKey(routeKey);
  route->unprogrammedIs(true);
  route->unprogrammedReasonIs(adjacency ? adjacency->unprogrammedReason()
                                        : UnprogrammedReason::unprogrammedReasonNoAdjacency);
  queueRouteKeyForPublish(routeKey);
}

// A confirmed record moves the route's membership to the FEC it points at;
// the FEC it pointed at before may then go. An invalid-FEC answer is the
// allocator and the driver crossing each other: the route stays as it is
// until the FEC's answer changes.
void MplsRouteAndMediatedAdjSm::handleHwRouteStatus(const Mpls::RouteKey& routeKey) {
  Kiv::Ptr<MplsRoute> route = mplsState()->route(routeKey);
  if (!route) {
    PELLET_TRACE(trace_, kTraceDetail, "  no routeKey {}", routeKey);
    return;
  }
  Vosh::Qel::MplsHwRouteStatus status = mplsHwCollectionStatus()->mplsHwRoute(routeKey);
  uint8_t configVersion = static_cast<uint8_t>(route->version());
  PELLET_TRACE(trace_, kTraceDetail, " routeKey {} status version: {} config version: {}",
               routeKey, status.version, configVersion);
  if (status && status.version == configVersion) {
    if (status.state == Vosh::Qel::mplsHwRouteStateUnprogrammed &&
        status.reason == Vosh::Qel::mplsHwUnprogReasonInvalidFecId) {
      PELLET_TRACE(trace_, kTraceRoute, "HW fec ID invalid, assuming transient state and backing off");
      return;
    }
    moveRouteToConfirmedFec(routeKey, route.get());
  }
  processHwRouteStatus(routeKey);
}

void MplsRouteAndMediatedAdjSm::moveRouteToConfirmedFec(const Mpls::RouteKey& routeKey,
                                                        MplsRoute* route) {
  Kiv::Ptr<L3Adjacency> adjacency = mplsState()->l3Adjacency(route->l3AdjIndex());
  ExternalFecInfo* info = adjacency ? adjacency->extFecInfo().get() : nullptr;
  bool pointsAtIt =
      info && mplsHwCollectionConfig()->mplsHwRoute(routeKey).hwFecId() == info->hwFecId();
  if (pointsAtIt && route->extFecId() == info->fecId()) return;
  // NOTE: joins the new FEC before leaving the old one, so that a FEC both
  // records name is never released in between.
  if (pointsAtIt) info->dependentRouteKeyIs(routeKey);
  clearRouteMappings(routeKey);
  if (pointsAtIt) addRouteKeyToExtFecInfo(routeKey, info);
}

}  // namespace Qel
