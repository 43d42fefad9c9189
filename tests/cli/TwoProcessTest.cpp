// The driver in a process of its own and the agent in another: the agent is
// killed with SIGKILL while it is programming and started again. Afterwards
// the hardware tables hold exactly the routes and layer-2 records the LFIB
// asks for, all programmed, and the driver went on answering throughout,
// seeing nothing but table changes. In the mediated mode, with the FEC
// allocator beside the driver, no restart after a kill at any point removes
// or re-points a route the hardware holds.

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
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
#include "sim/Report.h"
#include "sim/ScaleScenario.h"
#include "sim/SharedTables.h"

namespace Cli::Test {
namespace {

constexpr size_t kRoutes = 80000;

// kRoutes over 40 ECMP via sets on routed ports, nearly all over next hops of their own, less
// the last `withdrawn` via sets and their routes.
std::string scenario(size_t withdrawn) {
  Sim::ScaleShape shape;
  shape.routes = kRoutes;
  shape.viaSets = 40;
  shape.nextHops = 80;
  Sim::Scenario s = Sim::scaleScenario(shape);
  s.inputs.viaSets.resize(s.inputs.viaSets.size() - withdrawn);
  s.inputs.routes.resize(s.inputs.routes.size() - withdrawn);
  std::ostringstream out;
  Sim::writeScenario(s, out);
  return out.str();
}

struct HardwareView {
  size_t lfibRoutes = 0;
  size_t configRoutes = 0;
  size_t hwFecRoutes = 0;
  std::vector<std::string> problems;
};

// Everything that must hold between the LFIB and the hardware tables once
// the agent and the driver are done.
HardwareView inspect(const std::string& prefix) {
  Plin::TaskScheduler scheduler;
  Sim::HwTables tables(prefix, &scheduler);
  HardwareView view;
  const auto problem = [&view](const std::string& text) { view.problems.push_back(text); };
  if (!tables.lfib() || !tables.config() || !tables.status()) problem("a table is missing");
  if (!view.problems.empty()) return view;
  const auto& config = *tables.config();
  const auto& status = *tables.status();
  const Sim::Report report = Sim::reportOf(tables);
  for (const Sim::RouteRow& r : report.routes) {
    view.lfibRoutes += r.inLfib;
    view.configRoutes += r.inHardware;
    const bool synced = status.mplsRouteSyncMapHas(r.key);
    if (!r.inLfib || !r.inHardware || r.state != "programmed" || !synced) {
      problem(fmt::format("route {}: in the LFIB {}, in hardware {}, {}, in the sync map {}", r.key,
                          r.inLfib, r.inHardware, r.state, synced));
    }
    if (r.adjacencyIdType != "adjIdTypeHardware") continue;
    ++view.hwFecRoutes;
    if (r.fecId == 0) problem(fmt::format("route {} points at an ungranted FEC", r.key));
  }
  for (const Sim::L2Row& l2 : report.l2Adjacencies) {
    if (l2.state != "programmed" || l2.routes == 0)
      problem(fmt::format("layer-2 record {}: {} with {} routes", l2.id, l2.state, l2.routes));
  }
  for (const Sim::FecRow& fec : report.fecs) {
    if (fec.hwFecId && fec.routes == 0) problem(fmt::format("FEC {} granted unused", fec.fecId));
  }
  status.forEachMplsHwRoute([&](const Mpls::RouteKey& k, const auto&) {
    if (!config.mplsHwRouteHas(k)) problem(fmt::format("stale status of {}", k));
  });
  status.forEachMplsRouteSyncMap([&](const Mpls::RouteKey& k, const auto&) {
    if (!config.mplsHwRouteHas(k)) problem(fmt::format("stale sync entry {}", k));
  });
  return view;
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

// The driver runs throughout, in a process of its own, under a prefix of the test's own.
class TwoProcess : public ::testing::Test {
 protected:
  void SetUp() override {
    Vosh::EntityManager::removeAll(prefix);
    std::filesystem::create_directories(dir);
    driver = std::make_unique<Subprocess>(std::vector<std::string>{"driver", "--prefix", prefix},
                                          path("driver"));
    ASSERT_TRUE(driver->started());
  }
  void TearDown() override {
    driver.reset();
    Vosh::EntityManager::removeAll(prefix);
    std::filesystem::remove_all(dir);
  }
  std::string path(const std::string& name) const { return dir + "/" + name; }
  std::string writeFile(const std::string& name, const std::string& text) {
    std::ofstream(path(name)) << text;
    return path(name);
  }
  std::vector<std::string> agentArgs(const std::string& file) const {
    return {"run", file, "--prefix", prefix, "--external-driver", "--keep"};
  }
  // Starts an agent and kills it once `reached` holds, which must be while it runs.
  void killAgentWhen(const std::string& file, const std::function<bool()>& reached) {
    Subprocess agent(agentArgs(file), path("agent"));
    bool ok =
        waitFor([&] { return reached() || !agent.running(); }, 120, std::chrono::milliseconds(1));
    ASSERT_TRUE(ok && agent.running()) << agent.err() << driver->err();
    agent.signal(SIGKILL);
    EXPECT_EQ(agent.wait(), 128 + SIGKILL);
  }
  // Runs an agent until it converges and exits, then waits for the driver to have
  // carried out what it asked.
  HardwareView runAgentToTheEnd(const std::string& file) {
    std::vector<std::string> args = agentArgs(file);
    args.insert(args.end(), {"--max-rows", "0"});
    Subprocess agent(args, path("agent"));
    EXPECT_TRUE(waitFor([&] { return !agent.running(); }, 60, std::chrono::milliseconds(10)))
        << "the restart did not converge";
    EXPECT_EQ(agent.wait(), 0) << agent.err();
    HardwareView view;
    waitFor([&] { return (view = inspect(prefix)).problems.empty(); }, 30,
            std::chrono::milliseconds(20));
    for (const std::string& problem : view.problems) ADD_FAILURE() << problem;
    return view;
  }
  // Stops the driver, which must have answered throughout without an error; what it printed.
  std::string stopDriver() {
    EXPECT_TRUE(driver->running()) << driver->err();
    driver->signal(SIGTERM);
    EXPECT_EQ(driver->wait(), 0) << driver->err();
    EXPECT_EQ(driver->err().find("rror"), std::string::npos) << driver->err();
    return driver->out();
  }

  const std::string prefix = Vosh::EntityManager::defaultPrefix() + "-" +
                             ::testing::UnitTest::GetInstance()->current_test_info()->name();
  const std::string dir = ::testing::TempDir() + "qelmpls-" + prefix;
  std::unique_ptr<Subprocess> driver;
  ProgressWatch watch{prefix};
};

TEST_F(TwoProcess, AnAgentKilledMidProgrammingAndStartedAgainLeavesExactlyTheLfibInHardware) {
  size_t programmedAtKill = 0;
  killAgentWhen(writeFile("first.yaml", scenario(0)),
                [&] { return (programmedAtKill = watch.now().programmed) >= 1000; });
  ASSERT_FALSE(HasFatalFailure());
  EXPECT_LT(programmedAtKill, kRoutes) << "killed after programming";
  // The second run withdraws two via sets and their routes.
  HardwareView view = runAgentToTheEnd(writeFile("second.yaml", scenario(2)));
  EXPECT_EQ(view.lfibRoutes, kRoutes / 40 * 38);
  EXPECT_EQ(view.configRoutes, view.lfibRoutes);
  EXPECT_NE(stopDriver().find("driver: "), std::string::npos);
}

// Where a mediated agent is killed, judged against the tables as it started; in order, so
// that later kills hit restarts over what earlier runs programmed.
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

TEST_F(TwoProcess, AMediatedAgentKilledAtAnyPointRestartsWithoutTouchingAProgrammedRoute) {
  std::string text;
  ASSERT_EQ(Subprocess::run({"gen", "--mode", "mediated", "--routes", "100000", "--via-sets",
                             "10000", "-o", "-"},
                            path("gen"), &text),
            0);
  const std::string file = writeFile("gen.yaml", text);
  // The same routes with a late step that changes nothing, which keeps a
  // converged agent running until it is killed.
  const std::string held =
      writeFile("held.yaml", text + "steps:\n  - {at: 3600, routing: {mpls: true}}\n");
  for (const KillPoint& point : kKillPoints) {
    SCOPED_TRACE(point.when);
    const Progress start = watch.now();
    killAgentWhen(held, [&] { return point.reached(start, watch.now()); });
    ASSERT_FALSE(HasFatalFailure());
    EXPECT_TRUE(!point.midway || watch.now().written < kScaleRoutes) << "killed after programming";
  }
  // The last start converges on its own; waiting for the sync's 600-second
  // time-out would mean the allocator's sync never reached the agent.
  HardwareView view = runAgentToTheEnd(file);
  EXPECT_EQ(view.lfibRoutes, kScaleRoutes);
  EXPECT_EQ(view.configRoutes, kScaleRoutes);
  EXPECT_EQ(view.hwFecRoutes, kScaleRoutes);
  const std::string out = stopDriver();
  EXPECT_EQ(driverCount(out, "routes,"), long{kScaleRoutes}) << out;
  EXPECT_EQ(driverCount(out, "route deletes"), 0) << out;
  EXPECT_EQ(driverCount(out, "route repoints"), 0) << out;
}

}  // namespace
}  // namespace Cli::Test
