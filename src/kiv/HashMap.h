#pragma once
// Insertion-ordered open-addressing hash map and set.
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

// The hashed table under HashMap and HashSet: what it stores (a map's entry,
// a set's bare key) and how a key is taken from it are parameters, so a set
// keeps no value beside its keys.
template <class Stored, class K, class KeyOf, class H>
class HashTable {
   using Order = InsertionOrder<Stored>;
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
   // An index this large is given back when the table empties.
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

   Stored* find(const K& k) {
      uint32_t slot = lookup(k);
      return slot == kEmpty ? nullptr : &order_.at(slot - 1);
   }
   bool contains(const K& k) const { return lookup(k) != kEmpty; }

   // Adds what is stored for a key the table does not hold.
   Stored& append(const K& k, Stored stored) {
      if (order_.wantsCompaction()) compact();
      const size_t cells = order_.cellCount();
      // Sized for every cell, live or not, so one rebuild covers the next
      // cellCount() insertions.
      const bool indexed = !index_.empty() || cells + 1 > kSmallEntries;
      if (indexed && (cells + 1 + holesInIndex_) * 2 > index_.size()) rebuildIndex(indexSizeFor(cells + 1));
      if (cells >= kMaxEntries) throw std::length_error("Kiv::HashMap: too many entries");
      const size_t pos = order_.append(std::move(stored));
      if (indexed) place(k, static_cast<uint32_t>(pos + 1));
      return order_.at(pos);
   }

   // release(stored) lets go of what the dead cell still holds.
   template <class Release>
   bool erase(const K& k, Release release) {
      const Found found = probe(k);
      if (found.slot == kEmpty) return false;
      if (found.at != kNotIndexed) {
         index_[found.at] = kHole;
         ++holesInIndex_;
      }
      release(order_.at(found.slot - 1));
      if (order_.remove(found.slot - 1)) clearIndex();
      return true;
   }

   void clear() {
      order_.clear();
      clearIndex();
   }

   // Oldest live entry, for FIFO draining.
   Stored* front() { return order_.front(); }

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
   // an indexed table, the index word that points at it.
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
         if (word != kHole && (word & ~kPositionMask) == tag && KeyOf{}(order_.at(slot - 1)) == k)
            return {i, slot};
      }
   }

   uint32_t lookup(const K& k) const { return probe(k).slot; }

   uint32_t scan(const K& k) const {
      for (size_t i = order_.headPosition(); i < order_.cellCount(); ++i) {
         if (order_.isLive(i) && KeyOf{}(order_.at(i)) == k) return static_cast<uint32_t>(i + 1);
      }
      return kEmpty;
   }

   void place(const K& k, uint32_t slot) {
      const size_t h = H{}(k);
      size_t mask = index_.size() - 1;
      size_t i = h & mask;
      while (index_[i] != kEmpty) i = (i + 1) & mask;
      index_[i] = slot | tagOf(h);
   }

   void compact() {
      order_.compact([](const Stored&, size_t) {});
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
         if (order_.isLive(i)) place(KeyOf{}(order_.at(i)), static_cast<uint32_t>(i + 1));
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

template <class K, class V, class H = Hash<K>>
class HashMap {
 public:
   struct Entry {
      K first;
      V second;
   };

 private:
   struct KeyOfEntry {
      const K& operator()(const Entry& e) const { return e.first; }
   };
   using Table = HashTable<Entry, K, KeyOfEntry, H>;

 public:
   using iterator = typename Table::iterator;
   using const_iterator = typename Table::const_iterator;

   iterator begin() { return table_.begin(); }
   iterator end() { return table_.end(); }
   const_iterator begin() const { return table_.begin(); }
   const_iterator end() const { return table_.end(); }

   size_t size() const noexcept { return table_.size(); }
   bool empty() const noexcept { return table_.empty(); }

   V* find(const K& k) {
      Entry* entry = table_.find(k);
      return entry ? &entry->second : nullptr;
   }
   const V* find(const K& k) const { return const_cast<HashMap*>(this)->find(k); }
   bool contains(const K& k) const { return table_.contains(k); }

   // Inserts or overwrites; returns the stored value and whether it was new.
   std::pair<V*, bool> insert(const K& k, V v) {
      if (V* existing = find(k)) {
         *existing = std::move(v);
         return {existing, false};
      }
      return {&table_.append(k, Entry{k, std::move(v)}).second, true};
   }

   V& operator[](const K& k) {
      if (V* existing = find(k)) return *existing;
      return table_.append(k, Entry{k, V{}}).second;
   }

   bool erase(const K& k) {
      return table_.erase(k, [](Entry& e) { e.second = V{}; });
   }

   void clear() { table_.clear(); }

   // Oldest live entry, for FIFO draining.
   Entry* front() { return table_.front(); }

   void reserve(size_t n) { table_.reserve(n); }

 private:
   Table table_;
};

template <class K, class H = Hash<K>>
class HashSet {
   struct KeyItself {
      const K& operator()(const K& k) const { return k; }
   };
   using Table = HashTable<K, K, KeyItself, H>;

 public:
   using const_iterator = typename Table::const_iterator;

   const_iterator begin() const { return table_.begin(); }
   const_iterator end() const { return table_.end(); }
   size_t size() const noexcept { return table_.size(); }
   bool empty() const noexcept { return table_.empty(); }
   bool contains(const K& k) const { return table_.contains(k); }
   bool insert(const K& k) {
      if (table_.contains(k)) return false;
      table_.append(k, k);
      return true;
   }
   bool erase(const K& k) {
      return table_.erase(k, [](K&) {});
   }
   void clear() { table_.clear(); }
   const K* front() { return table_.front(); }
   void reserve(size_t n) { table_.reserve(n); }

 private:
   Table table_;
};

}  // namespace Kiv
