#pragma once

// Checks a scenario's expectations against the final report. Each
// expectation that does not hold becomes one failure naming where it was
// written, what was expected and what was found.

#include <string>
#include <vector>

#include "sim/Report.h"
#include "sim/Scenario.h"

namespace Sim {

struct ExpectFailure {
  int line = 0;
  std::string what;
  std::string expected;
  std::string found;
};

std::vector<ExpectFailure> checkExpectations(const Expectations& expect, const Report& report);

// "file:line: what: expected X, found Y".
std::string describe(const std::string& file, const ExpectFailure& failure);

}  // namespace Sim
