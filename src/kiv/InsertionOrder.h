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
// can follow. Which cells are live is a bitmap beside the values, so a cell
// costs only its value: a route key's 8 bytes where a flag beside it made 12.

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <type_traits>
#include <utility>
#include <vector>

namespace Kiv {

template <class T>
class InsertionOrder {
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
      reference operator*() const { return order_->values_[pos_]; }
      pointer operator->() const { return &order_->values_[pos_]; }
      Iter& operator++() {
         ++pos_;
         skipDead();
         return *this;
      }
      // Removing the last live value clears the cells, so an iterator that
      // was in them is at the end whatever position end() was taken at.
      bool operator==(const Iter& o) const { return pos_ == o.pos_ || (atEnd() && o.atEnd()); }

    private:
      bool atEnd() const { return !order_ || pos_ >= order_->values_.size(); }
      void skipDead() {
         while (order_ && pos_ < order_->values_.size() && !order_->isLive(pos_)) ++pos_;
      }
      Order* order_ = nullptr;
      size_t pos_ = 0;
   };
   using iterator = Iter<false>;
   using const_iterator = Iter<true>;

   iterator begin() { return iterator(this, head_); }
   iterator end() { return iterator(this, values_.size()); }
   const_iterator begin() const { return const_iterator(this, head_); }
   const_iterator end() const { return const_iterator(this, values_.size()); }

   size_t live() const noexcept { return live_; }
   // Cells ever appended since the last compaction, dead ones included.
   size_t cellCount() const noexcept { return values_.size(); }
   bool isLive(size_t pos) const { return (liveBits_[pos / 64] >> (pos % 64) & 1) != 0; }
   T& at(size_t pos) { return values_[pos]; }
   const T& at(size_t pos) const { return values_[pos]; }
   size_t headPosition() const noexcept { return head_; }

   // Oldest live value.
   T* front() { return live_ ? &values_[head_] : nullptr; }
   const T* front() const { return live_ ? &values_[head_] : nullptr; }

   // Appends and returns the new value's position.
   size_t append(T value) {
      const size_t pos = values_.size();
      // Most sets are small (an adjacency's ten routes): they grow four
      // cells at a time, so ten take twelve rather than sixteen.
      if (pos == values_.capacity()) values_.reserve(pos < kCompactFrom ? pos + 4 : pos * 2);
      values_.push_back(std::move(value));
      if (pos % 64 == 0) liveBits_.push_back(0);
      liveBits_[pos / 64] |= uint64_t{1} << (pos % 64);
      ++live_;
      return pos;
   }

   // Marks the value at pos dead; returns whether none is left, in which
   // case the cells are cleared and the owner should clear its index too.
   bool remove(size_t pos) {
      liveBits_[pos / 64] &= ~(uint64_t{1} << (pos % 64));
      if (--live_ == 0) {
         clear();
         return true;
      }
      if (pos == head_) {
         while (!isLive(head_)) ++head_;
      }
      return false;
   }

   bool wantsCompaction() const { return values_.size() >= kCompactFrom && values_.size() > 2 * live_; }

   // Squeezes out dead cells, calling moved(value, newPosition) for every
   // live value in order.
   template <class Moved>
   void compact(Moved moved) {
      size_t out = 0;
      for (size_t in = head_; in < values_.size(); ++in) {
         if (!isLive(in)) continue;
         if (out != in) values_[out] = std::move(values_[in]);
         moved(std::as_const(values_[out]), out);
         ++out;
      }
      values_.erase(values_.begin() + static_cast<std::ptrdiff_t>(out), values_.end());
      liveBits_.assign((out + 63) / 64, ~uint64_t{0});
      if (out % 64 != 0) liveBits_.back() = (uint64_t{1} << (out % 64)) - 1;
      head_ = 0;
   }

   void clear() {
      if (values_.capacity() > kKeptCapacity) {
         std::vector<T>().swap(values_);
         std::vector<uint64_t>().swap(liveBits_);
      } else {
         values_.clear();
         liveBits_.clear();
      }
      live_ = 0;
      head_ = 0;
   }

   void reserve(size_t n) {
      values_.reserve(n);
      liveBits_.reserve((n + 63) / 64);
   }

 private:
   std::vector<T> values_;
   std::vector<uint64_t> liveBits_;
   size_t live_ = 0;
   size_t head_ = 0;
};

}  // namespace Kiv
