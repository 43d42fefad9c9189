#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <vector>

#include "kiv/DenseSet.h"
#include "kiv/DirectMap.h"
#include "kiv/HashMap.h"
#include "NumberedTestKey.h"

namespace {

using KivTest::Key;
using KivTest::kNumbered;

static_assert(std::is_same_v<Kiv::KeyMap<Key, int>, Kiv::DirectMap<Key, int>>);
static_assert(std::is_same_v<Kiv::KeyMap<int, int>, Kiv::HashMap<int, int>>);
static_assert(std::is_same_v<Kiv::KeySet<Key>, Kiv::DenseSet<Key>>);

// Numbers spread over many pages, a tenth of the keys without a number.
Key randomKey(std::mt19937_64& rng, uint64_t keys) {
   uint64_t k = rng() % keys;
   return Key{k % 10 == 0 ? kNumbered + k : k * 37 % kNumbered};
}

TEST(DirectMap, agreesWithAReferenceMapThroughChurnAndPagesEmptying) {
   Kiv::DirectMap<Key, uint64_t> m;
   std::map<uint64_t, uint64_t> ref;
   std::mt19937_64 rng(11);
   auto expectSame = [&] {
      ASSERT_EQ(m.size(), ref.size());
      for (uint64_t probe = 0; probe < 3000; ++probe) {
         Key k = randomKey(rng, 3000);
         auto it = ref.find(k.value);
         const uint64_t* found = m.find(k);
         ASSERT_EQ(found != nullptr, it != ref.end()) << k.value;
         if (found) {
            EXPECT_EQ(*found, it->second);
         }
      }
   };
   for (int i = 0; i < 100000; ++i) {
      Key k = randomKey(rng, 3000);
      auto it = ref.find(k.value);
      switch (rng() % 6) {
         case 0:
            EXPECT_EQ(m.erase(k), ref.erase(k.value) == 1);
            break;
         case 1: {
            uint64_t taken = 99;
            ASSERT_EQ(m.take(k, taken), it != ref.end());
            EXPECT_EQ(taken, it != ref.end() ? it->second : 99u);
            ref.erase(k.value);
            break;
         }
         case 2: {
            // An absent key starts from a value-initialised entry; a present
            // one is found as it is.
            auto [value, inserted] = m.findOrInsert(k);
            ASSERT_EQ(inserted, it == ref.end());
            EXPECT_EQ(*value, inserted ? 0u : it->second);
            *value = i;
            ref[k.value] = i;
            break;
         }
         default:
            EXPECT_EQ(m.insert(k, i).second, ref.insert_or_assign(k.value, i).second);
            break;
      }
   }
   expectSame();
   // Numbered keys by number, then the others; each key once.
   std::vector<uint64_t> order;
   std::map<uint64_t, uint64_t> iterated;
   for (const auto& [k, v] : m) {
      order.push_back(k.value);
      iterated[k.value] = v;
   }
   EXPECT_EQ(iterated, ref);
   ASSERT_EQ(order.size(), ref.size());
   auto firstUnnumbered = std::find_if(order.begin(), order.end(),
                                       [](uint64_t k) { return k >= kNumbered; });
   EXPECT_TRUE(std::is_sorted(order.begin(), firstUnnumbered));
   EXPECT_TRUE(std::all_of(firstUnnumbered, order.end(), [](uint64_t k) { return k >= kNumbered; }));
   // Every page empties and is given back; the map works on from nothing.
   for (const auto& [k, v] : m) {
      EXPECT_TRUE(m.erase(k));
      ref.erase(k.value);
   }
   EXPECT_TRUE(m.empty());
   expectSame();
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

TEST(DirectMap, countedIndexesIterateInOrderAndHugeOnesStillFit) {
   Kiv::DirectMap<uint64_t, int, Kiv::CountedIndex<uint64_t>> m;
   const uint64_t huge = uint64_t{1} << 40;
   for (uint64_t index : {huge, uint64_t{5000}, uint64_t{7}, huge + 1, uint64_t{1024}}) {
      m.insert(index, static_cast<int>(index % 1000));
   }
   std::vector<uint64_t> order;
   for (const auto& [index, value] : m) order.push_back(index);
   EXPECT_EQ(order, (std::vector<uint64_t>{7, 1024, 5000, huge, huge + 1}));
   EXPECT_TRUE(m.erase(huge));
   EXPECT_FALSE(m.contains(huge));
   EXPECT_TRUE(m.contains(huge + 1));
   EXPECT_EQ(m.size(), 4u);
}

// A DenseSet keeps a HashSet's order and draining: the same operations give
// the same members, front and iteration order.
TEST(DenseSet, behavesAsAHashSetUnderRandomInsertsErasesAndDrains) {
   Kiv::DenseSet<Key> dense;
   Kiv::HashSet<Key> hashed;
   std::mt19937_64 rng(5);
   auto expectSame = [&] {
      ASSERT_EQ(dense.size(), hashed.size());
      ASSERT_EQ(dense.front() == nullptr, hashed.front() == nullptr);
      if (dense.front()) {
         ASSERT_EQ(*dense.front(), *hashed.front());
      }
   };
   for (int i = 0; i < 200000; ++i) {
      Key k = randomKey(rng, i < 100000 ? 2000 : 40);
      switch (rng() % 4) {
         case 0:
            EXPECT_EQ(dense.erase(k), hashed.erase(k));
            break;
         case 1:
            if (const Key* front = hashed.front()) {
               Key drained = *front;
               EXPECT_TRUE(dense.erase(drained));
               hashed.erase(drained);
            }
            break;
         default:
            EXPECT_EQ(dense.insert(k), hashed.insert(k));
            break;
      }
      EXPECT_EQ(dense.contains(k), hashed.contains(k));
      expectSame();
   }
   EXPECT_EQ(std::vector<Key>(dense.begin(), dense.end()),
             std::vector<Key>(hashed.begin(), hashed.end()));
}

TEST(DenseSet, erasingDuringIterationVisitsEachKeyOnce) {
   Kiv::DenseSet<Key> s;
   for (uint64_t k = 0; k < 50; ++k) s.insert(Key{k * 1000});
   int visited = 0;
   for (Key k : s) {
      ++visited;
      s.erase(k);
   }
   EXPECT_EQ(visited, 50);
   EXPECT_TRUE(s.empty());
   EXPECT_EQ(s.front(), nullptr);

   // Emptied by erasing its last key while erased ones lie behind it.
   for (uint64_t k = 0; k < 20; ++k) s.insert(Key{k});
   s.erase(Key{19});
   visited = 0;
   for (Key k : s) {
      ++visited;
      s.erase(k);
   }
   EXPECT_EQ(visited, 19);
   EXPECT_TRUE(s.empty());
}

}  // namespace
