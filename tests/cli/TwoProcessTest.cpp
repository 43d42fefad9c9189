// The driver in a process of its own and the agent in another: the agent is
// killed with SIGKILL while it is programming and started again. Afterwards
// the hardware tables hold exactly the routes and layer-2 records the LFIB
// asks for, all programmed, and the driver went on answering throughout,
// seeing nothing but table changes.

#include <chrono>
#include <fstream>
#include <set>
#include <thread>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Subprocess.h"
#include "sim/HwTables.h"

namespace Cli::Test {
namespace {

constexpr int kViaSets = 40;
constexpr int kRoutesPerViaSet = 2000;
constexpr int kPorts = 8;

// kViaSets ECMP via sets over kPorts routed ports, each used by a range of
// routes; the first `viaSets` of them.
std::string scenario(int viaSets) {
  std::string text = "interfaces:\n";
  for (int p = 1; p <= kPorts; ++p)
    text += fmt::format("  - {{name: Ethernet{}, vlan: {}}}\n", p, 1000 + p);
  text += "arp:\n";
  for (int p = 1; p <= kPorts; ++p) {
    text += fmt::format(
        "  - {{ip: 10.0.{}.2, interface: Ethernet{}, mac: \"00:00:5e:00:53:{:02x}\"}}\n", p, p, p);
  }
  text += "viaSets:\n";
  for (int v = 1; v <= viaSets; ++v) {
    int a = v % kPorts + 1;
    int b = (v + 3) % kPorts + 1;
    text += fmt::format(
        "  - {{id: {}, type: mplsIp, vias: [{{nexthop: 10.0.{}.2, interface: Ethernet{}, action: "
        "swap, labels: [{}]}}, {{nexthop: 10.0.{}.2, interface: Ethernet{}, action: swap, labels: "
        "[{}]}}]}}\n",
        v, a, a, 1000 + v, b, b, 1000 + v);
  }
  text += "routes:\n";
  for (int v = 1; v <= viaSets; ++v) {
    int first = 10000 + v * kRoutesPerViaSet;
    text +=
        fmt::format("  - {{labels: {}-{}, viaSet: {}}}\n", first, first + kRoutesPerViaSet - 1, v);
  }
  return text;
}

std::string writeFile(const std::string& path, const std::string& text) {
  std::ofstream(path) << text;
  return path;
}

struct HardwareView {
  size_t lfibRoutes = 0;
  size_t configRoutes = 0;
  size_t answeredRoutes = 0;
  std::vector<std::string> problems;
};

// Everything that must hold between the LFIB and the hardware tables once
// the agent and the driver are done.
HardwareView inspect(const std::string& prefix) {
  Plin::TaskScheduler scheduler;
  Sim::HwTables tables(prefix, &scheduler);
  HardwareView view;
  if (!tables.lfib() || !tables.config() || !tables.status()) {
    view.problems.push_back("a table is missing");
    return view;
  }
  const auto& config = *tables.config();
  const auto& status = *tables.status();
  std::set<Mpls::RouteKey> lfib;
  tables.lfib()->forEachRoute([&](const Mpls::RouteKey& k, const auto&) { lfib.insert(k); });
  view.lfibRoutes = lfib.size();
  std::set<uint64_t> usedL2;
  config.forEachMplsHwRoute([&](const Mpls::RouteKey& k, const Vosh::Qel::MplsHwRouteConfig& r) {
    ++view.configRoutes;
    usedL2.insert(r.l2AdjId());
    if (!lfib.contains(k)) view.problems.push_back(fmt::format("route {} is not in the LFIB", k));
    Vosh::Qel::MplsHwRouteStatus s = status.mplsHwRoute(k);
    if (s.version != r.version) return;
    ++view.answeredRoutes;
    if (s.state != Vosh::Qel::mplsHwRouteStateProgrammed) {
      view.problems.push_back(fmt::format("route {} is not programmed", k));
    }
    if (!status.mplsRouteSyncMapHas(k))
      view.problems.push_back(fmt::format("{} not in sync map", k));
  });
  if (view.answeredRoutes != view.configRoutes) view.problems.push_back("unanswered routes");
  if (view.configRoutes != lfib.size()) view.problems.push_back("LFIB routes missing in hardware");
  config.forEachL2Adjacency([&](uint64_t id, const Vosh::Qel::MplsHwL2AdjacencyConfig& r) {
    if (!usedL2.contains(id))
      view.problems.push_back(fmt::format("layer-2 record {} orphaned", id));
    Vosh::Qel::MplsHwL2AdjacencyStatus s = status.l2Adjacency(id);
    if (s.version != r.version() || s.state != Vosh::Qel::mplsHwL2AdjStateProgrammed) {
      view.problems.push_back(fmt::format("layer-2 record {} not programmed", id));
    }
  });
  for (uint64_t id : usedL2) {
    if (!config.l2AdjacencyHas(id))
      view.problems.push_back(fmt::format("no layer-2 record {}", id));
  }
  status.forEachMplsHwRoute([&](const Mpls::RouteKey& k, const auto&) {
    if (!config.mplsHwRouteHas(k)) view.problems.push_back(fmt::format("stale status of {}", k));
  });
  status.forEachMplsRouteSyncMap([&](const Mpls::RouteKey& k, const auto&) {
    if (!config.mplsHwRouteHas(k)) view.problems.push_back(fmt::format("stale sync entry {}", k));
  });
  return view;
}

// Routes the driver has answered so far: cheap enough to poll while the
// agent programs, which takes a fraction of a second.
size_t answeredRoutes(const std::string& prefix) {
  Plin::TaskScheduler scheduler;
  Sim::HwTables tables(prefix, &scheduler);
  return tables.status() ? tables.status()->mplsHwRoutes() : 0;
}

template <class Pred>
bool waitFor(Pred pred, double seconds, std::chrono::milliseconds interval) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < deadline) {
    if (pred()) return true;
    std::this_thread::sleep_for(interval);
  }
  return pred();
}

TEST(TwoProcess, AnAgentKilledMidProgrammingAndStartedAgainLeavesExactlyTheLfibInHardware) {
  const std::string prefix = Vosh::EntityManager::defaultPrefix() + "-2p";
  const std::string dir = ::testing::TempDir();
  Vosh::EntityManager::removeAll(prefix);
  const std::string first = writeFile(dir + "qelmpls-2p-first.yaml", scenario(kViaSets));
  // The second run withdraws two via sets and their routes.
  const std::string second = writeFile(dir + "qelmpls-2p-second.yaml", scenario(kViaSets - 2));

  Subprocess driver({"driver", "--prefix", prefix}, dir + "qelmpls-2p-driver");
  ASSERT_TRUE(driver.started());
  {
    Subprocess agent({"run", first, "--prefix", prefix, "--external-driver", "--keep"},
                     dir + "qelmpls-2p-agent1");
    size_t answeredAtKill = 0;
    bool programming = waitFor(
        [&] {
          answeredAtKill = answeredRoutes(prefix);
          return answeredAtKill >= 1000 || !agent.running();
        },
        120, std::chrono::milliseconds(1));
    ASSERT_TRUE(programming && agent.running()) << agent.err() << driver.err();
    agent.signal(SIGKILL);
    EXPECT_EQ(agent.wait(), 128 + SIGKILL);
    EXPECT_LT(answeredAtKill, size_t{kViaSets} * kRoutesPerViaSet) << "killed after programming";
  }
  ASSERT_TRUE(driver.running()) << driver.err();

  std::string out;
  std::string err;
  ASSERT_EQ(Subprocess::run({"run", second, "--prefix", prefix, "--external-driver", "--keep",
                             "--max-rows", "0"},
                            dir + "qelmpls-2p-agent2", &out, &err),
            0)
      << err;
  // The driver deletes what the agent withdrew on its own time.
  HardwareView view;
  waitFor([&] { return (view = inspect(prefix)).problems.empty(); }, 30,
          std::chrono::milliseconds(20));
  EXPECT_EQ(view.lfibRoutes, size_t{kViaSets - 2} * kRoutesPerViaSet);
  EXPECT_EQ(view.configRoutes, view.lfibRoutes);
  for (const std::string& problem : view.problems) ADD_FAILURE() << problem;

  ASSERT_TRUE(driver.running()) << driver.err();
  driver.signal(SIGTERM);
  EXPECT_EQ(driver.wait(), 0) << driver.err();
  EXPECT_NE(driver.out().find("driver: "), std::string::npos);
  EXPECT_EQ(driver.err().find("rror"), std::string::npos) << driver.err();
  Vosh::EntityManager::removeAll(prefix);
  std::remove(first.c_str());
  std::remove(second.c_str());
}

}  // namespace
}  // namespace Cli::Test
