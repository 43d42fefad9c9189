#include <gtest/gtest.h>

#include "SwitchFixture.h"
#include "pellet/Trace.h"

namespace QelTest {
namespace {

using Mpls::Hardware::RouteState;

class DirectMode : public SwitchFixture {
 protected:
  void SetUp() override {
    interfaceIs("Ethernet1", 1006);
    interfaceIs("Ethernet2", 1007);
    arpIs("10.0.0.2", "Ethernet1", "00:00:5e:00:53:01");
    arpIs("10.0.1.2", "Ethernet2", "00:00:5e:00:53:02");
    startAgent();
  }
};

TEST_F(DirectMode, routeIsProgrammedAndPublishedAfterTheDriverAnswers) {
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  routeIs(100, 1);
  settle();
  Vosh::Qel::MplsHwRouteConfig cfg = hwRoute(100);
  ASSERT_TRUE(cfg);
  EXPECT_EQ(cfg.adjacencyIdType, Vosh::Qel::adjIdTypeL2Adjacency);
  Vosh::Qel::MplsHwL2AdjacencyConfig l2 = hwL2(cfg.l2AdjId());
  ASSERT_EQ(l2.l2Vias(), 1u);
  EXPECT_EQ(l2.l2Via(Vosh::Qel::MplsHwL2ViaIndex(0)).vlan, 1006);
  EXPECT_EQ(l2.l2Via(Vosh::Qel::MplsHwL2ViaIndex(0)).label, Bexo::MplsLabel(200));
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
}

TEST_F(DirectMode, lastRouteGoneReleasesAdjacenciesNextHopsAndRecords) {
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}, {"10.0.1.2", "Ethernet2", 300}});
  routeIs(100, 1);
  settle();
  ASSERT_EQ(hwRoutes(), 1u);
  EXPECT_EQ(state()->mplsNextHops(), 2u);
  EXPECT_EQ(root->proactiveArpNexthop()->requests(), 2u);

  routeDel(100);
  settle();
  EXPECT_EQ(hwRoutes(), 0u);
  EXPECT_EQ(hwL2Adjacencies(), 0u);
  EXPECT_EQ(state()->routes(), 0u);
  EXPECT_EQ(state()->l3Adjacencys(), 0u);
  EXPECT_EQ(state()->l2Adjacencys(), 0u);
  EXPECT_EQ(state()->mplsNextHops(), 0u);
  EXPECT_EQ(root->proactiveArpNexthop()->requests(), 0u);
  EXPECT_FALSE(isPublished(100));
}

TEST_F(DirectMode, externalFecViaSetsAreNeverProgrammed) {
  externalFecViaSetIs(7);
  routeIs(100, 7, Mpls::viaTypeExternalFec);
  settle();
  EXPECT_FALSE(hwRoute(100));
  EXPECT_EQ(published(100).state, RouteState::routeStateUnprogrammed);
}

TEST_F(DirectMode, tenThousandRoutesOverHundredViaSetsAllProgrammed) {
  for (int nh = 0; nh < 50; ++nh) {
    arpIs(fmt::format("10.1.{}.2", nh), "Ethernet1", fmt::format("00:00:5e:00:60:{:02x}", nh));
  }
  for (uint32_t vs = 1; vs <= 100; ++vs) {
    mplsViaSetIs(vs,
                 {{fmt::format("10.1.{}.2", vs % 50), "Ethernet1", 1000 + vs % 50},
                  {fmt::format("10.1.{}.2", (vs + 1) % 50), "Ethernet1", 1000 + (vs + 1) % 50}});
  }
  for (uint32_t label = 16; label < 16 + 10000; ++label) routeIs(label, 1 + label % 100);
  settle();
  EXPECT_EQ(hwRoutes(), 10000u);
  EXPECT_EQ(driver.programmedRoutes(), 10000u);
  size_t programmed = 0;
  for (const auto& [key, info] : root->routingHwMplsStatus()->routeColl()) {
    programmed += info.state == RouteState::routeStateProgrammed;
  }
  EXPECT_EQ(programmed, 10000u);
  EXPECT_EQ(hwL2Adjacencies(), 50u) << "one layer-2 record per distinct resolved via set";
}

// The legacy form: routes and layer-2 adjacencies handed to the platform
// through the state-database hardware configuration.
class DirectModeWithoutKivModels : public SwitchFixture {
 protected:
  void SetUp() override {
    featureToggleIs("QelMpls.json", "QelMplsAgentKivModels", false);
    interfaceIs("Ethernet1", 1006);
    arpIs("10.0.0.2", "Ethernet1", "00:00:5e:00:53:01");
    startAgent();
  }
};

TEST_F(DirectModeWithoutKivModels, routesGoToTheStateDatabaseConfigurationOnly) {
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
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);

  routeDel(100);
  settle();
  EXPECT_EQ(hwConfig->routes(), 0u);
  EXPECT_EQ(hwConfig->l2Adjacencys(), 0u);
  expectNoRouteResourcesLeft();
}

}  // namespace
}  // namespace QelTest
