#pragma once
// The change log of one collection: a ring of slot numbers and a 64-bit count
// of changes ever logged, both in the segment.
//
// The writer stores the slot number of every change at writeCount % size and
// then publishes writeCount + 1. A reader remembers the count it has read up
// to (its cursor) and reads the entries from there. The writer never waits:
// a reader that fell more than a ring behind has lost entries and must
// resynchronise by scanning the slots, which forEach reports.

#include <cstdint>

#include "vosh/Layout.h"
#include "vosh/SharedAtomic.h"

namespace Vosh {

class ChangeRing {
 public:
  ChangeRing() = default;
  ChangeRing(CollectionHeader* header, uint32_t* entries)
      : header_(header), entries_(entries), mask_(header->ringSize - 1) {}

  uint64_t size() const noexcept { return uint64_t{mask_} + 1; }
  uint64_t writeCount() const noexcept { return loadAcquire(&header_->writeCount); }

  void append(uint32_t slot) noexcept {
    uint64_t w = loadRelaxed(&header_->writeCount);
    // Release on the entry too: a reader that sees an entry overwritten by a
    // later lap then also sees the count that betrays the lap.
    storeRelease(&entries_[w & mask_], slot);
    storeRelease(&header_->writeCount, w + 1);
  }

  // Calls f(slot) for the changes logged in [from, to). Returns false when
  // the writer may have overwritten some of them meanwhile: what f saw must
  // then be thrown away.
  template <class F>
  bool forEach(uint64_t from, uint64_t to, F&& f) const {
    if (to - from >= size()) return false;
    for (uint64_t i = from; i < to; ++i) f(loadRelaxed(&entries_[i & mask_]));
    fenceAcquire();
    return loadRelaxed(&header_->writeCount) - from < size();
  }

 private:
  CollectionHeader* header_ = nullptr;
  uint32_t* entries_ = nullptr;
  uint32_t mask_ = 0;
};

}  // namespace Vosh
