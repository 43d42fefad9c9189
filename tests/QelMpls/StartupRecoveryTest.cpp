#include <gtest/gtest.h>

#include "SwitchFixture.h"
#include "pellet/Trace.h"

namespace QelTest {
namespace {

using Mpls::Hardware::RouteState;
using Qel::MplsSmStartupStatus;
constexpr auto kMediated = Qel::MplsSmAdjacencyProgrammer::mplsSmAdjacencyMediated;

// A platform that keeps forwarding across a restart. Every start-up signal
// is up unless a test takes one down. In the mediated first run, routes 100
// and 101 share one FEC and the driver has both in its route sync map.
class StartupRecovery : public SwitchFixture {
 protected:
  void SetUp() override {
    interfaceIs("Ethernet1", 1006);
    arpIs("10.0.0.2", "Ethernet1", "00:00:5e:00:53:01");
    routeSyncMapReadyIs(true);
    systemLfibReadyIs(true);
    transitLfibQuiescedIs(true);
    helper->nonStopForwarding = true;
  }

  void programFirstRun() {
    startAgent(kMediated);
    mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
    routeIs(100, 1);
    routeIs(101, 1);
    settle();
    ASSERT_EQ(stage(), MplsSmStartupStatus::mplsSmNormal);
    ASSERT_EQ(driver.programmedRoutes(), 2u);
    ASSERT_EQ(driver.status->mplsRouteSyncMaps(), 2u);
  }

  // Route 101 leaves the LFIB while the agent is down.
  void restartWithoutRoute101() {
    stopCore();
    routeDel(101);
    startCore();
  }

  size_t staleDeletions(const Pellet::Capture& capture, uint32_t label) const {
    return capture.count(fmt::format("Delet stale route: {}", key(label)));
  }
};

TEST_F(StartupRecovery, directColdStartEmptiesTheHardwareTablesAndKeepsNoPublishedAdjacency) {
  startAgent();
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  mplsViaSetIs(2, {{"10.0.0.2", "Ethernet1", 300}});
  routeIs(100, 1);
  routeIs(101, 2);
  routeIs(102, 1);
  settle();
  ASSERT_EQ(hwRoutes(), 3u);
  ASSERT_EQ(hwL2Adjacencies(), 2u);
  ASSERT_EQ(root->routingHwMplsStatus()->l2Adjacencys(), 2u);

  stopCore();
  routeDel(101);
  startCore();
  EXPECT_EQ(hwRoutes(), 0u) << "emptied before any route is programmed";
  EXPECT_EQ(hwL2Adjacencies(), 0u);
  EXPECT_EQ(root->routingHwMplsStatus()->routes(), 0u);

  settle();
  EXPECT_EQ(hwRoutes(), 2u);
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
  EXPECT_EQ(published(102).state, RouteState::routeStateProgrammed);
  EXPECT_EQ(root->routingHwMplsStatus()->adjacencys(), state()->l3Adjacencys());
  EXPECT_EQ(root->routingHwMplsStatus()->l2Adjacencys(), state()->l2Adjacencys());

  routeDel(100);
  routeDel(102);
  settle();
  expectNoRouteResourcesLeft();
}

TEST_F(StartupRecovery, mediatedColdStartEmptiesTheHardwareAndRequestTables) {
  programFirstRun();
  Vosh::Fib::FecId fecId = fecIdOf(1);
  stopCore();
  helper->nonStopForwarding = false;

  startCore();
  EXPECT_EQ(hwRoutes(), 0u);
  EXPECT_FALSE(allocator.requests->hwFecIdRequestHas(fecId));
  EXPECT_FALSE(allocator.requests->fecHas(fecId));
  EXPECT_FALSE(fecIdOf(1));

  settle();
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
  EXPECT_EQ(published(101).state, RouteState::routeStateProgrammed);
}

// A recovered route is taken over without a write; a stale one is deleted
// once, at sync done.
TEST_F(StartupRecovery, recoveryKeepsTheHardwareTablesAndDeletesAStaleRouteOnceAtSyncDone) {
  programFirstRun();
  // A second write in the first run, so that a write after the restart could
  // not coincide with what is in hardware.
  viaSetIs(1, {mplsVia("10.0.0.2", "Ethernet1", Bexo::mplsActionSwap, {Bexo::MplsLabel(200)},
                       Mpls::PayloadType::payloadIpv6)});
  settle();
  Vosh::Fib::FecId fecId = fecIdOf(1);
  Vosh::Fib::Fec fec = filedFec(1);
  Vosh::Qel::MplsHwRouteConfig record = hwRoute(100);
  ASSERT_EQ(record.version, 3u);
  Pellet::Capture capture({"QelMplsSm"});

  restartWithoutRoute101();
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmProcessingSyncMap);
  EXPECT_TRUE(hwRoute(100)) << "a recovered route keeps forwarding while the LFIB is replayed";
  EXPECT_TRUE(hwRoute(101)) << "a stale route keeps forwarding until sync is done";

  settle();
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmNormal);
  EXPECT_FALSE(hwRoute(101));
  EXPECT_TRUE(hwRoute(100) == record) << "same version, same hardware FEC";
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
  EXPECT_EQ(fecIdOf(1), fecId);
  EXPECT_TRUE(filedFec(1) == fec);
  EXPECT_EQ(allocator.requests->hwFecIdRequest(fecId).syncId, (Qel::AdjSyncId{2, 1}))
      << "filed again once, under the new generation";

  advance(Qel::MplsBaseSm::timeoutSyncDelay + 1);
  EXPECT_EQ(staleDeletions(capture, 101), 1u);
  EXPECT_EQ(staleDeletions(capture, 100), 0u);
}

TEST_F(StartupRecovery, syncEndsOnceTheLfibQuiescesAndSparesARouteOfferedAgainMeanwhile) {
  programFirstRun();
  stopCore();
  routeDel(100);
  routeDel(101);
  transitLfibQuiescedIs(false);
  startCore();
  settle();
  routeIs(101, 1);
  settle();
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmProcessingSyncMap);
  EXPECT_TRUE(hwRoute(100));

  transitLfibQuiescedIs(true);
  settle();
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmNormal);
  EXPECT_FALSE(hwRoute(100));
  EXPECT_TRUE(hwRoute(101));
  EXPECT_EQ(published(101).state, RouteState::routeStateProgrammed);
}

// The platform learns at the end of the first sync that the agent has taken
// over the hardware (ready), and from then on follows its routing setting.
TEST_F(StartupRecovery, theFirstSyncEndMarksTheConfigReadyAndThenRoutingFollowsTheSetting) {
  transitLfibQuiescedIs(false);
  startAgent(kMediated);
  settle();
  EXPECT_FALSE(root->mplsHwSingletonConfig()->ready());
  transitLfibQuiescedIs(true);
  settle();
  ASSERT_EQ(stage(), MplsSmStartupStatus::mplsSmNormal);
  EXPECT_TRUE(root->mplsHwSingletonConfig()->ready());
  EXPECT_TRUE(sm()->cleanupHwStatusAdjSyncDone()) << "the previous run's adjacencies are swept";
  for (bool on : {false, true, false}) {
    mplsRoutingIs(on);
    settle();
    EXPECT_EQ(root->mplsHwSingletonConfig()->mplsRouting(), on) << on;
  }
}

// Only what the driver answered programmed is taken over as it stands.
TEST_F(StartupRecovery, aRecordTheDriverRefusedIsNotTakenOverAsProgrammed) {
  driver.failLabels.insert(101);
  startAgent(kMediated);
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  routeIs(100, 1);
  routeIs(101, 1);
  settle();
  ASSERT_TRUE(hwRoute(101));
  stopCore();
  startCore();
  settle();
  EXPECT_EQ(published(100).state, Mpls::Hardware::RouteState::routeStateProgrammed);
  EXPECT_NE(published(101).state, Mpls::Hardware::RouteState::routeStateProgrammed);
}

TEST_F(StartupRecovery, syncTimeoutForcesTheNormalStageWhenTheLfibNeverQuiesces) {
  programFirstRun();
  stopCore();
  routeDel(101);
  transitLfibQuiescedIs(false);
  double start = scheduler.now();

  startCore();
  advance(Qel::MplsBaseSm::timeoutSyncDelay - 1);
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmProcessingSyncMap);
  EXPECT_TRUE(hwRoute(101));

  advance(2);
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmNormal);
  EXPECT_FALSE(hwRoute(101));
  EXPECT_TRUE(hwRoute(100));
  EXPECT_NEAR(
      sm()->mplsSmStartupRecord()->timeTaken().at(MplsSmStartupStatus::mplsSmProcessingSyncMap),
      Qel::MplsBaseSm::timeoutSyncDelay, 0.01);
  EXPECT_NEAR(sm()->mplsSmStartupRecord()->lastStageTime() - start,
              Qel::MplsBaseSm::timeoutSyncDelay, 0.01);
}

TEST_F(StartupRecovery, syncWaitsForTheAllocatorsSyncReportOrTheTimeout) {
  programFirstRun();
  Qel::GenerationId generation = 1;
  for (bool answersLate : {true, false}) {
    SCOPED_TRACE(answersLate ? "the allocator answers late" : "the allocator never answers");
    routeIs(101, 1);
    settle();
    allocator.answer = false;
    restartWithoutRoute101();
    ++generation;
    settle();
    EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmWaitingForSyncResponses);
    EXPECT_TRUE(hwRoute(101));

    if (answersLate) {
      allocator.answer = true;
      allocator.answerAll();
      settle();
    } else {
      advance(Qel::MplsBaseSm::timeoutSyncDelay - 1);
      EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmWaitingForSyncResponses);
      advance(1);
    }
    EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmNormal);
    EXPECT_FALSE(hwRoute(101));
    EXPECT_TRUE(hwRoute(100));
    EXPECT_EQ(root->mplsHwSingletonConfig()->endOfMplsSyncAtGeneration(), generation);
    allocator.answer = true;
  }
}

TEST_F(StartupRecovery, nothingIsTouchedUntilTheDriverHasWrittenItsRouteSyncMap) {
  programFirstRun();
  stopCore();
  routeDel(101);
  routeSyncMapReadyIs(false);

  startCore();
  advance(5);
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmUnknown);
  EXPECT_EQ(state()->routes(), 0u);
  EXPECT_TRUE(hwRoute(100));
  EXPECT_TRUE(hwRoute(101));

  routeSyncMapReadyIs(true);
  settle();
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmNormal);
  EXPECT_FALSE(hwRoute(101));
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
}

TEST_F(StartupRecovery, adjacencyIndexesContinueAfterTheHighestRecoveredIndex) {
  startAgent(kMediated);
  // What an earlier run left in the layer-2 table.
  root->mplsHwCollectionConfig()->l2AdjacencyIs(Vosh::Qel::MplsHwL2AdjacencyConfig(7));
  root->mplsHwCollectionConfig()->l2AdjacencyIs(Vosh::Qel::MplsHwL2AdjacencyConfig(41));
  stopCore();
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  routeIs(100, 1);

  startCore();
  settle();
  EXPECT_EQ(published(100).adjacencyIndex, 42u);
}

// Route 101 turns unsupported while it waits for its first review.
TEST_F(StartupRecovery, reviewWaitsForTheSystemLfibAndTheFirstAdjacencyGetsIndexOne) {
  systemLfibReadyIs(false);
  startAgent(kMediated);
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmWaitingForSyncMap);

  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  mplsViaSetIs(2, {{"10.0.0.2", "Ethernet1", 300}});
  routeIs(100, 1);
  routeIs(101, 2);
  settle();
  EXPECT_EQ(state()->l3Adjacencys(), 0u);
  EXPECT_EQ(hwRoutes(), 0u);
  EXPECT_FALSE(isPublished(100));
  ASSERT_TRUE(state()->routeKeyForReviewHas(key(101)));

  routeIs(101, 9, Mpls::LfibViaType::viaTypeIpLookup);
  settle();
  EXPECT_FALSE(state()->routeKeyForReviewHas(key(101)));
  EXPECT_FALSE(sm()->mplsIpRouteKeyHas(key(101)));

  systemLfibReadyIs(true);
  settle();
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmNormal);
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
  EXPECT_EQ(published(100).adjacencyIndex, 1u);
  EXPECT_FALSE(hwRoute(101));
  EXPECT_EQ(state()->l3Adjacencys(), 1u);
}

}  // namespace
}  // namespace QelTest
