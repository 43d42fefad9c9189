#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

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

L2Via viaFor(uint32_t n) {
  return L2Via(Bexo::IntfId::ethernet(n), Bexo::EthAddr({0x00, 0x1c, 0x73, 0x00, 0x01, uint8_t(n)}),
               uint16_t(n), Bexo::MplsLabel(2000 + n), 1, Bexo::IpGenAddr::fromIpv4(0x0a010000u + n));
}

MplsHwL2AdjacencyConfig adjacencyWithVias(MplsHwL2AdjacencyId key, uint32_t vias) {
  MplsHwL2AdjacencyConfig record(key);
  record.versionIs(uint8_t(key));
  for (uint32_t i = 0; i < vias; ++i) record.l2ViaIs(MplsHwL2ViaIndex(i), viaFor(i + 1));
  return record;
}

MplsHwRouteConfig routeToL2Adjacency(uint32_t label, MplsHwL2AdjacencyId l2, uint8_t version) {
  MplsHwRouteConfig r;
  r.routeKey = routeKey(label);
  r.labelAction = Bexo::mplsActionSwap;
  r.payloadType = Mpls::PayloadType::payloadMpls;
  r.addressing = Bexo::addressingNexthop;
  r.l2AdjIdIs(l2);
  r.version = version;
  return r;
}

MplsHwRouteConfig routeToHwFec(uint32_t label, MplsHwAdjacencyHwId fec, uint8_t version) {
  MplsHwRouteConfig r;
  r.routeKey = routeKey(label, 3);
  r.labelAction = Bexo::mplsActionPop;
  r.payloadType = Mpls::PayloadType::payloadIpv4;
  r.addressing = Bexo::addressingNexthop;
  r.hwFecIdIs(fec);
  r.version = version;
  return r;
}

// A layer-2 adjacency record as a faulty writer might leave it: the real
// serialisation with its via count overwritten. Its slots have the real
// record's shape, so a reader of the real type maps them.
struct ForgedL2Adjacency {
  static constexpr size_t kMaxSerializedSize = MplsHwL2AdjacencyConfig::kMaxSerializedSize;
  MplsHwL2AdjacencyConfig record;
  uint32_t storedCount = 0;

  size_t serialize(std::byte* out) const {
    size_t length = record.serialize(out);
    std::memcpy(out + 12, &storedCount, sizeof storedCount);
    return length;
  }
  static bool deserialize(const std::byte*, size_t, ForgedL2Adjacency&) { return true; }
};

// The peer executable as a driver process, with pipes to its stdin and from
// its stdout.
class DriverProcess {
 public:
  DriverProcess(const std::string& command, const std::string& prefix) {
    int toChild[2], fromChild[2];
    if (pipe2(toChild, O_CLOEXEC) != 0 || pipe2(fromChild, O_CLOEXEC) != 0) std::abort();
    pid_ = fork();
    if (pid_ == 0) {
      dup2(toChild[0], STDIN_FILENO);
      dup2(fromChild[1], STDOUT_FILENO);
      execl(QELMPLS_HW_TABLE_PEER, QELMPLS_HW_TABLE_PEER, command.c_str(), prefix.c_str(),
            static_cast<char*>(nullptr));
      _exit(127);
    }
    close(toChild[0]);
    close(fromChild[1]);
    toChild_ = toChild[1];
    fromChild_ = fdopen(fromChild[0], "r");
  }
  ~DriverProcess() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    close(toChild_);
    fclose(fromChild_);
  }

  std::string readLine() {
    char buffer[8192];
    if (!fgets(buffer, sizeof(buffer), fromChild_)) return "<eof>";
    std::string line(buffer);
    if (!line.empty() && line.back() == '\n') line.pop_back();
    return line;
  }
  // Every line up to "end".
  std::vector<std::string> readUntilEnd() {
    std::vector<std::string> lines;
    for (std::string line = readLine(); line != "end" && line != "<eof>"; line = readLine()) {
      lines.push_back(line);
    }
    return lines;
  }
  void writeLine(const std::string& line) {
    std::string text = line + "\n";
    ASSERT_EQ(write(toChild_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  int exitCode() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
  int toChild_ = -1;
  FILE* fromChild_ = nullptr;
};

// The agent's side: it writes the config tables and reads the status tables.
// Each test has its own segment prefix, removed before and after.
class HwTables : public ::testing::Test {
 protected:
  void SetUp() override {
    prefix_ = Vosh::EntityManager::defaultPrefix() + "_hwtables_" +
              ::testing::UnitTest::GetInstance()->current_test_info()->name();
    Vosh::EntityManager::removeAll(prefix_);
    agent_ = Kiv::make<Vosh::EntityManager>(prefix_, &scheduler_);
  }
  void TearDown() override {
    agent_ = nullptr;
    driver_ = nullptr;
    Vosh::EntityManager::removeAll(prefix_);
  }

  void agentWritesConfig() {
    agent_->mountWriter(kConfigPath, MplsHwCollectionConfig::collections());
    config_ = Kiv::make<MplsHwCollectionConfig>(*agent_, kConfigPath);
  }
  void agentReadsStatus() {
    agent_->mountReader(kStatusPath, Vosh::mountTypeSharedReader);
    status_ = Kiv::make<MplsHwCollectionStatus>(*agent_, kStatusPath);
  }
  // A driver in this process, under its own entity manager.
  void driverAttaches() {
    driver_ = Kiv::make<Vosh::EntityManager>(prefix_, &scheduler_);
    driver_->mountWriter(kStatusPath, MplsHwCollectionStatus::collections());
    driverStatus_ = Kiv::make<MplsHwCollectionStatus>(*driver_, kStatusPath);
    driver_->mountReader(kConfigPath, Vosh::mountTypeReader);
    driverConfig_ = Kiv::make<MplsHwCollectionConfig>(*driver_, kConfigPath);
  }
  void bothAttach() {
    agentWritesConfig();
    driverAttaches();
    agentReadsStatus();
  }

  std::string prefix_;
  Plin::TaskScheduler scheduler_;
  Kiv::Ptr<Vosh::EntityManager> agent_;
  Kiv::Ptr<Vosh::EntityManager> driver_;
  Kiv::Ptr<MplsHwCollectionConfig> config_;
  Kiv::Ptr<MplsHwCollectionStatus> status_;
  Kiv::Ptr<MplsHwCollectionConfig> driverConfig_;
  Kiv::Ptr<MplsHwCollectionStatus> driverStatus_;
};

// ---------------------------------------------------------------------------
// Round trips between the agent's and the driver's entity managers.

TEST_F(HwTables, routeConfigsOfBothAdjacencyKindsReachTheDriverUnchanged) {
  bothAttach();
  MplsHwRouteConfig viaL2 = routeToL2Adjacency(100, 12, 3);
  MplsHwRouteConfig viaFec = routeToHwFec(200, 0x0900000000000007ull, 250);
  config_->mplsHwRouteIs(viaL2);
  config_->mplsHwRouteIs(viaFec);
  EXPECT_EQ(driverConfig_->mplsHwRoute(viaL2.routeKey), viaL2);
  EXPECT_EQ(driverConfig_->mplsHwRoute(viaFec.routeKey), viaFec);
  EXPECT_EQ(driverConfig_->mplsHwRoute(viaL2.routeKey).l2AdjId(), 12u);
  EXPECT_EQ(driverConfig_->mplsHwRoute(viaFec.routeKey).hwFecId(), 0x0900000000000007ull);
  EXPECT_EQ(driverConfig_->mplsHwRoutes(), 2u);
}

TEST_F(HwTables, aRouteTheAgentDeletesReadsAsEmptyAtTheDriver) {
  bothAttach();
  config_->mplsHwRouteIs(routeToL2Adjacency(100, 12, 3));
  config_->mplsHwRouteIs(routeToL2Adjacency(101, 12, 3));
  config_->mplsHwRouteDel(routeKey(100));
  EXPECT_FALSE(driverConfig_->mplsHwRoute(routeKey(100)));
  EXPECT_FALSE(driverConfig_->mplsHwRouteHas(routeKey(100)));
  EXPECT_TRUE(driverConfig_->mplsHwRoute(routeKey(101)));
  config_->mplsHwRouteDelAll();
  EXPECT_EQ(driverConfig_->mplsHwRoutes(), 0u);
}

TEST_F(HwTables, layer2AdjacenciesOf0_1And128ViasReachTheDriverUnchanged) {
  bothAttach();
  for (uint32_t vias : {0u, 1u, 128u}) config_->l2AdjacencyIs(adjacencyWithVias(vias + 1, vias));
  for (uint32_t vias : {0u, 1u, 128u}) {
    MplsHwL2AdjacencyConfig read = driverConfig_->l2Adjacency(vias + 1);
    EXPECT_EQ(read, adjacencyWithVias(vias + 1, vias)) << vias;
    EXPECT_EQ(read.l2Vias(), vias);
  }
}

TEST_F(HwTables, aLayer2AdjacencyRewrittenWithFewerViasReadsBackShorter) {
  bothAttach();
  config_->l2AdjacencyIs(adjacencyWithVias(5, 128));
  config_->l2AdjacencyIs(adjacencyWithVias(5, 2));
  EXPECT_EQ(driverConfig_->l2Adjacency(5), adjacencyWithVias(5, 2));
}

TEST_F(HwTables, routeStatusesWithTheirResourceFlagReachTheAgentUnchanged) {
  bothAttach();
  MplsHwRouteStatus refused;
  refused.routeKey = routeKey(100);
  refused.state = mplsHwRouteStateUnprogrammed;
  refused.reason = mplsHwUnprogReasonRouteFull;
  refused.version = 9;
  refused.resourceFlag = 1;
  driverStatus_->mplsHwRouteIs(refused);
  MplsHwRouteStatus read = status_->mplsHwRoute(routeKey(100));
  EXPECT_EQ(read, refused);
  EXPECT_EQ(read.resourceFlag, 1);
}

TEST_F(HwTables, layer2AdjacencyStatusesReachTheAgentUnchanged) {
  bothAttach();
  MplsHwL2AdjacencyStatus answer{7, mplsHwL2AdjStateUnprogrammed, 4, {}};
  driverStatus_->l2AdjacencyIs(answer);
  EXPECT_EQ(status_->l2Adjacency(7), answer);
}

TEST_F(HwTables, theRouteSyncMapReachesTheAgentUnchanged) {
  bothAttach();
  MplsRouteSyncMap entry{routeKey(100, 2), ::Qel::AdjSyncId{3, 41}};
  driverStatus_->mplsRouteSyncMapIs(entry.routeKey, entry);
  EXPECT_EQ(status_->mplsRouteSyncMap(routeKey(100, 2)), entry);
  std::vector<Mpls::RouteKey> keys;
  status_->forEachMplsRouteSyncMap(
      [&](const Mpls::RouteKey& key, const MplsRouteSyncMap&) { keys.push_back(key); });
  EXPECT_EQ(keys, std::vector<Mpls::RouteKey>{routeKey(100, 2)});
}

TEST_F(HwTables, theAgentIsToldOfEachRouteTheDriverAnswered) {
  bothAttach();
  std::vector<Mpls::RouteKey> told;
  Kiv::Connection c =
      status_->onMplsHwRoute().connect([&](const Mpls::RouteKey& key) { told.push_back(key); });
  MplsHwRouteStatus answer;
  answer.routeKey = routeKey(100);
  answer.state = mplsHwRouteStateProgrammed;
  driverStatus_->mplsHwRouteIs(answer);
  answer.version = 1;
  driverStatus_->mplsHwRouteIs(answer);
  EXPECT_TRUE(told.empty()) << "told inside the driver's write";
  scheduler_.runUntilIdle();
  EXPECT_EQ(told, std::vector<Mpls::RouteKey>{routeKey(100)});
}

// ---------------------------------------------------------------------------
// Corrupt layer-2 adjacency records.

TEST_F(HwTables, aStoredViaCountAbove128GoesToTheCorruptionHandlerAndReadsAsEmpty) {
  agent_->mountWriter(kConfigPath, MplsHwCollectionConfig::collections());
  auto forger = agent_->table<MplsHwL2AdjacencyId, ForgedL2Adjacency>(kConfigPath, "l2Adjacency");
  forger->set(9, ForgedL2Adjacency{adjacencyWithVias(9, 128), 129});
  forger->set(10, ForgedL2Adjacency{adjacencyWithVias(10, 2), 2});

  driver_ = Kiv::make<Vosh::EntityManager>(prefix_, &scheduler_);
  driver_->mountReader(kConfigPath, Vosh::mountTypeReader);
  driverConfig_ = Kiv::make<MplsHwCollectionConfig>(*driver_, kConfigPath);
  std::vector<MplsHwL2AdjacencyId> corrupt;
  driver_->table<MplsHwL2AdjacencyId, MplsHwL2AdjacencyConfig>(
      kConfigPath, "l2Adjacency", [&](MplsHwL2AdjacencyId key) { corrupt.push_back(key); });

  EXPECT_FALSE(driverConfig_->l2Adjacency(9));
  EXPECT_EQ(corrupt, std::vector<MplsHwL2AdjacencyId>{9});
  EXPECT_EQ(driverConfig_->l2Adjacency(10), adjacencyWithVias(10, 2));

  corrupt.clear();
  std::vector<MplsHwL2AdjacencyId> visited;
  driverConfig_->forEachL2Adjacency(
      [&](MplsHwL2AdjacencyId key, const MplsHwL2AdjacencyConfig&) { visited.push_back(key); });
  EXPECT_EQ(visited, std::vector<MplsHwL2AdjacencyId>{10});
  EXPECT_EQ(corrupt, std::vector<MplsHwL2AdjacencyId>{9});
}

// ---------------------------------------------------------------------------
// A driver in another process.

TEST_F(HwTables, aDriverProcessReadsEveryRecordTheAgentWrote) {
  agentWritesConfig();
  std::vector<std::string> expected;
  for (const MplsHwRouteConfig& r :
       {routeToL2Adjacency(100, 1, 4), routeToL2Adjacency(101, 128, 5),
        routeToHwFec(300, 0x0a00000000000011ull, 6)}) {
    config_->mplsHwRouteIs(r);
    expected.push_back("route " + r.stringValue());
  }
  for (uint32_t vias : {1u, 128u}) {
    MplsHwL2AdjacencyConfig a = adjacencyWithVias(vias, vias);
    config_->l2AdjacencyIs(a);
    expected.push_back("l2 " + a.stringValue());
  }
  std::sort(expected.begin(), expected.end());

  DriverProcess driver("dump", prefix_);
  EXPECT_EQ(driver.readUntilEnd(), expected);
  EXPECT_EQ(driver.exitCode(), 0);
}

TEST_F(HwTables, aDriverProcessIsToldOfEachRouteTheAgentChangedSinceItAttached) {
  agentWritesConfig();
  config_->mplsHwRouteIs(routeToL2Adjacency(100, 1, 1));
  config_->mplsHwRouteIs(routeToL2Adjacency(101, 1, 1));
  DriverProcess driver("watch", prefix_);
  ASSERT_EQ(driver.readLine(), "ready");
  config_->mplsHwRouteIs(routeToL2Adjacency(100, 1, 2));
  config_->mplsHwRouteIs(routeToL2Adjacency(100, 1, 3));
  config_->mplsHwRouteDel(routeKey(101));
  config_->mplsHwRouteIs(routeToL2Adjacency(102, 1, 1));
  driver.writeLine("go");
  EXPECT_EQ(driver.readLine(), "notified 100:3 101:absent 102:1");
  EXPECT_EQ(driver.exitCode(), 0);
}

TEST_F(HwTables, aDriverProcessAnswersTheVersionModulo256ThatTheAgentMatches) {
  agentWritesConfig();
  const uint64_t routeVersion = 511;
  config_->mplsHwRouteIs(
      routeToL2Adjacency(100, 1, static_cast<decltype(MplsHwRouteConfig::version)>(routeVersion)));
  {
    DriverProcess driver("answer", prefix_);
    EXPECT_EQ(driver.readLine(), "answered 1");
    ASSERT_EQ(driver.exitCode(), 0);
  }
  agentReadsStatus();
  MplsHwRouteStatus answer = status_->mplsHwRoute(routeKey(100));
  EXPECT_EQ(answer.state, mplsHwRouteStateProgrammed);
  EXPECT_EQ(answer.version, 255);
  EXPECT_EQ(answer.version, static_cast<decltype(answer.version)>(routeVersion));
  EXPECT_EQ(answer.version, config_->mplsHwRoute(routeKey(100)).version);
}

}  // namespace
