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
  Report play(const std::string& more, RunOptions options = {}) {
    scenario_ = parseScenarioText(std::string(kInputs) + more, "test.yaml");
    options.prefix = prefix_.str();
    runner_ = std::make_unique<ScenarioRunner>(scenario_, &scheduler_, options);
    runner_->run();
    return reportOf(runner_->sim(), runner_->origin());
  }
  const RouteRow* row(const Report& report, uint32_t label) const {
    for (const RouteRow& r : report.routes) {
      if (r.key == Mpls::RouteKey(Bexo::MplsLabel(label))) return &r;
    }
    return nullptr;
  }

  TestShmPrefix prefix_;
  Plin::TaskScheduler scheduler_;
  Scenario scenario_;
  std::unique_ptr<ScenarioRunner> runner_;
};

TEST_F(ScenarioRunnerTest, ProgramsEveryRouteAndSettles) {
  Report report = play("");
  EXPECT_TRUE(runner_->settled());
  EXPECT_EQ(report.programmed, 4u);
  EXPECT_EQ(report.l2Adjacencies.size(), 2u);
  EXPECT_EQ(report.startupStage, "mplsSmNormal");
  EXPECT_EQ(runner_->sim().driver()->hwRoutes(), 4u);
}

TEST_F(ScenarioRunnerTest, RebuildsTheHardwareOnARestartWithoutWhatWasWithdrawnMeanwhile) {
  Report report = play(R"(steps:
  - at: 5
    restart: agent
    delete: {routes: [{label: 300}], viaSets: [{id: 2}]}
)");
  EXPECT_EQ(runner_->sim().agent().starts(), 2u);
  EXPECT_EQ(report.programmed, 3u);
  EXPECT_EQ(row(report, 300), nullptr);
  EXPECT_EQ(report.l2Adjacencies.size(), 1u);
  EXPECT_EQ(report.orphanL2Adjacencies, 0u);
  const HwDriver& driver = *runner_->sim().driver();
  EXPECT_EQ(driver.hwRoutes(), 3u);
  EXPECT_EQ(driver.hwL2Adjacencies(), 1u);
  EXPECT_FALSE(driver.status().mplsHwRouteHas(Mpls::RouteKey(Bexo::MplsLabel(300))));
}

TEST_F(ScenarioRunnerTest, LeavesTheHardwareInPlaceWhileTheAgentIsDown) {
  play("");
  runner_->sim().agentStop();
  scheduler_.advance(1.0);
  EXPECT_EQ(runner_->sim().driver()->hwRoutes(), 4u);
  HwTables tables(prefix_.str(), &scheduler_);
  EXPECT_EQ(reportOf(tables).programmed, 4u);
}

TEST_F(ScenarioRunnerTest, ProgramsARouteOnceItsNextHopAnswers) {
  Report report = play(R"(steps:
  - at: 1
    delete: {arp: [{ip: 10.0.1.2, interface: Ethernet2}]}
)");
  EXPECT_EQ(row(report, 300)->state, "unprogrammed");
  EXPECT_EQ(row(report, 300)->reason, "nexthopUnresolved");
  EXPECT_EQ(report.programmed, 3u);
}

TEST_F(ScenarioRunnerTest, TakesItsTimeFromTheVirtualClock) {
  Report report = play(R"(platform:
  driver: {answerDelay: 100}
)");
  EXPECT_GE(report.endTime, 100.0);
  EXPECT_EQ(report.programmed, 4u);
}

TEST_F(ScenarioRunnerTest, EmptiesTheHardwareWhenMplsRoutingIsTurnedOff) {
  Report report = play(R"(steps:
  - at: 1
    routing: {mpls: false}
)");
  EXPECT_EQ(runner_->sim().driver()->hwRoutes(), 0u);
  EXPECT_EQ(report.programmed, 0u);
}

TEST_F(ScenarioRunnerTest, SeesACapacityRaisedByAStepThroughTheAgentsRetry) {
  Report report = play(R"(platform:
  driver: {routeCapacity: 2}
steps:
  - at: 3
    platform: {driver: {routeCapacity: 10}}
expect:
  routes: {programmed: 4}
  log: [ROUTING_MPLS_RESOURCE_FULL]
)");
  EXPECT_TRUE(checkExpectations(*scenario_.expect, report).empty());
}

}  // namespace
}  // namespace Sim
