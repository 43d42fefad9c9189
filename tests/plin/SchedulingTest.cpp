#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "kiv/Assert.h"
#include "kiv/Clock.h"
#include "plin/AttrLogSm.h"
#include "plin/NumAllocator.h"
#include "plin/TaskScheduler.h"
#include "plin/TimerWheel.h"
#include "plin/WalkSmBase.h"

namespace {

using Plin::Task;
using Plin::TaskScheduler;
using Plin::TimerWheel;

TEST(TaskScheduler, runsReadyTasksByPriorityThenInArrivalOrderAndNoneDestroyed) {
   TaskScheduler s;
   std::vector<std::string> order;
   Task low(&s, 5, "low", [&] { order.push_back("low"); });
   Task highA(&s, 1, "highA", [&] { order.push_back("highA"); });
   Task highB(&s, 1, "highB", [&] { order.push_back("highB"); });
   low.scheduleNow();
   highB.scheduleNow();
   {
      Task goneNow(&s, 1, "goneNow", [&] { order.push_back("goneNow"); });
      Task goneLater(&s, 1, "goneLater", [&] { order.push_back("goneLater"); });
      goneNow.scheduleNow();
      goneLater.scheduleAfter(1);
   }
   highA.scheduleNow();
   s.advance(2);
   EXPECT_EQ(order, (std::vector<std::string>{"highB", "highA", "low"}));
   EXPECT_EQ(low.runCount(), 1u);
}

// A later request never pushes an expiry back; an earlier one brings it
// forward. Ten minutes of virtual time pass at once.
TEST(TaskScheduler, timersFireOnceInExpiryOrderAtTheirOwnVirtualTime) {
   TaskScheduler s;
   using Log = std::vector<std::pair<std::string, double>>;
   Log fired;
   auto timer = [&](const char* name) {
      return std::make_unique<Task>(&s, 2, name, [&, name] { fired.emplace_back(name, s.now()); });
   };
   auto a = timer("a"), b = timer("b"), c = timer("c"), late = timer("late");
   c->scheduleAfter(3);
   a->scheduleAfter(1);
   b->scheduleAfter(2);
   b->cancel();
   a->scheduleAfter(5);
   EXPECT_DOUBLE_EQ(a->expiry(), 1.0);
   c->scheduleAfter(2.5);
   EXPECT_DOUBLE_EQ(c->expiry(), 2.5);
   late->scheduleAfter(600);
   const double wallStart = Kiv::monotonicSeconds();
   s.advance(599.9);
   EXPECT_FALSE(a->scheduled());
   EXPECT_TRUE(late->scheduled());
   s.advance(0.2);
   EXPECT_EQ(fired, (Log{{"a", 1}, {"c", 2.5}, {"late", 600}}));
   EXPECT_LT(Kiv::monotonicSeconds() - wallStart, 1.0);
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

// In real time a slice ends when its time is up, looked at every 16 items; on
// the virtual clock only the item budget ends it.
TEST(TaskScheduler, aSliceEndsByTimeOnlyInRealTime) {
   for (const auto mode : {TaskScheduler::Mode::realTime, TaskScheduler::Mode::virtualTime}) {
      TaskScheduler s(mode);
      s.timeSliceIs(0);
      uint32_t items = 0;
      Task task(&s, 2, "worker", [&] {
         while (items < 1000 && !task.taskShouldYield()) ++items;
      });
      task.scheduleNow();
      s.runUntil([&] { return !task.scheduled(); }, 5.0);
      EXPECT_EQ(items, s.isVirtual() ? 1000u : 15u);
   }
}

struct Fired {
   uint64_t id;
   double at;
   friend bool operator==(const Fired&, const Fired&) = default;
};

std::ostream& operator<<(std::ostream& os, const Fired& f) { return os << f.id << "@" << f.at; }

// Eight one-second slots.
struct Wheel {
   TaskScheduler s;
   std::vector<Fired> fired;
   std::function<void(uint64_t)> alsoOnExpiry;
   TimerWheel wheel{&s, 2, "wheel", 1.0, 8, [this](uint64_t id) {
                       fired.push_back(Fired{id, s.now()});
                       if (alsoOnExpiry) alsoOnExpiry(id);
                    }};
};

TEST(TimerWheel, entryFiresAtTheFirstTickAtOrAfterItsExpiryAndNeverBefore) {
   Wheel w;
   w.s.advance(0.25);
   w.wheel.add(7, 2.5);
   EXPECT_DOUBLE_EQ(w.wheel.expiry(7), 3.0);
   w.s.advance(2.7);
   EXPECT_TRUE(w.fired.empty());
   EXPECT_TRUE(w.wheel.has(7));
   w.s.advance(0.1);
   EXPECT_EQ(w.fired, (std::vector<Fired>{{7, 3.0}}));
   EXPECT_FALSE(w.wheel.has(7));
   EXPECT_EQ(w.wheel.size(), 0u);
}

struct WheelCase {
   std::string name;
   // Armed with a delay; a negative delay cancels the id instead.
   std::vector<std::pair<uint64_t, double>> adds;
   std::vector<Fired> fired;
   std::function<void(Wheel&, uint64_t)> alsoOnExpiry = nullptr;
};

// Entries fire in expiry order, then in order of addition; cancelled ones,
// including by an earlier handler of the same tick, never.
TEST(TimerWheel, firesWhatIsArmedInOrderOnce) {
   const std::vector<WheelCase> cases{
       {"expiryOrder", {{1, 5}, {2, 3}, {3, 3}, {4, 1}}, {{4, 1}, {2, 3}, {3, 3}, {1, 5}}},
       {"cancelled", {{1, 2}, {2, 2}, {1, -1}, {1, -1}, {99, -1}}, {{2, 2}}},
       {"reArmedMoves", {{1, 2}, {1, 6}}, {{1, 6}}},
       // 2 and 18 share a slot, and so do 10 and 26.
       {"laterTurns", {{1, 18}, {2, 2}, {3, 26}, {4, 10}}, {{2, 2}, {4, 10}, {1, 18}, {3, 26}}},
       {"cancelledByAnEarlierHandler", {{1, 2}, {2, 2}}, {{1, 2}},
        [](Wheel& w, uint64_t id) {
           if (id == 1) w.wheel.cancel(2);
        }},
       {"handlerReArms", {{1, 1}}, {{1, 1}, {1, 2}, {1, 3}},
        [](Wheel& w, uint64_t id) {
           if (w.fired.size() < 3) w.wheel.add(id, 1);
        }},
   };
   for (const WheelCase& c : cases) {
      SCOPED_TRACE(c.name);
      Wheel w;
      std::vector<uint64_t> armed;
      for (const auto& [id, delay] : c.adds) {
         const bool had = w.wheel.has(id);
         if (delay < 0) {
            EXPECT_EQ(w.wheel.cancel(id), had);
            std::erase(armed, id);
         } else {
            w.wheel.add(id, delay);
            if (!had) armed.push_back(id);
         }
         EXPECT_EQ(w.wheel.size(), armed.size());
      }
      if (c.alsoOnExpiry) w.alsoOnExpiry = [&](uint64_t id) { c.alsoOnExpiry(w, id); };
      w.s.advance(30);
      EXPECT_EQ(w.fired, c.fired);
   }
}

TEST(TimerWheel, wheelWokenManyTurnsLateFiresEverythingDueInExpiryOrder) {
   Wheel w;
   for (uint64_t id : {5, 1, 9, 3, 12, 7, 30}) w.wheel.add(id, static_cast<double>(id));
   // Move the clock without running the scheduler, as a stalled agent would.
   auto* clock = dynamic_cast<Kiv::VirtualClock*>(w.s.clock().get());
   ASSERT_NE(clock, nullptr);
   clock->nowIs(20.5);
   w.s.runUntilIdle();
   std::vector<uint64_t> ids;
   for (const Fired& f : w.fired) ids.push_back(f.id);
   EXPECT_EQ(ids, (std::vector<uint64_t>{1, 3, 5, 7, 9, 12}));
   w.s.advance(10);
   EXPECT_EQ(w.fired.back(), (Fired{30, 30}));
}

struct KeyWalker : Plin::WalkSm<uint64_t> {
   using WalkSm::WalkSm;
   std::vector<uint64_t> handled;
   std::vector<std::string> events;
   std::function<void(KeyWalker&, uint64_t)> alsoOnItem;
   bool yieldAlways = false;
   int started = 0;
   int finished = 0;
   Kiv::Connection startedConnection = onWalkStarted.connect([this] { ++started; });
   Kiv::Connection finishedConnection = onWalkFinished.connect([this] { ++finished; });

   void walkItem(const uint64_t& key) override {
      handled.push_back(key);
      EXPECT_EQ(walkBookmark(), key);
      if (alsoOnItem) alsoOnItem(*this, key);
   }
   bool walkShouldYield() override { return yieldAlways || WalkSm::walkShouldYield(); }
   void walkStartedNotification() override { events.push_back("started"); }
   void walkFinishedNotification() override { events.push_back("finished"); }
   void traceEvent(const std::string& event) override { events.push_back(event); }
};

struct WalkCase {
   std::string name;
   std::vector<uint64_t> keys;
   uint32_t itemBudget;
   std::function<void(KeyWalker&, uint64_t)> alsoOnItem;
   std::vector<uint64_t> handled;
   // Expected slices; 0 leaves them unchecked.
   uint64_t slices = 0;
   bool yieldAlways = false;
};

// Whatever a slice does, one walk handles every key queued before or
// during it, and starts and finishes once.
TEST(WalkSm, oneWalkHandlesEveryKeyQueuedBeforeOrDuringIt) {
   const std::vector<WalkCase> cases{
       // Key 5 arrives behind the bookmark and waits for the wrap; 25 ahead.
       {"resumesAfterItsBookmark", {10, 20, 30}, 1,
        [](KeyWalker& w, uint64_t key) {
           if (key == 10) {
              w.walkKeyIs(5);
              w.walkKeyIs(25);
           }
        },
        {10, 20, 25, 30, 5}, 5},
       {"ownReasonToYield", {3, 1, 2}, 0, nullptr, {1, 2, 3}, 3, true},
       // Each slice stops at its budget of two items, counted afresh.
       {"keysAddedDuringTheWalk", {1}, 2,
        [](KeyWalker& w, uint64_t key) {
           if (key < 4) w.walkKeyIs(key + 1);
        },
        {1, 2, 3, 4}, 2},
       {"requeuedByItsOwnHandling", {1, 2, 3}, 0,
        [](KeyWalker& w, uint64_t key) {
           if (key == 1 && w.handled.size() == 1) w.walkKeyIs(1);
        },
        {1, 2, 3, 1}},
       {"queuedAndHandledInTheLastSlice", {1}, 0,
        [](KeyWalker& w, uint64_t key) {
           if (key == 1) w.walkKeyIs(2);
        },
        {1, 2}},
   };
   for (const WalkCase& c : cases) {
      SCOPED_TRACE(c.name);
      TaskScheduler s;
      s.itemBudgetIs(c.itemBudget);
      auto walker = Kiv::make<KeyWalker>(&s, 2, "walker");
      walker->alsoOnItem = c.alsoOnItem;
      walker->yieldAlways = c.yieldAlways;
      for (uint64_t k : c.keys) walker->walkKeyIs(k);
      EXPECT_FALSE(walker->walking());
      s.runUntilIdle();
      EXPECT_EQ(walker->handled, c.handled);
      if (c.slices) {
         EXPECT_EQ(walker->walkTask().runCount(), c.slices);
      }
      // A key queued after the walk ended starts a walk of its own.
      walker->alsoOnItem = nullptr;
      walker->walkKeyIs(99);
      s.runUntilIdle();
      EXPECT_EQ(walker->handled.back(), 99u);
      EXPECT_EQ(walker->started, 2);
      EXPECT_EQ(walker->finished, 2);
      std::erase(walker->events, "walk continues");
      EXPECT_EQ(walker->events,
                (std::vector<std::string>{"walk started", "started", "walk finished", "finished",
                                          "walk started", "started", "walk finished", "finished"}));
      EXPECT_FALSE(walker->walking());
      EXPECT_EQ(walker->walkBookmark(), std::nullopt);
      EXPECT_FALSE(walker->walkTask().scheduled());
      EXPECT_TRUE(walker->walkTask().taskShouldYield()) << "a task that is not running must yield";
   }
}

TEST(AttrLogSm, tellsItsWatchersOnlyWhenTheCloggedStateChanges) {
   auto log = Kiv::make<Plin::AttrLogSm>();
   int changes = 0;
   Kiv::Connection c = log->onAttrLogOutClogged.connect([&] { ++changes; });
   EXPECT_FALSE(log->isAttrLogOutClogged());
   for (const auto& [clogged, changesAfter] :
        {std::pair{false, 0}, {true, 1}, {true, 1}, {false, 2}}) {
      log->attrLogOutCloggedIs(clogged);
      EXPECT_EQ(log->isAttrLogOutClogged(), clogged);
      EXPECT_EQ(changes, changesAfter);
   }
}

struct Allocator {
   Plin::TaskScheduler s;
   Kiv::Ptr<Plin::NumAllocatorStatus> status = Kiv::make<Plin::NumAllocatorStatus>();
   Kiv::Ptr<Plin::NumAllocator> allocator;
   Allocator(Plin::Range range, double expirySeconds)
       : allocator(Kiv::make<Plin::NumAllocator>(
             Kiv::make<Plin::NumAllocatorConfig>(range, expirySeconds), status, &s)) {}

   // Runs a script and gives its answers, space-separated: "a" allocates (the
   // number, or "-"), "d" allocates until "-", "r<n>" releases n, "s<n>"
   // allocates n itself ("y" or "n"), "t<seconds>" lets time pass, "?<n>"
   // names the status sets that hold n (allocated, heldBack, recycled; "0"),
   // "c" gives the counts of allocations, releases and exhaustions.
   std::string run(const std::string& script) {
      std::istringstream in(script);
      std::string out;
      auto answer = [&out](const std::string& a) { out += (out.empty() ? "" : " ") + a; };
      auto allocate = [&] {
         std::optional<uint64_t> got = allocator->allocate();
         answer(got ? std::to_string(*got) : "-");
         return got.has_value();
      };
      for (std::string op; in >> op;) {
         const uint64_t n = op.size() > 1 && op[0] != 't' ? std::stoull(op.substr(1)) : 0;
         if (op == "a") allocate();
         if (op == "d") {
            while (allocate()) {
            }
         }
         if (op[0] == 'r') allocator->release(n);
         if (op[0] == 's') answer(allocator->allocateSpecific(n) ? "y" : "n");
         if (op[0] == 't') s.advance(std::stod(op.substr(1)));
         if (op[0] == '?') {
            std::string sets = status->allocatedHas(n) ? "allocated" : "";
            if (status->heldBackHas(n)) sets += "heldBack";
            if (status->recycledHas(n)) sets += "recycled";
            answer(sets.empty() ? "0" : sets);
         }
         if (op == "c") {
            answer(fmt::format("{}/{}/{}", status->allocations(), status->releases(),
                               status->exhaustions()));
         }
      }
      return out;
   }
};

struct Case {
   Plin::Range range;
   double expirySeconds;
   std::string script;
   std::string answers;
};

// Fresh numbers ascending first, then released ones in the order their
// hold-back ended, never one still held back.
TEST(NumAllocator, handsOutFreshNumbersThenReleasedOnesAfterTheirHoldBack) {
   constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
   const std::vector<Case> cases{
       {{10, 14}, 60, "d a c", "10 11 12 13 14 - - 5/0/2"},
       {{kMax - 1, kMax}, 60, "d", fmt::format("{} {} -", kMax - 1, kMax)},
       {{1, 3}, 60, "d r2 ?2 t59.9 a t0.2 ?2 a c", "1 2 3 - heldBack - recycled 2 4/1/2"},
       {{1, 4}, 1, "a r1 t5 d", "1 2 3 4 1 -"},
       {{1, 3}, 60, "d r3 t10 r1 t70 d", "1 2 3 - 3 1 -"},
       {{1, 1}, 0, "a r1 ?1 a", "1 recycled 1"},
       {{1, 5}, 60, "s3 s3 s6 d", "y n n 1 2 4 5 -"},
       {{1, 2}, 60, "d r1 s1 ?1 t100 ?1 a", "1 2 - y allocated allocated -"},
   };
   for (const Case& c : cases) {
      Allocator a(c.range, c.expirySeconds);
      EXPECT_EQ(a.run(c.script), c.answers) << c.range.stringValue() << " " << c.script;
   }
}

TEST(NumAllocator, releasingANumberNotAllocatedIsAnInternalError) {
   Allocator a(Plin::Range{1, 5}, 60);
   EXPECT_THROW(a.allocator->release(1), Kiv::InternalError);
   a.run("a r1");
   EXPECT_THROW(a.allocator->release(1), Kiv::InternalError);
}

}  // namespace
