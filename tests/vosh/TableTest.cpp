#include "vosh/Table.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "TestRecords.h"
#include "VoshTestSupport.h"

namespace VoshTest {
namespace {

using RouteTable = Vosh::Table<uint64_t, Route>;

class TableTest : public VoshFixture {
 protected:
  void SetUp() override {
    VoshFixture::SetUp();
    writerManager_ = manager();
    writerManager_->mountWriter("hw/routes", {{"route", 16}, {"hops", 16}});
    routes_ = writerManager_->table<uint64_t, Route>("hw/routes", "route");
  }

  Kiv::Ptr<RouteTable> readerRoutes() {
    if (!readerManager_) {
      readerManager_ = manager();
      readerManager_->mountReader("hw/routes", Vosh::mountTypeReader);
    }
    return readerManager_->table<uint64_t, Route>("hw/routes", "route");
  }

  std::vector<std::pair<uint64_t, Route>> contents(const Kiv::Ptr<RouteTable>& table) {
    std::vector<std::pair<uint64_t, Route>> out;
    for (const auto& [key, record] : *table) out.emplace_back(key, record);
    return out;
  }

  Kiv::Ptr<Vosh::EntityManager> writerManager_;
  Kiv::Ptr<Vosh::EntityManager> readerManager_;
  Kiv::Ptr<RouteTable> routes_;
};

TEST_F(TableTest, setThenLookupGivesTheRecordBackOnBothSides) {
  routes_->set(1, routeFor(1));
  routes_->set(2, routeFor(2));
  auto reader = readerRoutes();
  EXPECT_EQ(routes_->lookup(1), routeFor(1));
  EXPECT_EQ(reader->lookup(2), routeFor(2));
  EXPECT_TRUE(reader->has(1));
  EXPECT_EQ(reader->size(), 2u);
}

TEST_F(TableTest, lookupOfAnAbsentKeyGivesTheEmptyRecord) {
  routes_->set(1, routeFor(1));
  EXPECT_EQ(routes_->lookup(9), Route{});
  EXPECT_FALSE(routes_->has(9));
  EXPECT_EQ(readerRoutes()->lookup(9), Route{});
}

TEST_F(TableTest, setOverwritesTheRecordUnderItsKey) {
  routes_->set(1, routeFor(1, 1));
  auto reader = readerRoutes();
  routes_->set(1, routeFor(1, 2));
  EXPECT_EQ(routes_->lookup(1), routeFor(1, 2));
  EXPECT_EQ(reader->lookup(1), routeFor(1, 2));
  EXPECT_EQ(routes_->size(), 1u);
}

TEST_F(TableTest, delRemovesOnlyThatKey) {
  routes_->set(1, routeFor(1));
  routes_->set(2, routeFor(2));
  auto reader = readerRoutes();
  EXPECT_TRUE(routes_->del(1));
  EXPECT_FALSE(routes_->del(1));
  EXPECT_FALSE(routes_->has(1));
  EXPECT_EQ(reader->lookup(1), Route{});
  EXPECT_FALSE(reader->has(1));
  EXPECT_EQ(reader->lookup(2), routeFor(2));
  EXPECT_EQ(reader->size(), 1u);
}

TEST_F(TableTest, delAllEmptiesTheTableAndSlotsAreReusedFromTheFirst) {
  for (uint64_t k = 0; k < 10; ++k) routes_->set(k, routeFor(k));
  auto reader = readerRoutes();
  routes_->delAll();
  EXPECT_EQ(routes_->size(), 0u);
  EXPECT_EQ(reader->size(), 0u);
  EXPECT_TRUE(contents(reader).empty());
  routes_->set(42, routeFor(42));
  EXPECT_EQ(contents(routes_), (std::vector<std::pair<uint64_t, Route>>{{42, routeFor(42)}}));
  EXPECT_EQ(reader->lookup(42), routeFor(42));
}

TEST_F(TableTest, iterationIsInSlotOrderAndAFreedSlotIsReusedInPlace) {
  for (uint64_t k : {5, 3, 9}) routes_->set(k, routeFor(k));
  routes_->del(3);
  routes_->set(7, routeFor(7));
  std::vector<std::pair<uint64_t, Route>> expected{
      {5, routeFor(5)}, {7, routeFor(7)}, {9, routeFor(9)}};
  EXPECT_EQ(contents(routes_), expected);
  EXPECT_EQ(contents(readerRoutes()), expected);
}

TEST_F(TableTest, deletingDuringIterationVisitsEveryOtherKeyOnce) {
  for (uint64_t k = 0; k < 8; ++k) routes_->set(k, routeFor(k));
  std::vector<uint64_t> seen;
  for (const auto& entry : *routes_) {
    seen.push_back(entry.key);
    routes_->del(entry.key + 1);
  }
  EXPECT_EQ(seen, (std::vector<uint64_t>{0, 2, 4, 6}));
}

TEST_F(TableTest, aReaderAnswersFromTheSlotsBeforeItsNotificationsAreDelivered) {
  auto reader = readerRoutes();
  std::vector<uint64_t> notified;
  auto c = record(reader, notified);
  routes_->set(4, routeFor(4));
  routes_->del(4);
  routes_->set(5, routeFor(5));
  EXPECT_FALSE(reader->has(4));
  EXPECT_EQ(reader->lookup(5), routeFor(5));
  EXPECT_TRUE(notified.empty());
}

TEST_F(TableTest, serializedRecordsRoundTripAtEverySize) {
  auto hops = writerManager_->table<uint64_t, HopList>("hw/routes", "hops");
  for (uint64_t k = 0; k < HopList::kMaxHops; ++k) hops->set(k, hopsFor(k));
  auto reader = readerRoutes();
  auto readerHops = readerManager_->table<uint64_t, HopList>("hw/routes", "hops");
  for (uint64_t k = 0; k < HopList::kMaxHops; ++k) {
    EXPECT_EQ(hops->lookup(k), hopsFor(k));
    EXPECT_EQ(readerHops->lookup(k), hopsFor(k));
  }
  const uint64_t longest = HopList::kMaxHops - 1;
  ASSERT_GT(4 + 8 * hopsFor(longest).count, Vosh::kInlineRecordBytes) << "reaches the overflow";

  std::vector<uint64_t> notified;
  auto c = record(readerHops, notified);
  hops->set(longest, hopsFor(longest));
  scheduler_.runUntilIdle();
  EXPECT_TRUE(notified.empty()) << "an equal record is not written again";
  HopList differsInOverflow = hopsFor(longest);
  differsInOverflow.hops[HopList::kMaxHops - 1] = 5;
  hops->set(longest, differsInOverflow);
  scheduler_.runUntilIdle();
  EXPECT_EQ(notified, std::vector<uint64_t>{longest});
  EXPECT_EQ(readerHops->lookup(longest), differsInOverflow);

  HopList shorter;
  shorter.count = 1;
  shorter.hops[0] = 77;
  hops->set(longest, shorter);
  EXPECT_EQ(readerHops->lookup(longest), shorter);
  hops->set(longest, hopsFor(longest));
  EXPECT_EQ(readerHops->lookup(longest), hopsFor(longest));
}

TEST_F(TableTest, aCorruptSerializedRecordGoesToTheHandlerAndReadsEmpty) {
  std::vector<uint64_t> writerReports, readerReports;
  auto hops = writerManager_->table<uint64_t, HopList>(
      "hw/routes", "hops", [&](uint64_t key) { writerReports.push_back(key); });
  HopList damaged = hopsFor(3);
  damaged.count = HopList::kMaxHops + 1;
  hops->set(3, damaged);
  hops->set(4, hopsFor(4));
  readerRoutes();
  auto readerHops = readerManager_->table<uint64_t, HopList>(
      "hw/routes", "hops", [&](uint64_t key) { readerReports.push_back(key); });

  EXPECT_EQ(hops->lookup(3), HopList{});
  EXPECT_EQ(readerHops->lookup(3), HopList{});
  EXPECT_EQ(readerHops->lookup(4), hopsFor(4));
  EXPECT_EQ(writerReports, std::vector<uint64_t>{3});
  EXPECT_EQ(readerReports, std::vector<uint64_t>{3});

  std::vector<uint64_t> iterated;
  for (const auto& entry : *readerHops) iterated.push_back(entry.key);
  EXPECT_EQ(iterated, std::vector<uint64_t>{4});
  EXPECT_EQ(readerReports, (std::vector<uint64_t>{3, 3}));
}

TEST_F(TableTest, aSlotThatNeverHoldsStillIsReportedToTheReaderAsCorrupt) {
  routes_->set(8, routeFor(8));
  std::vector<uint64_t> reports;
  auto reader = readerRoutes();
  reader->corruptionHandlerIs([&](uint64_t key) { reports.push_back(key); });
  // A writer that died inside the slot's write leaves its sequence lock odd.
  auto segment = Vosh::Segment::open(writerManager_->segmentName("hw/routes"), true);
  Vosh::CollectionHeader* c = Vosh::collectionHeaders(segment->data());
  ++*Vosh::slotSeqWord(segment->data() + c->slotsOffset);

  EXPECT_EQ(reader->lookup(8), Route{});
  EXPECT_EQ(reports, std::vector<uint64_t>{8});
}

TEST_F(TableTest, writingTheStoredRecordAgainIsNotAChange) {
  routes_->set(1, routeFor(1));
  auto reader = readerRoutes();
  std::vector<uint64_t> notified;
  auto c = record(reader, notified);
  routes_->set(1, routeFor(1));
  scheduler_.runUntilIdle();
  EXPECT_TRUE(notified.empty());
}

TEST_F(TableTest, aReaderCannotWrite) {
  auto reader = readerRoutes();
  EXPECT_THROW(reader->set(1, routeFor(1)), Kiv::InternalError);
  EXPECT_THROW(reader->del(1), Kiv::InternalError);
}

}  // namespace
}  // namespace VoshTest
