#include <gtest/gtest.h>

#include "SwitchFixture.h"

namespace QelTest {
namespace {

using Mpls::Hardware::RouteState;

// Route 100 over one resolved via, handed to the platform through the
// shared-memory tables or, in the legacy form, through the state-database
// hardware configuration.
class DirectMode : public SwitchFixture {
 protected:
  void programRoute100(bool kivModels) {
    featureToggleIs("QelMpls.json", "QelMplsAgentKivModels", kivModels);
    interfaceIs("Ethernet1", 1006);
    arpIs("10.0.0.2", "Ethernet1", "00:00:5e:00:53:01");
    startAgent();
    mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
    routeIs(100, 1);
    settle();
  }
};

TEST_F(DirectMode, routeIsProgrammedAndPublishedAfterTheDriverAnswers) {
  programRoute100(true);
  Vosh::Qel::MplsHwRouteConfig cfg = hwRoute(100);
  ASSERT_TRUE(cfg);
  EXPECT_EQ(cfg.adjacencyIdType, Vosh::Qel::adjIdTypeL2Adjacency);
  Vosh::Qel::MplsHwL2AdjacencyConfig l2 = hwL2(cfg.l2AdjId());
  ASSERT_EQ(l2.l2Vias(), 1u);
  EXPECT_EQ(l2.l2Via(Vosh::Qel::MplsHwL2ViaIndex(0)).vlan, 1006);
  EXPECT_EQ(l2.l2Via(Vosh::Qel::MplsHwL2ViaIndex(0)).label, Bexo::MplsLabel(200));
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
  EXPECT_EQ(hwConfig->routes(), 0u);
}

TEST_F(DirectMode, withoutKivModelsRoutesGoToTheStateDatabaseConfigurationOnly) {
  programRoute100(false);
  EXPECT_EQ(hwRoutes(), 0u);
  EXPECT_EQ(hwL2Adjacencies(), 0u);
  ASSERT_TRUE(hwConfig->routeHas(key(100)));
  const Qel::MplsHwRoute& route = *hwConfig->routeFind(key(100));
  ASSERT_TRUE(route.l2Adjacency);
  ASSERT_EQ(route.l2Adjacency->l2ViaSet().size(), 1u);
  EXPECT_EQ(route.l2Adjacency->l2ViaSet().l2Vias()[0].mac,
            Bexo::EthAddr::fromString("00:00:5e:00:53:01"));
  EXPECT_TRUE(hwConfig->l2AdjacencyHas(route.l2Adjacency));
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);

  routeDel(100);
  settle();
  EXPECT_EQ(hwConfig->routes(), 0u);
  EXPECT_EQ(hwConfig->l2Adjacencys(), 0u);
  expectNoRouteResourcesLeft();
}

}  // namespace
}  // namespace QelTest
