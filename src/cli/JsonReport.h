#pragma once

// The machine-readable form of a report (`--json`): routes, layer-2
// adjacencies, the decapsulation, pseudowire and multicast sections (empty
// until the mediated mode and the decapsulation state machines are
// simulated), counters, the start-up record and the resource logs.

#include <nlohmann/json.hpp>

#include "sim/Report.h"

namespace Cli {

nlohmann::ordered_json toJson(const Sim::Report& report, bool settled);

}  // namespace Cli
