#pragma once
// The agent's one-thread cooperative scheduler.
//
// Tasks have a priority (0 runs first, 7 last) and are either idle, waiting on
// a timer, or ready. Ready tasks run in priority order, first come first
// served within a priority. A task asked to run later than it is already due
// keeps the earlier time (lowest-delay rescheduling), so a burst of reactions
// never pushes work back.
//
// Time comes from the scheduler's own clock. In virtual mode it moves only in
// advance(), and runUntilIdle() runs everything that is due now. In real mode
// run() is the agent's event loop: it sleeps in poll() on the watched file
// descriptors until the next timer is due.
//
// A task body does a slice of work and calls Task::taskShouldYield() between
// items. The slice ends when its time is spent (real mode) or when its item
// budget is spent (virtual mode, and tests that want every yield path taken).

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "kiv/Clock.h"
#include "kiv/Ptr.h"

namespace Plin {

using TaskPriority = uint8_t;
constexpr TaskPriority kTaskPriorities = 8;

class Task;

class TaskScheduler {
 public:
   enum class Mode { virtualTime, realTime };
   explicit TaskScheduler(Mode mode = Mode::virtualTime);
   ~TaskScheduler();
   TaskScheduler(const TaskScheduler&) = delete;
   TaskScheduler& operator=(const TaskScheduler&) = delete;

   Mode mode() const noexcept { return mode_; }
   bool isVirtual() const noexcept { return mode_ == Mode::virtualTime; }
   const Kiv::Ptr<Kiv::Clock>& clock() const noexcept { return clock_; }
   double now() const { return clock_->now(); }

   // Virtual time: run everything due now, until nothing is.
   void runUntilIdle();
   // Virtual time: move the clock forward, firing timers in expiry order.
   void advance(double seconds);
   // Real time: the event loop. Returns after stop(), or when nothing is
   // scheduled and no descriptor is watched.
   void run();
   // Real time: run the loop until `done` holds or `maxSeconds` have passed.
   bool runUntil(const std::function<bool()>& done, double maxSeconds);
   void stop() { stopped_ = true; }

   void fdWatch(int fd, std::function<void()> onReadable);
   void fdUnwatch(int fd);

   // Yield rules. timeSlice applies in real mode; itemBudget (items handled
   // between two yields, 0 for unlimited) applies whenever it is set.
   void timeSliceIs(double seconds) { timeSlice_ = seconds; }
   void itemBudgetIs(uint32_t items) { itemBudget_ = items; }
   uint32_t itemBudget() const noexcept { return itemBudget_; }

   // Earliest time at which a timer is due, or +inf.
   double nextExpiry() const;
   bool hasReadyTask() const;
   uint64_t tasksRun() const noexcept { return tasksRun_; }

 private:
   friend class Task;
   void makeReady(Task* t);
   void removeReady(Task* t);
   void timerAdd(Task* t);
   void timerRemove(Task* t);
   void heapUp(size_t i);
   void heapDown(size_t i);
   void heapSwap(size_t a, size_t b);
   bool heapLess(size_t a, size_t b) const;
   void promoteDueTimers();
   bool runOneReady();
   void pollDescriptors(double timeoutSeconds);

   Mode mode_;
   Kiv::Ptr<Kiv::Clock> clock_;
   Kiv::VirtualClock* virtualClock_ = nullptr;
   struct ReadyList {
      Task* head = nullptr;
      Task* tail = nullptr;
   };
   ReadyList ready_[kTaskPriorities];
   std::vector<Task*> timers_;
   uint64_t timerSeq_ = 0;
   std::map<int, std::function<void()>> fds_;
   double timeSlice_ = 0.005;
   uint32_t itemBudget_ = 0;
   bool stopped_ = false;
   uint64_t tasksRun_ = 0;
};

class Task {
 public:
   Task(TaskScheduler* scheduler, TaskPriority priority, std::string name,
        std::function<void()> body);
   virtual ~Task();
   Task(const Task&) = delete;
   Task& operator=(const Task&) = delete;

   const std::string& name() const noexcept { return name_; }
   TaskPriority priority() const noexcept { return priority_; }
   TaskScheduler* scheduler() const noexcept { return scheduler_; }

   void scheduleNow();
   // Runs the task `seconds` from now, unless it is already due sooner.
   void scheduleAfter(double seconds);
   void cancel();
   bool scheduled() const noexcept { return state_ != State::idle; }
   bool running() const noexcept { return running_; }
   // Time at which the task is due; +inf when idle.
   double expiry() const noexcept;

   // Called between two items of work: true when the slice is over.
   bool taskShouldYield();

   void taskWorkCountInc(uint64_t n = 1) noexcept { workCount_ += n; }
   uint64_t taskWorkCount() const noexcept { return workCount_; }
   uint64_t runCount() const noexcept { return runCount_; }

 private:
   friend class TaskScheduler;
   enum class State : uint8_t { idle, timer, ready };
   void runSlice();

   TaskScheduler* scheduler_;
   TaskPriority priority_;
   std::string name_;
   std::function<void()> body_;
   State state_ = State::idle;
   bool running_ = false;
   double expiry_ = 0;
   uint64_t seq_ = 0;
   size_t heapIndex_ = 0;
   Task* prev_ = nullptr;
   Task* next_ = nullptr;
   double sliceStart_ = 0;
   uint32_t sliceItems_ = 0;
   uint64_t workCount_ = 0;
   uint64_t runCount_ = 0;
};

// A task scheduled with a delay is a timer task; the name says how it is used.
using TimerTask = Task;

}  // namespace Plin
