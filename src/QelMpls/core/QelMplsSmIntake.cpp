#include "QelMpls/core/QelMplsSm.h"
#include "QelMpls/core/QelMplsSmTrace.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <vector>

#include "Qel/FeatureToggle.h"
#include "Qel/QelBaseHelper.h"
#include "QelMpls/core/QelMplsState.h"
#include "QelMpls/platform/QelMplsVoshTables.h"
#include "kiv/Assert.h"
#include "models/Arp.h"
#include "models/FecRequest.h"
#include "models/MplsHardwareStatus.h"
#include "models/MplsInfo.h"
#include "models/MplsLfibTracking.h"
#include "models/ProactiveArpNexthopSm.h"
#include "models/QelL3IntfTable.h"
#include "models/RoutingHwRouteStatus.h"
#include "models/VoshTables.h"

namespace Qel {

namespace {
using namespace MplsSmTrace;
// "a and b" for the conflicting-value traces.
template <class T>
std::string joinedWithAnd(const T& a, const T& b) {
  return fmt::format("{} and {}", a, b);
}
}  // namespace

// ---------------------------------------------------------------------------
// Route intake and via validation.

void MplsBaseSm::handleLFibRoute(const Mpls::RouteKey& routeKey) {
  PELLET_TRACE(trace_, kTraceRoute, "handleLFibRoute routeKey {}", routeKey);
  if (!mplsRoutingEnabled()) {
    PELLET_TRACE(trace_, kTraceRoute, "mplsRouting disable");
    return;
  }
  Mpls::LfibRoute lfibRoute = transitLfib()->route(routeKey);
  if (!lfibRoute) {
    // A route that turned unsupported left mplsIpRouteKey but kept its state
    // and hardware record: its deletion still has to remove them.
    if (!mplsIpRouteKeyHas(routeKey) && !mplsState()->routeHas(routeKey)) {
      PELLET_TRACE(trace_, kTraceRoute, "Ignoring LFIB route {}", routeKey);
      return;
    }
    PELLET_TRACE(trace_, kTraceRoute, "delete LFIB route {}", routeKey);
    mplsIpRouteKeyDel(routeKey);
  } else if (routeSupported(lfibRoute)) {
    mplsIpRouteKeyIs(routeKey);
    MplsSmStartupStatus stage = mplsSmStartupStatus();
    bool reconciling = stage == mplsSmProcessingSyncMap || stage == mplsSmWaitingForSyncResponses;
    if (reconciling && staleRecoveredRouteHas(routeKey)) {
      PELLET_TRACE(trace_, kTraceRoute, "Remove from stale routes");
      staleRecoveredRouteDel(routeKey);
    }
    PELLET_TRACE(trace_, kTraceRoute, "add/update LFIB route");
  } else {
    mplsIpRouteKeyDel(routeKey);
    if (mplsState()->routeKeyForReviewHas(routeKey)) {
      PELLET_TRACE(trace_, kTraceRoute, "removing routeKey from review");
      mplsState()->routeKeyForReviewDel(routeKey);
    }
    return;
  }
  Kiv::Ptr<MplsRoute> route = mplsState()->routeIs(routeKey);
  route->lfibFlagsIs(lfibRoute.flags);
  PELLET_TRACE(trace_, kTraceRoute, "routeKey for review {}", routeKey);
  mplsState()->routeKeyForReviewIs(routeKey);
  doMaybeScheduleReview();
}

void MplsBaseSm::handleLFibRoute() {
  transitLfib()->forEachRoute(
      [this](const Mpls::RouteKey& key, const Mpls::LfibRoute&) { handleLFibRoute(key); });
  lfibTrackingStatus()->viaSetKeyBacklogDelAll();
}

void MplsBaseSm::handleLFibViaSet(const Mpls::LfibViaSetKey& viaSetKey) {
  if (!lfibTrackingStatus()->viaSetKeyBacklogHas(viaSetKey)) return;
  PELLET_TRACE(trace_, kTraceViaSet, "handleLFibViaSet viaSetKey {}", viaSetKey);
  lfibTrackingStatus()->viaSetKeyBacklogDel(viaSetKey);
  if (!mplsRoutingEnabled()) {
    PELLET_TRACE(trace_, kTraceViaSet, "mplsRouting disabled ; Not processing viaSet");
    return;
  }
  if (const L3AdjIndex* index = mplsState()->lFibViaSetToL3AdjFind(viaSetKey)) {
    mplsState()->l3AdjForReviewIs(*index);
    doMaybeScheduleReview();
    return;
  }
  PELLET_TRACE(trace_, kTraceViaSet, "No L3Adj for viaSet. Scheduling all user Routes");
  // Through route intake: a route deleted while its via set was not sane has
  // no state left, and review alone would find nothing to program.
  if (const auto* users = lfibTrackingStatus()->viaSetKeyToRouteKeySetFind(viaSetKey)) {
    for (const Mpls::RouteKey& key : (*users)->routeKeyColl()) handleLFibRoute(key);
  }
  doMaybeScheduleReview();
}

bool MplsBaseSm::routeSupported(const Mpls::LfibRoute& route) const {
  KIV_ASSERT_TEXT(!!route, "!!route");
  if (route.viaType == Mpls::viaTypeMplsIp || route.viaType == Mpls::viaTypeExternalFec) {
    return true;
  }
  PELLET_TRACE(trace_, kTraceRoute, "Ignoring non mpls-ip and extFec LfibRoute {}", route.routeKey);
  return false;
}

bool MplsBaseSm::isLFibViaSetSane(const Mpls::LfibViaSet& viaSet) const {
  if (viaSet.vias() == 0) return false;
  for (uint32_t i = 0; i < viaSet.vias(); ++i) {
    if (viaSet.viaKey(Mpls::LfibViaIndexRange(i)).viaType != viaSet.viaType()) return false;
  }
  return true;
}

Bexo::MplsLabel MplsBaseSm::singleMplsLabelFromVia(const Mpls::LfibMplsVia& via) {
  if (via.labelStack().stackSize() == 0) return Bexo::MplsLabel::none();
  KIV_ASSERT_TEXT(via.labelStack().stackSize() == 1, "via.labelStack().stackSize() == 1");
  return via.labelStack()[0];
}

bool MplsBaseSm::hasNHGAdj(const CachedLFibMplsViaColl* vias) const {
  if (!vias) return false;
  for (const auto& [index, via] : vias->viaColl()) {
    if (Bexo::FecIdIntfId::isNexthopGroupIdIntfId(via.intf)) return true;
  }
  return false;
}

bool MplsBaseSm::hasDynamicTunnelAdj(const CachedLFibMplsViaColl* vias) const {
  if (!vias) return false;
  for (const auto& [index, via] : vias->viaColl()) {
    if (Bexo::DynamicTunnelIntfId::isDynamicTunnelIntfId(via.intf)) return true;
  }
  return false;
}

Kiv::Ptr<const CachedLFibMplsViaColl> MplsBaseSm::getSaneMplsIpLFibVias(
    const Mpls::LfibViaSet& viaSet) const {
  if (viaSet.viaType() != Mpls::viaTypeMplsIp) return nullptr;
  auto vias = Kiv::make<CachedLFibMplsViaColl>();
  vias->usableAsPrimaryViasIs(viaSet.usableAsPrimaryVias());
  uint32_t tunnelVias = 0, plainVias = 0, nexthopGroupVias = 0;
  // A copy: the collection's storage moves as vias are added to it.
  std::optional<Mpls::LfibMplsVia> firstTunnelVia;
  for (uint32_t i = 0; i < viaSet.vias(); ++i) {
    Mpls::LfibViaIndexRange position(i);
    Mpls::LfibViaKey viaKey = viaSet.viaKey(position);
    Mpls::LfibMplsVia via = transitLfib()->mplsVia(viaKey);
    if (!via) {
      PELLET_TRACE(trace_, kTraceViaSet, "LfibMplsVia index {}, source {} ViaType {} was not found",
                   viaKey.index, viaKey.source, viaKey.viaType);
      continue;
    }
    if (viaKey.viaType != Mpls::viaTypeMplsIp) {
      PELLET_TRACE(trace_, kTraceViaSet, "Via {}, source {} ViaType {} is not mplsIp", viaKey.index,
                   viaKey.source, viaKey.viaType);
      continue;
    }
    if (via.labelStack().stackSize() > 1) {
      PELLET_TRACE(trace_, kTraceViaSet, "Vias with more than one label is not supported");
      continue;
    }
    if (via.intf == Bexo::IntfId() || via.intf.isNull0()) {
      PELLET_TRACE(trace_, kTraceViaSet, "L3 interface is not set or is Null0, via is invalid");
      continue;
    }
    if (Bexo::FecIdIntfId::isNexthopGroupIdIntfId(via.intf)) {
      ++nexthopGroupVias;
    } else if (Bexo::DynamicTunnelIntfId::isDynamicTunnelIntfId(via.intf)) {
      ++tunnelVias;
    } else {
      ++plainVias;
    }
    vias->viaIs(position, via);
    if (Bexo::DynamicTunnelIntfId::isDynamicTunnelIntfId(via.intf) && !firstTunnelVia) {
      firstTunnelVia = via;
    }
  }

  auto rejectAll = [&](auto&& traceIt) {
    traceIt();
    vias->viaDelAll();
  };
  if (tunnelVias && plainVias) {
    rejectAll([&] {
      PELLET_TRACE(trace_, kTraceViaSet, "Mix of tunnel and non-tunnel via is not supported");
    });
  } else if (nexthopGroupVias > 1) {
    rejectAll([&] { PELLET_TRACE(trace_, kTraceViaSet, "Only one NHG via is supported now"); });
  } else if (tunnelVias && nexthopGroupVias) {
    rejectAll([&] {
      PELLET_TRACE(trace_, kTraceViaSet, "Mix of dynamic tunnel and NHG via is not supported");
    });
  } else if (tunnelVias) {
    for (const auto& [index, via] : vias->viaColl()) {
      if (via.labelAction() != firstTunnelVia->labelAction()) {
        std::string conflict = joinedWithAnd(firstTunnelVia->labelAction(), via.labelAction());
        rejectAll([&] {
          PELLET_TRACE(trace_, kTraceViaSet,
                       "Adjacencies of dynamic tunnel should have the samelabel action. The "
                       "conflicting labelActions are: {}",
                       conflict);
        });
        break;
      }
      if (via.payloadType != firstTunnelVia->payloadType) {
        std::string conflict = joinedWithAnd(firstTunnelVia->payloadType, via.payloadType);
        rejectAll([&] {
          PELLET_TRACE(trace_, kTraceViaSet,
                       "Adjacencies of dynamic tunnel should have the samepayloadTypes. The "
                       "conflicting payloadTypes are: {}",
                       conflict);
        });
        break;
      }
    }
  }
  if (vias->vias() == 0) {
    PELLET_TRACE(trace_, kTraceViaSet, "Unsupported lFib Adj {}", viaSet);
  }
  return vias;
}

void MplsBaseSm::copyRouteAttributes(MplsRoute* route,
                                                  const L3Adjacency* adjacency) const {
  // The route's label operation is its vias': the first via decides (an
  // adjacency mixing actions is programmed with the first one's).
  if (const auto* vias = adjacency->cachedVias().get(); vias && vias->vias() != 0) {
    const Mpls::LfibMplsVia& first = vias->viaColl().begin()->second;
    route->labelActionIs(first.labelAction());
    route->payloadTypeIs(first.payloadType);
  }
  route->addressingIs(Bexo::addressingNexthop);
}

Mpls::LfibViaSet MplsBaseSm::lfibViaSet(const Mpls::LfibViaSetKey& key) const {
  Mpls::LfibViaSet viaSet = transitLfib()->viaSet(key);
  if (!viaSet && lfibStatus()) viaSet = lfibStatus()->viaSet(key);
  return viaSet;
}

void MplsBaseSm::processRouteKey(const Mpls::RouteKey& routeKey) {
  PELLET_TRACE(trace_, kTraceRoute, "process routeKey {}", routeKey);
  Kiv::Ptr<MplsRoute> route = mplsState()->route(routeKey);
  if (!route) {
    PELLET_TRACE(trace_, kTraceRoute, "{} does not exist", routeKey);
    queueRouteKeyForPublish(routeKey);
    return;
  }
  if (!mplsRoutingEnabled()) {
    PELLET_TRACE(trace_, kTraceRoute, "mplsRouting disabled");
    queueRouteKeyForPublish(routeKey);
    deleteRouteKeyAndRoute(routeKey);
    return;
  }
  Mpls::LfibRoute lfibRoute = transitLfib()->route(routeKey);
  Mpls::LfibViaSet viaSet =
      lfibRoute ? transitLfib()->viaSet(lfibRoute.viaSetKey) : Mpls::LfibViaSet();
  if (!lfibRoute || (viaSet && !isLFibViaSetSane(viaSet))) {
    PELLET_TRACE(trace_, kTraceRoute, "{}) does not exist in system LFIB or via not sane ",
                 routeKey);
    queueRouteKeyForPublish(routeKey);
    deleteRouteKeyAndRoute(routeKey);
    return;
  }
  if (!viaSet && !lfibViaSet(lfibRoute.viaSetKey)) {
    PELLET_TRACE(trace_, kTraceRoute,
                 "via set for route ({}) does not exist in system LFIB, delay processing",
                 routeKey);
    queueRouteKeyForPublish(routeKey);
    return;
  }

  const Mpls::LfibViaSetKey& viaSetKey = lfibRoute.viaSetKey;
  L3AdjIndex previousIndex = route->l3AdjIndex();
  bool viaSetKeyChanged = previousIndex == 0 || !(route->viaSetKey() == viaSetKey);
  if (viaSetKeyChanged) {
    PELLET_TRACE(trace_, kTraceRoute, "viaSetKey changed");
    Kiv::Ptr<L3Adjacency> adjacency;
    if (const L3AdjIndex* existing = mplsState()->lFibViaSetToL3AdjFind(viaSetKey)) {
      adjacency = mplsState()->l3Adjacency(*existing);
      PELLET_TRACE(trace_, kTraceRoute, "L3 adj index {}", *existing);
    } else {
      adjacency = newL3Adjacency();
      adjacency->viaSetKeyIs(viaSetKey);
      mplsState()->l3AdjForReviewIs(adjacency->index());
      mplsState()->lFibViaSetToL3AdjIs(viaSetKey, adjacency->index());
      PELLET_TRACE(trace_, kTraceAdj, "add new adj {} for review", adjacency->index());
    }
    adjacency->routeKeyIs(routeKey);
    route->l3AdjIndexIs(adjacency->index());
    route->viaSetKeyIs(viaSetKey);
  }

  bool keepPrevious = reviewRouteKey(routeKey, route.get());

  if (!keepPrevious && viaSetKeyChanged && previousIndex != 0 &&
      previousIndex != route->l3AdjIndex()) {
    PELLET_TRACE(trace_, kTraceRoute, "remove routeKey {} from l3Adj index {}", routeKey,
                 previousIndex);
    if (Kiv::Ptr<L3Adjacency> old = mplsState()->l3Adjacency(previousIndex)) {
      old->routeKeyDel(routeKey);
      mplsState()->l3AdjForReviewIs(previousIndex);
    }
  }
}

}  // namespace Qel
