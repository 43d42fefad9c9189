#pragma once
// An insertion-ordered set of densely numbered keys, for the sets that hold
// up to every route at once: the review, publication and notification queues.
// It keeps Kiv::HashSet's contract (iteration in insertion order, front() for
// first-in first-out draining, erasing during iteration safe, inserting during
// iteration not) with a Kiv::DirectMap from key to position in place of the
// hash index, so a membership test is one array load.
//
// Kiv::KeySet<K> is a DenseSet for densely numbered keys and a Kiv::HashSet
// for any other key.

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <type_traits>
#include <vector>

#include "kiv/DirectMap.h"
#include "kiv/HashMap.h"

namespace Kiv {

template <class K>
class DenseSet {
   struct Cell {
      K key;
      bool live;
   };
   // Erased keys leave dead cells behind; they are squeezed out once they
   // outnumber the live ones.
   static constexpr size_t kCompactFrom = 16;
   static constexpr size_t kKeptCapacity = 4096;

 public:
   class const_iterator {
    public:
      using iterator_category = std::forward_iterator_tag;
      using difference_type = std::ptrdiff_t;
      using value_type = K;
      using pointer = const K*;
      using reference = const K&;
      const_iterator() = default;
      const_iterator(const DenseSet* set, size_t pos) : set_(set), pos_(pos) { skipDead(); }
      const K& operator*() const { return set_->cells_[pos_].key; }
      const_iterator& operator++() {
         ++pos_;
         skipDead();
         return *this;
      }
      // Erasing the last key clears the set, so an iterator that was in it
      // is at the end whatever position end() was taken at.
      bool operator==(const const_iterator& o) const {
         return pos_ == o.pos_ || (atEnd() && o.atEnd());
      }

    private:
      bool atEnd() const { return !set_ || pos_ >= set_->cells_.size(); }
      void skipDead() {
         while (set_ && pos_ < set_->cells_.size() && !set_->cells_[pos_].live) ++pos_;
      }
      const DenseSet* set_ = nullptr;
      size_t pos_ = 0;
   };

   const_iterator begin() const { return const_iterator(this, head_); }
   const_iterator end() const { return const_iterator(this, cells_.size()); }
   size_t size() const noexcept { return live_; }
   bool empty() const noexcept { return live_ == 0; }
   bool contains(const K& k) const { return positions_.contains(k); }

   bool insert(const K& k) {
      if (positions_.contains(k)) return false;
      if (cells_.size() >= kCompactFrom && cells_.size() > 2 * live_) compact();
      positions_.insert(k, static_cast<uint32_t>(cells_.size()));
      cells_.push_back(Cell{k, true});
      ++live_;
      return true;
   }

   bool erase(const K& k) {
      const uint32_t* at = positions_.find(k);
      if (!at) return false;
      const size_t pos = *at;
      positions_.erase(k);
      cells_[pos].live = false;
      if (--live_ == 0) {
         clear();
      } else if (pos == head_) {
         while (!cells_[head_].live) ++head_;
      }
      return true;
   }

   // A set drained after a burst gives its memory back; a small one keeps
   // its cells for the next burst.
   void clear() {
      if (cells_.capacity() > kKeptCapacity) {
         std::vector<Cell>().swap(cells_);
      } else {
         cells_.clear();
      }
      positions_.clear();
      live_ = 0;
      head_ = 0;
   }

   // Oldest key, for FIFO draining.
   const K* front() const { return live_ ? &cells_[head_].key : nullptr; }

 private:
   void compact() {
      size_t out = 0;
      for (size_t in = head_; in < cells_.size(); ++in) {
         if (!cells_[in].live) continue;
         cells_[out] = cells_[in];
         *positions_.find(cells_[out].key) = static_cast<uint32_t>(out);
         ++out;
      }
      cells_.resize(out);
      head_ = 0;
   }

   std::vector<Cell> cells_;
   DirectMap<K, uint32_t> positions_;
   size_t live_ = 0;
   size_t head_ = 0;
};

template <class K>
using KeySet = std::conditional_t<DenselyNumbered<K>, DenseSet<K>, HashSet<K>>;

}  // namespace Kiv
