#include <gtest/gtest.h>

#include "SwitchFixture.h"

namespace QelTest {
namespace {

using Mpls::Hardware::RouteState;

class HwRouteStatus : public SwitchFixture {
 protected:
  void SetUp() override {
    Qel::SysLog::instance().clear();
    hostsAre();
    mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
    startAgent();
  }

  std::vector<std::string> sysLogNames() const {
    std::vector<std::string> names;
    for (const auto& entry : Qel::SysLog::instance().entries()) names.push_back(entry.name);
    return names;
  }
};

TEST_F(HwRouteStatus, resourceFullAndNormalAreLoggedOncePerShortageAndOtherRefusalsNever) {
  driver.routeCapacity = 1;
  routeIs(100, 1);
  routeIs(101, 1);
  routeIs(102, 1);
  settle();
  EXPECT_EQ(state()->unprogrammedRoutes(), 2u);
  EXPECT_EQ(sysLogNames(), std::vector<std::string>{"ROUTING_MPLS_RESOURCE_FULL"});

  // Refused again on retry: still the same shortage. With the attribute log
  // clogged, each refused route is retried once per round, one per slice.
  attrLog->attrLogOutCloggedIs(true);
  uint64_t retried = state()->unprogRouteRetried();
  uint64_t runs = sm()->unprogrammedRouteTask()->runCount();
  advance(sm()->unprogrammedRetryInterval());
  EXPECT_EQ(state()->unprogrammedRoutes(), 2u);
  EXPECT_EQ(state()->unprogRouteRetried() - retried, 2u);
  EXPECT_GE(sm()->unprogrammedRouteTask()->runCount() - runs, 2u);
  EXPECT_EQ(sysLogNames(), std::vector<std::string>{"ROUTING_MPLS_RESOURCE_FULL"});
  attrLog->attrLogOutCloggedIs(false);

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
  routeDel({103, 104});
  settle();
  EXPECT_EQ(state()->unprogrammedRoutes(), 0u);
  const std::vector<std::string> logged{
      "ROUTING_MPLS_RESOURCE_FULL", "ROUTING_MPLS_RESOURCE_NORMAL", "ROUTING_MPLS_RESOURCE_FULL",
      "ROUTING_MPLS_RESOURCE_NORMAL"};
  EXPECT_EQ(sysLogNames(), logged);

  // A refusal for another reason is published, neither retried nor logged.
  driver.routeCapacity = 10;
  driver.failLabels.insert(105);
  routeIs(105, 1);
  settle();
  EXPECT_EQ(published(105).state, RouteState::routeStateUnprogrammed);
  EXPECT_EQ(published(105).unprogrammedReason,
            static_cast<uint32_t>(Qel::UnprogrammedReason::unprogrammedReasonInvalidFecId));
  EXPECT_EQ(state()->unprogrammedRoutes(), 0u);
  EXPECT_EQ(sysLogNames(), logged);
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
