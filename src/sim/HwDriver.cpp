#include "sim/HwDriver.h"

#include <bit>

#include "kiv/Entity.h"
#include "sim/FecAllocator.h"
#include "sim/SharedTables.h"

namespace Sim {

namespace {

using Vosh::Qel::MplsHwL2AdjacencyId;

uint64_t packRouteKey(const Mpls::RouteKey& key) {
  return (uint64_t{key.topLabel().value()} << 8) | key.source();
}

Mpls::RouteKey unpackRouteKey(uint64_t packed) {
  return Mpls::RouteKey(Bexo::MplsLabel(static_cast<uint32_t>(packed >> 8)),
                        static_cast<Mpls::LfibSource>(packed & 0xff));
}

}  // namespace

class HwDriver::Reactors : public Kiv::Reactor {
 public:
  Reactors(HwDriver* driver, const Vosh::Qel::MplsHwCollectionConfig& config) {
    on(config.onMplsHwRoute(), [driver](const Mpls::RouteKey& k) { driver->queueRoute(k); });
    on(config.onL2Adjacency(),
       [driver](const MplsHwL2AdjacencyId& id) { driver->queueL2Adjacency(id); });
  }
};

HwDriver::HwDriver(Kiv::Ptr<Vosh::EntityManager> em, const DriverConfig& config)
    : em_(std::move(em)),
      driverConfig_(config),
      answerTask_(em_->scheduler(), kTaskPriority, "Sim::HwDriver-answerTask",
                  [this] { runAnswerTask(); }) {
  em_->mountWriter(kRouteStatusPath, Vosh::Qel::MplsHwCollectionStatus::collections());
  status_ = Kiv::make<Vosh::Qel::MplsHwCollectionStatus>(*em_, kRouteStatusPath);
  recoverHardware();
}

// What the driver wrote stays in its tables; only its own view of them goes.
HwDriver::~HwDriver() {
  reactors_.reset();
  config_ = nullptr;
  status_ = nullptr;
  em_->unmount(kRouteConfigPath);
  em_->unmount(kRouteStatusPath);
}

void HwDriver::recoverHardware() {
  status_->forEachMplsHwRoute([this](const Mpls::RouteKey& key, const auto& s) {
    if (s.state == Vosh::Qel::mplsHwRouteStateProgrammed) hwRoutes_.insert(key, 0);
  });
  status_->forEachL2Adjacency([this](MplsHwL2AdjacencyId id, const auto& s) {
    if (s.state == Vosh::Qel::mplsHwL2AdjStateProgrammed) hwL2Adjacencies_.insert(id);
  });
}

bool HwDriver::attach() {
  if (attached()) return true;
  if (!tableReadable(*em_, kRouteConfigPath)) return false;
  config_ = Kiv::make<Vosh::Qel::MplsHwCollectionConfig>(*em_, kRouteConfigPath);
  reactors_ = std::make_unique<Reactors>(this, *config_);
  learnRecoveredTargets();
  // What the agent wrote before the driver looked, and what the hardware
  // answered for records that are gone since, are changes like any other.
  config_->forEachL2Adjacency(
      [this](MplsHwL2AdjacencyId id, const auto&) { queueL2Adjacency(id); });
  config_->forEachMplsHwRoute([this](const Mpls::RouteKey& k, const auto&) { queueRoute(k); });
  status_->forEachL2Adjacency([this](MplsHwL2AdjacencyId id, const auto&) {
    if (!config_->l2AdjacencyHas(id)) queueL2Adjacency(id);
  });
  status_->forEachMplsHwRoute([this](const Mpls::RouteKey& k, const auto&) {
    if (!config_->mplsHwRouteHas(k)) queueRoute(k);
  });
  return true;
}

HwDriver::Target HwDriver::targetOf(const Vosh::Qel::MplsHwRouteConfig& config) {
  return (uint64_t{config.adjacencyIdType} << 62) | (config.adjacencyId & ((uint64_t{1} << 62) - 1));
}

// A recovered route forwards to what its record said when it was answered.
void HwDriver::learnRecoveredTargets() {
  std::vector<Mpls::RouteKey> keys;
  for (const auto& entry : hwRoutes_) keys.push_back(entry.first);
  for (const Mpls::RouteKey& key : keys) {
    Vosh::Qel::MplsHwRouteConfig config = config_->mplsHwRoute(key);
    if (config && status_->mplsHwRoute(key).version == config.version) {
      *hwRoutes_.find(key) = targetOf(config);
    }
  }
}

void HwDriver::queueRoute(const Mpls::RouteKey& key) {
  if (pendingRoutes_.insert(key)) queue(Kind::route, packRouteKey(key));
}

void HwDriver::queueL2Adjacency(MplsHwL2AdjacencyId id) {
  if (pendingL2_.insert(id)) queue(Kind::l2Adjacency, id);
}

void HwDriver::queue(Kind kind, uint64_t key) {
  double due = em_->scheduler()->now() + driverConfig_.answerDelay;
  queue_.push_back(Change{due, kind, key});
  if (queue_.size() == 1) answerTask_.scheduleAfter(driverConfig_.answerDelay);
}

void HwDriver::runAnswerTask() {
  const double now = em_->scheduler()->now();
  while (!queue_.empty() && queue_.front().due <= now) {
    Change change = queue_.front();
    queue_.pop_front();
    if (change.kind == Kind::route) {
      answerRoute(unpackRouteKey(change.key));
    } else {
      answerL2Adjacency(change.key);
    }
    if (answerTask_.taskShouldYield()) break;
  }
  if (queue_.empty()) return;
  if (queue_.front().due <= now) {
    answerTask_.scheduleNow();
  } else {
    answerTask_.scheduleAfter(queue_.front().due - now);
  }
}

void HwDriver::answerL2Adjacency(MplsHwL2AdjacencyId id) {
  if (!pendingL2_.erase(id)) return;
  Vosh::Qel::MplsHwL2AdjacencyConfig config = config_->l2Adjacency(id);
  if (!config) {
    if (hwL2Adjacencies_.erase(id)) ++counters_.hwL2Deletes;
    if (status_->l2AdjacencyHas(id)) {
      status_->l2AdjacencyDel(id);
      ++counters_.statusDeleted;
    }
    return;
  }
  if (!driverConfig_.answer) return;
  Vosh::Qel::MplsHwL2AdjacencyStatus status;
  status.key = id;
  status.version = config.version();
  if (hwL2Adjacencies_.contains(id) || hwL2Adjacencies_.size() < driverConfig_.l2AdjCapacity) {
    hwL2Adjacencies_.insert(id);
    status.state = Vosh::Qel::mplsHwL2AdjStateProgrammed;
  } else {
    status.state = Vosh::Qel::mplsHwL2AdjStateUnprogrammed;
    ++counters_.l2Refused;
  }
  ++counters_.l2Answers;
  status_->l2AdjacencyIs(status);
}

void HwDriver::answerRoute(const Mpls::RouteKey& key) {
  if (!pendingRoutes_.erase(key)) return;
  Vosh::Qel::MplsHwRouteConfig config = config_->mplsHwRoute(key);
  if (!config) {
    if (hwRoutes_.erase(key)) ++counters_.hwRouteDeletes;
    status_->mplsRouteSyncMapDel(key);
    if (status_->mplsHwRouteHas(key)) {
      status_->mplsHwRouteDel(key);
      ++counters_.statusDeleted;
    }
    return;
  }
  if (!driverConfig_.answer) return;
  MplsHwL2AdjacencyId l2 = config.l2AdjId();
  // NOTE: the adjacency a route points at is answered first, so that the
  // route is judged against what the hardware holds.
  if (l2 != Vosh::Qel::kAllOnes && pendingL2_.contains(l2)) answerL2Adjacency(l2);
  routeStatusIs(routeVerdict(config), targetOf(config));
}

Vosh::Qel::MplsHwRouteStatus HwDriver::routeVerdict(const Vosh::Qel::MplsHwRouteConfig& config) {
  Vosh::Qel::MplsHwRouteStatus status;
  status.routeKey = config.routeKey;
  status.version = config.version;
  status.state = Vosh::Qel::mplsHwRouteStateUnprogrammed;
  MplsHwL2AdjacencyId l2 = config.l2AdjId();
  if (driverConfig_.failLabels.contains(config.routeKey.topLabel().value())) {
    status.reason = Vosh::Qel::mplsHwUnprogReasonInvalidFecId;
  } else if (config.adjacencyIdType == Vosh::Qel::adjIdTypeHardware &&
             !(fecAllocator_ && fecAllocator_->granted(config.hwFecId()))) {
    status.reason = Vosh::Qel::mplsHwUnprogReasonInvalidFecId;
  } else if (l2 != Vosh::Qel::kAllOnes && !hwL2Adjacencies_.contains(l2)) {
    // Either refused for capacity or never written: the hardware has nothing
    // to forward to.
    bool refused = config_->l2AdjacencyHas(l2);
    status.reason = refused ? Vosh::Qel::mplsHwUnprogReasonAdjacencyFull
                            : Vosh::Qel::mplsHwUnprogReasonInvalidFecId;
    status.resourceFlag = refused ? 1 : 0;
  } else if (!hwRoutes_.contains(config.routeKey) &&
             hwRoutes_.size() >= driverConfig_.routeCapacity) {
    status.reason = Vosh::Qel::mplsHwUnprogReasonRouteFull;
    status.resourceFlag = 1;
  } else {
    status.state = Vosh::Qel::mplsHwRouteStateProgrammed;
  }
  return status;
}

void HwDriver::routeStatusIs(const Vosh::Qel::MplsHwRouteStatus& status, const Target& target) {
  ++counters_.routeAnswers;
  const Mpls::RouteKey& key = status.routeKey;
  if (status.state == Vosh::Qel::mplsHwRouteStateProgrammed) {
    auto [held, added] = hwRoutes_.findOrInsert(key);
    if (!added && *held != 0 && *held != target) {
      ++counters_.hwRouteRepoints;
    }
    *held = target;
    status_->mplsRouteSyncMapIs(key, Vosh::Qel::MplsRouteSyncMap{key, {0, status.version}});
  } else {
    ++counters_.routesRefused;
    if (hwRoutes_.erase(key)) ++counters_.hwRouteDeletes;
    status_->mplsRouteSyncMapDel(key);
  }
  status_->mplsHwRouteIs(status);
}

}  // namespace Sim
