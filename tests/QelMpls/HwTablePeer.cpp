// A driver in its own process, attached to the hardware tables the way
// docs/hardware-tables.md tells a driver writer to attach. Commands, each
// with the segment prefix:
//   dump     read the route config tables; print "route <text>" and
//            "l2 <text>" per record, sorted, then "end"
//   watch    say "ready"; on a line from stdin take in the agent's changes and
//            print "notified" and each changed route key with the version
//            now stored (or "absent"), sorted
//   answer   write a programmed status for every route, echoing its version;
//            print "answered <count>"
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "QelMpls/platform/QelMplsVoshTables.h"
#include "plin/TaskScheduler.h"
#include "vosh/EntityManager.h"

namespace {

using Vosh::Qel::MplsHwCollectionConfig;
using Vosh::Qel::MplsHwCollectionStatus;

constexpr const char* kConfigPath = "hardware/qel/mplsHwRouteConfig";
constexpr const char* kStatusPath = "hardware/qel/mplsHwRouteStatus";

void say(const std::string& line) {
  std::fputs((line + "\n").c_str(), stdout);
  std::fflush(stdout);
}

void waitForLine() {
  char line[64];
  if (!std::fgets(line, sizeof(line), stdin)) std::exit(3);
}

Kiv::Ptr<MplsHwCollectionConfig> attachConfig(Vosh::EntityManager& em) {
  em.mountReader(kConfigPath, Vosh::mountTypeSharedReader);
  return Kiv::make<MplsHwCollectionConfig>(em, kConfigPath);
}

int dump(Vosh::EntityManager& em) {
  auto config = attachConfig(em);
  std::vector<std::string> lines;
  config->forEachMplsHwRoute([&](const Mpls::RouteKey&, const Vosh::Qel::MplsHwRouteConfig& r) {
    lines.push_back("route " + r.stringValue());
  });
  config->forEachL2Adjacency(
      [&](Vosh::Qel::MplsHwL2AdjacencyId, const Vosh::Qel::MplsHwL2AdjacencyConfig& a) {
        lines.push_back("l2 " + a.stringValue());
      });
  std::sort(lines.begin(), lines.end());
  for (const std::string& line : lines) say(line);
  say("end");
  return 0;
}

int watch(Vosh::EntityManager& em, Plin::TaskScheduler& scheduler) {
  auto config = attachConfig(em);
  std::vector<std::string> changed;
  Kiv::Connection c = config->onMplsHwRoute().connect([&](const Mpls::RouteKey& key) {
    Vosh::Qel::MplsHwRouteConfig r = config->mplsHwRoute(key);
    changed.push_back(r ? fmt::format("{}:{}", key, r.version) : fmt::format("{}:absent", key));
  });
  say("ready");
  waitForLine();
  config->mplsHwRouteTable().poll();
  scheduler.runUntilIdle();
  std::sort(changed.begin(), changed.end());
  std::string report = "notified";
  for (const std::string& entry : changed) report += " " + entry;
  say(report);
  return 0;
}

int answer(Vosh::EntityManager& em) {
  em.mountWriter(kStatusPath, MplsHwCollectionStatus::collections());
  auto status = Kiv::make<MplsHwCollectionStatus>(em, kStatusPath);
  auto config = attachConfig(em);
  size_t answered = 0;
  config->forEachMplsHwRoute([&](const Mpls::RouteKey& key, const Vosh::Qel::MplsHwRouteConfig& r) {
    Vosh::Qel::MplsHwRouteStatus s;
    s.routeKey = key;
    s.state = Vosh::Qel::mplsHwRouteStateProgrammed;
    s.reason = Vosh::Qel::mplsHwUnprogReasonSuccess;
    s.version = r.version;
    status->mplsHwRouteIs(s);
    ++answered;
  });
  say(fmt::format("answered {}", answered));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s dump|watch|answer PREFIX\n", argv[0]);
    return 2;
  }
  std::string command = argv[1];
  Plin::TaskScheduler scheduler;
  auto em = Kiv::make<Vosh::EntityManager>(argv[2], &scheduler);
  try {
    if (command == "dump") return dump(*em);
    if (command == "watch") return watch(*em, scheduler);
    if (command == "answer") return answer(*em);
  } catch (const Vosh::MountError& e) {
    say(e.what());
    return 1;
  }
  return 2;
}
