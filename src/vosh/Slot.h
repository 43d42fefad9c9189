#pragma once
// One slot of a collection: seq (u32), state (u32), key, record.
//
// seq is a sequence lock. The one writer makes it odd, changes the slot and
// makes it even again; a reader copies the slot out between two reads of seq
// and keeps the copy only when both reads are the same even number. So a
// reader in another process never acts on a half-written record, and the
// writer never waits for readers. seq only ever grows, which also lets a
// reader tell whether a slot changed since it last looked.
//
// state is 0 for a free slot, else kSlotUsed | the record's length in bytes.
//
// A record longer than the slot's inline bytes continues in the slot's
// overflow cell; seq covers both.

#include <cstdint>
#include <cstring>

#include "vosh/Layout.h"
#include "vosh/SharedAtomic.h"

namespace Vosh {

inline constexpr uint32_t kSlotUsed = 0x80000000u;
inline constexpr uint32_t kSlotLengthMask = 0x7fffffffu;

struct SlotGeometry {
  uint32_t slotBytes = 0;
  uint32_t keyBytes = 0;
  uint32_t recordOffset = 0;
  uint32_t recordBytes = 0;
  uint32_t inlineBytes = 0;
  uint32_t overflowBytes = 0;
};

SlotGeometry slotGeometry(const CollectionHeader& header);

// A stable copy of a slot's control words.
struct SlotImage {
  uint32_t seq = 0;
  uint32_t state = 0;
  bool used() const noexcept { return (state & kSlotUsed) != 0; }
  uint32_t length() const noexcept { return state & kSlotLengthMask; }
};

inline uint32_t* slotSeqWord(std::byte* slot) noexcept { return reinterpret_cast<uint32_t*>(slot); }
inline const uint32_t* slotSeqWord(const std::byte* slot) noexcept {
  return reinterpret_cast<const uint32_t*>(slot);
}
inline uint32_t* slotStateWord(std::byte* slot) noexcept { return slotSeqWord(slot) + 1; }
inline const uint32_t* slotStateWord(const std::byte* slot) noexcept {
  return slotSeqWord(slot) + 1;
}

inline uint32_t slotSeq(const std::byte* slot) noexcept { return loadAcquire(slotSeqWord(slot)); }

inline void recordStore(std::byte* slot, std::byte* overflow, const SlotGeometry& g,
                        const std::byte* record, uint32_t length) noexcept {
  if (length <= g.inlineBytes) {
    std::memcpy(slot + g.recordOffset, record, length);
    return;
  }
  std::memcpy(slot + g.recordOffset, record, g.inlineBytes);
  std::memcpy(overflow, record + g.inlineBytes, length - g.inlineBytes);
}

// `length` as the state word says, bounded here by the record size: a
// damaged state word must not make a reader copy past the record.
inline void recordLoad(const std::byte* slot, const std::byte* overflow, const SlotGeometry& g,
                       std::byte* out, uint32_t length) noexcept {
  if (length > g.recordBytes) length = g.recordBytes;
  if (length <= g.inlineBytes) {
    std::memcpy(out, slot + g.recordOffset, length);
    return;
  }
  std::memcpy(out, slot + g.recordOffset, g.inlineBytes);
  std::memcpy(out + g.inlineBytes, overflow, length - g.inlineBytes);
}

inline bool recordEquals(const std::byte* slot, const std::byte* overflow, const SlotGeometry& g,
                         const std::byte* record, uint32_t length) noexcept {
  if (length <= g.inlineBytes) return std::memcmp(slot + g.recordOffset, record, length) == 0;
  return std::memcmp(slot + g.recordOffset, record, g.inlineBytes) == 0 &&
         std::memcmp(overflow, record + g.inlineBytes, length - g.inlineBytes) == 0;
}

// Writer side. `| 1` keeps the lock odd during the write even when a writer
// that died mid-write left it odd.
inline void slotWrite(std::byte* slot, std::byte* overflow, const SlotGeometry& g, const void* key,
                      const std::byte* record, uint32_t length) noexcept {
  uint32_t* seq = slotSeqWord(slot);
  uint32_t odd = loadRelaxed(seq) | 1u;
  storeRelaxed(seq, odd);
  fenceRelease();
  std::memcpy(slot + kSlotHeaderBytes, key, g.keyBytes);
  recordStore(slot, overflow, g, record, length);
  storeRelaxed(slotStateWord(slot), kSlotUsed | length);
  storeRelease(seq, odd + 1);
}

inline void slotFree(std::byte* slot) noexcept {
  uint32_t* seq = slotSeqWord(slot);
  uint32_t odd = loadRelaxed(seq) | 1u;
  storeRelaxed(seq, odd);
  fenceRelease();
  storeRelaxed(slotStateWord(slot), 0u);
  storeRelease(seq, odd + 1);
}

// Reader side: copies the key and, when recordOut is given, the record out
// of the slot. Returns false when the slot did not hold still in bounded
// time: its lock stayed odd at one value (a writer that died mid-write
// leaves it so for good) or kept moving for too long. `image.seq` is then
// the last value seen.
bool slotReadRetrying(const std::byte* slot, const std::byte* overflow, const SlotGeometry& g,
                      void* keyOut, std::byte* recordOut, SlotImage& image);

inline bool slotRead(const std::byte* slot, const std::byte* overflow, const SlotGeometry& g,
                     void* keyOut, std::byte* recordOut, SlotImage& image) {
  const uint32_t* seq = slotSeqWord(slot);
  uint32_t before = loadAcquire(seq);
  if ((before & 1u) == 0) {
    uint32_t state = loadRelaxed(slotStateWord(slot));
    std::memcpy(keyOut, slot + kSlotHeaderBytes, g.keyBytes);
    if (recordOut) recordLoad(slot, overflow, g, recordOut, state & kSlotLengthMask);
    fenceAcquire();
    if (loadRelaxed(seq) == before) {
      image = SlotImage{before, state};
      return true;
    }
  }
  return slotReadRetrying(slot, overflow, g, keyOut, recordOut, image);
}

}  // namespace Vosh
