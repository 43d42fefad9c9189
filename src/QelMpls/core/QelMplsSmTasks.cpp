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

}  // namespace

// ---------------------------------------------------------------------------
// Review, retry and publish tasks.

bool MplsBaseSm::anyReviewWork() const {
  const MplsState* s = mplsState();
  return s->l3AdjForReviews() != 0 || s->routeKeyForReviews() != 0 || s->l2AdjForReviews() != 0;
}

bool MplsBaseSm::anyRetryWork() const {
  const MplsState* s = mplsState();
  return s->unprogrammedRoutes() != 0 || s->unprogrammedL2Adjs() != 0 || routeKeyForRetrys() != 0;
}

bool MplsBaseSm::onlyUnprogrammedWork() const { return !anyReviewWork() && anyRetryWork(); }

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
    yielded = processL2AdjPendingDeletes(done);
  }

  if (s->routeKeyForReviews() == 0 && s->l3AdjForReviews() == 0) releaseAllHeldByReview();
  routeKeyToBePublishedIs(true);
  PELLET_TRACE(trace_, kTraceDetail, "Schedule routeKey to be published");
  if (!publishToExamine_.empty()) routePublishTask_->scheduleNow();
  reviewTask_->taskWorkCountInc(done);
  if (done == 0) PELLET_TRACE(trace_, kTraceDetail, "nothing to be reviewed");

  // A yielded slice left items of this pass, in whichever phase, and
  // continues at once; new work waits for its interval.
  if (yielded) {
    reviewTask_->scheduleNow();
  } else if (anyReviewWork()) {
    doMaybeScheduleReview();
  }
  if (mplsSmStartupStatus() == mplsSmNormal) doMaybeSetConfigRouting();
}

// Each pass looks at every layer-2 adjacency pending deletion once, from a
// snapshot that the next slice continues when one yields: one that started
// from the front again would look at the same few each time, and those may
// wait long, even for ever, so a yielding walk could keep the task busy.
bool MplsBaseSm::processL2AdjPendingDeletes(uint64_t& done) {
  MplsState* s = mplsState();
  if (pendingDeleteWalkDone_ == pendingDeleteWalk_.size()) {
    pendingDeleteWalk_.assign(s->l2AdjPendingForDeleteColl().begin(),
                              s->l2AdjPendingForDeleteColl().end());
    pendingDeleteWalkDone_ = 0;
  }
  while (pendingDeleteWalkDone_ < pendingDeleteWalk_.size()) {
    L2AdjIndex index = pendingDeleteWalk_[pendingDeleteWalkDone_++];
    if (!s->l2AdjPendingForDeleteHas(index)) continue;
    processL2AdjPendingDelete(index);
    ++done;
    if (shouldTaskYield(reviewTask_.get())) {
      return pendingDeleteWalkDone_ < pendingDeleteWalk_.size();
    }
  }
  return false;
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
    // One retry per refusal that is not for resources: the driver's next
    // refusal asks for the next one.
    bool refused = routeKeyForRetryHas(key);
    routeKeyForRetryDel(key);
    if (!refused && !s->unprogrammedRouteHas(key)) continue;
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
  } else if (anyRetryWork()) {
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
  retryRoutes_.insert(retryRoutes_.end(), routeKeyForRetryColl().begin(),
                      routeKeyForRetryColl().end());
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

bool MplsBaseSm::requeueBehindAdjReview(const Mpls::RouteKey& routeKey,
                                        const L3Adjacency* adjacency) {
  if (!adjacency || !isAdjPendingForReview(adjacency)) return false;
  PELLET_TRACE(trace_, kTraceRoute,
               "not removing routeKey {} because adj review is pending. Add routeKey for review "
               "again",
               routeKey);
  mplsState()->routeKeyForReviewIs(routeKey);
  return true;
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
      routeKeyForRetryDel(routeKey);
      PELLET_TRACE(trace_, kTraceDetail, "unprogrammedRetryIntervalIs {}",
                   unprogrammedRetryInterval());
      rescheduleUnprogrammedTask();
    } else {
      handleUnprogrammedRoute(routeKey, status.reason);
    }
  } else {
    route->unprogrammedReasonIs(UnprogrammedReason::unprogrammedReasonNone);
    routeKeyForRetryDel(routeKey);
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

// Worth a retry: an interface that was not ready becomes ready without any
// change this library would see. A resource failure the driver flags is
// retried through unprogrammedRoute; without the flag the driver does not
// call it a condition that passes. An invalid FEC is the record's own fault:
// the same record written again fails the same way.
void MplsBaseSm::handleUnprogrammedRoute(const Mpls::RouteKey& routeKey,
                                         Vosh::Qel::MplsHwRouteUnprogrammedReason reason) {
  if (reason != Vosh::Qel::mplsHwUnprogReasonInterfaceNotReady) return;
  if (mplsState()->unprogrammedRouteHas(routeKey)) return;
  PELLET_TRACE(trace_, kTraceDetail, "Schedule review for unprog routes, reason {}", reason);
  routeKeyForRetryIs(routeKey);
  rescheduleUnprogrammedTask();
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
  routeKeyForRetryDel(routeKey);
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
