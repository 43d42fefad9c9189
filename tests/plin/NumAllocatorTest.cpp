#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <random>
#include <vector>

#include "kiv/Assert.h"
#include "plin/NumAllocator.h"
#include "plin/TaskScheduler.h"

namespace {

using Plin::NumAllocator;
using Plin::NumAllocatorConfig;
using Plin::NumAllocatorStatus;
using Plin::Range;

struct Allocator {
   Plin::TaskScheduler s;
   Kiv::Ptr<NumAllocatorStatus> status = Kiv::make<NumAllocatorStatus>();
   Kiv::Ptr<NumAllocator> allocator;
   Allocator(Range range, double expirySeconds)
       : allocator(Kiv::make<NumAllocator>(Kiv::make<NumAllocatorConfig>(range, expirySeconds),
                                           status, &s)) {}
   std::vector<uint64_t> drain() {
      std::vector<uint64_t> out;
      while (std::optional<uint64_t> n = allocator->allocate()) out.push_back(*n);
      return out;
   }
};

TEST(NumAllocator, handsOutEveryNumberOfTheRangeAscendingThenNothing) {
   Allocator a(Range{10, 14}, 60);
   EXPECT_EQ(a.drain(), (std::vector<uint64_t>{10, 11, 12, 13, 14}));
   EXPECT_EQ(a.allocator->allocate(), std::nullopt);
   EXPECT_EQ(a.status->allocations(), 5u);
   EXPECT_EQ(a.status->exhaustions(), 2u);
}

TEST(NumAllocator, rangeEndingAtTheLargestNumberIsExhaustedWithoutWrapping) {
   constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
   Allocator a(Range{kMax - 1, kMax}, 60);
   EXPECT_EQ(a.drain(), (std::vector<uint64_t>{kMax - 1, kMax}));
}

TEST(NumAllocator, releasedNumberIsHeldBackUntilItsExpiryHasPassed) {
   Allocator a(Range{1, 3}, 60);
   a.drain();
   a.allocator->release(2);
   EXPECT_TRUE(a.status->heldBackHas(2));
   EXPECT_FALSE(a.status->allocatedHas(2));
   a.s.advance(59.9);
   EXPECT_EQ(a.allocator->allocate(), std::nullopt);
   a.s.advance(0.2);
   EXPECT_FALSE(a.status->heldBackHas(2));
   EXPECT_EQ(a.allocator->allocate(), 2u);
}

TEST(NumAllocator, freshNumbersComeBeforeReleasedOnesWhoseHoldBackEnded) {
   Allocator a(Range{1, 4}, 1);
   EXPECT_EQ(a.allocator->allocate(), 1u);
   a.allocator->release(1);
   a.s.advance(5);
   EXPECT_EQ(a.drain(), (std::vector<uint64_t>{2, 3, 4, 1}));
}

TEST(NumAllocator, releasedNumbersComeBackInTheOrderTheirHoldBackEnded) {
   Allocator a(Range{1, 3}, 60);
   a.drain();
   a.allocator->release(3);
   a.s.advance(10);
   a.allocator->release(1);
   a.s.advance(70);
   EXPECT_EQ(a.drain(), (std::vector<uint64_t>{3, 1}));
}

TEST(NumAllocator, zeroExpiryReturnsAReleasedNumberAtOnce) {
   Allocator a(Range{1, 1}, 0);
   EXPECT_EQ(a.allocator->allocate(), 1u);
   a.allocator->release(1);
   EXPECT_EQ(a.allocator->allocate(), 1u);
}

TEST(NumAllocator, specificNumberIsSkippedByLaterAllocations) {
   Allocator a(Range{1, 5}, 60);
   EXPECT_TRUE(a.allocator->allocateSpecific(3));
   EXPECT_FALSE(a.allocator->allocateSpecific(3));
   EXPECT_FALSE(a.allocator->allocateSpecific(6));
   EXPECT_EQ(a.drain(), (std::vector<uint64_t>{1, 2, 4, 5}));
}

TEST(NumAllocator, specificHeldBackNumberLeavesItsHoldBackAndNeverComesBackTwice) {
   Allocator a(Range{1, 2}, 60);
   a.drain();
   a.allocator->release(1);
   EXPECT_TRUE(a.allocator->allocateSpecific(1));
   EXPECT_FALSE(a.status->heldBackHas(1));
   a.s.advance(100);
   EXPECT_FALSE(a.status->recycledHas(1));
   EXPECT_EQ(a.allocator->allocate(), std::nullopt);
}

TEST(NumAllocator, releasingANumberNotAllocatedIsAnInternalError) {
   Allocator a(Range{1, 5}, 60);
   EXPECT_THROW(a.allocator->release(1), Kiv::InternalError);
   a.allocator->allocate();
   a.allocator->release(1);
   EXPECT_THROW(a.allocator->release(1), Kiv::InternalError);
}

// Random allocations, releases and time steps: no number is out twice at
// once, and none comes back before its hold-back time.
TEST(NumAllocator, neverHandsOutANumberTwiceNorOneStillHeldBack) {
   constexpr double kExpiry = 5;
   Allocator a(Range{100, 163}, kExpiry);
   std::mt19937 rng(7);
   std::map<uint64_t, bool> out;
   std::map<uint64_t, double> releasedAt;
   uint64_t handedOut = 0;
   for (int step = 0; step < 5000; ++step) {
      switch (rng() % 4) {
         case 0:
         case 1:
            if (std::optional<uint64_t> n = a.allocator->allocate()) {
               ASSERT_FALSE(out[*n]) << *n;
               auto r = releasedAt.find(*n);
               if (r != releasedAt.end()) {
                  ASSERT_GE(a.s.now(), r->second + kExpiry) << *n;
               }
               out[*n] = true;
               ++handedOut;
            }
            break;
         case 2:
            for (auto& [n, isOut] : out) {
               if (isOut && rng() % 3 == 0) {
                  a.allocator->release(n);
                  isOut = false;
                  releasedAt[n] = a.s.now();
                  break;
               }
            }
            break;
         default:
            a.s.advance(0.5);
      }
   }
   EXPECT_GT(handedOut, 500u);
}

}  // namespace
