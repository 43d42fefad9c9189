#pragma once
// A hashed timing wheel on the scheduler's clock.
//
// Entries are ids that expire after a delay. Time is cut into ticks of
// `tickSeconds`; an entry sits in the slot of the tick at which it expires,
// rounded up so that nothing fires early, in a ring of `slotCount` slots. The
// slots are intrusive lists threaded through a node pool and an index finds an
// id's node, so adding and cancelling are O(1) and allocate nothing once the
// pool has grown to the wheel's working size.
//
// One task wakes the wheel at the earliest tick whose slot holds anything. An
// entry more than one turn of the wheel away shares its slot with nearer ones
// and only costs a wake-up that fires nothing, so size the wheel for the usual
// delay to fit in one turn.
//
// Handlers run in expiry order, and in order of addition within one tick. An
// id cancelled or re-armed by an earlier handler of the same wake-up does not
// fire: ids about to fire are held in an ordered set that cancel() also clears.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "kiv/HashMap.h"
#include "plin/TaskScheduler.h"

namespace Plin {

class TimerWheel {
 public:
   using ExpiryHandler = std::function<void(uint64_t id)>;

   // slotCount must be a power of two.
   TimerWheel(TaskScheduler* scheduler, TaskPriority priority, std::string name, double tickSeconds,
              uint32_t slotCount, ExpiryHandler onExpiry);
   TimerWheel(const TimerWheel&) = delete;
   TimerWheel& operator=(const TimerWheel&) = delete;

   // Arms `id` to expire `expirySeconds` from now; an armed id is re-armed.
   void add(uint64_t id, double expirySeconds);
   // False when `id` was not armed.
   bool cancel(uint64_t id);
   bool has(uint64_t id) const { return index_.contains(id) || firing_.contains(id); }
   size_t size() const noexcept { return index_.size() + firing_.size(); }
   // The time at which `id` fires (a tick boundary), +inf when it is not armed.
   double expiry(uint64_t id) const;
   double tickSeconds() const noexcept { return tickSeconds_; }

 private:
   static constexpr uint32_t kNil = UINT32_MAX;
   static constexpr uint64_t kNoTick = UINT64_MAX;
   struct Node {
      uint64_t id;
      uint64_t tick;
      uint32_t prev;
      uint32_t next;
   };
   struct Slot {
      uint32_t head = kNil;
      uint32_t tail = kNil;
   };
   struct Due {
      uint64_t tick;
      uint64_t id;
   };

   uint64_t tickAtOrBefore(double t) const;
   uint64_t tickAtOrAfter(double t) const;
   Slot& slotOf(uint64_t tick) { return slots_[tick & slotMask_]; }
   uint32_t nodeNew(uint64_t id, uint64_t tick);
   void link(uint32_t n);
   void unlink(uint32_t n);
   void remove(uint32_t n);
   void collectDueInSlot(uint64_t slotTick, uint64_t reached);
   void collectDue(uint64_t reached);
   void wakeUpAt(uint64_t tick);
   void scheduleNextWakeUp();
   void runExpiryTask();

   double tickSeconds_;
   uint64_t slotMask_;
   std::vector<Slot> slots_;
   std::vector<Node> nodes_;
   std::vector<uint32_t> freeNodes_;
   Kiv::HashMap<uint64_t, uint32_t> index_;
   Kiv::HashSet<uint64_t> firing_;
   std::vector<Due> due_;
   // Every tick up to this one has been fired.
   uint64_t doneTick_;
   // The tick the task is armed for, kNoTick when it is not.
   uint64_t wakeTick_ = kNoTick;
   ExpiryHandler onExpiry_;
   Task task_;
};

}  // namespace Plin
