#include <gtest/gtest.h>

#include "SwitchFixture.h"

namespace QelTest {
namespace {

using Mpls::Hardware::RouteState;

class HwRouteStatus : public SwitchFixture {
 protected:
  void SetUp() override {
    Qel::SysLog::instance().clear();
    interfaceIs("Ethernet1", 1006);
    arpIs("10.0.0.2", "Ethernet1", "00:00:5e:00:53:01");
    mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
    startAgent();
  }

  std::vector<std::string> sysLogNames() const {
    std::vector<std::string> names;
    for (const auto& entry : Qel::SysLog::instance().entries()) names.push_back(entry.name);
    return names;
  }
};

TEST_F(HwRouteStatus, resourceFullAndNormalAlternateOnceEachAcrossTwoShortages) {
  driver.routeCapacity = 1;
  routeIs(100, 1);
  routeIs(101, 1);
  routeIs(102, 1);
  settle();
  EXPECT_EQ(state()->unprogrammedRoutes(), 2u);
  EXPECT_EQ(sysLogNames(), std::vector<std::string>{"ROUTING_MPLS_RESOURCE_FULL"});

  // Refused again on retry: still the same shortage.
  advance(11);
  EXPECT_EQ(state()->unprogrammedRoutes(), 2u);
  EXPECT_GE(state()->unprogRouteRetried(), 2u);
  EXPECT_EQ(sysLogNames(), std::vector<std::string>{"ROUTING_MPLS_RESOURCE_FULL"});

  // The retry after the shortage programs the refused routes.
  driver.routeCapacity = 3;
  advance(11);
  EXPECT_EQ(state()->unprogrammedRoutes(), 0u);
  EXPECT_EQ(published(102).state, RouteState::routeStateProgrammed);

  // A second shortage ends when its refused routes leave the LFIB.
  routeIs(103, 1);
  routeIs(104, 1);
  settle();
  EXPECT_EQ(state()->unprogrammedRoutes(), 2u);
  EXPECT_EQ(published(103).state, RouteState::routeStateUnprogrammed);
  routeDel(103);
  routeDel(104);
  settle();
  EXPECT_EQ(state()->unprogrammedRoutes(), 0u);
  EXPECT_EQ(sysLogNames(), (std::vector<std::string>{
                               "ROUTING_MPLS_RESOURCE_FULL", "ROUTING_MPLS_RESOURCE_NORMAL",
                               "ROUTING_MPLS_RESOURCE_FULL", "ROUTING_MPLS_RESOURCE_NORMAL"}));
}

TEST_F(HwRouteStatus, aRefusalForAnotherReasonIsPublishedWithoutAResourceLog) {
  driver.failLabels.insert(100);
  routeIs(100, 1);
  settle();
  EXPECT_EQ(published(100).state, RouteState::routeStateUnprogrammed);
  EXPECT_EQ(published(100).unprogrammedReason,
            static_cast<uint32_t>(Qel::UnprogrammedReason::unprogrammedReasonInvalidFecId));
  EXPECT_EQ(state()->unprogrammedRoutes(), 0u);
  EXPECT_TRUE(sysLogNames().empty());
}

TEST_F(HwRouteStatus, aStatusOfAnOlderVersionIsIgnored) {
  driver.answer = false;
  routeIs(100, 1);
  settle();
  uint8_t written = hwRoute(100).version;
  ASSERT_GT(written, 1);
  EXPECT_FALSE(isPublished(100)) << "a route waiting for the driver is not published yet";

  driver.routeStatusIs(key(100), written - 1, Vosh::Qel::mplsHwRouteStateUnprogrammed,
                       Vosh::Qel::mplsHwUnprogReasonRouteFull);
  settle();
  EXPECT_FALSE(isPublished(100));
  EXPECT_EQ(state()->unprogrammedRoutes(), 0u);
  EXPECT_TRUE(sysLogNames().empty());

  driver.routeStatusIs(key(100), written, Vosh::Qel::mplsHwRouteStateProgrammed);
  settle();
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
  EXPECT_EQ(published(100).version, written);
}

}  // namespace
}  // namespace QelTest
