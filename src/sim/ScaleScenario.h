#pragma once

// Scale scenarios: a switch with many routes over many via sets, built from a
// few numbers and a seed. The same numbers and seed give the same scenario,
// byte for byte when written out, so a measurement can be repeated anywhere.
//
// Routes take consecutive labels from 16 and are spread over the via sets in
// contiguous blocks (so the file holds one label range per via set). Each via
// set has `ecmp` vias to distinct next hops picked by the seed; a via swaps to
// the label its next hop advertised. Next hops sit behind routed ports
// Ethernet1..8, except the first `vlanShare` of them, which sit behind VLAN
// interfaces (Vlan100..) with a MAC table entry each.

#include <cstdint>
#include <ostream>

#include "sim/Scenario.h"

namespace Sim {

struct ScaleShape {
  uint64_t routes = 10000;
  uint32_t viaSets = 1000;
  uint32_t nextHops = 1000;
  uint32_t ecmp = 2;
  double vlanShare = 0.0;
  ProgrammingMode mode = ProgrammingMode::direct;
  uint64_t seed = 1;
};

// Throws std::invalid_argument when the numbers cannot make a switch (more
// vias per set than next hops, more routes than labels, ...).
Scenario scaleScenario(const ScaleShape& shape);

// Writes a scenario in the scenario file format.
void writeScenario(const Scenario& scenario, std::ostream& out);

}  // namespace Sim
