#include <gtest/gtest.h>

#include "SwitchFixture.h"
#include "pellet/Trace.h"

namespace QelTest {
namespace {

using Mpls::Hardware::RouteState;

class RouteIntake : public SwitchFixture {
 protected:
  void SetUp() override {
    interfaceIs("Ethernet1", 1006);
    interfaceIs("Ethernet2", 1007);
    arpIs("10.0.0.2", "Ethernet1", "00:00:5e:00:53:01");
    arpIs("10.0.1.2", "Ethernet2", "00:00:5e:00:53:02");
    startAgent();
  }

  void programRoute100OnViaSet1() {
    mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
    routeIs(100, 1);
    settle();
    ASSERT_EQ(published(100).state, RouteState::routeStateProgrammed);
  }

  // Via set 1 with its vias in order, the last one of another via type.
  void viaSet1WithAForeignViaIs() {
    Mpls::LfibViaSet set(Mpls::LfibViaSetKey(Mpls::viaTypeMplsIp, 1));
    Mpls::LfibViaSet current = lfib->viaSet(set.key());
    set.viaKeyIs(Mpls::LfibViaIndexRange(0), current.viaKey(Mpls::LfibViaIndexRange(0)));
    Mpls::LfibViaKey foreign(Mpls::viaTypeExternalFec, nextViaIndex++);
    lfib->extFecViaIs(foreign, Mpls::LfibExternalFecVia{foreign, 0x0900000000000011ULL});
    set.viaKeyIs(Mpls::LfibViaIndexRange(1), foreign);
    lfib->viaSetIs(set);
  }
};

TEST_F(RouteIntake, mplsIpAndExternalFecRoutesAreAccepted) {
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  externalFecViaSetIs(7);
  routeIs(100, 1);
  routeIs(101, 7, Mpls::viaTypeExternalFec);
  settle();
  EXPECT_TRUE(sm()->mplsIpRouteKeyHas(key(100)));
  EXPECT_TRUE(sm()->mplsIpRouteKeyHas(key(101)));
  EXPECT_TRUE(state()->routeHas(key(100)));
  EXPECT_TRUE(state()->routeHas(key(101)));
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
  EXPECT_TRUE(isPublished(101));
}

TEST_F(RouteIntake, aRouteOfAnotherViaTypeIsIgnored) {
  Pellet::Capture capture({"QelMplsSm"});
  routeIs(102, 9, Mpls::LfibViaType::viaTypeIpLookup);
  settle();
  EXPECT_EQ(capture.count(fmt::format("Ignoring non mpls-ip and extFec LfibRoute {}", key(102))),
            1u);
  EXPECT_FALSE(sm()->mplsIpRouteKeyHas(key(102)));
  EXPECT_FALSE(state()->routeHas(key(102)));
  EXPECT_FALSE(hwRoute(102));
  EXPECT_FALSE(isPublished(102));
}

TEST_F(RouteIntake, aDeletionOfARouteNeverAcceptedIsIgnoredAndQueuesNothing) {
  routeIs(102, 9, Mpls::LfibViaType::viaTypeIpLookup);
  settle();
  uint64_t passes = sm()->reviewCount();
  Pellet::Capture capture({"QelMplsSm"});
  routeDel(102);
  settle();
  EXPECT_EQ(capture.count(fmt::format("Ignoring LFIB route {}", key(102))), 1u);
  EXPECT_EQ(state()->routes(), 0u);
  EXPECT_EQ(sm()->reviewCount(), passes);
}

TEST_F(RouteIntake, aRouteThatTurnsUnsupportedAndIsThenDeletedLeavesNothingBehind) {
  programRoute100OnViaSet1();
  routeIs(100, 9, Mpls::LfibViaType::viaTypeIpLookup);
  settle();
  EXPECT_FALSE(sm()->mplsIpRouteKeyHas(key(100)));

  routeDel(100);
  settle();
  EXPECT_FALSE(isPublished(100));
  expectNoRouteResourcesLeft();
}

TEST_F(RouteIntake, aRouteThatTurnsUnsupportedWhileQueuedIsTakenOffReview) {
  routeSyncMapReadyIs(true);
  transitLfibQuiescedIs(true);
  systemLfibReadyIs(false);
  restartCore<NonStopCore>();
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  routeIs(100, 1);
  settle();
  ASSERT_TRUE(state()->routeKeyForReviewHas(key(100)));

  routeIs(100, 9, Mpls::LfibViaType::viaTypeIpLookup);
  settle();
  EXPECT_FALSE(state()->routeKeyForReviewHas(key(100)));
  EXPECT_FALSE(sm()->mplsIpRouteKeyHas(key(100)));

  systemLfibReadyIs(true);
  settle();
  EXPECT_FALSE(hwRoute(100));
  EXPECT_EQ(state()->l3Adjacencys(), 0u);
}

TEST_F(RouteIntake, aRouteGoneFromTheLfibIsDeletedAndUnpublished) {
  programRoute100OnViaSet1();
  routeDel(100);
  settle();
  EXPECT_FALSE(isPublished(100));
  EXPECT_FALSE(sm()->mplsIpRouteKeyHas(key(100)));
  expectNoRouteResourcesLeft();
}

TEST_F(RouteIntake, aViaSetWithoutViasDeletesItsRoutesAndUnpublishesThem) {
  programRoute100OnViaSet1();
  lfib->viaSetIs(Mpls::LfibViaSet(Mpls::LfibViaSetKey(Mpls::viaTypeMplsIp, 1)));
  settle();
  EXPECT_FALSE(isPublished(100));
  expectNoRouteResourcesLeft();
}

TEST_F(RouteIntake, aViaOfAnotherTypeMakesTheViaSetInsaneAndDeletesItsRoutes) {
  programRoute100OnViaSet1();
  viaSet1WithAForeignViaIs();
  settle();
  EXPECT_FALSE(isPublished(100));
  expectNoRouteResourcesLeft();
}

TEST_F(RouteIntake, aRouteComesBackWhenItsViaSetIsSaneAgain) {
  programRoute100OnViaSet1();
  lfib->viaSetIs(Mpls::LfibViaSet(Mpls::LfibViaSetKey(Mpls::viaTypeMplsIp, 1)));
  settle();
  ASSERT_FALSE(isPublished(100));

  mplsViaSetIs(1, {{"10.0.1.2", "Ethernet2", 300}});
  settle();
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
  EXPECT_EQ(hwL2(hwRoute(100).l2AdjId()).l2Via(Vosh::Qel::MplsHwL2ViaIndex(0)).label,
            Bexo::MplsLabel(300));
}

TEST_F(RouteIntake, aRouteWhoseViaSetIsMissingWaitsForIt) {
  routeIs(100, 3);
  settle();
  EXPECT_TRUE(state()->routeHas(key(100)));
  EXPECT_EQ(state()->l3Adjacencys(), 0u);
  EXPECT_FALSE(hwRoute(100));
  EXPECT_FALSE(isPublished(100));

  mplsViaSetIs(3, {{"10.0.0.2", "Ethernet1", 200}});
  settle();
  EXPECT_TRUE(hwRoute(100));
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
}

TEST_F(RouteIntake, aProgrammedRouteKeepsForwardingWhileItsViaSetIsMissing) {
  programRoute100OnViaSet1();
  Vosh::Qel::MplsHwRouteConfig before = hwRoute(100);
  viaSetDel(1);
  settle();
  EXPECT_TRUE(state()->routeHas(key(100)));
  EXPECT_EQ(hwRoute(100), before);
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);

  mplsViaSetIs(1, {{"10.0.1.2", "Ethernet2", 300}});
  settle();
  EXPECT_NE(hwRoute(100).l2AdjId(), before.l2AdjId());
  EXPECT_EQ(hwL2(hwRoute(100).l2AdjId()).l2Via(Vosh::Qel::MplsHwL2ViaIndex(0)).label,
            Bexo::MplsLabel(300));
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
}

TEST_F(RouteIntake, disablingMplsRoutingDeletesEveryRouteAndEnablingReplaysTheLfib) {
  programRoute100OnViaSet1();
  mplsRoutingIs(false);
  settle();
  EXPECT_FALSE(isPublished(100));
  expectNoRouteResourcesLeft();

  routeIs(101, 1);
  settle();
  EXPECT_FALSE(state()->routeHas(key(101)));

  mplsRoutingIs(true);
  settle();
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
  EXPECT_EQ(published(101).state, RouteState::routeStateProgrammed);
}

}  // namespace
}  // namespace QelTest
