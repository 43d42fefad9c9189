#include <gtest/gtest.h>

#include "SwitchFixture.h"

namespace QelTest {
namespace {

using DirectMode = SwitchFixture;

// The legacy form hands routes to the platform through the state-database
// hardware configuration instead of the shared-memory tables.
TEST_F(DirectMode, withoutKivModelsRoutesGoToTheStateDatabaseConfigurationOnly) {
  featureToggleIs("QelMpls.json", "QelMplsAgentKivModels", false);
  hostsAre();
  startAgent();
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  routeIs(100, 1);
  settle();
  EXPECT_EQ(hwRoutes(), 0u);
  EXPECT_EQ(hwL2Adjacencies(), 0u);
  ASSERT_TRUE(hwConfig->routeHas(key(100)));
  const Qel::MplsHwRoute& route = *hwConfig->routeFind(key(100));
  ASSERT_TRUE(route.l2Adjacency);
  ASSERT_EQ(route.l2Adjacency->l2ViaSet().size(), 1u);
  EXPECT_EQ(route.l2Adjacency->l2ViaSet().l2Vias()[0].mac,
            Bexo::EthAddr::fromString("00:00:5e:00:53:01"));
  EXPECT_TRUE(hwConfig->l2AdjacencyHas(route.l2Adjacency));
  expectProgrammed({100});

  // A restart empties the configuration before it writes again: the
  // previous run's record is not left beside the new one. Route 101 leaves
  // while the agent is down: its next hop's proactive-ARP request goes too.
  mplsViaSetIs(2, {{"10.0.1.2", "Ethernet2", 300}});
  routeIs(101, 2);
  settle();
  ASSERT_EQ(root->proactiveArpNexthop()->requests(), 2u);
  stopCore();
  routeDel(101);
  startCore();
  settle();
  EXPECT_EQ(hwConfig->l2Adjacencys(), 1u);
  EXPECT_EQ(root->proactiveArpNexthop()->requests(), 1u);
  expectProgrammed({100});

  routeDel(100);
  settle();
  EXPECT_EQ(hwConfig->routes(), 0u);
  EXPECT_EQ(hwConfig->l2Adjacencys(), 0u);
  expectNoRouteResourcesLeft();
}

}  // namespace
}  // namespace QelTest
