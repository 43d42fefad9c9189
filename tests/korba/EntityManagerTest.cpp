#include <gtest/gtest.h>

#include "kiv/Assert.h"
#include "korba/EntityManager.h"
#include "plin/TaskScheduler.h"

namespace {

using Korba::EntityManager;

struct RouteTable : Kiv::Entity {
   using Entity::Entity;
};
struct IntfTable : Kiv::Entity {
   using Entity::Entity;
};

struct ManagerFixture : ::testing::Test {
   Plin::TaskScheduler s;
   Kiv::Ptr<EntityManager> manager = Kiv::make<EntityManager>(&s, 7);
};

TEST_F(ManagerFixture, cellPathIsUnderTheSwitchsOwnCell) {
   EXPECT_EQ(manager->cellPath("hardware/qel/mplsHwSingletonConfig"),
             "cell/7/hardware/qel/mplsHwSingletonConfig");
   EXPECT_EQ(Kiv::make<EntityManager>(&s)->cellPath("x"), "cell/1/x");
}

TEST_F(ManagerFixture, entityAsGivesTheEntityOnlyAsTheClassItIs) {
   auto table = Kiv::make<RouteTable>();
   manager->entityIs("routing/routes", "Routing::Table", table);
   EXPECT_EQ(manager->entityAs<RouteTable>("routing/routes"), table);
   EXPECT_EQ(manager->entityAs<const RouteTable>("routing/routes").get(), table.get());
   EXPECT_EQ(manager->entityAs<IntfTable>("routing/routes"), nullptr);
   EXPECT_EQ(manager->entityAs<RouteTable>("nothing/here"), nullptr);
   EXPECT_EQ(manager->entityTypeName("routing/routes"), "Routing::Table");
}

TEST_F(ManagerFixture, pathKeepsItsFirstEntity) {
   auto table = Kiv::make<RouteTable>();
   manager->entityIs("routing/routes", "Routing::Table", table);
   manager->entityIs("routing/routes", "Routing::Table", table);
   EXPECT_THROW(manager->entityIs("routing/routes", "Routing::Table", Kiv::make<RouteTable>()),
                Kiv::InternalError);
   EXPECT_THROW(manager->entityIs("routing/routes", "Other::Table", table), Kiv::InternalError);
   EXPECT_EQ(manager->entity("routing/routes"), Kiv::Ptr<Kiv::Entity>(table));
}

}  // namespace
