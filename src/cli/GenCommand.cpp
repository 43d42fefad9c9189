#include "cli/GenCommand.h"

#include <fstream>
#include <iostream>
#include <stdexcept>

#include <fmt/format.h>

namespace Cli {

namespace {

constexpr int kExitBadInput = 2;
constexpr int kExitWriteFailed = 3;

bool writeTo(const std::string& path, const Sim::Scenario& scenario) {
  if (path == "-") {
    Sim::writeScenario(scenario, std::cout);
    return static_cast<bool>(std::cout);
  }
  std::ofstream out(path);
  Sim::writeScenario(scenario, out);
  out.close();
  return static_cast<bool>(out);
}

}  // namespace

int genCommand(const GenArgs& args) {
  Sim::ScaleShape shape = args.shape;
  if (args.mode == "direct") {
    shape.mode = Sim::ProgrammingMode::direct;
  } else if (args.mode == "mediated") {
    shape.mode = Sim::ProgrammingMode::mediated;
  } else {
    fmt::print(stderr, "qelmpls gen: --mode: expected direct or mediated (found '{}')\n",
               args.mode);
    return kExitBadInput;
  }
  Sim::Scenario scenario;
  try {
    scenario = Sim::scaleScenario(shape);
  } catch (const std::invalid_argument& e) {
    fmt::print(stderr, "qelmpls gen: {}\n", e.what());
    return kExitBadInput;
  }
  if (!writeTo(args.out, scenario)) {
    fmt::print(stderr, "qelmpls gen: cannot write {}\n", args.out);
    return kExitWriteFailed;
  }
  return 0;
}

}  // namespace Cli
