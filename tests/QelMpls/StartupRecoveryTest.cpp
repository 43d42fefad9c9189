#include <gtest/gtest.h>

#include "SwitchFixture.h"
#include "models/FecRequest.h"
#include "pellet/Trace.h"

namespace QelTest {
namespace {

using Qel::MplsSmStartupStatus;

// A platform that keeps forwarding across a restart. Every start-up signal
// is up unless a test takes one down; the first run has programmed routes 100
// and 101, and the driver has both in its route sync map.
class StartupRecovery : public SwitchFixture {
 protected:
  void SetUp() override {
    interfaceIs("Ethernet1", 1006);
    arpIs("10.0.0.2", "Ethernet1", "00:00:5e:00:53:01");
    routeSyncMapReadyIs(true);
    systemLfibReadyIs(true);
    transitLfibQuiescedIs(true);
    startAgent();
  }

  void programFirstRun() {
    restartCore<NonStopCore>();
    mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
    routeIs(100, 1);
    routeIs(101, 1);
    settle();
    ASSERT_EQ(stage(), MplsSmStartupStatus::mplsSmNormal);
    ASSERT_EQ(driver.programmedRoutes(), 2u);
    ASSERT_EQ(driver.status->mplsRouteSyncMaps(), 2u);
  }

  size_t staleDeletions(const Pellet::Capture& capture, uint32_t label) const {
    return capture.count(fmt::format("Delet stale route: {}", key(label)));
  }
};

TEST_F(StartupRecovery, coldStartEmptiesTheHardwareTablesBeforeAnyRouteIsProgrammed) {
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  routeIs(100, 1);
  routeIs(101, 1);
  settle();
  ASSERT_EQ(hwRoutes(), 2u);
  ASSERT_EQ(hwL2Adjacencies(), 1u);

  restartCore<Qel::MplsRouteAndDirectAdjSm>();
  EXPECT_EQ(hwRoutes(), 0u);
  EXPECT_EQ(hwL2Adjacencies(), 0u);
  EXPECT_EQ(root->routingHwMplsStatus()->routes(), 0u);

  settle();
  EXPECT_EQ(hwRoutes(), 2u);
  EXPECT_EQ(published(100).state, Mpls::Hardware::RouteState::routeStateProgrammed);
  EXPECT_EQ(published(101).state, Mpls::Hardware::RouteState::routeStateProgrammed);
}

TEST_F(StartupRecovery, coldStartLeavesNoPublishedAdjacencyOfThePreviousRun) {
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  mplsViaSetIs(2, {{"10.0.0.2", "Ethernet1", 300}});
  routeIs(100, 1);
  routeIs(101, 2);
  settle();
  ASSERT_EQ(root->routingHwMplsStatus()->l2Adjacencys(), 2u);
  stopCore();
  routeDel(101);

  restartCore<Qel::MplsRouteAndDirectAdjSm>();
  settle();
  EXPECT_EQ(root->routingHwMplsStatus()->adjacencys(), state()->l3Adjacencys());
  EXPECT_EQ(root->routingHwMplsStatus()->l2Adjacencys(), state()->l2Adjacencys());

  routeDel(100);
  settle();
  expectNoRouteResourcesLeft();
}

TEST_F(StartupRecovery, recoveryKeepsTheHardwareTablesAndDeletesAStaleRouteOnceAtSyncDone) {
  programFirstRun();
  stopCore();
  routeDel(101);
  Pellet::Capture capture({"QelMplsSm"});

  restartCore<NonStopCore>();
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmProcessingSyncMap);
  EXPECT_TRUE(hwRoute(100)) << "a recovered route keeps forwarding while the LFIB is replayed";
  EXPECT_TRUE(hwRoute(101)) << "a stale route keeps forwarding until sync is done";
  EXPECT_TRUE(sm()->staleRecoveredRouteHas(key(101)));
  EXPECT_FALSE(sm()->staleRecoveredRouteHas(key(100)));

  settle();
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmNormal);
  EXPECT_FALSE(hwRoute(101));
  EXPECT_EQ(sm()->staleRecoveredRoutes(), 0u);
  EXPECT_EQ(published(100).state, Mpls::Hardware::RouteState::routeStateProgrammed);
  EXPECT_TRUE(hwRoute(100));

  advance(Qel::MplsBaseSm::timeoutSyncDelay + 1);
  EXPECT_EQ(staleDeletions(capture, 101), 1u);
  EXPECT_EQ(staleDeletions(capture, 100), 0u);
}

TEST_F(StartupRecovery, aRouteTheLfibOffersAgainDuringSyncIsNoLongerStale) {
  programFirstRun();
  stopCore();
  routeDel(100);
  routeDel(101);
  transitLfibQuiescedIs(false);
  restartCore<NonStopCore>();
  settle();
  ASSERT_EQ(sm()->staleRecoveredRoutes(), 2u);

  routeIs(101, 1);
  settle();
  EXPECT_FALSE(sm()->staleRecoveredRouteHas(key(101)));
  EXPECT_TRUE(sm()->staleRecoveredRouteHas(key(100)));

  transitLfibQuiescedIs(true);
  advance(Qel::MplsBaseSm::timeoutSyncDelay);
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmNormal);
  EXPECT_FALSE(hwRoute(100));
  EXPECT_TRUE(hwRoute(101));
  EXPECT_EQ(published(101).state, Mpls::Hardware::RouteState::routeStateProgrammed);
}

TEST_F(StartupRecovery, adjacencyIndexesContinueAfterTheHighestRecoveredIndex) {
  // What an earlier run left in the layer-2 table.
  root->mplsHwCollectionConfig()->l2AdjacencyIs(Vosh::Qel::MplsHwL2AdjacencyConfig(7));
  root->mplsHwCollectionConfig()->l2AdjacencyIs(Vosh::Qel::MplsHwL2AdjacencyConfig(41));
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  routeIs(100, 1);

  restartCore<NonStopCore>();
  settle();
  EXPECT_EQ(sm()->highestRecoveredHwAdjIndex(), 41u);
  EXPECT_EQ(published(100).adjacencyIndex, 42u);
  EXPECT_EQ(hwRoute(100).hwFecId(), 42u);
}

TEST_F(StartupRecovery, syncTimeoutForcesTheNormalStageWhenTheLfibNeverQuiesces) {
  programFirstRun();
  stopCore();
  routeDel(101);
  transitLfibQuiescedIs(false);
  double start = scheduler.now();

  restartCore<NonStopCore>();
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

TEST_F(StartupRecovery, recoveryCompletesAsSoonAsTheLfibQuiescesAfterItsRoutesWereReviewed) {
  programFirstRun();
  stopCore();
  routeDel(101);
  transitLfibQuiescedIs(false);
  restartCore<NonStopCore>();
  settle();
  ASSERT_EQ(stage(), MplsSmStartupStatus::mplsSmProcessingSyncMap);
  ASSERT_EQ(published(100).state, Mpls::Hardware::RouteState::routeStateProgrammed);

  transitLfibQuiescedIs(true);
  settle();
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmNormal);
  EXPECT_FALSE(hwRoute(101));
}

TEST_F(StartupRecovery, syncWaitsForTheAdjacencySyncResponsesOrTheTimeout) {
  programFirstRun();
  stopCore();
  routeDel(101);
  auto adjSync = Kiv::make<Qel::QelL3AdjSyncStatusExternal>("adjSyncStatus");
  adjSync->generationIs(7);
  Qel::MplsBaseSm::Inputs inputs = coreInputs();
  inputs.l3AdjSyncStatusExt = adjSync;

  restartCore<NonStopCore>(inputs);
  settle();
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmWaitingForSyncResponses);
  EXPECT_TRUE(hwRoute(101));

  adjSync->adjSyncDoneIs(true);
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmNormal);
  EXPECT_FALSE(hwRoute(101));
  EXPECT_EQ(root->mplsHwSingletonConfig()->endOfMplsSyncAtGeneration(), 7u);
}

TEST_F(StartupRecovery, missingSyncResponsesAreEndedByTheTimeout) {
  programFirstRun();
  stopCore();
  routeDel(101);
  Qel::MplsBaseSm::Inputs inputs = coreInputs();
  inputs.l3AdjSyncStatusExt = Kiv::make<Qel::QelL3AdjSyncStatusExternal>("adjSyncStatus");

  restartCore<NonStopCore>(inputs);
  advance(Qel::MplsBaseSm::timeoutSyncDelay - 1);
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmWaitingForSyncResponses);
  advance(2);
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmNormal);
  EXPECT_FALSE(hwRoute(101));
}

TEST_F(StartupRecovery, nothingIsTouchedUntilTheDriverHasWrittenItsRouteSyncMap) {
  programFirstRun();
  stopCore();
  routeDel(101);
  routeSyncMapReadyIs(false);

  restartCore<NonStopCore>();
  advance(5);
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmUnknown);
  EXPECT_EQ(state()->routes(), 0u);
  EXPECT_EQ(state()->l3Adjacencys(), 0u);
  EXPECT_TRUE(hwRoute(100));
  EXPECT_TRUE(hwRoute(101));

  routeSyncMapReadyIs(true);
  settle();
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmNormal);
  EXPECT_FALSE(hwRoute(101));
  EXPECT_EQ(published(100).state, Mpls::Hardware::RouteState::routeStateProgrammed);
}

TEST_F(StartupRecovery, reviewWaitsForTheSystemLfibAndTheFirstAdjacencyGetsIndexOne) {
  systemLfibReadyIs(false);
  restartCore<NonStopCore>();
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmWaitingForSyncMap);
  EXPECT_FALSE(sm()->allowReview());

  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  routeIs(100, 1);
  settle();
  EXPECT_EQ(state()->l3Adjacencys(), 0u);
  EXPECT_EQ(hwRoutes(), 0u);
  EXPECT_FALSE(isPublished(100));

  systemLfibReadyIs(true);
  settle();
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmNormal);
  EXPECT_EQ(published(100).state, Mpls::Hardware::RouteState::routeStateProgrammed);
  EXPECT_EQ(published(100).adjacencyIndex, 1u);
}

}  // namespace
}  // namespace QelTest
