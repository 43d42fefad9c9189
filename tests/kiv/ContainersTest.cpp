#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <type_traits>
#include <utility>
#include <vector>

#include "NumberedTestKey.h"
#include "kiv/DenseKey.h"
#include "kiv/DenseSet.h"
#include "kiv/DirectMap.h"
#include "kiv/FlatMap.h"
#include "kiv/HashMap.h"
#include "kiv/NumberedSet.h"

// Containers checked against a plain model of what they promise: the same
// random operations go to both, and every answer must agree.
namespace {

using KivTest::Key;
using KivTest::kNumbered;

uint64_t numberOf(uint64_t k) { return k; }
uint64_t numberOf(Key k) { return k.value; }

// A set as a vector: in key order when Sorted, else in order of insertion
// (a key erased and inserted again goes last).
template <class K, bool Sorted>
struct ModelSet {
   std::vector<K> keys;
   bool contains(const K& k) const { return std::find(keys.begin(), keys.end(), k) != keys.end(); }
   bool insert(const K& k) {
      if (contains(k)) return false;
      if constexpr (Sorted) {
         keys.insert(std::lower_bound(keys.begin(), keys.end(), k), k);
      } else {
         keys.push_back(k);
      }
      return true;
   }
   bool erase(const K& k) { return std::erase(keys, k) == 1; }
};

// Random inserts, erases and drains of the front, of keys from key(rng, i):
// after each the set agrees with the model on the answer, the size,
// membership and the front, and at the end on the order of iteration.
template <bool Sorted, class Set, class KeyGen>
void expectSetAgreesWithModel(Set& set, int operations, KeyGen key) {
   using K = std::decay_t<decltype(key(std::declval<std::mt19937_64&>(), 0))>;
   ModelSet<K, Sorted> model;
   std::mt19937_64 rng(operations);
   for (int i = 0; i < operations; ++i) {
      const K k = key(rng, i);
      switch (rng() % 4) {
         case 0:
            ASSERT_EQ(set.erase(k), model.erase(k));
            break;
         case 1:
            if (!model.keys.empty()) {
               const K front = model.keys.front();
               ASSERT_TRUE(set.erase(front));
               model.erase(front);
            }
            break;
         default:
            ASSERT_EQ(set.insert(k), model.insert(k));
      }
      ASSERT_EQ(set.size(), model.keys.size());
      ASSERT_EQ(set.contains(k), model.contains(k));
      const K* front = set.front();
      ASSERT_EQ(front == nullptr, model.keys.empty());
      if (front) {
         ASSERT_EQ(*front, model.keys.front());
      }
   }
   EXPECT_EQ(std::vector<K>(set.begin(), set.end()), model.keys);
}

using Entries = std::vector<std::pair<uint64_t, uint64_t>>;

// In the map's order of iteration.
template <class Map>
Entries entriesOf(const Map& m) {
   Entries entries;
   for (const auto& [k, v] : m) entries.emplace_back(numberOf(k), v);
   return entries;
}

enum class Order { unchecked, sorted, insertion };

// The same for a map against std::map: erase, take (where the map has it:
// a value moved out, or `taken` left as it was), findOrInsert (where the map
// has it: an absent key starts value-initialised) and insert, each followed
// by a lookup and, for an ordered map, a look at its front. An overwrite
// keeps the key's place in the order of insertion.
template <Order order, class Map, class KeyGen>
void expectMapAgreesWithModel(Map& m, int operations, KeyGen key) {
   std::map<uint64_t, uint64_t> model;
   std::vector<uint64_t> inserted;
   std::mt19937_64 rng(operations);
   for (int i = 0; i < operations; ++i) {
      const auto k = key(rng, i);
      const uint64_t n = numberOf(k);
      const auto at = model.find(n);
      const uint64_t had = at == model.end() ? 0 : at->second;
      // Two in five take a key out, three put one in.
      const unsigned op = rng() % 5;
      bool done = false;
      if constexpr (requires(uint64_t v) { m.take(k, v); }) {
         if (op == 1) {
            uint64_t taken = 99;
            EXPECT_EQ(m.take(k, taken), at != model.end());
            EXPECT_EQ(taken, at != model.end() ? had : 99u);
            model.erase(n);
            done = true;
         }
      }
      if (op < 2 && !done) {
         EXPECT_EQ(m.erase(k), model.erase(n) == 1);
         done = true;
      }
      if constexpr (requires { m.findOrInsert(k); }) {
         if (op == 2) {
            const auto [value, inserted] = m.findOrInsert(k);
            EXPECT_EQ(inserted, at == model.end());
            EXPECT_EQ(*value, had);
            *value = model[n] = static_cast<uint64_t>(i);
            done = true;
         }
      }
      if (!done) {
         const auto [value, added] = m.insert(k, static_cast<uint64_t>(i));
         EXPECT_EQ(added, at == model.end());
         EXPECT_EQ(*value, static_cast<uint64_t>(i));
         model[n] = static_cast<uint64_t>(i);
      }
      if (at == model.end() && model.contains(n)) inserted.push_back(n);
      if (!model.contains(n)) std::erase(inserted, n);
      const uint64_t* found = m.find(k);
      ASSERT_EQ(found != nullptr, model.contains(n)) << n;
      if (found) {
         ASSERT_EQ(*found, model[n]);
      }
      ASSERT_EQ(m.size(), model.size());
      if constexpr (order != Order::unchecked) {
         const auto* front = m.front();
         ASSERT_EQ(front == nullptr, model.empty());
         if (front) {
            ASSERT_EQ(numberOf(front->first),
                      order == Order::sorted ? model.begin()->first : inserted.front());
         }
      }
   }
   const Entries entries = entriesOf(m);
   EXPECT_EQ(entries.size(), model.size());
   EXPECT_EQ((std::map<uint64_t, uint64_t>(entries.begin(), entries.end())), model);
   if constexpr (order != Order::unchecked) {
      if (order == Order::sorted) std::ranges::sort(inserted);
      std::vector<uint64_t> keys;
      for (const auto& [k, v] : entries) keys.push_back(k);
      EXPECT_EQ(keys, inserted);
   }
}


static_assert(std::is_same_v<Kiv::KeyMap<Key, int>, Kiv::DirectMap<Key, int>>);
static_assert(std::is_same_v<Kiv::KeyMap<int, int>, Kiv::HashMap<int, int>>);
static_assert(std::is_same_v<Kiv::KeySet<Key>, Kiv::DenseSet<Key>>);

// Numbers spread over many pages, a tenth of the keys without a number.
Key randomKey(std::mt19937_64& rng, uint64_t keys) {
   uint64_t k = rng() % keys;
   return Key{k % 10 == 0 ? kNumbered + k : k * 37 % kNumbered};
}

TEST(DirectMap, agreesWithAModelThroughChurnAndWorksOnOnceEveryPageEmptied) {
   Kiv::DirectMap<Key, uint64_t> m;
   expectMapAgreesWithModel<Order::unchecked>(m, 20000,
                                              [](auto& rng, int) { return randomKey(rng, 3000); });
   const Entries entries = entriesOf(m);
   // Numbered keys by number, then the others.
   auto firstUnnumbered = std::find_if(entries.begin(), entries.end(),
                                       [](const auto& e) { return e.first >= kNumbered; });
   EXPECT_TRUE(std::is_sorted(entries.begin(), firstUnnumbered));
   EXPECT_TRUE(std::all_of(firstUnnumbered, entries.end(),
                           [](const auto& e) { return e.first >= kNumbered; }));
   for (const auto& [k, v] : m) EXPECT_TRUE(m.erase(k));
   EXPECT_TRUE(m.empty());
   EXPECT_TRUE(m.begin() == m.end());
   for (const auto& [k, v] : entries) EXPECT_FALSE(m.contains(Key{k})) << k;
   m.insert(Key{5}, 1);
   m.insert(Key{kNumbered + 5}, 2);
   ASSERT_NE(m.find(Key{5}), nullptr);
   EXPECT_EQ(*m.find(Key{5}), 1u);
   EXPECT_EQ(*m.find(Key{kNumbered + 5}), 2u);
   m.clear();
   EXPECT_EQ(m.size(), 0u);
   EXPECT_FALSE(m.contains(Key{5}));
   EXPECT_FALSE(m.contains(Key{kNumbered + 5}));
}

// Many keys, then few, so that the set empties and compacts often.
TEST(DenseSet, keepsInsertionOrderAndDrainsFirstInFirstOutUnderChurn) {
   Kiv::DenseSet<Key> set;
   expectSetAgreesWithModel<false>(
       set, 25000, [](auto& rng, int i) { return randomKey(rng, i < 12000 ? 2000 : 40); });
}

// The storage under both is cleared when the last live key goes, also
// while erased ones lie behind it; a loop erasing as it goes must end there.
TEST(InsertionOrder, erasingTheKeyUnderTheIteratorVisitsEachKeyOnce) {
   Kiv::DenseSet<Key> set;
   Kiv::HashMap<uint64_t, uint64_t> map;
   auto eraseAll = [](auto& c, auto keyOf) {
      int visited = 0;
      for (const auto& e : c) {
         ++visited;
         c.erase(keyOf(e));
      }
      EXPECT_TRUE(c.empty());
      return visited;
   };
   auto setKey = [](Key k) { return k; };
   auto mapKey = [](const auto& e) { return e.first; };
   // Enough that emptying gives the storage and the index back.
   for (uint64_t k = 0; k < 5000; ++k) {
      set.insert(Key{k * 1000});
      map.insert(k, k);
   }
   EXPECT_EQ(eraseAll(set, setKey), 5000);
   EXPECT_EQ(eraseAll(map, mapKey), 5000);
   EXPECT_EQ(set.front(), nullptr);
   for (uint64_t k = 0; k < 20; ++k) {
      set.insert(Key{k});
      map.insert(k, k);
   }
   set.erase(Key{19});
   map.erase(19);
   EXPECT_EQ(eraseAll(set, setKey), 19);
   EXPECT_EQ(eraseAll(map, mapKey), 19);
}

// Few buckets and few hash tags: long probe runs where keys share a bucket,
// a tag, or both.
struct CrowdedHash {
   size_t operator()(uint64_t k) const { return (k % 7) | ((k % 3) << 62); }
};

TEST(HashMap, agreesWithAModelUnderRandomChurn) {
   Kiv::HashMap<uint64_t, uint64_t> large, small;
   Kiv::HashMap<uint64_t, uint64_t, CrowdedHash> crowded;
   expectMapAgreesWithModel<Order::insertion>(large, 20000,
                                              [](auto& rng, int) { return rng() % 5000; });
   // Around the size where a map starts and stops keeping an index.
   expectMapAgreesWithModel<Order::insertion>(small, 20000,
                                              [](auto& rng, int) { return rng() % 24; });
   expectMapAgreesWithModel<Order::insertion>(crowded, 20000,
                                              [](auto& rng, int) { return rng() % 400; });
}

TEST(HashSet, keepsInsertionOrderAndMembershipUnderRandomChurn) {
   Kiv::HashSet<uint64_t> set;
   expectSetAgreesWithModel<false>(set, 15000, [](auto& rng, int) { return rng() % 300; });
}

using IndexSet = Kiv::NumberedSet<uint64_t, Kiv::CountedIndex<uint64_t>>;

// Drained lowest first while keys keep arriving, some below the front
// already handed out, over several pages of numbers that come and go.
TEST(NumberedSet, drainsAndIteratesAsAnOrderedSetWhileKeysArriveBelowTheFront) {
   IndexSet set;
   expectSetAgreesWithModel<true>(set, 25000,
                                           [](auto& rng, int) { return rng() % 5000 * 3; });
}

// Indexes past the 32-bit range have no number and are kept aside.
TEST(NumberedSet, indexesBeyondTheNumberedRangeFollowTheOthers) {
   IndexSet set;
   const uint64_t huge = uint64_t{1} << 40;
   for (uint64_t k : {huge, uint64_t{5000}, uint64_t{9}, huge + 1, uint64_t{1024}, uint64_t{2}}) {
      set.insert(k);
   }
   EXPECT_EQ(std::vector<uint64_t>(set.begin(), set.end()),
             (std::vector<uint64_t>{2, 9, 1024, 5000, huge, huge + 1}));
   EXPECT_TRUE(set.erase(huge + 1));
   EXPECT_FALSE(set.contains(huge + 1));
   EXPECT_TRUE(set.contains(huge));
   EXPECT_EQ(set.size(), 5u);
   std::vector<uint64_t> drained;
   while (const uint64_t* front = set.front()) {
      drained.push_back(*front);
      set.erase(drained.back());
   }
   EXPECT_EQ(drained, (std::vector<uint64_t>{2, 9, 1024, 5000, huge}));
   // Emptied and refilled below where the last drain ended.
   set.insert(1);
   ASSERT_NE(set.front(), nullptr);
   EXPECT_EQ(*set.front(), 1u);
}

TEST(FlatMap, agreesWithAModelInContentAndOrder) {
   Kiv::FlatMap<uint32_t, uint64_t> m;
   expectMapAgreesWithModel<Order::sorted>(
       m, 20000, [](auto& rng, int) { return static_cast<uint32_t>(rng() % 40); });
}

TEST(FlatSet, agreesWithAModelInMembershipAndOrder) {
   Kiv::FlatSet<uint32_t> set;
   expectSetAgreesWithModel<true>(
       set, 20000, [](auto& rng, int) { return static_cast<uint32_t>(rng() % 40); });
}

}  // namespace
