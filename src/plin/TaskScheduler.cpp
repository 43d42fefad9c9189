#include "plin/TaskScheduler.h"

#include <poll.h>

#include <cerrno>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "kiv/Assert.h"

namespace Plin {

namespace {
constexpr double kNever = std::numeric_limits<double>::infinity();
}

TaskScheduler::TaskScheduler(Mode mode) : mode_(mode) {
   if (mode == Mode::virtualTime) {
      auto vc = Kiv::make<Kiv::VirtualClock>();
      virtualClock_ = vc.get();
      clock_ = vc;
   } else {
      clock_ = Kiv::make<Kiv::RealClock>();
   }
}

TaskScheduler::~TaskScheduler() {
   // Tasks may outlive the scheduler only as idle objects.
   for (auto& list : ready_)
      for (Task* t = list.head; t; t = t->next_) t->state_ = Task::State::idle;
   for (Task* t : timers_) t->state_ = Task::State::idle;
}

void TaskScheduler::makeReady(Task* t) {
   ReadyList& list = ready_[t->priority_];
   t->prev_ = list.tail;
   t->next_ = nullptr;
   if (list.tail) {
      list.tail->next_ = t;
   } else {
      list.head = t;
   }
   list.tail = t;
   t->state_ = Task::State::ready;
}

void TaskScheduler::removeReady(Task* t) {
   ReadyList& list = ready_[t->priority_];
   (t->prev_ ? t->prev_->next_ : list.head) = t->next_;
   (t->next_ ? t->next_->prev_ : list.tail) = t->prev_;
   t->prev_ = t->next_ = nullptr;
   t->state_ = Task::State::idle;
}

bool TaskScheduler::heapLess(size_t a, size_t b) const {
   const Task* x = timers_[a];
   const Task* y = timers_[b];
   if (x->expiry_ != y->expiry_) return x->expiry_ < y->expiry_;
   return x->seq_ < y->seq_;
}

void TaskScheduler::heapSwap(size_t a, size_t b) {
   std::swap(timers_[a], timers_[b]);
   timers_[a]->heapIndex_ = a;
   timers_[b]->heapIndex_ = b;
}

void TaskScheduler::heapUp(size_t i) {
   while (i > 0) {
      size_t parent = (i - 1) / 2;
      if (!heapLess(i, parent)) break;
      heapSwap(i, parent);
      i = parent;
   }
}

void TaskScheduler::heapDown(size_t i) {
   for (;;) {
      size_t l = 2 * i + 1, r = l + 1, best = i;
      if (l < timers_.size() && heapLess(l, best)) best = l;
      if (r < timers_.size() && heapLess(r, best)) best = r;
      if (best == i) return;
      heapSwap(i, best);
      i = best;
   }
}

void TaskScheduler::timerAdd(Task* t) {
   t->seq_ = ++timerSeq_;
   t->heapIndex_ = timers_.size();
   timers_.push_back(t);
   t->state_ = Task::State::timer;
   heapUp(t->heapIndex_);
}

void TaskScheduler::timerRemove(Task* t) {
   size_t i = t->heapIndex_;
   size_t last = timers_.size() - 1;
   if (i != last) {
      heapSwap(i, last);
      timers_.pop_back();
      heapDown(i);
      heapUp(i);
   } else {
      timers_.pop_back();
   }
   t->state_ = Task::State::idle;
}

double TaskScheduler::nextExpiry() const { return timers_.empty() ? kNever : timers_[0]->expiry_; }

bool TaskScheduler::hasReadyTask() const {
   for (const auto& list : ready_)
      if (list.head) return true;
   return false;
}

void TaskScheduler::promoteDueTimers() {
   double t = now();
   while (!timers_.empty() && timers_[0]->expiry_ <= t) {
      Task* task = timers_[0];
      timerRemove(task);
      makeReady(task);
   }
}

bool TaskScheduler::runOneReady() {
   for (auto& list : ready_) {
      if (Task* t = list.head) {
         removeReady(t);
         ++tasksRun_;
         t->runSlice();
         return true;
      }
   }
   return false;
}

void TaskScheduler::runUntilIdle() {
   for (;;) {
      promoteDueTimers();
      if (!runOneReady()) return;
   }
}

void TaskScheduler::advance(double seconds) {
   KIV_ASSERT(isVirtual());
   double target = now() + seconds;
   runUntilIdle();
   while (nextExpiry() <= target) {
      virtualClock_->nowIs(nextExpiry());
      runUntilIdle();
   }
   virtualClock_->nowIs(target);
   runUntilIdle();
}

void TaskScheduler::fdWatch(int fd, std::function<void()> onReadable) {
   fds_[fd] = std::move(onReadable);
}

void TaskScheduler::fdUnwatch(int fd) { fds_.erase(fd); }

void TaskScheduler::pollDescriptors(double timeoutSeconds) {
   std::vector<pollfd> pfds;
   pfds.reserve(fds_.size());
   for (const auto& [fd, fn] : fds_) pfds.push_back(pollfd{fd, POLLIN, 0});
   int timeoutMs = -1;
   if (timeoutSeconds != kNever) timeoutMs = static_cast<int>(std::ceil(timeoutSeconds * 1000.0));
   int n = ::poll(pfds.data(), pfds.size(), timeoutMs);
   if (n < 0 && errno != EINTR) throw std::runtime_error("poll failed");
   for (const pollfd& p : pfds) {
      if (!(p.revents & (POLLIN | POLLHUP | POLLERR))) continue;
      auto it = fds_.find(p.fd);
      if (it != fds_.end()) it->second();
   }
}

bool TaskScheduler::runUntil(const std::function<bool()>& done, double maxSeconds) {
   double deadline = now() + maxSeconds;
   stopped_ = false;
   while (!stopped_) {
      if (done && done()) return true;
      promoteDueTimers();
      if (runOneReady()) continue;
      if (now() >= deadline) return done && done();
      // Nothing scheduled and nothing watched: no event can ever arrive. On the
      // virtual clock the wait still takes its time, as it would on the wall.
      if (fds_.empty() && nextExpiry() == kNever) {
         if (isVirtual() && deadline != kNever && deadline > now()) virtualClock_->nowIs(deadline);
         return !done || done();
      }
      double wait = std::min(nextExpiry(), deadline) - now();
      if (isVirtual()) {
         advance(std::max(0.0, wait));
         continue;
      }
      pollDescriptors(std::max(0.0, wait));
   }
   return done && done();
}

void TaskScheduler::run() { runUntil(nullptr, kNever); }

Task::Task(TaskScheduler* scheduler, TaskPriority priority, std::string name,
           std::function<void()> body)
    : scheduler_(scheduler), priority_(priority), name_(std::move(name)), body_(std::move(body)) {
   KIV_ASSERT(priority < kTaskPriorities);
}

Task::~Task() { cancel(); }

double Task::expiry() const noexcept {
   switch (state_) {
      case State::idle:
         return kNever;
      case State::ready:
         return scheduler_->now();
      case State::timer:
         return expiry_;
   }
   return kNever;
}

void Task::scheduleNow() {
   if (state_ == State::ready) return;
   if (state_ == State::timer) scheduler_->timerRemove(this);
   scheduler_->makeReady(this);
}

void Task::scheduleAfter(double seconds) {
   if (seconds <= 0) {
      scheduleNow();
      return;
   }
   double when = scheduler_->now() + seconds;
   if (state_ == State::ready) return;
   if (state_ == State::timer) {
      if (expiry_ <= when) return;
      scheduler_->timerRemove(this);
   }
   expiry_ = when;
   scheduler_->timerAdd(this);
}

void Task::cancel() {
   if (state_ == State::ready) {
      scheduler_->removeReady(this);
   } else if (state_ == State::timer) {
      scheduler_->timerRemove(this);
   }
}

bool Task::taskShouldYield() {
   if (!running_) return true;
   ++sliceItems_;
   uint32_t budget = scheduler_->itemBudget_;
   if (budget != 0 && sliceItems_ >= budget) return true;
   if (scheduler_->isVirtual()) return false;
   // Reading the clock costs more than one item of most work; look every 16.
   if ((sliceItems_ & 15) != 0) return false;
   return Kiv::monotonicSeconds() - sliceStart_ >= scheduler_->timeSlice_;
}

void Task::runSlice() {
   running_ = true;
   ++runCount_;
   sliceItems_ = 0;
   if (!scheduler_->isVirtual()) sliceStart_ = Kiv::monotonicSeconds();
   struct Reset {
      bool& flag;
      ~Reset() { flag = false; }
   } reset{running_};
   body_();
}

}  // namespace Plin
