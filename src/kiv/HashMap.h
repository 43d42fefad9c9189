#pragma once
// Insertion-ordered open-addressing hash map.
//
// Entries live densely in insertion order; a separate index of 32-bit words
// finds them. Iteration order is therefore the order of insertion, the same for
// the same sequence of operations in every process (no hash seed shows), and
// front()/popFront() give FIFO draining for the review sets. Erasing leaves a
// hole that is skipped; holes are compacted away on a later insertion, so
// erasing during iteration is safe and inserting during iteration is not.
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
   struct Cell {
      Entry entry;
      bool live;
   };
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
   static constexpr size_t kKeptCapacity = 4096;

 public:
   template <bool Const>
   class Iter {
      using Map = std::conditional_t<Const, const HashMap, HashMap>;

    public:
      using iterator_category = std::forward_iterator_tag;
      using difference_type = std::ptrdiff_t;
      using value_type = Entry;
      using pointer = std::conditional_t<Const, const Entry*, Entry*>;
      using reference = std::conditional_t<Const, const Entry&, Entry&>;
      Iter(Map* m, size_t pos) : m_(m), pos_(pos) {
         if (m_) skip();
      }
      reference operator*() const { return m_->cells_[pos_].entry; }
      auto* operator->() const { return &m_->cells_[pos_].entry; }
      Iter& operator++() {
         ++pos_;
         skip();
         return *this;
      }
      // Erasing the last live entry clears the map, so an iterator that was
      // in it is at the end whatever position end() was taken at.
      bool operator==(const Iter& o) const { return pos_ == o.pos_ || (atEnd() && o.atEnd()); }

    private:
      bool atEnd() const { return !m_ || pos_ >= m_->cells_.size(); }
      void skip() {
         while (pos_ < m_->cells_.size() && !m_->cells_[pos_].live) ++pos_;
      }
      Map* m_;
      size_t pos_;
   };
   using iterator = Iter<false>;
   using const_iterator = Iter<true>;

   iterator begin() { return iterator(this, head_); }
   iterator end() { return iterator(this, cells_.size()); }
   const_iterator begin() const { return const_iterator(this, head_); }
   const_iterator end() const { return const_iterator(this, cells_.size()); }

   size_t size() const noexcept { return live_; }
   bool empty() const noexcept { return live_ == 0; }

   V* find(const K& k) {
      uint32_t pos = lookup(k);
      return pos == kEmpty ? nullptr : &cells_[pos - 1].entry.second;
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
      Cell& c = cells_[found.slot - 1];
      c.live = false;
      c.entry.second = V{};
      --live_;
      if (live_ == 0) {
         clear();
      } else if (found.slot - 1 == head_) {
         advanceHead();
      }
      return true;
   }

   // A set drained after a burst (a million routes reviewed at start-up)
   // gives its memory back; a small one keeps it for the next burst.
   void clear() {
      if (cells_.capacity() > kKeptCapacity) {
         std::vector<Cell>().swap(cells_);
         std::vector<uint32_t>().swap(index_);
      } else {
         cells_.clear();
         index_.clear();
      }
      live_ = 0;
      head_ = 0;
      holesInIndex_ = 0;
   }

   // Oldest live entry, for FIFO draining.
   Entry* front() { return live_ ? &cells_[head_].entry : nullptr; }

   void reserve(size_t n) {
      cells_.reserve(n);
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
         if (word != kHole && (word & ~kPositionMask) == tag && cells_[slot - 1].entry.first == k)
            return {i, slot};
      }
   }

   uint32_t lookup(const K& k) const { return probe(k).slot; }

   uint32_t scan(const K& k) const {
      for (size_t i = head_; i < cells_.size(); ++i) {
         if (cells_[i].live && cells_[i].entry.first == k) return static_cast<uint32_t>(i + 1);
      }
      return kEmpty;
   }

   V& append(const K& k, V v) {
      if (cells_.size() >= kSmallEntries && cells_.size() > 2 * live_) compact();
      // Sized for every cell, live or not, so one rebuild covers the next
      // cells.size() insertions.
      const bool indexed = !index_.empty() || cells_.size() + 1 > kSmallEntries;
      if (indexed && (cells_.size() + 1 + holesInIndex_) * 2 > index_.size())
         rebuildIndex(indexSizeFor(cells_.size() + 1));
      if (cells_.size() >= kMaxEntries) throw std::length_error("Kiv::HashMap: too many entries");
      cells_.push_back(Cell{Entry{k, std::move(v)}, true});
      ++live_;
      if (indexed) place(k, static_cast<uint32_t>(cells_.size()));
      return cells_.back().entry.second;
   }

   void place(const K& k, uint32_t slot) {
      const size_t h = H{}(k);
      size_t mask = index_.size() - 1;
      size_t i = h & mask;
      while (index_[i] != kEmpty) i = (i + 1) & mask;
      index_[i] = slot | tagOf(h);
   }

   void compact() {
      size_t out = 0;
      for (size_t in = 0; in < cells_.size(); ++in) {
         if (!cells_[in].live) continue;
         if (out != in) cells_[out] = std::move(cells_[in]);
         ++out;
      }
      cells_.resize(out);
      head_ = 0;
      if (live_ + 1 > kSmallEntries) {
         rebuildIndex(indexSizeFor(live_ + 1));
      } else {
         index_.clear();
         holesInIndex_ = 0;
      }
   }

   void rebuildIndex(size_t size) {
      index_.assign(size, kEmpty);
      holesInIndex_ = 0;
      for (size_t i = 0; i < cells_.size(); ++i)
         if (cells_[i].live) place(cells_[i].entry.first, static_cast<uint32_t>(i + 1));
   }

   void advanceHead() {
      while (head_ < cells_.size() && !cells_[head_].live) ++head_;
   }

   std::vector<Cell> cells_;
   std::vector<uint32_t> index_;
   size_t live_ = 0;
   size_t head_ = 0;
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
      typename Map::const_iterator it_{nullptr, 0};
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
