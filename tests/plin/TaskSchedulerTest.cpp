#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "kiv/Clock.h"
#include "plin/TaskScheduler.h"

namespace {

using Plin::Task;
using Plin::TaskScheduler;

TEST(TaskScheduler, runsReadyTasksByPriorityThenInArrivalOrder) {
   TaskScheduler s;
   std::vector<std::string> order;
   Task low(&s, 5, "low", [&] { order.push_back("low"); });
   Task highA(&s, 1, "highA", [&] { order.push_back("highA"); });
   Task highB(&s, 1, "highB", [&] { order.push_back("highB"); });
   low.scheduleNow();
   highB.scheduleNow();
   highA.scheduleNow();
   s.runUntilIdle();
   EXPECT_EQ(order, (std::vector<std::string>{"highB", "highA", "low"}));
   EXPECT_EQ(low.runCount(), 1u);
}

TEST(TaskScheduler, laterRequestNeverPushesBackAnEarlierExpiry) {
   TaskScheduler s;
   int runs = 0;
   Task t(&s, 2, "review", [&] { ++runs; });
   t.scheduleAfter(1.0);
   t.scheduleAfter(5.0);
   EXPECT_DOUBLE_EQ(t.expiry(), 1.0);
   t.scheduleAfter(0.5);
   EXPECT_DOUBLE_EQ(t.expiry(), 0.5);
   s.advance(0.6);
   EXPECT_EQ(runs, 1);
   EXPECT_FALSE(t.scheduled());
   s.advance(10);
   EXPECT_EQ(runs, 1);
}

TEST(TaskScheduler, sixHundredSecondTimerFiresOnVirtualTimeWithoutWallTime) {
   TaskScheduler s;
   double firedAt = -1;
   Task timeout(&s, 2, "syncTimeout", [&] { firedAt = s.now(); });
   timeout.scheduleAfter(600);
   double wallStart = Kiv::monotonicSeconds();
   s.advance(599.9);
   EXPECT_LT(firedAt, 0);
   s.advance(0.2);
   EXPECT_DOUBLE_EQ(firedAt, 600.0);
   EXPECT_LT(Kiv::monotonicSeconds() - wallStart, 1.0);
}

TEST(TaskScheduler, timersFireInExpiryOrderAtTheirOwnTime) {
   TaskScheduler s;
   std::vector<std::pair<std::string, double>> fired;
   Task a(&s, 2, "a", [&] { fired.emplace_back("a", s.now()); });
   Task b(&s, 2, "b", [&] { fired.emplace_back("b", s.now()); });
   Task c(&s, 2, "c", [&] { fired.emplace_back("c", s.now()); });
   c.scheduleAfter(3);
   a.scheduleAfter(1);
   b.scheduleAfter(2);
   b.cancel();
   s.advance(5);
   ASSERT_EQ(fired.size(), 2u);
   EXPECT_EQ(fired[0], (std::pair<std::string, double>{"a", 1.0}));
   EXPECT_EQ(fired[1], (std::pair<std::string, double>{"c", 3.0}));
}

TEST(TaskScheduler, taskYieldsOnItsItemBudgetAndResumesNextSlice) {
   TaskScheduler s;
   s.itemBudgetIs(3);
   int remaining = 10;
   std::vector<int> perSlice;
   Task* self = nullptr;
   Task drain(&s, 2, "drain", [&] {
      int done = 0;
      while (remaining > 0) {
         --remaining;
         ++done;
         self->taskWorkCountInc();
         if (self->taskShouldYield()) break;
      }
      perSlice.push_back(done);
      if (remaining > 0) self->scheduleNow();
   });
   self = &drain;
   drain.scheduleNow();
   s.runUntilIdle();
   EXPECT_EQ(perSlice, (std::vector<int>{3, 3, 3, 1}));
   EXPECT_EQ(drain.taskWorkCount(), 10u);
   EXPECT_FALSE(drain.taskShouldYield() == false) << "a task that is not running must yield";
}

TEST(TaskScheduler, destroyingAScheduledTaskUnschedulesIt) {
   TaskScheduler s;
   int runs = 0;
   {
      Task t(&s, 2, "gone", [&] { ++runs; });
      t.scheduleAfter(1);
   }
   Task other(&s, 2, "other", [&] { ++runs; });
   other.scheduleNow();
   s.advance(2);
   EXPECT_EQ(runs, 1);
}

TEST(TaskScheduler, realTimeLoopRunsTimersAndWatchesDescriptors) {
   TaskScheduler s(TaskScheduler::Mode::realTime);
   int fds[2];
   ASSERT_EQ(pipe(fds), 0);
   bool readable = false;
   s.fdWatch(fds[0], [&] {
      char c;
      EXPECT_EQ(read(fds[0], &c, 1), 1);
      readable = true;
   });
   Task writer(&s, 2, "writer", [&] { EXPECT_EQ(write(fds[1], "x", 1), 1); });
   writer.scheduleAfter(0.01);
   EXPECT_TRUE(s.runUntil([&] { return readable; }, 5.0));
   s.fdUnwatch(fds[0]);
   close(fds[0]);
   close(fds[1]);
}

}  // namespace
