#include "models/MplsLfibTracking.h"

#include <algorithm>

namespace Mpls {

class LfibTrackingSm::Reactor : public Kiv::Reactor {
 public:
  Reactor(LfibTrackingSm* sm, const LfibStatus* lfib) {
    on(lfib->onRoute(), [sm](const RouteKey& k) { sm->handleRoute(k); });
    on(lfib->onViaSet(), [sm](const LfibViaSetKey& k) { sm->handleViaSet(k); });
    on(lfib->onMplsVia(), [sm](const LfibViaKey& k) { sm->handleMplsVia(k); });
  }
};

LfibTrackingSm::LfibTrackingSm(std::string name, Kiv::Ptr<const LfibStatus> lfib,
                               Kiv::Ptr<LfibTrackingStatus> status)
    : Kiv::Entity(std::move(name)), lfib_(std::move(lfib)), status_(std::move(status)) {
  // What is already published counts as seen: index it without backlogging.
  lfib_->forEachViaSet([this](const LfibViaSetKey& k, const LfibViaSet&) { indexViaSet(k); });
  lfib_->forEachRoute([this](const RouteKey& k, const LfibRoute& r) {
    routeViaSet_.insert(k, r.viaSetKey);
    routeUsesViaSet(k, r.viaSetKey);
  });
  reactor_ = std::make_unique<Reactor>(this, lfib_.get());
}

LfibTrackingSm::~LfibTrackingSm() = default;

void LfibTrackingSm::routeUsesViaSet(const RouteKey& route, const LfibViaSetKey& viaSet) {
  auto users = status_->viaSetKeyToRouteKeySet(viaSet);
  if (!users) {
    users = Kiv::make<LfibViaSetKeyToRouteKeySet>(viaSet);
    status_->viaSetKeyToRouteKeySetIs(viaSet, users);
  }
  users->routeKeyIs(route);
}

void LfibTrackingSm::routeLeavesViaSet(const RouteKey& route, const LfibViaSetKey& viaSet) {
  auto users = status_->viaSetKeyToRouteKeySet(viaSet);
  if (!users) return;
  users->routeKeyDel(route);
  if (users->routeKeys() == 0) status_->viaSetKeyToRouteKeySetDel(viaSet);
}

void LfibTrackingSm::handleRoute(const RouteKey& key) {
  LfibRoute route = lfib_->route(key);
  const LfibViaSetKey* before = routeViaSet_.find(key);
  LfibViaSetKey previous = before ? *before : LfibViaSetKey();
  if (previous != route.viaSetKey || !route) {
    if (before) routeLeavesViaSet(key, previous);
    if (route) {
      routeViaSet_.insert(key, route.viaSetKey);
      routeUsesViaSet(key, route.viaSetKey);
    } else {
      routeViaSet_.erase(key);
    }
  }
  status_->routeKeyBacklogIs(key);
}

void LfibTrackingSm::indexViaSet(const LfibViaSetKey& key) {
  if (auto* old = viaSetVias_.find(key)) {
    for (const LfibViaKey& via : *old) {
      if (auto* users = viaUsers_.find(via)) {
        std::erase(*users, key);
        if (users->empty()) viaUsers_.erase(via);
      }
    }
    viaSetVias_.erase(key);
  }
  LfibViaSet viaSet = lfib_->viaSet(key);
  if (!viaSet) return;
  std::vector<LfibViaKey> vias;
  for (uint32_t i = 0; i < viaSet.vias(); ++i) {
    LfibViaKey via = viaSet.viaKey(LfibViaIndexRange(i));
    vias.push_back(via);
    auto& users = viaUsers_[via];
    if (std::find(users.begin(), users.end(), key) == users.end()) users.push_back(key);
  }
  viaSetVias_.insert(key, std::move(vias));
}

void LfibTrackingSm::handleViaSet(const LfibViaSetKey& key) {
  indexViaSet(key);
  status_->viaSetKeyBacklogIs(key);
}

void LfibTrackingSm::handleMplsVia(const LfibViaKey& key) {
  const auto* users = viaUsers_.find(key);
  if (!users) return;
  std::vector<LfibViaSetKey> changed = *users;
  for (const LfibViaSetKey& viaSet : changed) status_->viaSetKeyBacklogIs(viaSet);
}

}  // namespace Mpls
