#pragma once
// A typed view of one collection: keys K, records R.
//
// The writer's view owns the collection. It keeps a private index (key to
// slot) and a free-slot list in its own memory, so a set or a delete is one
// hash probe, one slot write under the slot's sequence lock and one entry in
// the change ring. Setting a record equal to the stored one changes nothing
// and tells no one.
//
// A reader's view keeps its own private index, built by a full scan when it
// attaches, plus what it last saw in each slot (key and sequence number).
// Lookups read the slot the index names; when the slot no longer holds the
// key, or a missing key may have arrived, the reader takes in the change ring
// first, so a lookup never answers from a stale view. Per-key notification
// (onChange) is delivered by the view's poll task only, never inside the
// writer's call: the task gathers the changed slots, compares each with what
// it last saw there (which tells a delete, a move and a reuse apart) and
// notifies each changed key once, however often it changed. A reader that
// fell more than a ring behind compares every slot's sequence number with the
// one it saw instead, which finds exactly the changed keys again.
//
// A record that reads back corrupt (a slot that never held still, or bytes
// that do not deserialize) goes to the corruption handler, and the lookup
// answers the empty record.

#include <concepts>
#include <cstring>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "kiv/Assert.h"
#include "kiv/DenseSet.h"
#include "kiv/DirectMap.h"
#include "kiv/Signal.h"
#include "vosh/Record.h"
#include "vosh/SeenSlots.h"
#include "vosh/TableBase.h"

namespace Vosh {

template <TableKey K, TableRecord R>
class Table final : public TableBase {
  using Codec = RecordCodec<R>;
  static constexpr uint32_t kEnd = 0xffffffffu;

 public:
  using Key = K;
  using Record = R;
  using CorruptionHandler = std::function<void(const K&)>;
  struct Entry {
    K key{};
    R record{};
  };

  class const_iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Entry;
    using difference_type = std::ptrdiff_t;
    using pointer = const Entry*;
    using reference = const Entry&;

    const Entry& operator*() const { return entry_; }
    const Entry* operator->() const { return &entry_; }
    const_iterator& operator++() {
      slot_ = table_->nextEntry(slot_ + 1, entry_);
      return *this;
    }
    bool operator==(const const_iterator& o) const { return slot_ == o.slot_; }

   private:
    friend class Table;
    const_iterator(const Table* table, uint32_t slot) : table_(table), slot_(slot) {
      if (slot_ != kEnd) slot_ = table_->nextEntry(slot_, entry_);
    }
    const Table* table_;
    uint32_t slot_;
    Entry entry_;
  };

  Table(Kiv::Ptr<Mount> mount, std::string collection, Plin::TaskScheduler* scheduler,
        CorruptionHandler onCorrupt = {})
      : TableBase(std::move(mount), std::move(collection), recordShapeOf<K, R>(), scheduler),
        onCorrupt_(std::move(onCorrupt)) {
    if constexpr (Codec::kKind == RecordKind::serialized) scratch_.resize(Codec::kMaxBytes);
    if (!bound()) return;
    if (writable()) {
      recoverIndex();
      return;
    }
    // What is there at attach is the starting point, not a change.
    adoptCapacity();
    rescan();
    pending_.clear();
  }

  // Writer.
  void set(const K& key, const R& record) {
    KIV_ASSERT(writable() && mounted());
    const std::byte* bytes = nullptr;
    uint32_t length = Codec::encode(record, scratch_.data(), bytes);
    KIV_ASSERT(length <= Codec::kMaxBytes);
    uint32_t slot;
    if (const uint32_t* at = index_.find(key)) {
      slot = *at;
      if (holds(slot, record, bytes, length)) return;
    } else {
      slot = takeSlot();
      index_.insert(key, slot);
    }
    slotWrite(slotAt(slot), overflowAt(slot), geometry(), &key, bytes, length);
    publishChange(slot);
  }

  bool del(const K& key) {
    KIV_ASSERT(writable() && mounted());
    const uint32_t* at = index_.find(key);
    if (!at) return false;
    uint32_t slot = *at;
    index_.erase(key);
    slotFree(slotAt(slot));
    releaseSlot(slot);
    publishChange(slot);
    return true;
  }

  void delAll() {
    KIV_ASSERT(writable() && mounted());
    for (uint32_t s = 0, end = highWater(); s < end; ++s) {
      std::byte* slot = slotAt(s);
      if ((loadRelaxed(slotStateWord(slot)) & kSlotUsed) == 0) continue;
      slotFree(slot);
      publishChange(s);
    }
    index_.clear();
    slotsReset();
  }

  // Writer and reader.
  R lookup(const K& key) const {
    // One object returned on every path, so a large record is built in place.
    R out{};
    const Read read = readEntry(key, &out);
    if (read == Read::ok) return out;
    if (read == Read::corrupt) report(key);
    out = R{};
    return out;
  }

  bool has(const K& key) const {
    if (writable()) return index_.contains(key);
    return readEntry(key, nullptr) == Read::ok;
  }

  size_t size() const {
    catchUp();
    return index_.size();
  }

  // In slot order: the same operations in the same order give the same
  // order. Deleting during iteration is safe; a key set during iteration may
  // or may not be visited.
  const_iterator begin() const {
    catchUp();
    return const_iterator(this, 0);
  }
  const_iterator end() const { return const_iterator(this, kEnd); }

  void corruptionHandlerIs(CorruptionHandler handler) { onCorrupt_ = std::move(handler); }

  void poll() const override {
    if (!writable()) syncNow();
  }

  // Reader: each changed key, once per batch of changes, from the event loop.
  mutable Kiv::Signal<K> onChange;

 private:
  enum class Read { absent, ok, corrupt };
  class SyncScope {
   public:
    explicit SyncScope(bool& flag) : flag_(flag) { flag_ = true; }
    ~SyncScope() { flag_ = false; }

   private:
    bool& flag_;
  };

  void report(const K& key) const {
    if (onCorrupt_) {
      onCorrupt_(key);
    } else {
      logCorruption(&key, sizeof(K));
    }
  }

  bool holds(uint32_t slot, const R& record, const std::byte* bytes, uint32_t length) const {
    const std::byte* s = slotAt(slot);
    if (loadRelaxed(slotStateWord(s)) != (kSlotUsed | length)) return false;
    if constexpr (Codec::kKind == RecordKind::fixed && std::equality_comparable<R>) {
      const std::byte* stored = s + geometry().recordOffset;
      // A record's padding holds whatever its maker's stack held, so equal
      // records need not have equal bytes; rewriting one would wake every
      // reader for nothing, and readers that answer with writes of their
      // own would never stop.
      R current;
      std::memcpy(static_cast<void*>(&current), stored, sizeof(R));
      return current == record;
    } else {
      return recordEquals(s, overflowAt(slot), geometry(), bytes, length);
    }
  }

  // Writer: the index of what a previous writer left. A slot left odd by a
  // writer that died mid-write, or a second slot for one key, is reported
  // and freed.
  void recoverIndex() {
    std::vector<uint32_t> free;
    for (uint32_t s = 0, end = highWater(); s < end; ++s) {
      std::byte* slot = slotAt(s);
      bool used = (loadRelaxed(slotStateWord(slot)) & kSlotUsed) != 0;
      bool torn = (loadRelaxed(slotSeqWord(slot)) & 1u) != 0;
      K key{};
      std::memcpy(&key, slot + kSlotHeaderBytes, sizeof(K));
      if (used && !torn && !index_.contains(key)) {
        index_.insert(key, s);
        continue;
      }
      if (used) report(key);
      if (used || torn) {
        slotFree(slot);
        publishChange(s);
      }
      free.push_back(s);
    }
    freeSlotsIs(std::move(free));
  }

  Read readEntry(const K& key, R* out) const {
    for (int attempt = 0; attempt < 2; ++attempt) {
      std::optional<uint32_t> slot = locate(key);
      if (!slot) return Read::absent;
      K stored{};
      SlotImage image;
      std::byte* buffer = out ? Codec::readBuffer(*out, scratch_.data()) : nullptr;
      if (!slotRead(slotAt(*slot), overflowAt(*slot), geometry(), &stored, buffer, image)) {
        return Read::corrupt;
      }
      if (image.used() && stored == key) {
        if (out && !Codec::decode(buffer, image.length(), *out)) return Read::corrupt;
        return Read::ok;
      }
      // The slot moved on since this reader last looked.
      if (writable() || syncing_) return Read::absent;
      syncNow();
    }
    return Read::absent;
  }

  std::optional<uint32_t> locate(const K& key) const {
    if (!writable()) refresh();
    const uint32_t* slot = index_.find(key);
    if (!slot && behind()) {
      syncNow();
      slot = index_.find(key);
    }
    if (!slot) return std::nullopt;
    return *slot;
  }

  uint32_t nextEntry(uint32_t from, Entry& entry) const {
    if (!bound()) return kEnd;
    for (uint32_t s = from, end = highWater(); s < end; ++s) {
      SlotImage image;
      std::byte* buffer = Codec::readBuffer(entry.record, scratch_.data());
      if (!slotRead(slotAt(s), overflowAt(s), geometry(), &entry.key, buffer, image)) {
        report(entry.key);
        continue;
      }
      if (!image.used()) continue;
      if (Codec::decode(buffer, image.length(), entry.record)) return s;
      report(entry.key);
    }
    entry = Entry{};
    return kEnd;
  }

  // Reader side.

  void refresh() const {
    if (!syncing_ && mounted()) mount().refresh();
  }

  bool behind() const { return !syncing_ && bound() && ring().writeCount() != cursor_; }

  void catchUp() const {
    if (writable()) return;
    refresh();
    if (behind()) syncNow();
  }

  void syncNow() const {
    if (syncing_ || !mounted()) return;
    SyncScope scope(syncing_);
    mount().refresh();
    if (!bound()) return;
    uint64_t written = ring().writeCount();
    if (written == cursor_) return;
    // Every change logged up to the count just read lies within what
    // capacity() says now, which the writer may have raised in place.
    if (capacity() != capacityAdopted()) adoptCapacity();
    if (ring().forEach(cursor_, written, [this](uint32_t slot) { mark(slot); })) {
      cursor_ = written;
      applyMarked();
    } else {
      rescan();
    }
    scheduleIfPending();
  }

  void scheduleIfPending() const {
    if (!pending_.empty()) scheduleDelivery();
  }

  void mark(uint32_t slot) const {
    if (slot >= marked_.size() || marked_[slot]) return;
    marked_[slot] = true;
    changed_.push_back(slot);
  }

  void clearMarks() const {
    for (uint32_t slot : changed_) marked_[slot] = false;
    changed_.clear();
  }

  // Every slot whose sequence number differs from the one last seen there.
  void rescan() const {
    clearMarks();
    uint64_t written = ring().writeCount();
    if (capacity() != capacityAdopted()) adoptCapacity();
    const uint32_t end = std::min(std::max(highWater(), seenHigh_), capacityAdopted());
    for (uint32_t s = 0; s < end; ++s) {
      if (slotSeq(slotAt(s)) != seen_.seq(s)) mark(s);
    }
    cursor_ = written;
    applyMarked();
  }

  void applyMarked() const {
    for (size_t i = 0; i < changed_.size(); ++i) {
      uint32_t slot = changed_[i];
      marked_[slot] = false;
      applySlot(slot);
    }
    changed_.clear();
  }

  void applySlot(uint32_t s) const {
    K key{};
    SlotImage image;
    bool stable = slotRead(slotAt(s), overflowAt(s), geometry(), &key, nullptr, image);
    if (image.seq == seen_.seq(s)) return;
    if (stable && image.used() && seen_.used(s) && seen_.key(s) == key) {
      // Rewritten in place: the index already says where the key is.
      seen_.seqIs(s, image.seq);
      pending_.insert(key);
      return;
    }
    if (seen_.used(s)) forgetSlot(s);
    seen_.seqIs(s, image.seq);
    if (stable && image.used()) {
      seen_.keyIs(s, key);
      seenHigh_ = std::max(seenHigh_, s + 1);
      index_.insert(key, s);
      pending_.insert(key);
    }
    if (!stable) report(key);
  }

  void forgetSlot(uint32_t s) const {
    const K key = seen_.key(s);
    const uint32_t* at = index_.find(key);
    if (at && *at == s) index_.erase(key);
    pending_.insert(key);
    seen_.release(s);
  }

  void handleRebound() override {
    if (writable()) return;
    adoptCapacity();
    rescan();
    scheduleIfPending();
  }

  uint32_t capacityAdopted() const { return seen_.size(); }

  // Slots beyond a smaller capacity are gone; a larger one, raised in place
  // or by a new generation, is watched from now on.
  void adoptCapacity() const {
    uint32_t slots = capacity();
    for (uint32_t s = slots; s < seen_.size(); ++s) {
      if (seen_.used(s)) forgetSlot(s);
    }
    seen_.resize(slots);
    marked_.resize(slots, false);
    changed_.clear();
    seenHigh_ = std::min(seenHigh_, slots);
  }

  void handleUnbound(bool notify) override {
    if (notify) {
      for (uint32_t s = 0; s < seen_.size(); ++s) {
        if (seen_.used(s)) pending_.insert(seen_.key(s));
      }
    } else {
      pending_.clear();
    }
    index_.clear();
    seen_.clear();
    marked_.clear();
    changed_.clear();
    seenHigh_ = 0;
    cursor_ = 0;
    scheduleIfPending();
  }

  void runPollTask() override {
    syncNow();
    if (deliverPending()) {
      pollTask().scheduleNow();
      return;
    }
    rearmPollTask();
  }

  // True when the slice ended with keys still to deliver.
  bool deliverPending() {
    while (const K* front = pending_.front()) {
      K key = *front;
      pending_.erase(key);
      onChange(key);
      if (!pending_.empty() && pollTask().taskShouldYield()) return true;
    }
    return false;
  }

  CorruptionHandler onCorrupt_;
  mutable Kiv::KeyMap<K, uint32_t> index_;
  mutable std::vector<std::byte> scratch_;
  // Reader state: what each slot held when last seen, the change-ring
  // cursor, slots to look at, and keys to notify.
  mutable SeenSlots<K> seen_;
  mutable uint32_t seenHigh_ = 0;
  mutable uint64_t cursor_ = 0;
  // A bit per slot: one per route in the largest tables.
  mutable std::vector<bool> marked_;
  mutable std::vector<uint32_t> changed_;
  mutable Kiv::KeySet<K> pending_;
  mutable bool syncing_ = false;
};

}  // namespace Vosh
