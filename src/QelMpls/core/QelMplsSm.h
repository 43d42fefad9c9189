#pragma once

// The MPLS core state machine, shared by the direct and the mediated modes.
//
// The road of a route. The transit LFIB publishes routes (route key -> via set
// key) and via sets (via set key -> via keys -> MPLS-over-IP vias). A route is
// accepted when its via type is MPLS-over-IP or external FEC; its key goes
// into routeKeyForReview. The review task's processRouteKey binds the route to
// the layer-3 adjacency of its via set key: one adjacency per via set key,
// shared by every route of that key, created with an index from the one
// adjacency counter and queued in l3AdjForReview. processL3Adj hands the
// adjacency to the mode's reviewL3Adj, which validates the vias and resolves
// each next hop through ARP, the layer-3 interface table and, behind a VLAN
// interface, the MAC table, into a layer-2 via set. Adjacencies whose vias
// resolve to the same layer-2 via set share one layer-2 adjacency and one
// hardware layer-2 record. Reviewing an adjacency re-queues all its routes;
// the mode's reviewRouteKey then writes each route's hardware record. The
// driver answers per route with a status carrying the version it acted on;
// a matching answer makes the route programmed or unprogrammed with a reason,
// and the publish task publishes it once neither it nor its adjacency is
// under review.
//
// Reactions only queue keys. Three tasks do the work in slices: the review
// task drains l3AdjForReview, then routeKeyForReview, then l2AdjForReview,
// then the layer-2 adjacencies pending deletion (adjacencies first, so routes
// are reviewed against fresh adjacencies); the unprogrammed-route task retries
// what the hardware refused; the publish task publishes. Each yields when
// the scheduler's slice is spent or the state database's log output is
// clogged.
//
// Ownership is by membership: a layer-3 adjacency lives while routes (or
// primary adjacencies) use it and is deleted by its own review when none is
// left; a layer-2 adjacency lives while layer-3 adjacencies use it, and is
// deleted by its review, after waiting in l2AdjPendingForDelete while routes
// still point at its hardware record; next hops and MAC dependencies go with
// the last adjacency that used them. Indexes are never reused while the agent
// runs, and start after the highest index recovered from hardware.
//
// Start-up. With non-stop forwarding the hardware keeps forwarding across a
// restart: the core waits for the driver's route sync map, marks every route
// in it stale, lets the LFIB settle and reprograms through the normal path; a
// recovered route stops being stale as soon as the LFIB offers it again (route
// intake removes it from staleRecoveredRoute while the start-up is still
// reconciling), and whatever is still stale when sync completes is deleted
// from hardware once. Without it (and always in the direct mode) a start is a
// cold start that empties the hardware tables first. A 600-second time-out
// forces the normal stage whatever has not answered.

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "QelMpls/core/QelMplsState.h"
#include "QelMpls/platform/QelMplsVoshTypes.h"
#include "kiv/Clock.h"
#include "kiv/Entity.h"
#include "models/Arp.h"
#include "models/Bridging.h"
#include "pellet/Trace.h"
#include "plin/AttrLogSm.h"
#include "plin/NumAllocator.h"
#include "plin/TaskScheduler.h"

namespace Mpls {
class LfibStatus;
class LfibHwStatus;
class LfibTrackingStatus;
class LfibTrackingSm;
class LfibInfo;
class LocalLfibInfo;
class RoutingInfo;
}  // namespace Mpls
namespace Mpls::Hardware {
class Status;
}
namespace Routing::Hardware {
class RouteStatus;
}
namespace Arp::Table {
class Status;
}
namespace Vosh::Bridging {
class Status;
}
namespace QelL3Intf {
class Table;
}
namespace QelHelper {
class MplsSmHelper;
}
namespace Vosh::Qel {
class MplsHwCollectionConfig;
class MplsHwCollectionStatus;
}  // namespace Vosh::Qel

namespace Qel {

class MplsSmInputSummary;
class ProactiveArpNexthopSm;
class QelL3AdjSyncStatusExternal;
class FecIdToHwFecIdRequest;

// The system log of the agent: named messages an operator watches for.
class SysLog {
 public:
  struct Entry {
    double time;
    std::string name;
    std::string text;
  };
  static SysLog& instance();
  void log(double time, std::string name, std::string text);
  const std::vector<Entry>& entries() const { return entries_; }
  void clear() { entries_.clear(); }
  Kiv::Signal<Entry> onLog;

 private:
  std::vector<Entry> entries_;
};

class MplsBaseSm : public Kiv::Entity {
 public:
  // The 24 common inputs, in constructor order.
  struct Inputs {
    Kiv::Ptr<MplsHwSingletonConfig> mplsHwSingletonConfig;
    Kiv::Ptr<const MplsHwSingletonStatus> mplsHwSingletonStatus;
    Kiv::Ptr<Vosh::Qel::MplsHwCollectionConfig> mplsHwCollectionConfig;
    Kiv::Ptr<const Vosh::Qel::MplsHwCollectionStatus> mplsHwCollectionStatus;
    Kiv::Ptr<const Mpls::LfibInfo> lfibInfo;
    Kiv::Ptr<const Mpls::LocalLfibInfo> localLfibInfo;
    Kiv::Ptr<const Mpls::RoutingInfo> mplsRoutingInfo;
    Kiv::Ptr<const Mpls::LfibStatus> transitLfib;
    Kiv::Ptr<Mpls::LfibHwStatus> lfibHwStatus;
    Kiv::Ptr<const Routing::Hardware::RouteStatus> routingHwRouteStatus;
    Kiv::Ptr<Mpls::Hardware::Status> routingHwMplsStatus;
    Kiv::Ptr<MplsHwConfig> mplsHwConfig;
    Kiv::Ptr<MplsHwStatus> mplsHwStatus;
    Kiv::Ptr<const Arp::Table::Status> arpVosh;
    Kiv::Ptr<ProactiveArpNexthopSm> proactiveArpNhSm;
    Kiv::Ptr<const Vosh::Bridging::Status> bridgingStatus;
    Kiv::Ptr<const QelL3Intf::Table> l3IntfTable;
    Kiv::Ptr<const MplsSmInputSummary> inputStatusSummary;
    Kiv::Ptr<const QelL3AdjSyncStatusExternal> l3AdjSyncStatusExt;
    Kiv::Ptr<FecIdToHwFecIdRequest> hwFecIdRequest;
    Kiv::Ptr<QelHelper::MplsSmHelper> mplsSmHelper;
    Kiv::Ptr<Plin::AttrLogSm> attrLogSm;
    Kiv::Ptr<Kiv::Clock> clock;
    Plin::TaskScheduler* taskScheduler = nullptr;
    // Optional: an LFIB that holds via sets the transit LFIB does not, read
    // only when a via set is absent from the transit LFIB.
    Kiv::Ptr<const Mpls::LfibStatus> lfibStatus;
  };

  static constexpr Plin::TaskPriority kTaskPriority = 2;
  static constexpr double timeoutSyncMapDelay = 0.1;
  static constexpr double timeoutSyncDelay = 600.0;
  // FEC numbers this library hands out. They start above the indexes other
  // owners of the FEC id space use for the FECs routes may forward into, and
  // a released number is held back long enough for the allocator to have
  // dropped what it granted for it.
  static constexpr Plin::Range kFecNumberRange{uint64_t{1} << 20, (uint64_t{1} << 32) - 1};
  static constexpr double kFecNumberHoldBack = 1.0;

  MplsBaseSm(const std::string& name, const Inputs& inputs);
  ~MplsBaseSm() override;

  // Runs once every input is set: binds the reactors and starts the mode.
  void handleInitialized();

  // Inputs.
  const Inputs& inputs() const { return in_; }
  MplsHwSingletonConfig* mplsHwSingletonConfig() const { return in_.mplsHwSingletonConfig.get(); }
  Vosh::Qel::MplsHwCollectionConfig* mplsHwCollectionConfig() const {
    return in_.mplsHwCollectionConfig.get();
  }
  const Vosh::Qel::MplsHwCollectionStatus* mplsHwCollectionStatus() const {
    return in_.mplsHwCollectionStatus.get();
  }
  const Mpls::LfibStatus* transitLfib() const { return in_.transitLfib.get(); }
  const Mpls::LfibStatus* lfibStatus() const { return in_.lfibStatus.get(); }
  // The via set from the transit LFIB, or from the second LFIB when the
  // transit LFIB lacks it; empty when neither has it.
  Mpls::LfibViaSet lfibViaSet(const Mpls::LfibViaSetKey& key) const;
  Mpls::Hardware::Status* routingHwMplsStatus() const { return in_.routingHwMplsStatus.get(); }
  MplsHwConfig* mplsHwConfig() const { return in_.mplsHwConfig.get(); }
  MplsHwStatus* mplsHwStatus() const { return in_.mplsHwStatus.get(); }
  Mpls::LfibHwStatus* lfibHwStatus() const { return in_.lfibHwStatus.get(); }
  const MplsSmInputSummary* inputStatusSummary() const { return in_.inputStatusSummary.get(); }
  ProactiveArpNexthopSm* proactiveArpNhSm() const { return in_.proactiveArpNhSm.get(); }
  Mpls::LfibTrackingStatus* lfibTrackingStatus() const { return lfibTrackingStatus_.get(); }
  Plin::TaskScheduler* taskScheduler() const { return in_.taskScheduler; }
  double now() const { return in_.clock->now(); }

  // State.
  MplsState* mplsState() const { return state_.get(); }
  KIV_ATTR(MplsSmStartupStatus, mplsSmStartupStatus, MplsSmStartupStatus,
           MplsSmStartupStatus::mplsSmUnknown)
  const Kiv::Ptr<MplsSmStartupRecord>& mplsSmStartupRecord() const { return startupRecord_; }
  KIV_VALUE(bool, allowReview, false)
  KIV_VALUE(bool, mplsStateHasInfoPendingReconciliation, false)
  KIV_VALUE(bool, cleanupHwStatusAdjSyncDone, false)
  KIV_VALUE(bool, traceResourceNormal, false)
  KIV_VALUE(uint64_t, adjacencyIndex, 0)
  KIV_VALUE(uint64_t, highestRecoveredHwAdjIndex, 0)
  KIV_VALUE(double, reviewInterval, 0.001)
  KIV_VALUE(double, currentReviewInterval, 0.001)
  KIV_VALUE(double, defaultUnprogrammedRetryInterval, 10.0)
  KIV_VALUE(double, unprogrammedRetryInterval, 10.0)
  KIV_VALUE(bool, routeKeyToBePublished, false)
  KIV_COUNTER(reviewCount)
  KIV_DENSE_SET(Mpls::RouteKey, mplsIpRouteKey)
  KIV_DENSE_SET(Mpls::RouteKey, staleRecoveredRoute)
  // Routes the driver refused for a reason a later write may cure, other than
  // lack of resources: the retry task writes them again with the routes of
  // unprogrammedRoute. Kept apart from that set, whose emptiness raises and
  // clears the resource-full alert.
  KIV_DENSE_SET(Mpls::RouteKey, routeKeyForRetry)
  KIV_COLL(Mpls::Hardware::L2ViaSet, L2AdjIndex, viaSetToHwL2Adj, ViaSetToHwL2Adj)

  // Start-up, sync and recovery.
  void handleInputStatusSummaryReady();
  void startProcessing();
  void handleMplsRouteSyncMap();
  void maybeTransitionToWaitingForSync();
  void handleSyncDone();
  void processSyncDone();
  void handleSyncTimeout();
  void handleSyncMapQuiesced();
  virtual bool mplsNonStopForwardingSupported() const;
  bool syncMapQuiesced() const;
  bool inputLfibQuiesced() const;
  void recoverNextHwAdjIndex();
  void reconcileViaSetLfibHwStatus();
  // The generation this run synchronises under, and whether the platform has
  // reported the adjacencies of that generation synchronised.
  virtual GenerationId syncGeneration() const;
  virtual bool adjSyncDone() const;
  // Hooks of the stages: every request of this run has been filed; the sync
  // has ended and what was recovered but not claimed again can go.
  virtual void handleWaitingForSyncResponses() {}
  virtual void releaseUnclaimedRecoveredState() {}

  // Routing enable/disable and status clean-up.
  void handleMplsRouting(bool enabled);
  void handleHwRoutingEnabled(bool enabled);
  void doMaybeSetConfigRouting();
  void cleanupRoutingHwMplsStatusRoute();
  void runCleanupHwStatusAdjTask();
  bool mplsRoutingEnabled() const;

  // Route intake and via validation.
  void handleLFibRoute(const Mpls::RouteKey& routeKey);
  void handleLFibRoute();
  void handleLFibViaSet(const Mpls::LfibViaSetKey& viaSetKey);
  bool routeSupported(const Mpls::LfibRoute& route) const;
  bool isLFibViaSetSane(const Mpls::LfibViaSet& viaSet) const;
  Kiv::Ptr<const CachedLFibMplsViaColl> getSaneMplsIpLFibVias(const Mpls::LfibViaSet& viaSet) const;
  static Bexo::MplsLabel singleMplsLabelFromVia(const Mpls::LfibMplsVia& via);
  bool hasNHGAdj(const CachedLFibMplsViaColl* vias) const;
  bool hasDynamicTunnelAdj(const CachedLFibMplsViaColl* vias) const;
  void processRouteKey(const Mpls::RouteKey& routeKey);
  // The label operation and addressing a route's hardware record carries.
  void copyRouteAttributes(MplsRoute* route, const L3Adjacency* adjacency) const;

  // Layer-3 adjacencies.
  Kiv::Ptr<L3Adjacency> newL3Adjacency();
  void processL3Adj(L3AdjIndex index);
  void deleteL3Adj(L3AdjIndex index);
  void deleteL3AdjRefs(L3Adjacency* adjacency);
  bool validateMplsIpL3Adj(const Mpls::LfibViaSet& viaSet, const CachedLFibMplsViaColl* vias) const;
  // Whether this mode can program via sets of the type at all: MPLS-over-IP
  // always, external FECs where the mode forwards into them.
  bool viaTypeProgrammable(Mpls::LfibViaType viaType) const;
  // An adjacency that can no longer be programmed lets go of its layer-2
  // adjacency, next hops and MAC dependencies, so that none of them, nor the
  // proactive-ARP requests, outlive the vias they were resolved from.
  void releaseResolution(L3Adjacency* adjacency);
  void setHwAdjViasForNormalMplsRoute(L3Adjacency* adjacency, const Mpls::LfibViaSet& viaSet,
                                      const ProgrammableMplsFecVias& programmableVias,
                                      L3AdjLFibAdjType lFibAdjType);
  void deleteBackupAdjInfoFromAdj(L3Adjacency* adjacency);
  void deleteRouteKeyFromExtFecInfo(const Mpls::RouteKey& routeKey, ExternalFecInfo* info);
  void maybeDeleteExtFecInfo(Vosh::Fib::FecId fecId);
  void freeMplsFecId(Vosh::Fib::FecId fecId);
  // The allocator of FEC numbers (never null).
  Plin::NumAllocator* numAllocator() const { return numAllocator_.get(); }
  void numAllocatorConfigIs(Plin::Range range);
  void numAllocatorStatusIs();
  void numAllocatorIs(Kiv::Ptr<const Plin::NumAllocatorConfig> config,
                      Kiv::Ptr<Plin::NumAllocatorStatus> status);

  // Layer-2 adjacencies and next-hop resolution.
  // Returns false when the next hop does not resolve yet; its proactive-ARP
  // request stays, so that the ARP answer re-reviews the adjacency.
  // `requested`: the request is there already, made for this adjacency.
  bool resolveNextHopWithMNHSM(const Mpls::LfibMplsVia& via, uint32_t viaIndex,
                               Mpls::Hardware::Adjacency* hwAdjacency, L3Adjacency* adjacency,
                               Mpls::Hardware::L2ViaSet& l2ViaSet, bool requested);
  Kiv::Ptr<MplsL2Adjacency> newL2Adjacency();
  void progHwL2Adj(MplsL2Adjacency* l2Adjacency);
  void progHwL2AdjLegacy(Mpls::Hardware::L2Adjacency* hwL2Adjacency);
  void processL2Adj(L2AdjIndex index);
  void maybeDeleteL2Adj(L2AdjIndex index);
  void processL2AdjPendingDelete(L2AdjIndex index);
  void doDeleteL2Adj(L2AdjIndex index);
  void deleteRouteKeyFromL2Adj(const Mpls::RouteKey& routeKey, MplsL2Adjacency* l2Adjacency);
  void handleArpEntry(const Arp::Table::ArpKey& arpKey);
  void handleFdbStatus(const Bridging::HostKey& hostKey);
  void handleHwL2AdjStatus(Vosh::Qel::MplsHwL2AdjacencyId id);
  // The driver's verdict on a layer-2 record in the legacy form, where
  // mplsHwStatus lists the records it refused.
  void handleUnprogrammedAdj(Mpls::Hardware::L2Adjacency* hwL2Adjacency);
  void handleNexthopResolutionAllowDefaultRoute();
  void handleL3Intf(Bexo::IntfId intf);

  // Review, retry and publish tasks.
  void reviewTaskIs();
  void unprogrammedRouteTaskIs();
  void routePublishTaskIs();
  void doMaybeScheduleReview();
  void runReviewTask();
  bool shouldTaskYield(Plin::Task* task) const;
  void runUnprogrammedRouteReviewTask();
  void runPublishRouteKeysTask();
  void publishRouteKey(const Mpls::RouteKey& routeKey);
  bool routeCanBePublished(const Mpls::RouteKey& routeKey) const;
  // Adds the key to routeKeyForPublish and has the publish task look at it.
  void queueRouteKeyForPublish(const Mpls::RouteKey& routeKey);
  void scheduleRouteKeyForPublish(const L3Adjacency* adjacency);
  void scheduleAllL3AdjsForReview();
  bool isAdjPendingForReview(const L3Adjacency* adjacency) const;
  // A route whose adjacency waits for its review keeps its hardware record and
  // comes back once the adjacency is done: true when that is the case.
  bool requeueBehindAdjReview(const Mpls::RouteKey& routeKey, const L3Adjacency* adjacency);
  Plin::Task* reviewTask() const { return reviewTask_.get(); }
  Plin::Task* unprogrammedRouteTask() const { return unprogrammedRouteTask_.get(); }
  Plin::Task* routePublishTask() const { return routePublishTask_.get(); }

  // Hardware route status feedback.
  virtual void handleHwRouteStatus(const Mpls::RouteKey& routeKey);
  void processHwRouteStatus(const Mpls::RouteKey& routeKey);
  // A refusal other than for resources: retried when a later write may cure it.
  void handleUnprogrammedRoute(const Mpls::RouteKey& routeKey,
                               Vosh::Qel::MplsHwRouteUnprogrammedReason reason);
  void handleProgrammedRoute(const Mpls::RouteKey& routeKey);
  void unprogramRouteKey(const Mpls::RouteKey& routeKey);
  void clearRouteMappings(const Mpls::RouteKey& routeKey);
  void deleteRouteKeyAndRoute(const Mpls::RouteKey& routeKey);

  // What the programming modes provide.
  virtual bool forwardingIntoExternalFecsSupported() const = 0;
  virtual bool reviewRouteKey(const Mpls::RouteKey& routeKey, MplsRoute* route) = 0;
  virtual void reviewL3Adj(L3AdjIndex index, L3Adjacency* adjacency) = 0;
  virtual void cleanL3Adj(L3Adjacency* adjacency);
  virtual void handleInitializedSubClass() = 0;

 protected:
  const Pellet::Facility& trace() const { return trace_; }
  // Whether the new shared-memory tables carry the hardware programming
  // (toggle "QelMplsAgentKivModels"), or the legacy state-database entities.
  bool kivModels() const { return kivModels_; }

 private:
  class Reactors;
  void createTasks();
  void bindReactors();
  void updateStartupRecord();
  bool anyReviewWork() const;
  bool onlyUnprogrammedWork() const;
  // Follows the driver's verdict on a layer-2 record; true when that took
  // the record off the retry list.
  bool l2AdjProgrammedIs(MplsL2Adjacency* l2Adjacency, bool programmed);
  bool processL2AdjPendingDeletes(uint64_t& done);
  bool anyRetryWork() const;
  Kiv::Ptr<MplsL2Adjacency> l2AdjacencyForViaSet(const Mpls::Hardware::L2ViaSet& l2ViaSet,
                                                 L3Adjacency* adjacency);
  void recordFdbDependency(L3Adjacency* adjacency, const Bridging::HostKey& hostKey);
  std::vector<IpAddrIntfId> nextHopsIs(L3Adjacency* adjacency, std::vector<IpAddrIntfId>& nextHops);
  void releaseDroppedDependencies(L3Adjacency* adjacency, const std::vector<IpAddrIntfId>& nextHops,
                                  const std::vector<Bridging::HostKey>& hostKeys);
  void rescheduleUnprogrammedTask();
  bool retryRoundDone() const;
  void startRetryRound();
  template <class Set, class Fn>
  bool drain(Set& set, Fn&& process, uint64_t& done);
  // What holds a route's publication back: a review (its own or its
  // adjacency's) or the driver's answer. Traces the gate that holds.
  enum class PublishHold { none, review, hardware };
  PublishHold publishHold(const Mpls::RouteKey& routeKey) const;
  void releaseAllHeldByReview();

  Inputs in_;
  Pellet::Facility trace_;
  bool kivModels_;
  // Filled anew by every adjacency review; kept here so that a review
  // allocates nothing for them.
  Mpls::Hardware::L2ViaSet l2ViaScratch_;
  std::vector<IpAddrIntfId> nextHopScratch_;
  Kiv::Ptr<MplsState> state_;
  Kiv::Ptr<MplsSmStartupRecord> startupRecord_;
  Kiv::Ptr<Mpls::LfibTrackingStatus> lfibTrackingStatus_;
  Kiv::Ptr<Mpls::LfibTrackingSm> lfibTrackingSm_;
  std::unique_ptr<Plin::Task> reviewTask_;
  std::unique_ptr<Plin::Task> unprogrammedRouteTask_;
  std::unique_ptr<Plin::Task> routePublishTask_;
  std::unique_ptr<Plin::Task> syncMapTask_;
  std::unique_ptr<Plin::Task> syncTimeoutTask_;
  std::unique_ptr<Plin::Task> cleanupHwStatusAdjTask_;
  Kiv::Ptr<const Plin::NumAllocatorConfig> numAllocatorConfig_;
  Kiv::Ptr<Plin::NumAllocatorStatus> numAllocatorStatus_;
  Kiv::Ptr<Plin::NumAllocator> numAllocator_;
  uint64_t cleanupBookmark_ = 0;
  // The retry round in progress: what was refused when it began, and how far
  // its slices have got.
  std::vector<L2AdjIndex> retryL2Adjs_;
  std::vector<Mpls::RouteKey> retryRoutes_;
  size_t retryL2AdjsDone_ = 0;
  size_t retryRoutesDone_ = 0;
  // The walk over l2AdjPendingForDelete in progress, the same way: a slice
  // that yields continues it, and a new walk starts with the next pass.
  std::vector<L2AdjIndex> pendingDeleteWalk_;
  size_t pendingDeleteWalkDone_ = 0;
  // The keys of routeKeyForPublish the publish task has yet to look at, in
  // the order they were queued (a key queued twice is looked at twice; the
  // second look finds it published or held). A key its gates hold back leaves
  // this queue and comes back when what held it ends: a review held it
  // (publishHeldByReview_ keeps those until no review is left; a route's own
  // review queues it again before that) or the driver's answer. So a task run
  // costs what changed since the last one, not the whole set, and queueing
  // touches no hash table: a million routes held during a cold start would
  // otherwise be rescanned after every slice of the review.
  std::deque<Mpls::RouteKey> publishToExamine_;
  std::vector<Mpls::RouteKey> publishHeldByReview_;
  std::unique_ptr<Reactors> reactors_;
};

// The library's trace handle, set up on first use.
Pellet::Handle& initializeQelMplsPelletHandle();

}  // namespace Qel
