#include <gtest/gtest.h>

#include <functional>

#include "SwitchFixture.h"
#include "pellet/Capture.h"

namespace QelTest {
namespace {

using Mpls::Hardware::RouteState;
using Qel::UnprogrammedReason;

// Route 100 over via set 1, one next hop on Ethernet1.
class AdjacencyRules : public SwitchFixture {
 protected:
  void SetUp() override {
    interfaceIs("Ethernet1", 1006);
    arpIs("10.0.0.2", "Ethernet1", "00:00:5e:00:53:01");
    arpIs("10.0.0.3", "Ethernet1", "00:00:5e:00:53:01");
  }
  void programRoute100() {
    startAgent();
    mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
    routeIs(100, 1);
    settle();
    ASSERT_EQ(published(100).state, RouteState::routeStateProgrammed);
  }
};

TEST_F(AdjacencyRules, nextHopsResolvingToTheSameMacVlanPortAndLabelShareOneLayer2Record) {
  startAgent();
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  mplsViaSetIs(2, {{"10.0.0.3", "Ethernet1", 200}});
  mplsViaSetIs(3, {{"10.0.0.2", "Ethernet1", 200}, {"10.0.0.3", "Ethernet1", 200}});
  for (uint32_t viaSet : {1, 2, 3}) routeIs(99 + viaSet, viaSet);
  settle();
  EXPECT_EQ(hwL2Adjacencies(), 1u);
  EXPECT_EQ(hwL2(hwRoute(102).l2AdjId()).l2Vias(), 1u);
  EXPECT_EQ(hwRoute(101).l2AdjId(), hwRoute(100).l2AdjId());
  EXPECT_EQ(hwRoute(102).l2AdjId(), hwRoute(100).l2AdjId());
}

TEST_F(AdjacencyRules, anAdjacencyThatCanNoLongerBeProgrammedLetsGoOfWhatItResolvedTo) {
  struct Case {
    UnprogrammedReason reason;
    size_t proactiveRequests;  // an unresolved next hop is still asked for
    std::function<void()> change;
  };
  programRoute100();
  for (const Case& c :
       {Case{UnprogrammedReason::unprogrammedReasonViaSetNotSane, 0,
             [this] {
               viaSetIs(1, {mplsVia("10.0.0.2", "Ethernet1", Bexo::mplsActionSwap,
                                    {Bexo::MplsLabel(200), Bexo::MplsLabel(300)})});
             }},
        Case{UnprogrammedReason::unprogrammedReasonNexthopUnresolved, 1, [this] {
               arp->arpEntryDel(Arp::Table::ArpKey(Bexo::IpGenAddr::fromString("10.0.0.2"),
                                                   Bexo::IntfId::fromString("Ethernet1")));
             }}}) {
    SCOPED_TRACE(c.reason);
    mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
    arpIs("10.0.0.2", "Ethernet1", "00:00:5e:00:53:01");
    settle();
    ASSERT_EQ(root->lfibHwStatus()->viaSets(), 1u);
    c.change();
    settle();
    EXPECT_FALSE(hwRoute(100));
    EXPECT_EQ(hwL2Adjacencies(), 0u);
    EXPECT_EQ(root->proactiveArpNexthop()->requests(), c.proactiveRequests);
    EXPECT_EQ(root->lfibHwStatus()->viaSets(), 0u) << "not reported programmed any more";
    EXPECT_EQ(published(100).unprogrammedReason, static_cast<uint32_t>(c.reason));
  }
}

TEST_F(AdjacencyRules, aRefusalThatALaterWriteMayCureIsRetried) {
  struct Case {
    Vosh::Qel::MplsHwRouteUnprogrammedReason reason;
    bool retried;
  };
  programRoute100();
  for (const Case& c : {Case{Vosh::Qel::mplsHwUnprogReasonInterfaceNotReady, true},
                        Case{Vosh::Qel::mplsHwUnprogReasonRouteFull, true},
                        Case{Vosh::Qel::mplsHwUnprogReasonInvalidFecId, false}}) {
    SCOPED_TRACE(c.reason);
    uint8_t refused = hwRoute(100).version;
    driver.routeStatusIs(key(100), refused, Vosh::Qel::mplsHwRouteStateUnprogrammed, c.reason);
    settle();
    ASSERT_EQ(published(100).state, RouteState::routeStateUnprogrammed);
    advance(sm()->unprogrammedRetryInterval());
    EXPECT_EQ(hwRoute(100).version != refused, c.retried);
    EXPECT_EQ(published(100).state == RouteState::routeStateProgrammed, c.retried);
  }
}

TEST_F(AdjacencyRules, withoutKivModelsARefusedLayer2RecordIsRetriedUntilTheDriverListsItNoMore) {
  featureToggleIs("QelMpls.json", "QelMplsAgentKivModels", false);
  programRoute100();
  Kiv::Ptr<Mpls::Hardware::L2Adjacency> record = hwConfig->routeFind(key(100))->l2Adjacency;
  hwStatus->unprogrammedAdjacencyIs(record, true);
  settle();
  uint8_t written = record->version();
  advance(sm()->unprogrammedRetryInterval());
  EXPECT_GT(record->version(), written) << "written again";

  Pellet::Capture capture({"QelMplsSm"});
  hwStatus->unprogrammedAdjacencyDel(record);
  settle();
  written = record->version();
  advance(sm()->unprogrammedRetryInterval());
  EXPECT_EQ(record->version(), written);
  EXPECT_EQ(capture.count(fmt::format("l2 adj {} removed from unprogrammedAdj", record->index())),
            1u);
}

TEST_F(AdjacencyRules, aNewNextHopResolutionPolicyResolvesEveryAdjacencyAgain) {
  programRoute100();
  mplsViaSetIs(2, {{"10.0.0.3", "Ethernet1", 300}});
  routeIs(101, 2);
  settle();
  uint64_t reviewed = state()->l3AdjReviewed();
  routing->nexthopResolutionAllowDefaultRouteIs(true);
  runReviewPasses(1);
  EXPECT_EQ(state()->l3AdjReviewed() - reviewed, 2u);
}

// Via sets 1 and 2 leave the LFIB: their routes wait for them on their old
// records, whose layer-2 adjacencies wait for deletion.
TEST_F(AdjacencyRules, aPassLooksAtEveryLayer2AdjacencyPendingDeletionThoughEachSliceYields) {
  programRoute100();
  mplsViaSetIs(2, {{"10.0.0.2", "Ethernet1", 300}});
  routeIs(101, 2);
  settle();
  const uint64_t records[] = {hwRoute(100).l2AdjId(), hwRoute(101).l2AdjId()};
  viaSetDel(1);
  viaSetDel(2);
  settle();
  ASSERT_EQ(state()->l2AdjPendingForDeletes(), 2u);

  scheduler.itemBudgetIs(1);
  Pellet::Capture capture({"QelMplsSm"});
  mplsViaSetIs(3, {{"10.0.0.3", "Ethernet1", 400}});
  routeIs(102, 3);
  settle();
  for (uint64_t record : records) {
    EXPECT_GE(capture.count(fmt::format("2delete l2 adj {} ", record)), 1u) << record;
  }
}

}  // namespace
}  // namespace QelTest
