#pragma once

// `qelmpls driver --prefix P`: the simulated hardware driver and FEC
// allocator in a process of their own, on the real clock. It waits for the agent's configuration table,
// answers it for as long as it runs, and stays when the agent goes, so an
// agent that is killed and started again finds the "hardware" as it left it.
// SIGINT or SIGTERM ends it; it then prints what it did.

#include <cstdint>
#include <set>
#include <string>

namespace Cli {

struct DriverArgs {
  std::string prefix;
  uint64_t routeCapacity = 1000000;
  uint64_t l2AdjCapacity = 65536;
  double answerDelay = 0.0;
  std::set<uint32_t> failLabels;
  double fecAnswerDelay = 0.0;
  uint64_t fecCapacity = 65536;
};

int driverCommand(const DriverArgs& args);

}  // namespace Cli
