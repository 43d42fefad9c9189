#include <gtest/gtest.h>

#include <functional>

#include "SwitchFixture.h"

namespace QelTest {
namespace {

using Mpls::Hardware::RouteState;

class RouteIntake : public SwitchFixture {
 protected:
  void SetUp() override {
    hostsAre();
    startAgent();
  }

  void programRoute100OnViaSet1(uint32_t outLabel) {
    mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", outLabel}});
    routeIs(100, 1);
    settle();
    ASSERT_EQ(published(100).state, RouteState::routeStateProgrammed);
  }
};

TEST_F(RouteIntake, mplsIpAndExternalFecRoutesAreAcceptedAndOthersAndTheirDeletionIgnored) {
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  externalFecViaSetIs(7);
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
  EXPECT_FALSE(sm()->mplsIpRouteKeyHas(key(102)));
  EXPECT_FALSE(state()->routeHas(key(102)));
  EXPECT_FALSE(isPublished(102));

  uint64_t passes = sm()->reviewCount();
  routeDel(102);
  settle();
  EXPECT_EQ(state()->routes(), 2u);
  EXPECT_EQ(sm()->reviewCount(), passes) << "nothing queued";
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
      {"via set with a via of another type",
       [this] {
         Mpls::LfibViaSet set = lfib->viaSet(Mpls::LfibViaSetKey(Mpls::viaTypeMplsIp, 1));
         set.viaKeyIs(Mpls::LfibViaIndexRange(1), externalFecViaIs());
         lfib->viaSetIs(set);
       },
       true},
      // Turning unsupported keeps the route's state and record for its deletion.
      {"turned unsupported, then deleted",
       [this] {
         routeIs(100, 9, Mpls::LfibViaType::viaTypeIpLookup);
         settle();
         EXPECT_FALSE(sm()->mplsIpRouteKeyHas(key(100)));
         routeDel(100);
       },
       false},
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
  Vosh::Qel::MplsHwRouteConfig record = hwRoute(100);
  EXPECT_EQ(record.adjacencyIdType, Vosh::Qel::adjIdTypeL2Adjacency);
  Vosh::Qel::MplsHwL2AdjacencyConfig l2 = hwL2(record.l2AdjId());
  ASSERT_EQ(l2.l2Vias(), 1u);
  EXPECT_EQ(l2.l2Via(Vosh::Qel::MplsHwL2ViaIndex(0)).vlan, 1006);
  EXPECT_EQ(l2.l2Via(Vosh::Qel::MplsHwL2ViaIndex(0)).label, Bexo::MplsLabel(label));
  EXPECT_EQ(hwConfig->routes(), 0u) << "nothing in the legacy configuration";
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
  EXPECT_EQ(hwRoute(100), before);
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);

  mplsViaSetIs(3, {{"10.0.0.2", "Ethernet1", 200}});
  mplsViaSetIs(1, {{"10.0.1.2", "Ethernet2", 300}});
  settle();
  EXPECT_EQ(published(101).state, RouteState::routeStateProgrammed);
  EXPECT_NE(hwRoute(100).l2AdjId(), before.l2AdjId());
  EXPECT_EQ(hwL2(hwRoute(100).l2AdjId()).l2Via(Vosh::Qel::MplsHwL2ViaIndex(0)).label,
            Bexo::MplsLabel(300));
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
}

// A via set the transit LFIB lacks is taken from the second LFIB, and its
// arrival there wakes the route that waited for it.
TEST_F(RouteIntake, aViaSetOnlyInTheSecondLfibIsFoundThereWhenItArrives) {
  const char* path = "mpls/secondLfib";
  platform->mountWriter(path, Mpls::LfibStatus::collections());
  auto second = Kiv::make<Mpls::LfibStatus>(*platform, path);
  agentShm->mountReader(path, Vosh::mountTypeSharedReader);
  root->lfibStatusIs(Kiv::make<Mpls::LfibStatus>(*agentShm, path));
  ASSERT_EQ(sm()->lfibStatus(), root->lfibStatus().get());
  settle();
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  const Mpls::LfibViaSet viaSet = lfib->viaSet(Mpls::LfibViaSetKey(Mpls::viaTypeMplsIp, 1));
  viaSetDel(1);
  routeIs(100, 1);
  settle();
  EXPECT_TRUE(state()->routeHas(key(100)));
  EXPECT_FALSE(hwRoute(100));

  second->viaSetIs(viaSet);
  settle();
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
  EXPECT_EQ(hwL2(hwRoute(100).l2AdjId()).l2Via(Vosh::Qel::MplsHwL2ViaIndex(0)).label,
            Bexo::MplsLabel(200));
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
  expectProgrammed({100, 101});
}

}  // namespace
}  // namespace QelTest
