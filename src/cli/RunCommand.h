#pragma once

// `qelmpls run FILE`: plays a scenario and shows what was programmed.
// Exit status: 0 done (and every expectation held with --check), 1 an
// expectation failed, 2 the scenario or the command line is wrong, 3 the run
// could not be carried out.

#include <cstddef>
#include <string>

namespace Cli {

struct RunArgs {
  std::string file;
  std::string mode;
  bool check = false;
  std::string jsonOut;
  std::string trace;
  bool realtime = false;
  std::string prefix;
  bool keep = false;
  bool externalDriver = false;
  size_t maxRows = 200;
};

int runCommand(const RunArgs& args);

}  // namespace Cli
