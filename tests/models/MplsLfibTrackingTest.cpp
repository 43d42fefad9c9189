#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "ModelsTestSupport.h"
#include "models/MplsLfibTracking.h"
#include "models/VoshTables.h"

namespace {

using Mpls::LfibViaKey;
using Mpls::LfibViaSetKey;
using Mpls::RouteKey;

constexpr const char* kLfibPath = "mpls/transitLfib";
const LfibViaSetKey kSetA(Mpls::viaTypeMplsIp, 1);
const LfibViaSetKey kSetB(Mpls::viaTypeMplsIp, 2);

RouteKey key(uint32_t label) { return RouteKey(Bexo::MplsLabel(label)); }
LfibViaKey via(uint32_t index) { return LfibViaKey(Mpls::viaTypeMplsIp, index); }

// The LFIB producer writes the transit LFIB; the tracking state machine runs
// over the consumer's reading view of it, as in the agent.
class LfibTracking : public ModelsTest::ShmFixture {
 protected:
  LfibTracking() {
    writerShm->mountWriter(kLfibPath, Mpls::LfibStatus::collections());
    producer = Kiv::make<Mpls::LfibStatus>(*writerShm, kLfibPath);
    readerShm->mountReader(kLfibPath, Vosh::mountTypeSharedReader);
    lfib = Kiv::make<Mpls::LfibStatus>(*readerShm, kLfibPath);
    status = Kiv::make<Mpls::LfibTrackingStatus>();
  }
  ~LfibTracking() override {
    sm = nullptr;
    lfib = nullptr;
    producer = nullptr;
  }

  void startTracking() { sm = Kiv::make<Mpls::LfibTrackingSm>("lfibTrackingSm", lfib, status); }

  void mplsViaIs(uint32_t index, uint32_t label) {
    Mpls::LfibMplsVia v;
    v.viaKey = via(index);
    v.labelOperation = Bexo::UnboundedMplsLabelOperation(
        Bexo::mplsActionSwap, Bexo::MplsLabelStack{Bexo::MplsLabel(label)});
    v.nextHop = Bexo::IpGenAddr::fromString("10.0.0.2");
    v.intf = Bexo::IntfId::fromString("Ethernet1");
    producer->mplsViaIs(v);
  }
  void viaSetIs(const LfibViaSetKey& setKey, std::vector<uint32_t> vias) {
    Mpls::LfibViaSet set(setKey);
    for (uint32_t i = 0; i < vias.size(); ++i)
      set.viaKeyIs(Mpls::LfibViaIndexRange(i), via(vias[i]));
    producer->viaSetIs(set);
  }
  void routeIs(uint32_t label, const LfibViaSetKey& setKey, uint8_t flags = 0) {
    Mpls::LfibRoute route;
    route.routeKey = key(label);
    route.viaSetKey = setKey;
    route.viaType = Mpls::viaTypeMplsIp;
    route.flags = flags;
    producer->routeIs(route);
  }

  // What the consumer would take from the backlogs now, and then takes.
  std::set<RouteKey> routeBacklog() const {
    return {status->routeKeyBacklogColl().begin(), status->routeKeyBacklogColl().end()};
  }
  std::set<LfibViaSetKey> viaSetBacklog() const {
    return {status->viaSetKeyBacklogColl().begin(), status->viaSetKeyBacklogColl().end()};
  }
  void consumeBacklogs() {
    status->routeKeyBacklogDelAll();
    status->viaSetKeyBacklogDelAll();
  }
  // The routes indexed under a via set key; empty when it has no entry.
  std::set<RouteKey> usersOf(const LfibViaSetKey& setKey) const {
    auto users = status->viaSetKeyToRouteKeySet(setKey);
    if (!users) return {};
    return {users->routeKeyColl().begin(), users->routeKeyColl().end()};
  }

  Kiv::Ptr<Mpls::LfibStatus> producer;
  Kiv::Ptr<Mpls::LfibStatus> lfib;
  Kiv::Ptr<Mpls::LfibTrackingStatus> status;
  Kiv::Ptr<Mpls::LfibTrackingSm> sm;
};

class LfibTrackingRoutes : public LfibTracking {
 protected:
  void SetUp() override {
    startTracking();
    mplsViaIs(1, 200);
    viaSetIs(kSetA, {1});
    viaSetIs(kSetB, {1});
    deliver();
    consumeBacklogs();
  }
};

TEST_F(LfibTrackingRoutes, newRouteIsBackloggedAndIndexedUnderItsViaSet) {
  routeIs(100, kSetA);
  deliver();
  EXPECT_EQ(routeBacklog(), std::set<RouteKey>{key(100)});
  EXPECT_TRUE(viaSetBacklog().empty());
  EXPECT_EQ(usersOf(kSetA), std::set<RouteKey>{key(100)});
  EXPECT_TRUE(usersOf(kSetB).empty());
}

TEST_F(LfibTrackingRoutes, routeMovingToAnotherViaSetIsReindexed) {
  routeIs(100, kSetA);
  routeIs(101, kSetA);
  deliver();
  consumeBacklogs();

  routeIs(100, kSetB);
  deliver();
  EXPECT_EQ(routeBacklog(), std::set<RouteKey>{key(100)});
  EXPECT_EQ(usersOf(kSetA), std::set<RouteKey>{key(101)});
  EXPECT_EQ(usersOf(kSetB), std::set<RouteKey>{key(100)});

  routeIs(101, kSetB);
  deliver();
  EXPECT_FALSE(status->viaSetKeyToRouteKeySetHas(kSetA));
  EXPECT_EQ(usersOf(kSetB), (std::set<RouteKey>{key(100), key(101)}));
}

TEST_F(LfibTrackingRoutes, deletedRouteIsBackloggedAndLeavesTheIndex) {
  routeIs(100, kSetA);
  routeIs(101, kSetA);
  deliver();
  consumeBacklogs();

  producer->routeDel(key(100));
  deliver();
  EXPECT_EQ(routeBacklog(), std::set<RouteKey>{key(100)});
  EXPECT_EQ(usersOf(kSetA), std::set<RouteKey>{key(101)});

  producer->routeDel(key(101));
  deliver();
  EXPECT_FALSE(status->viaSetKeyToRouteKeySetHas(kSetA));
  EXPECT_EQ(status->viaSetKeyToRouteKeySets(), 0u);
}

TEST_F(LfibTrackingRoutes, routeChangedInPlaceIsBackloggedAndStaysIndexed) {
  routeIs(100, kSetA);
  deliver();
  consumeBacklogs();
  routeIs(100, kSetA, 1);
  deliver();
  EXPECT_EQ(routeBacklog(), std::set<RouteKey>{key(100)});
  EXPECT_EQ(usersOf(kSetA), std::set<RouteKey>{key(100)});
}

class LfibTrackingViaSets : public LfibTracking {
 protected:
  void SetUp() override {
    startTracking();
    mplsViaIs(1, 200);
    mplsViaIs(2, 300);
    mplsViaIs(3, 400);
    viaSetIs(kSetA, {1});
    viaSetIs(kSetB, {1, 2});
    deliver();
    consumeBacklogs();
  }
};

TEST_F(LfibTrackingViaSets, changedViaSetIsBackloggedAndAnnouncedOnce) {
  std::vector<LfibViaSetKey> announced;
  Kiv::Connection c =
      status->onViaSetKeyBacklog.connect([&](const LfibViaSetKey& k) { announced.push_back(k); });
  viaSetIs(kSetA, {1, 3});
  deliver();
  EXPECT_EQ(viaSetBacklog(), std::set<LfibViaSetKey>{kSetA});
  EXPECT_EQ(announced, std::vector<LfibViaSetKey>{kSetA});
  EXPECT_TRUE(routeBacklog().empty());
}

TEST_F(LfibTrackingViaSets, changedViaBacklogsEveryViaSetThatUsesIt) {
  mplsViaIs(1, 201);
  deliver();
  EXPECT_EQ(viaSetBacklog(), (std::set<LfibViaSetKey>{kSetA, kSetB}));
  consumeBacklogs();

  mplsViaIs(2, 301);
  deliver();
  EXPECT_EQ(viaSetBacklog(), std::set<LfibViaSetKey>{kSetB});
  consumeBacklogs();

  mplsViaIs(3, 401);
  deliver();
  EXPECT_TRUE(viaSetBacklog().empty());
  EXPECT_TRUE(routeBacklog().empty());
}

TEST_F(LfibTrackingViaSets, changedViaSetIsBackloggedForItsNewViasOnly) {
  viaSetIs(kSetB, {2, 3});
  deliver();
  consumeBacklogs();
  mplsViaIs(1, 201);
  deliver();
  EXPECT_EQ(viaSetBacklog(), std::set<LfibViaSetKey>{kSetA});
  consumeBacklogs();
  mplsViaIs(3, 401);
  deliver();
  EXPECT_EQ(viaSetBacklog(), std::set<LfibViaSetKey>{kSetB});
}

TEST_F(LfibTrackingViaSets, deletedViaSetIsBackloggedThenForgotten) {
  producer->viaSetDel(kSetB);
  deliver();
  EXPECT_EQ(viaSetBacklog(), std::set<LfibViaSetKey>{kSetB});
  consumeBacklogs();
  mplsViaIs(2, 301);
  mplsViaIs(1, 201);
  deliver();
  EXPECT_EQ(viaSetBacklog(), std::set<LfibViaSetKey>{kSetA});
}

TEST_F(LfibTracking, takesWhatWasPublishedBeforeItStartedAsSeen) {
  mplsViaIs(1, 200);
  viaSetIs(kSetA, {1});
  routeIs(100, kSetA);
  routeIs(101, kSetA);
  deliver();
  startTracking();
  EXPECT_TRUE(routeBacklog().empty());
  EXPECT_TRUE(viaSetBacklog().empty());
  EXPECT_EQ(usersOf(kSetA), (std::set<RouteKey>{key(100), key(101)}));

  mplsViaIs(1, 201);
  routeIs(100, kSetB);
  deliver();
  EXPECT_EQ(viaSetBacklog(), std::set<LfibViaSetKey>{kSetA});
  EXPECT_EQ(usersOf(kSetA), std::set<RouteKey>{key(101)});
  EXPECT_EQ(usersOf(kSetB), std::set<RouteKey>{key(100)});
}

TEST_F(LfibTracking, stopsRecordingOnceReleased) {
  startTracking();
  sm = nullptr;
  mplsViaIs(1, 200);
  viaSetIs(kSetA, {1});
  routeIs(100, kSetA);
  deliver();
  EXPECT_TRUE(routeBacklog().empty());
  EXPECT_TRUE(viaSetBacklog().empty());
  EXPECT_EQ(status->viaSetKeyToRouteKeySets(), 0u);
}

}  // namespace
