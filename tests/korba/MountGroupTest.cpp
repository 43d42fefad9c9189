#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "korba/EntityManager.h"
#include "plin/TaskScheduler.h"

namespace {

using Korba::EntityManager;
using Korba::MountGroup;
using Korba::MountRecord;
using Korba::MountStatus;

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
      manager->registerType<SingletonConfig>("Qel::MplsHwSingletonConfig");
      manager->registerType<RouteStatus>("Routing::Hardware::RouteStatus");
   }
   MountStatus mountAlone(const std::string& path, const std::string& typeName,
                          const std::string& mode) {
      auto cb = Kiv::make<RecordingCallback>();
      Kiv::Ptr<MountGroup> group = manager->mountGroup(cb);
      group->mount(path, typeName, mode);
      group->close();
      s.runUntilIdle();
      EXPECT_EQ(cb->statuses.size(), 1u);
      return cb->statuses.empty() ? Korba::mountSuccess_ : cb->statuses.front();
   }
};

TEST_F(MountFixture, groupCompletesFromTheEventLoopAndNotInsideClose) {
   Kiv::Ptr<MountGroup> group = manager->mountGroup(callback);
   group->mount("routing/hardware/route/status", "Routing::Hardware::RouteStatus", "r");
   group->mount("hardware/qel/config", "Qel::MplsHwSingletonConfig", "w");
   group->close();
   EXPECT_TRUE(callback->statuses.empty());
   EXPECT_FALSE(group->completed());
   EXPECT_EQ(manager->entity("hardware/qel/config"), nullptr);
   s.runUntilIdle();
   EXPECT_EQ(callback->statuses, std::vector<MountStatus>{Korba::mountSuccess_});
   EXPECT_EQ(callback->entityManager, manager.get());
   EXPECT_TRUE(group->completed());
   EXPECT_EQ(group->mountStatus(), Korba::mountSuccess_);
   auto status = manager->entityAs<RouteStatus>("routing/hardware/route/status");
   ASSERT_NE(status, nullptr);
   EXPECT_EQ(status->name(), "routing/hardware/route/status");
   EXPECT_NE(manager->entityAs<SingletonConfig>("hardware/qel/config"), nullptr);
}

TEST_F(MountFixture, completedGroupLetsGoOfItsCallback) {
   Kiv::Ptr<MountGroup> group = manager->mountGroup(callback);
   group->close();
   EXPECT_EQ(callback->refCount(), 2u);
   s.runUntilIdle();
   EXPECT_EQ(callback->refCount(), 1u);
}

TEST_F(MountFixture, readerMountedBeforeTheWriterHoldsTheEntityTheWriterFills) {
   ASSERT_EQ(mountAlone("hardware/qel/config", "Qel::MplsHwSingletonConfig", "r"),
             Korba::mountSuccess_);
   auto reader = manager->entityAs<SingletonConfig>("hardware/qel/config");
   ASSERT_EQ(mountAlone("hardware/qel/config", "Qel::MplsHwSingletonConfig", "w"),
             Korba::mountSuccess_);
   manager->entityAs<SingletonConfig>("hardware/qel/config")->mplsRoutingIs(true);
   EXPECT_TRUE(reader->mplsRouting());
}

TEST_F(MountFixture, pathHeldAsAnotherTypeFailsTheGroupAndNothingIsCreated) {
   manager->entityIs("routing/hardware/route/status", "Routing::Hardware::RouteStatus",
                     Kiv::make<RouteStatus>());
   Kiv::Ptr<MountGroup> group = manager->mountGroup(callback);
   group->mount("hardware/qel/config", "Qel::MplsHwSingletonConfig", "w");
   group->mount("routing/hardware/route/status", "Qel::MplsHwSingletonConfig", "r");
   group->close();
   s.runUntilIdle();
   EXPECT_EQ(callback->statuses, std::vector<MountStatus>{Korba::mountFailureTypeMismatch_});
   EXPECT_EQ(group->mountStatus(), Korba::mountFailureTypeMismatch_);
   EXPECT_EQ(manager->entity("hardware/qel/config"), nullptr);
}

TEST_F(MountFixture, twoMountsOfOnePathInOneGroupMustAgreeOnItsType) {
   Kiv::Ptr<MountGroup> group = manager->mountGroup(callback);
   group->mount("x", "Qel::MplsHwSingletonConfig", "w");
   group->mount("x", "Routing::Hardware::RouteStatus", "r");
   group->close();
   s.runUntilIdle();
   EXPECT_EQ(callback->statuses, std::vector<MountStatus>{Korba::mountFailureTypeMismatch_});
   EXPECT_EQ(manager->entity("x"), nullptr);
}

TEST_F(MountFixture, typeNameWithNoFactoryFailsTheGroup) {
   EXPECT_EQ(mountAlone("qel/l3IntfTable", "QelL3Intf::Table", "r"),
             Korba::mountFailureUnknownType_);
   EXPECT_EQ(manager->entity("qel/l3IntfTable"), nullptr);
}

TEST_F(MountFixture, badModeCodeFailsTheGroup) {
   for (const char* mode : {"", "x", "rw", "rcS", "W"}) {
      EXPECT_EQ(mountAlone("hardware/qel/config", "Qel::MplsHwSingletonConfig", mode),
                Korba::mountFailureBadMode_)
          << '"' << mode << '"';
   }
   EXPECT_EQ(manager->entity("hardware/qel/config"), nullptr);
}

TEST_F(MountFixture, cellModesMountThePathUnderTheSwitchsCell) {
   for (const char* mode : {"wc", "rc"}) {
      EXPECT_EQ(
          mountAlone("hardware/qel/mplsHwSingletonConfig", "Qel::MplsHwSingletonConfig", mode),
          Korba::mountSuccess_);
   }
   EXPECT_NE(manager->entityAs<SingletonConfig>("cell/3/hardware/qel/mplsHwSingletonConfig"),
             nullptr);
   EXPECT_EQ(manager->entity("hardware/qel/mplsHwSingletonConfig"), nullptr);
   EXPECT_EQ(manager->mounts().front().path, "cell/3/hardware/qel/mplsHwSingletonConfig");
}

TEST_F(MountFixture, everyMountAskedForIsRecordedInOrder) {
   Kiv::Ptr<MountGroup> first = manager->mountGroup(callback);
   first->mount("hardware/qel/mplsHwSingletonConfig", "Qel::MplsHwSingletonConfig", "wc");
   first->mount("routing/mpls/lfibInfo", "Mpls::LfibInfo", "rS");
   Kiv::Ptr<MountGroup> second = manager->mountGroup(callback);
   second->mount("routing/hardware/route/status", "Routing::Hardware::RouteStatus", "r");
   first->mount("bad", "Qel::MplsHwSingletonConfig", "q");
   std::vector<MountRecord> expected{
       {"cell/3/hardware/qel/mplsHwSingletonConfig", "Qel::MplsHwSingletonConfig", "wc"},
       {"routing/mpls/lfibInfo", "Mpls::LfibInfo", "rS"},
       {"routing/hardware/route/status", "Routing::Hardware::RouteStatus", "r"},
       {"bad", "Qel::MplsHwSingletonConfig", "q"},
   };
   EXPECT_EQ(manager->mounts(), expected);
   EXPECT_EQ(second->mounts(), std::vector<MountRecord>{expected[2]});
}

TEST_F(MountFixture, groupsCompleteInTheOrderTheyWereClosed) {
   std::vector<std::string> order;
   auto a = Kiv::make<RecordingCallback>();
   auto b = Kiv::make<RecordingCallback>();
   a->alsoOnComplete = [&] { order.push_back("a"); };
   b->alsoOnComplete = [&] { order.push_back("b"); };
   Kiv::Ptr<MountGroup> groupA = manager->mountGroup(a);
   Kiv::Ptr<MountGroup> groupB = manager->mountGroup(b);
   groupB->close();
   groupA->close();
   s.runUntilIdle();
   EXPECT_EQ(order, (std::vector<std::string>{"b", "a"}));
}

TEST_F(MountFixture, completionMayStartTheNextGroup) {
   Kiv::Ptr<RecordingCallback> next = Kiv::make<RecordingCallback>();
   callback->alsoOnComplete = [&] {
      Kiv::Ptr<MountGroup> group = manager->mountGroup(next);
      group->mount("hardware/qel/config", "Qel::MplsHwSingletonConfig", "w");
      group->close();
      EXPECT_TRUE(next->statuses.empty());
   };
   manager->mountGroup(callback)->close();
   s.runUntilIdle();
   EXPECT_EQ(next->statuses, std::vector<MountStatus>{Korba::mountSuccess_});
}

}  // namespace
