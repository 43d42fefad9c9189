#include "plin/TimerWheel.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "kiv/Assert.h"

namespace Plin {

TimerWheel::TimerWheel(TaskScheduler* scheduler, TaskPriority priority, std::string name,
                       double tickSeconds, uint32_t slotCount, ExpiryHandler onExpiry)
    : tickSeconds_(tickSeconds),
      slotMask_(slotCount - 1),
      slots_(slotCount),
      onExpiry_(std::move(onExpiry)),
      task_(scheduler, priority, std::move(name), [this] { runExpiryTask(); }) {
   KIV_ASSERT(tickSeconds > 0);
   KIV_ASSERT(slotCount != 0 && (slotCount & (slotCount - 1)) == 0);
   doneTick_ = tickAtOrBefore(scheduler->now());
}

uint64_t TimerWheel::tickAtOrBefore(double t) const {
   return static_cast<uint64_t>(std::floor(t / tickSeconds_));
}

uint64_t TimerWheel::tickAtOrAfter(double t) const {
   return static_cast<uint64_t>(std::ceil(t / tickSeconds_));
}

uint32_t TimerWheel::nodeNew(uint64_t id, uint64_t tick) {
   Node node{id, tick, kNil, kNil};
   if (!freeNodes_.empty()) {
      uint32_t n = freeNodes_.back();
      freeNodes_.pop_back();
      nodes_[n] = node;
      return n;
   }
   KIV_ASSERT(nodes_.size() < kNil);
   nodes_.push_back(node);
   return static_cast<uint32_t>(nodes_.size() - 1);
}

void TimerWheel::link(uint32_t n) {
   Slot& slot = slotOf(nodes_[n].tick);
   nodes_[n].prev = slot.tail;
   nodes_[n].next = kNil;
   (slot.tail == kNil ? slot.head : nodes_[slot.tail].next) = n;
   slot.tail = n;
}

void TimerWheel::unlink(uint32_t n) {
   Slot& slot = slotOf(nodes_[n].tick);
   Node& node = nodes_[n];
   (node.prev == kNil ? slot.head : nodes_[node.prev].next) = node.next;
   (node.next == kNil ? slot.tail : nodes_[node.next].prev) = node.prev;
}

void TimerWheel::remove(uint32_t n) {
   unlink(n);
   index_.erase(nodes_[n].id);
   freeNodes_.push_back(n);
}

void TimerWheel::add(uint64_t id, double expirySeconds) {
   KIV_ASSERT(expirySeconds >= 0);
   cancel(id);
   double now = task_.scheduler()->now();
   // An idle wheel has not followed the clock; nothing is due before now.
   if (index_.empty()) doneTick_ = std::max(doneTick_, tickAtOrBefore(now));
   uint64_t tick = std::max(tickAtOrAfter(now + expirySeconds), doneTick_ + 1);
   uint32_t n = nodeNew(id, tick);
   link(n);
   index_.insert(id, n);
   if (tick < wakeTick_) wakeUpAt(tick);
}

bool TimerWheel::cancel(uint64_t id) {
   if (const uint32_t* n = index_.find(id)) {
      remove(*n);
      if (index_.empty()) {
         task_.cancel();
         wakeTick_ = kNoTick;
      }
      return true;
   }
   return firing_.erase(id);
}

double TimerWheel::expiry(uint64_t id) const {
   if (const uint32_t* n = index_.find(id))
      return static_cast<double>(nodes_[*n].tick) * tickSeconds_;
   if (firing_.contains(id)) return task_.scheduler()->now();
   return std::numeric_limits<double>::infinity();
}

void TimerWheel::wakeUpAt(uint64_t tick) {
   wakeTick_ = tick;
   task_.scheduleAfter(static_cast<double>(tick) * tickSeconds_ - task_.scheduler()->now());
}

void TimerWheel::collectDueInSlot(uint64_t slotTick, uint64_t reached) {
   uint32_t n = slotOf(slotTick).head;
   while (n != kNil) {
      uint32_t next = nodes_[n].next;
      if (nodes_[n].tick <= reached) {
         due_.push_back(Due{nodes_[n].tick, nodes_[n].id});
         remove(n);
      }
      n = next;
   }
}

void TimerWheel::collectDue(uint64_t reached) {
   due_.clear();
   uint64_t span = reached - doneTick_;
   uint64_t visits = std::min<uint64_t>(span, slots_.size());
   for (uint64_t i = 1; i <= visits; ++i) collectDueInSlot(doneTick_ + i, reached);
   // Within one turn each slot holds a single due tick and the visits run in
   // tick order; a wheel woken more than a turn late has to sort.
   if (span > slots_.size()) {
      std::stable_sort(due_.begin(), due_.end(),
                       [](const Due& a, const Due& b) { return a.tick < b.tick; });
   }
   for (const Due& d : due_) firing_.insert(d.id);
   doneTick_ = reached;
}

void TimerWheel::scheduleNextWakeUp() {
   if (index_.empty()) return;
   for (uint64_t tick = doneTick_ + 1; tick <= doneTick_ + slots_.size(); ++tick) {
      if (slotOf(tick).head != kNil) {
         if (tick < wakeTick_) wakeUpAt(tick);
         return;
      }
   }
}

void TimerWheel::runExpiryTask() {
   // The task was armed for wakeTick_; the clock may read a hair before it.
   uint64_t reached = tickAtOrBefore(task_.scheduler()->now());
   if (wakeTick_ != kNoTick) reached = std::max(reached, wakeTick_);
   wakeTick_ = kNoTick;
   if (reached > doneTick_) collectDue(reached);
   while (const uint64_t* front = firing_.front()) {
      uint64_t id = *front;
      firing_.erase(id);
      onExpiry_(id);
   }
   scheduleNextWakeUp();
}

}  // namespace Plin
