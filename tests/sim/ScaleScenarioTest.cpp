#include "sim/ScaleScenario.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <set>
#include <sstream>

#include "sim/ScenarioParser.h"

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

// The same seed writes the same file, another seed another, and the file reads back as
// the shape asked.
TEST(ScaleScenario, TheWrittenFileReadsBackAsTheShapeAskedOfTheSeed) {
  ScaleShape shape = smallShape();
  const std::string text = written(shape);
  EXPECT_EQ(written(shape), text);
  const Scenario generated = scaleScenario(shape);
  const Scenario read = parseScenarioText(text, "gen.yaml");
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
  shape.seed = 8;
  EXPECT_NE(written(shape), text);
}

TEST(ScaleScenario, ShapesThatCannotMakeASwitchAreRefused) {
  for (auto spoil : std::initializer_list<void (*)(ScaleShape&)>{
           [](ScaleShape& s) { s.ecmp = 41; }, [](ScaleShape& s) { s.viaSets = 1004; },
           [](ScaleShape& s) { s.vlanShare = 1.5; }, [](ScaleShape& s) { s.routes = 2000000; }}) {
    ScaleShape shape = smallShape();
    spoil(shape);
    EXPECT_THROW(scaleScenario(shape), std::invalid_argument);
  }
}

}  // namespace
}  // namespace Sim
