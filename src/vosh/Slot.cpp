#include "vosh/Slot.h"

#include <sched.h>

#include "kiv/Clock.h"

namespace Vosh {

namespace {

// A live writer holds a slot odd for the time of two memcpys; spinning
// covers that. Past the spins the reader yields and watches the clock.
constexpr int kSpinTries = 64;
// A writer preempted inside a write can stay off the processor for a few
// scheduler slices; a lock odd at one value for longer than this is a writer
// that died mid-write.
constexpr double kStuckSeconds = 0.02;
// A writer that keeps rewriting the slot is alive, but a reader must not wait
// on it for ever.
constexpr double kBusySeconds = 1.0;

bool copyOnce(const std::byte* slot, const std::byte* overflow, const SlotGeometry& g, void* keyOut,
              std::byte* recordOut, uint32_t& before, SlotImage& image) {
  const uint32_t* seq = slotSeqWord(slot);
  before = loadAcquire(seq);
  if (before & 1u) return false;
  uint32_t state = loadRelaxed(slotStateWord(slot));
  std::memcpy(keyOut, slot + kSlotHeaderBytes, g.keyBytes);
  if (recordOut) recordLoad(slot, overflow, g, recordOut, state & kSlotLengthMask);
  fenceAcquire();
  if (loadRelaxed(seq) != before) return false;
  image = SlotImage{before, state};
  return true;
}

}  // namespace

SlotGeometry slotGeometry(const CollectionHeader& header) {
  return SlotGeometry{header.slotBytes,   header.keyBytes,    slotRecordOffset(header.keyBytes),
                      header.recordBytes, header.inlineBytes, header.overflowBytes};
}

bool slotReadRetrying(const std::byte* slot, const std::byte* overflow, const SlotGeometry& g,
                      void* keyOut, std::byte* recordOut, SlotImage& image) {
  uint32_t seen = 0;
  for (int attempt = 0; attempt < kSpinTries; ++attempt) {
    if (copyOnce(slot, overflow, g, keyOut, recordOut, seen, image)) return true;
  }
  double start = Kiv::monotonicSeconds();
  double lastProgress = start;
  uint32_t lastSeen = seen;
  for (;;) {
    sched_yield();
    if (copyOnce(slot, overflow, g, keyOut, recordOut, seen, image)) return true;
    double now = Kiv::monotonicSeconds();
    if (seen != lastSeen) {
      lastSeen = seen;
      lastProgress = now;
    }
    if (now - lastProgress > kStuckSeconds || now - start > kBusySeconds) break;
  }
  // Best effort, for the report: the key may be torn too.
  std::memcpy(keyOut, slot + kSlotHeaderBytes, g.keyBytes);
  image = SlotImage{seen, 0};
  return false;
}

}  // namespace Vosh
