#pragma once

// LFIB flow control. The tracking state machine watches the transit LFIB and
// records what changed and has not been consumed yet: changed via set keys
// (including via sets whose vias changed) and changed route keys. It also
// keeps, per via set key, the routes that use it, so a via set arriving late
// can find the routes waiting for it.

#include <string>

#include "kiv/DenseSet.h"
#include "kiv/DirectMap.h"
#include "kiv/Entity.h"
#include "models/MplsLfib.h"
#include "models/VoshTables.h"

namespace Mpls {

class LfibViaSetKeyToRouteKeySet : public Kiv::RefCounted {
 public:
  explicit LfibViaSetKeyToRouteKeySet(const LfibViaSetKey& key) : key_(key) {}
  const LfibViaSetKey& key() const { return key_; }
  KIV_SET(RouteKey, routeKey)

 private:
  LfibViaSetKey key_;
};

class LfibTrackingStatus : public Kiv::Entity {
 public:
  // Backlogs notify when a key is added, so a consumer reacts to the backlog
  // rather than to the raw table and never sees a change before it is recorded.
  bool viaSetKeyBacklogHas(const LfibViaSetKey& k) const { return viaSetKeyBacklog_.contains(k); }
  void viaSetKeyBacklogIs(const LfibViaSetKey& k) {
    viaSetKeyBacklog_.insert(k);
    onViaSetKeyBacklog(k);
  }
  void viaSetKeyBacklogDel(const LfibViaSetKey& k) { viaSetKeyBacklog_.erase(k); }
  void viaSetKeyBacklogDelAll() { viaSetKeyBacklog_.clear(); }
  size_t viaSetKeyBacklogs() const { return viaSetKeyBacklog_.size(); }
  const Kiv::DenseSet<LfibViaSetKey>& viaSetKeyBacklogColl() const { return viaSetKeyBacklog_; }
  mutable Kiv::Signal<LfibViaSetKey> onViaSetKeyBacklog;

  // Every changed route until its consumer takes it: up to every route.
  KIV_DENSE_SET(RouteKey, routeKeyBacklog)
  KIV_COLL(LfibViaSetKey, Kiv::Ptr<LfibViaSetKeyToRouteKeySet>, viaSetKeyToRouteKeySet,
           ViaSetKeyToRouteKeySet)

 private:
  Kiv::DenseSet<LfibViaSetKey> viaSetKeyBacklog_;
};

class LfibTrackingSm : public Kiv::Entity {
 public:
  LfibTrackingSm(std::string name, Kiv::Ptr<const LfibStatus> lfib,
                 Kiv::Ptr<LfibTrackingStatus> status);
  ~LfibTrackingSm() override;

  void handleRoute(const RouteKey& key);
  void handleViaSet(const LfibViaSetKey& key);
  void handleMplsVia(const LfibViaKey& key);

 private:
  class Reactor;
  void routeUsesViaSet(const RouteKey& route, const LfibViaSetKey& viaSet);
  void routeLeavesViaSet(const RouteKey& route, const LfibViaSetKey& viaSet);
  void indexViaSet(const LfibViaSetKey& key);

  Kiv::Ptr<const LfibStatus> lfib_;
  Kiv::Ptr<LfibTrackingStatus> status_;
  // What each route and via set pointed at when last seen, to undo the
  // reverse indexes when they change.
  Kiv::DirectMap<RouteKey, LfibViaSetKey> routeViaSet_;
  Kiv::HashMap<LfibViaSetKey, std::vector<LfibViaKey>> viaSetVias_;
  Kiv::HashMap<LfibViaKey, std::vector<LfibViaSetKey>> viaUsers_;
  std::unique_ptr<Reactor> reactor_;
};

}  // namespace Mpls
