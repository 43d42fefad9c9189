#include "sim/ScenarioParser.h"

#include <gtest/gtest.h>

#include "sim/ScenarioError.h"

namespace Sim {
namespace {

const char* kFull = R"(mode: mediated
routing: {mpls: true, allowDefaultRoute: true}
interfaces:
  - {name: Ethernet1, vlan: 1006}
  - {name: Vlan100}
  - {name: Ethernet9, vlan: 1009, hwSupported: false}
arp:
  - {ip: 10.0.0.2, interface: Ethernet1, mac: "00:00:5e:00:53:01"}
  - {ip: "2001:db8::2", interface: Ethernet1, mac: "00:00:5e:00:53:02"}
fdb:
  - {vlan: 100, mac: "00:00:5e:00:53:03", port: Ethernet2}
vrfs: [default, red]
dot1qMaps: {}
pseudowires: []
viaSets:
  - id: 1
    type: mplsIp
    backup: 7
    usableAsPrimary: false
    vias:
      - {nexthop: 10.0.0.2, interface: Ethernet1, action: swap, labels: [200], payload: mpls, weight: 3}
      - {nexthop: "2001:db8::2", interface: Ethernet1, action: push, labels: [16, 17]}
  - {id: 2, type: externalFec, vias: [{fecId: 0x0900000000000011}]}
  - {id: 3, type: ipLookup, vias: [{vrf: red, payload: ipv4}]}
  - {id: 4, type: vlan, vias: [{vlan: 100}]}
  - {id: 7, type: mplsIp, vias: []}
routes:
  - {label: 100, viaSet: 1}
  - {label: 101, source: 2, viaSet: 1}
  - {labels: 1000-1999, viaSet: 2}
pwRoutes: []
platform:
  driver: {routeCapacity: 10, l2AdjCapacity: 5, answerDelay: 0.5, answer: false, fail: {labels: [100]}}
  fecAllocator: {answerDelay: 5, answer: false, capacity: 7}
steps:
  - at: 1.0
    set: {arp: [{ip: 10.0.0.2, interface: Ethernet1, mac: "00:00:5e:00:53:99"}]}
  - at: 2.0
    delete: {routes: [{label: 101, source: 2}], arp: [{ip: 10.0.0.2, interface: Ethernet1}]}
  - at: 3.0
    routing: {mpls: false}
  - at: 4.0
    restart: agent
  - at: 5.0
    platform: {driver: {routeCapacity: 20}, fecAllocator: {answer: true}}
expect:
  routes:
    programmed: 3
    unprogrammed: 1
    "100": {state: programmed, reason: none, l2: [{mac: "00:00:5e:00:53:99", vlan: 1006, interface: Ethernet1, label: 200}]}
    "101/2": absent
  l2Adjacencies: 1
  log: ["ROUTING_MPLS_RESOURCE_FULL"]
)";

TEST(ScenarioParser, ReadsEverySupportedSectionOfTheFormat) {
  Scenario s = parseScenarioText(kFull, "full.yaml");
  EXPECT_EQ(s.mode, ProgrammingMode::mediated);
  EXPECT_TRUE(s.allowDefaultRoute);
  ASSERT_EQ(s.inputs.interfaces.size(), 3u);
  EXPECT_TRUE(s.inputs.interfaces[0].routedPort);
  EXPECT_EQ(s.inputs.interfaces[1].vlan, 100);
  EXPECT_FALSE(s.inputs.interfaces[1].routedPort);
  EXPECT_FALSE(s.inputs.interfaces[2].hwSupported);
  EXPECT_EQ(s.inputs.arp[1].key.addr, Bexo::IpGenAddr::fromString("2001:db8::2"));
  EXPECT_EQ(s.inputs.fdb[0].port, Bexo::IntfId::ethernet(2));
  EXPECT_EQ(s.inputs.vrfs, (std::vector<std::string>{"default", "red"}));

  const ViaSetSpec& first = s.inputs.viaSets[0];
  EXPECT_EQ(first.backup, 7u);
  EXPECT_FALSE(first.usableAsPrimary);
  EXPECT_EQ(first.vias[0].weight, 3u);
  EXPECT_EQ(first.vias[1].labelOperation.labelStack().stackSize(), 2u);
  EXPECT_EQ(s.inputs.viaSets[1].vias[0].fecId, 0x0900000000000011u);
  EXPECT_EQ(s.inputs.viaSets[2].vias[0].vrf, "red");
  EXPECT_EQ(s.inputs.viaSets[3].type, Mpls::LfibViaType::viaTypeVlan);

  ASSERT_EQ(s.inputs.routes.size(), 3u);
  EXPECT_EQ(s.inputs.routes[1].source, 2);
  EXPECT_EQ(s.inputs.routes[2].size(), 1000u);

  EXPECT_EQ(s.driver.routeCapacity, 10u);
  EXPECT_EQ(s.driver.l2AdjCapacity, 5u);
  EXPECT_EQ(s.driver.answerDelay, 0.5);
  EXPECT_FALSE(s.driver.answer);
  EXPECT_TRUE(s.driver.failLabels.contains(100));
  EXPECT_EQ(s.fecAllocator, (FecAllocatorConfig{5.0, false, 7}));

  ASSERT_EQ(s.steps.size(), 5u);
  EXPECT_TRUE(s.steps[1].del && s.steps[1].del->routes[0].source == 2);
  EXPECT_EQ(s.steps[2].routing->mpls, false);
  EXPECT_TRUE(s.steps[3].restartAgent);
  EXPECT_EQ(s.steps[4].platform->driver.routeCapacity, 20u);
  EXPECT_EQ(s.steps[4].platform->fecAllocator.answer, true);

  ASSERT_TRUE(s.expect);
  EXPECT_EQ(s.expect->programmed, 3u);
  ASSERT_EQ(s.expect->routes.size(), 2u);
  EXPECT_EQ(s.expect->routes[0].l2->at(0).vlan, 1006);
  EXPECT_TRUE(s.expect->routes[1].absent);
  EXPECT_EQ(s.expect->routes[1].key, Mpls::RouteKey(Bexo::MplsLabel(101), 2));
  EXPECT_EQ(s.expect->log[0], "ROUTING_MPLS_RESOURCE_FULL");
}

// A step may also use a via set that an earlier step defined.
TEST(ScenarioParser, FillsInTheDefaultsOfAnOmittedKey) {
  Scenario s = parseScenarioText(R"(viaSets:
  - {id: 1, type: mplsIp, vias: [{nexthop: 10.0.0.2, interface: Ethernet1, action: swap}]}
routes: [{label: 5, viaSet: 1}]
steps:
  - {at: 1, set: {viaSets: [{id: 9, type: mplsIp, vias: []}]}}
  - {at: 2, set: {routes: [{label: 6, viaSet: 9}]}}
)",
                                 "defaults.yaml");
  EXPECT_TRUE(s.mplsRouting);
  EXPECT_EQ(s.driver, DriverConfig{});
  EXPECT_EQ(s.inputs.viaSets[0].vias[0].payload, Mpls::PayloadType::payloadMpls);
  EXPECT_EQ(s.inputs.viaSets[0].vias[0].weight, 1u);
  EXPECT_TRUE(s.inputs.viaSets[0].usableAsPrimary);
  EXPECT_EQ(s.inputs.routes[0].source, Mpls::kDefaultLfibSource);
  EXPECT_FALSE(s.expect);
  EXPECT_EQ(s.steps[1].set->routes[0].viaSet, 9u);
}

struct BadCase {
  std::string text;
  int line;
  const char* key;
  const char* problem;
};

class ScenarioParserRejects : public ::testing::TestWithParam<BadCase> {};

TEST_P(ScenarioParserRejects, NamingTheLineTheKeyAndWhatWasExpected) {
  const BadCase& c = GetParam();
  try {
    parseScenarioText(c.text, "bad.yaml");
    FAIL() << "accepted " << c.text;
  } catch (const ScenarioError& e) {
    EXPECT_EQ(e.file(), "bad.yaml");
    EXPECT_EQ(e.line(), c.line) << e.what();
    EXPECT_EQ(e.key(), c.key) << e.what();
    EXPECT_NE(e.problem().find(c.problem), std::string::npos) << e.what();
  }
}

// After a first line that defines via set 1.
std::string v(const char* rest) {
  return "viaSets: [{id: 1, type: mplsIp, vias: []}]\n" + std::string(rest);
}

const BadCase kBadCases[] = {
    {"mode: direct\ncolour: red\n", 2, "colour", "unknown key"},
    {v("routes:\n  - {label: 1, viaSet: 1, colour: red}\n"), 3, "routes[0].colour", "unknown key"},
    {"arp:\n  - {ip: 10.0.0.300, interface: Ethernet1, mac: \"00:00:5e:00:53:01\"}\n", 2,
     "arp[0].ip", "expected an IPv4 or IPv6 address (found '10.0.0.300')"},
    {"arp:\n  - {ip: 10.0.0.3, interface: Ethernet1, mac: nope}\n", 2, "arp[0].mac",
     "expected a MAC address"},
    {v("routes:\n  - {label: 1, viaSet: 1}\n  - {label: 2, viaSet: 4}\n"), 4, "routes[1].viaSet",
     "expected the id of a via set defined under viaSets"},
    {v("steps:\n  - at: 1\n    set: {routes: [{label: 2, viaSet: 4}]}\n"), 4,
     "steps[0].set.routes[0].viaSet", "expected the id of a via set"},
    {v("routes:\n  - {label: 1}\n"), 3, "routes[0].viaSet", "missing"},
    {v("routes:\n  - {label: 1048576, viaSet: 1}\n"), 3, "routes[0].label", "from 0 to 1048575"},
    {v("routes:\n  - {labels: 20-10, viaSet: 1}\n"), 3, "routes[0].labels", "FIRST <= LAST"},
    {v("routes:\n  - {labels: 10-20, viaSet: 1}\n  - {label: 15, viaSet: 1}\n"), 4, "routes",
     "route 15 is defined twice"},
    {"viaSets:\n  - {id: 1, type: mplsIp, vias: []}\n  - {id: 1, type: vlan, vias: []}\n", 3,
     "viaSets[1].id", "defined twice"},
    {"viaSets:\n  - {id: 1, type: mplsIp, backup: 2, vias: []}\n", 2, "viaSets[0].backup",
     "expected the id of a via set"},
    {"viaSets:\n  - {id: 1, type: carrierPigeon, vias: []}\n", 2, "viaSets[0].type",
     "expected mplsIp"},
    {"viaSets:\n  - {id: 1, type: mplsIp, vias: [{nexthop: 1.1.1.1, interface: Ethernet1, action: "
     "twist}]}\n",
     2, "viaSets[0].vias[0].action", "expected push, pop or swap"},
    {"mode: indirect\n", 1, "mode", "expected direct or mediated"},
    {"pwRoutes:\n  - {label: 5000, viaSet: 6}\n", 1, "pwRoutes", "not supported yet"},
    {"dot1qMaps:\n  map1: {10: 100}\n", 1, "dot1qMaps", "not supported yet"},
    {"expect:\n  counters:\n    hwRouteDeleted: 0\n", 3, "expect.counters.hwRouteDeleted",
     "unknown counter"},
    {"expect:\n  routes:\n    \"5\": {hwFecId: granted}\n", 3, "expect.routes.5.hwFecId",
     "expected valid, invalid or a number"},
    {"platform:\n  decapHelper: {rc: {labels: {300: 1}}}\n", 2, "platform.decapHelper",
     "not supported yet"},
    {"expect:\n  decap: {\"300\": {unprogrammed: 1}}\n", 2, "expect.decap", "not supported yet"},
    {"viaSets:\n  - {id: 5, type: evpnVlanAware, vias: [{dot1qMap: map1}]}\n", 2,
     "viaSets[0].vias[0].dot1qMap", "not supported yet"},
    {"steps:\n  - {at: 2, restart: agent}\n  - {at: 1, restart: agent}\n", 3, "steps[1].at",
     "no earlier than"},
    {"steps:\n  - {at: 2}\n", 2, "steps[0]", "expected one of set"},
    {"steps:\n  - {at: 2, restart: driver}\n", 2, "steps[0].restart", "expected agent"},
    {v("steps:\n  - at: 1\n    set: {viaSets: [{id: 1, type: externalFec, vias: []}]}\n"), 4,
     "steps[0].set.viaSets[0]", "keeps its type"},
    {"interfaces:\n  - {name: Ethernet1}\n", 2, "interfaces[0].vlan", "missing"},
    {"interfaces:\n  - {name: Vlan100, vlan: 200}\n", 2, "interfaces[0].vlan",
     "the VLAN of Vlan100"},
    {"expect:\n  routes:\n    \"abc\": absent\n", 3, "expect.routes.abc", "route key"},
    {"expect:\n  routes:\n    \"5\": {reason: tired}\n", 3, "expect.routes.5.reason",
     "unprogrammed reason"},
    {"routes: [\n  {label: 1\n", 3, "", "not valid YAML"},
};

INSTANTIATE_TEST_SUITE_P(BadScenarios, ScenarioParserRejects, ::testing::ValuesIn(kBadCases));

}  // namespace
}  // namespace Sim
