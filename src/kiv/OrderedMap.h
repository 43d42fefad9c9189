#pragma once
// Ordered collections with the same interface as HashMap/HashSet, for keys
// whose natural order should show (adjacency indexes, table dumps).

#include <map>
#include <set>
#include <utility>

namespace Kiv {

template <class K, class V>
class OrderedMap {
   using Map = std::map<K, V>;

 public:
   using iterator = typename Map::iterator;
   using const_iterator = typename Map::const_iterator;
   iterator begin() { return map_.begin(); }
   iterator end() { return map_.end(); }
   const_iterator begin() const { return map_.begin(); }
   const_iterator end() const { return map_.end(); }

   size_t size() const noexcept { return map_.size(); }
   bool empty() const noexcept { return map_.empty(); }
   V* find(const K& k) {
      auto it = map_.find(k);
      return it == map_.end() ? nullptr : &it->second;
   }
   const V* find(const K& k) const { return const_cast<OrderedMap*>(this)->find(k); }
   bool contains(const K& k) const { return map_.contains(k); }
   std::pair<V*, bool> insert(const K& k, V v) {
      auto [it, added] = map_.insert_or_assign(k, std::move(v));
      return {&it->second, added};
   }
   V& operator[](const K& k) { return map_[k]; }
   bool erase(const K& k) { return map_.erase(k) != 0; }
   void clear() { map_.clear(); }
   auto* front() { return map_.empty() ? nullptr : &*map_.begin(); }
   // Entries at or after `from`, for walks that resume at a bookmark.
   iterator lowerBound(const K& from) { return map_.lower_bound(from); }

 private:
   Map map_;
};

template <class K>
class OrderedSet {
   using Set = std::set<K>;

 public:
   using const_iterator = typename Set::const_iterator;
   const_iterator begin() const { return set_.begin(); }
   const_iterator end() const { return set_.end(); }
   size_t size() const noexcept { return set_.size(); }
   bool empty() const noexcept { return set_.empty(); }
   bool contains(const K& k) const { return set_.contains(k); }
   bool insert(const K& k) { return set_.insert(k).second; }
   bool erase(const K& k) { return set_.erase(k) != 0; }
   void clear() { set_.clear(); }
   const K* front() const { return set_.empty() ? nullptr : &*set_.begin(); }
   const_iterator lowerBound(const K& from) const { return set_.lower_bound(from); }

 private:
   Set set_;
};

}  // namespace Kiv
