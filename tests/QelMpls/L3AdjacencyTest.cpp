#include <gtest/gtest.h>

#include <string>

#include "SwitchFixture.h"

namespace QelTest {
namespace {

using Mpls::Hardware::RouteState;

class L3Adjacencies : public SwitchFixture {
 protected:
  void SetUp() override {
    hostsAre();
    startAgent();
  }

  size_t proactiveRequests() const { return root->proactiveArpNexthop()->requests(); }
  bool requested(const std::string& ip, const std::string& intf) const {
    return root->proactiveArpNexthop()->requestHas(
        Arp::Table::ArpKey(Bexo::IpGenAddr::fromString(ip), Bexo::IntfId::fromString(intf)));
  }
};

// The vias of a dynamic-tunnel via set must agree on their label action: one
// that disagrees leaves the via set with no usable via at all.
TEST_F(L3Adjacencies, dynamicTunnelViasOfOneViaSetMustShareTheirLabelAction) {
  auto tunnelViaSetIs = [&](uint32_t id, Bexo::MplsLabelAction secondAction) {
    std::vector<Mpls::LfibMplsVia> vias;
    for (uint32_t position = 0; position < 3; ++position) {
      vias.push_back(mplsVia("10.0.0.2", "DynamicTunnel" + std::to_string(position + 1),
                             position == 0 ? Bexo::mplsActionSwap : secondAction,
                             {Bexo::MplsLabel(300 + position)}));
    }
    viaSetIs(id, vias);
  };
  tunnelViaSetIs(1, Bexo::mplsActionSwap);
  tunnelViaSetIs(2, Bexo::mplsActionPop);
  routeIs(100, 1);
  routeIs(101, 2);
  settle();
  auto adjacencyOf = [&](uint32_t label) {
    return state()->l3Adjacency(published(label).adjacencyIndex);
  };
  ASSERT_TRUE(adjacencyOf(100) && adjacencyOf(100)->cachedVias());
  ASSERT_TRUE(adjacencyOf(101) && adjacencyOf(101)->cachedVias());
  EXPECT_EQ(adjacencyOf(100)->lFibAdjType(), Qel::L3AdjLFibAdjType::adjTypeDynamicTunnel);
  EXPECT_EQ(adjacencyOf(100)->cachedVias()->vias(), 3u);
  EXPECT_EQ(adjacencyOf(101)->cachedVias()->vias(), 0u);
  // Neither kind is programmable in the direct mode.
  EXPECT_EQ(published(100).state, RouteState::routeStateUnprogrammed);
  EXPECT_EQ(published(101).state, RouteState::routeStateUnprogrammed);
}

// The via sets share next hop 10.0.0.2; only via set 1 has a host behind a
// VLAN, whose MAC the adjacency follows.
TEST_F(L3Adjacencies, aRouteMovedAwayLeavesItsOldAdjacencyAndANextHopStaysWhileOthersUseIt) {
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}, {"10.0.2.2", "Vlan100", 210}});
  mplsViaSetIs(2, {{"10.0.0.2", "Ethernet1", 201}, {"10.0.1.2", "Ethernet2", 300}});
  routeIs(100, 1);
  routeIs(101, 2);
  settle();
  ASSERT_EQ(state()->mplsNextHops(), 3u);
  ASSERT_EQ(proactiveRequests(), 3u);
  ASSERT_EQ(state()->fdbToL3AdjIdxs(), 1u);
  uint64_t oldAdjacency = published(100).adjacencyIndex;

  routeIs(100, 2);
  settle();
  EXPECT_EQ(published(100).adjacencyIndex, published(101).adjacencyIndex);
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
  EXPECT_EQ(hwRoute(100).l2AdjId(), hwRoute(101).l2AdjId());
  EXPECT_FALSE(state()->l3AdjacencyHas(oldAdjacency));
  EXPECT_EQ(state()->l3Adjacencys(), 1u);
  EXPECT_EQ(hwL2Adjacencies(), 1u);
  EXPECT_EQ(state()->mplsNextHops(), 2u) << "10.0.0.2 is still used by the other adjacency";
  EXPECT_EQ(proactiveRequests(), 2u);
  EXPECT_EQ(state()->fdbToL3AdjIdxs(), 0u);
  expectNothingLeftOnceRoutesGo({100, 101});
}

TEST_F(L3Adjacencies, aViaSetChangedInPlaceKeepsWhatItStillUsesAndGivesUpTheRest) {
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}, {"10.0.1.2", "Ethernet2", 300}});
  routeIs(100, 1);
  settle();
  uint64_t adjacency = published(100).adjacencyIndex;
  uint64_t firstRecord = hwRoute(100).l2AdjId();

  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}, {"10.0.2.2", "Vlan100", 210}});
  settle();
  ASSERT_EQ(published(100).adjacencyIndex, adjacency) << "the same adjacency, reviewed again";
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
  EXPECT_NE(hwRoute(100).l2AdjId(), firstRecord);
  EXPECT_TRUE(requested("10.0.0.2", "Ethernet1"));
  EXPECT_FALSE(requested("10.0.1.2", "Ethernet2"));
  EXPECT_TRUE(requested("10.0.2.2", "Vlan100"));
  EXPECT_EQ(state()->mplsNextHops(), 2u);

  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}, {"10.0.1.2", "Ethernet2", 300}});
  settle();
  EXPECT_TRUE(requested("10.0.1.2", "Ethernet2")) << "asked for again when it comes back";
  EXPECT_FALSE(requested("10.0.2.2", "Vlan100"));
  EXPECT_EQ(proactiveRequests(), 2u);
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
  EXPECT_EQ(hwL2Adjacencies(), 1u) << "the record of the second via set is gone";
  expectNothingLeftOnceRoutesGo({100});
}

TEST_F(L3Adjacencies, theFirstAdjacencyGetsIndexOneAndIndexesAreNeverReused) {
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  routeIs(100, 1);
  settle();
  EXPECT_EQ(published(100).adjacencyIndex, 1u);
  EXPECT_EQ(hwRoute(100).l2AdjId(), 2u) << "layer-2 indexes come from the same counter";

  routeDel(100);
  settle();
  routeIs(101, 1);
  settle();
  EXPECT_EQ(published(101).adjacencyIndex, 3u);
  EXPECT_EQ(hwRoute(101).l2AdjId(), 4u);
}

}  // namespace
}  // namespace QelTest
