#pragma once
// A map over densely numbered keys (Kiv::DenseKey): each value sits at its
// key's number, in pages of 1024 numbers that are allocated when their first
// key arrives and freed when their last one leaves. A lookup is two dependent
// loads with no hashing, no probing and no stored key: at a million keys that
// is one cache miss where a hash map takes two or three, and sizeof(V) bytes
// per key where a hash map keeps the key, the value and index words. The price
// is a page per 1024 numbers in use, so it suits the few large tables of a
// process (one entry per route), not the many small sets of adjacencies.
//
// A key without a number goes to a hash map kept beside the pages.
//
// Kiv::KeyMap<K, V> is a DirectMap for densely numbered keys and a
// Kiv::HashMap for any other key; it offers what both have in common.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "kiv/DenseKey.h"
#include "kiv/HashMap.h"

namespace Kiv {

template <class K, class V>
class DirectMap {
   static_assert(DenselyNumbered<K>, "DirectMap needs a Kiv::DenseKey<K> specialisation");
   static constexpr unsigned kPageBits = 10;
   static constexpr uint32_t kPageNumbers = 1u << kPageBits;
   static constexpr uint32_t kInPage = kPageNumbers - 1;
   struct Page {
      std::array<V, kPageNumbers> values{};
      std::array<uint64_t, kPageNumbers / 64> present{};
      uint32_t used = 0;
   };

 public:
   size_t size() const noexcept { return size_; }
   bool empty() const noexcept { return size_ == 0; }

   V* find(const K& k) {
      const uint32_t n = DenseKey<K>::numberOf(k);
      if (n == kNotNumbered) return others_.find(k);
      Page* page = pageOf(n);
      if (!page || !isPresent(*page, n)) return nullptr;
      return &page->values[n & kInPage];
   }
   const V* find(const K& k) const { return const_cast<DirectMap*>(this)->find(k); }
   bool contains(const K& k) const { return find(k) != nullptr; }

   // Inserts or overwrites; returns the stored value and whether it was new.
   std::pair<V*, bool> insert(const K& k, V v) {
      const uint32_t n = DenseKey<K>::numberOf(k);
      if (n == kNotNumbered) {
         auto inserted = others_.insert(k, std::move(v));
         size_ += inserted.second;
         return inserted;
      }
      Page& page = pageFor(n);
      V& value = page.values[n & kInPage];
      value = std::move(v);
      if (isPresent(page, n)) return {&value, false};
      presentWord(page, n) |= presentBit(n);
      ++page.used;
      ++size_;
      return {&value, true};
   }

   bool erase(const K& k) {
      const uint32_t n = DenseKey<K>::numberOf(k);
      if (n == kNotNumbered) {
         if (!others_.erase(k)) return false;
         --size_;
         return true;
      }
      Page* page = pageOf(n);
      if (!page || !isPresent(*page, n)) return false;
      presentWord(*page, n) &= ~presentBit(n);
      page->values[n & kInPage] = V{};
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

   Page* pageOf(uint32_t n) const {
      const size_t p = n >> kPageBits;
      return p < pages_.size() ? pages_[p].get() : nullptr;
   }

   Page& pageFor(uint32_t n) {
      const size_t p = n >> kPageBits;
      if (p >= pages_.size()) pages_.resize(p + 1);
      if (!pages_[p]) pages_[p] = std::make_unique<Page>();
      return *pages_[p];
   }

   std::vector<std::unique_ptr<Page>> pages_;
   HashMap<K, V> others_;
   size_t size_ = 0;
};

template <class K, class V>
using KeyMap = std::conditional_t<DenselyNumbered<K>, DirectMap<K, V>, HashMap<K, V>>;

}  // namespace Kiv
