#pragma once
// Numbers handed out from a range, with released numbers held back.
//
// A released number is not handed out again until its hold-back time has
// passed, so that whoever still holds the old meaning of the number (a driver
// working through an older table version, a peer acting on an older message)
// cannot mistake the next owner for the previous one.
//
// Order: numbers never handed out come first, ascending; once the range has
// been walked through, released numbers come back in the order their
// hold-back ended. Both are O(1) amortised: the fresh cursor only moves
// forward, skipping a number taken by allocateSpecific() once, and the
// released numbers wait in an insertion-ordered set.
//
// Every number the allocator has seen is in exactly one of the status sets
// allocated, heldBack or recycled; that is what makes handing a number out
// twice impossible.

#include <cstdint>
#include <optional>

#include "kiv/Entity.h"
#include "plin/Range.h"
#include "plin/TaskScheduler.h"
#include "plin/TimerWheel.h"

namespace Plin {

class NumAllocatorConfig : public Kiv::Entity {
 public:
   NumAllocatorConfig(Range range, double expirySeconds);
   const Range& range() const noexcept { return range_; }
   // How long a released number is held back; 0 returns it at once.
   double expirySeconds() const noexcept { return expirySeconds_; }

 private:
   const Range range_;
   const double expirySeconds_;
};

class NumAllocatorStatus : public Kiv::Entity {
 public:
   // Handed out and not released.
   KIV_SET(uint64_t, allocated)
   // Released, waiting for the hold-back time to pass.
   KIV_SET(uint64_t, heldBack)
   // Released and past the hold-back time, oldest first.
   KIV_SET(uint64_t, recycled)
   KIV_COUNTER(allocations)
   KIV_COUNTER(releases)
   // allocate() calls that found no number.
   KIV_COUNTER(exhaustions)
};

class NumAllocator : public Kiv::Entity {
 public:
   // The status must be empty; numbers already in use are taken back with
   // allocateSpecific().
   NumAllocator(Kiv::Ptr<const NumAllocatorConfig> config, Kiv::Ptr<NumAllocatorStatus> status,
                TaskScheduler* scheduler, TaskPriority priority = 2);

   // A number, or nothing when every number is allocated or held back.
   std::optional<uint64_t> allocate();
   // Takes a number known to be in use (recovery). A held-back number is taken
   // out of its hold-back. False when it is outside the range or already allocated.
   bool allocateSpecific(uint64_t n);
   // Releasing a number that is not allocated is an internal error.
   void release(uint64_t n);

   const Kiv::Ptr<const NumAllocatorConfig>& config() const noexcept { return config_; }
   const Kiv::Ptr<NumAllocatorStatus>& status() const noexcept { return status_; }

 private:
   std::optional<uint64_t> takeFresh();
   bool seen(uint64_t n) const;
   uint64_t handOut(uint64_t n);
   void handleExpiry(uint64_t n);

   Kiv::Ptr<const NumAllocatorConfig> config_;
   Kiv::Ptr<NumAllocatorStatus> status_;
   // The lowest number never handed out, while freshLeft_.
   uint64_t nextFresh_;
   bool freshLeft_ = true;
   TimerWheel holdBack_;
};

}  // namespace Plin
