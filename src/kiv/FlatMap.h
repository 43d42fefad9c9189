#pragma once
// An ordered map and set kept as one sorted array, for the small collections
// every adjacency carries (its two or three vias and next hops): one allocation where a tree
// takes one per entry plus its node headers, a cleared map keeps its capacity
// for the next fill, and lookups scan a cache line or two. Inserting or
// erasing moves the entries behind, so it is for a handful of entries, and
// any change during iteration ends it (clearing and then breaking out is
// fine). Same interfaces as Kiv::OrderedMap and Kiv::OrderedSet.

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace Kiv {

template <class K, class V>
class FlatMap {
   using Entry = std::pair<K, V>;
   using Entries = std::vector<Entry>;

 public:
   using iterator = typename Entries::iterator;
   using const_iterator = typename Entries::const_iterator;
   iterator begin() { return entries_.begin(); }
   iterator end() { return entries_.end(); }
   const_iterator begin() const { return entries_.begin(); }
   const_iterator end() const { return entries_.end(); }

   size_t size() const noexcept { return entries_.size(); }
   bool empty() const noexcept { return entries_.empty(); }

   V* find(const K& k) {
      auto it = lowerBound(k);
      return it != entries_.end() && it->first == k ? &it->second : nullptr;
   }
   const V* find(const K& k) const { return const_cast<FlatMap*>(this)->find(k); }
   bool contains(const K& k) const { return find(k) != nullptr; }

   // Inserts or overwrites; returns the stored value and whether it was new.
   std::pair<V*, bool> insert(const K& k, V v) {
      auto it = lowerBound(k);
      if (it != entries_.end() && it->first == k) {
         it->second = std::move(v);
         return {&it->second, false};
      }
      it = entries_.insert(it, Entry(k, std::move(v)));
      return {&it->second, true};
   }
   V& operator[](const K& k) {
      if (V* v = find(k)) return *v;
      return *insert(k, V{}).first;
   }
   bool erase(const K& k) {
      auto it = lowerBound(k);
      if (it == entries_.end() || !(it->first == k)) return false;
      entries_.erase(it);
      return true;
   }
   void clear() { entries_.clear(); }
   Entry* front() { return entries_.empty() ? nullptr : &entries_.front(); }
   // Entries at or after `from`.
   iterator lowerBound(const K& from) {
      return std::lower_bound(entries_.begin(), entries_.end(), from,
                              [](const Entry& e, const K& k) { return e.first < k; });
   }

 private:
   Entries entries_;
};

template <class K>
class FlatSet {
   using Keys = std::vector<K>;

 public:
   using const_iterator = typename Keys::const_iterator;
   const_iterator begin() const { return keys_.begin(); }
   const_iterator end() const { return keys_.end(); }
   size_t size() const noexcept { return keys_.size(); }
   bool empty() const noexcept { return keys_.empty(); }
   bool contains(const K& k) const {
      auto it = lowerBound(k);
      return it != keys_.end() && *it == k;
   }
   bool insert(const K& k) {
      auto it = lowerBound(k);
      if (it != keys_.end() && *it == k) return false;
      keys_.insert(it, k);
      return true;
   }
   bool erase(const K& k) {
      auto it = lowerBound(k);
      if (it == keys_.end() || !(*it == k)) return false;
      keys_.erase(it);
      return true;
   }
   void clear() { keys_.clear(); }
   const K* front() const { return keys_.empty() ? nullptr : &keys_.front(); }
   const_iterator lowerBound(const K& from) const { return std::lower_bound(keys_.begin(), keys_.end(), from); }

 private:
   Keys keys_;
};

}  // namespace Kiv
