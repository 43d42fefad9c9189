#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "SwitchFixture.h"
#include "kiv/Assert.h"
#include "pellet/Trace.h"

namespace QelTest {
namespace {

using Qel::MplsRootSm;
using Qel::MplsSmAdjacencyProgrammer;
constexpr MplsSmAdjacencyProgrammer kNone = MplsSmAdjacencyProgrammer::mplsSmAdjacencyNone;
constexpr MplsSmAdjacencyProgrammer kDirect = MplsSmAdjacencyProgrammer::mplsSmAdjacencyDirect;
constexpr MplsSmAdjacencyProgrammer kMediated = MplsSmAdjacencyProgrammer::mplsSmAdjacencyMediated;
constexpr size_t kCommonKorbaMounts = 7;

// ---------------------------------------------------------------------------
// Mounting, for each mode and each value of the toggle "QelL3AgentMpls" (on:
// another agent writes the hardware status and FEC-id response tables). With
// the toggle on the mode is configured before the root is created; with it
// off, after, which shows the state database mounted once a programmer is
// named and the rest once that mount completes.

struct ModeCase {
  MplsSmAdjacencyProgrammer mode;
  bool toggleOn;
};

class RootMounting : public SwitchFixture, public ::testing::WithParamInterface<ModeCase> {
 protected:
  RootMounting() : SwitchFixture(GetParam().toggleOn) {}
};

TEST_P(RootMounting, mountsTheTablesOfItsModeAndBuildsItsCoreOverThem) {
  const bool mediated = GetParam().mode == kMediated;
  const size_t korbaMounts = kCommonKorbaMounts + (mediated ? 3 : 0);
  featureToggleIs("StageMgr.json", "QelL3AgentMpls", GetParam().toggleOn);
  if (GetParam().toggleOn) modeConfig->adjacencyProgrammerIs(GetParam().mode);
  createRoot();
  if (!GetParam().toggleOn) {
    settle();
    EXPECT_TRUE(korba->mounts().empty());
    modeConfig->adjacencyProgrammerIs(GetParam().mode);
    EXPECT_EQ(korba->mounts().size(), korbaMounts);
    EXPECT_FALSE(agentShm->mounted(MplsRootSm::kTransitLfibPath));
    EXPECT_FALSE(root->inputStatusSummary());
    EXPECT_FALSE(root->mplsSmInputStatusSm());
  }
  scheduler.runUntilIdle();
  ASSERT_TRUE(root->mplsSm());
  EXPECT_EQ(korba->mounts().size(), korbaMounts);
  // The toggle decides who owns the hardware status and FEC-id response
  // tables; the multicast tables come with the mediated mode only.
  const Vosh::MountType ownedElsewhere =
      GetParam().toggleOn ? Vosh::mountTypeSharedReader : Vosh::mountTypeWriter;
  EXPECT_EQ(agentShm->mountType(MplsRootSm::kHwRouteStatusPath), ownedElsewhere);
  ASSERT_EQ(agentShm->mounted(MplsRootSm::kMulticastFecReqPath), mediated);
  for (const char* path : {MplsRootSm::kUnicastFecRespPath, MplsRootSm::kMulticastFecRespPath}) {
    ASSERT_EQ(agentShm->mounted(path), mediated) << path;
    if (mediated) {
      EXPECT_EQ(agentShm->mountType(path), ownedElsewhere) << path;
    }
  }

  ASSERT_TRUE(root->mplsSmInputStatusSm());
  EXPECT_EQ(root->inputStatusSummary()->status(), Qel::MplsSmInputStatus::mplsSmInputNotReady);
  EXPECT_EQ(dynamic_cast<Qel::MplsRouteAndMediatedAdjSm*>(sm()) != nullptr, mediated);
  EXPECT_EQ(sm()->inputs().l3AdjSyncStatusExt != nullptr, mediated);
}

INSTANTIATE_TEST_SUITE_P(Modes, RootMounting,
                         ::testing::Values(ModeCase{kDirect, true}, ModeCase{kDirect, false},
                                           ModeCase{kMediated, true}, ModeCase{kMediated, false}),
                         [](const ::testing::TestParamInfo<ModeCase>& info) {
                           return std::string(info.param.mode == kDirect ? "direct" : "mediated") +
                                  (info.param.toggleOn ? "ToggleOn" : "ToggleOff");
                         });

// ---------------------------------------------------------------------------
// How mounting fails.

using RootStart = SwitchFixture;

TEST_F(RootStart, failedStateDatabaseMountStopsTheAgentBeforeAnythingIsBuilt) {
  const char* path = "routing/hardware/route/status";
  korba->entityIs(path, "Mpls::RoutingInfo", Kiv::make<Mpls::RoutingInfo>(path));
  createRoot();
  modeConfig->adjacencyProgrammerIs(kDirect);
  try {
    settle();
    ADD_FAILURE() << "the agent went on after a failed mount";
  } catch (const Kiv::InternalError& e) {
    EXPECT_EQ(e.condition(), "mountStatus == Korba::mountSuccess_");
  }
  EXPECT_FALSE(root->inputStatusSummary());
  EXPECT_FALSE(root->mplsSm());
  EXPECT_FALSE(agentShm->mounted(MplsRootSm::kTransitLfibPath));
}

// ---------------------------------------------------------------------------
// Changes of the programming mode once assembled.

using RootModeChange = SwitchFixture;

TEST_F(RootModeChange, toAnotherProgrammerIsRefusedAndBackToTheSameChangesNothing) {
  startAgent();
  Qel::MplsBaseSm* core = sm();
  Qel::MplsSmInputStatusSm* inputSm = root->mplsSmInputStatusSm().get();
  try {
    modeConfig->adjacencyProgrammerIs(kMediated);
    ADD_FAILURE() << "a change of programmer was accepted";
  } catch (const Kiv::InternalError& e) {
    EXPECT_EQ(e.condition(), "Invalid transition between mpls adjacency types");
  }
  settle();
  EXPECT_EQ(root->adjacencyType(), kDirect);
  EXPECT_EQ(root->mplsSmInputStatusSm().get(), inputSm);
  EXPECT_FALSE(agentShm->mounted(MplsRootSm::kMulticastFecReqPath));

  modeConfig->adjacencyProgrammerIs(kDirect);
  settle();
  EXPECT_EQ(sm(), core);
  EXPECT_EQ(korba->mounts().size(), kCommonKorbaMounts);
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

// None releases the core first and the input status state machine last,
// keeps every mounted entity, and a return mounts and builds over them.
TEST_F(RootModeChange, toNoneReleasesTheStateMachinesKeepsEveryMountedEntityAndBackBuildsAgain) {
  startAgent();
  bool inputSmAtCoreRelease = false;
  root->mplsSmIs(Kiv::make<CoreReleaseProbe>(
      sm()->inputs(), [&] { inputSmAtCoreRelease = root->mplsSmInputStatusSm() != nullptr; }));
  Kiv::Ptr<Mpls::LfibStatus> lfibStatus = root->transitLfib();
  modeConfig->adjacencyProgrammerIs(kNone);
  EXPECT_TRUE(inputSmAtCoreRelease);
  EXPECT_FALSE(root->mplsSm());
  EXPECT_FALSE(root->mplsSmInputStatusSm());
  settle();
  EXPECT_EQ(root->transitLfib(), lfibStatus);
  EXPECT_TRUE(root->inputStatusSummary() && root->mplsHwCollectionConfig() &&
              root->mcastHwStatus());
  EXPECT_EQ(root->adjacencyType(), kDirect);
  EXPECT_THROW(modeConfig->adjacencyProgrammerIs(kMediated), Kiv::InternalError);

  modeConfig->adjacencyProgrammerIs(kDirect);
  EXPECT_FALSE(root->mplsSm());
  settle();
  ASSERT_TRUE(root->mplsSm());
  ASSERT_TRUE(root->mplsSmInputStatusSm());
  EXPECT_EQ(sm()->inputs().inputStatusSummary.get(), root->inputStatusSummary().get());
  EXPECT_EQ(korba->mounts().size(), 2 * kCommonKorbaMounts);
  EXPECT_EQ(agentShm->mountType(MplsRootSm::kHwRouteStatusPath), Vosh::mountTypeSharedReader);
}

// ---------------------------------------------------------------------------
// Inputs a platform sets and clears one at a time once the mounts are done.

using RootInputs = SwitchFixture;

TEST_F(RootInputs, aClearedInputTearsTheStateMachinesDownAndSettingOneBuildsThemOverIt) {
  hostsAre();
  startAgent();
  Kiv::Ptr<Mpls::LfibStatus> transit = root->transitLfib();
  Pellet::Capture capture{"QelMplsRootSm"};
  root->transitLfibDel();
  EXPECT_FALSE(root->mplsSm());
  EXPECT_FALSE(root->mplsSmInputStatusSm());
  EXPECT_TRUE(capture.contains("Sms wait for input transitLfib"));

  root->transitLfibIs(transit);
  ASSERT_TRUE(root->mplsSm());
  EXPECT_TRUE(root->mplsSmInputStatusSm());
  EXPECT_EQ(sm()->transitLfib(), transit.get());
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
  routeIs(100, 1);
  settle();
  expectProgrammed({100});

  root->mplsProgrammingModeConfigDel();
  EXPECT_FALSE(root->mplsSm());
  root->mplsProgrammingModeConfigIs(modeConfig);
  settle();
  ASSERT_TRUE(root->mplsSm());
  expectProgrammed({100});
}

TEST_F(RootInputs, aSharedMemoryTableOfAnotherTypeIsAbsentUntilAPlatformSetsOne) {
  agentShm->mountWriter(MplsRootSm::kLfibHwStatusPath, {{"unprogrammedRoute", 1024}});
  createRoot();
  modeConfig->adjacencyProgrammerIs(kDirect);
  settle();
  EXPECT_FALSE(root->lfibHwStatus());
  EXPECT_TRUE(root->transitLfib());
  EXPECT_FALSE(root->mplsSm());

  const char* path = "hardware/mpls/lfibOfThePlatform";
  agentShm->mountWriter(path, Mpls::LfibHwStatus::collections());
  root->lfibHwStatusIs(Kiv::make<Mpls::LfibHwStatus>(*agentShm, path));
  ASSERT_TRUE(root->mplsSm());
  EXPECT_EQ(sm()->inputs().lfibHwStatus, root->lfibHwStatus());
}

}  // namespace
}  // namespace QelTest
