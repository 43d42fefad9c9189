#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "QelMpls/platform/QelMplsVoshTables.h"
#include "plin/TaskScheduler.h"
#include "vosh/EntityManager.h"

namespace {

using namespace Vosh::Qel;
using Mpls::Hardware::L2Via;

constexpr const char* kConfigPath = "hardware/qel/mplsHwRouteConfig";
constexpr const char* kStatusPath = "hardware/qel/mplsHwRouteStatus";

Mpls::RouteKey routeKey(uint32_t label, Mpls::LfibSource source = 0) {
  return Mpls::RouteKey(Bexo::MplsLabel(label), source);
}

MplsHwL2AdjacencyConfig adjacencyWithVias(MplsHwL2AdjacencyId key, uint32_t vias) {
  MplsHwL2AdjacencyConfig record(key);
  record.versionIs(uint8_t(key));
  for (uint32_t n = 1; n <= vias; ++n) {
    record.l2ViaIs(MplsHwL2ViaIndex(n - 1),
                   L2Via(Bexo::IntfId::ethernet(n),
                         Bexo::EthAddr({0x00, 0x1c, 0x73, 0x00, 0x01, uint8_t(n)}), uint16_t(n),
                         Bexo::MplsLabel(2000 + n), 1, Bexo::IpGenAddr::fromIpv4(0x0a010000u + n)));
  }
  return record;
}

// A route to a layer-2 adjacency, or one of source 3 popping to IPv4 at a hardware FEC.
MplsHwRouteConfig route(uint32_t label, uint64_t target, uint8_t version, bool toHwFec = false) {
  MplsHwRouteConfig r;
  r.routeKey = routeKey(label, toHwFec ? 3 : 0);
  r.labelAction = toHwFec ? Bexo::mplsActionPop : Bexo::mplsActionSwap;
  r.payloadType = toHwFec ? Mpls::PayloadType::payloadIpv4 : Mpls::PayloadType::payloadMpls;
  r.addressing = Bexo::addressingNexthop;
  if (toHwFec) r.hwFecIdIs(target);
  if (!toHwFec) r.l2AdjIdIs(target);
  r.version = version;
  return r;
}

// Runs the peer executable as a driver process and gives back what it printed.
std::vector<std::string> driverProcess(const std::string& command, const std::string& prefix) {
  std::string shell = std::string(QELMPLS_HW_TABLE_PEER) + " " + command + " '" + prefix + "'";
  FILE* out = popen(shell.c_str(), "r");
  std::vector<std::string> lines;
  char buffer[8192];
  while (out && fgets(buffer, sizeof buffer, out))
    lines.emplace_back(buffer, strcspn(buffer, "\n"));
  int status = out ? pclose(out) : -1;
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command << " ended with " << status;
  return lines;
}

// The agent writes the config tables; a driver in another process reads
// them the way docs/hardware-tables.md tells a driver writer to, and answers.
TEST(HwTablesCrossProcess, aDriverProcessReadsEveryRecordTheAgentWroteAndAnswersEachVersion) {
  const std::string prefix = Vosh::EntityManager::defaultPrefix() + "_hwtables";
  Vosh::EntityManager::removeAll(prefix);
  Plin::TaskScheduler scheduler;
  auto agent = Kiv::make<Vosh::EntityManager>(prefix, &scheduler);
  agent->mountWriter(kConfigPath, MplsHwCollectionConfig::collections());
  auto config = Kiv::make<MplsHwCollectionConfig>(*agent, kConfigPath);
  std::vector<std::string> expected;
  for (const MplsHwRouteConfig& r :
       {route(100, 1, 4), route(101, 128, 5), route(300, 0x0a00000000000011ull, 6, true)}) {
    config->mplsHwRouteIs(r);
    expected.push_back("route " + r.stringValue());
  }
  // The shortest and the longest layer-2 adjacency records.
  for (uint32_t vias : {1u, 128u}) {
    MplsHwL2AdjacencyConfig a = adjacencyWithVias(vias, vias);
    config->l2AdjacencyIs(a);
    expected.push_back("l2 " + a.stringValue());
  }
  std::sort(expected.begin(), expected.end());
  expected.push_back("end");
  EXPECT_EQ(driverProcess("dump", prefix), expected);

  // The driver echoes each route's version; the agent's counter past 255 is
  // matched through the byte the record stores.
  config->mplsHwRouteIs(route(100, 1, static_cast<uint8_t>(uint64_t{511})));
  EXPECT_EQ(driverProcess("answer", prefix), std::vector<std::string>{"answered 3"});
  agent->mountReader(kStatusPath, Vosh::mountTypeSharedReader);
  auto status = Kiv::make<MplsHwCollectionStatus>(*agent, kStatusPath);
  EXPECT_EQ(status->mplsHwRoute(routeKey(100)).state, mplsHwRouteStateProgrammed);
  EXPECT_EQ(status->mplsHwRoute(routeKey(100)).version, 255);
  EXPECT_EQ(status->mplsHwRoute(routeKey(300, 3)).version, 6);
  status = nullptr;
  config = nullptr;
  agent = nullptr;
  Vosh::EntityManager::removeAll(prefix);
}

}  // namespace
