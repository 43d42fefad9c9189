#pragma once
// The storage under the insertion-ordered containers (Kiv::HashMap,
// Kiv::DenseSet): values kept densely in the order they arrived, whatever
// index finds them. Iteration order is therefore the order of insertion, the
// same for the same operations in every process, and front() gives first-in
// first-out draining for the review sets.
//
// Removing a value leaves a dead cell that iteration skips, so removing during
// iteration is safe and appending is not. Dead cells are squeezed out by
// compact(), which the owner calls before an append once they outnumber the
// live ones, and which reports every value's new position so the owner's index
// can follow.

#include <cstddef>
#include <iterator>
#include <type_traits>
#include <utility>
#include <vector>

namespace Kiv {

template <class T>
class InsertionOrder {
   struct Cell {
      T value;
      bool live;
   };
   // Below this many cells compaction is not worth a pass.
   static constexpr size_t kCompactFrom = 16;
   // A container drained after a burst (a million routes reviewed at
   // start-up) gives its memory back; a small one keeps it for the next burst.
   static constexpr size_t kKeptCapacity = 4096;

 public:
   template <bool Const>
   class Iter {
      using Order = std::conditional_t<Const, const InsertionOrder, InsertionOrder>;

    public:
      using iterator_category = std::forward_iterator_tag;
      using difference_type = std::ptrdiff_t;
      using value_type = T;
      using pointer = std::conditional_t<Const, const T*, T*>;
      using reference = std::conditional_t<Const, const T&, T&>;
      Iter() = default;
      Iter(Order* order, size_t pos) : order_(order), pos_(pos) { skipDead(); }
      reference operator*() const { return order_->cells_[pos_].value; }
      pointer operator->() const { return &order_->cells_[pos_].value; }
      Iter& operator++() {
         ++pos_;
         skipDead();
         return *this;
      }
      // Removing the last live value clears the cells, so an iterator that
      // was in them is at the end whatever position end() was taken at.
      bool operator==(const Iter& o) const { return pos_ == o.pos_ || (atEnd() && o.atEnd()); }

    private:
      bool atEnd() const { return !order_ || pos_ >= order_->cells_.size(); }
      void skipDead() {
         while (order_ && pos_ < order_->cells_.size() && !order_->cells_[pos_].live) ++pos_;
      }
      Order* order_ = nullptr;
      size_t pos_ = 0;
   };
   using iterator = Iter<false>;
   using const_iterator = Iter<true>;

   iterator begin() { return iterator(this, head_); }
   iterator end() { return iterator(this, cells_.size()); }
   const_iterator begin() const { return const_iterator(this, head_); }
   const_iterator end() const { return const_iterator(this, cells_.size()); }

   size_t live() const noexcept { return live_; }
   // Cells ever appended since the last compaction, dead ones included.
   size_t cellCount() const noexcept { return cells_.size(); }
   bool isLive(size_t pos) const { return cells_[pos].live; }
   T& at(size_t pos) { return cells_[pos].value; }
   const T& at(size_t pos) const { return cells_[pos].value; }
   size_t headPosition() const noexcept { return head_; }

   // Oldest live value.
   T* front() { return live_ ? &cells_[head_].value : nullptr; }
   const T* front() const { return live_ ? &cells_[head_].value : nullptr; }

   // Appends and returns the new value's position.
   size_t append(T value) {
      cells_.push_back(Cell{std::move(value), true});
      ++live_;
      return cells_.size() - 1;
   }

   // Marks the value at pos dead; returns whether none is left, in which
   // case the cells are cleared and the owner should clear its index too.
   bool remove(size_t pos) {
      cells_[pos].live = false;
      if (--live_ == 0) {
         clear();
         return true;
      }
      if (pos == head_) {
         while (!cells_[head_].live) ++head_;
      }
      return false;
   }

   bool wantsCompaction() const { return cells_.size() >= kCompactFrom && cells_.size() > 2 * live_; }

   // Squeezes out dead cells, calling moved(value, newPosition) for every
   // live value in order.
   template <class Moved>
   void compact(Moved moved) {
      size_t out = 0;
      for (size_t in = head_; in < cells_.size(); ++in) {
         if (!cells_[in].live) continue;
         if (out != in) cells_[out] = std::move(cells_[in]);
         moved(std::as_const(cells_[out].value), out);
         ++out;
      }
      cells_.resize(out);
      head_ = 0;
   }

   void clear() {
      if (cells_.capacity() > kKeptCapacity) {
         std::vector<Cell>().swap(cells_);
      } else {
         cells_.clear();
      }
      live_ = 0;
      head_ = 0;
   }

   void reserve(size_t n) { cells_.reserve(n); }

 private:
   std::vector<Cell> cells_;
   size_t live_ = 0;
   size_t head_ = 0;
};

}  // namespace Kiv
