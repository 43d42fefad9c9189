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
}  // namespace

// ---------------------------------------------------------------------------
// Layer-3 adjacencies.

Kiv::Ptr<L3Adjacency> MplsBaseSm::newL3Adjacency() {
  uint64_t index = adjacencyIndex() + 1;
  PELLET_TRACE(trace_, kTraceAdj, "create l3 adj {}", index);
  adjacencyIndexIs(index);
  routingHwMplsStatus()->adjacencyIs(index);
  return mplsState()->l3AdjacencyIs(index);
}

void MplsBaseSm::processL3Adj(L3AdjIndex index) {
  PELLET_TRACE(trace_, kTraceAdj, "process l3 adj {}", index);
  Kiv::Ptr<L3Adjacency> adjacency = mplsState()->l3Adjacency(index);
  KIV_ASSERT(adjacency);
  if (adjacency->routeKeys() != 0 || adjacency->primaryAdjs() != 0) {
    reviewL3Adj(index, adjacency.get());
    if (auto hw = routingHwMplsStatus()->adjacency(index)) {
      hw->unprogrammedIs(adjacency->unprogrammed());
    }
    for (const Mpls::RouteKey& key : adjacency->routeKeyColl()) {
      PELLET_TRACE(trace_, kTraceDetail, "add routeKey {} for review", key);
      mplsState()->routeKeyForReviewIs(key);
    }
    return;
  }
  if (adjacency->multicastGroupInfo() && adjacency->multicastGroupInfo()->tearDownFecs() != 0) {
    PELLET_TRACE(trace_, kTraceAdj, "There are pending tearDownFecs. Delay deletion.");
    return;
  }
  deleteL3Adj(index);
}

void MplsBaseSm::deleteL3Adj(L3AdjIndex index) {
  PELLET_TRACE(trace_, kTraceAdj, "delete l3 adj {}", index);
  Kiv::Ptr<L3Adjacency> adjacency = mplsState()->l3Adjacency(index);
  KIV_ASSERT(adjacency);
  deleteBackupAdjInfoFromAdj(adjacency.get());
  if (Kiv::Ptr<ExternalFecInfo> info = adjacency->extFecInfo()) {
    info->dependentL3AdjacencyDel(index);
    maybeDeleteExtFecInfo(info->fecId());
  }
  cleanL3Adj(adjacency.get());
  releaseResolution(adjacency.get());
  mplsState()->lFibViaSetToL3AdjDel(adjacency->viaSetKey());
  // Regular, dynamic-tunnel and next-hop-group adjacencies report their via
  // set to the LFIB producer; the enumeration ends before a fifth kind.
  if (adjacency->lFibAdjType() != L3AdjLFibAdjType::adjTypeUnknown) {
    lfibHwStatus()->viaSetDel(adjacency->viaSetKey());
  }
  routingHwMplsStatus()->adjacencyBackupStatusDel(index);
  routingHwMplsStatus()->adjacencyDel(index);
  mplsState()->l3AdjForReviewDel(index);
  mplsState()->l3AdjacencyDel(index);
}

void MplsBaseSm::releaseResolution(L3Adjacency* adjacency) {
  if (Kiv::Ptr<MplsL2Adjacency> l2 = adjacency->l2Adjacency()) {
    l2->l3AdjacencyDel(adjacency->index());
    PELLET_TRACE(trace_, kTraceAdj, "add l2 adj {} for review", l2->index());
    mplsState()->l2AdjForReviewIs(l2->index());
    adjacency->l2AdjacencyIs(nullptr);
    if (auto hw = routingHwMplsStatus()->adjacency(adjacency->index())) {
      hw->viaDelAll();
      hw->l2AdjacencyIs(0);
    }
  }
  deleteL3AdjRefs(adjacency);
  adjacency->nextHopDelAll();
}

void MplsBaseSm::deleteL3AdjRefs(L3Adjacency* adjacency) {
  for (const Bridging::HostKey& hostKey : adjacency->hostKeyColl()) {
    Kiv::Ptr<MplsFdbEntry> entry = mplsState()->fdbToL3AdjIdx(hostKey);
    if (!entry) continue;
    entry->l3AdjIdxDel(adjacency->index());
    if (entry->l3AdjIdxs() == 0) {
      PELLET_TRACE(trace_, kTraceAdj, "delete mapping from l3Adj {} on fid {} mac {}",
                   adjacency->index(), hostKey.fid, hostKey.mac);
      mplsState()->fdbToL3AdjIdxDel(hostKey);
    }
  }
  adjacency->hostKeyDelAll();
  for (const IpAddrIntfId& nextHopKey : adjacency->nextHopColl()) {
    Kiv::Ptr<MplsNextHop> nextHop = mplsState()->mplsNextHop(nextHopKey);
    if (!nextHop) continue;
    nextHop->resolvedByMNHDel(adjacency->index());
    if (nextHop->resolvedByMNHs() == 0) {
      PELLET_TRACE(trace_, kTraceAdj, "remove entry (nexthop={} l3Intf={}) from proactiveArpNhSm",
                   nextHopKey.addr, nextHopKey.intf);
      proactiveArpNhSm()->removeEntry(nextHopKey.addr, nextHopKey.intf);
      mplsState()->mplsNextHopDel(nextHopKey);
    }
  }
}

bool MplsBaseSm::validateMplsIpL3Adj(const Mpls::LfibViaSet& viaSet,
                                     const CachedLFibMplsViaColl* vias) const {
  const Mpls::LfibViaSetKey& key = viaSet.key();
  KIV_ASSERT_TEXT(key.viaType == Mpls::viaTypeMplsIp,
                  "lFibViaSetKey.viaType() == Mpls::viaTypeMplsIp_");
  if (viaSet == Mpls::LfibViaSet(key)) {
    PELLET_TRACE(trace_, kTraceAdj, "LFib via set {}, type {} via size {} deleted", key.index,
                 key.viaType, viaSet.vias());
    return false;
  }
  if (viaSet.vias() == 0) {
    PELLET_TRACE(trace_, kTraceAdj, "LFib via set {}, type {} via size {} has no vias", key.index,
                 key.viaType, viaSet.vias());
    return false;
  }
  if (!isLFibViaSetSane(viaSet)) {
    PELLET_TRACE(trace_, kTraceAdj, "LFib via set {}, type {} via size {} is not sane", key.index,
                 key.viaType, viaSet.vias());
    return false;
  }
  if (!vias || vias->vias() == 0) {
    PELLET_TRACE(trace_, kTraceAdj, "lFib viaSet idx {} viaType {} via size {} has no usable via",
                 key.index, key.viaType, viaSet.vias());
    return false;
  }
  return true;
}

bool MplsBaseSm::viaTypeProgrammable(Mpls::LfibViaType viaType) const {
  return viaType == Mpls::viaTypeMplsIp ||
         (viaType == Mpls::viaTypeExternalFec && forwardingIntoExternalFecsSupported());
}

void MplsBaseSm::setHwAdjViasForNormalMplsRoute(L3Adjacency* adjacency,
                                                const Mpls::LfibViaSet& viaSet,
                                                const ProgrammableMplsFecVias& programmableVias,
                                                L3AdjLFibAdjType lFibAdjType) {
  KIV_ASSERT_TEXT(lFibAdjType == L3AdjLFibAdjType::adjTypeRegular,
                  "lFibAdjType == L3AdjLFibAdjType::adjTypeRegular_");
  Kiv::Ptr<Mpls::Hardware::Adjacency> hwAdjacency =
      routingHwMplsStatus()->adjacencyIs(adjacency->index());
  hwAdjacency->viaDelAll();
  hwAdjacency->viaSetTypeIs(viaSet.viaType());

  // Next hops this adjacency no longer uses are dropped after the new set is
  // known, so a next hop kept across the change keeps its proactive request.
  std::vector<Bridging::HostKey> previousHostKeys(adjacency->hostKeyColl().begin(),
                                                  adjacency->hostKeyColl().end());
  adjacency->hostKeyDelAll();

  Mpls::Hardware::L2ViaSet& l2ViaSet = l2ViaScratch_;
  l2ViaSet.clear();
  std::vector<IpAddrIntfId>& nextHops = nextHopScratch_;
  nextHops.clear();
  std::string resolved;
  for (const auto& [viaIndex, via] : programmableVias.viaColl()) {
    KIV_ASSERT_TEXT(via.nextHop.af() == Bexo::ipv4() || via.nextHop.af() == Bexo::ipv6(),
                    "via.nextHop().af() == Bexo::ipv4() || via.nextHop().af() == Bexo::ipv6()");
    IpAddrIntfId nextHopKey(via.nextHop, via.intf);
    // A next hop the adjacency kept from its last review is still registered
    // for it and still asked for proactively: a review mostly finds the same
    // next hops, and each registration is a lookup in a set of hundreds.
    const bool registered = adjacency->nextHopHas(nextHopKey);
    if (resolveNextHopWithMNHSM(via, viaIndex, hwAdjacency.get(), adjacency, l2ViaSet,
                                registered)) {
      if (trace_.on(kTraceDetail)) resolved += nextHopKey.stringValue() + " ";
    }
    if (!registered) mplsState()->mplsNextHopIs(nextHopKey)->resolvedByMNHIs(adjacency->index());
    nextHops.push_back(nextHopKey);
  }
  if (resolved.empty()) {
    PELLET_TRACE(trace_, kTraceDetail, "nexthop not resolved");
  } else {
    PELLET_TRACE(trace_, kTraceDetail, "resolved nexthops: {}", resolved);
  }
  std::vector<IpAddrIntfId> previousNextHops = nextHopsIs(adjacency, nextHops);
  releaseDroppedDependencies(adjacency, previousNextHops, previousHostKeys);

  Kiv::Ptr<MplsL2Adjacency> previous = adjacency->l2Adjacency();
  Kiv::Ptr<MplsL2Adjacency> l2 =
      l2ViaSet.empty() ? nullptr : l2AdjacencyForViaSet(l2ViaSet, adjacency);
  adjacency->l2AdjacencyIs(l2);
  hwAdjacency->l2AdjacencyIs(l2 ? l2->index() : 0);
  if (l2) {
    PELLET_TRACE(trace_, kTraceAdj,
                 "l3 adj {}LFib adj index {} -> l2 adj {} adj type {} via size {}",
                 adjacency->index(), viaSet.key().index, l2->index(), lFibAdjType, l2ViaSet.size());
  }
  if (previous && previous != l2) {
    previous->l3AdjacencyDel(adjacency->index());
    PELLET_TRACE(trace_, kTraceAdj, "add l2 adj {} for review", previous->index());
    mplsState()->l2AdjForReviewIs(previous->index());
  }
}

// Replaces the adjacency's next hops when they changed (a review mostly finds
// the same ones); returns those it had before a change. Sorts `nextHops` and
// drops its duplicates.
std::vector<IpAddrIntfId> MplsBaseSm::nextHopsIs(L3Adjacency* adjacency,
                                                 std::vector<IpAddrIntfId>& nextHops) {
  std::sort(nextHops.begin(), nextHops.end());
  nextHops.erase(std::unique(nextHops.begin(), nextHops.end()), nextHops.end());
  const auto& current = adjacency->nextHopColl();
  if (std::equal(current.begin(), current.end(), nextHops.begin(), nextHops.end())) return {};
  std::vector<IpAddrIntfId> previous(current.begin(), current.end());
  adjacency->nextHopDelAll();
  for (const IpAddrIntfId& key : nextHops) adjacency->nextHopIs(key);
  return previous;
}

void MplsBaseSm::releaseDroppedDependencies(L3Adjacency* adjacency,
                                            const std::vector<IpAddrIntfId>& nextHops,
                                            const std::vector<Bridging::HostKey>& hostKeys) {
  for (const Bridging::HostKey& hostKey : hostKeys) {
    if (adjacency->hostKeyHas(hostKey)) continue;
    Kiv::Ptr<MplsFdbEntry> entry = mplsState()->fdbToL3AdjIdx(hostKey);
    if (!entry) continue;
    entry->l3AdjIdxDel(adjacency->index());
    if (entry->l3AdjIdxs() == 0) mplsState()->fdbToL3AdjIdxDel(hostKey);
  }
  for (const IpAddrIntfId& key : nextHops) {
    if (adjacency->nextHopHas(key)) continue;
    Kiv::Ptr<MplsNextHop> nextHop = mplsState()->mplsNextHop(key);
    if (!nextHop) continue;
    nextHop->resolvedByMNHDel(adjacency->index());
    if (nextHop->resolvedByMNHs() == 0) {
      PELLET_TRACE(trace_, kTraceAdj, "remove entry (nexthop={} l3Intf={}) from proactiveArpNhSm",
                   key.addr, key.intf);
      proactiveArpNhSm()->removeEntry(key.addr, key.intf);
      mplsState()->mplsNextHopDel(key);
    }
  }
}

Kiv::Ptr<MplsL2Adjacency> MplsBaseSm::l2AdjacencyForViaSet(const Mpls::Hardware::L2ViaSet& l2ViaSet,
                                                           L3Adjacency* adjacency) {
  // The one the adjacency holds is already among its layer-3 adjacencies, and
  // the owner of its via set: no lookup by the vias.
  if (Kiv::Ptr<MplsL2Adjacency> held = adjacency->l2Adjacency();
      held && held->l2ViaSet() == l2ViaSet) {
    return held;
  }
  if (const L2AdjIndex* existing = viaSetToHwL2AdjFind(l2ViaSet)) {
    Kiv::Ptr<MplsL2Adjacency> l2 = mplsState()->l2Adjacency(*existing);
    l2->l3AdjacencyIs(adjacency->index());
    return l2;
  }
  Kiv::Ptr<MplsL2Adjacency> l2 = newL2Adjacency();
  l2->hwL2Adjacency()->l2ViaSetIs(l2ViaSet);
  l2->l3AdjacencyIs(adjacency->index());
  viaSetToHwL2AdjIs(l2ViaSet, l2->index());
  PELLET_TRACE(trace_, kTraceAdj, "add l2 adj {} for review", l2->index());
  mplsState()->l2AdjForReviewIs(l2->index());
  return l2;
}

// Both directions: the adjacencies this one backs up lose their backup
// status, and the backup this one used stops counting it as a primary (and is
// reviewed, so that it goes when nothing else uses it).
void MplsBaseSm::deleteBackupAdjInfoFromAdj(L3Adjacency* adjacency) {
  if (adjacency->primaryAdjs() != 0) {
    PELLET_TRACE(trace_, kTraceAdj, "clear backup adj info for primary adj {}",
                 adjacency->index());
    for (L3AdjIndex primary : adjacency->primaryAdjColl()) {
      routingHwMplsStatus()->adjacencyBackupStatusDel(primary);
      if (Kiv::Ptr<L3Adjacency> p = mplsState()->l3Adjacency(primary)) p->backupAdjIs(0);
    }
    adjacency->primaryAdjDelAll();
  }
  if (L3AdjIndex backupIndex = adjacency->backupAdj(); backupIndex != 0) {
    PELLET_TRACE(trace_, kTraceAdj, "clear backup adj {} of adj {}", backupIndex,
                 adjacency->index());
    if (Kiv::Ptr<L3Adjacency> backup = mplsState()->l3Adjacency(backupIndex)) {
      backup->primaryAdjDel(adjacency->index());
      mplsState()->l3AdjForReviewIs(backupIndex);
    }
    routingHwMplsStatus()->adjacencyBackupStatusDel(adjacency->index());
    adjacency->backupAdjIs(0);
  }
}

void MplsBaseSm::deleteRouteKeyFromExtFecInfo(const Mpls::RouteKey& routeKey,
                                              ExternalFecInfo* info) {
  PELLET_TRACE(trace_, kTraceRoute, "delete routeKey {} from extFecInfo {}", routeKey,
               info->fecId());
  info->dependentRouteKeyDel(routeKey);
  maybeDeleteExtFecInfo(info->fecId());
}

void MplsBaseSm::maybeDeleteExtFecInfo(Vosh::Fib::FecId fecId) {
  PELLET_TRACE(trace_, kTraceAdj, "try to delete ext fec {}", fecId);
  Kiv::Ptr<ExternalFecInfo> info = mplsState()->extFecInfo(fecId);
  if (!info || info->dependentRouteKeys() != 0 || info->dependentL3Adjacencys() != 0 ||
      info->dependentPrimaryExtFecInfos() != 0) {
    return;
  }
  // A FEC owned outside this library is only forgotten.
  if (info->allocated()) freeMplsFecId(fecId);
  mplsState()->extFecInfoDel(fecId);
  if (Vosh::Fib::FecId backup = info->backupFecId()) {
    if (Kiv::Ptr<ExternalFecInfo> backupInfo = mplsState()->extFecInfo(backup)) {
      backupInfo->dependentPrimaryExtFecInfoDel(fecId);
      maybeDeleteExtFecInfo(backup);
    }
  }
}

void MplsBaseSm::freeMplsFecId(Vosh::Fib::FecId fecId) {
  PELLET_TRACE(trace_, kTraceAdj, ": fecId: {}", fecId);
  // NOTE: the request goes first, so that the allocator never answers a
  // request whose description is already gone.
  if (in_.hwFecIdRequest) {
    in_.hwFecIdRequest->hwFecIdRequestDel(fecId);
    in_.hwFecIdRequest->fecDel(fecId);
    in_.hwFecIdRequest->fec6Del(fecId);
    in_.hwFecIdRequest->adjSyncIdMapDel(fecId);
  }
  numAllocator()->release(fecId.index());
}

void MplsBaseSm::cleanL3Adj(L3Adjacency*) {}


// ---------------------------------------------------------------------------
// Layer-2 adjacencies and next-hop resolution.

bool MplsBaseSm::resolveNextHopWithMNHSM(const Mpls::LfibMplsVia& via, uint32_t viaIndex,
                                         Mpls::Hardware::Adjacency* hwAdjacency,
                                         L3Adjacency* adjacency, Mpls::Hardware::L2ViaSet& l2ViaSet,
                                         bool requested) {
  PELLET_TRACE(trace_, kTraceDetail, "resolve nexthop with proactiveArpNhSm nexthop {} {}",
               via.nextHop, via.intf);
  PELLET_TRACE(trace_, kTraceDetail, "add entry ({}, {})", via.nextHop, via.intf);
  if (!requested) proactiveArpNhSm()->addEntry(via.nextHop, via.intf);
  Bexo::MplsLabel label = singleMplsLabelFromVia(via);

  Arp::Table::ArpEntry arp = in_.arpVosh->arpEntry(Arp::Table::ArpKey(via.nextHop, via.intf));
  QelL3Intf::L3Id l3Id = in_.l3IntfTable->intfIdToL3Id(via.intf);
  if (!arp || !l3Id || !l3Id.hwSupported) {
    PELLET_TRACE(trace_, kTraceDetail, "nexthop {} on {} not resolved (arp {}, hw intf {})",
                 via.nextHop, via.intf, !!arp, l3Id.hwSupported);
    return false;
  }
  Bexo::IntfId egress = via.intf;
  if (!l3Id.routedPort) {
    // Behind a VLAN interface the MAC table says which port the next hop is on;
    // record the dependency even before it resolves, so that learning the MAC
    // re-reviews this adjacency.
    Bridging::HostKey hostKey(l3Id.vlanId, arp.mac);
    recordFdbDependency(adjacency, hostKey);
    Bridging::HostEntry host = in_.bridgingStatus->hostEntry(hostKey);
    if (!host) {
      PELLET_TRACE(trace_, kTraceDetail, "nexthop {} mac {} not in vlan {} fdb", via.nextHop,
                   arp.mac, l3Id.vlanId);
      return false;
    }
    egress = host.intf;
  }
  hwAdjacency->viaIs(viaIndex, via);
  l2ViaSet.l2ViaIs(
      Mpls::Hardware::L2Via(egress, arp.mac, l3Id.vlanId, label, via.weight, via.nextHop));
  PELLET_TRACE(trace_, kTraceDetail,
               "nexthop resolved: nexthop {} macAddr {} vlanId {} l3Intf {} weight {} nVias {}",
               via.nextHop, arp.mac, l3Id.vlanId, via.intf, via.weight, l2ViaSet.size());
  return true;
}

void MplsBaseSm::recordFdbDependency(L3Adjacency* adjacency, const Bridging::HostKey& hostKey) {
  mplsState()->fdbToL3AdjIdxIs(hostKey)->l3AdjIdxIs(adjacency->index());
  adjacency->hostKeyIs(hostKey);
}

Kiv::Ptr<MplsL2Adjacency> MplsBaseSm::newL2Adjacency() {
  uint64_t index = adjacencyIndex() + 1;
  PELLET_TRACE(trace_, kTraceAdj, "create l2 adj {}", index);
  adjacencyIndexIs(index);
  Kiv::Ptr<Mpls::Hardware::L2Adjacency> hw = routingHwMplsStatus()->l2AdjacencyIs(index);
  auto l2 = Kiv::make<MplsL2Adjacency>(index, hw);
  mplsState()->l2AdjacencyIs(index, l2);
  return l2;
}

void MplsBaseSm::progHwL2Adj(MplsL2Adjacency* l2Adjacency) {
  Vosh::Qel::MplsHwL2AdjacencyConfig record(l2Adjacency->index());
  uint32_t position = 0;
  for (const Mpls::Hardware::L2Via& via : l2Adjacency->l2ViaSet().l2Vias()) {
    record.l2ViaIs(Vosh::Qel::MplsHwL2ViaIndex(position++), via);
  }
  uint8_t oldVersion = static_cast<uint8_t>(l2Adjacency->version());
  l2Adjacency->versionIs(l2Adjacency->version() + 1);
  record.versionIs(static_cast<uint8_t>(l2Adjacency->version()));
  l2Adjacency->hwL2Adjacency()->versionIs(record.version());
  mplsHwCollectionConfig()->l2AdjacencyIs(record);
  PELLET_TRACE(trace_, kTraceAdj, "prog l2 adj {} version {} old adj version {}",
               l2Adjacency->index(), record.version(), oldVersion);
}

void MplsBaseSm::progHwL2AdjLegacy(Mpls::Hardware::L2Adjacency* hwL2Adjacency) {
  hwL2Adjacency->versionIs(static_cast<uint8_t>(hwL2Adjacency->version() + 1));
  Kiv::Ptr<Mpls::Hardware::L2Adjacency> ref(hwL2Adjacency);
  mplsHwConfig()->l2AdjacencyIs(ref, mplsHwConfig()->l2Adjacency(ref) + 1);
  PELLET_TRACE(trace_, kTraceAdj, "prog l2 adj legacy {}", hwL2Adjacency->index());
}

void MplsBaseSm::processL2Adj(L2AdjIndex index) {
  PELLET_TRACE(trace_, kTraceAdj, "process l2 adj {}", index);
  Kiv::Ptr<MplsL2Adjacency> l2 = mplsState()->l2Adjacency(index);
  if (!l2) return;
  if (l2->l3Adjacencys() == 0) {
    if (const L2AdjIndex* owner = viaSetToHwL2AdjFind(l2->l2ViaSet()); owner && *owner == index) {
      viaSetToHwL2AdjDel(l2->l2ViaSet());
    }
    maybeDeleteL2Adj(index);
    return;
  }
  for (L3AdjIndex l3 : l2->l3AdjacencyColl()) {
    PELLET_TRACE(trace_, kTraceDetail, "add l3 adj {} for review", l3);
    mplsState()->l3AdjForReviewIs(l3);
  }
}

void MplsBaseSm::maybeDeleteL2Adj(L2AdjIndex index) {
  Kiv::Ptr<MplsL2Adjacency> l2 = mplsState()->l2Adjacency(index);
  // Routes still point at the hardware record: it may only go once every one
  // of them has been rewritten or removed.
  if (l2 && l2->routeKeys() != 0) {
    PELLET_TRACE(trace_, kTraceAdj, "schedule l2 adj {} for deletion", index);
    mplsState()->l2AdjPendingForDeleteIs(index);
    doMaybeScheduleReview();
    return;
  }
  PELLET_TRACE(trace_, kTraceAdj, "delete l2 adj {}", index);
  mplsState()->l2AdjPendingForDeleteDel(index);
  doDeleteL2Adj(index);
}

void MplsBaseSm::processL2AdjPendingDelete(L2AdjIndex index) {
  Kiv::Ptr<MplsL2Adjacency> l2 = mplsState()->l2Adjacency(index);
  if (!l2) {
    mplsState()->l2AdjPendingForDeleteDel(index);
    return;
  }
  if (l2->l3Adjacencys() != 0) {
    // Taken up again by an adjacency while it waited: it lives on.
    PELLET_TRACE(trace_, kTraceAdj, "1delete l2 adj {} in use by l3 adjs again", index);
    mplsState()->l2AdjPendingForDeleteDel(index);
    if (!viaSetToHwL2AdjHas(l2->l2ViaSet())) viaSetToHwL2AdjIs(l2->l2ViaSet(), index);
    return;
  }
  if (l2->routeKeys() != 0) {
    PELLET_TRACE(trace_, kTraceDetail, "2delete l2 adj {} still used by {} routes", index,
                 l2->routeKeys());
    return;
  }
  mplsState()->l2AdjPendingForDeleteDel(index);
  doDeleteL2Adj(index);
  mplsState()->l2AdjDeletedInc();
}

void MplsBaseSm::doDeleteL2Adj(L2AdjIndex index) {
  PELLET_TRACE(trace_, kTraceAdj, "doDelete l2 adj {}", index);
  Kiv::Ptr<MplsL2Adjacency> l2 = mplsState()->l2Adjacency(index);
  mplsState()->l2AdjacencyDel(index);
  mplsState()->unprogrammedL2AdjDel(index);
  mplsHwCollectionConfig()->l2AdjacencyDel(index);
  routingHwMplsStatus()->l2AdjacencyDel(index);
  if (l2 && mplsHwConfig()) mplsHwConfig()->l2AdjacencyDel(l2->hwL2Adjacency());
}

void MplsBaseSm::deleteRouteKeyFromL2Adj(const Mpls::RouteKey& routeKey,
                                         MplsL2Adjacency* l2Adjacency) {
  l2Adjacency->routeKeyDel(routeKey);
  if (l2Adjacency->routeKeys() == 0 &&
      mplsState()->l2AdjPendingForDeleteHas(l2Adjacency->index())) {
    mplsState()->l2AdjForReviewIs(l2Adjacency->index());
    doMaybeScheduleReview();
  }
}

void MplsBaseSm::handleArpEntry(const Arp::Table::ArpKey& arpKey) {
  PELLET_TRACE(trace_, kTraceDetail, "handle nexthopkey intf: {} addr {}", arpKey.intf,
               arpKey.addr);
  Kiv::Ptr<MplsNextHop> nextHop = mplsState()->mplsNextHop(IpAddrIntfId(arpKey.addr, arpKey.intf));
  if (!nextHop) {
    PELLET_TRACE(trace_, kTraceDetail, "No entry existed for intf: {} addr {}", arpKey.intf,
                 arpKey.addr);
    return;
  }
  for (L3AdjIndex index : nextHop->resolvedByMNHColl()) {
    PELLET_TRACE(trace_, kTraceDetail, "add l3 adj {} for review", index);
    mplsState()->l3AdjForReviewIs(index);
  }
  doMaybeScheduleReview();
}

void MplsBaseSm::handleFdbStatus(const Bridging::HostKey& hostKey) {
  PELLET_TRACE(trace_, kTraceDetail, "key {}", hostKey);
  Kiv::Ptr<MplsFdbEntry> entry = mplsState()->fdbToL3AdjIdx(hostKey);
  if (!entry) return;
  PELLET_TRACE(trace_, kTraceDetail, " Found fid {}, mac {}", hostKey.fid, hostKey.mac);
  for (L3AdjIndex index : entry->l3AdjIdxColl()) {
    PELLET_TRACE(trace_, kTraceDetail, "add l3 adj {} for review", index);
    mplsState()->l3AdjForReviewIs(index);
  }
  doMaybeScheduleReview();
}

void MplsBaseSm::handleHwL2AdjStatus(Vosh::Qel::MplsHwL2AdjacencyId id) {
  Kiv::Ptr<MplsL2Adjacency> l2 = mplsState()->l2Adjacency(id);
  if (!l2) return;
  Vosh::Qel::MplsHwL2AdjacencyStatus status = mplsHwCollectionStatus()->l2Adjacency(id);
  if (status.version != static_cast<uint8_t>(l2->version())) {
    PELLET_TRACE(trace_, kTraceDetail, "l2 adj {} status version: {} config version: {}", id,
                 status.version, static_cast<uint8_t>(l2->version()));
    return;
  }
  if (status.state == Vosh::Qel::mplsHwL2AdjStateUnknown) return;
  if (l2AdjProgrammedIs(l2.get(), status.state == Vosh::Qel::mplsHwL2AdjStateProgrammed)) {
    PELLET_TRACE(trace_, kTraceAdj, "l2 adj {} removed from unprogrammedL2Adj", id);
  }
}

// The legacy status lists the records the driver refused: a record taken off
// the list is programmed. It has no version to compare; the record it names
// is the one this run wrote, as long as the adjacency still holds it.
void MplsBaseSm::handleUnprogrammedAdj(Mpls::Hardware::L2Adjacency* hwL2Adjacency) {
  L2AdjIndex index = hwL2Adjacency->index();
  Kiv::Ptr<MplsL2Adjacency> l2 = mplsState()->l2Adjacency(index);
  if (!l2 || l2->hwL2Adjacency().get() != hwL2Adjacency) return;
  bool programmed =
      !mplsHwStatus()->unprogrammedAdjacency(Kiv::Ptr<Mpls::Hardware::L2Adjacency>(hwL2Adjacency));
  if (l2AdjProgrammedIs(l2.get(), programmed)) {
    PELLET_TRACE(trace_, kTraceAdj, "l2 adj {} removed from unprogrammedAdj", index);
  }
}

bool MplsBaseSm::l2AdjProgrammedIs(MplsL2Adjacency* l2Adjacency, bool programmed) {
  L2AdjIndex index = l2Adjacency->index();
  bool wasUnprogrammed = mplsState()->unprogrammedL2AdjHas(index);
  l2Adjacency->hwL2Adjacency()->unprogrammedIs(!programmed);
  if (!programmed) {
    PELLET_TRACE(trace_, kTraceAdj, "l2 adj {} not programmed", index);
    if (!wasUnprogrammed) {
      mplsState()->unprogrammedL2AdjIs(index);
      mplsState()->numUnprogrammedAdjInc();
    }
    PELLET_TRACE(trace_, kTraceDetail, "unprogrammedRetryIntervalIs {}",
                 unprogrammedRetryInterval());
    rescheduleUnprogrammedTask();
  } else if (wasUnprogrammed) {
    mplsState()->unprogrammedL2AdjDel(index);
  }
  // Only a change of state concerns the adjacencies on top: a record that is
  // simply confirmed needs no second review of every route that uses it.
  if (wasUnprogrammed != programmed) return false;
  PELLET_TRACE(trace_, kTraceDetail, "add l2 adj {} for review", index);
  mplsState()->l2AdjForReviewIs(index);
  doMaybeScheduleReview();
  return programmed;
}

void MplsBaseSm::handleNexthopResolutionAllowDefaultRoute() {
  bool allow = in_.mplsRoutingInfo && in_.mplsRoutingInfo->nexthopResolutionAllowDefaultRoute();
  if (routingHwMplsStatus()->nexthopResolutionAllowDefaultRoute() == allow) return;
  routingHwMplsStatus()->nexthopResolutionAllowDefaultRouteIs(allow);
  // A next hop may resolve another way under the new policy: every adjacency
  // is resolved again. Before processing starts, the start does that anyway.
  if (allowReview()) scheduleAllL3AdjsForReview();
}

void MplsBaseSm::handleL3Intf(Bexo::IntfId intf) {
  PELLET_TRACE(trace_, kTraceDetail, "l3 intf {} changed", intf);
  bool queued = false;
  for (const auto& [key, nextHop] : mplsState()->mplsNextHopColl()) {
    if (key.intf != intf) continue;
    for (L3AdjIndex index : nextHop->resolvedByMNHColl()) mplsState()->l3AdjForReviewIs(index);
    queued = true;
  }
  if (queued) doMaybeScheduleReview();
}

}  // namespace Qel
