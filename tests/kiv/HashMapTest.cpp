#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

#include "kiv/HashMap.h"

namespace {

std::vector<int> keysOf(const Kiv::HashMap<int, int>& m) {
   std::vector<int> keys;
   for (const auto& [k, v] : m) keys.push_back(k);
   return keys;
}

TEST(HashMap, iteratesInInsertionOrderWhateverTheHash) {
   Kiv::HashMap<int, int> m;
   for (int k : {50, 3, 99, 7, 1000}) m.insert(k, k * 2);
   m.insert(3, 0);  // overwrite keeps the position
   EXPECT_EQ(keysOf(m), (std::vector<int>{50, 3, 99, 7, 1000}));
   m.erase(99);
   m.insert(99, 1);
   EXPECT_EQ(keysOf(m), (std::vector<int>{50, 3, 7, 1000, 99}));
}

TEST(HashMap, drainsFirstInFirstOut) {
   Kiv::HashMap<int, int> m;
   for (int k = 0; k < 100; ++k) m.insert(k, k);
   std::vector<int> drained;
   while (auto* e = m.front()) {
      int k = e->first;
      drained.push_back(k);
      m.erase(k);
      if (k % 10 == 0 && k < 1000) m.insert(1000 + k, 0);
   }
   ASSERT_EQ(drained.size(), 110u);
   EXPECT_EQ(drained[0], 0);
   EXPECT_EQ(drained[99], 99);
   EXPECT_EQ(drained[100], 1000);
   EXPECT_TRUE(m.empty());
}

TEST(HashMap, erasingDuringIterationVisitsEveryOtherEntryOnce) {
   Kiv::HashMap<int, int> m;
   for (int k = 0; k < 50; ++k) m.insert(k, k);
   int visited = 0;
   for (const auto& [k, v] : m) {
      ++visited;
      m.erase(k);
   }
   EXPECT_EQ(visited, 50);
   EXPECT_TRUE(m.empty());

   // The last live entry is erased while erased ones lie behind it: the
   // map empties and the loop must end there.
   for (int k = 0; k < 20; ++k) m.insert(k, k);
   m.erase(19);
   visited = 0;
   for (const auto& [k, v] : m) {
      ++visited;
      m.erase(k);
   }
   EXPECT_EQ(visited, 19);
   EXPECT_TRUE(m.empty());
}

// Few buckets and few hash tags: long probe runs where keys share a bucket,
// a tag, or both.
struct CrowdedHash {
   size_t operator()(uint64_t k) const { return (k % 7) | ((k % 3) << 62); }
};

template <class Map>
void expectAgreesWithAReferenceMapUnderRandomChurn(uint64_t keys, int operations) {
   Map m;
   std::map<uint64_t, uint64_t> ref;
   std::mt19937_64 rng(7);
   for (int i = 0; i < operations; ++i) {
      uint64_t k = rng() % keys;
      if (rng() % 3 == 0) {
         EXPECT_EQ(m.erase(k), ref.erase(k) == 1);
      } else {
         m.insert(k, i);
         ref[k] = i;
      }
   }
   ASSERT_EQ(m.size(), ref.size());
   for (const auto& [k, v] : ref) {
      const uint64_t* found = m.find(k);
      ASSERT_NE(found, nullptr);
      EXPECT_EQ(*found, v);
   }
   size_t iterated = 0;
   for ([[maybe_unused]] const auto& e : m) ++iterated;
   EXPECT_EQ(iterated, ref.size());
}

TEST(HashMap, agreesWithAReferenceMapUnderRandomChurn) {
   expectAgreesWithAReferenceMapUnderRandomChurn<Kiv::HashMap<uint64_t, uint64_t>>(5000, 200000);
   // Around the size where a map starts and stops keeping an index.
   expectAgreesWithAReferenceMapUnderRandomChurn<Kiv::HashMap<uint64_t, uint64_t>>(24, 20000);
   expectAgreesWithAReferenceMapUnderRandomChurn<Kiv::HashMap<uint64_t, uint64_t, CrowdedHash>>(
       400, 20000);
}

// Order is insertion order, and a key erased and inserted again goes last.
TEST(HashSet, keepsInsertionOrderAndMembershipUnderRandomChurn) {
   Kiv::HashSet<uint64_t> s;
   std::vector<uint64_t> ref;
   std::mt19937_64 rng(13);
   for (int i = 0; i < 40000; ++i) {
      const uint64_t k = rng() % 300;
      auto at = std::find(ref.begin(), ref.end(), k);
      if (rng() % 3 == 0) {
         EXPECT_EQ(s.erase(k), at != ref.end());
         if (at != ref.end()) ref.erase(at);
      } else {
         EXPECT_EQ(s.insert(k), at == ref.end());
         if (at == ref.end()) ref.push_back(k);
      }
      ASSERT_EQ(s.size(), ref.size());
      ASSERT_EQ(s.front() == nullptr, ref.empty());
      if (!ref.empty()) {
         ASSERT_EQ(*s.front(), ref.front());
      }
   }
   EXPECT_EQ(std::vector<uint64_t>(s.begin(), s.end()), ref);
}

TEST(HashSet, membershipAndOrder) {
   Kiv::HashSet<int> s;
   EXPECT_TRUE(s.insert(4));
   EXPECT_FALSE(s.insert(4));
   s.insert(2);
   EXPECT_TRUE(s.contains(2));
   EXPECT_EQ(*s.front(), 4);
   s.erase(4);
   EXPECT_EQ(*s.front(), 2);
}

}  // namespace
