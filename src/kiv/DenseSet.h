#pragma once
// An insertion-ordered set of densely numbered keys, for the sets that hold
// up to every route at once: the review, publication and notification queues.
// It is Kiv::HashSet's storage (a Kiv::InsertionOrder, with its iteration
// order, first-in first-out draining and safe erasing during iteration) with
// a Kiv::DirectMap from key to position in place of the hash index, so a
// membership test is one array load.
//
// Kiv::KeySet<K> is a DenseSet for densely numbered keys and a Kiv::HashSet
// for any other key.

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "kiv/DirectMap.h"
#include "kiv/HashMap.h"
#include "kiv/InsertionOrder.h"

namespace Kiv {

template <class K>
class DenseSet {
 public:
   using const_iterator = typename InsertionOrder<K>::const_iterator;

   const_iterator begin() const { return order_.begin(); }
   const_iterator end() const { return order_.end(); }
   size_t size() const noexcept { return order_.live(); }
   bool empty() const noexcept { return order_.live() == 0; }
   bool contains(const K& k) const { return positions_.contains(k); }

   // A route passes through these sets at every review, publication and
   // delivery: each insertion and erasure looks its key up once.
   bool insert(const K& k) {
      const auto [position, inserted] = positions_.findOrInsert(k);
      if (!inserted) return false;
      // Compaction only rewrites the positions of keys already in the order,
      // so the new key's place in the map stays where it is.
      if (order_.wantsCompaction()) compact();
      *position = static_cast<uint32_t>(order_.append(k));
      return true;
   }

   bool erase(const K& k) {
      uint32_t pos = 0;
      if (!positions_.take(k, pos)) return false;
      if (order_.remove(pos)) positions_.clear();
      return true;
   }

   void clear() {
      order_.clear();
      positions_.clear();
   }

   // Oldest key, for FIFO draining.
   const K* front() const { return order_.front(); }

 private:
   void compact() {
      order_.compact([this](const K& k, size_t pos) { *positions_.find(k) = static_cast<uint32_t>(pos); });
   }

   InsertionOrder<K> order_;
   DirectMap<K, uint32_t> positions_;
};

template <class K>
using KeySet = std::conditional_t<DenselyNumbered<K>, DenseSet<K>, HashSet<K>>;

}  // namespace Kiv
