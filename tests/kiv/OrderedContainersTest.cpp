#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <vector>

#include "kiv/DenseKey.h"
#include "kiv/FlatMap.h"
#include "kiv/NumberedSet.h"

namespace {

using IndexSet = Kiv::NumberedSet<uint64_t, Kiv::CountedIndex<uint64_t>>;

// Drained lowest first while keys keep arriving, some below the front
// already handed out: the order must stay that of an ordered set.
TEST(NumberedSet, drainsAndIteratesAsAnOrderedSetWhileKeysArriveBelowTheFront) {
   IndexSet set;
   std::set<uint64_t> ref;
   std::mt19937_64 rng(3);
   for (int i = 0; i < 100000; ++i) {
      // Spread over several pages of numbers, so pages come and go.
      const uint64_t k = rng() % 5000 * 3;
      switch (rng() % 4) {
         case 0:
            EXPECT_EQ(set.erase(k), ref.erase(k) == 1);
            break;
         case 1:
            if (const uint64_t* front = set.front()) {
               ASSERT_FALSE(ref.empty());
               ASSERT_EQ(*front, *ref.begin());
               const uint64_t drained = *front;
               set.erase(drained);
               ref.erase(drained);
            } else {
               ASSERT_TRUE(ref.empty());
            }
            break;
         default:
            EXPECT_EQ(set.insert(k), ref.insert(k).second);
            break;
      }
      ASSERT_EQ(set.size(), ref.size());
      ASSERT_EQ(set.contains(k), ref.contains(k));
   }
   EXPECT_EQ(std::vector<uint64_t>(set.begin(), set.end()),
             std::vector<uint64_t>(ref.begin(), ref.end()));
}

TEST(NumberedSet, keysBeyondTheNumberedRangeFollowTheOthers) {
   IndexSet set;
   const uint64_t huge = uint64_t{1} << 40;
   for (uint64_t k : {huge, uint64_t{9}, uint64_t{2}}) set.insert(k);
   std::vector<uint64_t> drained;
   while (const uint64_t* front = set.front()) {
      drained.push_back(*front);
      set.erase(drained.back());
   }
   EXPECT_EQ(drained, (std::vector<uint64_t>{2, 9, huge}));
   // Emptied and refilled below where the last drain ended.
   set.insert(1);
   ASSERT_NE(set.front(), nullptr);
   EXPECT_EQ(*set.front(), 1u);
}

TEST(FlatMap, agreesWithAReferenceMapInContentAndOrder) {
   Kiv::FlatMap<uint32_t, uint64_t> m;
   std::map<uint32_t, uint64_t> ref;
   std::mt19937_64 rng(9);
   for (int i = 0; i < 20000; ++i) {
      const uint32_t k = static_cast<uint32_t>(rng() % 40);
      if (rng() % 3 == 0) {
         EXPECT_EQ(m.erase(k), ref.erase(k) == 1);
      } else {
         const auto [value, added] = m.insert(k, static_cast<uint64_t>(i));
         EXPECT_EQ(added, ref.insert_or_assign(k, i).second);
         EXPECT_EQ(*value, static_cast<uint64_t>(i));
      }
      const uint64_t* found = m.find(k);
      ASSERT_EQ(found != nullptr, ref.contains(k));
      if (found) {
         ASSERT_EQ(*found, ref[k]);
      }
   }
   using Entries = std::vector<std::pair<uint32_t, uint64_t>>;
   EXPECT_EQ(Entries(m.begin(), m.end()), Entries(ref.begin(), ref.end()));
}

TEST(FlatSet, agreesWithAReferenceSetInMembershipAndOrder) {
   Kiv::FlatSet<uint32_t> set;
   std::set<uint32_t> ref;
   std::mt19937_64 rng(21);
   for (int i = 0; i < 20000; ++i) {
      const uint32_t k = static_cast<uint32_t>(rng() % 40);
      if (rng() % 3 == 0) {
         EXPECT_EQ(set.erase(k), ref.erase(k) == 1);
      } else {
         EXPECT_EQ(set.insert(k), ref.insert(k).second);
      }
      ASSERT_EQ(set.contains(k), ref.contains(k));
      ASSERT_EQ(set.size(), ref.size());
   }
   EXPECT_EQ(std::vector<uint32_t>(set.begin(), set.end()),
             std::vector<uint32_t>(ref.begin(), ref.end()));
}

}  // namespace
