#include <gtest/gtest.h>

#include "SwitchFixture.h"
#include "pellet/Trace.h"

namespace QelTest {
namespace {

using Mpls::Hardware::RouteState;

class Tasks : public SwitchFixture {
 protected:
  void SetUp() override {
    interfaceIs("Ethernet1", 1006);
    interfaceIs("Ethernet2", 1007);
    arpIs("10.0.0.2", "Ethernet1", "00:00:5e:00:53:01");
    arpIs("10.0.1.2", "Ethernet2", "00:00:5e:00:53:02");
    mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
    mplsViaSetIs(2, {{"10.0.1.2", "Ethernet2", 300}});
    startAgent();
    routeIs(100, 1);
    routeIs(101, 1);
    settle();
    record = hwRoute(100).l2AdjId();
  }

  // Moves both routes to a new record that the driver does not answer yet.
  void rewriteRoutesWithoutAnswer() {
    driver.answer = false;
    arpIs("10.0.0.2", "Ethernet1", "00:00:5e:00:53:11");
    settle();
    written = hwRoute(100).version;
    ASSERT_NE(hwRoute(100).l2AdjId(), record);
  }

  uint64_t record = 0;
  uint8_t written = 0;
};

TEST_F(Tasks, anAdjacencyQueuedWithItsRouteIsReviewedFirst) {
  uint64_t routesReviewed = state()->routeKeyReviewed();
  arpIs("10.0.0.2", "Ethernet1", "00:00:5e:00:53:11");
  routeIs(100, 1, Mpls::viaTypeMplsIp, 1);
  runReviewPasses(1);
  EXPECT_NE(hwRoute(100).l2AdjId(), record) << "the route saw its adjacency's new record";
  EXPECT_EQ(state()->routeKeyReviewed() - routesReviewed, 2u) << "each route reviewed once";
  EXPECT_EQ(state()->route(key(100))->lfibFlags(), 1);
}

// In one burst route 100 moves to via set 2, whose adjacency is new, and the
// MAC of via set 1's next hop changes. The first pass reviews the adjacency,
// then holds both routes back: route 100 for its new adjacency, route 101 for
// its old one, queued again when route 100 left it.
TEST_F(Tasks, aRouteWhoseAdjacencyReviewIsPendingKeepsItsHardwareRecord) {
  Vosh::Qel::MplsHwRouteConfig before = hwRoute(100);
  arpIs("10.0.0.2", "Ethernet1", "00:00:5e:00:53:11");
  routeIs(100, 2);
  runReviewPasses(1);
  EXPECT_EQ(hwRoute(100), before);
  EXPECT_TRUE(state()->routeKeyForReviewHas(key(100))) << "it comes back for review";

  runReviewPasses(1);
  EXPECT_EQ(hwL2(hwRoute(100).l2AdjId()).l2Via(Vosh::Qel::MplsHwL2ViaIndex(0)).label,
            Bexo::MplsLabel(300));
}

TEST_F(Tasks, aRouteUnderReviewIsNotPublished) {
  rewriteRoutesWithoutAnswer();
  // The driver refuses route 100 just as the route changes again: the
  // refusal is not published, the review writes the route anew.
  driver.routeStatusIs(key(100), hwRoute(100).version, Vosh::Qel::mplsHwRouteStateUnprogrammed,
                       Vosh::Qel::mplsHwUnprogReasonInvalidFecId);
  routeIs(100, 1, Mpls::viaTypeMplsIp, 1);
  settle();
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
  EXPECT_GT(hwRoute(100).version, written);

  driver.answer = true;
  driver.answerRoute(key(100));
  settle();
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
  EXPECT_EQ(published(100).version, hwRoute(100).version);
}

TEST_F(Tasks, aRouteWhoseAdjacencyIsUnderReviewIsNotPublished) {
  rewriteRoutesWithoutAnswer();
  driver.routeStatusIs(key(100), hwRoute(100).version, Vosh::Qel::mplsHwRouteStateUnprogrammed,
                       Vosh::Qel::mplsHwUnprogReasonInvalidFecId);
  arpIs("10.0.0.2", "Ethernet1", "00:00:5e:00:53:12");
  settle();
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
  EXPECT_GT(hwRoute(100).version, written);
}

TEST_F(Tasks, withTheAttributeLogCloggedEachTaskHandlesOneItemPerSlice) {
  attrLog->attrLogOutCloggedIs(true);
  Pellet::Capture capture({"QelMplsSm"});
  uint64_t runs = sm()->reviewTask()->runCount();
  uint64_t work = sm()->reviewTask()->taskWorkCount();
  for (uint32_t label = 200; label < 205; ++label) routeIs(label, 2);
  settle();

  uint64_t items = sm()->reviewTask()->taskWorkCount() - work;
  EXPECT_GE(items, 5u);
  EXPECT_GE(sm()->reviewTask()->runCount() - runs, items);
  // Each slice begins with "review l3 adj" and names each item it handles.
  size_t perSlice = 0;
  size_t most = 0;
  for (const auto& message : capture.messages()) {
    if (message.text == "review l3 adj") perSlice = 0;
    if (message.text.starts_with("process ")) most = std::max(most, ++perSlice);
  }
  EXPECT_EQ(most, 1u);
  EXPECT_FALSE(isPublished(200)) << "nothing is published while the log is clogged";

  attrLog->attrLogOutCloggedIs(false);
  settle();
  for (uint32_t label = 200; label < 205; ++label) {
    EXPECT_EQ(published(label).state, RouteState::routeStateProgrammed) << label;
  }
}

// Routes held back while their adjacency's review re-queues them are looked
// at again when their own review ends, not after every slice of the review:
// that would cost routes times slices.
TEST_F(Tasks, aHeldRouteIsLookedAtAgainOnlyWhenWhatHeldItEnds) {
  constexpr uint32_t kFirst = 1000, kRoutes = 100, kBudget = 5;
  for (uint32_t label = kFirst; label < kFirst + kRoutes; ++label) routeIs(label, 1);
  settle();
  scheduler.itemBudgetIs(kBudget);
  Pellet::Capture capture({"QelMplsSm"});
  arpIs("10.0.0.2", "Ethernet1", "00:00:5e:00:53:11");
  settle();

  EXPECT_GE(sm()->reviewTask()->runCount(), kRoutes / kBudget) << "the review took many slices";
  for (uint32_t label = kFirst; label < kFirst + kRoutes; ++label) {
    ASSERT_NE(hwRoute(label).l2AdjId(), record) << label;
    ASSERT_EQ(published(label).state, RouteState::routeStateProgrammed) << label;
  }
  EXPECT_LE(capture.count("routeCanBePublished routeKey"), 4 * (kRoutes + 2));
}

TEST_F(Tasks, withTheAttributeLogCloggedTheRetryTaskRetriesEachRefusedRouteOncePerRound) {
  driver.routeCapacity = 2;
  for (uint32_t label = 200; label < 205; ++label) routeIs(label, 2);
  settle();
  ASSERT_EQ(state()->unprogrammedRoutes(), 5u);
  attrLog->attrLogOutCloggedIs(true);
  uint64_t retried = state()->unprogRouteRetried();
  uint64_t runs = sm()->unprogrammedRouteTask()->runCount();

  advance(sm()->unprogrammedRetryInterval());
  EXPECT_EQ(state()->unprogRouteRetried() - retried, 5u);
  EXPECT_GE(sm()->unprogrammedRouteTask()->runCount() - runs, 5u);
  EXPECT_EQ(state()->unprogrammedRoutes(), 5u) << "the hardware is still full";

  driver.routeCapacity = 10;
  attrLog->attrLogOutCloggedIs(false);
  advance(sm()->unprogrammedRetryInterval());
  EXPECT_EQ(state()->unprogrammedRoutes(), 0u);
  EXPECT_EQ(published(204).state, RouteState::routeStateProgrammed);
}

}  // namespace
}  // namespace QelTest
