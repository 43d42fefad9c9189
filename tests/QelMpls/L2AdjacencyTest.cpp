#include <gtest/gtest.h>

#include "SwitchFixture.h"

namespace QelTest {
namespace {

using Mpls::Hardware::RouteState;
using Vosh::Qel::MplsHwL2ViaIndex;

class L2Adjacencies : public SwitchFixture {
 protected:
  void SetUp() override {
    hostsAre();
    startAgent();
  }

  Vosh::Qel::MplsHwL2AdjacencyConfig l2Of(uint32_t label) const {
    return hwL2(hwRoute(label).l2AdjId());
  }
  Bexo::EthAddr macOf(uint32_t label) const { return l2Of(label).l2Via(MplsHwL2ViaIndex(0)).mac; }
};

// Routes of one via set share its adjacency; via sets never share one, but
// their adjacencies share a record for the same resolved vias.
TEST_F(L2Adjacencies, adjacenciesOfDifferentViaSetsShareOneRecordForTheSameResolvedVias) {
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}, {"10.0.1.2", "Ethernet2", 300}});
  mplsViaSetIs(2, {{"10.0.0.2", "Ethernet1", 200}, {"10.0.1.2", "Ethernet2", 300}});
  mplsViaSetIs(3, {{"10.0.0.2", "Ethernet1", 200}, {"10.0.1.2", "Ethernet2", 301}});
  routeIs(100, 1);
  routeIs(101, 2);
  routeIs(102, 2);
  routeIs(103, 3);
  settle();
  EXPECT_EQ(state()->l3Adjacencys(), 3u);
  EXPECT_EQ(state()->l2Adjacencys(), 2u);
  EXPECT_EQ(hwL2Adjacencies(), 2u);
  EXPECT_EQ(hwRoute(100).l2AdjId(), hwRoute(101).l2AdjId());
  EXPECT_EQ(hwRoute(101).l2AdjId(), hwRoute(102).l2AdjId());
  EXPECT_NE(hwRoute(100).l2AdjId(), hwRoute(103).l2AdjId()) << "a second via differs";

  // Its record unchanged, a route moved to another via set still leaves the old adjacency.
  routeIs(100, 2);
  settle();
  EXPECT_EQ(state()->l3Adjacencys(), 2u);
}

// Via sets 1 and 2 go through 10.0.0.2, 3 through 10.0.1.2, 4 and 5 through
// two hosts behind Ethernet3 in VLAN 100. Nothing is behind an unknown next
// hop or MAC.
TEST_F(L2Adjacencies, anArpChangeOrMacMoveRereviewsExactlyTheAdjacenciesBehindIt) {
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  mplsViaSetIs(2, {{"10.0.0.2", "Ethernet1", 201}});
  mplsViaSetIs(3, {{"10.0.1.2", "Ethernet2", 300}});
  mplsViaSetIs(4, {{"10.0.2.2", "Vlan100", 400}});
  mplsViaSetIs(5, {{"10.0.2.3", "Vlan100", 500}});
  for (uint32_t viaSet = 1; viaSet <= 5; ++viaSet) routeIs(99 + viaSet, viaSet);
  settle();
  Vosh::Qel::MplsHwRouteConfig untouched = hwRoute(102), otherHost = hwRoute(104);
  uint64_t moved = hwRoute(103).l2AdjId();
  ASSERT_EQ(l2Of(103).l2Via(MplsHwL2ViaIndex(0)).intf, Bexo::IntfId::fromString("Ethernet3"));
  uint64_t adjacenciesReviewed = state()->l3AdjReviewed();

  arpIs("10.0.0.2", "Ethernet1", "00:00:5e:00:53:11");
  runReviewPasses(1);
  EXPECT_EQ(state()->l3AdjReviewed() - adjacenciesReviewed, 2u);
  settle();
  adjacenciesReviewed = state()->l3AdjReviewed();
  fdbIs(100, "00:00:5e:00:53:03", "Ethernet4");
  runReviewPasses(1);
  EXPECT_EQ(state()->l3AdjReviewed() - adjacenciesReviewed, 1u);

  settle();
  EXPECT_EQ(macOf(100), Bexo::EthAddr::fromString("00:00:5e:00:53:11"));
  EXPECT_EQ(macOf(101), Bexo::EthAddr::fromString("00:00:5e:00:53:11"));
  EXPECT_EQ(l2Of(103).l2Via(MplsHwL2ViaIndex(0)).intf, Bexo::IntfId::fromString("Ethernet4"));
  EXPECT_FALSE(hwL2(moved)) << "the old record is deleted once no route uses it";
  EXPECT_EQ(hwRoute(102), untouched);
  EXPECT_EQ(hwRoute(104), otherHost);
  EXPECT_EQ(hwL2Adjacencies(), 5u) << "the records with the old MAC or port are gone";
  expectProgrammed({100, 101, 102, 103, 104});

  uint64_t passes = sm()->reviewCount();
  arpIs("10.0.9.9", "Ethernet1", "00:00:5e:00:53:99");
  fdbIs(100, "00:00:5e:00:53:99", "Ethernet3");
  settle();
  EXPECT_EQ(sm()->reviewCount(), passes);
}

// Via set 1 has one unresolved next hop, via set 2 only that one.
TEST_F(L2Adjacencies, unresolvedNextHopsJoinTheRecordOrLetItsRoutesWaitUntilArpAnswers) {
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}, {"10.0.9.9", "Ethernet2", 300}});
  mplsViaSetIs(2, {{"10.0.9.9", "Ethernet2", 300}});
  routeIs(100, 1);
  routeIs(101, 2);
  routeIs(102, 2);
  settle();
  expectProgrammed({100});
  EXPECT_EQ(l2Of(100).l2Vias(), 1u);
  EXPECT_EQ(root->proactiveArpNexthop()->requests(), 2u)
      << "the unresolved next hop is asked for ahead of traffic";
  EXPECT_FALSE(hwRoute(101));
  EXPECT_FALSE(hwRoute(102));
  EXPECT_EQ(hwL2Adjacencies(), 1u);
  EXPECT_EQ(published(101).state, RouteState::routeStateUnprogrammed);
  EXPECT_EQ(published(101).unprogrammedReason,
            static_cast<uint32_t>(Qel::UnprogrammedReason::unprogrammedReasonNexthopUnresolved));

  arpIs("10.0.9.9", "Ethernet2", "00:00:5e:00:53:09");
  settle();
  ASSERT_EQ(l2Of(100).l2Vias(), 2u);
  expectProgrammed({100, 101, 102});
  EXPECT_EQ(hwRoute(101).l2AdjId(), hwRoute(102).l2AdjId());
  EXPECT_EQ(hwL2Adjacencies(), 2u);

  expectNothingLeftOnceRoutesGo({100, 101, 102});
}

TEST_F(L2Adjacencies, anUnusedLayer2AdjacencyWaitsWhileRoutesStillPointAtItsRecord) {
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  mplsViaSetIs(2, {{"10.0.1.2", "Ethernet2", 300}});
  routeIs(100, 1);
  routeIs(101, 1);
  settle();
  Vosh::Qel::MplsHwRouteConfig before = hwRoute(100);
  uint64_t oldRecord = before.l2AdjId();

  // In one pass the adjacency moves to a new record, route 100 moves to a
  // new via set whose adjacency is still to be reviewed and keeps pointing at
  // the old record; route 101 moves to the new one although its adjacency
  // awaits a second review.
  arpIs("10.0.0.2", "Ethernet1", "00:00:5e:00:53:11");
  routeIs(100, 2);
  runReviewPasses(1);
  EXPECT_TRUE(state()->l2AdjPendingForDeleteHas(oldRecord));
  EXPECT_TRUE(hwL2(oldRecord));
  EXPECT_EQ(hwRoute(100), before);
  EXPECT_TRUE(state()->routeKeyForReviewHas(key(100))) << "it comes back for review";
  EXPECT_NE(hwRoute(101).l2AdjId(), oldRecord);

  runReviewPasses(1);
  EXPECT_FALSE(state()->l2AdjPendingForDeleteHas(oldRecord));
  EXPECT_FALSE(state()->l2AdjacencyHas(oldRecord));
  EXPECT_FALSE(hwL2(oldRecord));
  EXPECT_EQ(l2Of(100).l2Via(MplsHwL2ViaIndex(0)).label, Bexo::MplsLabel(300));
  EXPECT_NE(hwRoute(101).l2AdjId(), oldRecord);

  settle();
  expectProgrammed({100, 101});
  expectNothingLeftOnceRoutesGo({100, 101});
}

}  // namespace
}  // namespace QelTest
