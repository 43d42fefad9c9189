#pragma once
// A set of numbered keys (adjacency indexes) that iterates and drains in key
// order, as an ordered set does, with the membership test of an array: the
// review queues of adjacencies are asked for every route whether its
// adjacency is queued, and a tree walk per route cost more than the review.
//
// Keys live as presence bits in a Kiv::DirectMap, so a set costs a page per
// 1024 numbers in use: it suits the few sets that may hold most of a process's
// adjacencies, not one per object. front() is the lowest key; it finds it from
// a bound that only an insertion below it lowers, so draining a set in order
// costs O(1) amortised per key. Keys without a number follow the numbered ones.

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "kiv/DenseKey.h"
#include "kiv/DirectMap.h"
#include "kiv/HashMap.h"

namespace Kiv {

template <class K, class Numbering = DenseKey<K>>
class NumberedSet {
   using Map = DirectMap<K, Unit, Numbering>;

 public:
   class const_iterator {
    public:
      using iterator_category = std::input_iterator_tag;
      using difference_type = std::ptrdiff_t;
      using value_type = K;
      using reference = K;
      explicit const_iterator(typename Map::const_iterator it) : it_(it) {}
      K operator*() const { return (*it_).first; }
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

   bool insert(const K& k) {
      if (!map_.insert(k, Unit{}).second) return false;
      const uint32_t n = Numbering::numberOf(k);
      if (n < lowest_) lowest_ = n;
      return true;
   }

   bool erase(const K& k) { return map_.erase(k); }

   void clear() {
      map_.clear();
      lowest_ = 0;
   }

   // Lowest key; valid until the set next changes.
   const K* front() {
      auto first = map_.lowerBound(lowest_);
      if (first == map_.end()) return nullptr;
      front_ = (*first).first;
      const uint32_t n = Numbering::numberOf(front_);
      if (n != kNotNumbered) lowest_ = n;
      return &front_;
   }

 private:
   Map map_;
   // No key numbered below this is in the set.
   uint32_t lowest_ = 0;
   K front_{};
};

}  // namespace Kiv
