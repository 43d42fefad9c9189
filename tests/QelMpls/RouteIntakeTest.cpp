#include <gtest/gtest.h>

#include <functional>

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

  void programRoute100OnViaSet1(uint32_t outLabel) {
    mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", outLabel}});
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

TEST_F(RouteIntake, mplsIpAndExternalFecRoutesAreAcceptedAndOthersAndTheirDeletionIgnored) {
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  externalFecViaSetIs(7);
  Pellet::Capture capture({"QelMplsSm"});
  routeIs(100, 1);
  routeIs(101, 7, Mpls::viaTypeExternalFec);
  routeIs(102, 9, Mpls::LfibViaType::viaTypeIpLookup);
  settle();
  for (uint32_t label : {100, 101}) {
    EXPECT_TRUE(sm()->mplsIpRouteKeyHas(key(label)));
    EXPECT_TRUE(state()->routeHas(key(label)));
  }
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
  EXPECT_FALSE(hwRoute(101)) << "the direct mode programs no external FEC";
  EXPECT_EQ(published(101).state, RouteState::routeStateUnprogrammed);
  EXPECT_EQ(capture.count(fmt::format("Ignoring non mpls-ip and extFec LfibRoute {}", key(102))),
            1u);
  EXPECT_FALSE(sm()->mplsIpRouteKeyHas(key(102)));
  EXPECT_FALSE(state()->routeHas(key(102)));
  EXPECT_FALSE(hwRoute(102));
  EXPECT_FALSE(isPublished(102));

  uint64_t passes = sm()->reviewCount();
  routeDel(102);
  settle();
  EXPECT_EQ(capture.count(fmt::format("Ignoring LFIB route {}", key(102))), 1u);
  EXPECT_EQ(state()->routes(), 2u);
  EXPECT_EQ(sm()->reviewCount(), passes) << "nothing queued";
}

TEST_F(RouteIntake, aRouteThatTurnsUnsupportedAndIsThenDeletedLeavesNothingBehind) {
  programRoute100OnViaSet1(200);
  routeIs(100, 9, Mpls::LfibViaType::viaTypeIpLookup);
  settle();
  EXPECT_FALSE(sm()->mplsIpRouteKeyHas(key(100)));

  routeDel(100);
  settle();
  EXPECT_FALSE(isPublished(100));
  expectNoRouteResourcesLeft();
}

// Each way of losing a route deletes and unpublishes it; it comes back, over
// a new record, once the LFIB offers it again.
TEST_F(RouteIntake, aRouteGoneOrOnAViaSetWithoutSaneViasIsDeletedAndUnpublished) {
  struct Case {
    const char* what;
    std::function<void()> lose;
    bool stillAnMplsIpRoute;
  };
  const Case cases[] = {
      {"gone from the LFIB", [this] { routeDel(100); }, false},
      {"via set without vias",
       [this] { lfib->viaSetIs(Mpls::LfibViaSet(Mpls::LfibViaSetKey(Mpls::viaTypeMplsIp, 1))); },
       true},
      {"via set with a via of another type", [this] { viaSet1WithAForeignViaIs(); }, true},
  };
  uint32_t label = 200;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    programRoute100OnViaSet1(label++);
    c.lose();
    settle();
    EXPECT_FALSE(isPublished(100));
    EXPECT_EQ(sm()->mplsIpRouteKeyHas(key(100)), c.stillAnMplsIpRoute);
    expectNoRouteResourcesLeft();
  }
  programRoute100OnViaSet1(label);
  EXPECT_EQ(hwL2(hwRoute(100).l2AdjId()).l2Via(Vosh::Qel::MplsHwL2ViaIndex(0)).label,
            Bexo::MplsLabel(label));
}

// Route 101's via set never came; route 100's goes after it was programmed.
TEST_F(RouteIntake, aRouteWhoseViaSetIsMissingWaitsForItAndAProgrammedOneKeepsForwarding) {
  programRoute100OnViaSet1(200);
  Vosh::Qel::MplsHwRouteConfig before = hwRoute(100);
  routeIs(101, 3);
  viaSetDel(1);
  settle();
  EXPECT_TRUE(state()->routeHas(key(101)));
  EXPECT_EQ(state()->l3Adjacencys(), 1u);
  EXPECT_FALSE(hwRoute(101));
  EXPECT_FALSE(isPublished(101));
  EXPECT_TRUE(state()->routeHas(key(100)));
  EXPECT_EQ(hwRoute(100), before);
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);

  mplsViaSetIs(3, {{"10.0.0.2", "Ethernet1", 200}});
  mplsViaSetIs(1, {{"10.0.1.2", "Ethernet2", 300}});
  settle();
  EXPECT_EQ(published(101).state, RouteState::routeStateProgrammed);
  EXPECT_TRUE(hwRoute(101));
  EXPECT_NE(hwRoute(100).l2AdjId(), before.l2AdjId());
  EXPECT_EQ(hwL2(hwRoute(100).l2AdjId()).l2Via(Vosh::Qel::MplsHwL2ViaIndex(0)).label,
            Bexo::MplsLabel(300));
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
}

TEST_F(RouteIntake, disablingMplsRoutingDeletesEveryRouteAndEnablingReplaysTheLfib) {
  programRoute100OnViaSet1(200);
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
