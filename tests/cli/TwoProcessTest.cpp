// The driver in a process of its own and the agent in another: the agent is
// killed with SIGKILL while it is programming and started again. Afterwards
// the hardware tables hold exactly the routes and layer-2 records the LFIB
// asks for, all programmed, and the driver went on answering throughout,
// seeing nothing but table changes. In the mediated mode, with the FEC
// allocator beside the driver, no restart after a kill at any point removes
// or re-points a route the hardware holds.

#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Subprocess.h"
#include "sim/FecAllocator.h"
#include "sim/HwTables.h"
#include "sim/SharedTables.h"

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
  size_t hwFecRoutes = 0;
  std::set<uint64_t> hwFecIds;
  size_t grants = 0;
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
  std::set<uint64_t> granted;
  if (tables.responses()) {
    tables.responses()->forEachHwFecId([&](const auto&, const Qel::HwFecIdResponse& r) {
      if (r.hwFecIdValid()) granted.insert(r.hwFecId);
    });
  }
  view.grants = granted.size();
  std::set<uint64_t> usedL2;
  config.forEachMplsHwRoute([&](const Mpls::RouteKey& k, const Vosh::Qel::MplsHwRouteConfig& r) {
    ++view.configRoutes;
    if (r.adjacencyIdType == Vosh::Qel::adjIdTypeHardware) {
      ++view.hwFecRoutes;
      view.hwFecIds.insert(r.hwFecId());
      if (!granted.contains(r.hwFecId()))
        view.problems.push_back(fmt::format("route {} points at an ungranted FEC", k));
    } else {
      usedL2.insert(r.l2AdjId());
    }
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

constexpr size_t kScaleRoutes = 100000;

// How far an agent has got, as the shared tables show it.
struct Progress {
  size_t written = 0;            // route records in the agent's hardware table
  size_t programmed = 0;         // routes the driver holds programmed
  Qel::GenerationId filing = 0;  // newest generation the agent requested FECs under
  Qel::GenerationId synced = 0;  // newest generation the allocator answered in full
};

// Keeps the tables mapped, so that each look costs the changes since the
// last one rather than a scan of 100,000 records, which would let the agent
// run far past a kill point between two looks.
class ProgressWatch {
 public:
  explicit ProgressWatch(std::string prefix) : prefix_(std::move(prefix)) {}
  Progress now() {
    if (!tables_ || !tables_->config() || !tables_->requests() || !sync_) map();
    Progress p;
    if (tables_->config()) p.written = tables_->config()->mplsHwRoutes();
    if (tables_->status()) p.programmed = tables_->status()->mplsRouteSyncMaps();
    if (tables_->requests()) {
      tables_->requests()->forEachHwFecIdRequest([&](const auto&, const Qel::HwFecIdRequest& r) {
        p.filing = std::max(p.filing, r.syncId.generation);
      });
    }
    if (sync_) {
      sync_->forEachAdjSyncDone(
          [&](Qel::GenerationId g, const auto&) { p.synced = std::max(p.synced, g); });
    }
    return p;
  }

 private:
  void map() {
    sync_ = nullptr;
    tables_ = std::make_unique<Sim::HwTables>(prefix_, &scheduler_);
    em_ = Kiv::make<Vosh::EntityManager>(prefix_, &scheduler_);
    if (Sim::tableReadable(*em_, Sim::FecAllocatorStatus::kPath))
      sync_ = Kiv::make<Sim::FecAllocatorStatus>(*em_, Sim::FecAllocatorStatus::kPath);
  }

  std::string prefix_;
  Plin::TaskScheduler scheduler_;
  std::unique_ptr<Sim::HwTables> tables_;
  Kiv::Ptr<Vosh::EntityManager> em_;
  Kiv::Ptr<Sim::FecAllocatorStatus> sync_;
};

// Where an agent run is killed, judged against the tables as it started; in
// order, so that later kills hit restarts over what earlier runs programmed.
struct KillPoint {
  const char* when;
  bool (*reached)(const Progress& start, const Progress& now);
  bool midway;  // killed before it wrote every route
};

bool filesAgain(const Progress& s, const Progress& n) { return n.filing > s.filing; }

const KillPoint kKillPoints[] = {
    {"as it files its first requests, nothing in hardware", filesAgain, true},
    {"a quarter through programming",
     [](const Progress& s, const Progress& n) { return n.written >= s.written + kScaleRoutes / 4; },
     true},
    {"as it files its requests again, a part in hardware", filesAgain, true},
    {"after it converged",
     [](const Progress& s, const Progress& n) {
       return n.synced > s.synced && n.programmed == kScaleRoutes;
     },
     false},
};

// A count the driver prints at its exit, by the words after it.
long driverCount(const std::string& out, const std::string& what) {
  std::smatch m;
  if (!std::regex_search(out, m, std::regex("(\\d+) " + what))) return -1;
  return std::stol(m[1]);
}

TEST(TwoProcess, AMediatedAgentKilledAtAnyPointRestartsWithoutTouchingAProgrammedRoute) {
  const std::string prefix = Vosh::EntityManager::defaultPrefix() + "-2pm";
  const std::string dir = ::testing::TempDir();
  Vosh::EntityManager::removeAll(prefix);
  const std::string file = dir + "qelmpls-2pm.yaml";
  ASSERT_EQ(Subprocess::run({"gen", "--mode", "mediated", "--routes", "100000", "--via-sets",
                             "10000", "-o", file},
                            dir + "qelmpls-2pm-gen"),
            0);
  // The same routes with a late step that changes nothing, which keeps a
  // converged agent running until it is killed.
  std::stringstream text;
  text << std::ifstream(file).rdbuf() << "steps:\n  - {at: 3600, routing: {mpls: true}}\n";
  const std::string held = writeFile(dir + "qelmpls-2pm-held.yaml", text.str());

  Subprocess driver({"driver", "--prefix", prefix}, dir + "qelmpls-2pm-driver");
  ASSERT_TRUE(driver.started());
  ProgressWatch watch(prefix);
  for (const KillPoint& point : kKillPoints) {
    SCOPED_TRACE(point.when);
    const Progress start = watch.now();
    Subprocess agent({"run", held, "--prefix", prefix, "--external-driver", "--keep"},
                     dir + "qelmpls-2pm-agent");
    bool reached = waitFor([&] { return point.reached(start, watch.now()) || !agent.running(); },
                           30, std::chrono::milliseconds(1));
    ASSERT_TRUE(reached && agent.running()) << agent.err() << driver.err();
    agent.signal(SIGKILL);
    EXPECT_EQ(agent.wait(), 128 + SIGKILL);
    if (point.midway) {
      EXPECT_LT(watch.now().written, kScaleRoutes) << "killed after programming";
    }
  }
  ASSERT_TRUE(driver.running()) << driver.err();

  // The last start converges on its own; waiting for the sync's 600-second
  // time-out would mean the allocator's sync never reached the agent.
  Subprocess agent(
      {"run", file, "--prefix", prefix, "--external-driver", "--keep", "--max-rows", "0"},
      dir + "qelmpls-2pm-agent");
  ASSERT_TRUE(waitFor([&] { return !agent.running(); }, 30, std::chrono::milliseconds(10)))
      << "the restart did not converge";
  EXPECT_EQ(agent.wait(), 0) << agent.err();
  HardwareView view = inspect(prefix);
  EXPECT_EQ(view.lfibRoutes, kScaleRoutes);
  EXPECT_EQ(view.configRoutes, kScaleRoutes);
  EXPECT_EQ(view.hwFecRoutes, kScaleRoutes);
  EXPECT_EQ(view.hwFecIds.size(), view.grants) << "granted FECs no route points at";
  for (const std::string& problem : view.problems) ADD_FAILURE() << problem;

  ASSERT_TRUE(driver.running()) << driver.err();
  driver.signal(SIGTERM);
  EXPECT_EQ(driver.wait(), 0) << driver.err();
  const std::string out = driver.out();
  EXPECT_EQ(driverCount(out, "routes,"), long{kScaleRoutes}) << out;
  EXPECT_EQ(driverCount(out, "route deletes"), 0) << out;
  EXPECT_EQ(driverCount(out, "route repoints"), 0) << out;
  Vosh::EntityManager::removeAll(prefix);
  std::remove(file.c_str());
  std::remove(held.c_str());
}

}  // namespace
}  // namespace Cli::Test
