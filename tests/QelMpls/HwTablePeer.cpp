// A driver in its own process, attached to the hardware tables the way
// docs/hardware-tables.md tells a driver writer to attach. Commands, each
// with the segment prefix:
//   dump     read the route config tables; print "route <text>" and
//            "l2 <text>" per record, sorted, then "end"
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
  for (const std::string& line : lines) std::puts(line.c_str());
  std::puts("end");
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
    s.version = r.version;
    status->mplsHwRouteIs(s);
    ++answered;
  });
  std::puts(fmt::format("answered {}", answered).c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s dump|answer PREFIX\n", argv[0]);
    return 2;
  }
  std::string command = argv[1];
  Plin::TaskScheduler scheduler;
  auto em = Kiv::make<Vosh::EntityManager>(argv[2], &scheduler);
  try {
    if (command == "dump") return dump(*em);
    if (command == "answer") return answer(*em);
  } catch (const Vosh::MountError& e) {
    std::puts(e.what());
    return 1;
  }
  return 2;
}
