#include "vosh/EntityManager.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

#include "VoshTestSupport.h"
#include "vosh/Layout.h"
#include "vosh/Segment.h"
#include "vosh/SegmentName.h"

// Mounting paths, and what a path's segment keeps through growth and through
// its writers' restarts.
namespace VoshTest {
namespace {

class MountTest : public VoshFixture {
 protected:
  // A writer that wrote keys [0, count), deleted the multiples of 5, and went
  // away without removing anything.
  void writeAndGoAway(uint64_t count) {
    Side w = writer();
    for (uint64_t k = 0; k < count; ++k) w.routes->set(k, routeFor(k));
    for (uint64_t k = 0; k < count; k += 5) w.routes->del(k);
  }
};

std::string errorOf(const std::function<void()>& f) {
  try {
    f();
  } catch (const Vosh::MountError& e) {
    return e.what();
  }
  return "no error";
}

TEST_F(MountTest, segmentsAreNamedUnderThePrefixForTheOwnerOnlyAndRemovedByPrefix) {
  auto em = manager();
  em->mountWriter("hw/qel/routes", {{"route", 16}});
  em->mountWriter("b", {{"route", 16}});
  std::string name = em->segmentName("hw/qel/routes");
  EXPECT_EQ(name.rfind("/" + prefix_ + ".hw.qel.routes", 0), 0u) << name;
  struct stat st {};
  ASSERT_EQ(stat(("/dev/shm" + name).c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);

  auto otherPrefix = Kiv::make<Vosh::EntityManager>(prefix_ + "x", &scheduler_);
  otherPrefix->mountWriter("a", {{"route", 16}});
  const uint64_t ownBytes = Vosh::segmentBytesUnder(prefix_);
  const uint64_t otherBytes = Vosh::segmentBytesUnder(prefix_ + "x");
  EXPECT_GT(otherBytes, 0u);
  EXPECT_EQ(ownBytes, 2 * otherBytes) << "two segments of the same shape";
  Vosh::EntityManager::removeAll(prefix_);
  EXPECT_TRUE(Vosh::segmentNamesUnder(prefix_).empty());
  EXPECT_EQ(Vosh::segmentBytesUnder(prefix_), 0u);
  EXPECT_EQ(Vosh::segmentNamesUnder(prefix_ + "x").size(), 1u);
  Vosh::EntityManager::removeAll(prefix_ + "x");
}

// A reader's mount fails cleanly until a writer created the path. One view per
// collection; a path mounted once; a view only of a mounted path's declared
// collection, with the types it was made with.
TEST_F(MountTest, viewsAndMountsAreGivenOnceAndOnlyAsDeclared) {
  auto r = manager();
  std::string error = errorOf([&] { r->mountReader("hw/routes", Vosh::mountTypeReader); });
  EXPECT_NE(error.find("cannot mount hw/routes for reading"), std::string::npos) << error;
  EXPECT_FALSE(r->mounted("hw/routes"));
  EXPECT_THROW(r->mountReader("hw/routes", Vosh::mountTypeSharedReader), Vosh::MountError);
  EXPECT_THROW((r->table<uint64_t, Route>("hw/routes", "route")), Vosh::MountError);
  Side w = writer();
  EXPECT_EQ((w.em->table<uint64_t, Route>("hw/routes", "route")), w.routes);
  EXPECT_THROW((w.em->table<uint32_t, Route>("hw/routes", "route")), Vosh::MountError);
  EXPECT_THROW((w.em->table<uint64_t, Route>("hw/routes", "nope")), Vosh::MountError);
  EXPECT_THROW(w.em->mountWriter("hw/routes", {{"route", 16}}), Vosh::MountError);
  EXPECT_THROW(w.em->mountReader("hw/routes", Vosh::mountTypeReader), Vosh::MountError);
  EXPECT_EQ(w.em->mountType("hw/routes"), Vosh::mountTypeWriter);
  r->mountReader("hw/routes", Vosh::mountTypeReader);
  EXPECT_THROW((r->table<uint64_t, Route>("hw/routes", "nope")), Vosh::MountError);
  error = errorOf([&] { r->table<uint64_t, Blob>("hw/routes", "route"); });
  EXPECT_NE(error.find("not of this table's types"), std::string::npos) << error;
}

// A writer's collection moves to a new generation when the writer first types
// it, after the reader attached, and each time it fills, reserving nothing ahead.
TEST_F(MountTest, aReaderMovesToTheNewGenerationOnItsNextLookup) {
  auto writerEm = manager();
  writerEm->mountWriter("hw/routes", {{"route", 4, Vosh::kDefaultChangeRingSize, 0}});
  Side r = reader();
  std::vector<uint64_t> notified;
  auto c = record(r.routes, notified);
  EXPECT_EQ(r.routes->size(), 0u);
  auto routes = writerEm->table<uint64_t, Route>("hw/routes", "route");
  writeRoutes(*routes, 0, 4);
  scheduler_.runUntilIdle();
  EXPECT_EQ(notified, (std::vector<uint64_t>{0, 1, 2, 3}));
  EXPECT_TRUE(holdsRoutesUpTo(*r.routes, 4));

  std::string before = r.em->segmentName("hw/routes");
  routes->set(4, routeFor(4));
  routes->del(0);
  EXPECT_NE(writerEm->segmentName("hw/routes"), before);
  EXPECT_EQ(r.em->segmentName("hw/routes"), before);
  EXPECT_EQ(r.routes->lookup(4), routeFor(4));
  EXPECT_FALSE(r.routes->has(0));
  EXPECT_EQ(r.em->segmentName("hw/routes"), writerEm->segmentName("hw/routes"));
}

TEST_F(MountTest, theDefaultPrefixComesFromTheEnvironment) {
  const char* fromEnv = std::getenv("QELMPLS_SHM_PREFIX");
  std::string saved = fromEnv ? fromEnv : "";
  ASSERT_EQ(setenv("QELMPLS_SHM_PREFIX", "agentA", 1), 0);
  EXPECT_EQ(Vosh::EntityManager::defaultPrefix(), "agentA");
  ASSERT_EQ(unsetenv("QELMPLS_SHM_PREFIX"), 0);
  EXPECT_EQ(Vosh::EntityManager::defaultPrefix(), "qelmpls");
  if (fromEnv) setenv("QELMPLS_SHM_PREFIX", saved.c_str(), 1);
}

// Several growths in place up to the reservation; past it a new generation,
// and only the newest keeps a name.
TEST_F(MountTest, aCollectionGrowsInPlaceToItsReservationThenIntoANewGenerationKeepingEveryEntry) {
  Side w = writer({{"route", 16, Vosh::kDefaultChangeRingSize, 100}, {"other", 16}});
  auto other = w.em->table<uint64_t, Route>("hw/routes", "other");
  const std::string segment = w.em->segmentName("hw/routes");
  other->set(7, routeFor(7));
  Side r = reader();
  w.routes->set(0, routeFor(0));
  scheduler_.runUntilIdle();
  uint64_t notified = 0;
  auto c = r.routes->onChange.connect([&](uint64_t) { ++notified; });

  writeRoutes(*w.routes, 1, 100);
  EXPECT_EQ(w.routes->capacity(), 100u);
  EXPECT_EQ(w.em->segmentName("hw/routes"), segment) << "grew within its reservation";
  EXPECT_EQ(other->lookup(7), routeFor(7));
  EXPECT_TRUE(holdsRoutesUpTo(*w.routes, 100));
  scheduler_.runUntilIdle();
  EXPECT_EQ(notified, 99u);
  EXPECT_TRUE(holdsRoutesUpTo(*r.routes, 100));

  w.routes->set(100, routeFor(100));
  EXPECT_NE(w.em->segmentName("hw/routes"), segment);
  EXPECT_GT(w.routes->capacity(), 100u);
  EXPECT_TRUE(holdsRoutesUpTo(*w.routes, 101));
  writeRoutes(*w.routes, 101, 1000);
  EXPECT_EQ(other->lookup(7), routeFor(7));
  std::vector<uint32_t> present = generationsPresent();
  ASSERT_EQ(present.size(), 1u);
  EXPECT_EQ(w.em->segmentName("hw/routes"),
            Vosh::segmentGenerationName(Vosh::segmentBaseName(prefix_, "hw/routes"), present[0]));
}

// A slot left mid-write (its sequence lock odd) is reported and freed, and a
// collection the writer newly declares joins the ones it finds.
TEST_F(MountTest, theNextWriterFindsEveryEntryLeftAndReusesTheFreedSlotsBeforeGrowing) {
  writeAndGoAway(100);
  {
    std::vector<uint32_t> present = generationsPresent();
    ASSERT_EQ(present.size(), 1u);
    auto leftover = Vosh::Segment::open(
        Vosh::segmentGenerationName(Vosh::segmentBaseName(prefix_, "hw/routes"), present[0]), true);
    Vosh::CollectionHeader* c = Vosh::collectionHeaders(leftover->data());
    ++*Vosh::slotSeqWord(leftover->data() + c->slotsOffset + 3 * c->slotBytes);
  }
  std::vector<uint64_t> reports;
  auto em = manager();
  em->mountWriter("hw/routes", {{"route", 16}, {"status", 16}});
  auto routes = em->table<uint64_t, Route>("hw/routes", "route",
                                           [&](uint64_t key) { reports.push_back(key); });
  EXPECT_EQ(reports, std::vector<uint64_t>{3});
  EXPECT_EQ((em->table<uint64_t, Route>("hw/routes", "status")->size()), 0u);
  EXPECT_EQ(routes->size(), 79u);
  for (uint64_t k = 0; k < 100; ++k) {
    if (k % 5 == 0 || k == 3) {
      EXPECT_FALSE(routes->has(k)) << k;
    } else {
      EXPECT_EQ(routes->lookup(k), routeFor(k)) << k;
    }
  }
  uint32_t capacity = routes->capacity();
  for (uint64_t k = 0; k < 100; k += 5) routes->set(k + 1000, routeFor(k + 1000));
  routes->set(3, routeFor(3));
  EXPECT_EQ(routes->lookup(3), routeFor(3));
  EXPECT_EQ(routes->capacity(), capacity);
  EXPECT_EQ(routes->size(), 100u);
  std::vector<uint64_t> firstKeys;
  for (const auto& entry : *routes) {
    if (firstKeys.size() < 3) firstKeys.push_back(entry.key);
  }
  EXPECT_EQ(firstKeys, (std::vector<uint64_t>{1000, 1, 2}));
}

// A segment another writer left is trusted only when every directory entry
// adds up; any one field that does not makes it a stranger's.
TEST_F(MountTest, aSegmentWithAnyInconsistentCollectionGeometryIsRefused) {
  Side w = writer();
  auto segment = Vosh::Segment::open(w.em->segmentName("hw/routes"), false);
  ASSERT_NE(segment, nullptr);
  const std::vector<std::byte> good(segment->data(), segment->data() + segment->size());
  ASSERT_EQ(Vosh::segmentProblem(good.data(), good.size(), "hw/routes"), "");
  const std::vector<std::pair<const char*, std::function<void(Vosh::CollectionHeader&)>>> faults{
      {"ring size not a power of two", [](Vosh::CollectionHeader& c) { c.ringSize = 3; }},
      {"slots misaligned", [](Vosh::CollectionHeader& c) { c.slotsOffset += 4; }},
      {"overflow misaligned", [](Vosh::CollectionHeader& c) { c.overflowOffset += 4; }},
      {"ring misaligned", [](Vosh::CollectionHeader& c) { c.ringOffset += 4; }},
      {"capacity past its reservation",
       [](Vosh::CollectionHeader& c) { c.capacity = c.reservedSlots + 1; }},
      {"slot size of another shape", [](Vosh::CollectionHeader& c) { c.slotBytes += 8; }},
  };
  for (const auto& [what, fault] : faults) {
    std::vector<std::byte> bad = good;
    fault(Vosh::collectionHeaders(bad.data())[0]);
    EXPECT_NE(Vosh::segmentProblem(bad.data(), bad.size(), "hw/routes").find("inconsistent"),
              std::string::npos)
        << what;
  }
}

// The segment outlives its writer's mount; a reader carries on with the next writer.
TEST_F(MountTest, unmountLeavesTheSegmentAndLetsTheNextWriterInWhomAReaderHears) {
  Side w = writer();
  w.routes->set(1, routeFor(1));
  Side r = reader();
  std::vector<uint64_t> notified;
  auto c = record(r.routes, notified);
  auto next = manager();
  EXPECT_THROW(next->mountWriter("hw/routes", {{"route", 16}}), Vosh::MountError);
  std::string name = w.em->segmentName("hw/routes");
  w.em->unmount("hw/routes");
  w = Side{};
  EXPECT_NE(Vosh::Segment::open(name, false), nullptr);
  EXPECT_EQ(r.routes->lookup(1), routeFor(1));
  EXPECT_NO_THROW(next->mountWriter("hw/routes", {{"route", 16}}));
  auto routes = next->table<uint64_t, Route>("hw/routes", "route");
  EXPECT_EQ(routes->lookup(1), routeFor(1));
  routes->set(2, routeFor(2));
  scheduler_.runUntilIdle();
  EXPECT_EQ(notified, std::vector<uint64_t>{2});
  EXPECT_EQ(r.routes->lookup(1), routeFor(1));
}

}  // namespace
}  // namespace VoshTest
