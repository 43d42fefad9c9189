#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "pellet/Trace.h"

namespace {

std::vector<std::string> messagesOf(const std::vector<Pellet::Record>& records) {
  std::vector<std::string> out;
  for (const Pellet::Record& record : records) out.push_back(record.message);
  return out;
}

TEST(HandleLookup, givesTheSameHandleForTheSameName) {
  EXPECT_EQ(&Pellet::handle("LookupHandle"), &Pellet::handle("LookupHandle"));
  EXPECT_NE(&Pellet::handle("LookupHandle"), &Pellet::handle("OtherLookupHandle"));
}

TEST(HandleSizes, defaultToSixteenKibPerLevel) {
  const Pellet::Handle& handle = Pellet::handle("DefaultSizes");
  for (int level = 0; level < Pellet::levelCount; ++level) {
    EXPECT_EQ(handle.capacityBytes(level), 16u * 1024);
  }
}

TEST(HandleSizes, followTheKibGivenPerLevel) {
  const Pellet::Handle& handle =
      Pellet::initializeHandle("SizedHandle", {10, 10, 50, 300, 100, 500, 50, 200, 10, 0});
  EXPECT_EQ(handle.capacityBytes(0), 10u * 1024);
  EXPECT_EQ(handle.capacityBytes(5), 500u * 1024);
  EXPECT_EQ(handle.capacityBytes(9), 0u);
}

TEST(HandleSizes, reinitializingKeepsOnlyTheLevelsWhoseSizeIsUnchanged) {
  Pellet::Handle& handle =
      Pellet::initializeHandle("ResizedHandle", {1, 1, 1, 1, 1, 1, 1, 1, 1, 1});
  Pellet::Facility fac(handle, "ResizedFac");
  PELLET_TRACE(fac, 0, "kept");
  PELLET_TRACE(fac, 1, "dropped");
  Pellet::initializeHandle("ResizedHandle", {1, 2, 1, 1, 1, 1, 1, 1, 1, 1});
  EXPECT_EQ(messagesOf(handle.records(0)), std::vector<std::string>{"kept"});
  EXPECT_TRUE(handle.records(1).empty());
  EXPECT_EQ(handle.capacityBytes(1), 2u * 1024);
}

TEST(HandleRecords, keepTheNewestMessagesOfALevelWithinItsSize) {
  Pellet::Handle& handle =
      Pellet::initializeHandle("WrappingHandle", {1, 1, 1, 1, 1, 1, 1, 1, 1, 1});
  Pellet::Facility fac(handle, "WrappingFac");
  for (int i = 0; i < 200; ++i) PELLET_TRACE(fac, 2, "message number {}", i);
  const std::vector<Pellet::Record> records = handle.records(2);
  EXPECT_LE(handle.retainedBytes(2), 1024u);
  ASSERT_FALSE(records.empty());
  EXPECT_LT(records.size(), 200u);
  EXPECT_EQ(records.back().message, "message number 199");
  EXPECT_EQ(records.front().message, fmt::format("message number {}", 200 - records.size()));
}

TEST(HandleRecords, carryLevelFacilityAndTimeAndMergeLevelsInTraceOrder) {
  Pellet::timeSourceIs([] { return 42.5; });
  Pellet::Handle& handle = Pellet::handle("MergingHandle");
  Pellet::Facility first(handle, "FirstFac");
  Pellet::Facility second(handle, "SecondFac");
  PELLET_TRACE(first, 2, "one");
  PELLET_TRACE(second, 0, "two");
  PELLET_TRACE(first, 1, "three");
  Pellet::timeSourceIs(nullptr);

  const std::vector<Pellet::Record> records = handle.records();
  ASSERT_EQ(messagesOf(records), (std::vector<std::string>{"one", "two", "three"}));
  EXPECT_EQ(records[1].level, 0);
  EXPECT_EQ(records[1].facility, "SecondFac");
  EXPECT_EQ(records[1].time, 42.5);
  EXPECT_LT(records[0].sequence, records[1].sequence);
}

}  // namespace
