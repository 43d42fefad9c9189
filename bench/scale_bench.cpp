// The whole pipeline at scale: the simulated switch writes the LFIB, the
// library programs it, the simulated driver answers, the library publishes.
// Each run writes one JSON result file; docs/performance.md explains them.
//
//   scale_bench --case cold --routes N [--mode direct|mediated] [--restart] [--trace-all] --out DIR
//   scale_bench --case incremental --out DIR
//   scale_bench --case mac-move --out DIR

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <vector>

#include "QelMpls/root/QelMplsRootSm.h"
#include "QelMpls/platform/QelMplsVoshTables.h"
#include "pellet/Trace.h"
#include "sim/ResourceUsage.h"
#include "sim/ScaleScenario.h"
#include "sim/ScenarioRunner.h"
#include "vosh/EntityManager.h"
#include "vosh/SegmentName.h"

namespace {

using Json = nlohmann::ordered_json;

std::string uniquePrefix(const std::string& name) {
  return fmt::format("qelbench-{}-{}", getpid(), name);
}

Json times(const Sim::Stopwatch& watch) {
  return {{"wallSeconds", watch.wall()}, {"cpuSeconds", watch.cpu()}};
}

void writeResult(const std::filesystem::path& dir, const Json& result) {
  std::filesystem::create_directories(dir);
  std::ofstream(dir / (result["name"].get<std::string>() + ".json")) << result.dump(2) << "\n";
  std::cout << result.dump() << std::endl;
}

Sim::ScaleShape coldShape(uint64_t routes, Sim::ProgrammingMode mode = Sim::ProgrammingMode::direct) {
  Sim::ScaleShape shape;
  shape.mode = mode;
  shape.routes = routes;
  shape.viaSets = static_cast<uint32_t>(std::max<uint64_t>(1, routes / 10));
  shape.nextHops = 1000;
  shape.ecmp = 2;
  return shape;
}

const char* modeName(Sim::ProgrammingMode mode) {
  return mode == Sim::ProgrammingMode::mediated ? "mediated" : "direct";
}

Json shapeJson(const Sim::ScaleShape& shape) {
  return {{"routes", shape.routes},   {"viaSets", shape.viaSets}, {"nextHops", shape.nextHops},
          {"ecmp", shape.ecmp},       {"vlanShare", shape.vlanShare},
          {"mode", modeName(shape.mode)}, {"seed", shape.seed}};
}

// A scenario played on its own scheduler under its own prefix.
struct Run {
  Plin::TaskScheduler scheduler;
  Sim::Scenario scenario;
  std::string prefix;
  std::unique_ptr<Sim::ScenarioRunner> runner;

  Run(Sim::Scenario sc, const std::string& name)
      : scenario(std::move(sc)), prefix(uniquePrefix(name)) {
    Sim::RunOptions options;
    options.prefix = prefix;
    runner = std::make_unique<Sim::ScenarioRunner>(scenario, &scheduler, options);
  }
  ~Run() {
    runner = nullptr;
    Vosh::EntityManager::removeAll(prefix);
  }
  const Qel::MplsRootSm& root() const { return *runner->sim().agent().root(); }
  uint64_t programmed() const {
    uint64_t n = 0;
    root().mplsHwCollectionStatus()->forEachMplsHwRoute([&](const auto&, const auto& s) {
      n += s.state == Vosh::Qel::mplsHwRouteStateProgrammed ? 1 : 0;
    });
    return n;
  }
};

// Writes the records the pipeline writes for `routes` routes over `l2Records`
// layer-2 adjacencies of `vias` vias each (configuration, status and sync
// map), into the same tables, with no logic: what the tables themselves cost.
// In the mediated mode the routes point at as many hardware FEC ids instead,
// and no layer-2 record is written.
Json physicalLimit(uint64_t routes, uint32_t l2Records, uint32_t vias, bool mediated) {
  Plin::TaskScheduler scheduler;
  const std::string prefix = uniquePrefix(fmt::format("limit{}", routes));
  auto em = Kiv::make<Vosh::EntityManager>(prefix, &scheduler);
  const char* configPath = Qel::MplsRootSm::kHwRouteConfigPath;
  const char* statusPath = Qel::MplsRootSm::kHwRouteStatusPath;
  em->mountWriter(configPath, Vosh::Qel::MplsHwCollectionConfig::collections());
  em->mountWriter(statusPath, Vosh::Qel::MplsHwCollectionStatus::collections());
  Vosh::Qel::MplsHwCollectionConfig config(*em, configPath);
  Vosh::Qel::MplsHwCollectionStatus status(*em, statusPath);
  Sim::Stopwatch watch;
  for (uint32_t id = 1; id <= l2Records && !mediated; ++id) {
    Vosh::Qel::MplsHwL2AdjacencyConfig record(id);
    for (uint32_t v = 0; v < vias; ++v) {
      record.l2ViaIs(Vosh::Qel::MplsHwL2ViaIndex(v), Mpls::Hardware::L2Via());
    }
    record.versionIs(1);
    config.l2AdjacencyIs(record);
    status.l2AdjacencyIs(
        Vosh::Qel::MplsHwL2AdjacencyStatus{id, Vosh::Qel::mplsHwL2AdjStateProgrammed, 1, {}});
  }
  for (uint64_t r = 0; r < routes; ++r) {
    Mpls::RouteKey key(Bexo::MplsLabel(static_cast<uint32_t>(16 + r)));
    Vosh::Qel::MplsHwRouteConfig record;
    record.routeKey = key;
    if (mediated) {
      record.hwFecIdIs(0x10000 + r % l2Records);
    } else {
      record.l2AdjIdIs(1 + r % l2Records);
    }
    record.version = 1;
    config.mplsHwRouteIs(record);
    Vosh::Qel::MplsHwRouteStatus answer;
    answer.routeKey = key;
    answer.state = Vosh::Qel::mplsHwRouteStateProgrammed;
    answer.version = 1;
    status.mplsHwRouteIs(answer);
    status.mplsRouteSyncMapIs(key, Vosh::Qel::MplsRouteSyncMap{key, {}});
  }
  Json out = times(watch);
  em = nullptr;
  Vosh::EntityManager::removeAll(prefix);
  return out;
}

// The simulated driver and FEC allocator share the process: their own heap
// (their indexes of the tables they read and write, their record of the
// hardware and of their grants) is measured by stopping them once nothing
// needs them any more.
double platformHeapBytesPerRoute(Run& run, uint64_t routes) {
  const uint64_t before = Sim::heapBytesInUse();
  run.runner->sim().driverStop();
  run.runner->sim().fecAllocatorStop();
  const uint64_t after = Sim::heapBytesInUse();
  return before > after ? static_cast<double>(before - after) / static_cast<double>(routes) : 0;
}

uint64_t counter(const Run& run, const std::string& name) {
  const Sim::HwDriver::Counters& c = run.runner->sim().driver()->counters();
  return name == "hwRouteDeletes" ? c.hwRouteDeletes : c.hwRouteRepoints;
}

void addRatio(Json& result, const char* what, const Json& limit) {
  result["ratioToLimit"] =
      result[what]["wallSeconds"].get<double>() / limit["wallSeconds"].get<double>();
}

int coldCase(uint64_t routes, Sim::ProgrammingMode mode, bool withRestart, bool traceAll,
             const std::filesystem::path& dir) {
  const Sim::ScaleShape shape = coldShape(routes, mode);
  const bool mediated = mode == Sim::ProgrammingMode::mediated;
  const std::string suffix = mediated ? "-mediated" : "";
  Run run(Sim::scaleScenario(shape), fmt::format("cold{}", routes));
  Json result = {{"name", fmt::format("cold-{}{}{}", routes, suffix, traceAll ? "-traced" : "")}};
  result["shape"] = shapeJson(shape);
  result["tracing"] = traceAll ? "every level recorded" : "default levels (0-2) recorded";
  Sim::Stopwatch load;
  run.runner->load();
  result["load"] = times(load);
  const bool settled = run.runner->converge();
  const Sim::RunTiming& t = run.runner->timing();
  result["converge"] = {{"wallSeconds", t.convergeSeconds}, {"cpuSeconds", t.convergeCpuSeconds}};
  result["settled"] = settled;
  result["programmed"] = run.programmed();
  result["routesPerSecond"] = static_cast<double>(routes) / t.convergeSeconds;
  result["heapBytesPerRoute"] = t.heapBytesPerRoute();
  result["peakRssBytes"] = t.peakRssBytes;
  result["sharedMemoryBytes"] = Vosh::segmentBytesUnder(run.prefix);
  const Json limit = physicalLimit(routes, shape.viaSets, shape.ecmp, mediated);
  result["physicalLimit"] = limit;
  addRatio(result, "converge", limit);

  bool untouched = true;
  if (withRestart) {
    Json restart = {{"name", fmt::format("restart-{}{}", routes, suffix)}};
    restart["shape"] = shapeJson(shape);
    Sim::Step step;
    step.restartAgent = true;
    const uint64_t deletesBefore = counter(run, "hwRouteDeletes");
    const uint64_t repointsBefore = counter(run, "hwRouteRepoints");
    Sim::Stopwatch watch;
    run.runner->applyStep(step);
    restart["settled"] = run.runner->settle();
    restart["converge"] = times(watch);
    restart["programmed"] = run.programmed();
    restart["hwRouteDeletes"] = counter(run, "hwRouteDeletes") - deletesBefore;
    restart["hwRouteRepoints"] = counter(run, "hwRouteRepoints") - repointsBefore;
    restart["physicalLimit"] = limit;
    addRatio(restart, "converge", limit);
    writeResult(dir, restart);
    // A mediated restart that touched a route is a failed one, however fast.
    untouched = !mediated || (restart["hwRouteDeletes"] == 0 && restart["hwRouteRepoints"] == 0);
  }
  const double platformShare = platformHeapBytesPerRoute(run, routes);
  result["platformHeapBytesPerRoute"] = platformShare;
  result["agentHeapBytesPerRoute"] = t.heapBytesPerRoute() - platformShare;
  writeResult(dir, result);
  return settled && untouched ? 0 : 1;
}

// One change costs a few tens of microseconds, less than this machine's
// noise: each kind is made many times and reported by its median and 90th
// percentile, each time from its application until the switch settled again.
constexpr int kRepetitions = 101;

double percentile(std::vector<double> samples, double p) {
  const auto at = samples.begin() + static_cast<std::ptrdiff_t>(p * (samples.size() - 1));
  std::nth_element(samples.begin(), at, samples.end());
  return *at;
}

Json timedSteps(Run& run, const std::function<Sim::Step(int)>& stepFor) {
  std::vector<double> wall;
  std::vector<double> cpu;
  bool settled = true;
  for (int i = 0; i < kRepetitions; ++i) {
    const Sim::Step step = stepFor(i);
    Sim::Stopwatch watch;
    run.runner->applyStep(step);
    settled = run.runner->settle() && settled;
    wall.push_back(watch.wall());
    cpu.push_back(watch.cpu());
  }
  return {{"wallSeconds", percentile(wall, 0.5)},
          {"cpuSeconds", percentile(cpu, 0.5)},
          {"p90WallSeconds", percentile(wall, 0.9)},
          {"repetitions", kRepetitions},
          {"settled", settled}};
}

int incrementalCase(const std::filesystem::path& dir) {
  const Sim::ScaleShape shape = coldShape(10000);
  Run run(Sim::scaleScenario(shape), "incremental");
  run.runner->run();
  Json result = {{"name", "incremental-10000"}};
  result["shape"] = shapeJson(shape);

  // New labels above the scenario's, one per repetition, added then deleted.
  const uint32_t firstLabel = static_cast<uint32_t>(16 + shape.routes);
  auto labelRange = [&](int i, uint32_t viaSet) {
    const uint32_t label = firstLabel + static_cast<uint32_t>(i);
    return Sim::RouteRange{label, label, Mpls::kDefaultLfibSource, viaSet};
  };
  result["routeAdd"] = timedSteps(run, [&](int i) {
    Sim::Step step;
    step.set.emplace().routes.push_back(labelRange(i, 1));
    return step;
  });
  const uint64_t programmedAfterAdds = run.programmed();
  result["routeAdd"]["programmed"] = programmedAfterAdds;
  result["routeDelete"] = timedSteps(run, [&](int i) {
    Sim::Step step;
    step.del.emplace().routes.push_back(labelRange(i, 0));
    return step;
  });

  // Via set 1 moves its first via to another next hop, with all its routes,
  // and back again.
  const Sim::ViaSetSpec original = run.scenario.inputs.viaSets.front();
  Sim::ViaSetSpec moved = original;
  const Sim::ViaSpec& other = run.scenario.inputs.viaSets.back().vias.back();
  moved.vias.front().nextHop = other.nextHop;
  moved.vias.front().intf = other.intf;
  result["viaSetChange"] = timedSteps(run, [&](int i) {
    Sim::Step step;
    step.set.emplace().viaSets.push_back(i % 2 == 0 ? moved : original);
    return step;
  });
  result["viaSetChange"]["routes"] = run.scenario.inputs.routes.front().size();
  result["programmed"] = run.programmed();
  writeResult(dir, result);
  const bool settled = result["routeAdd"]["settled"].get<bool>() &&
                       result["routeDelete"]["settled"].get<bool>() &&
                       result["viaSetChange"]["settled"].get<bool>();
  const bool complete = programmedAfterAdds == shape.routes + kRepetitions &&
                        result["programmed"].get<uint64_t>() == shape.routes;
  return settled && complete ? 0 : 1;
}

// 100,000 routes over one via set of one next hop: every route shares one
// layer-2 adjacency, whose MAC then moves.
int macMoveCase(const std::filesystem::path& dir) {
  Sim::ScaleShape shape;
  shape.routes = 100000;
  shape.viaSets = 1;
  shape.nextHops = 1;
  shape.ecmp = 1;
  Run run(Sim::scaleScenario(shape), "macmove");
  run.runner->run();
  Json result = {{"name", "mac-move-100000"}};
  result["shape"] = shapeJson(shape);

  Sim::ArpSpec moved = run.scenario.inputs.arp.front();
  moved.mac = Bexo::EthAddr({0x02, 0xff, 0, 0, 0, 1});
  Sim::Step step;
  step.set.emplace().arp.push_back(moved);
  const auto& config = *run.root().mplsHwCollectionConfig();
  auto rewritten = [&] {
    bool found = false;
    config.forEachL2Adjacency([&](uint64_t, const Vosh::Qel::MplsHwL2AdjacencyConfig& r) {
      found = found || (r.l2Vias() > 0 && r.l2Via(Vosh::Qel::MplsHwL2ViaIndex(0)).mac == moved.mac);
    });
    return found;
  };
  Sim::Stopwatch watch;
  run.runner->applyStep(step);
  const bool l2Rewritten = run.scheduler.runUntil(rewritten, 60);
  result["l2Rewritten"] = times(watch);
  result["l2Rewritten"]["done"] = l2Rewritten;
  const bool settled = run.runner->settle();
  result["allPublished"] = times(watch);
  result["allPublished"]["settled"] = settled;
  result["programmed"] = run.programmed();
  writeResult(dir, result);
  return l2Rewritten && settled ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"the pipeline at scale: cold convergence, restart, incremental changes"};
  std::string which = "cold";
  std::string out = "bench/results";
  uint64_t routes = 10000;
  bool restart = false;
  bool traceAll = false;
  std::string mode = "direct";
  app.add_option("--case", which, "cold, incremental or mac-move")
      ->check(CLI::IsMember({"cold", "incremental", "mac-move"}));
  app.add_option("--routes", routes, "routes of a cold run")->capture_default_str();
  app.add_option("--mode", mode, "programming mode of a cold run")
      ->check(CLI::IsMember({"direct", "mediated"}))
      ->capture_default_str();
  app.add_flag("--restart", restart, "after a cold run, restart the agent and time it again");
  app.add_flag("--trace-all", traceAll, "record every trace level of every facility (not echoed)");
  app.add_option("--out", out, "directory for the JSON result files")->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  if (traceAll) Pellet::enable("*", Pellet::allLevels, false);
  if (which == "cold") {
    const auto programming =
        mode == "mediated" ? Sim::ProgrammingMode::mediated : Sim::ProgrammingMode::direct;
    return coldCase(routes, programming, restart, traceAll, out);
  }
  if (which == "incremental") return incrementalCase(out);
  return macMoveCase(out);
}
