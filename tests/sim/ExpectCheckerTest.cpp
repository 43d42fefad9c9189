#include "sim/ExpectChecker.h"

#include <gtest/gtest.h>

#include "sim/ScenarioParser.h"

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
  refused.vias = programmed.vias;
  report.routes = {programmed, refused};
  report.programmed = 1;
  report.unprogrammed = 1;
  report.l2Adjacencies.resize(1);
  report.logs.push_back(LogRow{1.0, "ROUTING_MPLS_RESOURCE_FULL", "full"});
  return report;
}

Expectations expectations(const std::string& text) {
  return *parseScenarioText("expect:\n" + text, "s.yaml").expect;
}

TEST(ExpectChecker, AcceptsARunThatMeetsEveryExpectation) {
  // The vias in another order than the hardware keeps them, and only in part.
  const Expectations expect = expectations(R"(  routes:
    programmed: 1
    unprogrammed: 1
    "100": {state: programmed, reason: none, l2: [{mac: "00:00:5e:00:53:02", vlan: 1007, label: 200},
                                                 {mac: "00:00:5e:00:53:01"}]}
    "101/2": {reason: routeFull}
    "102": absent
  l2Adjacencies: 1
  log: [ROUTING_MPLS_RESOURCE_FULL]
)");
  EXPECT_TRUE(checkExpectations(expect, twoRoutes()).empty());
}

TEST(ExpectChecker, ReportsEachExpectationThatFailsWithWhatWasFound) {
  // Layer-2 vias must match one for one.
  const Expectations expect = expectations(R"(  routes:
    programmed: 2
    "101/2": {state: programmed, l2: [{mac: "00:00:5e:00:53:01"}]}
    "100": absent
    "555": {state: programmed}
  log: [ROUTING_MPLS_RESOURCE_NORMAL]
)");
  std::vector<ExpectFailure> failures = checkExpectations(expect, twoRoutes());
  ASSERT_EQ(failures.size(), 6u);
  EXPECT_EQ(describe("s.yaml", failures[0]), "s.yaml:3: routes.programmed: expected 2, found 1");
  EXPECT_EQ(failures[1].what, "routes.\"101/2\".state");
  EXPECT_EQ(failures[1].found, "unprogrammed");
  EXPECT_EQ(failures[2].what, "routes.\"101/2\".l2");
  EXPECT_EQ(failures[3].expected, "absent");
  EXPECT_EQ(failures[4].found, "absent");
  EXPECT_EQ(failures[5].found, "not logged");
}

}  // namespace
}  // namespace Sim
