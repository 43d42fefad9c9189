#include <gtest/gtest.h>

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "Qel/FeatureToggle.h"
#include "QelMpls/root/QelMplsRootSm.h"
#include "kiv/Assert.h"
#include "pellet/Trace.h"
#include "vosh/Segment.h"
#include "vosh/SegmentName.h"

namespace {

using Qel::MplsRootSm;
using Qel::MplsSmAdjacencyProgrammer;
constexpr MplsSmAdjacencyProgrammer kNone = MplsSmAdjacencyProgrammer::mplsSmAdjacencyNone;
constexpr MplsSmAdjacencyProgrammer kDirect = MplsSmAdjacencyProgrammer::mplsSmAdjacencyDirect;
constexpr MplsSmAdjacencyProgrammer kMediated = MplsSmAdjacencyProgrammer::mplsSmAdjacencyMediated;

const std::vector<Korba::MountRecord> kCommonKorbaMounts = {
    {"cell/1/hardware/qel/mplsHwSingletonConfig", "Qel::MplsHwSingletonConfig", "wc"},
    {"cell/1/hardware/qel/mplsHwSingletonStatus", "Qel::MplsHwSingletonStatus", "rc"},
    {"routing/mpls/lfibInfo", "Mpls::LfibInfo", "rS"},
    {"routing/mpls/routingInfo/status", "Mpls::RoutingInfo", "r"},
    {"routing/hardware/mpls/status", "Mpls::Hardware::Status", "wS"},
    {"qel/l3IntfTable", "QelL3Intf::Table", "r"},
    {"routing/hardware/route/status", "Routing::Hardware::RouteStatus", "r"},
};
const std::vector<Korba::MountRecord> kMediatedKorbaMounts = {
    {"cell/1/qel/sync/adjSyncStatus", "Qel::QelL3AdjSyncStatusExternal", "r"},
    {"hardware/qel/mcastGroup/config/QelMpls/ClientConfig", "Multicast::Group::Config", "w"},
    {"hardware/qel/mcastGroup/status", "Multicast::Group::Status", "r"},
};

const std::vector<std::string> kFecRequestCollections = {
    "adjSyncIdMap", "syncRequestsReady", "fec", "fec6", "hwFecIdRequest", "objTupleToFecId"};
const std::vector<std::string> kFecResponseCollections = {"hwFecId", "l2IntfId"};
const std::vector<std::string> kHwStatusCollections = {"mplsHwRoute", "l2Adjacency",
                                                       "mplsRouteSyncMap"};

// How one shared-memory path is to be mounted: as a reader of the given type,
// or as the writer declaring exactly these collections.
struct VoshMount {
  const char* path;
  Vosh::MountType type;
  std::vector<std::string> collections;
};

// An agent's surroundings: the state database, the platform's shared memory
// (another process on a switch) and the agent's own, a toggle directory of
// its own, and the root's constructor arguments.
class RootFixture : public ::testing::Test {
 protected:
  RootFixture() {
    // Segment names take no '/', which parameterised test names have.
    std::string test = ::testing::UnitTest::GetInstance()->current_test_info()->name();
    std::replace(test.begin(), test.end(), '/', '_');
    prefix = Vosh::EntityManager::defaultPrefix() + "_" + test;
    std::string pattern = (std::filesystem::temp_directory_path() / "qelrootXXXXXX").string();
    toggleDir = mkdtemp(pattern.data()) ? pattern : "";
    setenv("QELMPLS_TOGGLE_DIR", toggleDir.c_str(), 1);
    Qel::featureTogglesReset();
    Vosh::EntityManager::removeAll(prefix);
    korba = Kiv::make<Korba::EntityManager>(&scheduler);
    Qel::registerMplsKorbaTypes(*korba);
    platform = Kiv::make<Vosh::EntityManager>(prefix, &scheduler);
    agentShm = Kiv::make<Vosh::EntityManager>(prefix, &scheduler);
    modeConfig = Kiv::make<Qel::MplsProgrammingModeConfig>("mplsProgrammingModeConfig");
    localLfibInfo = Kiv::make<Mpls::LocalLfibInfo>("localLfibInfo");
  }
  ~RootFixture() override {
    root = nullptr;
    agentShm = nullptr;
    platform = nullptr;
    Vosh::EntityManager::removeAll(prefix);
    Qel::featureTogglesReset();
    unsetenv("QELMPLS_TOGGLE_DIR");
    std::filesystem::remove_all(toggleDir);
  }

  void qelL3AgentMplsIs(bool on) {
    std::ofstream(std::filesystem::path(toggleDir) / "StageMgr.json")
        << "{\"QelL3AgentMpls\": " << (on ? "true" : "false") << "}";
    Qel::featureTogglesReset();
  }
  // The tables other agents write and this one reads. With the toggle on the
  // hardware route status and FEC-id response tables belong to them too.
  void platformTablesIs(bool toggleOn, bool mediated) {
    platform->mountWriter(MplsRootSm::kTransitLfibPath, Mpls::LfibStatus::collections());
    platform->mountWriter(MplsRootSm::kArpStatusPath, Arp::Table::Status::collections());
    platform->mountWriter(MplsRootSm::kBridgingStatusPath, Vosh::Bridging::Status::collections());
    if (!toggleOn) return;
    platform->mountWriter(MplsRootSm::kHwRouteStatusPath,
                          Vosh::Qel::MplsHwCollectionStatus::collections());
    if (!mediated) return;
    platform->mountWriter(MplsRootSm::kUnicastFecRespPath,
                          Qel::FecIdToHwFecIdResponse::collections());
    platform->mountWriter(MplsRootSm::kMulticastFecRespPath,
                          Qel::FecIdToHwFecIdResponse::collections());
  }
  void startRoot() {
    root = Qel::mplsRootSmFactory(modeConfig, Kiv::make<QelHelper::MplsSmHelper>("helper"), korba,
                                  Kiv::make<Plin::AttrLogSm>(), &scheduler, localLfibInfo,
                                  Qel::mplsHwConfigFactory("mplsHwConfig"),
                                  Qel::mplsHwStatusFactory("mplsHwStatus"), agentShm);
  }
  // A directly programmed agent with the default toggles, built.
  void startDirectAgent() {
    platformTablesIs(true, false);
    startRoot();
    modeConfig->adjacencyProgrammerIs(kDirect);
    settle();
    ASSERT_TRUE(root->mplsSm());
  }
  void settle() { scheduler.advance(0.5); }

  std::vector<std::string> collectionsIn(const char* path) const {
    auto segment = Vosh::Segment::open(agentShm->segmentName(path), false);
    std::vector<std::string> names;
    if (!segment) return names;
    for (const Vosh::CollectionSpec& given : Vosh::collectionSpecs(segment->data())) {
      EXPECT_EQ(given.capacity, 1024u) << path << " " << given.name;
      names.push_back(given.name);
    }
    return names;
  }
  void expectMounted(const VoshMount& m) const {
    ASSERT_TRUE(agentShm->mounted(m.path)) << m.path;
    EXPECT_EQ(agentShm->mountType(m.path), m.type) << m.path;
    if (m.type == Vosh::mountTypeWriter) {
      EXPECT_EQ(collectionsIn(m.path), m.collections) << m.path;
    }
  }

  std::string prefix;
  std::string toggleDir;
  Plin::TaskScheduler scheduler;
  Kiv::Ptr<Korba::EntityManager> korba;
  Kiv::Ptr<Vosh::EntityManager> platform;
  Kiv::Ptr<Vosh::EntityManager> agentShm;
  Kiv::Ptr<Qel::MplsProgrammingModeConfig> modeConfig;
  Kiv::Ptr<Mpls::LocalLfibInfo> localLfibInfo;
  Kiv::Ptr<MplsRootSm> root;
};

// ---------------------------------------------------------------------------
// Mounting, for each mode and each value of the toggle "QelL3AgentMpls".

struct ModeCase {
  MplsSmAdjacencyProgrammer mode;
  bool toggleOn;
};

std::string caseName(const ::testing::TestParamInfo<ModeCase>& info) {
  return std::string(info.param.mode == kDirect ? "direct" : "mediated") +
         (info.param.toggleOn ? "ToggleOn" : "ToggleOff");
}

class RootMounting : public RootFixture, public ::testing::WithParamInterface<ModeCase> {
 protected:
  void SetUp() override {
    qelL3AgentMplsIs(GetParam().toggleOn);
    platformTablesIs(GetParam().toggleOn, mediated());
    startRoot();
    modeConfig->adjacencyProgrammerIs(GetParam().mode);
    settle();
  }
  bool mediated() const { return GetParam().mode == kMediated; }
  // The mount of a table that another agent owns while the toggle is on.
  VoshMount ownedElsewhereWhenToggleOn(const char* path,
                                       const std::vector<std::string>& collections) const {
    if (GetParam().toggleOn) return {path, Vosh::mountTypeSharedReader, {}};
    return {path, Vosh::mountTypeWriter, collections};
  }
};

TEST_P(RootMounting, mountsTheStateDatabasePathsOfItsModeInOrder) {
  std::vector<Korba::MountRecord> expected = kCommonKorbaMounts;
  if (mediated()) {
    expected.insert(expected.end(), kMediatedKorbaMounts.begin(), kMediatedKorbaMounts.end());
  }
  EXPECT_EQ(korba->mounts(), expected);
}

TEST_P(RootMounting, mountsTheSharedMemoryTablesOfItsModeAsReaderOrAsWriterOfItsCollections) {
  expectMounted({MplsRootSm::kTransitLfibPath, Vosh::mountTypeSharedReader, {}});
  expectMounted(
      {MplsRootSm::kLfibHwStatusPath, Vosh::mountTypeWriter, {"unprogrammedRoute", "viaSet"}});
  expectMounted({MplsRootSm::kArpStatusPath, Vosh::mountTypeReader, {}});
  expectMounted({MplsRootSm::kProactiveArpPath, Vosh::mountTypeWriter, {"request"}});
  expectMounted({MplsRootSm::kBridgingStatusPath, Vosh::mountTypeSharedReader, {}});
  expectMounted(
      {MplsRootSm::kHwRouteConfigPath, Vosh::mountTypeWriter, {"mplsHwRoute", "l2Adjacency"}});
  expectMounted(ownedElsewhereWhenToggleOn(MplsRootSm::kHwRouteStatusPath, kHwStatusCollections));
  expectMounted({MplsRootSm::kUnicastFecReqPath, Vosh::mountTypeWriter, kFecRequestCollections});
  if (mediated()) {
    expectMounted(
        ownedElsewhereWhenToggleOn(MplsRootSm::kUnicastFecRespPath, kFecResponseCollections));
    expectMounted(
        {MplsRootSm::kMulticastFecReqPath, Vosh::mountTypeWriter, kFecRequestCollections});
    expectMounted(
        ownedElsewhereWhenToggleOn(MplsRootSm::kMulticastFecRespPath, kFecResponseCollections));
  } else {
    EXPECT_FALSE(agentShm->mounted(MplsRootSm::kUnicastFecRespPath));
    EXPECT_FALSE(agentShm->mounted(MplsRootSm::kMulticastFecReqPath));
    EXPECT_FALSE(agentShm->mounted(MplsRootSm::kMulticastFecRespPath));
  }
  // One segment per path: the three input tables of the platform, the status
  // and response tables whoever owns them, and the agent's own.
  EXPECT_EQ(Vosh::segmentNamesUnder(prefix).size(), mediated() ? 11u : 8u);
}

// Every mounted entity, from the state database or shared memory, is named
// after the path it lives at; the local multicast hardware status has a name
// of its own.
TEST_P(RootMounting, holdsTheEntityOfEveryMountedPath) {
  auto expectHeldAt = [](const Kiv::Entity* held, const std::string& path) {
    ASSERT_TRUE(held) << path;
    EXPECT_EQ(held->name(), path);
  };
  expectHeldAt(root->mplsHwSingletonConfig().get(), "cell/1/hardware/qel/mplsHwSingletonConfig");
  expectHeldAt(root->mplsHwSingletonStatus().get(), "cell/1/hardware/qel/mplsHwSingletonStatus");
  expectHeldAt(root->lfibInfo().get(), "routing/mpls/lfibInfo");
  expectHeldAt(root->mplsRoutingInfo().get(), "routing/mpls/routingInfo/status");
  expectHeldAt(root->routingHwMplsStatus().get(), "routing/hardware/mpls/status");
  expectHeldAt(root->l3IntfTable().get(), "qel/l3IntfTable");
  expectHeldAt(root->routingHwRouteStatus().get(), "routing/hardware/route/status");
  if (mediated()) {
    expectHeldAt(root->l3AdjSyncStatusExt().get(), "cell/1/qel/sync/adjSyncStatus");
  } else {
    EXPECT_FALSE(root->l3AdjSyncStatusExt());
  }
  expectHeldAt(root->transitLfib().get(), MplsRootSm::kTransitLfibPath);
  expectHeldAt(root->lfibHwStatus().get(), MplsRootSm::kLfibHwStatusPath);
  expectHeldAt(root->arpVosh().get(), MplsRootSm::kArpStatusPath);
  expectHeldAt(root->proactiveArpNexthop().get(), MplsRootSm::kProactiveArpPath);
  expectHeldAt(root->bridgingStatus().get(), MplsRootSm::kBridgingStatusPath);
  expectHeldAt(root->mplsHwCollectionConfig().get(), MplsRootSm::kHwRouteConfigPath);
  expectHeldAt(root->mplsHwCollectionStatus().get(), MplsRootSm::kHwRouteStatusPath);
  expectHeldAt(root->hwFecIdRequest().get(), MplsRootSm::kUnicastFecReqPath);
  expectHeldAt(root->mcastHwStatus().get(), "qelMcastHwStatus");
  ASSERT_TRUE(root->proactiveArpNhSm());
  EXPECT_EQ(root->proactiveArpNhSm()->clientConfig(), root->proactiveArpNexthop());
}

TEST_P(RootMounting, buildsTheInputStatusSmOverTheLocalSummaryAndTheCoreOfTheMode) {
  ASSERT_TRUE(root->inputStatusSummary());
  ASSERT_TRUE(root->mplsSmInputStatusSm());
  EXPECT_EQ(root->mplsSmInputStatusSm()->mplsSmInputSummary(), root->inputStatusSummary().get());
  EXPECT_EQ(root->inputStatusSummary()->status(), Qel::MplsSmInputStatus::mplsSmInputNotReady);
  ASSERT_TRUE(root->mplsSm());
  EXPECT_EQ(dynamic_cast<Qel::MplsRouteAndMediatedAdjSm*>(root->mplsSm().get()) != nullptr,
            mediated());
  const Qel::MplsBaseSm::Inputs& in = root->mplsSm()->inputs();
  EXPECT_EQ(in.inputStatusSummary.get(), root->inputStatusSummary().get());
  EXPECT_EQ(in.transitLfib.get(), root->transitLfib().get());
  EXPECT_EQ(in.mplsHwCollectionStatus.get(), root->mplsHwCollectionStatus().get());
  EXPECT_EQ(in.hwFecIdRequest.get(), root->hwFecIdRequest().get());
  EXPECT_EQ(in.proactiveArpNhSm.get(), root->proactiveArpNhSm().get());
  EXPECT_EQ(in.localLfibInfo.get(), localLfibInfo.get());
  EXPECT_EQ(in.l3AdjSyncStatusExt.get(), mediated() ? root->l3AdjSyncStatusExt().get() : nullptr);
  EXPECT_EQ(in.taskScheduler, &scheduler);
}

INSTANTIATE_TEST_SUITE_P(Modes, RootMounting,
                         ::testing::Values(ModeCase{kDirect, true}, ModeCase{kDirect, false},
                                           ModeCase{kMediated, true}, ModeCase{kMediated, false}),
                         caseName);

// ---------------------------------------------------------------------------
// When mounting starts, and how it fails.

using RootStart = RootFixture;

TEST_F(RootStart, mountsNothingUntilTheConfigurationNamesAProgrammer) {
  platformTablesIs(true, false);
  startRoot();
  settle();
  EXPECT_TRUE(korba->mounts().empty());
  EXPECT_FALSE(agentShm->mounted(MplsRootSm::kTransitLfibPath));
  EXPECT_FALSE(root->inputStatusSummary());

  modeConfig->adjacencyProgrammerIs(kDirect);
  settle();
  EXPECT_EQ(korba->mounts().size(), kCommonKorbaMounts.size());
  EXPECT_TRUE(root->mplsSm());
}

TEST_F(RootStart, mountsSharedMemoryAndBuildsOnlyOnceTheStateDatabaseMountsComplete) {
  platformTablesIs(true, false);
  modeConfig->adjacencyProgrammerIs(kDirect);
  startRoot();
  EXPECT_EQ(korba->mounts(), kCommonKorbaMounts);
  EXPECT_FALSE(agentShm->mounted(MplsRootSm::kTransitLfibPath));
  EXPECT_FALSE(root->inputStatusSummary());
  EXPECT_FALSE(root->mplsSmInputStatusSm());

  scheduler.runUntilIdle();
  EXPECT_TRUE(agentShm->mounted(MplsRootSm::kTransitLfibPath));
  EXPECT_TRUE(root->mplsSm());
  EXPECT_EQ(korba->mounts().size(), kCommonKorbaMounts.size());
}

TEST_F(RootStart, failedStateDatabaseMountStopsTheAgentBeforeAnythingIsBuilt) {
  platformTablesIs(true, false);
  korba->entityIs("routing/mpls/lfibInfo", "Mpls::RoutingInfo",
                  Kiv::make<Mpls::RoutingInfo>("routing/mpls/lfibInfo"));
  startRoot();
  modeConfig->adjacencyProgrammerIs(kDirect);
  try {
    settle();
    ADD_FAILURE() << "the agent went on after a failed mount";
  } catch (const Kiv::InternalError& e) {
    EXPECT_EQ(e.condition(), "mountStatus == Korba::mountSuccess_");
  }
  EXPECT_FALSE(root->inputStatusSummary());
  EXPECT_FALSE(root->mplsSmInputStatusSm());
  EXPECT_FALSE(root->mplsSm());
  EXPECT_FALSE(agentShm->mounted(MplsRootSm::kTransitLfibPath));
}

// ---------------------------------------------------------------------------
// Changes of the programming mode once assembled.

using RootModeChange = RootFixture;

TEST_F(RootModeChange, toAnotherProgrammerIsRefusedAndNothingIsRebuilt) {
  startDirectAgent();
  Qel::MplsBaseSm* core = root->mplsSm().get();
  Qel::MplsSmInputStatusSm* inputSm = root->mplsSmInputStatusSm().get();
  try {
    modeConfig->adjacencyProgrammerIs(kMediated);
    ADD_FAILURE() << "a change of programmer was accepted";
  } catch (const Kiv::InternalError& e) {
    EXPECT_EQ(e.condition(), "Invalid transition between mpls adjacency types");
  }
  settle();
  EXPECT_EQ(root->adjacencyType(), kDirect);
  EXPECT_EQ(root->mplsSm().get(), core);
  EXPECT_EQ(root->mplsSmInputStatusSm().get(), inputSm);
  EXPECT_EQ(korba->mounts(), kCommonKorbaMounts);
  EXPECT_FALSE(agentShm->mounted(MplsRootSm::kMulticastFecReqPath));
}

TEST_F(RootModeChange, backToTheSameProgrammerOnlyTracesThatTheCoreExists) {
  startDirectAgent();
  Qel::MplsBaseSm* core = root->mplsSm().get();
  EXPECT_THROW(modeConfig->adjacencyProgrammerIs(kMediated), Kiv::InternalError);
  Pellet::Capture capture{"QelMplsRootSm"};
  modeConfig->adjacencyProgrammerIs(kDirect);
  settle();
  EXPECT_EQ(capture.count("MplsSm already created"), 1u);
  EXPECT_FALSE(capture.contains("startMounting"));
  EXPECT_EQ(root->mplsSm().get(), core);
  EXPECT_EQ(korba->mounts(), kCommonKorbaMounts);
}

// A core whose release notes whether the input status state machine was
// still there at that moment.
class CoreReleaseProbe : public Qel::MplsRouteAndDirectAdjSm {
 public:
  CoreReleaseProbe(const Inputs& inputs, std::function<void()> onRelease)
      : MplsRouteAndDirectAdjSm("coreReleaseProbe", inputs), onRelease_(std::move(onRelease)) {}
  ~CoreReleaseProbe() override { onRelease_(); }

 private:
  std::function<void()> onRelease_;
};

TEST_F(RootModeChange, toNoneReleasesTheCoreFirstAndTheInputStatusSmLast) {
  startDirectAgent();
  bool released = false;
  bool inputSmAtCoreRelease = false;
  root->mplsSmIs(Kiv::make<CoreReleaseProbe>(root->mplsSm()->inputs(), [&] {
    released = true;
    inputSmAtCoreRelease = root->mplsSmInputStatusSm() != nullptr;
  }));
  modeConfig->adjacencyProgrammerIs(kNone);
  EXPECT_TRUE(released);
  EXPECT_TRUE(inputSmAtCoreRelease);
  EXPECT_FALSE(root->mplsSm());
  EXPECT_FALSE(root->mplsSmInputStatusSm());
}

TEST_F(RootModeChange, toNoneKeepsEveryMountedAndLocalEntity) {
  startDirectAgent();
  Kiv::Ptr<Qel::MplsSmInputSummary> summary = root->inputStatusSummary();
  Kiv::Ptr<Mpls::LfibStatus> lfib = root->transitLfib();
  modeConfig->adjacencyProgrammerIs(kNone);
  settle();
  EXPECT_EQ(root->inputStatusSummary(), summary);
  EXPECT_EQ(root->transitLfib(), lfib);
  EXPECT_TRUE(root->mplsHwCollectionConfig() && root->mplsRoutingInfo() && root->mcastHwStatus());
  EXPECT_TRUE(agentShm->mounted(MplsRootSm::kHwRouteConfigPath));
  EXPECT_EQ(root->adjacencyType(), kDirect);
  EXPECT_THROW(modeConfig->adjacencyProgrammerIs(kMediated), Kiv::InternalError);
}

TEST_F(RootModeChange, backFromNoneMountsAndBuildsAgain) {
  startDirectAgent();
  modeConfig->adjacencyProgrammerIs(kNone);
  modeConfig->adjacencyProgrammerIs(kDirect);
  EXPECT_FALSE(root->mplsSm());
  settle();
  ASSERT_TRUE(root->mplsSm());
  ASSERT_TRUE(root->mplsSmInputStatusSm());
  EXPECT_EQ(root->mplsSm()->inputs().inputStatusSummary.get(), root->inputStatusSummary().get());
  EXPECT_EQ(korba->mounts().size(), 2 * kCommonKorbaMounts.size());
  EXPECT_EQ(agentShm->mountType(MplsRootSm::kHwRouteStatusPath), Vosh::mountTypeSharedReader);
}

}  // namespace
