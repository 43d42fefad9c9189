#include "pellet/Ring.h"

#include <deque>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

std::vector<std::string> entriesOf(const Pellet::Ring& ring) {
  std::vector<std::string> out;
  ring.forEach([&](std::string_view entry) { out.emplace_back(entry); });
  return out;
}

// Entries of assorted lengths land at every offset, so many straddle the end of the buffer.
TEST(RingWrapping, readsBackEntriesThatStraddleTheEndIntact) {
  const std::size_t capacity = 61;
  Pellet::Ring ring(capacity);
  std::deque<std::string> expected;
  std::size_t expectedBytes = 0;
  for (int i = 0; i < 300; ++i) {
    const std::string head(1 + i % 3, static_cast<char>('a' + i % 26));
    const std::string body(static_cast<std::size_t>(i * 7 % 23), static_cast<char>('A' + i % 26));
    ring.push(head, body);
    expected.push_back(head + body);
    expectedBytes += 4 + head.size() + body.size();
    while (expectedBytes > capacity) {
      expectedBytes -= 4 + expected.front().size();
      expected.pop_front();
    }
    ASSERT_EQ(entriesOf(ring), std::vector<std::string>(expected.begin(), expected.end()))
        << "after push " << i;
    ASSERT_EQ(ring.usedBytes(), expectedBytes);
  }
}

TEST(RingLimits, cutsABodyLongerThanTheWholeRing) {
  Pellet::Ring ring(20);
  ring.push("hh", std::string(100, 'x'));
  EXPECT_EQ(entriesOf(ring), std::vector<std::string>{"hh" + std::string(14, 'x')});
  EXPECT_EQ(ring.usedBytes(), 20u);
}

TEST(RingLimits, keepsNothingWhenEvenTheHeadDoesNotFit) {
  Pellet::Ring empty(0);
  empty.push("", "x");
  Pellet::Ring tiny(5);
  tiny.push("hh", "");
  EXPECT_EQ(empty.entryCount(), 0u);
  EXPECT_EQ(tiny.entryCount(), 0u);
}

}  // namespace
