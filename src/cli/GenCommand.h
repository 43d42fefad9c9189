#pragma once

// `qelmpls gen`: writes a scale scenario from a few numbers and a seed; the
// same numbers and seed give the same file. Exit status 2 when the numbers
// cannot make a switch, 3 when the file cannot be written.

#include <string>

#include "sim/ScaleScenario.h"

namespace Cli {

struct GenArgs {
  Sim::ScaleShape shape;
  std::string mode = "direct";
  std::string out;
};

int genCommand(const GenArgs& args);

}  // namespace Cli
