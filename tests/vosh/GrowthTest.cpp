#include <gtest/gtest.h>

#include <vector>

#include "TestRecords.h"
#include "VoshTestSupport.h"
#include "vosh/SegmentName.h"

namespace VoshTest {
namespace {

// The sanitizer build runs unoptimised; a smaller table still grows many
// times there.
#if defined(__SANITIZE_ADDRESS__)
constexpr uint64_t kEntries = 200'000;
#else
constexpr uint64_t kEntries = 1'000'000;
#endif

// A collection that reserves nothing ahead makes a new generation each time
// it fills.
Vosh::CollectionDecl unreserved(std::string name, uint32_t capacity) {
  return Vosh::CollectionDecl{std::move(name), capacity, Vosh::kDefaultChangeRingSize, 0};
}

class GrowthTest : public VoshFixture {};

TEST_F(GrowthTest, aCollectionGrowsInPlaceFromItsInitialCapacityKeepingEveryEntry) {
  auto writer = manager();
  writer->mountWriter("hw/routes", {{"route", 1024}, {"other", 16}});
  auto routes = writer->table<uint64_t, Route>("hw/routes", "route");
  auto other = writer->table<uint64_t, Route>("hw/routes", "other");
  const std::string segment = writer->segmentName("hw/routes");
  other->set(7, routeFor(7));

  auto readerManager = manager();
  readerManager->mountReader("hw/routes", Vosh::mountTypeReader);
  auto reader = readerManager->table<uint64_t, Route>("hw/routes", "route");
  routes->set(0, routeFor(0));
  scheduler_.runUntilIdle();
  uint64_t notified = 0;
  auto c = reader->onChange.connect([&](uint64_t) { ++notified; });

  for (uint64_t k = 1; k < kEntries; ++k) routes->set(k, routeFor(k));

  EXPECT_GE(routes->capacity(), kEntries);
  EXPECT_EQ(writer->segmentName("hw/routes"), segment) << "grew within its reservation";
  EXPECT_EQ(routes->size(), kEntries);
  EXPECT_EQ(other->lookup(7), routeFor(7));
  uint64_t missing = 0;
  for (uint64_t k = 0; k < kEntries; ++k) missing += routes->lookup(k) != routeFor(k);
  EXPECT_EQ(missing, 0u);

  scheduler_.runUntilIdle();
  EXPECT_EQ(notified, kEntries - 1);
  EXPECT_EQ(reader->size(), kEntries);
  for (uint64_t k = 0; k < kEntries; ++k) missing += reader->lookup(k) != routeFor(k);
  EXPECT_EQ(missing, 0u);
}

TEST_F(GrowthTest, aCollectionUsesAllOfItsReservationBeforeMakingANewGeneration) {
  auto writer = manager();
  writer->mountWriter("hw/routes", {{"route", 16, Vosh::kDefaultChangeRingSize, 100}});
  auto routes = writer->table<uint64_t, Route>("hw/routes", "route");
  const std::string segment = writer->segmentName("hw/routes");
  for (uint64_t k = 0; k < 100; ++k) routes->set(k, routeFor(k));
  EXPECT_EQ(routes->capacity(), 100u);
  EXPECT_EQ(writer->segmentName("hw/routes"), segment);

  routes->set(100, routeFor(100));
  EXPECT_NE(writer->segmentName("hw/routes"), segment);
  EXPECT_GT(routes->capacity(), 100u);
  uint64_t missing = 0;
  for (uint64_t k = 0; k <= 100; ++k) missing += routes->lookup(k) != routeFor(k);
  EXPECT_EQ(missing, 0u);
}

TEST_F(GrowthTest, serializedRecordsOfEveryLengthSurviveAnotherCollectionsGrowth) {
  auto writer = manager();
  writer->mountWriter("hw/mixed", {unreserved("route", 16), unreserved("hops", 16)});
  auto routes = writer->table<uint64_t, Route>("hw/mixed", "route");
  auto hops = writer->table<uint64_t, HopList>("hw/mixed", "hops");
  const uint64_t keys = HopList::kMaxHops;
  for (uint64_t k = 0; k < keys; ++k) hops->set(k, hopsFor(k));
  hops->set(3, HopList{});
  hops->del(5);
  auto readerManager = manager();
  readerManager->mountReader("hw/mixed", Vosh::mountTypeReader);
  auto reader = readerManager->table<uint64_t, HopList>("hw/mixed", "hops");

  const std::string segment = writer->segmentName("hw/mixed");
  for (uint64_t k = 0; k < 5000; ++k) routes->set(k, routeFor(k));
  ASSERT_GE(routes->capacity(), 5000u);
  ASSERT_NE(writer->segmentName("hw/mixed"), segment) << "copied into new generations";

  for (auto* table : {hops.get(), reader.get()}) {
    EXPECT_EQ(table->size(), keys - 1);
    EXPECT_EQ(table->lookup(3), HopList{});
    EXPECT_FALSE(table->lookup(5).count);
    for (uint64_t k = 0; k < keys; ++k) {
      if (k == 3 || k == 5) continue;
      EXPECT_EQ(table->lookup(k), hopsFor(k)) << "key " << k;
    }
  }
  hops->set(keys, hopsFor(keys - 1));
  scheduler_.runUntilIdle();
  EXPECT_EQ(reader->lookup(keys), hopsFor(keys - 1));
}

TEST_F(GrowthTest, onlyTheNewestGenerationKeepsAName) {
  auto writer = manager();
  writer->mountWriter("hw/routes", {unreserved("route", 4)});
  auto routes = writer->table<uint64_t, Route>("hw/routes", "route");
  std::string first = writer->segmentName("hw/routes");
  for (uint64_t k = 0; k < 100; ++k) routes->set(k, routeFor(k));
  std::string base = Vosh::segmentBaseName(prefix_, "hw/routes");
  std::vector<uint32_t> present = Vosh::segmentGenerationsPresent(base);
  ASSERT_EQ(present.size(), 1u);
  EXPECT_NE(writer->segmentName("hw/routes"), first);
  EXPECT_EQ(writer->segmentName("hw/routes"), Vosh::segmentGenerationName(base, present[0]));
}

TEST_F(GrowthTest, aReaderMovesToTheNewGenerationOnItsNextLookup) {
  auto writer = manager();
  writer->mountWriter("hw/routes", {unreserved("route", 4)});
  auto routes = writer->table<uint64_t, Route>("hw/routes", "route");
  for (uint64_t k = 0; k < 4; ++k) routes->set(k, routeFor(k));
  auto readerManager = manager();
  readerManager->mountReader("hw/routes", Vosh::mountTypeReader);
  auto reader = readerManager->table<uint64_t, Route>("hw/routes", "route");
  std::string before = readerManager->segmentName("hw/routes");
  routes->set(4, routeFor(4));
  routes->del(0);
  EXPECT_NE(writer->segmentName("hw/routes"), before);
  EXPECT_EQ(readerManager->segmentName("hw/routes"), before);
  EXPECT_EQ(reader->lookup(4), routeFor(4));
  EXPECT_FALSE(reader->has(0));
  EXPECT_EQ(readerManager->segmentName("hw/routes"), writer->segmentName("hw/routes"));
}

}  // namespace
}  // namespace VoshTest
