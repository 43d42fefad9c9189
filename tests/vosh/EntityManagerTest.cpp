#include "vosh/EntityManager.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "TestRecords.h"
#include "VoshTestSupport.h"
#include "vosh/SegmentName.h"

namespace VoshTest {
namespace {

class EntityManagerTest : public VoshFixture {};

std::string errorOf(const std::function<void()>& f) {
  try {
    f();
  } catch (const Vosh::MountError& e) {
    return e.what();
  }
  return {};
}

TEST_F(EntityManagerTest, aReaderMountFailsCleanlyWhenNoWriterCreatedThePath) {
  auto em = manager();
  std::string error = errorOf([&] { em->mountReader("hw/routes", Vosh::mountTypeReader); });
  EXPECT_NE(error.find("cannot mount hw/routes for reading"), std::string::npos) << error;
  EXPECT_FALSE(em->mounted("hw/routes"));
  EXPECT_THROW(em->mountReader("hw/routes", Vosh::mountTypeSharedReader), Vosh::MountError);
}

TEST_F(EntityManagerTest, segmentsAreNamedUnderThePrefixAndOnlyTheOwnerMayOpenThem) {
  auto em = manager();
  em->mountWriter("hw/qel/routes", {{"route", 16}});
  std::string name = em->segmentName("hw/qel/routes");
  EXPECT_EQ(name.rfind("/" + prefix_ + ".hw.qel.routes", 0), 0u) << name;
  struct stat st {};
  ASSERT_EQ(stat(("/dev/shm" + name).c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST_F(EntityManagerTest, removeAllRemovesOnlyItsOwnPrefix) {
  auto em = manager();
  em->mountWriter("a", {{"route", 16}});
  em->mountWriter("b", {{"route", 16}});
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

TEST_F(EntityManagerTest, askingForATableTwiceGivesTheSameView) {
  auto em = manager();
  em->mountWriter("hw/routes", {{"route", 16}});
  auto first = em->table<uint64_t, Route>("hw/routes", "route");
  auto second = em->table<uint64_t, Route>("hw/routes", "route");
  EXPECT_EQ(first, second);
  EXPECT_THROW((em->table<uint32_t, Route>("hw/routes", "route")), Vosh::MountError);
}

TEST_F(EntityManagerTest, tablesOfUnmountedPathsOrUndeclaredCollectionsAreRefused) {
  auto writer = manager();
  EXPECT_THROW((writer->table<uint64_t, Route>("hw/routes", "route")), Vosh::MountError);
  writer->mountWriter("hw/routes", {{"route", 16}});
  EXPECT_THROW((writer->table<uint64_t, Route>("hw/routes", "nope")), Vosh::MountError);
  auto reader = manager();
  reader->mountReader("hw/routes", Vosh::mountTypeReader);
  EXPECT_THROW((reader->table<uint64_t, Route>("hw/routes", "nope")), Vosh::MountError);
}

TEST_F(EntityManagerTest, aReaderOfOtherRecordTypesIsRefused) {
  auto writer = manager();
  writer->mountWriter("hw/routes", {{"route", 16}});
  writer->table<uint64_t, Route>("hw/routes", "route");
  auto reader = manager();
  reader->mountReader("hw/routes", Vosh::mountTypeReader);
  std::string error = errorOf([&] { reader->table<uint64_t, HopList>("hw/routes", "route"); });
  EXPECT_NE(error.find("not of this table's types"), std::string::npos) << error;
}

TEST_F(EntityManagerTest, aReaderSeesACollectionThatItsWriterTypesAfterTheReaderAttached) {
  auto writer = manager();
  writer->mountWriter("hw/routes", {{"route", 16}});
  auto reader = manager();
  reader->mountReader("hw/routes", Vosh::mountTypeReader);
  auto readerRoutes = reader->table<uint64_t, Route>("hw/routes", "route");
  std::vector<uint64_t> notified;
  auto c = record(readerRoutes, notified);
  EXPECT_EQ(readerRoutes->size(), 0u);

  auto routes = writer->table<uint64_t, Route>("hw/routes", "route");
  routes->set(1, routeFor(1));
  scheduler_.runUntilIdle();
  EXPECT_EQ(notified, std::vector<uint64_t>{1});
  EXPECT_EQ(readerRoutes->lookup(1), routeFor(1));
}

TEST_F(EntityManagerTest, mountingAPathTwiceIsRefused) {
  auto em = manager();
  em->mountWriter("hw/routes", {{"route", 16}});
  EXPECT_THROW(em->mountWriter("hw/routes", {{"route", 16}}), Vosh::MountError);
  EXPECT_THROW(em->mountReader("hw/routes", Vosh::mountTypeReader), Vosh::MountError);
  EXPECT_EQ(em->mountType("hw/routes"), Vosh::mountTypeWriter);
}

TEST_F(EntityManagerTest, theDefaultPrefixComesFromTheEnvironment) {
  const char* fromEnv = std::getenv("QELMPLS_SHM_PREFIX");
  std::string saved = fromEnv ? fromEnv : "";
  ASSERT_EQ(setenv("QELMPLS_SHM_PREFIX", "agentA", 1), 0);
  EXPECT_EQ(Vosh::EntityManager::defaultPrefix(), "agentA");
  ASSERT_EQ(unsetenv("QELMPLS_SHM_PREFIX"), 0);
  EXPECT_EQ(Vosh::EntityManager::defaultPrefix(), "qelmpls");
  if (fromEnv) setenv("QELMPLS_SHM_PREFIX", saved.c_str(), 1);
}

}  // namespace
}  // namespace VoshTest
