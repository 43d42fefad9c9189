#include <gtest/gtest.h>

#include <vector>

#include "QelMpls/root/QelMplsInputStatusSm.h"

namespace {

using Qel::MplsSmInputStatus;
constexpr MplsSmInputStatus kUnknown = MplsSmInputStatus::mplsSmInputUnknown;
constexpr MplsSmInputStatus kNotReady = MplsSmInputStatus::mplsSmInputNotReady;
constexpr MplsSmInputStatus kReady = MplsSmInputStatus::mplsSmInputReady;

// The three signals as the platform driver, the agent and the routing side
// publish them, and every status the summary is given, in order.
class InputStatus : public ::testing::Test {
 protected:
  InputStatus() {
    written_ = summary->onStatus.connect([this] { written.push_back(summary->status()); });
  }
  void startSm() {
    sm = Qel::mplsSmInputStatusSmFactory(syncMapSide, localLfibInfo, summary, routingInfo);
  }
  // Routing, the system LFIB, the route sync map.
  void signalIs(int which, bool ready) {
    if (which == 0) routingInfo->mplsRoutingIs(ready);
    if (which == 1) localLfibInfo->systemLfibReadyIs(ready);
    if (which == 2) syncMapSide->routeSyncMapReadyIs(ready);
  }
  void allSignalsIs(bool ready) {
    for (int which = 0; which < 3; ++which) signalIs(which, ready);
  }

  Kiv::Ptr<Qel::MplsHwSingletonStatus> syncMapSide =
      Kiv::make<Qel::MplsHwSingletonStatus>("mplsHwSingletonStatus");
  Kiv::Ptr<Mpls::LocalLfibInfo> localLfibInfo = Kiv::make<Mpls::LocalLfibInfo>("localLfibInfo");
  Kiv::Ptr<Mpls::RoutingInfo> routingInfo = Kiv::make<Mpls::RoutingInfo>("routingInfo");
  Kiv::Ptr<Qel::MplsSmInputSummary> summary = Qel::mplsSmInputSummaryFactory();
  Kiv::Ptr<Qel::MplsSmInputStatusSm> sm;
  std::vector<MplsSmInputStatus> written;

 private:
  Kiv::Connection written_;
};

TEST_F(InputStatus, summaryIsUnknownUntilTheFirstEvaluation) {
  EXPECT_EQ(summary->status(), kUnknown);
  sm = Kiv::make<Qel::MplsSmInputStatusSm>(syncMapSide, localLfibInfo, summary, routingInfo);
  allSignalsIs(true);
  EXPECT_EQ(summary->status(), kUnknown);
  sm->handleInitialized();
  EXPECT_EQ(written, std::vector<MplsSmInputStatus>{kReady});
}

// Each signal, raised last, is what makes the summary ready; the summary is
// not ready from the start.
class InputStatusLastSignal : public InputStatus, public ::testing::WithParamInterface<int> {};

TEST_P(InputStatusLastSignal, makesTheSummaryReadyAndItsLossMakesItNotReady) {
  startSm();
  for (int other = 0; other < 3; ++other) {
    if (other != GetParam()) signalIs(other, true);
  }
  EXPECT_EQ(summary->status(), kNotReady);
  signalIs(GetParam(), true);
  EXPECT_EQ(summary->status(), kReady);
  signalIs(GetParam(), false);
  EXPECT_EQ(summary->status(), kNotReady);
  EXPECT_EQ(written, (std::vector<MplsSmInputStatus>{kNotReady, kReady, kNotReady}));
  sm = nullptr;
  signalIs(GetParam(), true);
  EXPECT_EQ(written.size(), 3u) << "a released state machine writes no more";
}

INSTANTIATE_TEST_SUITE_P(RoutingSystemLfibSyncMap, InputStatusLastSignal,
                         ::testing::Values(0, 1, 2));

}  // namespace
