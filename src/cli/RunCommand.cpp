#include "cli/RunCommand.h"

#include <unistd.h>

#include <fstream>
#include <iostream>
#include <optional>

#include <fmt/format.h>
#include <fmt/ostream.h>

#include "cli/JsonReport.h"
#include "cli/TablePrinter.h"
#include "pellet/Trace.h"
#include "sim/ExpectChecker.h"
#include "sim/ResourceUsage.h"
#include "sim/Report.h"
#include "sim/ScenarioError.h"
#include "sim/ScenarioParser.h"
#include "sim/ScenarioRunner.h"
#include "vosh/EntityManager.h"

namespace Cli {

namespace {

constexpr int kExitCheckFailed = 1;
constexpr int kExitBadInput = 2;
constexpr int kExitRunFailed = 3;

// A run without --prefix gets segments of its own, so runs never collide.
std::string runPrefix(const RunArgs& args) {
  if (!args.prefix.empty()) return args.prefix;
  return fmt::format("{}{}", Vosh::EntityManager::defaultPrefix(), getpid());
}

void printProgress(const Sim::Progress& p) {
  const std::string hardware =
      p.hardwareRoutes ? std::to_string(*p.hardwareRoutes) : "held by the driver process";
  fmt::print(stderr,
             "qelmpls: t={:.3f}s lfib {} routes, tracked {}, unprogrammed {}, hardware {}\n",
             p.time, p.lfibRoutes, p.trackedRoutes, p.unprogrammedRoutes, hardware);
}

// On stderr, so that what the run programmed prints the same every time.
void printCost(const Sim::RunTiming& t) {
  fmt::print(stderr,
             "qelmpls: load {:.3f}s, converge {:.3f}s ({:.3f}s CPU), {:.0f} heap bytes per route, "
             "peak resident {:.1f} MiB\n",
             t.loadSeconds, t.convergeSeconds, t.convergeCpuSeconds, t.heapBytesPerRoute(),
             static_cast<double>(t.peakRssBytes) / (1024.0 * 1024.0));
}

bool writeJson(const std::string& path, const Sim::Report& report, bool settled) {
  std::string text = toJson(report, settled).dump(2) + "\n";
  if (path == "-") {
    std::cout << text;
    return true;
  }
  std::ofstream out(path);
  out << text;
  return static_cast<bool>(out);
}

int checkScenario(const Sim::Scenario& scenario, const Sim::Report& report) {
  std::vector<Sim::ExpectFailure> failures = Sim::checkExpectations(*scenario.expect, report);
  for (const Sim::ExpectFailure& f : failures) {
    fmt::print(stderr, "{}\n", Sim::describe(scenario.file, f));
  }
  if (!failures.empty()) {
    fmt::print(stderr, "{}: {} expectation(s) failed\n", scenario.file, failures.size());
    return kExitCheckFailed;
  }
  fmt::print(stderr, "{}: every expectation holds\n", scenario.file);
  return 0;
}

int play(const RunArgs& args, const Sim::Scenario& scenario, const std::string& prefix,
         double parseSeconds) {
  const bool realtime = args.realtime || args.externalDriver;
  Plin::TaskScheduler scheduler(realtime ? Plin::TaskScheduler::Mode::realTime
                                         : Plin::TaskScheduler::Mode::virtualTime);
  // Traces carry the scheduler's time, for as long as the scheduler lives.
  struct TraceClock {
    explicit TraceClock(Plin::TaskScheduler& s) {
      Pellet::timeSourceIs([&s] { return s.now(); });
    }
    ~TraceClock() { Pellet::timeSourceIs({}); }
  };
  std::optional<TraceClock> traceClock;
  if (!realtime) traceClock.emplace(scheduler);
  if (!args.trace.empty()) Pellet::configure(args.trace);
  Sim::RunOptions options;
  options.prefix = prefix;
  options.externalDriver = args.externalDriver;
  options.progress = printProgress;
  Sim::ScenarioRunner runner(scenario, &scheduler, options);
  runner.run();
  Sim::Report report = Sim::reportOf(runner.sim(), runner.origin());
  report.timing = runner.timing();
  report.timing->loadSeconds += parseSeconds;
  printCost(*report.timing);
  int status = 0;
  if (!args.jsonOut.empty()) {
    if (!writeJson(args.jsonOut, report, runner.settled())) {
      fmt::print(stderr, "qelmpls: cannot write {}\n", args.jsonOut);
      status = kExitRunFailed;
    }
  } else {
    printRoutes(std::cout, report, args.maxRows);
    printSummary(std::cout, report, runner.settled());
  }
  if (args.check && status == 0) status = checkScenario(scenario, report);
  return status;
}

}  // namespace

int runCommand(const RunArgs& args) {
  if (!args.mode.empty() && args.mode != "direct" && args.mode != "mediated") {
    fmt::print(stderr, "qelmpls: --mode: expected direct or mediated (found '{}')\n", args.mode);
    return kExitBadInput;
  }
  Sim::Scenario scenario;
  Sim::Stopwatch parse;
  try {
    scenario = Sim::parseScenarioFile(args.file);
  } catch (const Sim::ScenarioError& e) {
    fmt::print(stderr, "{}\n", e.what());
    return kExitBadInput;
  }
  if (!args.mode.empty()) {
    scenario.mode =
        args.mode == "mediated" ? Sim::ProgrammingMode::mediated : Sim::ProgrammingMode::direct;
  }
  if (args.check && !scenario.expect) {
    fmt::print(stderr, "{}: --check: the scenario has no expect section\n", scenario.file);
    return kExitBadInput;
  }
  const std::string prefix = runPrefix(args);
  int status = kExitRunFailed;
  try {
    status = play(args, scenario, prefix, parse.wall());
  } catch (const std::exception& e) {
    fmt::print(stderr, "qelmpls: {}\n", e.what());
  }
  // The tables of a run against a driver process are that driver's too.
  if (!args.keep && !args.externalDriver) Vosh::EntityManager::removeAll(prefix);
  return status;
}

}  // namespace Cli
