#include <gtest/gtest.h>

#include <vector>

#include "TestRecords.h"
#include "VoshTestSupport.h"

namespace VoshTest {
namespace {

class PersistenceTest : public VoshFixture {
 protected:
  // A writer that wrote keys [0, count), deleted the multiples of 5, and went
  // away without removing anything.
  void writeAndGoAway(uint64_t count, uint32_t capacity = 16) {
    auto writer = manager();
    writer->mountWriter("hw/routes", {{"route", capacity}});
    auto routes = writer->table<uint64_t, Route>("hw/routes", "route");
    for (uint64_t k = 0; k < count; ++k) routes->set(k, routeFor(k));
    for (uint64_t k = 0; k < count; k += 5) routes->del(k);
  }

  Kiv::Ptr<Vosh::Table<uint64_t, Route>> nextWriter(Kiv::Ptr<Vosh::EntityManager>& writer,
                                                    std::vector<uint64_t>* reports = nullptr) {
    writer = manager();
    writer->mountWriter("hw/routes", {{"route", 16}});
    return writer->table<uint64_t, Route>("hw/routes", "route", [reports](uint64_t key) {
      if (reports) reports->push_back(key);
    });
  }
};

TEST_F(PersistenceTest, theNextWriterFindsEveryEntryThePreviousOneLeft) {
  writeAndGoAway(100);
  Kiv::Ptr<Vosh::EntityManager> writer;
  auto routes = nextWriter(writer);
  EXPECT_EQ(routes->size(), 80u);
  for (uint64_t k = 0; k < 100; ++k) {
    if (k % 5 == 0) {
      EXPECT_FALSE(routes->has(k)) << k;
    } else {
      EXPECT_EQ(routes->lookup(k), routeFor(k)) << k;
    }
  }
}

TEST_F(PersistenceTest, theNextWriterReusesTheFreedSlotsBeforeGrowing) {
  writeAndGoAway(100);
  Kiv::Ptr<Vosh::EntityManager> writer;
  auto routes = nextWriter(writer);
  uint32_t capacity = routes->capacity();
  for (uint64_t k = 0; k < 100; k += 5) routes->set(k + 1000, routeFor(k + 1000));
  EXPECT_EQ(routes->capacity(), capacity);
  EXPECT_EQ(routes->size(), 100u);
  std::vector<uint64_t> firstKeys;
  for (const auto& entry : *routes) {
    if (firstKeys.size() < 3) firstKeys.push_back(entry.key);
  }
  EXPECT_EQ(firstKeys, (std::vector<uint64_t>{1000, 1, 2}));
}

TEST_F(PersistenceTest, aSlotLeftMidWriteIsReportedAndFreedByTheNextWriter) {
  writeAndGoAway(10);
  {
    std::string base = Vosh::segmentBaseName(prefix_, "hw/routes");
    std::vector<uint32_t> present = Vosh::segmentGenerationsPresent(base);
    ASSERT_EQ(present.size(), 1u);
    auto leftover = Vosh::Segment::open(Vosh::segmentGenerationName(base, present[0]), true);
    Vosh::CollectionHeader* c = Vosh::collectionHeaders(leftover->data());
    std::byte* slot3 = leftover->data() + c->slotsOffset + 3 * c->slotBytes;
    ++*Vosh::slotSeqWord(slot3);
  }
  std::vector<uint64_t> reports;
  Kiv::Ptr<Vosh::EntityManager> writer;
  auto routes = nextWriter(writer, &reports);
  EXPECT_EQ(reports, std::vector<uint64_t>{3});
  EXPECT_FALSE(routes->has(3));
  EXPECT_EQ(routes->size(), 7u);
  routes->set(3, routeFor(3));
  EXPECT_EQ(routes->lookup(3), routeFor(3));
}

TEST_F(PersistenceTest, aReaderSurvivesTheWritersRestartAndHearsTheNewWriter) {
  Kiv::Ptr<Vosh::EntityManager> writer;
  auto routes = nextWriter(writer);
  routes->set(1, routeFor(1));
  auto readerManager = manager();
  readerManager->mountReader("hw/routes", Vosh::mountTypeReader);
  auto reader = readerManager->table<uint64_t, Route>("hw/routes", "route");
  std::vector<uint64_t> notified;
  auto c = record(reader, notified);

  routes = nullptr;
  writer = nullptr;
  EXPECT_EQ(reader->lookup(1), routeFor(1));
  routes = nextWriter(writer);
  routes->set(2, routeFor(2));
  scheduler_.runUntilIdle();
  EXPECT_EQ(notified, std::vector<uint64_t>{2});
  EXPECT_EQ(reader->lookup(1), routeFor(1));
}

TEST_F(PersistenceTest, aSecondWriterIsRefusedWhileTheFirstHasThePathMounted) {
  Kiv::Ptr<Vosh::EntityManager> writer;
  auto routes = nextWriter(writer);
  auto second = manager();
  EXPECT_THROW(second->mountWriter("hw/routes", {{"route", 16}}), Vosh::MountError);
  writer->unmount("hw/routes");
  EXPECT_NO_THROW(second->mountWriter("hw/routes", {{"route", 16}}));
}

TEST_F(PersistenceTest, aNewlyDeclaredCollectionJoinsWithoutLosingTheOthers) {
  writeAndGoAway(10);
  auto writer = manager();
  writer->mountWriter("hw/routes", {{"route", 16}, {"status", 16}});
  auto routes = writer->table<uint64_t, Route>("hw/routes", "route");
  auto status = writer->table<uint64_t, Route>("hw/routes", "status");
  EXPECT_EQ(routes->lookup(9), routeFor(9));
  EXPECT_EQ(status->size(), 0u);
}

TEST_F(PersistenceTest, unmountLeavesTheSegmentInPlace) {
  Kiv::Ptr<Vosh::EntityManager> writer;
  auto routes = nextWriter(writer);
  routes->set(1, routeFor(1));
  std::string name = writer->segmentName("hw/routes");
  writer->unmount("hw/routes");
  EXPECT_NE(Vosh::Segment::open(name, false), nullptr);
}

}  // namespace
}  // namespace VoshTest
