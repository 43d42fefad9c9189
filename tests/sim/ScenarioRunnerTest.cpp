#include "sim/ScenarioRunner.h"

#include <gtest/gtest.h>

#include "ShmPrefix.h"
#include "sim/ExpectChecker.h"
#include "sim/Report.h"
#include "sim/ScenarioParser.h"

namespace Sim {
namespace {

const char* kInputs = R"(interfaces:
  - {name: Ethernet1, vlan: 1006}
  - {name: Ethernet2, vlan: 1007}
arp:
  - {ip: 10.0.0.2, interface: Ethernet1, mac: "00:00:5e:00:53:01"}
  - {ip: 10.0.1.2, interface: Ethernet2, mac: "00:00:5e:00:53:02"}
viaSets:
  - {id: 1, type: mplsIp, vias: [{nexthop: 10.0.0.2, interface: Ethernet1, action: swap, labels: [200]}]}
  - {id: 2, type: mplsIp, vias: [{nexthop: 10.0.1.2, interface: Ethernet2, action: swap, labels: [201]}]}
routes:
  - {labels: 100-102, viaSet: 1}
  - {label: 300, viaSet: 2}
)";

class ScenarioRunnerTest : public ::testing::Test {
 protected:
  Report play(const std::string& more) {
    scenario_ = parseScenarioText(std::string(kInputs) + more, "test.yaml");
    RunOptions options;
    options.prefix = prefix_.str();
    runner_ = std::make_unique<ScenarioRunner>(scenario_, &scheduler_, options);
    runner_->run();
    return reportOf(runner_->sim(), runner_->origin());
  }

  TestShmPrefix prefix_;
  Plin::TaskScheduler scheduler_;
  Scenario scenario_;
  std::unique_ptr<ScenarioRunner> runner_;
};

struct RunCase {
  const char* name;
  const char* more;  // steps, platform and the expectations of the run
  uint32_t starts = 1;
  double minEndTime = 0;
};

// Whatever the run, the agent settles, the hardware holds what the report says and no
// layer-2 record is left without a route.
const RunCase kRuns[] = {
    {"every route programmed",
     "expect: {routes: {programmed: 4, unprogrammed: 0}, l2Adjacencies: 2}"},
    {"a restart while a route and its via set are withdrawn", R"(steps:
  - at: 5
    restart: agent
    delete: {routes: [{label: 300}], viaSets: [{id: 2}]}
expect: {routes: {programmed: 3, "300": absent}, l2Adjacencies: 1}
)",
     2},
    {"a next hop that goes away", R"(steps:
  - {at: 1, delete: {arp: [{ip: 10.0.1.2, interface: Ethernet2}]}}
expect: {routes: {programmed: 3, "300": {state: unprogrammed, reason: nexthopUnresolved}}}
)"},
    {"a slow driver on the virtual clock", R"(platform: {driver: {answerDelay: 100}}
expect: {routes: {programmed: 4}}
)",
     1, 100.0},
    {"a FEC allocator out of room until a step makes room", R"(mode: mediated
platform: {fecAllocator: {capacity: 1}}
steps:
  - {at: 1, platform: {fecAllocator: {capacity: 2}}}
expect: {routes: {programmed: 4}, l2Adjacencies: 0, counters: {fecRequests: 2}}
)"},
    {"MPLS routing turned off", R"(steps:
  - {at: 1, routing: {mpls: false}}
expect: {routes: {programmed: 0}, l2Adjacencies: 0}
)"},
};

class ScenarioRuns : public ScenarioRunnerTest, public ::testing::WithParamInterface<RunCase> {};

TEST_P(ScenarioRuns, SettleWithTheHardwareHoldingWhatTheyReport) {
  const RunCase& c = GetParam();
  SCOPED_TRACE(c.name);
  const Report report = play(c.more);
  EXPECT_TRUE(runner_->settled());
  for (const ExpectFailure& f : checkExpectations(*scenario_.expect, report)) {
    ADD_FAILURE() << describe("test.yaml", f);
  }
  EXPECT_EQ(runner_->sim().agent().starts(), c.starts);
  EXPECT_GE(report.endTime, c.minEndTime);
  EXPECT_EQ(report.startupStage, "mplsSmNormal");
  const HwDriver& driver = *runner_->sim().driver();
  EXPECT_EQ(driver.hwRoutes(), report.programmed);
  EXPECT_EQ(driver.hwL2Adjacencies(), report.l2Adjacencies.size());
  EXPECT_EQ(report.orphanL2Adjacencies, 0u);
}

INSTANTIATE_TEST_SUITE_P(Runs, ScenarioRuns, ::testing::ValuesIn(kRuns));

TEST_F(ScenarioRunnerTest, LeavesTheHardwareInPlaceWhileTheAgentIsDown) {
  play("");
  runner_->sim().agentStop();
  scheduler_.advance(1.0);
  EXPECT_EQ(runner_->sim().driver()->hwRoutes(), 4u);
  HwTables tables(prefix_.str(), &scheduler_);
  EXPECT_EQ(reportOf(tables).programmed, 4u);
}

}  // namespace
}  // namespace Sim
