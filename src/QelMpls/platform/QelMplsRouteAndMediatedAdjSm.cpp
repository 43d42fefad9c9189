#include "QelMpls/platform/QelMplsRouteAndMediatedAdjSm.h"

#include <algorithm>

#include "Qel/FeatureToggle.h"
#include "QelMpls/platform/QelMplsVoshTables.h"
#include "kiv/Assert.h"
#include "models/FecRequest.h"
#include "models/MplsHardwareStatus.h"
#include "models/VoshTables.h"

namespace Qel {

namespace {
constexpr int kTraceStartup = 1;
constexpr int kTraceAdj = 4;
constexpr int kTraceFec = 5;
constexpr int kTraceDetail = 8;

bool mplsUcmp() {
  static const bool on = featureToggleEnabled("Mpls.json", "MplsUcmp");
  return on;
}

uint64_t objTupleOf(const Mpls::LfibViaSetKey& key) {
  return uint64_t{static_cast<uint32_t>(key.viaType)} << 32 | key.index;
}

Mpls::LfibViaSetKey viaSetKeyOf(uint64_t tuple) {
  return Mpls::LfibViaSetKey(static_cast<Mpls::LfibViaType>(tuple >> 32),
                             static_cast<uint32_t>(tuple));
}

bool onlyImplicitNull(const Bexo::MplsLabelStack& stack) {
  return stack.stackSize() == 1 && stack[0].isImplicitNull();
}
}  // namespace

int getStackDepthAfterAction(Bexo::MplsLabelAction action,
                             const Bexo::UnboundedMplsLabelOperation& labelOperation,
                             const std::string& traceTag) {
  const Bexo::MplsLabelStack& stack = labelOperation.labelStack();
  int depth = 0;
  if (action == Bexo::mplsActionPop) {
    depth = -1;
  } else if (action == Bexo::mplsActionPush && !onlyImplicitNull(stack)) {
    depth = static_cast<int>(stack.stackSize());
  }
  static Pellet::Facility trace(initializeQelMplsPelletHandle(), "QelMplsRouteAndMediatedAdjSm");
  PELLET_TRACE(trace, kTraceDetail,
               "getStackDepthAfterAction {} action {} stackSize {} stack0 {} stackDepth after "
               "action {}",
               traceTag, action, stack.stackSize(),
               stack.stackSize() ? stack[0].value() : Bexo::MplsLabel::none().value(), depth);
  return depth;
}

bool getSkipEgressAclPd(Bexo::MplsLabelAction action, const Mpls::LfibMplsVia& via) {
  return action == Bexo::mplsActionPop || onlyImplicitNull(via.labelStack());
}

class MplsRouteAndMediatedAdjSm::Reactors : public Kiv::Reactor {
 public:
  explicit Reactors(MplsRouteAndMediatedAdjSm* sm) {
    on(sm->hwFecIdResponse()->onHwFecId(),
       [sm](const Vosh::Fib::FecId& fecId) { sm->handleHwFecIdResponse(fecId); });
    // The generation may be reported after the flag.
    if (const auto* ext = sm->inputs().l3AdjSyncStatusExt.get()) {
      on(ext->onGeneration, [sm] { sm->handleSyncDone(); });
    }
  }
};

MplsRouteAndMediatedAdjSm::MplsRouteAndMediatedAdjSm(const std::string& name,
                                                     const Inputs& inputs,
                                                     const MediatedInputs& mediated)
    : MplsBaseSm(name, inputs),
      mediated_(mediated),
      trace_(initializeQelMplsPelletHandle(), "QelMplsRouteAndMediatedAdjSm") {
  KIV_ASSERT(inputs.hwFecIdRequest && mediated_.hwFecIdResponse);
  backupBackoffTask_ =
      std::make_unique<Plin::Task>(inputs.taskScheduler, kTaskPriority,
                                   "Qel::MplsSm-backupBackoff", [this] { runBackupBackoffTask(); });
}

MplsRouteAndMediatedAdjSm::~MplsRouteAndMediatedAdjSm() = default;

// ---------------------------------------------------------------------------
// Start-up and sync.

void MplsRouteAndMediatedAdjSm::handleInitializedSubClass() {
  reactors_ = std::make_unique<Reactors>(this);
  if (!mplsNonStopForwardingSupported()) {
    PELLET_TRACE(trace_, kTraceStartup, "Move to normal stage {}", generation_);
    emptyRequestTable();
    mplsSmStartupStatusIs(MplsSmStartupStatus::mplsSmNormal);
    startProcessing();
    return;
  }
  recoverFecIds();
  if (inputStatusSummary()->status() == MplsSmInputStatus::mplsSmInputUnknown) {
    PELLET_TRACE(trace_, kTraceStartup, "Input not ready yet {}", generation_);
    return;
  }
  PELLET_TRACE(trace_, kTraceStartup, "Input is ready, start the sync {}", generation_);
  handleInputStatusSummaryReady();
}

// The FEC numbers are this run's to hand out again: what the previous run
// filed goes with the hardware tables it programmed.
void MplsRouteAndMediatedAdjSm::emptyRequestTable() {
  FecIdToHwFecIdRequest* request = hwFecIdRequest();
  request->hwFecIdRequestDelAll();
  request->fecDelAll();
  request->fec6DelAll();
  request->adjSyncIdMapDelAll();
  request->objTupleToFecIdDelAll();
  request->syncRequestsReadyDelAll();
}

void MplsRouteAndMediatedAdjSm::recoverFecIds() {
  FecIdToHwFecIdRequest* request = hwFecIdRequest();
  GenerationId highest = 0;
  request->forEachSyncRequestsReady(
      [&highest](GenerationId g, const SyncRequestsReady&) { highest = std::max(highest, g); });
  request->forEachAdjSyncIdMap([&highest](const Vosh::Fib::FecId&, const AdjSyncId& id) {
    highest = std::max(highest, id.generation);
  });
  generation_ = highest + 1;
  request->forEachObjTupleToFecId([this](uint64_t tuple, const Vosh::Fib::FecId& fecId) {
    if (!numAllocator()->allocateSpecific(fecId.index())) {
      PELLET_TRACE(trace_, kTraceStartup, "recovered fecId {} is outside the range or taken",
                   fecId);
      return;
    }
    recoveredFecId_.insert(viaSetKeyOf(tuple), fecId);
  });
  PELLET_TRACE(trace_, kTraceStartup, "Move to processing sync map stage {}: {} fec ids recovered",
               generation_, recoveredFecId_.size());
}

bool MplsRouteAndMediatedAdjSm::adjSyncDone() const {
  const QelL3AdjSyncStatusExternal* ext = inputs().l3AdjSyncStatusExt.get();
  return !ext || (ext->adjSyncDone() && ext->generation() == generation_);
}

void MplsRouteAndMediatedAdjSm::handleWaitingForSyncResponses() {
  PELLET_TRACE(trace_, kTraceStartup, "Move to waiting for sync responses stage {}", generation_);
  hwFecIdRequest()->syncRequestsReadyIs(generation_, SyncRequestsReady{generation_, true});
}

// What the previous run filed and this one did not claim again goes now:
// the numbers, the requests and the via-set records. A request with no record
// of its via set (the previous run stopped between the two writes) goes too.
void MplsRouteAndMediatedAdjSm::releaseUnclaimedRecoveredState() {
  PELLET_TRACE(trace_, kTraceStartup, "Move to normal stage, also send end of sync flag {}",
               generation_);
  FecIdToHwFecIdRequest* request = hwFecIdRequest();
  for (const auto& [viaSetKey, fecId] : recoveredFecId_) {
    request->objTupleToFecIdDel(objTupleOf(viaSetKey));
    if (!mplsState()->extFecInfoHas(fecId)) freeMplsFecId(fecId);
  }
  recoveredFecId_.clear();
  std::vector<Vosh::Fib::FecId> orphans;
  request->forEachHwFecIdRequest([this, &orphans](const Vosh::Fib::FecId& fecId, const auto&) {
    if (!mplsState()->extFecInfoHas(fecId)) orphans.push_back(fecId);
  });
  for (Vosh::Fib::FecId fecId : orphans) {
    request->hwFecIdRequestDel(fecId);
    request->fecDel(fecId);
    request->fec6Del(fecId);
    request->adjSyncIdMapDel(fecId);
  }
  std::vector<GenerationId> earlier;
  request->forEachSyncRequestsReady([this, &earlier](GenerationId g, const SyncRequestsReady&) {
    if (g != generation_) earlier.push_back(g);
  });
  for (GenerationId g : earlier) request->syncRequestsReadyDel(g);
}

// ---------------------------------------------------------------------------
// Layer-3 adjacencies.

void MplsRouteAndMediatedAdjSm::reviewL3Adj(L3AdjIndex index, L3Adjacency* adjacency) {
  PELLET_TRACE(trace_, kTraceAdj, "review l3 adj {}", index);
  Mpls::LfibViaSet viaSet = lfibViaSet(adjacency->viaSetKey());
  // An absent via set reads as the empty record, which has lost its key.
  if (!viaSet) viaSet = Mpls::LfibViaSet(adjacency->viaSetKey());
  bool sane = false;
  switch (adjacency->viaSetKey().viaType) {
    case Mpls::viaTypeExternalFec:
      if (Mpls::LfibExternalFecVia via = getSaneExtFecVia(viaSet); via) {
        processExtFecL3Adj(adjacency, via);
        sane = true;
      }
      break;
    case Mpls::viaTypeMplsIp:
      sane = processMplsIpL3Adj(adjacency, viaSet);
      break;
    default:
      break;
  }
  if (!sane) markL3AdjNotSane(adjacency);
}

void MplsRouteAndMediatedAdjSm::markL3AdjNotSane(L3Adjacency* adjacency) {
  adjacency->unprogrammedIs(true);
  adjacency->unprogrammedReasonIs(UnprogrammedReason::unprogrammedReasonViaSetNotSane);
  // Its routes must not go on forwarding into what the via set no longer says.
  detachExtFecInfo(adjacency);
  PELLET_TRACE(trace_, kTraceAdj, "adj is not sane. Publish routes");
  scheduleRouteKeyForPublish(adjacency);
}

// False when the adjacency cannot be programmed. A back-off is not a
// failure: the adjacency keeps what it had and is reviewed again later.
bool MplsRouteAndMediatedAdjSm::processMplsIpL3Adj(L3Adjacency* adjacency,
                                                   const Mpls::LfibViaSet& viaSet) {
  Kiv::Ptr<const CachedLFibMplsViaColl> vias = getSaneMplsIpLFibVias(viaSet);
  adjacency->cachedViasIs(vias);
  adjacency->lFibAdjTypeIs(l3AdjLFibAdjType(vias.get()));
  if (!validateMplsIpL3Adj(viaSet, vias.get())) return false;
  if (adjacency->lFibAdjType() != L3AdjLFibAdjType::adjTypeRegular) {
    PELLET_TRACE(trace_, kTraceAdj, "l3 adj {} of type {} has no FEC in this mode",
                 adjacency->index(), adjacency->lFibAdjType());
    return false;
  }
  if (!validateAndMaybeUpdateBackupAdjInfo(viaSet, adjacency)) {
    backOff(adjacency);
    return true;
  }
  ProgrammableMplsFecVias& programmable = programmableScratch_;
  getProgrammableFecVias(*vias, programmable);
  Vosh::Fib::FecId fecId = getFecIdForRequest(adjacency, vias.get(), false);
  if (!fecId) return false;
  const ExternalFecInfo* before = adjacency->extFecInfo().get();
  bool hadPop = before && before->fecId() == fecId && popFiled(fecId);
  buildFec(fecId, getBackupFecIdForRequest(adjacency), programmable, fecScratch_);
  bool hasPop = std::any_of(fecScratch_.via.begin(), fecScratch_.via.begin() + fecScratch_.viaCount,
                            [](const Vosh::Fib::FecVia& v) {
                              return v.labelAction == Bexo::mplsActionPop;
                            });
  processRemovePopDependencies(adjacency, hadPop, hasPop);
  requestHwFecIdAndUpdateDependencyMaps(fecId, fecScratch_,
                                        fecId.adjType() == Vosh::Fib::AdjType::mpls6Adj, adjacency);
  setHwAdjacencyVias(adjacency, viaSet, programmable);
  adjacency->unprogrammedIs(false);
  adjacency->unprogrammedReasonIs(UnprogrammedReason::unprogrammedReasonNone);
  return true;
}

bool MplsRouteAndMediatedAdjSm::popFiled(Vosh::Fib::FecId fecId) const {
  const FecIdToHwFecIdRequest* request = hwFecIdRequest();
  Vosh::Fib::Fec filed = fecId.adjType() == Vosh::Fib::AdjType::mpls6Adj
                             ? static_cast<Vosh::Fib::Fec>(request->fec6(fecId))
                             : request->fec(fecId);
  return std::any_of(filed.via.begin(), filed.via.begin() + filed.viaCount,
                     [](const Vosh::Fib::FecVia& v) { return v.labelAction == Bexo::mplsActionPop; });
}

void MplsRouteAndMediatedAdjSm::getProgrammableFecVias(const CachedLFibMplsViaColl& vias,
                                                       ProgrammableMplsFecVias& programmable) const {
  programmable.viaDelAll();
  programmable.programActionIs(MplsFecProgAction::mplsFecProgActionProgram);
  bool pop = false, swap = false, autoDecide = false;
  for (const auto& [index, via] : vias.viaColl()) {
    pop |= via.labelAction() == Bexo::mplsActionPop;
    swap |= via.labelAction() == Bexo::mplsActionSwap;
    autoDecide |= via.payloadType == Mpls::PayloadType::payloadAutoDecide;
  }
  bool onlyPop = pop && swap && autoDecide;
  if (onlyPop) {
    PELLET_TRACE(trace_, kTraceFec,
                 "Mixed pop and swap vias with autoDecide payload, only program ingress pop.");
  }
  for (const auto& [index, via] : vias.viaColl()) {
    if (!onlyPop || via.labelAction() == Bexo::mplsActionPop) programmable.viaIs(index, via);
  }
  PELLET_TRACE(trace_, kTraceDetail, "Programmable vias: {}", programmable.vias());
}

void MplsRouteAndMediatedAdjSm::buildFec(Vosh::Fib::FecId fecId, Vosh::Fib::FecId backupFecId,
                                         const ProgrammableMplsFecVias& programmable,
                                         Vosh::Fib::Fec& fec) const {
  fec.fecId = fecId;
  fec.backupFecId = backupFecId;
  fec.viaCount = 0;
  for (const auto& [index, via] : programmable.viaColl()) {
    if (fec.viaCount == Vosh::Fib::Fec::kMaxVias) break;
    Vosh::Fib::FecVia v;
    v.nextHop = via.nextHop;
    v.intf = via.intf;
    v.label = singleMplsLabelFromVia(via);
    v.labelAction = via.labelAction();
    v.payloadType = via.payloadType;
    v.weight = mplsUcmp() ? static_cast<uint16_t>(via.weight) : 1;
    v.skipEgressAcl = getSkipEgressAclPd(via.labelAction(), via);
    v.labelStackDepth = static_cast<int8_t>(
        getStackDepthAfterAction(via.labelAction(), via.labelOperation, "buildFec"));
    if (via.labelAction() == Bexo::mplsActionPop) {
      // A pop hands the payload on with its own TTL.
      v.ttlMode = 1;
      PELLET_TRACE(trace_, kTraceDetail,
                   "Set ttlMode and payloadType for pop label action, FEC ID: {}", fecId);
    }
    fec.viaAppend(v);
  }
}

void MplsRouteAndMediatedAdjSm::processRemovePopDependencies(L3Adjacency* adjacency, bool hadPop,
                                                             bool hasPop) {
  if (hadPop == hasPop) return;
  for (L3AdjIndex primary : adjacency->primaryAdjColl()) {
    PELLET_TRACE(trace_, kTraceAdj, "schedule adj {} for review", primary);
    mplsState()->l3AdjForReviewIs(primary);
  }
}

void MplsRouteAndMediatedAdjSm::setHwAdjacencyVias(L3Adjacency* adjacency,
                                                   const Mpls::LfibViaSet& viaSet,
                                                   const ProgrammableMplsFecVias& programmable) {
  PELLET_TRACE(trace_, kTraceDetail, "Set hardware info for l3Adj {}", adjacency->index());
  Kiv::Ptr<Mpls::Hardware::Adjacency> hw = routingHwMplsStatus()->adjacencyIs(adjacency->index());
  hw->viaDelAll();
  hw->viaSetTypeIs(viaSet.viaType());
  for (const auto& [index, via] : programmable.viaColl()) hw->viaIs(index, via);
  setHwBackupAdjStatus(adjacency);
}

void MplsRouteAndMediatedAdjSm::cleanL3Adj(L3Adjacency* adjacency) {
  PELLET_TRACE(trace_, kTraceAdj, "Clean l3 adj {}", adjacency->index());
  backedOff_.erase(adjacency->index());
  const Mpls::LfibViaSetKey& key = adjacency->viaSetKey();
  if (mplsState()->lFibViaSetToFecIdHas(key)) {
    mplsState()->lFibViaSetToFecIdDel(key);
    hwFecIdRequest()->objTupleToFecIdDel(objTupleOf(key));
  }
}

// ---------------------------------------------------------------------------
// FEC ids and requests.

Vosh::Fib::FecId MplsRouteAndMediatedAdjSm::getOrAllocateMplsFecId(
    const Mpls::LfibViaSetKey& viaSetKey, Bexo::AddressFamily af, bool forceNew) {
  const Vosh::Fib::AdjType wanted =
      af == Bexo::ipv6() ? Vosh::Fib::AdjType::mpls6Adj : Vosh::Fib::AdjType::mplsAdj;
  if (const Vosh::Fib::FecId* held = mplsState()->lFibViaSetToFecIdFind(viaSetKey);
      held && *held && held->adjType() == wanted && !forceNew) {
    return *held;
  }
  Vosh::Fib::FecId fecId;
  if (const Vosh::Fib::FecId* recovered = recoveredFecId_.find(viaSetKey);
      recovered && recovered->adjType() == wanted && !forceNew) {
    fecId = *recovered;
    recoveredFecId_.erase(viaSetKey);
  } else {
    std::optional<uint64_t> number = numAllocator()->allocate();
    KIV_ASSERT_TEXT(number.has_value(), "numAllocator()->allocate(): FecId range exhausted, Not possible");
    fecId = Vosh::Fib::FecId::fecIdForAdjType(wanted, *number);
  }
  mplsState()->lFibViaSetToFecIdIs(viaSetKey, fecId);
  hwFecIdRequest()->objTupleToFecIdIs(objTupleOf(viaSetKey), fecId);
  PELLET_TRACE(trace_, kTraceFec, " LfibViaSetKey {}: index: {}, fecId: {}", viaSetKey,
               fecId.index(), fecId);
  return fecId;
}

Vosh::Fib::FecId MplsRouteAndMediatedAdjSm::getFecIdForRequest(const L3Adjacency* adjacency,
                                                               const CachedLFibMplsViaColl* vias,
                                                               bool forceNew) {
  if (!vias || vias->vias() == 0) return Vosh::Fib::FecId();
  bool ipv6 = false;
  for (const auto& [index, via] : vias->viaColl()) {
    ipv6 |= via.payloadType == Mpls::PayloadType::payloadIpv6;
  }
  return getOrAllocateMplsFecId(adjacency->viaSetKey(), ipv6 ? Bexo::ipv6() : Bexo::ipv4(),
                                forceNew);
}

Vosh::Fib::FecId MplsRouteAndMediatedAdjSm::getBackupFecIdForRequest(
    const L3Adjacency* adjacency) const {
  if (adjacency->backupAdj() == 0) return Vosh::Fib::FecId();
  Kiv::Ptr<L3Adjacency> backup = mplsState()->l3Adjacency(adjacency->backupAdj());
  return backup && backup->extFecInfo() ? backup->extFecInfo()->fecId() : Vosh::Fib::FecId();
}

void MplsRouteAndMediatedAdjSm::requestHwFecIdAndUpdateDependencyMaps(Vosh::Fib::FecId fecId,
                                                                      const Vosh::Fib::Fec& fec,
                                                                      bool ipv6,
                                                                      L3Adjacency* adjacency) {
  Kiv::Ptr<ExternalFecInfo> info = mplsState()->extFecInfo(fecId);
  if (!info) {
    info = mplsState()->extFecInfoIs(fecId);
    info->allocatedIs(true);
  }
  attachExtFecInfo(adjacency, info);
  updateBackupExtInfoForExtFecInfo(info.get(), fec.backupFecId);
  FecIdToHwFecIdRequest* request = hwFecIdRequest();
  bool changed;
  if (ipv6) {
    Vosh::Fib6::Fec fec6;
    static_cast<Vosh::Fib::Fec&>(fec6) = fec;
    changed = !(request->fec6(fecId) == fec6);
    if (changed) request->fec6Is(fecId, fec6);
    if (request->fecHas(fecId)) request->fecDel(fecId);
  } else {
    changed = !(request->fec(fecId) == fec);
    if (changed) request->fecIs(fecId, fec);
    if (request->fec6Has(fecId)) request->fec6Del(fecId);
  }
  HwFecIdRequest filed = request->hwFecIdRequest(fecId);
  if (!changed) adoptStandingAnswer(info.get(), filed);
  fileRequest(fecId, filed, fec.viaCount, changed);
}

// An answer to the request filed for this very description still stands
// when the request is filed again under a new generation: the allocator
// grants the same description the same hardware id. Taking it at once lets a
// restarted agent recognise its routes' records without waiting for the
// allocator to answer again.
void MplsRouteAndMediatedAdjSm::adoptStandingAnswer(ExternalFecInfo* info,
                                                    const HwFecIdRequest& filed) {
  if (info->hwFecIdValid() || !filed) return;
  HwFecIdResponse standing = hwFecIdResponse()->hwFecId(info->fecId());
  if (!standing.hwFecIdValid() || !(standing.request == filed)) return;
  PELLET_TRACE(trace_, kTraceFec, "fecId {} keeps hwFecId {} answered to {}", info->fecId(),
               standing.hwFecId, filed.syncId);
  setAdjHwState(info, standing.hwFecId, true);
}

// A request is filed again when its description changed or when it was filed
// under another generation; the new sequence number makes the allocator's
// answer to the older one recognisable.
void MplsRouteAndMediatedAdjSm::fileRequest(Vosh::Fib::FecId fecId, const HwFecIdRequest& filed,
                                            uint32_t viaCount, bool descriptionChanged) {
  FecIdToHwFecIdRequest* request = hwFecIdRequest();
  if (!descriptionChanged && filed && filed.syncId.generation == generation_ &&
      filed.viaCount == viaCount) {
    return;
  }
  HwFecIdRequest fresh{fecId, AdjSyncId{generation_, ++syncSequence_}, viaCount};
  request->hwFecIdRequestIs(fecId, fresh);
  request->adjSyncIdMapIs(fecId, fresh.syncId);
  PELLET_TRACE(trace_, kTraceFec, "SyncId is {} consistent for fecId {}", fresh.syncId, fecId);
}

void MplsRouteAndMediatedAdjSm::attachExtFecInfo(L3Adjacency* adjacency,
                                                 const Kiv::Ptr<ExternalFecInfo>& info) {
  if (adjacency->extFecInfo() == info) return;
  detachExtFecInfo(adjacency);
  adjacency->extFecInfoIs(info);
  info->dependentL3AdjacencyIs(adjacency->index());
  // The primaries name this adjacency's FEC as their backup.
  for (L3AdjIndex primary : adjacency->primaryAdjColl()) mplsState()->l3AdjForReviewIs(primary);
}

void MplsRouteAndMediatedAdjSm::detachExtFecInfo(L3Adjacency* adjacency) {
  Kiv::Ptr<ExternalFecInfo> old = adjacency->extFecInfo();
  if (!old) return;
  adjacency->extFecInfoIs(nullptr);
  old->dependentL3AdjacencyDel(adjacency->index());
  maybeDeleteExtFecInfo(old->fecId());
}

// ---------------------------------------------------------------------------
// Answers.

void MplsRouteAndMediatedAdjSm::handleHwFecIdResponse(Vosh::Fib::FecId fecId) {
  Kiv::Ptr<ExternalFecInfo> info = mplsState()->extFecInfo(fecId);
  HwFecIdResponse response = hwFecIdResponse()->hwFecId(fecId);
  if (!info || info->allocated()) {
    HwFecIdRequest request = hwFecIdRequest()->hwFecIdRequest(fecId);
    if (!request || !info) {
      PELLET_TRACE(trace_, kTraceFec, "no request for fecId {}", fecId);
      return;
    }
    if (response && !(response.request == request)) {
      PELLET_TRACE(trace_, kTraceFec, "answer for fecId {} is for request {}, not {}: ignored",
                   fecId, response.request.syncId, request.syncId);
      return;
    }
  }
  uint64_t hwFecId = response ? response.hwFecId : HwFecIdResponse::kInvalidHwFecId;
  bool forwarding = response && response.hwFecIdValid();
  if (info->hwFecId() == hwFecId && info->forwarding() == forwarding) {
    PELLET_TRACE(trace_, kTraceFec, "fecId {} has not changed, skip processing", fecId);
    return;
  }
  processHwFecIdResponse(info.get(), response);
}

void MplsRouteAndMediatedAdjSm::processHwFecIdResponse(ExternalFecInfo* info,
                                                       const HwFecIdResponse& response) {
  setAdjHwState(info, response ? response.hwFecId : HwFecIdResponse::kInvalidHwFecId,
                response.hwFecIdValid());
  // An answer changes what the routes point at, not the adjacencies'
  // descriptions: their routes are reviewed, the adjacencies are not.
  MplsState* s = mplsState();
  for (L3AdjIndex index : info->dependentL3AdjacencyColl()) {
    Kiv::Ptr<L3Adjacency> adjacency = s->l3Adjacency(index);
    if (!adjacency) continue;
    for (const Mpls::RouteKey& key : adjacency->routeKeyColl()) s->routeKeyForReviewIs(key);
    lfibHwStatus()->viaSetIs(adjacency->viaSetKey(),
                             Mpls::LfibViaSetHwStatus{adjacency->viaSetKey(),
                                                      info->forwarding() ? 1u : 0u, 0});
    for (L3AdjIndex primary : adjacency->primaryAdjColl()) {
      if (Kiv::Ptr<L3Adjacency> p = s->l3Adjacency(primary)) setHwBackupAdjStatus(p.get());
    }
  }
  for (const Mpls::RouteKey& key : info->dependentRouteKeyColl()) s->routeKeyForReviewIs(key);
  doMaybeScheduleReview();
}

void MplsRouteAndMediatedAdjSm::setAdjHwState(ExternalFecInfo* info, uint64_t hwFecId,
                                              bool forwarding) {
  PELLET_TRACE(trace_, kTraceFec, "hwFecId.hwId() aka outlif is {} for fecId {}, forwarding {}",
               hwFecId, info->fecId(), forwarding);
  info->hwFecIdIs(hwFecId);
  info->forwardingIs(forwarding);
}

void MplsRouteAndMediatedAdjSm::setHwBackupAdjStatus(const L3Adjacency* adjacency) {
  if (adjacency->backupAdj() == 0) return;
  Kiv::Ptr<L3Adjacency> backup = mplsState()->l3Adjacency(adjacency->backupAdj());
  bool active = backup && backup->extFecInfo() && backup->extFecInfo()->forwarding();
  routingHwMplsStatus()->adjacencyBackupStatusIs(
      adjacency->index(), Mpls::Hardware::AdjacencyBackupStatus{adjacency->index(), active});
}

// ---------------------------------------------------------------------------
// External FECs and backups.

Mpls::LfibExternalFecVia MplsRouteAndMediatedAdjSm::getSaneExtFecVia(
    const Mpls::LfibViaSet& viaSet) const {
  KIV_ASSERT_TEXT(viaSet.key().viaType == Mpls::viaTypeExternalFec,
                  "lFibViaSetKey.viaType() == Mpls::viaTypeExternalFec_");
  if (viaSet.vias() != 1) {
    PELLET_TRACE(trace_, kTraceAdj,
                 "LFib via set {} has {} vias, but should only have one; skipping l3 adj",
                 viaSet.key().index, viaSet.vias());
    return {};
  }
  Mpls::LfibViaKey viaKey = viaSet.viaKey(Mpls::LfibViaIndexRange(0));
  if (viaKey.viaType != Mpls::viaTypeExternalFec) {
    PELLET_TRACE(trace_, kTraceAdj,
                 "LFib via set {} has via type {} instead of externalFec; skipping l3 adj",
                 viaSet.key().index, viaKey.viaType);
    return {};
  }
  Mpls::LfibExternalFecVia via = transitLfib()->extFecVia(viaKey);
  if (!via) {
    PELLET_TRACE(trace_, kTraceAdj, "LFib via {} not found; skipping l3 adj", viaKey);
    return {};
  }
  if (via.fecId == 0) {
    PELLET_TRACE(trace_, kTraceAdj, "LFib via {} has invalid external FecId; skipping l3 adj",
                 viaKey);
    return {};
  }
  return via;
}

// The FEC is owned elsewhere: nothing is requested, and its hardware id is
// what the allocator publishes for it.
void MplsRouteAndMediatedAdjSm::processExtFecL3Adj(L3Adjacency* adjacency,
                                                   const Mpls::LfibExternalFecVia& via) {
  Vosh::Fib::FecId fecId(via.fecId);
  Kiv::Ptr<ExternalFecInfo> info = mplsState()->extFecInfo(fecId);
  if (!info) {
    info = mplsState()->extFecInfoIs(fecId);
    HwFecIdResponse answer = hwFecIdResponse()->hwFecId(fecId);
    setAdjHwState(info.get(), answer.hwFecId, answer.hwFecIdValid());
  }
  attachExtFecInfo(adjacency, info);
  // It reports its via set to the LFIB producer as a regular one does, and
  // must take the report away with it.
  adjacency->lFibAdjTypeIs(L3AdjLFibAdjType::adjTypeRegular);
  lfibHwStatus()->viaSetIs(adjacency->viaSetKey(),
                           Mpls::LfibViaSetHwStatus{adjacency->viaSetKey(),
                                                    info->forwarding() ? 1u : 0u, 0});
  adjacency->unprogrammedIs(false);
  adjacency->unprogrammedReasonIs(UnprogrammedReason::unprogrammedReasonNone);
}

void MplsRouteAndMediatedAdjSm::addRouteKeyToExtFecInfo(const Mpls::RouteKey& routeKey,
                                                        ExternalFecInfo* info) {
  info->dependentRouteKeyIs(routeKey);
  if (Kiv::Ptr<MplsRoute> route = mplsState()->route(routeKey)) route->extFecIdIs(info->fecId());
}

void MplsRouteAndMediatedAdjSm::updateBackupExtInfoForExtFecInfo(ExternalFecInfo* info,
                                                                 Vosh::Fib::FecId backupFecId) {
  if (info->backupFecId() == backupFecId) return;
  PELLET_TRACE(trace_, kTraceFec, "update backup extFecInfo for extFecInfo {}: {}", info->fecId(),
               backupFecId);
  Vosh::Fib::FecId old = info->backupFecId();
  info->backupFecIdIs(backupFecId);
  if (Kiv::Ptr<ExternalFecInfo> backup = mplsState()->extFecInfo(backupFecId)) {
    backup->dependentPrimaryExtFecInfoIs(info->fecId());
  }
  if (Kiv::Ptr<ExternalFecInfo> previous = mplsState()->extFecInfo(old)) {
    previous->dependentPrimaryExtFecInfoDel(info->fecId());
    maybeDeleteExtFecInfo(old);
  }
}

bool MplsRouteAndMediatedAdjSm::validateAndMaybeUpdateBackupAdjInfo(const Mpls::LfibViaSet& viaSet,
                                                                    L3Adjacency* adjacency) {
  const Mpls::LfibViaSetKey& backupKey = viaSet.backupViaSetKey();
  if (!backupKey) {
    unlinkBackup(adjacency);
    return true;
  }
  const uint32_t index = viaSet.key().index;
  if (adjacency->primaryAdjs() != 0) {
    PELLET_TRACE(trace_, kTraceAdj,
                 "LFib via set {} with backup viaSet idx {} is already a backup adj, backing off "
                 "until input is sane",
                 index, backupKey.index);
    return false;
  }
  Mpls::LfibViaSet backupViaSet = lfibViaSet(backupKey);
  if (!backupViaSet) {
    PELLET_TRACE(trace_, kTraceAdj, "LFib via set {} with backup viaSet idx {} missing from lfib",
                 index, backupKey.index);
    return false;
  }
  if (backupViaSet.backupViaSetKey()) {
    PELLET_TRACE(trace_, kTraceAdj,
                 "LFib via set {} with backup viaSet idx {} has a backup so it can't be used as "
                 "backup right now",
                 index, backupKey.index);
    return false;
  }
  Kiv::Ptr<L3Adjacency> backup = backupAdjFor(backupKey);
  linkBackup(adjacency, backup.get());
  if (!backup->extFecInfo() && !isAdjPendingForReview(backup.get())) {
    PELLET_TRACE(trace_, kTraceAdj,
                 "LFib via set {} with backup viaSet idx {} not yet up for review, kicking off "
                 "review and backing off",
                 index, backupKey.index);
    mplsState()->l3AdjForReviewIs(backup->index());
    return false;
  }
  if (isAdjPendingForReview(backup.get())) {
    PELLET_TRACE(trace_, kTraceAdj,
                 "LFib via set {} with backup viaSet idx {} waiting to be reviewed, backing off "
                 "until reviewed",
                 index, backupKey.index);
    return false;
  }
  return true;
}

// The backup's adjacency, made when no route uses its via set: its primary
// keeps it alive.
Kiv::Ptr<L3Adjacency> MplsRouteAndMediatedAdjSm::backupAdjFor(const Mpls::LfibViaSetKey& key) {
  if (const L3AdjIndex* existing = mplsState()->lFibViaSetToL3AdjFind(key)) {
    return mplsState()->l3Adjacency(*existing);
  }
  Kiv::Ptr<L3Adjacency> backup = newL3Adjacency();
  backup->viaSetKeyIs(key);
  mplsState()->lFibViaSetToL3AdjIs(key, backup->index());
  mplsState()->l3AdjForReviewIs(backup->index());
  return backup;
}

void MplsRouteAndMediatedAdjSm::linkBackup(L3Adjacency* adjacency, L3Adjacency* backup) {
  if (adjacency->backupAdj() == backup->index()) return;
  unlinkBackup(adjacency);
  adjacency->backupAdjIs(backup->index());
  backup->primaryAdjIs(adjacency->index());
}

void MplsRouteAndMediatedAdjSm::unlinkBackup(L3Adjacency* adjacency) {
  L3AdjIndex old = adjacency->backupAdj();
  if (old == 0) return;
  adjacency->backupAdjIs(0);
  routingHwMplsStatus()->adjacencyBackupStatusDel(adjacency->index());
  if (Kiv::Ptr<L3Adjacency> backup = mplsState()->l3Adjacency(old)) {
    backup->primaryAdjDel(adjacency->index());
    // Reviewed so that it goes when nothing uses it any more.
    mplsState()->l3AdjForReviewIs(old);
  }
}

void MplsRouteAndMediatedAdjSm::backOff(L3Adjacency* adjacency) {
  if (adjacency->extFecInfo() == nullptr) {
    adjacency->unprogrammedReasonIs(UnprogrammedReason::unprogrammedReasonHwPending);
  }
  backedOff_.insert(adjacency->index());
  backupBackoffTask_->scheduleAfter(kBackupBackoff);
}

void MplsRouteAndMediatedAdjSm::runBackupBackoffTask() {
  for (L3AdjIndex index : backedOff_) {
    if (mplsState()->l3AdjacencyHas(index)) mplsState()->l3AdjForReviewIs(index);
  }
  backedOff_.clear();
  doMaybeScheduleReview();
}

Kiv::Ptr<MplsRouteAndMediatedAdjSm> mplsRouteAndMediatedAdjSmFactory(
    const MplsBaseSm::Inputs& inputs, const MplsRouteAndMediatedAdjSm::MediatedInputs& mediated) {
  auto sm = Kiv::make<MplsRouteAndMediatedAdjSm>("mplsSm", inputs, mediated);
  sm->handleInitialized();
  return sm;
}

}  // namespace Qel
