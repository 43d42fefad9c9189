#pragma once
// A map over densely numbered keys (Kiv::DenseKey, or a numbering given as
// the third argument, such as Kiv::CountedIndex): each value sits at its
// key's number, in pages of 1024 numbers that are allocated when their first
// key arrives and freed when their last one leaves. A lookup is two dependent
// loads with no hashing, no probing and no stored key: at a million keys that
// is one cache miss where a hash map takes two or three, and sizeof(V) bytes
// per key where a hash map keeps the key, the value and index words. The price
// is a page per 1024 numbers in use, so it suits the few large tables of a
// process (one entry per route), not the many small sets of adjacencies.
//
// A key without a number goes to a hash map kept beside the pages.
// Iteration goes by key number, then through the keys without one; erasing
// during iteration is safe, inserting is not.
//
// Kiv::KeyMap<K, V> is a DirectMap for densely numbered keys and a
// Kiv::HashMap for any other key; it offers what both have in common.

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "kiv/DenseKey.h"
#include "kiv/HashMap.h"

namespace Kiv {

template <class K, class V, class Numbering = DenseKey<K>>
class DirectMap {
   static_assert(NumberingOf<Numbering, K>, "DirectMap needs a numbering of its keys");
   static constexpr unsigned kPageBits = 10;
   using Others = HashMap<K, V>;
   static constexpr uint32_t kPageNumbers = 1u << kPageBits;
   static constexpr uint32_t kInPage = kPageNumbers - 1;
   struct Page {
      std::array<V, kPageNumbers> values{};
      std::array<uint64_t, kPageNumbers / 64> present{};
      uint32_t used = 0;
   };

 public:
   using Entry = std::pair<K, const V&>;

   class const_iterator {
    public:
      using iterator_category = std::input_iterator_tag;
      using difference_type = std::ptrdiff_t;
      using value_type = Entry;
      using reference = Entry;
      const_iterator(const DirectMap* map, uint32_t number, typename Others::const_iterator other)
          : map_(map), number_(number), other_(other) {
         number_ = map_->presentFrom(number_);
      }
      Entry operator*() const {
         if (number_ == kNotNumbered) return Entry(other_->first, other_->second);
         return Entry(Numbering::keyOf(number_), map_->pageOf(number_)->values[number_ & kInPage]);
      }
      const_iterator& operator++() {
         if (number_ == kNotNumbered) {
            ++other_;
         } else {
            number_ = map_->presentFrom(number_ + 1);
         }
         return *this;
      }
      bool operator==(const const_iterator& o) const {
         return number_ == o.number_ && other_ == o.other_;
      }

    private:
      const DirectMap* map_;
      uint32_t number_;
      typename Others::const_iterator other_;
   };

   const_iterator begin() const { return const_iterator(this, 0, others_.begin()); }
   const_iterator end() const { return const_iterator(this, kNotNumbered, others_.end()); }
   // The first key numbered n or above, then those without a number.
   const_iterator lowerBound(uint32_t n) const { return const_iterator(this, n, others_.begin()); }

   size_t size() const noexcept { return size_; }
   bool empty() const noexcept { return size_ == 0; }

   V* find(const K& k) {
      const uint32_t n = Numbering::numberOf(k);
      if (n == kNotNumbered) return others_.find(k);
      Page* page = pageOf(n);
      if (!page || !isPresent(*page, n)) return nullptr;
      return &page->values[n & kInPage];
   }
   const V* find(const K& k) const { return const_cast<DirectMap*>(this)->find(k); }
   bool contains(const K& k) const { return find(k) != nullptr; }

   // Inserts or overwrites; returns the stored value and whether it was new.
   std::pair<V*, bool> insert(const K& k, V v) {
      auto stored = findOrInsert(k);
      *stored.first = std::move(v);
      return stored;
   }

   // The value stored for k, value-initialised first if k was absent; and
   // whether it was. One numbering and one page lookup where a test and an
   // insertion would take two.
   std::pair<V*, bool> findOrInsert(const K& k) {
      const uint32_t n = Numbering::numberOf(k);
      if (n == kNotNumbered) {
         if (V* existing = others_.find(k)) return {existing, false};
         ++size_;
         return others_.insert(k, V{});
      }
      Page& page = pageFor(n);
      V& value = page.values[n & kInPage];
      if (isPresent(page, n)) return {&value, false};
      presentWord(page, n) |= presentBit(n);
      ++page.used;
      ++size_;
      return {&value, true};
   }

   bool erase(const K& k) {
      V ignored;
      return take(k, ignored);
   }

   // Erases k and moves its value into `taken`; false (and `taken` as it
   // was) when k is absent.
   bool take(const K& k, V& taken) {
      const uint32_t n = Numbering::numberOf(k);
      if (n == kNotNumbered) {
         V* other = others_.find(k);
         if (!other) return false;
         taken = std::move(*other);
         others_.erase(k);
         --size_;
         return true;
      }
      Page* page = pageOf(n);
      if (!page || !isPresent(*page, n)) return false;
      presentWord(*page, n) &= ~presentBit(n);
      taken = std::exchange(page->values[n & kInPage], V{});
      --size_;
      if (--page->used == 0) pages_[n >> kPageBits].reset();
      return true;
   }

   void clear() {
      std::vector<std::unique_ptr<Page>>().swap(pages_);
      others_.clear();
      size_ = 0;
   }

 private:
   static uint64_t presentBit(uint32_t n) { return uint64_t{1} << (n % 64); }
   static uint64_t& presentWord(Page& page, uint32_t n) { return page.present[(n & kInPage) / 64]; }
   static bool isPresent(Page& page, uint32_t n) { return (presentWord(page, n) & presentBit(n)) != 0; }

   // The first number from n on that holds a key, kNotNumbered past the last.
   uint32_t presentFrom(uint32_t n) const {
      for (size_t p = n >> kPageBits; p < pages_.size(); ++p, n = 0) {
         const Page* page = pages_[p].get();
         if (!page) continue;
         for (uint32_t word = (n & kInPage) / 64; word < page->present.size(); ++word) {
            uint64_t bits = page->present[word];
            if (word == (n & kInPage) / 64) bits &= ~uint64_t{0} << (n % 64);
            if (bits) return static_cast<uint32_t>(p * kPageNumbers + word * 64 + std::countr_zero(bits));
         }
      }
      return kNotNumbered;
   }

   Page* pageOf(uint32_t n) const {
      const size_t p = n >> kPageBits;
      return p < pages_.size() ? pages_[p].get() : nullptr;
   }

   // Inlined where a key is inserted; only a page's first key takes the
   // allocation out of line.
   Page& pageFor(uint32_t n) {
      const size_t p = n >> kPageBits;
      if (p < pages_.size() && pages_[p]) [[likely]] return *pages_[p];
      return newPage(p);
   }

   [[gnu::noinline]] Page& newPage(size_t p) {
      if (p >= pages_.size()) pages_.resize(p + 1);
      pages_[p] = std::make_unique<Page>();
      return *pages_[p];
   }

   std::vector<std::unique_ptr<Page>> pages_;
   Others others_;
   size_t size_ = 0;
};

template <class K, class V>
using KeyMap = std::conditional_t<DenselyNumbered<K>, DirectMap<K, V>, HashMap<K, V>>;

}  // namespace Kiv
