#include <gtest/gtest.h>

#include <set>
#include <utility>
#include <vector>

#include "ModelsTestSupport.h"
#include "models/MplsLfibTracking.h"
#include "models/VoshTables.h"

namespace {

using Mpls::LfibViaKey;
using Mpls::LfibViaSetKey;
using Mpls::RouteKey;

const LfibViaSetKey kSetA(Mpls::viaTypeMplsIp, 1);
const LfibViaSetKey kSetB(Mpls::viaTypeMplsIp, 2);

RouteKey key(uint32_t label) { return RouteKey(Bexo::MplsLabel(label)); }
LfibViaKey via(uint32_t index) { return LfibViaKey(Mpls::viaTypeMplsIp, index); }

// The tracking state machine runs over the consumer's reading view of the LFIB, as in the
// agent.
class LfibTracking : public ModelsTest::LfibFixture {
 protected:
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

  Kiv::Ptr<Mpls::LfibTrackingStatus> status = Kiv::make<Mpls::LfibTrackingStatus>();
  Kiv::Ptr<Mpls::LfibTrackingSm> sm;
};

class LfibTrackingStarted : public LfibTracking {
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
  // Delivers what was published and what the backlogs took in, which the consumer then takes.
  std::pair<std::set<RouteKey>, std::set<LfibViaSetKey>> delivered() {
    deliver();
    auto backlogs = std::make_pair(routeBacklog(), viaSetBacklog());
    consumeBacklogs();
    return backlogs;
  }
};

using Routes = std::set<RouteKey>;
using ViaSets = std::set<LfibViaSetKey>;

TEST_F(LfibTrackingStarted, backlogsEachRouteChangeAndIndexesRoutesUnderTheirViaSet) {
  routeIs(100, kSetA);
  routeIs(101, kSetA);
  EXPECT_EQ(delivered(), std::make_pair(Routes{key(100), key(101)}, ViaSets{}));
  EXPECT_EQ(usersOf(kSetA), (Routes{key(100), key(101)}));
  EXPECT_TRUE(usersOf(kSetB).empty());

  routeIs(100, kSetA, 1);
  EXPECT_EQ(delivered(), std::make_pair(Routes{key(100)}, ViaSets{}));
  EXPECT_EQ(usersOf(kSetA), (Routes{key(100), key(101)}));

  routeIs(100, kSetB);
  EXPECT_EQ(delivered().first, Routes{key(100)});
  EXPECT_EQ(usersOf(kSetA), Routes{key(101)});
  EXPECT_EQ(usersOf(kSetB), Routes{key(100)});

  routeIs(101, kSetB);
  delivered();
  EXPECT_FALSE(status->viaSetKeyToRouteKeySetHas(kSetA));
  EXPECT_EQ(usersOf(kSetB), (Routes{key(100), key(101)}));

  producer->routeDel(key(100));
  EXPECT_EQ(delivered().first, Routes{key(100)});
  EXPECT_EQ(usersOf(kSetB), Routes{key(101)});

  producer->routeDel(key(101));
  delivered();
  EXPECT_EQ(status->viaSetKeyToRouteKeySets(), 0u);
}

TEST_F(LfibTrackingStarted, backlogsEachViaSetThatAChangedViaSetOrViaConcerns) {
  mplsViaIs(1, 201);
  EXPECT_EQ(delivered(), std::make_pair(Routes{}, ViaSets{kSetA, kSetB}));
  mplsViaIs(2, 301);
  EXPECT_EQ(delivered().second, ViaSets{kSetB});
  mplsViaIs(3, 401);
  EXPECT_EQ(delivered(), std::make_pair(Routes{}, ViaSets{}));

  std::vector<LfibViaSetKey> announced;
  Kiv::Connection c =
      status->onViaSetKeyBacklog.connect([&](const LfibViaSetKey& k) { announced.push_back(k); });
  viaSetIs(kSetB, {2, 3});
  EXPECT_EQ(delivered(), std::make_pair(Routes{}, ViaSets{kSetB}));
  EXPECT_EQ(announced, std::vector<LfibViaSetKey>{kSetB});
  // Only its new vias concern it now.
  mplsViaIs(1, 202);
  EXPECT_EQ(delivered().second, ViaSets{kSetA});
  mplsViaIs(3, 402);
  EXPECT_EQ(delivered().second, ViaSets{kSetB});

  producer->viaSetDel(kSetB);
  EXPECT_EQ(delivered().second, ViaSets{kSetB});
  mplsViaIs(2, 302);
  mplsViaIs(1, 203);
  EXPECT_EQ(delivered().second, ViaSets{kSetA});
}

TEST_F(LfibTracking, takesWhatWasPublishedBeforeItStartedAsSeenAndStopsOnceReleased) {
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

  // Once released, it records nothing more.
  sm = nullptr;
  consumeBacklogs();
  mplsViaIs(1, 202);
  routeIs(102, kSetA);
  deliver();
  EXPECT_TRUE(routeBacklog().empty());
  EXPECT_TRUE(viaSetBacklog().empty());
  EXPECT_EQ(usersOf(kSetA), std::set<RouteKey>{key(101)});
}

}  // namespace
