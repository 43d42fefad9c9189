#include "QelMpls/platform/QelMplsRouteAndDirectAdjSm.h"

#include "QelMpls/platform/QelMplsVoshTables.h"
#include "models/MplsHardwareStatus.h"
#include "models/VoshTables.h"

namespace Qel {

namespace {
constexpr int kTraceStartup = 1;
constexpr int kTraceAdj = 4;
constexpr int kTraceRoute = 6;
}  // namespace

MplsRouteAndDirectAdjSm::MplsRouteAndDirectAdjSm(const std::string& name, const Inputs& inputs)
    : MplsBaseSm(name, inputs),
      trace_(initializeQelMplsPelletHandle(), "QelMplsRouteAndDirectAdjSm") {}

void MplsRouteAndDirectAdjSm::handleInitializedSubClass() {
  PELLET_TRACE(trace_, kTraceStartup, "direct adjacency mode: starting in normal stage");
  mplsSmStartupStatusIs(MplsSmStartupStatus::mplsSmNormal);
  startProcessing();
}

bool MplsRouteAndDirectAdjSm::resolveL3Adj(L3Adjacency* adjacency) {
  Mpls::LfibViaSet viaSet = lfibViaSet(adjacency->viaSetKey());
  // An absent via set reads as the empty record, which has lost its key.
  if (!viaSet) viaSet = Mpls::LfibViaSet(adjacency->viaSetKey());
  // The mode forwards into no external FEC: only MPLS-over-IP is left.
  if (!viaTypeProgrammable(adjacency->viaSetKey().viaType)) {
    return notProgrammable(adjacency, UnprogrammedReason::unprogrammedReasonViaSetNotSane);
  }
  Kiv::Ptr<const CachedLFibMplsViaColl> vias = getSaneMplsIpLFibVias(viaSet);
  adjacency->cachedViasIs(vias);
  adjacency->lFibAdjTypeIs(l3AdjLFibAdjType(vias.get()));
  if (!validateMplsIpL3Adj(viaSet, vias.get()) ||
      adjacency->lFibAdjType() != L3AdjLFibAdjType::adjTypeRegular) {
    return notProgrammable(adjacency, UnprogrammedReason::unprogrammedReasonViaSetNotSane);
  }
  ProgrammableMplsFecVias& programmable = programmableScratch_;
  programmable.viaDelAll();
  for (const auto& [index, via] : vias->viaColl()) programmable.viaIs(index, via);
  setHwAdjViasForNormalMplsRoute(adjacency, viaSet, programmable, adjacency->lFibAdjType());
  if (!adjacency->l2Adjacency()) {
    adjacency->unprogrammedIs(true);
    adjacency->unprogrammedReasonIs(UnprogrammedReason::unprogrammedReasonNexthopUnresolved);
    return false;
  }
  adjacency->unprogrammedIs(false);
  adjacency->unprogrammedReasonIs(UnprogrammedReason::unprogrammedReasonNone);
  return true;
}

bool MplsRouteAndDirectAdjSm::notProgrammable(L3Adjacency* adjacency, UnprogrammedReason reason) {
  adjacency->unprogrammedIs(true);
  adjacency->unprogrammedReasonIs(reason);
  releaseResolution(adjacency);
  return false;
}

void MplsRouteAndDirectAdjSm::reviewL3Adj(L3AdjIndex index, L3Adjacency* adjacency) {
  if (!kivModels()) {
    reviewL3AdjLegacy(index, adjacency);
    return;
  }
  PELLET_TRACE(trace_, kTraceAdj, "review l3 adj {}", index);
  if (!resolveL3Adj(adjacency)) {
    PELLET_TRACE(trace_, kTraceAdj, "adj is not sane. Publish routes");
    // The LFIB producer must not go on seeing the via set as programmed.
    lfibHwStatus()->viaSetDel(adjacency->viaSetKey());
    scheduleRouteKeyForPublish(adjacency);
    return;
  }
  // A layer-2 adjacency's vias never change (other vias make another one), so
  // its record is written once, when it is new; retries rewrite it later.
  if (adjacency->l2Adjacency()->version() == 0) progHwL2Adj(adjacency->l2Adjacency().get());
  lfibHwStatus()->viaSetIs(adjacency->viaSetKey(),
                           Mpls::LfibViaSetHwStatus{adjacency->viaSetKey(), 1, 0});
  scheduleRouteKeyForPublish(adjacency);
}

void MplsRouteAndDirectAdjSm::reviewL3AdjLegacy(L3AdjIndex index, L3Adjacency* adjacency) {
  PELLET_TRACE(trace_, kTraceAdj, "review l3 adj legacy {}", index);
  if (!resolveL3Adj(adjacency)) {
    PELLET_TRACE(trace_, kTraceAdj, "prog l2 adj {} not resolved", index);
    scheduleRouteKeyForPublish(adjacency);
    return;
  }
  PELLET_TRACE(trace_, kTraceAdj, "prog l2 adj {}", adjacency->l2Adjacency()->index());
  progHwL2AdjLegacy(adjacency->l2Adjacency()->hwL2Adjacency().get());
  scheduleRouteKeyForPublish(adjacency);
}

bool MplsRouteAndDirectAdjSm::handleUnresolvedRoute(const Mpls::RouteKey& routeKey,
                                                    MplsRoute* route,
                                                    const L3Adjacency* adjacency) {
  if (requeueBehindAdjReview(routeKey, adjacency)) return false;
  unprogramRouteKey(routeKey);
  route->unprogrammedIs(true);
  route->unprogrammedReasonIs(adjacency ? adjacency->unprogrammedReason()
                                        : UnprogrammedReason::unprogrammedReasonNoAdjacency);
  queueRouteKeyForPublish(routeKey);
  return false;
}

bool MplsRouteAndDirectAdjSm::alreadyProgrammedAs(const Mpls::RouteKey& routeKey,
                                                  const MplsRoute* route,
                                                  Vosh::Qel::MplsHwRouteConfig config,
                                                  L2AdjIndex l2Index) const {
  // A route the driver refused is written again, with a new version, so that
  // the driver looks at it again.
  if (route->unprogrammed() || route->l2AdjIndex() != l2Index) return false;
  config.version = static_cast<uint8_t>(route->version());
  return mplsHwCollectionConfig()->mplsHwRoute(routeKey) == config;
}

bool MplsRouteAndDirectAdjSm::reviewRouteKey(const Mpls::RouteKey& routeKey, MplsRoute* route) {
  if (!kivModels()) return reviewRouteKeyLegacy(routeKey, route);
  PELLET_TRACE(trace_, kTraceRoute, "Review routeKey {}", routeKey);
  Kiv::Ptr<L3Adjacency> adjacency = mplsState()->l3Adjacency(route->l3AdjIndex());
  Kiv::Ptr<MplsL2Adjacency> l2 = adjacency ? adjacency->l2Adjacency() : nullptr;
  // A route is written whenever its adjacency resolves to a layer-2
  // adjacency, even one waiting for its own review: the route comes back
  // with that review.
  if (!l2) return handleUnresolvedRoute(routeKey, route, adjacency.get());
  copyRouteAttributes(route, adjacency.get());
  Vosh::Qel::MplsHwRouteConfig config;
  config.routeKey = routeKey;
  config.labelAction = route->labelAction();
  config.payloadType = route->payloadType();
  config.addressing = route->addressing();
  config.l2AdjIdIs(l2->index());
  if (alreadyProgrammedAs(routeKey, route, config, l2->index())) {
    queueRouteKeyForPublish(routeKey);
    return false;
  }
  route->versionInc();
  config.version = static_cast<uint8_t>(route->version());
  mplsHwCollectionConfig()->mplsHwRouteIs(config);
  route->awaitingHwIs(true);
  route->unprogrammedIs(adjacency->unprogrammed());
  PELLET_TRACE(trace_, kTraceRoute, "routeKey {} unprogrammed {} version {}", routeKey,
               route->unprogrammed(), config.version);
  clearRouteMappings(routeKey);
  route->l2AdjIndexIs(l2->index());
  l2->routeKeyIs(routeKey);
  queueRouteKeyForPublish(routeKey);
  return false;
}

bool MplsRouteAndDirectAdjSm::reviewRouteKeyLegacy(const Mpls::RouteKey& routeKey,
                                                   MplsRoute* route) {
  PELLET_TRACE(trace_, kTraceRoute, "Review routeKey legacy {}", routeKey);
  Kiv::Ptr<L3Adjacency> adjacency = mplsState()->l3Adjacency(route->l3AdjIndex());
  Kiv::Ptr<MplsL2Adjacency> l2 = adjacency ? adjacency->l2Adjacency() : nullptr;
  if (!l2) return handleUnresolvedRoute(routeKey, route, adjacency.get());
  copyRouteAttributes(route, adjacency.get());
  route->versionInc();
  mplsHwConfig()->routeIs(routeKey, MplsHwRoute{routeKey, l2->hwL2Adjacency(), route->version()});
  route->unprogrammedIs(adjacency->unprogrammed());
  clearRouteMappings(routeKey);
  route->l2AdjIndexIs(l2->index());
  l2->routeKeyIs(routeKey);
  queueRouteKeyForPublish(routeKey);
  return false;
}

Kiv::Ptr<MplsRouteAndDirectAdjSm> mplsRouteAndDirectAdjSmFactory(const MplsBaseSm::Inputs& inputs) {
  auto sm = Kiv::make<MplsRouteAndDirectAdjSm>("mplsSm", inputs);
  sm->handleInitialized();
  return sm;
}

}  // namespace Qel
