#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kiv/Assert.h"
#include "korba/EntityManager.h"
#include "korba/MountMode.h"
#include "plin/TaskScheduler.h"

namespace {

using Korba::EntityManager;
using Korba::MountGroup;
using Korba::MountRecord;
using Korba::MountStatus;

constexpr const char* kConfig = "Qel::MplsHwSingletonConfig";
constexpr const char* kStatus = "Routing::Hardware::RouteStatus";

struct SingletonConfig : Kiv::Entity {
   using Entity::Entity;
   KIV_ATTR(bool, mplsRouting, MplsRouting, false)
};
struct RouteStatus : Kiv::Entity {
   using Entity::Entity;
};

struct RecordingCallback : Korba::MountCallback {
   std::vector<MountStatus> statuses;
   EntityManager* entityManager = nullptr;
   std::function<void()> alsoOnComplete;
   void doMountsComplete(MountStatus mountStatus, EntityManager* em) override {
      statuses.push_back(mountStatus);
      entityManager = em;
      if (alsoOnComplete) alsoOnComplete();
   }
};

struct MountFixture : ::testing::Test {
   Plin::TaskScheduler s;
   Kiv::Ptr<EntityManager> manager = Kiv::make<EntityManager>(&s, 3);
   Kiv::Ptr<RecordingCallback> callback = Kiv::make<RecordingCallback>();
   MountFixture() {
      manager->registerType<SingletonConfig>(kConfig);
      manager->registerType<RouteStatus>(kStatus);
   }
   // Mounts all of them in one group and runs the loop until it completes.
   MountStatus mountTogether(const std::vector<MountRecord>& mounts) {
      auto cb = Kiv::make<RecordingCallback>();
      Kiv::Ptr<MountGroup> group = manager->mountGroup(cb);
      for (const MountRecord& m : mounts) group->mount(m.path, m.typeName, m.mode);
      group->close();
      s.runUntilIdle();
      EXPECT_EQ(cb->statuses.size(), 1u);
      EXPECT_EQ(cb->statuses.empty() ? Korba::mountSuccess_ : cb->statuses.front(),
                group->mountStatus());
      return group->mountStatus();
   }
};

TEST(MountMode, acceptsSixCodesThatReadBackAsThemselvesAndNothingElse) {
   for (const char* code : {"r", "w", "rc", "wc", "rS", "wS"}) {
      std::optional<Korba::MountMode> mode = Korba::mountModeFromCode(code);
      ASSERT_TRUE(mode) << code;
      EXPECT_EQ(mode->stringValue(), code);
   }
   for (const char* code : {"", "x", "c", "S", "R", "rw", "wr", "rcS", "rSc", "rcc", "r ", "wC"}) {
      EXPECT_EQ(Korba::mountModeFromCode(code), std::nullopt) << '"' << code << '"';
   }
}

TEST_F(MountFixture, aPathKeepsItsFirstEntityGivenOnlyAsTheClassItIs) {
   auto table = Kiv::make<RouteStatus>();
   manager->entityIs("routing/routes", "Routing::Table", table);
   manager->entityIs("routing/routes", "Routing::Table", table);
   EXPECT_THROW(manager->entityIs("routing/routes", "Routing::Table", Kiv::make<RouteStatus>()),
                Kiv::InternalError);
   EXPECT_THROW(manager->entityIs("routing/routes", "Other::Table", table), Kiv::InternalError);
   EXPECT_EQ(manager->entity("routing/routes"), Kiv::Ptr<Kiv::Entity>(table));
   EXPECT_EQ(manager->entityAs<RouteStatus>("routing/routes"), table);
   EXPECT_EQ(manager->entityAs<SingletonConfig>("routing/routes"), nullptr);
   EXPECT_EQ(manager->entityAs<RouteStatus>("nothing/here"), nullptr);
   EXPECT_EQ(manager->entityTypeName("routing/routes"), "Routing::Table");
}

// One bad mount fails its whole group, and no path of the group is created.
TEST_F(MountFixture, aGroupWithOneBadMountFailsAndCreatesNothing) {
   manager->entityIs("held", kStatus, Kiv::make<RouteStatus>());
   const std::vector<std::pair<std::vector<MountRecord>, MountStatus>> cases{
       {{{"a", kConfig, "w"}, {"held", kConfig, "r"}}, Korba::mountFailureTypeMismatch_},
       {{{"a", kConfig, "w"}, {"a", kStatus, "r"}}, Korba::mountFailureTypeMismatch_},
       {{{"a", kConfig, "w"}, {"b", "QelL3Intf::Table", "r"}}, Korba::mountFailureUnknownType_},
       {{{"a", kConfig, ""}}, Korba::mountFailureBadMode_},
       {{{"a", kConfig, "w"}, {"b", kConfig, "rw"}}, Korba::mountFailureBadMode_},
   };
   for (const auto& [mounts, status] : cases) {
      EXPECT_EQ(mountTogether(mounts), status) << mounts.back();
      EXPECT_EQ(manager->entity("a"), nullptr) << mounts.back();
      EXPECT_EQ(manager->entity("b"), nullptr) << mounts.back();
   }
}

// Cell modes mount the path under the switch's cell.
TEST_F(MountFixture, everyMountAskedForIsRecordedInOrder) {
   Kiv::Ptr<MountGroup> first = manager->mountGroup(callback);
   first->mount("hardware/qel/x", kConfig, "wc");
   Kiv::Ptr<MountGroup> second = manager->mountGroup(callback);
   second->mount("routing/mpls/lfibInfo", "Mpls::LfibInfo", "rS");
   first->mount("hardware/qel/x", kConfig, "rc");
   first->close();
   second->mount("bad", kConfig, "q");
   std::vector<MountRecord> expected{
       {"cell/3/hardware/qel/x", kConfig, "wc"},
       {"routing/mpls/lfibInfo", "Mpls::LfibInfo", "rS"},
       {"cell/3/hardware/qel/x", kConfig, "rc"},
       {"bad", kConfig, "q"},
   };
   EXPECT_EQ(manager->mounts(), expected);
   EXPECT_EQ(second->mounts(), (std::vector<MountRecord>{expected[1], expected[3]}));
   s.runUntilIdle();
   EXPECT_EQ(first->mountStatus(), Korba::mountSuccess_);
   EXPECT_NE(manager->entityAs<SingletonConfig>("cell/3/hardware/qel/x"), nullptr);
   EXPECT_EQ(manager->entity("hardware/qel/x"), nullptr);
   EXPECT_EQ(Kiv::make<EntityManager>(&s)->cellPath("x"), "cell/1/x");
}

// Completions come from the event loop, never from close(), in the order the
// groups were closed; a completion may close the next group, which completes
// later too. A completed group lets go of its callback. A reader mounted
// before the writer holds the very entity the writer fills.
TEST_F(MountFixture, groupsCompleteFromTheEventLoopInTheOrderTheyWereClosed) {
   std::vector<std::string> order;
   auto a = Kiv::make<RecordingCallback>();
   auto b = Kiv::make<RecordingCallback>();
   a->alsoOnComplete = [&] { order.push_back("a"); };
   Kiv::Ptr<SingletonConfig> reader;
   b->alsoOnComplete = [&] {
      order.push_back("b");
      reader = manager->entityAs<SingletonConfig>("hardware/qel/config");
      Kiv::Ptr<MountGroup> group = manager->mountGroup(callback);
      group->mount("hardware/qel/config", kConfig, "w");
      group->close();
      EXPECT_TRUE(callback->statuses.empty());
   };
   callback->alsoOnComplete = [&] { order.push_back("next"); };
   Kiv::Ptr<MountGroup> groupA = manager->mountGroup(a);
   Kiv::Ptr<MountGroup> groupB = manager->mountGroup(b);
   groupB->mount("routing/hardware/route/status", kStatus, "r");
   groupB->mount("hardware/qel/config", kConfig, "r");
   groupB->close();
   groupA->close();
   EXPECT_TRUE(b->statuses.empty());
   EXPECT_FALSE(groupB->completed());
   EXPECT_EQ(manager->entity("hardware/qel/config"), nullptr);
   EXPECT_EQ(b->refCount(), 2u);
   s.runUntilIdle();
   EXPECT_EQ(order, (std::vector<std::string>{"b", "a", "next"}));
   EXPECT_EQ(callback->statuses, std::vector<MountStatus>{Korba::mountSuccess_});
   EXPECT_EQ(b->refCount(), 1u);
   EXPECT_EQ(b->statuses, std::vector<MountStatus>{Korba::mountSuccess_});
   EXPECT_EQ(b->entityManager, manager.get());
   EXPECT_TRUE(groupB->completed());
   EXPECT_EQ(groupB->mountStatus(), Korba::mountSuccess_);
   auto status = manager->entityAs<RouteStatus>("routing/hardware/route/status");
   ASSERT_NE(status, nullptr);
   EXPECT_EQ(status->name(), "routing/hardware/route/status");
   ASSERT_NE(reader, nullptr);
   EXPECT_EQ(manager->entityAs<SingletonConfig>("hardware/qel/config"), reader);
}

}  // namespace
