#include "cli/ShowCommand.h"

#include <iostream>

#include <fmt/format.h>

#include "cli/JsonReport.h"
#include "cli/TablePrinter.h"
#include "plin/TaskScheduler.h"
#include "sim/HwTables.h"
#include "sim/Report.h"
#include "vosh/EntityManager.h"

namespace Cli {

int showCommand(const ShowArgs& args) {
  Plin::TaskScheduler scheduler;
  Sim::HwTables tables(args.prefix, &scheduler);
  if (!tables.lfib() && !tables.config() && !tables.status()) {
    fmt::print(stderr, "qelmpls: no agent tables under prefix '{}'\n", args.prefix);
    return 1;
  }
  Sim::Report report = Sim::reportOf(tables);
  if (args.json) {
    std::cout << toJson(report, true).dump(2) << '\n';
  } else if (args.what == "routes") {
    printRoutes(std::cout, report, args.maxRows);
  } else if (args.what == "l2") {
    printL2Adjacencies(std::cout, report, args.maxRows);
  } else if (args.what == "fecs") {
    printFecs(std::cout, report, args.maxRows);
  } else {
    printStatus(std::cout, report);
  }
  return 0;
}

int cleanCommand(const std::string& prefix) {
  Vosh::EntityManager::removeAll(prefix);
  fmt::print("removed the shared-memory tables under prefix '{}'\n", prefix);
  return 0;
}

}  // namespace Cli
