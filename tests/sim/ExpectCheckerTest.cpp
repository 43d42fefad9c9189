#include "sim/ExpectChecker.h"

#include <gtest/gtest.h>

namespace Sim {
namespace {

Mpls::Hardware::L2Via via(const char* mac, uint16_t vlan, uint32_t label) {
  return Mpls::Hardware::L2Via(Bexo::IntfId::ethernet(1), Bexo::EthAddr::fromString(mac), vlan,
                               Bexo::MplsLabel(label), 1, Bexo::IpGenAddr::fromString("10.0.0.2"));
}

Report twoRoutes() {
  Report report;
  RouteRow programmed;
  programmed.key = Mpls::RouteKey(Bexo::MplsLabel(100));
  programmed.state = "programmed";
  programmed.vias = {via("00:00:5e:00:53:01", 1006, 200), via("00:00:5e:00:53:02", 1007, 200)};
  RouteRow refused;
  refused.key = Mpls::RouteKey(Bexo::MplsLabel(101), 2);
  refused.state = "unprogrammed";
  refused.reason = "routeFull";
  report.routes = {programmed, refused};
  report.programmed = 1;
  report.unprogrammed = 1;
  report.l2Adjacencies.resize(1);
  report.logs.push_back(LogRow{1.0, "ROUTING_MPLS_RESOURCE_FULL", "full"});
  return report;
}

RouteExpect routeExpect(uint32_t label, uint8_t source = 0) {
  RouteExpect e;
  e.key = Mpls::RouteKey(Bexo::MplsLabel(label), source);
  e.line = 7;
  return e;
}

TEST(ExpectChecker, AcceptsARunThatMeetsEveryExpectation) {
  Expectations expect;
  expect.programmed = 1;
  expect.unprogrammed = 1;
  expect.l2Adjacencies = 1;
  expect.log = {"ROUTING_MPLS_RESOURCE_FULL"};
  RouteExpect first = routeExpect(100);
  first.state = "programmed";
  first.reason = "none";
  // In another order than the hardware keeps them.
  first.l2 = {{Bexo::EthAddr::fromString("00:00:5e:00:53:02"), 1007, {}, 200, {}},
              {Bexo::EthAddr::fromString("00:00:5e:00:53:01"), {}, {}, {}, {}}};
  RouteExpect second = routeExpect(101, 2);
  second.reason = "routeFull";
  RouteExpect gone = routeExpect(102);
  gone.absent = true;
  expect.routes = {first, second, gone};
  EXPECT_TRUE(checkExpectations(expect, twoRoutes()).empty());
}

TEST(ExpectChecker, ReportsEachExpectationThatFailsWithWhatWasFound) {
  Expectations expect;
  expect.programmed = 2;
  expect.programmedLine = 3;
  RouteExpect wrongState = routeExpect(101, 2);
  wrongState.state = "programmed";
  RouteExpect present = routeExpect(100);
  present.absent = true;
  expect.routes = {wrongState, present};
  expect.log = {"ROUTING_MPLS_RESOURCE_NORMAL"};
  std::vector<ExpectFailure> failures = checkExpectations(expect, twoRoutes());
  ASSERT_EQ(failures.size(), 4u);
  EXPECT_EQ(describe("s.yaml", failures[0]), "s.yaml:3: routes.programmed: expected 2, found 1");
  EXPECT_EQ(failures[1].what, "routes.\"101/2\".state");
  EXPECT_EQ(failures[1].found, "unprogrammed");
  EXPECT_EQ(failures[2].expected, "absent");
  EXPECT_EQ(failures[3].found, "not logged");
}

TEST(ExpectChecker, RefusesLayer2ViasThatDoNotMatchOneForOne) {
  Expectations expect;
  RouteExpect route = routeExpect(100);
  route.l2 = {{Bexo::EthAddr::fromString("00:00:5e:00:53:01"), {}, {}, {}, {}}};
  expect.routes = {route};
  std::vector<ExpectFailure> failures = checkExpectations(expect, twoRoutes());
  ASSERT_EQ(failures.size(), 1u);
  EXPECT_EQ(failures[0].what, "routes.\"100\".l2");
}

TEST(ExpectChecker, ReportsAnExpectedRouteThatIsNowhere) {
  Expectations expect;
  RouteExpect route = routeExpect(555);
  route.state = "programmed";
  expect.routes = {route};
  std::vector<ExpectFailure> failures = checkExpectations(expect, twoRoutes());
  ASSERT_EQ(failures.size(), 1u);
  EXPECT_EQ(failures[0].found, "absent");
}

}  // namespace
}  // namespace Sim
