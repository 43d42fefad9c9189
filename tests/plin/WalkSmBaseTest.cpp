#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "plin/TaskScheduler.h"
#include "plin/WalkSmBase.h"

namespace {

using Plin::TaskScheduler;

struct KeyWalker : Plin::WalkSm<uint64_t> {
   using WalkSm::WalkSm;
   std::vector<uint64_t> handled;
   std::vector<std::string> events;
   std::function<void(uint64_t)> alsoOnItem;
   bool yieldAlways = false;

   void walkItem(const uint64_t& key) override {
      handled.push_back(key);
      if (alsoOnItem) alsoOnItem(key);
   }
   bool walkShouldYield() override { return yieldAlways || WalkSm::walkShouldYield(); }
   void walkStartedNotification() override { events.push_back("started"); }
   void walkFinishedNotification() override { events.push_back("finished"); }
   void traceEvent(const std::string& event) override { events.push_back(event); }
};

struct WalkFixture : ::testing::Test {
   TaskScheduler s;
   Kiv::Ptr<KeyWalker> walker = Kiv::make<KeyWalker>(&s, 2, "walker");
   int started = 0;
   int finished = 0;
   Kiv::Connection startedConnection = walker->onWalkStarted.connect([this] { ++started; });
   Kiv::Connection finishedConnection = walker->onWalkFinished.connect([this] { ++finished; });
};

TEST_F(WalkFixture, walkResumesAfterItsBookmarkWhenASliceYields) {
   s.itemBudgetIs(1);
   for (uint64_t k : {10, 20, 30}) walker->walkKeyIs(k);
   std::vector<std::optional<uint64_t>> bookmarks;
   walker->alsoOnItem = [&](uint64_t key) {
      bookmarks.push_back(walker->walkBookmark());
      // One key behind the bookmark, one ahead of it.
      if (key == 10) {
         walker->walkKeyIs(5);
         walker->walkKeyIs(25);
      }
   };
   s.runUntilIdle();
   EXPECT_EQ(walker->handled, (std::vector<uint64_t>{10, 20, 25, 30, 5}));
   EXPECT_EQ(bookmarks, (std::vector<std::optional<uint64_t>>{10, 20, 25, 30, 5}));
   EXPECT_EQ(walker->walkTask().runCount(), 5u);
   EXPECT_EQ(started, 1);
   EXPECT_EQ(finished, 1);
   EXPECT_EQ(walker->walkBookmark(), std::nullopt);
}

TEST_F(WalkFixture, stateMachinesOwnReasonToYieldEndsTheSlice) {
   for (uint64_t k : {3, 1, 2}) walker->walkKeyIs(k);
   walker->yieldAlways = true;
   s.runUntilIdle();
   EXPECT_EQ(walker->handled, (std::vector<uint64_t>{1, 2, 3}));
   EXPECT_EQ(walker->walkTask().runCount(), 3u);
   EXPECT_EQ(finished, 1);
}

TEST_F(WalkFixture, startedAndFinishedFireOncePerWalk) {
   walker->walkKeyIs(1);
   walker->walkKeyIs(2);
   EXPECT_FALSE(walker->walking());
   s.runUntilIdle();
   EXPECT_FALSE(walker->walking());
   walker->walkKeyIs(3);
   s.runUntilIdle();
   EXPECT_EQ(started, 2);
   EXPECT_EQ(finished, 2);
   EXPECT_EQ(walker->events,
             (std::vector<std::string>{"walk started", "started", "walk finished", "finished",
                                       "walk started", "started", "walk finished", "finished"}));
}

TEST_F(WalkFixture, keysAddedDuringAWalkAreHandledInTheSameWalk) {
   s.itemBudgetIs(2);
   walker->walkKeyIs(1);
   walker->alsoOnItem = [&](uint64_t key) {
      if (key < 4) walker->walkKeyIs(key + 1);
   };
   s.runUntilIdle();
   EXPECT_EQ(walker->handled, (std::vector<uint64_t>{1, 2, 3, 4}));
   EXPECT_EQ(started, 1);
   EXPECT_EQ(finished, 1);
}

TEST_F(WalkFixture, keyRequeuedByItsOwnHandlingWaitsForTheOthers) {
   for (uint64_t k : {1, 2, 3}) walker->walkKeyIs(k);
   bool requeued = false;
   walker->alsoOnItem = [&](uint64_t key) {
      if (key == 1 && !requeued) {
         requeued = true;
         walker->walkKeyIs(1);
      }
   };
   s.runUntilIdle();
   EXPECT_EQ(walker->handled, (std::vector<uint64_t>{1, 2, 3, 1}));
   EXPECT_EQ(finished, 1);
}

TEST_F(WalkFixture, keyQueuedAndHandledInTheLastSliceStartsNoEmptyWalk) {
   walker->walkKeyIs(1);
   walker->alsoOnItem = [&](uint64_t key) {
      if (key == 1) walker->walkKeyIs(2);
   };
   s.runUntilIdle();
   EXPECT_EQ(walker->handled, (std::vector<uint64_t>{1, 2}));
   EXPECT_EQ(started, 1);
   EXPECT_EQ(finished, 1);
   EXPECT_FALSE(walker->walkTask().scheduled());
}

}  // namespace
