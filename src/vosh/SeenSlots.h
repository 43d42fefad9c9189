#pragma once
// What a table reader last saw in each slot of the collection: the key it
// held, if any, and its sequence number. The reader compares a changed slot
// with it to tell a rewrite, a delete, a move and a reuse apart, and to know
// which key left a slot the writer has since reused.
//
// There is one entry per slot, so for the tables of a million routes its size
// is the reader's largest cost. A densely numbered key is kept as its 32-bit
// number (Kiv::DenseKey), which makes an entry 8 bytes where the key itself
// would make 16; the rare key without a number is kept beside, by slot.

#include <cstdint>
#include <vector>

#include "kiv/DenseKey.h"
#include "kiv/HashMap.h"

namespace Vosh {

template <class K, bool = Kiv::DenselyNumbered<K>>
class SeenSlots {
  struct Seen {
    K key{};
    uint32_t seq = 0;
    bool used = false;
  };

 public:
  uint32_t size() const { return static_cast<uint32_t>(seen_.size()); }
  void resize(uint32_t slots) { seen_.resize(slots); }
  void clear() { seen_.clear(); }

  uint32_t seq(uint32_t s) const { return seen_[s].seq; }
  void seqIs(uint32_t s, uint32_t seq) { seen_[s].seq = seq; }
  bool used(uint32_t s) const { return seen_[s].used; }
  // The key the slot held; only when used(s).
  K key(uint32_t s) const { return seen_[s].key; }
  void keyIs(uint32_t s, const K& key) {
    seen_[s].key = key;
    seen_[s].used = true;
  }
  void release(uint32_t s) { seen_[s].used = false; }

 private:
  std::vector<Seen> seen_;
};

template <class K>
class SeenSlots<K, true> {
  using Numbering = Kiv::DenseKey<K>;
  // Stand-ins for a number: the slot held nothing, or a key kept in others_.
  static constexpr uint32_t kFree = Kiv::kNotNumbered;
  static constexpr uint32_t kOther = Kiv::kNotNumbered - 1;
  struct Seen {
    uint32_t number = kFree;
    uint32_t seq = 0;
  };

 public:
  uint32_t size() const { return static_cast<uint32_t>(seen_.size()); }
  void resize(uint32_t slots) {
    for (uint32_t s = slots; s < seen_.size(); ++s) others_.erase(s);
    seen_.resize(slots);
  }
  void clear() {
    seen_.clear();
    others_.clear();
  }

  uint32_t seq(uint32_t s) const { return seen_[s].seq; }
  void seqIs(uint32_t s, uint32_t seq) { seen_[s].seq = seq; }
  bool used(uint32_t s) const { return seen_[s].number != kFree; }
  K key(uint32_t s) const {
    const uint32_t n = seen_[s].number;
    return n == kOther ? *others_.find(s) : Numbering::keyOf(n);
  }
  void keyIs(uint32_t s, const K& key) {
    if (seen_[s].number == kOther) others_.erase(s);
    const uint32_t n = Numbering::numberOf(key);
    if (n >= kOther) {
      others_.insert(s, key);
      seen_[s].number = kOther;
    } else {
      seen_[s].number = n;
    }
  }
  void release(uint32_t s) {
    if (seen_[s].number == kOther) others_.erase(s);
    seen_[s].number = kFree;
  }

 private:
  std::vector<Seen> seen_;
  Kiv::HashMap<uint32_t, K> others_;
};

}  // namespace Vosh
