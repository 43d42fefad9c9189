#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "TestRecords.h"
#include "VoshTestSupport.h"

namespace VoshTest {
namespace {

using RouteTable = Vosh::Table<uint64_t, Route>;

class NotificationTest : public VoshFixture {
 protected:
  void mount(uint32_t ringSize = Vosh::kDefaultChangeRingSize) {
    writerManager_ = manager();
    writerManager_->mountWriter("hw/routes", {{"route", 64, ringSize}});
    routes_ = writerManager_->table<uint64_t, Route>("hw/routes", "route");
    readerManager_ = manager();
    readerManager_->mountReader("hw/routes", Vosh::mountTypeSharedReader);
    reader_ = readerManager_->table<uint64_t, Route>("hw/routes", "route");
    connection_ = record(reader_, notified_);
  }

  std::vector<uint64_t> sortedNotified() {
    std::vector<uint64_t> keys = notified_;
    std::sort(keys.begin(), keys.end());
    return keys;
  }

  Kiv::Ptr<Vosh::EntityManager> writerManager_;
  Kiv::Ptr<Vosh::EntityManager> readerManager_;
  Kiv::Ptr<RouteTable> routes_;
  Kiv::Ptr<RouteTable> reader_;
  std::vector<uint64_t> notified_;
  Kiv::Connection connection_;
};

TEST_F(NotificationTest, nothingIsDeliveredInsideTheWritersCall) {
  mount();
  routes_->set(1, routeFor(1));
  routes_->set(2, routeFor(2));
  routes_->del(2);
  EXPECT_TRUE(notified_.empty());
  scheduler_.runUntilIdle();
  EXPECT_EQ(notified_, std::vector<uint64_t>{1});
}

TEST_F(NotificationTest, aKeyThatCameAndWentBeforeTheReaderLookedIsNoNews) {
  mount();
  routes_->set(1, routeFor(1));
  routes_->del(1);
  routes_->set(2, routeFor(2));
  scheduler_.runUntilIdle();
  EXPECT_EQ(notified_, std::vector<uint64_t>{2});
}

TEST_F(NotificationTest, twoWritesToOneKeyBeforeTheReaderRunsGiveOneNotification) {
  mount();
  routes_->set(1, routeFor(1, 1));
  routes_->set(1, routeFor(1, 2));
  scheduler_.runUntilIdle();
  EXPECT_EQ(notified_, std::vector<uint64_t>{1});
  EXPECT_EQ(reader_->lookup(1), routeFor(1, 2));
}

// A byte and a word: seven bytes of padding that equal records may fill
// differently.
struct Padded {
  uint8_t flag = 0;
  uint64_t value = 0;
  friend bool operator==(const Padded&, const Padded&) = default;
};

// A Padded built over junk, handed out in place so its padding stays junk.
class JunkPadded {
 public:
  JunkPadded(uint8_t flag, uint64_t value, unsigned char junk) {
    std::memset(storage_, junk, sizeof(storage_));
    Padded* p = new (storage_) Padded;
    p->flag = flag;
    p->value = value;
  }
  const Padded& get() const { return *std::launder(reinterpret_cast<const Padded*>(storage_)); }

 private:
  alignas(Padded) unsigned char storage_[sizeof(Padded)];
};

TEST_F(NotificationTest, rewritingAnEqualRecordWhosePaddingDiffersWakesNoReader) {
  Kiv::Ptr<Vosh::EntityManager> writer = manager();
  writer->mountWriter("hw/padded", {{"entry", 16}});
  auto table = writer->table<uint64_t, Padded>("hw/padded", "entry");
  Kiv::Ptr<Vosh::EntityManager> readerSide = manager();
  readerSide->mountReader("hw/padded", Vosh::mountTypeSharedReader);
  auto reader = readerSide->table<uint64_t, Padded>("hw/padded", "entry");
  std::vector<uint64_t> seen;
  Kiv::Connection connection = record(reader, seen);

  table->set(1, JunkPadded(1, 42, 0xAA).get());
  scheduler_.runUntilIdle();
  ASSERT_EQ(seen, std::vector<uint64_t>{1});
  table->set(1, JunkPadded(1, 42, 0x55).get());
  scheduler_.runUntilIdle();
  EXPECT_EQ(seen, std::vector<uint64_t>{1}) << "an equal record was written again";
  table->set(1, JunkPadded(1, 43, 0x55).get());
  scheduler_.runUntilIdle();
  EXPECT_EQ(seen, (std::vector<uint64_t>{1, 1}));
}

TEST_F(NotificationTest, aDeleteIsNotifiedAndTheKeyIsGoneWhenTheReactorLooks) {
  mount();
  routes_->set(1, routeFor(1));
  scheduler_.runUntilIdle();
  notified_.clear();
  bool presentWhenNotified = true;
  auto c =
      reader_->onChange.connect([&](uint64_t key) { presentWhenNotified = reader_->has(key); });
  routes_->del(1);
  scheduler_.runUntilIdle();
  EXPECT_EQ(notified_, std::vector<uint64_t>{1});
  EXPECT_FALSE(presentWhenNotified);
}

TEST_F(NotificationTest, aKeyMovedToAnotherSlotIsNotifiedOnceAndFoundWhereItWent) {
  mount();
  routes_->set(1, routeFor(1));
  routes_->set(2, routeFor(2));
  scheduler_.runUntilIdle();
  notified_.clear();
  // Key 1's slot goes to key 3; key 1 comes back in a fresh slot.
  routes_->del(1);
  routes_->set(3, routeFor(3));
  routes_->set(1, routeFor(1, 2));
  scheduler_.runUntilIdle();
  EXPECT_EQ(sortedNotified(), (std::vector<uint64_t>{1, 3}));
  EXPECT_EQ(reader_->lookup(1), routeFor(1, 2));
  EXPECT_EQ(reader_->lookup(3), routeFor(3));
  EXPECT_EQ(reader_->size(), 3u);
}

TEST_F(NotificationTest, aReaderThatFellBehindTheRingNotifiesExactlyTheChangedKeys) {
  mount(16);
  for (uint64_t k = 0; k < 40; ++k) routes_->set(k, routeFor(k));
  scheduler_.runUntilIdle();
  notified_.clear();
  std::vector<uint64_t> changed;
  for (uint64_t k = 0; k < 40; k += 2) {
    routes_->set(k, routeFor(k, 2));
    routes_->set(k, routeFor(k, 3));
    changed.push_back(k);
  }
  routes_->del(39);
  changed.push_back(39);
  scheduler_.runUntilIdle();
  EXPECT_EQ(sortedNotified(), changed);
  EXPECT_EQ(reader_->lookup(38), routeFor(38, 3));
  EXPECT_FALSE(reader_->has(39));
  EXPECT_EQ(reader_->size(), 39u);
}

TEST_F(NotificationTest, deliveryYieldsBetweenKeysAndStillDeliversEveryOne) {
  mount();
  scheduler_.itemBudgetIs(1);
  for (uint64_t k = 0; k < 5; ++k) routes_->set(k, routeFor(k));
  uint64_t runsBefore = scheduler_.tasksRun();
  scheduler_.runUntilIdle();
  EXPECT_EQ(notified_, (std::vector<uint64_t>{0, 1, 2, 3, 4}));
  EXPECT_GE(scheduler_.tasksRun() - runsBefore, 5u);
}

TEST_F(NotificationTest, pollTakesInChangesAndTheEventLoopDeliversThem) {
  mount();
  routes_->set(1, routeFor(1));
  reader_->poll();
  EXPECT_TRUE(notified_.empty());
  scheduler_.runUntilIdle();
  EXPECT_EQ(notified_, std::vector<uint64_t>{1});
}

TEST_F(NotificationTest, aReaderAttachingLaterIsNotToldOfWhatWasAlreadyThere) {
  mount();
  routes_->set(1, routeFor(1));
  scheduler_.runUntilIdle();
  auto late = manager();
  late->mountReader("hw/routes", Vosh::mountTypeReader);
  auto lateReader = late->table<uint64_t, Route>("hw/routes", "route");
  std::vector<uint64_t> lateNotified;
  auto c = record(lateReader, lateNotified);
  routes_->set(2, routeFor(2));
  scheduler_.runUntilIdle();
  EXPECT_EQ(lateNotified, std::vector<uint64_t>{2});
  EXPECT_EQ(lateReader->lookup(1), routeFor(1));
}

TEST_F(NotificationTest, aReactorCanReadOtherKeysWhileBeingNotified) {
  mount();
  std::vector<Route> seen;
  auto c = reader_->onChange.connect([&](uint64_t key) {
    seen.push_back(reader_->lookup(key));
    seen.push_back(reader_->lookup(key + 100));
  });
  routes_->set(1, routeFor(1));
  routes_->set(101, routeFor(101));
  scheduler_.runUntilIdle();
  ASSERT_EQ(seen.size(), 4u);
  EXPECT_EQ(seen[0], routeFor(1));
  EXPECT_EQ(seen[1], routeFor(101));
}

TEST_F(NotificationTest, afterUnmountAReaderIsNoLongerNotified) {
  mount();
  readerManager_->unmount("hw/routes");
  routes_->set(1, routeFor(1));
  scheduler_.runUntilIdle();
  EXPECT_TRUE(notified_.empty());
  EXPECT_FALSE(reader_->mounted());
}

}  // namespace
}  // namespace VoshTest
