#include "QelMpls/QelMplsSm.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <vector>

#include "Qel/FeatureToggle.h"
#include "Qel/QelBaseHelper.h"
#include "QelMpls/QelMplsInputStatusSm.h"
#include "QelMpls/QelMplsVoshTables.h"
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
// Trace levels of this facility. 0 to 2 are recorded by default; the rest
// cost one branch each unless switched on.
constexpr int kTraceAlert = 0;
constexpr int kTraceStartup = 1;
constexpr int kTraceAdj = 4;
constexpr int kTraceRoute = 6;
constexpr int kTraceViaSet = 7;
constexpr int kTraceDetail = 8;
constexpr int kTraceFunc = 9;

using MplsSmStartupStatus::mplsSmNormal;
using MplsSmStartupStatus::mplsSmProcessingSyncMap;
using MplsSmStartupStatus::mplsSmUnknown;
using MplsSmStartupStatus::mplsSmWaitingForSyncMap;
using MplsSmStartupStatus::mplsSmWaitingForSyncResponses;

bool isResourceFailure(const Vosh::Qel::MplsHwRouteStatus& status) {
  return status.reason == Vosh::Qel::mplsHwUnprogReasonRouteFull ||
         status.reason == Vosh::Qel::mplsHwUnprogReasonAdjacencyFull;
}

UnprogrammedReason reasonFromHw(Vosh::Qel::MplsHwRouteUnprogrammedReason reason) {
  switch (reason) {
    case Vosh::Qel::mplsHwUnprogReasonSuccess:
      return UnprogrammedReason::unprogrammedReasonNone;
    case Vosh::Qel::mplsHwUnprogReasonRouteFull:
      return UnprogrammedReason::unprogrammedReasonRouteFull;
    case Vosh::Qel::mplsHwUnprogReasonAdjacencyFull:
      return UnprogrammedReason::unprogrammedReasonAdjacencyFull;
    case Vosh::Qel::mplsHwUnprogReasonInterfaceNotReady:
      return UnprogrammedReason::unprogrammedReasonInterfaceNotReady;
    case Vosh::Qel::mplsHwUnprogReasonInvalidFecId:
      return UnprogrammedReason::unprogrammedReasonInvalidFecId;
  }
  return UnprogrammedReason::unprogrammedReasonHwPending;
}

// "a and b" for the conflicting-value traces.
template <class T>
std::string joinedWithAnd(const T& a, const T& b) {
  return fmt::format("{} and {}", a, b);
}
}  // namespace

SysLog& SysLog::instance() {
  static SysLog log;
  return log;
}

void SysLog::log(double time, std::string name, std::string text) {
  entries_.push_back(Entry{time, std::move(name), std::move(text)});
  onLog(entries_.back());
}

Pellet::Handle& initializeQelMplsPelletHandle() {
  static Pellet::Handle& handle =
      Pellet::initializeHandle("QelMpls", {10, 10, 50, 300, 100, 500, 50, 200, 10, 10});
  return handle;
}

// The reactors bound to the inputs. Each only records a key and lets a task
// do the work.
class MplsBaseSm::Reactors : public Kiv::Reactor {
 public:
  explicit Reactors(MplsBaseSm* sm) {
    const Inputs& in = sm->in_;
    on(in.transitLfib->onRoute(), [sm](const Mpls::RouteKey& k) { sm->handleLFibRoute(k); });
    on(sm->lfibTrackingStatus_->onViaSetKeyBacklog,
       [sm](const Mpls::LfibViaSetKey& k) { sm->handleLFibViaSet(k); });
    on(in.mplsHwCollectionStatus->onMplsHwRoute(),
       [sm](const Mpls::RouteKey& k) { sm->handleHwRouteStatus(k); });
    on(in.mplsHwCollectionStatus->onL2Adjacency(),
       [sm](const Vosh::Qel::MplsHwL2AdjacencyId& id) { sm->handleHwL2AdjStatus(id); });
    on(in.arpVosh->onArpEntry(), [sm](const Arp::Table::ArpKey& k) { sm->handleArpEntry(k); });
    on(in.bridgingStatus->onHostEntry(),
       [sm](const Bridging::HostKey& k) { sm->handleFdbStatus(k); });
    on(in.l3IntfTable->onIntfIdToL3Id, [sm](const Bexo::IntfId& i) { sm->handleL3Intf(i); });
    on(in.mplsRoutingInfo->onMplsRouting,
       [sm] { sm->handleMplsRouting(sm->in_.mplsRoutingInfo->mplsRouting()); });
    on(in.mplsRoutingInfo->onNexthopResolutionAllowDefaultRoute,
       [sm] { sm->handleNexthopResolutionAllowDefaultRoute(); });
    on(in.mplsHwStatus->onMplsRouting,
       [sm] { sm->handleHwRoutingEnabled(sm->in_.mplsHwStatus->mplsRouting()); });
    on(in.inputStatusSummary->onStatus, [sm] { sm->handleInputStatusSummaryReady(); });
    // The LFIB may quiesce after its last route was reviewed: nothing else
    // would let the start-up move on before the sync time-out.
    if (in.lfibInfo) {
      on(in.lfibInfo->onTransitLfibQuiesced, [sm] { sm->maybeTransitionToWaitingForSync(); });
    }
    if (in.l3AdjSyncStatusExt) {
      on(in.l3AdjSyncStatusExt->onAdjSyncDone, [sm] { sm->handleSyncDone(); });
    }
    on(sm->onMplsSmStartupStatus, [sm] { sm->updateStartupRecord(); });
  }
};

MplsBaseSm::MplsBaseSm(const std::string& name, const Inputs& inputs)
    : Kiv::Entity(name),
      in_(inputs),
      trace_(initializeQelMplsPelletHandle(), "QelMplsSm"),
      kivModels_(featureToggleEnabled("QelMpls.json", "QelMplsAgentKivModels")),
      state_(Kiv::make<MplsState>()) {
  KIV_ASSERT(in_.taskScheduler && in_.clock);
  createTasks();
}

MplsBaseSm::~MplsBaseSm() = default;

void MplsBaseSm::createTasks() {
  Plin::TaskScheduler* s = in_.taskScheduler;
  reviewTask_ = std::make_unique<Plin::Task>(s, kTaskPriority, "Qel::MplsSm-reviewTask",
                                             [this] { runReviewTask(); });
  unprogrammedRouteTask_ =
      std::make_unique<Plin::Task>(s, kTaskPriority, "Qel::MplsSm-reviewUnprogrammedRoute",
                                   [this] { runUnprogrammedRouteReviewTask(); });
  routePublishTask_ = std::make_unique<Plin::Task>(
      s, kTaskPriority, "Qel::MplsSm-publishReviewRoutes", [this] { runPublishRouteKeysTask(); });
  syncMapTask_ = std::make_unique<Plin::Task>(s, kTaskPriority, "Qel::MplsSm-syncMapTask",
                                              [this] { handleSyncMapQuiesced(); });
  syncTimeoutTask_ = std::make_unique<Plin::Task>(s, kTaskPriority, "Qel::MplsSm-syncTimeoutTask",
                                                  [this] { handleSyncTimeout(); });
  cleanupHwStatusAdjTask_ =
      std::make_unique<Plin::Task>(s, kTaskPriority, "Qel::MplsSm-cleanupHwStatusAdjTask",
                                   [this] { runCleanupHwStatusAdjTask(); });
}

void MplsBaseSm::handleInitialized() {
  PELLET_TRACE(trace_, kTraceFunc, "handleInitialized");
  startupRecord_ = mplsSmStartupRecordFactory("MplsSmStartupRecord");
  startupRecord_->clearAndInitialize(now());
  lfibTrackingStatus_ = Kiv::make<Mpls::LfibTrackingStatus>();
  lfibTrackingSm_ =
      Kiv::make<Mpls::LfibTrackingSm>("MplsSm-TrackingSm", in_.transitLfib, lfibTrackingStatus_);
  reactors_ = std::make_unique<Reactors>(this);
  handleInitializedSubClass();
}

void MplsBaseSm::updateStartupRecord() {
  startupRecord_->updateMplsSmStartupRecord(mplsSmStartupStatus(), now());
}

// ---------------------------------------------------------------------------
// Start-up, sync and recovery.

bool MplsBaseSm::mplsNonStopForwardingSupported() const {
  return in_.mplsSmHelper && in_.mplsSmHelper->mplsNonStopForwardingSupported();
}

bool MplsBaseSm::syncMapQuiesced() const {
  return in_.mplsHwSingletonStatus && in_.mplsHwSingletonStatus->routeSyncMapReady();
}

bool MplsBaseSm::inputLfibQuiesced() const {
  return in_.lfibInfo && in_.lfibInfo->transitLfibQuiesced();
}

bool MplsBaseSm::mplsRoutingEnabled() const {
  return in_.mplsRoutingInfo && in_.mplsRoutingInfo->mplsRouting();
}

void MplsBaseSm::handleInputStatusSummaryReady() {
  PELLET_TRACE(trace_, kTraceFunc, "handleInputStatusSummaryReady");
  if (!mplsNonStopForwardingSupported()) return;
  if (!syncMapQuiesced()) {
    syncMapTask_->scheduleAfter(timeoutSyncMapDelay);
    return;
  }
  // The summary can report the sync map before the re-check is due; the
  // re-check must not then run the stages a second time.
  syncMapTask_->cancel();
  switch (inputStatusSummary()->status()) {
    case MplsSmInputStatus::mplsSmInputNotReady:
      KIV_ASSERT_TEXT(mplsHwCollectionConfig()->l2Adjacencys() == 0,
                      "!mplsHwCollectionConfig()->l2Adjacencys()");
      allowReviewIs(false);
      mplsSmStartupStatusIs(mplsSmWaitingForSyncMap);
      mplsStateHasInfoPendingReconciliationIs(true);
      break;
    case MplsSmInputStatus::mplsSmInputReady:
      KIV_ASSERT_TEXT(
          mplsSmStartupStatus() == mplsSmWaitingForSyncMap ||
              mplsSmStartupStatus() == mplsSmUnknown,
          "( mplsSmStartupStatus() == mplsSmWaitingForSyncMap() || mplsSmStartupStatus() == "
          "mplsSmUnknown() ) && \"Unless input is ready, we should never have gone past these "
          "stages\"");
      mplsSmStartupStatusIs(mplsSmProcessingSyncMap);
      startProcessing();
      break;
    case MplsSmInputStatus::mplsSmInputUnknown:
      KIV_ASSERT_TEXT(false, "inputStatusSummary()->status() != mplsSmInputUnknown");
  }
}

void MplsBaseSm::handleSyncMapQuiesced() { handleInputStatusSummaryReady(); }

void MplsBaseSm::recoverNextHwAdjIndex() {
  uint64_t highest = 0;
  mplsHwCollectionConfig()->forEachL2Adjacency(
      [&highest](Vosh::Qel::MplsHwL2AdjacencyId id, const Vosh::Qel::MplsHwL2AdjacencyConfig&) {
        highest = std::max(highest, id);
      });
  highestRecoveredHwAdjIndexIs(highest);
  if (adjacencyIndex() < highest) adjacencyIndexIs(highest);
  PELLET_TRACE(trace_, kTraceStartup, "recovered next hw adj index {}", adjacencyIndex() + 1);
}

void MplsBaseSm::startProcessing() {
  PELLET_TRACE(trace_, kTraceStartup, "startProcessing");
  KIV_ASSERT_TEXT(in_.lfibInfo && in_.localLfibInfo && in_.transitLfib && in_.mplsRoutingInfo &&
                      (in_.mplsHwConfig || in_.mplsHwCollectionConfig),
                  "lfibInfo() && localLfibInfo() && transitLfib() && mplsRoutingInfo() && ( "
                  "mplsHwConfig() || mplsHwCollectionConfig() )");
  KIV_ASSERT_TEXT(in_.proactiveArpNhSm, "proactiveArpNhSm()");
  KIV_ASSERT_TEXT(mplsSmStartupStatus() != mplsSmUnknown,
                  "mplsSmStartupStatus() != mplsSmUnknown()");

  if (!kivModels()) {
    mplsHwConfig()->l2AdjacencyDelAll();
    mplsHwConfig()->routeDelAll();
  }
  bool coldStart = mplsSmStartupStatus() != mplsSmProcessingSyncMap;
  if (coldStart) {
    // NOTE: routes first, then the layer-2 records they point at.
    mplsHwCollectionConfig()->mplsHwRouteDelAll();
    mplsHwCollectionConfig()->l2AdjacencyDelAll();
    routingHwMplsStatus()->routeDelAll();
    // Indexes start again from 1: a published layer-2 adjacency of the
    // previous run would be taken for a new one of the same index, and one
    // of an index not reached again would stay for ever.
    routingHwMplsStatus()->l2AdjacencyDelAll();
    lfibHwStatus()->unprogrammedRouteDelAll();
    lfibHwStatus()->viaSetDelAll();
  }
  syncTimeoutTask_->scheduleAfter(timeoutSyncDelay);
  if (mplsStateHasInfoPendingReconciliation()) {
    mplsStateHasInfoPendingReconciliationIs(false);
  } else {
    recoverNextHwAdjIndex();
  }
  cleanupHwStatusAdjSyncDoneIs(false);
  cleanupBookmark_ = 0;
  cleanupHwStatusAdjTask_->scheduleNow();
  handleMplsRouting(mplsRoutingEnabled());
  handleNexthopResolutionAllowDefaultRoute();
  allowReviewIs(true);
  scheduleAllL3AdjsForReview();
  handleLFibRoute();
  if (!coldStart) handleMplsRouteSyncMap();
}

void MplsBaseSm::handleMplsRouteSyncMap() {
  KIV_ASSERT_TEXT(inputStatusSummary()->status() == MplsSmInputStatus::mplsSmInputReady,
                  "inputStatusSummary()->status() == MplsSmInputStatus::mplsSmInputReady_");
  mplsHwCollectionStatus()->forEachMplsRouteSyncMap(
      [this](const Mpls::RouteKey& key, const Vosh::Qel::MplsRouteSyncMap&) {
        // A route the LFIB already offered again is not stale.
        if (mplsIpRouteKeyHas(key)) return;
        staleRecoveredRouteIs(key);
        PELLET_TRACE(trace_, kTraceDetail, "Add stale route: {}", key);
      });
  maybeTransitionToWaitingForSync();
}

void MplsBaseSm::maybeTransitionToWaitingForSync() {
  bool nothingToReview =
      mplsState()->routeKeyForReviews() == 0 && mplsState()->l3AdjForReviews() == 0;
  if (mplsSmStartupStatus() == mplsSmProcessingSyncMap && inputLfibQuiesced() && nothingToReview) {
    mplsSmStartupStatusIs(mplsSmWaitingForSyncResponses);
    PELLET_TRACE(trace_, kTraceStartup,
                 "No route or L3Adj for review, moving to waitingForSync stage, generationId {}",
                 in_.l3AdjSyncStatusExt ? in_.l3AdjSyncStatusExt->generation() : 0);
    handleSyncDone();
    return;
  }
  PELLET_TRACE(
      trace_, kTraceDetail,
      "Not moving to waitingForSync stage - mplsSmStartupStatus: {}, inputLfibQuiesced: {}",
      mplsSmStartupStatus(), inputLfibQuiesced());
}

void MplsBaseSm::handleSyncDone() {
  bool adjSyncDone = !in_.l3AdjSyncStatusExt || in_.l3AdjSyncStatusExt->adjSyncDone();
  if (mplsSmStartupStatus() == mplsSmWaitingForSyncResponses && adjSyncDone) {
    processSyncDone();
    PELLET_TRACE(trace_, kTraceStartup, "adjSyncDone transitioned to {}, mplsSmStartupStatus is {}",
                 adjSyncDone, mplsSmStartupStatus());
    return;
  }
  PELLET_TRACE(trace_, kTraceStartup,
               "adjSyncDone transitioned to {}, mplsSmStartupStatus is {}, NOT transitioning to "
               "normal stage for QelMplsSm",
               adjSyncDone, mplsSmStartupStatus());
}

void MplsBaseSm::processSyncDone() {
  for (const Mpls::RouteKey& key : staleRecoveredRouteColl()) {
    PELLET_TRACE(trace_, kTraceStartup, "Delet stale route: {}", key);
    mplsHwCollectionConfig()->mplsHwRouteDel(key);
  }
  staleRecoveredRouteDelAll();
  cleanupRoutingHwMplsStatusRoute();
  if (mplsHwSingletonConfig()) {
    mplsHwSingletonConfig()->endOfMplsSyncAtGenerationIs(
        in_.l3AdjSyncStatusExt ? in_.l3AdjSyncStatusExt->generation() : 0);
    if (!mplsHwSingletonConfig()->ready()) {
      PELLET_TRACE(trace_, kTraceStartup, "Set ready bool flag. It wasn't already set");
      mplsHwSingletonConfig()->readyIs(true);
    }
  }
  syncTimeoutTask_->cancel();
  mplsSmStartupStatusIs(mplsSmNormal);
  doMaybeScheduleReview();
  PELLET_TRACE(trace_, kTraceStartup, "Transitioned to normal stage");
}

void MplsBaseSm::handleSyncTimeout() {
  if (!mplsNonStopForwardingSupported()) return;
  PELLET_TRACE(trace_, kTraceStartup, "Current state is: {}", mplsSmStartupStatus());
  processSyncDone();
}

// ---------------------------------------------------------------------------
// MPLS routing enable/disable and hardware-status clean-up.

void MplsBaseSm::handleMplsRouting(bool enabled) {
  PELLET_TRACE(trace_, kTraceStartup, " routing {}", enabled);
  if (enabled) {
    PELLET_TRACE(trace_, kTraceStartup, "mplsRouting enabled");
  } else {
    PELLET_TRACE(trace_, kTraceStartup, "mplsRouting disabled");
  }
  if (mplsHwConfig()) mplsHwConfig()->mplsRoutingIs(enabled);
  if (mplsHwSingletonConfig()) mplsHwSingletonConfig()->mplsRoutingIs(enabled);
  if (!enabled) {
    // Every tracked route goes: processRouteKey deletes it while routing is off.
    for (const auto& [key, route] : mplsState()->routeColl()) mplsState()->routeKeyForReviewIs(key);
  } else if (allowReview()) {
    handleLFibRoute();
  }
  doMaybeScheduleReview();
}

void MplsBaseSm::handleHwRoutingEnabled(bool enabled) {
  PELLET_TRACE(trace_, kTraceStartup, " routing {}", enabled);
  if (enabled) {
    PELLET_TRACE(trace_, kTraceStartup, "platform enabled mplsRouting");
    if (allowReview()) handleLFibRoute();
  } else {
    PELLET_TRACE(trace_, kTraceStartup, "platform disnabled mplsRouting");
  }
}

void MplsBaseSm::doMaybeSetConfigRouting() {
  if (mplsSmStartupStatus() != mplsSmNormal) return;
  bool wanted = mplsRoutingEnabled();
  bool changed = false;
  if (mplsHwConfig() && mplsHwConfig()->mplsRouting() != wanted) {
    mplsHwConfig()->mplsRoutingIs(wanted);
    changed = true;
  }
  if (mplsHwSingletonConfig() && mplsHwSingletonConfig()->mplsRouting() != wanted) {
    mplsHwSingletonConfig()->mplsRoutingIs(wanted);
    changed = true;
  }
  if (!changed) return;
  if (!wanted) PELLET_TRACE(trace_, kTraceStartup, "disable mplsRouting");
  doMaybeScheduleReview();
}

void MplsBaseSm::cleanupRoutingHwMplsStatusRoute() {
  if (mplsState()->routes() == 0) {
    PELLET_TRACE(trace_, kTraceStartup, "No route to be published");
    routingHwMplsStatus()->routeDelAll();
    return;
  }
  std::vector<Mpls::RouteKey> unowned;
  for (const auto& [key, info] : routingHwMplsStatus()->routeColl()) {
    if (!mplsState()->routeHas(key)) unowned.push_back(key);
  }
  for (const Mpls::RouteKey& key : unowned) {
    PELLET_TRACE(trace_, kTraceRoute, "Route: {} doesn't exist", key);
    routingHwMplsStatus()->routeDel(key);
  }
}

void MplsBaseSm::runCleanupHwStatusAdjTask() {
  if (mplsSmStartupStatus() != mplsSmNormal) {
    PELLET_TRACE(trace_, kTraceDetail, "Not ready yet");
    return;
  }
  auto& adjacencies = routingHwMplsStatus()->adjacencyColl();
  std::vector<uint64_t> unowned;
  uint64_t last = cleanupBookmark_;
  bool yielded = false;
  for (const auto& [index, adjacency] : adjacencies) {
    if (index < cleanupBookmark_) continue;
    last = index;
    if (!mplsState()->l3AdjacencyHas(index)) unowned.push_back(index);
    if (shouldTaskYield(cleanupHwStatusAdjTask_.get())) {
      yielded = true;
      break;
    }
  }
  for (uint64_t index : unowned) {
    routingHwMplsStatus()->adjacencyBackupStatusDel(index);
    routingHwMplsStatus()->adjacencyDel(index);
  }
  cleanupHwStatusAdjTask_->taskWorkCountInc(unowned.size());
  if (yielded) {
    PELLET_TRACE(trace_, kTraceDetail, "Cleaned up to: {}", last);
    cleanupBookmark_ = last + 1;
    cleanupHwStatusAdjTask_->scheduleNow();
    return;
  }
  cleanupHwStatusAdjSyncDoneIs(true);
}

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
  if (!viaSet) {
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
  if (Kiv::Ptr<MplsL2Adjacency> l2 = adjacency->l2Adjacency()) {
    l2->l3AdjacencyDel(index);
    PELLET_TRACE(trace_, kTraceAdj, "add l2 adj {} for review", l2->index());
    mplsState()->l2AdjForReviewIs(l2->index());
    adjacency->l2AdjacencyIs(nullptr);
  }
  deleteL3AdjRefs(adjacency.get());
  adjacency->nextHopDelAll();
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

void MplsBaseSm::deleteBackupAdjInfoFromAdj(L3Adjacency* adjacency) {
  if (adjacency->primaryAdjs() == 0) return;
  PELLET_TRACE(trace_, kTraceAdj, "clear backup adj info for primary adj {}", adjacency->index());
  for (L3AdjIndex primary : adjacency->primaryAdjColl()) {
    routingHwMplsStatus()->adjacencyBackupStatusDel(primary);
  }
  adjacency->primaryAdjDelAll();
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
  freeMplsFecId(fecId);
  mplsState()->extFecInfoDel(fecId);
}

void MplsBaseSm::freeMplsFecId(Vosh::Fib::FecId fecId) {
  PELLET_TRACE(trace_, kTraceAdj, ": fecId: {}", fecId);
  if (!in_.hwFecIdRequest) return;
  in_.hwFecIdRequest->fecDel(fecId);
  in_.hwFecIdRequest->hwFecIdRequestDel(fecId);
  in_.hwFecIdRequest->adjSyncIdMapDel(fecId);
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
  handleUnprogrammedAdj(l2->hwL2Adjacency().get(),
                        status.state == Vosh::Qel::mplsHwL2AdjStateProgrammed);
}

void MplsBaseSm::handleUnprogrammedAdj(Mpls::Hardware::L2Adjacency* hwL2Adjacency,
                                       bool programmed) {
  L2AdjIndex index = hwL2Adjacency->index();
  bool wasUnprogrammed = mplsState()->unprogrammedL2AdjHas(index);
  hwL2Adjacency->unprogrammedIs(!programmed);
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
    PELLET_TRACE(trace_, kTraceAdj, "l2 adj {} removed from unprogrammedL2Adj", index);
  }
  // Only a change of state concerns the adjacencies on top: a record that is
  // simply confirmed needs no second review of every route that uses it.
  if (wasUnprogrammed == !programmed) return;
  PELLET_TRACE(trace_, kTraceDetail, "add l2 adj {} for review", index);
  mplsState()->l2AdjForReviewIs(index);
  doMaybeScheduleReview();
}

void MplsBaseSm::handleNexthopResolutionAllowDefaultRoute() {
  bool allow = in_.mplsRoutingInfo && in_.mplsRoutingInfo->nexthopResolutionAllowDefaultRoute();
  routingHwMplsStatus()->nexthopResolutionAllowDefaultRouteIs(allow);
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

// ---------------------------------------------------------------------------
// Review, retry and publish tasks.

bool MplsBaseSm::anyReviewWork() const {
  const MplsState* s = mplsState();
  return s->l3AdjForReviews() != 0 || s->routeKeyForReviews() != 0 || s->l2AdjForReviews() != 0;
}

bool MplsBaseSm::onlyUnprogrammedWork() const {
  const MplsState* s = mplsState();
  return !anyReviewWork() && (s->unprogrammedRoutes() != 0 || s->unprogrammedL2Adjs() != 0);
}

void MplsBaseSm::doMaybeScheduleReview() {
  if (onlyUnprogrammedWork()) {
    PELLET_TRACE(trace_, kTraceDetail,
                 ": Only unprogrammed routes need review. The review interval is  {} seconds.",
                 unprogrammedRetryInterval());
    PELLET_TRACE(trace_, kTraceDetail, "Schedule unprogrammedRoutes to be published");
    rescheduleUnprogrammedTask();
    return;
  }
  if (!anyReviewWork()) {
    PELLET_TRACE(trace_, kTraceDetail, "nothing to review");
    return;
  }
  if (!allowReview()) return;
  PELLET_TRACE(trace_, kTraceDetail, " Review interval is {}", reviewInterval());
  reviewTask_->scheduleAfter(reviewInterval());
  currentReviewIntervalIs(reviewInterval());
}

void MplsBaseSm::rescheduleUnprogrammedTask() {
  unprogrammedRouteTask_->scheduleAfter(unprogrammedRetryInterval());
}

bool MplsBaseSm::shouldTaskYield(Plin::Task* task) const {
  if (!task->running()) return true;
  if (task->taskShouldYield()) return true;
  return in_.attrLogSm && in_.attrLogSm->isAttrLogOutClogged();
}

// Takes items from the front of a review set, one at a time, until the
// items queued when the pass began are done or the task must yield. Items
// queued again meanwhile (a route waiting for its adjacency) wait for the next
// pass. Returns true when it must yield.
template <class Set, class Fn>
bool MplsBaseSm::drain(Set& set, Fn&& process, uint64_t& done) {
  for (size_t budget = set.size(); budget != 0; --budget) {
    const auto* front = set.front();
    if (!front) break;
    auto item = *front;
    set.erase(item);
    process(item);
    ++done;
    if (shouldTaskYield(reviewTask_.get())) return true;
  }
  return false;
}

void MplsBaseSm::runReviewTask() {
  if (!allowReview()) return;
  reviewCountInc(1);
  MplsState* s = mplsState();
  uint64_t done = 0;
  bool yielded = false;

  PELLET_TRACE(trace_, kTraceDetail, "review l3 adj");
  uint64_t before = done;
  yielded = drain(
      s->l3AdjForReviewColl(), [this](L3AdjIndex i) { processL3Adj(i); }, done);
  s->l3AdjReviewedInc(done - before);

  if (!yielded) {
    PELLET_TRACE(trace_, kTraceDetail, "review routeKey");
    before = done;
    yielded = drain(
        s->routeKeyForReviewColl(), [this](const Mpls::RouteKey& k) { processRouteKey(k); }, done);
    s->routeKeyReviewedInc(done - before);
  }

  maybeTransitionToWaitingForSync();

  if (!yielded) {
    PELLET_TRACE(trace_, kTraceDetail, "review l2 adj");
    before = done;
    yielded = drain(
        s->l2AdjForReviewColl(), [this](L2AdjIndex i) { processL2Adj(i); }, done);
    s->l2AdjReviewedInc(done - before);
  }

  if (mplsHwSingletonConfig()) {
    mplsHwSingletonConfig()->routesUnderReviewIs(s->routeKeyForReviews());
    mplsHwSingletonConfig()->l3AdjsUnderReviewIs(s->l3AdjForReviews());
  }

  if (!yielded) {
    PELLET_TRACE(trace_, kTraceDetail, "review l2 adj pending for deletion");
    std::vector<L2AdjIndex> pending(s->l2AdjPendingForDeleteColl().begin(),
                                    s->l2AdjPendingForDeleteColl().end());
    for (L2AdjIndex index : pending) {
      processL2AdjPendingDelete(index);
      ++done;
      if (shouldTaskYield(reviewTask_.get())) {
        yielded = true;
        break;
      }
    }
  }

  if (s->routeKeyForReviews() == 0 && s->l3AdjForReviews() == 0) releaseAllHeldByReview();
  routeKeyToBePublishedIs(true);
  PELLET_TRACE(trace_, kTraceDetail, "Schedule routeKey to be published");
  if (!publishToExamine_.empty()) routePublishTask_->scheduleNow();
  reviewTask_->taskWorkCountInc(done);
  if (done == 0) PELLET_TRACE(trace_, kTraceDetail, "nothing to be reviewed");

  if (anyReviewWork()) {
    // A yielded slice continues at once; new work waits for its interval.
    if (yielded) {
      reviewTask_->scheduleNow();
    } else {
      doMaybeScheduleReview();
    }
  }
  if (mplsSmStartupStatus() == mplsSmNormal) doMaybeSetConfigRouting();
}

void MplsBaseSm::runUnprogrammedRouteReviewTask() {
  PELLET_TRACE(trace_, kTraceDetail, "review unprogrammed routes ");
  Plin::Task* task = unprogrammedRouteTask_.get();
  MplsState* s = mplsState();
  uint64_t done = 0;
  bool yielded = false;
  // A round retries what was refused when it began, each item once, however
  // many slices it takes: a retried item stays refused until the driver
  // answers, and a slice that started from the front again would retry the
  // same few items for ever.
  if (retryRoundDone()) startRetryRound();
  while (!yielded && retryL2AdjsDone_ < retryL2Adjs_.size()) {
    L2AdjIndex index = retryL2Adjs_[retryL2AdjsDone_++];
    if (!s->unprogrammedL2AdjHas(index)) continue;
    Kiv::Ptr<MplsL2Adjacency> l2 = s->l2Adjacency(index);
    if (!l2) {
      s->unprogrammedL2AdjDel(index);
      continue;
    }
    PELLET_TRACE(trace_, kTraceDetail, "retry unprogrammed adj {}", index);
    if (kivModels()) {
      progHwL2Adj(l2.get());
    } else {
      progHwL2AdjLegacy(l2->hwL2Adjacency().get());
    }
    s->unprogAdjRetriedInc();
    ++done;
    yielded = shouldTaskYield(task);
  }
  while (!yielded && retryRoutesDone_ < retryRoutes_.size()) {
    Mpls::RouteKey key = retryRoutes_[retryRoutesDone_++];
    if (!s->unprogrammedRouteHas(key)) continue;
    PELLET_TRACE(trace_, kTraceDetail, "retry unprogrammed routeKey {}", key);
    processRouteKey(key);
    s->unprogRouteRetriedInc();
    ++done;
    yielded = shouldTaskYield(task);
  }
  routeKeyToBePublishedIs(true);
  if (!publishToExamine_.empty()) routePublishTask_->scheduleNow();
  doMaybeSetConfigRouting();
  task->taskWorkCountInc(done);
  if (!retryRoundDone()) {
    task->scheduleNow();
  } else if (s->unprogrammedRoutes() != 0 || s->unprogrammedL2Adjs() != 0) {
    rescheduleUnprogrammedTask();
  }
  unprogrammedRetryIntervalIs(defaultUnprogrammedRetryInterval());
  PELLET_TRACE(trace_, kTraceDetail, "Set unprogrammedRetryInterval to default: {}",
               defaultUnprogrammedRetryInterval());
  doMaybeScheduleReview();
}

bool MplsBaseSm::retryRoundDone() const {
  return retryL2AdjsDone_ == retryL2Adjs_.size() && retryRoutesDone_ == retryRoutes_.size();
}

void MplsBaseSm::startRetryRound() {
  const MplsState* s = mplsState();
  retryL2Adjs_.assign(s->unprogrammedL2AdjColl().begin(), s->unprogrammedL2AdjColl().end());
  retryRoutes_.assign(s->unprogrammedRouteColl().begin(), s->unprogrammedRouteColl().end());
  retryL2AdjsDone_ = 0;
  retryRoutesDone_ = 0;
}

bool MplsBaseSm::routeCanBePublished(const Mpls::RouteKey& routeKey) const {
  return publishHold(routeKey) == PublishHold::none;
}

MplsBaseSm::PublishHold MplsBaseSm::publishHold(const Mpls::RouteKey& routeKey) const {
  PELLET_TRACE(trace_, kTraceDetail, "routeCanBePublished routeKey {}", routeKey);
  const Kiv::Ptr<MplsRoute>* route = mplsState()->routeFind(routeKey);
  if (!route) {
    PELLET_TRACE(trace_, kTraceDetail, "Route doesn't exist, publish");
    return PublishHold::none;
  }
  if (mplsState()->routeKeyForReviewHas(routeKey)) {
    PELLET_TRACE(trace_, kTraceDetail, "Route under review, don't publish");
    return PublishHold::review;
  }
  if ((*route)->l3AdjIndex() != 0 && mplsState()->l3AdjForReviewHas((*route)->l3AdjIndex())) {
    PELLET_TRACE(trace_, kTraceDetail, "L3Adj under review, don't publish");
    return PublishHold::review;
  }
  if ((*route)->awaitingHw()) {
    PELLET_TRACE(trace_, kTraceDetail, "Route waiting for hardware, don't publish");
    return PublishHold::hardware;
  }
  return PublishHold::none;
}

void MplsBaseSm::publishRouteKey(const Mpls::RouteKey& routeKey) {
  PELLET_TRACE(trace_, kTraceRoute, "publish routeKey {}", routeKey);
  Kiv::Ptr<MplsRoute> route = mplsState()->route(routeKey);
  if (!route) {
    PELLET_TRACE(trace_, kTraceRoute, "unpublish routeKey {}", routeKey);
    routingHwMplsStatus()->routeDel(routeKey);
    lfibHwStatus()->unprogrammedRouteDel(routeKey);
    mplsState()->routeKeyPublishedInc();
    return;
  }
  if (route->l3AdjIndex() == 0) {
    PELLET_TRACE(trace_, kTraceRoute, "not publishing routeKey{} since l3 adjacency doesn't exist",
                 routeKey);
    return;
  }
  Mpls::Hardware::RouteInfo info;
  info.state = route->unprogrammed() ? Mpls::Hardware::RouteState::routeStateUnprogrammed
                                     : Mpls::Hardware::RouteState::routeStateProgrammed;
  info.unprogrammedReason = static_cast<uint32_t>(route->unprogrammedReason());
  info.adjacencyIndex = route->l3AdjIndex();
  info.l2AdjacencyIndex = route->l2AdjIndex();
  info.version = static_cast<uint8_t>(route->version());
  PELLET_TRACE(trace_, kTraceRoute, "routeInfo status {} adj {} unprogrammed {}", info.state,
               info.adjacencyIndex, route->unprogrammed());
  routingHwMplsStatus()->routeIs(routeKey, info);
  if (route->unprogrammed()) {
    lfibHwStatus()->unprogrammedRouteIs(routeKey, Mpls::LfibHwProgrammingReturnCode::hwFailure);
  } else {
    lfibHwStatus()->unprogrammedRouteDel(routeKey);
  }
  mplsState()->routeKeyPublishedInc();
}

void MplsBaseSm::runPublishRouteKeysTask() {
  if (in_.attrLogSm && in_.attrLogSm->isAttrLogOutClogged()) {
    routePublishTask_->scheduleAfter(reviewInterval());
    return;
  }
  Plin::Task* task = routePublishTask_.get();
  auto& keys = mplsState()->routeKeyForPublishColl();
  uint64_t done = 0;
  bool yielded = false;
  while (!publishToExamine_.empty()) {
    const Mpls::RouteKey key = publishToExamine_.front();
    publishToExamine_.pop_front();
    if (!keys.contains(key)) continue;
    switch (publishHold(key)) {
      case PublishHold::none:
        keys.erase(key);
        publishRouteKey(key);
        ++done;
        break;
      case PublishHold::review:
        publishHeldByReview_.push_back(key);
        break;
      case PublishHold::hardware:
        break;
    }
    if (shouldTaskYield(task)) {
      yielded = true;
      break;
    }
  }
  routeKeyToBePublishedIs(false);
  task->taskWorkCountInc(done);
  if (yielded) task->scheduleNow();
}

void MplsBaseSm::queueRouteKeyForPublish(const Mpls::RouteKey& routeKey) {
  mplsState()->routeKeyForPublishIs(routeKey);
  publishToExamine_.push_back(routeKey);
}

// Once nothing is under review, no review gate holds anything.
void MplsBaseSm::releaseAllHeldByReview() {
  publishToExamine_.insert(publishToExamine_.end(), publishHeldByReview_.begin(),
                           publishHeldByReview_.end());
  std::vector<Mpls::RouteKey>().swap(publishHeldByReview_);
}

// Only an adjacency's review calls this, and processL3Adj then queues the same
// routes for review; every route review ends by queueing its route for
// publication again (or for another review), and that is when the publish
// task looks at it. Looking at them now would only find them under review.
void MplsBaseSm::scheduleRouteKeyForPublish(const L3Adjacency* adjacency) {
  for (const Mpls::RouteKey& key : adjacency->routeKeyColl()) {
    mplsState()->routeKeyForPublishIs(key);
  }
  routePublishTask_->scheduleAfter(reviewInterval());
}

void MplsBaseSm::scheduleAllL3AdjsForReview() {
  for (const auto& [index, adjacency] : mplsState()->l3AdjacencyColl()) {
    mplsState()->l3AdjForReviewIs(index);
  }
  doMaybeScheduleReview();
}

bool MplsBaseSm::isAdjPendingForReview(const L3Adjacency* adjacency) const {
  return mplsState()->l3AdjForReviewHas(adjacency->index());
}

// ---------------------------------------------------------------------------
// Hardware route status feedback.

void MplsBaseSm::handleHwRouteStatus(const Mpls::RouteKey& routeKey) {
  PELLET_TRACE(trace_, kTraceRoute, " routeKey {}", routeKey);
  processHwRouteStatus(routeKey);
}

void MplsBaseSm::processHwRouteStatus(const Mpls::RouteKey& routeKey) {
  Vosh::Qel::MplsHwRouteStatus status = mplsHwCollectionStatus()->mplsHwRoute(routeKey);
  Kiv::Ptr<MplsRoute> route = mplsState()->route(routeKey);
  if (!route || !status) return;
  uint8_t configVersion = static_cast<uint8_t>(route->version());
  if (status.version != configVersion) {
    PELLET_TRACE(trace_, kTraceDetail, "routeKey {} status version: {} config version: {}",
                 routeKey, status.version, configVersion);
    return;
  }
  MplsState* s = mplsState();
  bool wasUnprogrammed = s->unprogrammedRouteHas(routeKey);
  bool notProgrammed = status.state != Vosh::Qel::mplsHwRouteStateProgrammed;
  route->awaitingHwIs(false);
  if (notProgrammed) {
    PELLET_TRACE(trace_, kTraceRoute, "routeKey {} not programmed", routeKey);
    route->unprogrammedReasonIs(reasonFromHw(status.reason));
    if (status.resourceFlag && isResourceFailure(status)) {
      if (s->unprogrammedRoutes() == 0) {
        SysLog::instance().log(now(), "ROUTING_MPLS_RESOURCE_FULL",
                               "MPLS hardware resources are full; some routes are not programmed");
        PELLET_TRACE(trace_, kTraceAlert, "ROUTING_MPLS_RESOURCE_FULL");
        traceResourceNormalIs(true);
      }
      if (!wasUnprogrammed) s->numUnprogrammedRouteInc();
      s->unprogrammedRouteIs(routeKey);
      PELLET_TRACE(trace_, kTraceDetail, "unprogrammedRetryIntervalIs {}",
                   unprogrammedRetryInterval());
      rescheduleUnprogrammedTask();
    }
  } else {
    route->unprogrammedReasonIs(UnprogrammedReason::unprogrammedReasonNone);
    if (wasUnprogrammed) {
      if (s->unprogrammedRoutes() == 1 && traceResourceNormal()) {
        SysLog::instance().log(now(), "ROUTING_MPLS_RESOURCE_NORMAL",
                               "MPLS hardware resources are available again");
        PELLET_TRACE(trace_, kTraceAlert, "Resource-Normal");
        traceResourceNormalIs(false);
      }
      s->unprogrammedRouteDel(routeKey);
      PELLET_TRACE(trace_, kTraceDetail, "{} removed from unprog collection", routeKey);
    }
  }
  PELLET_TRACE(trace_, kTraceDetail, "  add routeKey {} for publish", routeKey);
  queueRouteKeyForPublish(routeKey);
  routePublishTask_->scheduleAfter(reviewInterval());
  bool old = route->unprogrammed();
  route->unprogrammedIs(notProgrammed);
  if (old != notProgrammed) {
    PELLET_TRACE(trace_, kTraceRoute, "routeKey {}  transitioned from unprogrammed {} to {}",
                 routeKey, old, notProgrammed);
  }
}

void MplsBaseSm::handleProgrammedRoute(const Mpls::RouteKey& routeKey) {
  Kiv::Ptr<MplsRoute> route = mplsState()->route(routeKey);
  if (!route) {
    PELLET_TRACE(trace_, kTraceRoute, "no routeKey");
    return;
  }
  PELLET_TRACE(trace_, kTraceRoute, "routeKey {}{}", routeKey,
               route->unprogrammed() ? " unprogrammed" : " programmed");
  queueRouteKeyForPublish(routeKey);
  if (route->unprogrammed()) {
    PELLET_TRACE(trace_, kTraceRoute, "add routeKey {} for review unprogrammedRetryIntervalIs {}",
                 routeKey, unprogrammedRetryInterval());
  }
  routePublishTask_->scheduleAfter(reviewInterval());
  doMaybeScheduleReview();
}

void MplsBaseSm::unprogramRouteKey(const Mpls::RouteKey& routeKey) {
  PELLET_TRACE(trace_, kTraceRoute, "unprogram routeKey {}", routeKey);
  if (mplsHwConfig()) mplsHwConfig()->routeDel(routeKey);
  clearRouteMappings(routeKey);
  mplsHwCollectionConfig()->mplsHwRouteDel(routeKey);
  if (mplsHwStatus()) mplsHwStatus()->unprogrammedRouteDel(routeKey);
  if (Kiv::Ptr<MplsRoute> route = mplsState()->route(routeKey); route && route->awaitingHw()) {
    route->awaitingHwIs(false);
    // Held back for the answer that will not come now.
    if (mplsState()->routeKeyForPublishHas(routeKey)) publishToExamine_.push_back(routeKey);
  }
}

void MplsBaseSm::clearRouteMappings(const Mpls::RouteKey& routeKey) {
  PELLET_TRACE(trace_, kTraceDetail, "clear route mappings");
  Kiv::Ptr<MplsRoute> route = mplsState()->route(routeKey);
  if (!route) return;
  if (route->l2AdjIndex() != 0) {
    if (Kiv::Ptr<MplsL2Adjacency> l2 = mplsState()->l2Adjacency(route->l2AdjIndex())) {
      deleteRouteKeyFromL2Adj(routeKey, l2.get());
    }
    route->l2AdjIndexIs(0);
  }
  if (route->extFecId()) {
    if (Kiv::Ptr<ExternalFecInfo> info = mplsState()->extFecInfo(route->extFecId())) {
      deleteRouteKeyFromExtFecInfo(routeKey, info.get());
    }
    route->extFecIdIs(Vosh::Fib::FecId());
  }
  route->isInstalledWithMulticastIs(false);
}

void MplsBaseSm::deleteRouteKeyAndRoute(const Mpls::RouteKey& routeKey) {
  PELLET_TRACE(trace_, kTraceRoute, "delete routeKey {}", routeKey);
  unprogramRouteKey(routeKey);
  Kiv::Ptr<MplsRoute> route = mplsState()->route(routeKey);
  if (route && route->l3AdjIndex() != 0) {
    if (Kiv::Ptr<L3Adjacency> adjacency = mplsState()->l3Adjacency(route->l3AdjIndex())) {
      adjacency->routeKeyDel(routeKey);
      mplsState()->l3AdjForReviewIs(adjacency->index());
    }
  }
  if (mplsState()->unprogrammedRouteHas(routeKey)) {
    mplsState()->unprogrammedRouteDel(routeKey);
    // The last refused route is gone: resources are no longer short.
    if (mplsState()->unprogrammedRoutes() == 0 && traceResourceNormal()) {
      SysLog::instance().log(now(), "ROUTING_MPLS_RESOURCE_NORMAL",
                             "MPLS hardware resources are available again");
      PELLET_TRACE(trace_, kTraceAlert, "Resource-Normal");
      traceResourceNormalIs(false);
    }
  }
  mplsState()->routeDel(routeKey);
  doMaybeScheduleReview();
}

}  // namespace Qel
