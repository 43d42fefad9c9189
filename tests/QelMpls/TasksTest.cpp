#include <gtest/gtest.h>

#include <functional>

#include "SwitchFixture.h"
#include "pellet/Trace.h"

namespace QelTest {
namespace {

using Mpls::Hardware::RouteState;

class Tasks : public SwitchFixture {
 protected:
  void SetUp() override {
    hostsAre();
    mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
    mplsViaSetIs(2, {{"10.0.1.2", "Ethernet2", 300}});
    startAgent();
    routeIs(100, 1);
    routeIs(101, 1);
    settle();
    record = hwRoute(100).l2AdjId();
  }

  uint64_t record = 0;
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

// Both routes move to a new record that the driver does not answer yet; it
// refuses route 100 just as the route, or its adjacency, changes again: the
// refusal is not published, the review writes the route anew.
TEST_F(Tasks, aRouteUnderReviewOrWhoseAdjacencyIsUnderReviewIsNotPublished) {
  struct Case {
    const char* what;
    const char* rewrittenMac;
    std::function<void()> change;
  };
  const Case cases[] = {
      {"the route", "00:00:5e:00:53:11", [this] { routeIs(100, 1, Mpls::viaTypeMplsIp, 1); }},
      {"its adjacency", "00:00:5e:00:53:12",
       [this] { arpIs("10.0.0.2", "Ethernet1", "00:00:5e:00:53:13"); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    driver.answer = false;
    arpIs("10.0.0.2", "Ethernet1", c.rewrittenMac);
    settle();
    uint8_t written = hwRoute(100).version;
    ASSERT_NE(hwRoute(100).l2AdjId(), record);
    record = hwRoute(100).l2AdjId();
    driver.routeStatusIs(key(100), written, Vosh::Qel::mplsHwRouteStateUnprogrammed,
                         Vosh::Qel::mplsHwUnprogReasonInvalidFecId);
    c.change();
    settle();
    expectProgrammed({100});
    EXPECT_GT(hwRoute(100).version, written);

    driver.answer = true;
    driver.answerRoute(key(100));
    settle();
    expectProgrammed({100});
    EXPECT_EQ(published(100).version, hwRoute(100).version);
  }
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
  expectProgrammed({200, 201, 202, 203, 204});
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

}  // namespace
}  // namespace QelTest
