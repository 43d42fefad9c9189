#pragma once

// `qelmpls show routes|l2|status --prefix P`: what an agent's shared-memory
// tables hold, read from this process: a running agent's, or what a stopped
// one left. `qelmpls clean --prefix P` removes them.

#include <cstddef>
#include <string>

namespace Cli {

struct ShowArgs {
  std::string what;
  std::string prefix;
  bool json = false;
  size_t maxRows = 200;
};

int showCommand(const ShowArgs& args);
int cleanCommand(const std::string& prefix);

}  // namespace Cli
