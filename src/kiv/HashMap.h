#pragma once
// Insertion-ordered open-addressing hash map.
//
// Entries live in a Kiv::InsertionOrder, so iteration follows insertion, the
// same for the same sequence of operations in every process (no hash seed
// shows), front() gives FIFO draining for the review sets, and erasing during
// iteration is safe while inserting is not. A separate index of 32-bit words
// finds them.
//
// Each index word carries a few bits of its key's hash beside the entry's
// position, so a probe passes over other keys without reading their entries:
// in a map of a million keys that is a cache miss saved per collision. A small
// map (an adjacency's routes) keeps no index and is searched by a scan of its
// few entries.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <utility>
#include <vector>

#include "kiv/InsertionOrder.h"

namespace Kiv {

inline uint64_t mixHash(uint64_t h) noexcept {
   h ^= h >> 33;
   h *= 0xff51afd7ed558ccdULL;
   h ^= h >> 33;
   h *= 0xc4ceb9fe1a85ec53ULL;
   h ^= h >> 33;
   return h;
}

template <class K>
struct Hash {
   size_t operator()(const K& k) const noexcept { return mixHash(std::hash<K>{}(k)); }
};

struct Unit {
   friend bool operator==(Unit, Unit) { return true; }
};

template <class K, class V, class H = Hash<K>>
class HashMap {
 public:
   struct Entry {
      K first;
      V second;
   };

 private:
   using Order = InsertionOrder<Entry>;
   static constexpr uint32_t kEmpty = 0;
   static constexpr uint32_t kHole = 0xffffffffu;
   // An index word: the entry's position + 1 in the low bits, a tag from the
   // hash's top bits above. Positions stop short of all ones, so no word is
   // ever kHole.
   static constexpr unsigned kPositionBits = 26;
   static constexpr uint32_t kPositionMask = (1u << kPositionBits) - 1;
   static constexpr size_t kMaxEntries = kPositionMask - 1;
   // Up to this many entries a scan (a few cache lines) replaces the index.
   static constexpr size_t kSmallEntries = 16;
   // An index this large is given back when the map empties.
   static constexpr size_t kKeptIndex = 8192;

 public:
   using iterator = typename Order::iterator;
   using const_iterator = typename Order::const_iterator;

   iterator begin() { return order_.begin(); }
   iterator end() { return order_.end(); }
   const_iterator begin() const { return order_.begin(); }
   const_iterator end() const { return order_.end(); }

   size_t size() const noexcept { return order_.live(); }
   bool empty() const noexcept { return order_.live() == 0; }

   V* find(const K& k) {
      uint32_t slot = lookup(k);
      return slot == kEmpty ? nullptr : &order_.at(slot - 1).second;
   }
   const V* find(const K& k) const { return const_cast<HashMap*>(this)->find(k); }
   bool contains(const K& k) const { return lookup(k) != kEmpty; }

   // Inserts or overwrites; returns the stored value and whether it was new.
   std::pair<V*, bool> insert(const K& k, V v) {
      if (V* existing = find(k)) {
         *existing = std::move(v);
         return {existing, false};
      }
      return {&append(k, std::move(v)), true};
   }

   V& operator[](const K& k) {
      if (V* existing = find(k)) return *existing;
      return append(k, V{});
   }

   bool erase(const K& k) {
      const Found found = probe(k);
      if (found.slot == kEmpty) return false;
      if (found.at != kNotIndexed) {
         index_[found.at] = kHole;
         ++holesInIndex_;
      }
      order_.at(found.slot - 1).second = V{};
      if (order_.remove(found.slot - 1)) clearIndex();
      return true;
   }

   void clear() {
      order_.clear();
      clearIndex();
   }

   // Oldest live entry, for FIFO draining.
   Entry* front() { return order_.front(); }

   void reserve(size_t n) {
      order_.reserve(n);
      if (n > kSmallEntries && indexSizeFor(n) > index_.size()) rebuildIndex(indexSizeFor(n));
   }

 private:
   static size_t indexSizeFor(size_t n) {
      size_t s = 16;
      while (s < n * 2) s <<= 1;
      return s;
   }

   static uint32_t tagOf(size_t hash) {
      return static_cast<uint32_t>(uint64_t{hash} >> (64 - (32 - kPositionBits))) << kPositionBits;
   }

   // Where a key is: its entry's position + 1 (kEmpty when absent) and, in
   // an indexed map, the index word that points at it.
   static constexpr size_t kNotIndexed = ~size_t{0};
   struct Found {
      size_t at;
      uint32_t slot;
   };

   Found probe(const K& k) const {
      if (index_.empty()) return {kNotIndexed, scan(k)};
      const size_t h = H{}(k);
      const uint32_t tag = tagOf(h);
      size_t mask = index_.size() - 1;
      for (size_t i = h & mask;; i = (i + 1) & mask) {
         uint32_t word = index_[i];
         if (word == kEmpty) return {kNotIndexed, kEmpty};
         uint32_t slot = word & kPositionMask;
         if (word != kHole && (word & ~kPositionMask) == tag && order_.at(slot - 1).first == k)
            return {i, slot};
      }
   }

   uint32_t lookup(const K& k) const { return probe(k).slot; }

   uint32_t scan(const K& k) const {
      for (size_t i = order_.headPosition(); i < order_.cellCount(); ++i) {
         if (order_.isLive(i) && order_.at(i).first == k) return static_cast<uint32_t>(i + 1);
      }
      return kEmpty;
   }

   V& append(const K& k, V v) {
      if (order_.wantsCompaction()) compact();
      const size_t cells = order_.cellCount();
      // Sized for every cell, live or not, so one rebuild covers the next
      // cellCount() insertions.
      const bool indexed = !index_.empty() || cells + 1 > kSmallEntries;
      if (indexed && (cells + 1 + holesInIndex_) * 2 > index_.size()) rebuildIndex(indexSizeFor(cells + 1));
      if (cells >= kMaxEntries) throw std::length_error("Kiv::HashMap: too many entries");
      const size_t pos = order_.append(Entry{k, std::move(v)});
      if (indexed) place(k, static_cast<uint32_t>(pos + 1));
      return order_.at(pos).second;
   }

   void place(const K& k, uint32_t slot) {
      const size_t h = H{}(k);
      size_t mask = index_.size() - 1;
      size_t i = h & mask;
      while (index_[i] != kEmpty) i = (i + 1) & mask;
      index_[i] = slot | tagOf(h);
   }

   void compact() {
      order_.compact([](const Entry&, size_t) {});
      if (order_.live() + 1 > kSmallEntries) {
         rebuildIndex(indexSizeFor(order_.live() + 1));
      } else {
         index_.clear();
         holesInIndex_ = 0;
      }
   }

   void rebuildIndex(size_t size) {
      index_.assign(size, kEmpty);
      holesInIndex_ = 0;
      for (size_t i = 0; i < order_.cellCount(); ++i)
         if (order_.isLive(i)) place(order_.at(i).first, static_cast<uint32_t>(i + 1));
   }

   void clearIndex() {
      if (index_.size() > kKeptIndex) {
         std::vector<uint32_t>().swap(index_);
      } else {
         index_.clear();
      }
      holesInIndex_ = 0;
   }

   Order order_;
   std::vector<uint32_t> index_;
   size_t holesInIndex_ = 0;
};

template <class K, class H = Hash<K>>
class HashSet {
 public:
   using Map = HashMap<K, Unit, H>;
   class const_iterator {
    public:
      using iterator_category = std::forward_iterator_tag;
      using difference_type = std::ptrdiff_t;
      using value_type = K;
      using pointer = const K*;
      using reference = const K&;
      const_iterator() = default;
      explicit const_iterator(typename Map::const_iterator it) : it_(it) {}
      const K& operator*() const { return (*it_).first; }
      const_iterator& operator++() {
         ++it_;
         return *this;
      }
      bool operator==(const const_iterator& o) const { return it_ == o.it_; }

    private:
      typename Map::const_iterator it_;
   };

   const_iterator begin() const { return const_iterator(map_.begin()); }
   const_iterator end() const { return const_iterator(map_.end()); }
   size_t size() const noexcept { return map_.size(); }
   bool empty() const noexcept { return map_.empty(); }
   bool contains(const K& k) const { return map_.contains(k); }
   bool insert(const K& k) { return map_.insert(k, Unit{}).second; }
   bool erase(const K& k) { return map_.erase(k); }
   void clear() { map_.clear(); }
   const K* front() {
      auto* e = map_.front();
      return e ? &e->first : nullptr;
   }
   void reserve(size_t n) { map_.reserve(n); }

 private:
   Map map_;
};

}  // namespace Kiv
