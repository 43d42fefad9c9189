#include "sim/ScaleScenario.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "ShmPrefix.h"
#include "sim/Report.h"
#include "sim/ScenarioParser.h"
#include "sim/ScenarioRunner.h"

namespace Sim {
namespace {

std::string written(const ScaleShape& shape) {
  std::ostringstream out;
  writeScenario(scaleScenario(shape), out);
  return out.str();
}

ScaleShape smallShape() {
  ScaleShape shape;
  shape.routes = 1003;
  shape.viaSets = 10;
  shape.nextHops = 40;
  shape.ecmp = 3;
  shape.vlanShare = 0.5;
  shape.seed = 7;
  return shape;
}

TEST(ScaleScenario, TheSameSeedWritesTheSameFileAndAnotherSeedAnother) {
  ScaleShape shape = smallShape();
  const std::string first = written(shape);
  EXPECT_EQ(written(shape), first);
  shape.seed = 8;
  EXPECT_NE(written(shape), first);
}

TEST(ScaleScenario, TheWrittenFileReadsBackAsTheShapeAsked) {
  const ScaleShape shape = smallShape();
  const Scenario generated = scaleScenario(shape);
  const Scenario read = parseScenarioText(written(shape), "gen.yaml");
  EXPECT_EQ(read.inputs.interfaces, generated.inputs.interfaces);
  EXPECT_EQ(read.inputs.arp, generated.inputs.arp);
  EXPECT_EQ(read.inputs.fdb, generated.inputs.fdb);
  EXPECT_EQ(read.inputs.viaSets, generated.inputs.viaSets);
  EXPECT_EQ(read.inputs.routes, generated.inputs.routes);
  EXPECT_EQ(read.driver, generated.driver);

  uint64_t routes = 0;
  for (const RouteRange& r : read.inputs.routes) routes += r.size();
  EXPECT_EQ(routes, shape.routes);
  ASSERT_EQ(read.inputs.viaSets.size(), shape.viaSets);
  for (const ViaSetSpec& set : read.inputs.viaSets) {
    std::set<Bexo::IpGenAddr> hops;
    for (const ViaSpec& via : set.vias) hops.insert(via.nextHop);
    EXPECT_EQ(hops.size(), shape.ecmp) << "via set " << set.id;
  }
  EXPECT_EQ(read.inputs.arp.size(), shape.nextHops);
  EXPECT_EQ(read.inputs.fdb.size(), 20u) << "half the next hops sit behind VLAN interfaces";
}

TEST(ScaleScenario, ShapesThatCannotMakeASwitchAreRefused) {
  ScaleShape shape = smallShape();
  shape.ecmp = 41;
  EXPECT_THROW(scaleScenario(shape), std::invalid_argument);
  shape = smallShape();
  shape.viaSets = 1004;
  EXPECT_THROW(scaleScenario(shape), std::invalid_argument);
  shape = smallShape();
  shape.vlanShare = 1.5;
  EXPECT_THROW(scaleScenario(shape), std::invalid_argument);
  shape = smallShape();
  shape.routes = 2000000;
  EXPECT_THROW(scaleScenario(shape), std::invalid_argument);
}

TEST(ScaleScenario, EveryGeneratedRouteIsProgrammedBehindPortsAndVlans) {
  TestShmPrefix prefix;
  Plin::TaskScheduler scheduler;
  const Scenario scenario = scaleScenario(smallShape());
  RunOptions options;
  options.prefix = prefix.str();
  ScenarioRunner runner(scenario, &scheduler, options);
  runner.run();
  ASSERT_TRUE(runner.settled());
  const Report report = reportOf(runner.sim(), runner.origin());
  EXPECT_EQ(report.programmed, 1003u);
  EXPECT_EQ(report.unprogrammed, 0u);
  EXPECT_EQ(report.l2Adjacencies.size(), 10u);
  EXPECT_EQ(runner.timing().routes, 1003u);
  EXPECT_GT(runner.timing().convergeSeconds, 0.0);
}

}  // namespace
}  // namespace Sim
