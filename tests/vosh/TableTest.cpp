#include "vosh/Table.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "VoshTestSupport.h"

namespace VoshTest {
namespace {

class TableTest : public VoshFixture {
 protected:
  void SetUp() override {
    VoshFixture::SetUp();
    // The routes reserve nothing ahead: past 16 they move into a new generation.
    writer_ =
        writer({{"route", 16, Vosh::kDefaultChangeRingSize, 0}, {"blob", 16}, {"padded", 16}});
    routes_ = writer_.routes;
  }

  Kiv::Ptr<RouteTable> readerRoutes() {
    if (!reader_.em) reader_ = reader();
    return reader_.routes;
  }
  Kiv::Ptr<Vosh::Table<uint64_t, Blob>> blobsOf(const Side& side, std::vector<uint64_t>& reports) {
    return side.em->table<uint64_t, Blob>("hw/routes", "blob",
                                          [&reports](uint64_t key) { reports.push_back(key); });
  }

  std::vector<std::pair<uint64_t, Route>> contents(const Kiv::Ptr<RouteTable>& table) {
    std::vector<std::pair<uint64_t, Route>> out;
    for (const auto& [key, record] : *table) out.emplace_back(key, record);
    return out;
  }

  Side writer_, reader_;
  Kiv::Ptr<RouteTable> routes_;
};

// A freed slot is taken again in place, and deleting while iterating is safe.
TEST_F(TableTest, iteratesInSlotOrderOnBothSidesAndDelAllEmptiesBoth) {
  writeRoutes(*routes_, 0, 8);
  routes_->del(3);
  routes_->set(42, routeFor(42));
  auto reader = readerRoutes();
  std::vector<std::pair<uint64_t, Route>> expected;
  for (uint64_t k : {0, 1, 2, 42, 4, 5, 6, 7}) expected.emplace_back(k, routeFor(k));
  EXPECT_EQ(contents(routes_), expected);
  EXPECT_EQ(contents(reader), expected);
  std::vector<uint64_t> seen;
  for (const auto& entry : *routes_) {
    seen.push_back(entry.key);
    routes_->del(entry.key + 1);
  }
  EXPECT_EQ(seen, (std::vector<uint64_t>{0, 2, 42, 4, 6}));
  EXPECT_THROW(reader->set(1, routeFor(1)), Kiv::InternalError);
  EXPECT_THROW(reader->del(1), Kiv::InternalError);

  routes_->delAll();
  EXPECT_EQ(routes_->size(), 0u);
  EXPECT_EQ(reader->size(), 0u);
  EXPECT_TRUE(contents(reader).empty());
  routes_->set(42, routeFor(42));
  EXPECT_EQ(contents(routes_), (std::vector<std::pair<uint64_t, Route>>{{42, routeFor(42)}}));
  EXPECT_EQ(reader->lookup(42), routeFor(42));

  // Unmounted, the reader is told nothing more, not even of the changes above.
  std::vector<uint64_t> notified;
  auto c = record(reader, notified);
  reader_.em->unmount("hw/routes");
  routes_->set(1, routeFor(1));
  scheduler_.runUntilIdle();
  EXPECT_TRUE(notified.empty());
  EXPECT_FALSE(reader->mounted());
}

// The blobs grow in place; the routes past their room, so that the blobs are
// copied, overflow and all, into a new generation.
TEST_F(TableTest, serializedRecordsOfEveryLengthRoundTripAndSurviveAnotherCollectionsGrowth) {
  std::vector<uint64_t> reports, notified;
  auto blobs = blobsOf(writer_, reports);
  for (uint64_t k = 0; k < kBlobKeys; ++k) blobs->set(k, blobFor(k));
  blobs->set(3, Blob{});
  blobs->del(5);
  readerRoutes();
  auto reader = blobsOf(reader_, reports);
  auto c = record(reader, notified);
  auto expectEveryLength = [&] {
    for (auto* table : {blobs.get(), reader.get()}) {
      EXPECT_EQ(table->size(), kBlobKeys - 1);
      EXPECT_TRUE(table->has(3));
      EXPECT_FALSE(table->has(5));
      for (uint64_t k = 0; k < kBlobKeys; ++k) {
        EXPECT_EQ(table->lookup(k), k == 3 || k == 5 ? Blob{} : blobFor(k)) << k;
      }
    }
  };
  expectEveryLength();
  const uint64_t longest = kBlobKeys - 1;
  ASSERT_GT(blobFor(longest).bytes.size(), Vosh::kInlineRecordBytes) << "reaches the overflow";
  blobs->set(longest, blobFor(longest));
  scheduler_.runUntilIdle();
  EXPECT_TRUE(notified.empty()) << "an equal record is not written again";
  Blob differsInOverflow = blobFor(longest);
  differsInOverflow.bytes.back() = '5';
  blobs->set(longest, differsInOverflow);
  scheduler_.runUntilIdle();
  EXPECT_EQ(notified, std::vector<uint64_t>{longest});
  EXPECT_EQ(reader->lookup(longest), differsInOverflow);
  blobs->set(longest, Blob{"x"});
  EXPECT_EQ(reader->lookup(longest), Blob{"x"});
  blobs->set(longest, blobFor(longest));
  EXPECT_EQ(reader->lookup(longest), blobFor(longest));

  const std::string segment = writer_.em->segmentName("hw/routes");
  writeRoutes(*routes_, 0, 17);
  ASSERT_NE(writer_.em->segmentName("hw/routes"), segment) << "copied into a new generation";
  expectEveryLength();
  blobs->set(kBlobKeys, blobFor(1));
  scheduler_.runUntilIdle();
  EXPECT_EQ(reader->lookup(kBlobKeys), blobFor(1));
  EXPECT_TRUE(reports.empty());
}

TEST_F(TableTest, aCorruptRecordGoesToTheHandlerAndReadsEmpty) {
  std::vector<uint64_t> writerReports, readerReports, routeReports;
  auto blobs = blobsOf(writer_, writerReports);
  blobs->set(3, Blob{"!damaged"});
  blobs->set(4, blobFor(4));
  routes_->set(8, routeFor(8));
  auto reader = readerRoutes();
  auto readerBlobs = blobsOf(reader_, readerReports);

  EXPECT_EQ(blobs->lookup(3), Blob{});
  EXPECT_EQ(readerBlobs->lookup(3), Blob{});
  EXPECT_EQ(readerBlobs->lookup(4), blobFor(4));
  EXPECT_EQ(writerReports, std::vector<uint64_t>{3});
  EXPECT_EQ(readerReports, std::vector<uint64_t>{3});
  std::vector<uint64_t> iterated;
  for (const auto& entry : *readerBlobs) iterated.push_back(entry.key);
  EXPECT_EQ(iterated, std::vector<uint64_t>{4});
  EXPECT_EQ(readerReports, (std::vector<uint64_t>{3, 3}));

  // A writer that died inside the slot's write leaves its sequence lock odd.
  reader->corruptionHandlerIs([&](uint64_t key) { routeReports.push_back(key); });
  auto segment = Vosh::Segment::open(writer_.em->segmentName("hw/routes"), true);
  Vosh::CollectionHeader* c = Vosh::collectionHeaders(segment->data());
  ++*Vosh::slotSeqWord(segment->data() + c->slotsOffset);
  EXPECT_EQ(reader->lookup(8), Route{});
  EXPECT_EQ(routeReports, std::vector<uint64_t>{8});
}

// A write of key at version (0: a delete).
struct Write {
  uint64_t key;
  uint32_t version;
};

struct Case {
  std::string name;
  // Written before the reader attaches: its starting point, not news.
  std::vector<Write> before;
  std::vector<Write> writes;
  std::vector<uint64_t> notified;
  // Keys a poll task slice may deliver; 0 for no limit.
  uint32_t itemBudget = 0;
  uint32_t ringSize = Vosh::kDefaultChangeRingSize;
};

// Nothing is delivered inside the writer's call or a poll; the event loop
// delivers each changed key once. A reader answers with the latest records
// before delivery and, for any key, from inside its reactor.
TEST_F(TableTest, eachChangedKeyIsDeliveredOnceFromTheEventLoop) {
  std::vector<Case> cases{
      {"setsAndADelete", {}, {{1, 1}, {2, 1}, {2, 0}}, {1}},
      {"cameAndWentIsNoNews", {}, {{1, 1}, {1, 0}, {2, 1}}, {2}},
      {"twoWritesOneNotification", {}, {{1, 1}, {1, 2}}, {1}},
      {"aDelete", {{1, 1}}, {{1, 0}}, {1}},
      {"attachedLate", {{1, 1}}, {{2, 1}}, {2}},
      {"changedAfterAttaching", {{1, 1}, {2, 1}}, {{2, 2}, {1, 0}, {1, 0}}, {2, 1}},
      // Key 1's slot goes to key 3; key 1 comes back in a fresh slot.
      {"movedToAnotherSlot", {{1, 1}, {2, 1}}, {{1, 0}, {3, 1}, {1, 2}}, {1, 3}},
      {"yieldsBetweenKeys", {}, {{0, 1}, {1, 1}, {2, 1}, {3, 1}, {4, 1}}, {0, 1, 2, 3, 4}, 1},
      {"fellBehindTheRing", {}, {{39, 0}}, {}, 0, 16},
  };
  Case& behind = cases.back();
  for (uint64_t k = 0; k < 40; ++k) behind.before.push_back({k, 1});
  for (uint64_t k = 0; k < 40; k += 2) {
    behind.writes.insert(behind.writes.end() - 1, {{k, 2}, {k, 3}});
    behind.notified.push_back(k);
  }
  behind.notified.push_back(39);

  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Side w = writer({{"route", 64, c.ringSize}}, c.name);
    std::map<uint64_t, Route> model;
    auto apply = [&](const std::vector<Write>& writes) {
      for (const Write& write : writes) {
        if (write.version == 0) {
          EXPECT_EQ(w.routes->del(write.key), model.erase(write.key) == 1) << write.key;
        } else {
          w.routes->set(write.key, model[write.key] = routeFor(write.key, write.version));
        }
      }
    };
    auto expectAnswersAsWritten = [&](RouteTable& table) {
      for (uint64_t k = 0; k < 40; ++k) {
        EXPECT_EQ(table.lookup(k), model.contains(k) ? model[k] : Route{}) << k;
        EXPECT_EQ(table.has(k), model.contains(k)) << k;
      }
      EXPECT_EQ(table.size(), model.size());
    };
    apply(c.before);
    // One reader is left alone until delivery; the other is asked first.
    Side shared = reader(Vosh::mountTypeSharedReader, c.name);
    Side asked = reader(Vosh::mountTypeReader, c.name);
    std::vector<uint64_t> notified, notifiedAsked;
    auto connection = shared.routes->onChange.connect([&](uint64_t key) {
      notified.push_back(key);
      expectAnswersAsWritten(*shared.routes);
    });
    auto connectionAsked = record(asked.routes, notifiedAsked);
    apply(c.writes);
    expectAnswersAsWritten(*w.routes);
    expectAnswersAsWritten(*asked.routes);
    asked.routes->poll();
    EXPECT_TRUE(notified.empty() && notifiedAsked.empty());
    scheduler_.itemBudgetIs(c.itemBudget);
    const uint64_t runsBefore = scheduler_.tasksRun();
    scheduler_.runUntilIdle();
    EXPECT_EQ(notified, c.notified);
    EXPECT_EQ(notifiedAsked, c.notified);
    if (c.itemBudget) {
      EXPECT_GE(scheduler_.tasksRun() - runsBefore, notified.size());
    }
  }
}

// A byte and a word: seven bytes of padding that equal records may fill
// differently.
struct Padded {
  uint8_t flag = 0;
  uint64_t value = 0;
  friend bool operator==(const Padded&, const Padded&) = default;
};

TEST_F(TableTest, rewritingAnEqualRecordWhosePaddingDiffersWakesNoReader) {
  auto table = writer_.em->table<uint64_t, Padded>("hw/routes", "padded");
  readerRoutes();
  std::vector<uint64_t> seen;
  auto c = record(reader_.em->table<uint64_t, Padded>("hw/routes", "padded"), seen);
  Padded a, b;
  std::memset(static_cast<void*>(&a), 0xAA, sizeof a);
  std::memset(static_cast<void*>(&b), 0x55, sizeof b);
  a.flag = b.flag = 1;
  a.value = b.value = 42;
  for (const Padded* p : {&a, &b}) {
    table->set(1, *p);
    scheduler_.runUntilIdle();
  }
  b.value = 43;
  table->set(1, b);
  scheduler_.runUntilIdle();
  EXPECT_EQ(seen, (std::vector<uint64_t>{1, 1})) << "an equal record was written again";
}

}  // namespace
}  // namespace VoshTest
