#pragma once

// Reads a scenario file into a Scenario, checking everything that can be
// checked before the simulation starts: unknown keys, malformed values,
// routes naming via sets that were never defined, steps out of time order.
// The first problem found is thrown as a ScenarioError.
//
// Sections of the format whose simulated counterpart does not exist yet
// (pseudowire routes, 802.1Q maps, pseudowire connectors, the FEC
// allocator, the multicast programmer and the decapsulation helper) are
// accepted only when absent or empty, and refused with "not supported yet"
// otherwise, so a scenario never seems to test what is not there.

#include <string>

#include "sim/Scenario.h"

namespace Sim {

Scenario parseScenarioFile(const std::string& file);
// `file` names the text in error messages.
Scenario parseScenarioText(const std::string& text, const std::string& file);

}  // namespace Sim
