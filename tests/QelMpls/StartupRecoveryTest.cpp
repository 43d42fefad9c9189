#include <gtest/gtest.h>

#include <functional>

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
    hostsAre();
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

// The direct mode starts cold even where the platform keeps forwarding.
class ColdStart : public StartupRecovery,
                  public ::testing::WithParamInterface<Qel::MplsSmAdjacencyProgrammer> {};

TEST_P(ColdStart, emptiesTheHardwareAndRequestTablesAndKeepsNoPublishedAdjacency) {
  startAgent(GetParam());
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  mplsViaSetIs(2, {{"10.0.0.2", "Ethernet1", 300}});
  routeIs(100, 1);
  routeIs(101, 2);
  routeIs(102, 1);
  settle();
  ASSERT_EQ(hwRoutes(), 3u);
  ASSERT_EQ(root->routingHwMplsStatus()->adjacencys(), 2u);
  ASSERT_EQ(root->routingHwMplsStatus()->l2Adjacencys(), GetParam() == kMediated ? 0u : 2u);
  const Vosh::Fib::FecId fecId = GetParam() == kMediated ? fecIdOf(1) : Vosh::Fib::FecId();

  stopCore();
  if (GetParam() == kMediated) helper->nonStopForwarding = false;
  routeDel(101);
  startCore();
  EXPECT_EQ(hwRoutes(), 0u) << "emptied before any route is programmed";
  EXPECT_EQ(hwL2Adjacencies(), 0u);
  EXPECT_EQ(root->routingHwMplsStatus()->routes(), 0u);
  EXPECT_EQ(root->routingHwMplsStatus()->l2Adjacencys(), 0u);
  EXPECT_EQ(filedFecRecords(), 0u);
  if (GetParam() == kMediated) {
    EXPECT_FALSE(fecIdOf(1)) << "gone from the allocator's view too";
    EXPECT_FALSE(allocator.requests->hwFecIdRequestHas(fecId));
  }

  settle();
  EXPECT_EQ(hwRoutes(), 2u);
  expectProgrammed({100, 102});
  EXPECT_EQ(root->routingHwMplsStatus()->adjacencys(), state()->l3Adjacencys());
  EXPECT_EQ(root->routingHwMplsStatus()->l2Adjacencys(), state()->l2Adjacencys());
  expectNothingLeftOnceRoutesGo({100, 102});
}

INSTANTIATE_TEST_SUITE_P(Modes, ColdStart,
                         ::testing::Values(Qel::MplsSmAdjacencyProgrammer::mplsSmAdjacencyDirect,
                                           kMediated));

// A recovered route is taken over without a write; a stale one is deleted
// once, at sync done. Only what the driver answered programmed is taken over
// as it stands: it refused route 102. Adjacency indexes continue after the
// highest one in the recovered layer-2 table.
TEST_F(StartupRecovery, recoveryKeepsTheHardwareTablesAndDeletesAStaleRouteOnceAtSyncDone) {
  programFirstRun();
  // A second write in the first run, so that a write after the restart could
  // not coincide with what is in hardware.
  viaSetIs(1, {mplsVia("10.0.0.2", "Ethernet1", Bexo::mplsActionSwap, {Bexo::MplsLabel(200)},
                       Mpls::PayloadType::payloadIpv6)});
  driver.failLabels.insert(102);
  routeIs(102, 1);
  settle();
  ASSERT_TRUE(hwRoute(102));
  Vosh::Fib::FecId fecId = fecIdOf(1);
  Vosh::Fib::Fec fec = filedFec(1);
  Vosh::Qel::MplsHwRouteConfig record = hwRoute(100);
  ASSERT_EQ(record.version, 3u);
  // What an earlier run left in the layer-2 table.
  root->mplsHwCollectionConfig()->l2AdjacencyIs(Vosh::Qel::MplsHwL2AdjacencyConfig(7));
  root->mplsHwCollectionConfig()->l2AdjacencyIs(Vosh::Qel::MplsHwL2AdjacencyConfig(41));
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
  EXPECT_EQ(published(100).adjacencyIndex, 42u) << "indexes continue after the highest recovered";
  EXPECT_NE(published(102).state, RouteState::routeStateProgrammed);
  EXPECT_EQ(fecIdOf(1), fecId);
  EXPECT_TRUE(filedFec(1) == fec);
  EXPECT_EQ(allocator.requests->hwFecIdRequest(fecId).syncId, (Qel::AdjSyncId{2, 1}))
      << "filed again once, under the new generation";

  advance(Qel::MplsBaseSm::timeoutSyncDelay + 1);
  EXPECT_EQ(staleDeletions(capture, 101), 1u);
  EXPECT_EQ(staleDeletions(capture, 100), 0u);
}

// A restart that finds the LFIB empty keeps nothing the previous run
// published: not its routes, not its adjacencies.
TEST_F(StartupRecovery, aRecoveryWithNoRouteLeftUnpublishesEverythingOfThePreviousRun) {
  programFirstRun();
  ASSERT_EQ(root->routingHwMplsStatus()->adjacencys(), 1u);
  stopCore();
  routeDel({100, 101});
  startCore();
  settle();
  ASSERT_EQ(stage(), MplsSmStartupStatus::mplsSmNormal);
  EXPECT_EQ(root->routingHwMplsStatus()->routes(), 0u);
  EXPECT_EQ(root->routingHwMplsStatus()->adjacencys(), 0u);
}

// A recovered record that no longer says what this run would write is
// written again, not taken over.
TEST_F(StartupRecovery, aRecoveredRouteWhoseViaSetChangedMeanwhileIsWrittenAgain) {
  programFirstRun();
  stopCore();
  viaSetIs(1, {mplsVia("10.0.0.2", "Ethernet1", Bexo::mplsActionSwap, {Bexo::MplsLabel(200)},
                       Mpls::PayloadType::payloadIpv6)});
  startCore();
  settle();
  ASSERT_EQ(stage(), MplsSmStartupStatus::mplsSmNormal);
  EXPECT_EQ(hwRoute(100).payloadType, Mpls::PayloadType::payloadIpv6);
  expectProgrammed({100, 101});
}

// Each start-up signal, held back at a restart, holds the stage that waits
// for it, with the stale route 101 still forwarding, until it comes (or the
// time-out); a route the LFIB offers again meanwhile is spared.
TEST_F(StartupRecovery, eachStartupSignalHoldsItsStageUntilItComesOrTheTimeout) {
  using enum MplsSmStartupStatus;
  struct Case {
    const char* what;
    std::function<void(bool held)> signal;
    MplsSmStartupStatus waiting;
    bool timesOut;
    bool reoffered;
  };
  auto allocatorAnswers = [this](bool held) {
    allocator.answer = !held;
    if (!held) allocator.answerAll();
  };
  auto lfibQuiesced = [this](bool held) { transitLfibQuiescedIs(!held); };
  const Case cases[] = {
      {"the driver's route sync map", [this](bool held) { routeSyncMapReadyIs(!held); },
       mplsSmUnknown, false, false},
      {"the LFIB quiesces late", lfibQuiesced, mplsSmProcessingSyncMap, false, true},
      {"the LFIB never quiesces", lfibQuiesced, mplsSmProcessingSyncMap, true, false},
      {"the allocator answers late", allocatorAnswers, mplsSmWaitingForSyncResponses, false, false},
      {"the allocator never answers", allocatorAnswers, mplsSmWaitingForSyncResponses, true, false},
  };
  programFirstRun();
  Qel::GenerationId generation = 1;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    routeIs(101, 1);
    settle();
    c.signal(true);
    double start = scheduler.now();
    restartWithoutRoute101();
    ++generation;
    settle();
    EXPECT_EQ(stage(), c.waiting);
    EXPECT_TRUE(hwRoute(101));
    if (c.waiting == mplsSmWaitingForSyncResponses) {
      // The allocator's standing answer is taken at once: route 100 is
      // recognised in its record, not waiting to be written again.
      EXPECT_EQ(published(100).version, hwRoute(100).version);
    }
    if (c.waiting == mplsSmUnknown) {
      EXPECT_EQ(state()->routes(), 0u) << "nothing is touched";
    }
    if (c.reoffered) routeIs(101, 1);
    if (c.timesOut) {
      advance(Qel::MplsBaseSm::timeoutSyncDelay - 1.5);
      EXPECT_EQ(stage(), c.waiting);
      advance(1.5);
      EXPECT_NEAR(sm()->mplsSmStartupRecord()->lastStageTime() - start,
                  Qel::MplsBaseSm::timeoutSyncDelay, 0.01);
      EXPECT_NEAR(sm()->mplsSmStartupRecord()->timeTaken().at(c.waiting),
                  Qel::MplsBaseSm::timeoutSyncDelay, 0.01);
    }
    c.signal(false);
    settle();
    EXPECT_EQ(stage(), mplsSmNormal);
    EXPECT_TRUE(hwRoute(100));
    EXPECT_EQ(bool(hwRoute(101)), c.reoffered);
    expectProgrammed({100});
    if (c.reoffered) expectProgrammed({101});
    EXPECT_EQ(root->mplsHwSingletonConfig()->endOfMplsSyncAtGeneration(), generation);
  }
}

// The first start waits for the system LFIB before any review (route 101
// turns unsupported meanwhile), then for the LFIB. The platform learns at the
// end of that first sync that the agent has taken over the hardware (ready),
// and from then on follows its routing setting.
TEST_F(StartupRecovery, theFirstStartReviewsOnceTheSystemLfibIsReadyAndEndsMarkingTheConfigReady) {
  systemLfibReadyIs(false);
  transitLfibQuiescedIs(false);
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
  EXPECT_EQ(stage(), MplsSmStartupStatus::mplsSmProcessingSyncMap);
  EXPECT_FALSE(root->mplsHwSingletonConfig()->ready());
  transitLfibQuiescedIs(true);
  settle();
  ASSERT_EQ(stage(), MplsSmStartupStatus::mplsSmNormal);
  EXPECT_TRUE(root->mplsHwSingletonConfig()->ready());
  EXPECT_TRUE(sm()->cleanupHwStatusAdjSyncDone()) << "the previous run's adjacencies are swept";
  expectProgrammed({100});
  EXPECT_EQ(published(100).adjacencyIndex, 1u);
  EXPECT_FALSE(hwRoute(101));
  EXPECT_EQ(state()->l3Adjacencys(), 1u);
  for (bool on : {false, true, false}) {
    mplsRoutingIs(on);
    settle();
    EXPECT_EQ(root->mplsHwSingletonConfig()->mplsRouting(), on) << on;
  }
  // Another writer's change is put right by the next review pass.
  mplsRoutingIs(true);
  settle();
  root->mplsHwSingletonConfig()->mplsRoutingIs(false);
  routeIs(100, 2);
  settle();
  EXPECT_TRUE(root->mplsHwSingletonConfig()->mplsRouting());
}

}  // namespace
}  // namespace QelTest
