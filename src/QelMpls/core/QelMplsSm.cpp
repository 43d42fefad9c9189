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
    // A via set arriving in the second LFIB wakes the routes that waited
    // for it the way a transit LFIB change does: through the backlog.
    if (in.lfibStatus) {
      on(in.lfibStatus->onViaSet(), [sm](const Mpls::LfibViaSetKey& k) {
        sm->lfibTrackingStatus_->viaSetKeyBacklogIs(k);
      });
    }
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
    // The legacy form's layer-2 records are answered there, not in shared memory.
    if (!sm->kivModels()) {
      on(in.mplsHwStatus->onUnprogrammedAdjacency,
         [sm](const Kiv::Ptr<Mpls::Hardware::L2Adjacency>& adjacency) {
           sm->handleUnprogrammedAdj(adjacency.get());
         });
    }
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
  numAllocatorConfigIs(kFecNumberRange);
  numAllocatorStatusIs();
  numAllocatorIs(numAllocatorConfig_, numAllocatorStatus_);
}

void MplsBaseSm::numAllocatorConfigIs(Plin::Range range) {
  numAllocatorConfig_ = Kiv::make<Plin::NumAllocatorConfig>(range, kFecNumberHoldBack);
}

void MplsBaseSm::numAllocatorStatusIs() { numAllocatorStatus_ = Kiv::make<Plin::NumAllocatorStatus>(); }

void MplsBaseSm::numAllocatorIs(Kiv::Ptr<const Plin::NumAllocatorConfig> config,
                                Kiv::Ptr<Plin::NumAllocatorStatus> status) {
  numAllocator_ = Kiv::make<Plin::NumAllocator>(std::move(config), std::move(status),
                                                in_.taskScheduler, kTaskPriority);
}

MplsBaseSm::~MplsBaseSm() = default;

void MplsBaseSm::reviewTaskIs() {
  reviewTask_ = std::make_unique<Plin::Task>(in_.taskScheduler, kTaskPriority,
                                             "Qel::MplsSm-reviewTask", [this] { runReviewTask(); });
}

void MplsBaseSm::unprogrammedRouteTaskIs() {
  unprogrammedRouteTask_ = std::make_unique<Plin::Task>(
      in_.taskScheduler, kTaskPriority, "Qel::MplsSm-reviewUnprogrammedRoute",
      [this] { runUnprogrammedRouteReviewTask(); });
}

void MplsBaseSm::routePublishTaskIs() {
  routePublishTask_ = std::make_unique<Plin::Task>(in_.taskScheduler, kTaskPriority,
                                                   "Qel::MplsSm-publishReviewRoutes",
                                                   [this] { runPublishRouteKeysTask(); });
}

void MplsBaseSm::createTasks() {
  reviewTaskIs();
  unprogrammedRouteTaskIs();
  routePublishTaskIs();
  Plin::TaskScheduler* s = in_.taskScheduler;
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
    // The request table outlives the agent: a next hop whose last route left
    // while the agent was down would stay resolved for ever. The adjacencies
    // file their requests again as they resolve.
    proactiveArpNhSm()->clientConfig()->requestDelAll();
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
                 syncGeneration());
    handleWaitingForSyncResponses();
    handleSyncDone();
    return;
  }
  PELLET_TRACE(
      trace_, kTraceDetail,
      "Not moving to waitingForSync stage - mplsSmStartupStatus: {}, inputLfibQuiesced: {}",
      mplsSmStartupStatus(), inputLfibQuiesced());
}

GenerationId MplsBaseSm::syncGeneration() const {
  return in_.l3AdjSyncStatusExt ? in_.l3AdjSyncStatusExt->generation() : 0;
}

bool MplsBaseSm::adjSyncDone() const {
  return !in_.l3AdjSyncStatusExt || in_.l3AdjSyncStatusExt->adjSyncDone();
}

// Waits for the platform's adjacency sync as well as for the review to
// settle: the end-of-sync generation tells the platform that what this run has
// not requested again may go, and that is only true once the platform has
// answered what was requested.
void MplsBaseSm::handleSyncDone() {
  bool done = adjSyncDone();
  if (mplsSmStartupStatus() == mplsSmWaitingForSyncResponses && done) {
    processSyncDone();
    PELLET_TRACE(trace_, kTraceStartup, "adjSyncDone transitioned to {}, mplsSmStartupStatus is {}",
                 done, mplsSmStartupStatus());
    return;
  }
  PELLET_TRACE(trace_, kTraceStartup,
               "adjSyncDone transitioned to {}, mplsSmStartupStatus is {}, NOT transitioning to "
               "normal stage for QelMplsSm",
               done, mplsSmStartupStatus());
}

void MplsBaseSm::processSyncDone() {
  for (const Mpls::RouteKey& key : staleRecoveredRouteColl()) {
    PELLET_TRACE(trace_, kTraceStartup, "Delet stale route: {}", key);
    mplsHwCollectionConfig()->mplsHwRouteDel(key);
  }
  staleRecoveredRouteDelAll();
  reconcileViaSetLfibHwStatus();
  cleanupRoutingHwMplsStatusRoute();
  releaseUnclaimedRecoveredState();
  if (mplsHwSingletonConfig()) {
    mplsHwSingletonConfig()->endOfMplsSyncAtGenerationIs(syncGeneration());
    if (!mplsHwSingletonConfig()->ready()) {
      PELLET_TRACE(trace_, kTraceStartup, "Set ready bool flag. It wasn't already set");
      mplsHwSingletonConfig()->readyIs(true);
    }
  }
  syncTimeoutTask_->cancel();
  mplsSmStartupStatusIs(mplsSmNormal);
  // The sweep of the previous run's published adjacencies waits for the
  // normal stage; it ran at the start only to find it not there yet.
  cleanupHwStatusAdjTask_->scheduleNow();
  doMaybeScheduleReview();
  PELLET_TRACE(trace_, kTraceStartup, "Transitioned to normal stage");
}

// A via set the previous run reported programmed and this run has no
// adjacency for would otherwise stay reported to the LFIB producer for ever.
void MplsBaseSm::reconcileViaSetLfibHwStatus() {
  std::vector<Mpls::LfibViaSetKey> unowned;
  lfibHwStatus()->forEachViaSet([this, &unowned](const Mpls::LfibViaSetKey& key, const auto&) {
    if (!mplsState()->lFibViaSetToL3AdjHas(key)) unowned.push_back(key);
  });
  for (const Mpls::LfibViaSetKey& key : unowned) {
    PELLET_TRACE(trace_, kTraceStartup, "reconcile: via set {} has no l3 adj", key);
    lfibHwStatus()->viaSetDel(key);
  }
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

}  // namespace Qel
