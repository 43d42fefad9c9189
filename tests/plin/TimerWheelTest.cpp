#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "kiv/Clock.h"
#include "plin/TaskScheduler.h"
#include "plin/TimerWheel.h"

namespace {

using Plin::TaskScheduler;
using Plin::TimerWheel;

struct Fired {
   uint64_t id;
   double at;
   friend bool operator==(const Fired&, const Fired&) = default;
};

std::ostream& operator<<(std::ostream& os, const Fired& f) { return os << f.id << "@" << f.at; }

struct WheelFixture : ::testing::Test {
   TaskScheduler s;
   std::vector<Fired> fired;
   std::function<void(uint64_t)> alsoOnExpiry;
   TimerWheel wheel{&s, 2, "wheel", 1.0, 8, [this](uint64_t id) {
                       fired.push_back(Fired{id, s.now()});
                       if (alsoOnExpiry) alsoOnExpiry(id);
                    }};
};

TEST_F(WheelFixture, entryFiresAtTheFirstTickAtOrAfterItsExpiryAndNeverBefore) {
   s.advance(0.25);
   wheel.add(7, 2.5);
   EXPECT_DOUBLE_EQ(wheel.expiry(7), 3.0);
   s.advance(2.7);
   EXPECT_TRUE(fired.empty());
   EXPECT_TRUE(wheel.has(7));
   s.advance(0.1);
   EXPECT_EQ(fired, (std::vector<Fired>{{7, 3.0}}));
   EXPECT_FALSE(wheel.has(7));
   EXPECT_EQ(wheel.size(), 0u);
}

TEST_F(WheelFixture, entriesFireInExpiryOrderThenInOrderOfAddition) {
   wheel.add(1, 5);
   wheel.add(2, 3);
   wheel.add(3, 3);
   wheel.add(4, 1);
   s.advance(10);
   EXPECT_EQ(fired, (std::vector<Fired>{{4, 1}, {2, 3}, {3, 3}, {1, 5}}));
}

TEST_F(WheelFixture, cancelledEntryNeverFires) {
   wheel.add(1, 2);
   wheel.add(2, 2);
   EXPECT_TRUE(wheel.cancel(1));
   EXPECT_FALSE(wheel.cancel(1));
   EXPECT_FALSE(wheel.cancel(99));
   s.advance(5);
   EXPECT_EQ(fired, (std::vector<Fired>{{2, 2}}));
}

TEST_F(WheelFixture, entryCancelledByAnEarlierHandlerOfTheSameTickDoesNotFire) {
   wheel.add(1, 2);
   wheel.add(2, 2);
   alsoOnExpiry = [this](uint64_t id) {
      if (id == 1) wheel.cancel(2);
   };
   s.advance(5);
   EXPECT_EQ(fired, (std::vector<Fired>{{1, 2}}));
}

TEST_F(WheelFixture, addingAnArmedIdMovesItsExpiry) {
   wheel.add(1, 2);
   wheel.add(1, 6);
   EXPECT_EQ(wheel.size(), 1u);
   s.advance(10);
   EXPECT_EQ(fired, (std::vector<Fired>{{1, 6}}));
}

TEST_F(WheelFixture, entryMoreThanOneTurnAwayWaitsForItsOwnTurn) {
   // Eight one-second slots: 2 and 18 share a slot, and so do 10 and 26.
   wheel.add(1, 18);
   wheel.add(2, 2);
   wheel.add(3, 26);
   wheel.add(4, 10);
   s.advance(30);
   EXPECT_EQ(fired, (std::vector<Fired>{{2, 2}, {4, 10}, {1, 18}, {3, 26}}));
}

TEST_F(WheelFixture, handlerMayArmItsOwnIdAgain) {
   wheel.add(1, 1);
   alsoOnExpiry = [this](uint64_t id) {
      if (fired.size() < 3) wheel.add(id, 1);
   };
   s.advance(10);
   EXPECT_EQ(fired, (std::vector<Fired>{{1, 1}, {1, 2}, {1, 3}}));
}

TEST_F(WheelFixture, wheelWokenManyTurnsLateFiresEverythingDueInExpiryOrder) {
   for (uint64_t id : {5, 1, 9, 3, 12, 7, 30}) wheel.add(id, static_cast<double>(id));
   // Move the clock without running the scheduler, as a stalled agent would.
   auto* clock = dynamic_cast<Kiv::VirtualClock*>(s.clock().get());
   ASSERT_NE(clock, nullptr);
   clock->nowIs(20.5);
   s.runUntilIdle();
   std::vector<uint64_t> ids;
   for (const Fired& f : fired) ids.push_back(f.id);
   EXPECT_EQ(ids, (std::vector<uint64_t>{1, 3, 5, 7, 9, 12}));
   s.advance(10);
   EXPECT_EQ(fired.back(), (Fired{30, 30}));
}

}  // namespace
