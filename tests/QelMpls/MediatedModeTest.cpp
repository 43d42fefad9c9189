#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

#include "QelMpls/platform/QelMplsRouteAndMediatedAdjSm.h"
#include "SwitchFixture.h"

namespace QelTest {
namespace {

using Mpls::Hardware::RouteState;
using Vosh::Fib::AdjType;
using Vosh::Fib::FecId;

const Bexo::MplsLabelStack kNoLabel{};

// A mediated agent after a cold start, next to an allocator that answers at once.
class MediatedMode : public SwitchFixture {
 protected:
  void SetUp() override { startAgent(Qel::MplsSmAdjacencyProgrammer::mplsSmAdjacencyMediated); }

  void programRoute100() {
    mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 200}});
    routeIs(100, 1);
    settle();
  }
  Qel::HwFecIdRequest filedRequest(uint32_t viaSet) const {
    return allocator.requests->hwFecIdRequest(fecIdOf(viaSet));
  }
  static uint64_t granted(FecId fecId) { return TestFecAllocator::hwFecIdOf(fecId); }
};

// An answer echoing a request older than the one filed is ignored.
TEST_F(MediatedMode, aRouteIsWrittenOnceItsFecIsAnsweredAndPublishedOnceTheDriverConfirms) {
  allocator.answer = false;
  driver.answer = false;
  programRoute100();
  FecId fecId = fecIdOf(1);
  ASSERT_EQ(fecId.adjType(), AdjType::mplsAdj);
  EXPECT_EQ(filedRequest(1).fecId, fecId);
  EXPECT_FALSE(hwRoute(100)) << "nothing to point at before the allocator answers";
  EXPECT_EQ(published(100).state, RouteState::routeStateUnprogrammed);

  Qel::HwFecIdRequest older = filedRequest(1);
  mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", 201}});
  settle();
  ASSERT_FALSE(filedRequest(1) == older);
  allocator.responses->hwFecIdIs(fecId, Qel::HwFecIdResponse{fecId, 0x777, older});
  settle();
  EXPECT_FALSE(hwRoute(100));

  allocator.answer = true;
  allocator.answerAll();
  settle();
  Vosh::Qel::MplsHwRouteConfig record = hwRoute(100);
  EXPECT_EQ(record.adjacencyIdType, Vosh::Qel::adjIdTypeHardware);
  EXPECT_EQ(record.hwFecId(), granted(fecId));
  EXPECT_NE(published(100).state, RouteState::routeStateProgrammed);

  driver.answer = true;
  driver.answerRoute(key(100));
  settle();
  expectProgrammed({100});
  EXPECT_EQ(published(100).version, record.version);
}

TEST_F(MediatedMode, aReviewFilesANewRequestOnlyWhenTheDescriptionChanged) {
  programRoute100();
  struct Case {
    const char* what;
    uint32_t label;
    bool refiled;
  };
  for (const Case& c : {Case{"the same via under a new via key", 200, false},
                        Case{"another outgoing label", 201, true}}) {
    SCOPED_TRACE(c.what);
    Qel::HwFecIdRequest before = filedRequest(1);
    uint8_t version = hwRoute(100).version;
    mplsViaSetIs(1, {{"10.0.0.2", "Ethernet1", c.label}});
    settle();
    EXPECT_EQ(!(filedRequest(1) == before), c.refiled);
    EXPECT_EQ(filedFec(1).via[0].label, Bexo::MplsLabel(c.label));
    EXPECT_EQ(allocator.requests->adjSyncIdMap(fecIdOf(1)), filedRequest(1).syncId);
    EXPECT_EQ(hwRoute(100).version, version) << "the FEC kept its hardware id";
  }
}

// An IPv6 payload gets a type-10 FEC though its via set has a type-9 one; the
// driver refuses it once, which leaves the route on the FEC it was confirmed on.
// The FEC left behind is withdrawn; its number is held back, then recycled.
TEST_F(MediatedMode, aRouteMovesToTheFecOfItsNewPayloadOnlyOnceTheDriverConfirmsIt) {
  programRoute100();
  FecId confirmed = fecIdOf(1);
  ASSERT_EQ(confirmed.adjType(), AdjType::mplsAdj);
  Mpls::Hardware::RouteInfo before = published(100);
  ASSERT_EQ(before.state, RouteState::routeStateProgrammed);

  driver.failLabels = {100};
  viaSetIs(1, {mplsVia("10.0.0.2", "Ethernet1", Bexo::mplsActionSwap, {Bexo::MplsLabel(200)},
                       Mpls::PayloadType::payloadIpv6)});
  settle();
  FecId ipv6 = fecIdOf(1);
  EXPECT_EQ(ipv6.adjType(), AdjType::mpls6Adj);
  EXPECT_TRUE(allocator.requests->fec6Has(ipv6));
  EXPECT_FALSE(allocator.requests->fecHas(ipv6));
  ASSERT_EQ(hwRoute(100).hwFecId(), granted(ipv6));
  ASSERT_EQ(driver.status->mplsHwRoute(key(100)).reason, Vosh::Qel::mplsHwUnprogReasonInvalidFecId);
  EXPECT_TRUE(published(100) == before);
  EXPECT_TRUE(allocator.requests->hwFecIdRequestHas(confirmed)) << "the hardware may still use it";

  driver.failLabels.clear();
  driver.answerRoute(key(100));
  settle();
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
  EXPECT_EQ(published(100).version, hwRoute(100).version);
  EXPECT_FALSE(allocator.requests->hwFecIdRequestHas(confirmed))
      << "no route points at it any more";
  const Plin::NumAllocatorStatus& numbers = *sm()->numAllocator()->status();
  EXPECT_TRUE(numbers.heldBackHas(confirmed.index()));
  advance(Qel::MplsBaseSm::kFecNumberHoldBack);
  EXPECT_TRUE(numbers.recycledHas(confirmed.index()));
}

// Where pop and swap vias of an auto-decided payload meet, only the pops
// (the ingress side) are described; anything else is described whole.
TEST_F(MediatedMode, theFecDescriptionRecordsWhatEachViaDoesToTheLabelStack) {
  constexpr auto kPop = Bexo::mplsActionPop, kPush = Bexo::mplsActionPush,
                 kSwap = Bexo::mplsActionSwap;
  constexpr auto kAuto = Mpls::PayloadType::payloadAutoDecide,
                 kMpls = Mpls::PayloadType::payloadMpls;
  struct Case {
    std::vector<std::pair<Bexo::MplsLabelAction, uint32_t>> vias;  // label 0: none
    Mpls::PayloadType payload;
    uint32_t described;
    int8_t depth;  // of the first via, as are the columns after it
    bool skipEgressAcl;
    uint8_t ttlMode;
  };
  const Case cases[] = {
      {{{kPop, 0}}, kMpls, 1, -1, true, 1},
      {{{kPush, 3}}, kMpls, 1, 0, true, 0},  // implicit null
      {{{kPush, 16}}, kMpls, 1, 1, false, 0},
      {{{kSwap, 16}}, kMpls, 1, 0, false, 0},
      {{{kPop, 0}, {kSwap, 16}}, kAuto, 1, -1, true, 1},
      {{{kPop, 0}, {kPop, 0}}, kAuto, 2, -1, true, 1},
      {{{kSwap, 16}, {kSwap, 16}}, kAuto, 2, 0, false, 0},
      {{{kPop, 0}, {kSwap, 16}}, kMpls, 2, -1, true, 1},
  };
  uint32_t viaSet = 0;
  for (const Case& c : cases) {
    std::vector<Mpls::LfibMplsVia> vias;
    for (const auto& [action, label] : c.vias) {
      vias.push_back(mplsVia("10.0.0." + std::to_string(2 + vias.size()), "Ethernet1", action,
                             label ? Bexo::MplsLabelStack{Bexo::MplsLabel(label)} : kNoLabel,
                             c.payload));
    }
    viaSetIs(++viaSet, vias);
    routeIs(100 + viaSet, viaSet);
    settle();
    SCOPED_TRACE(viaSet);
    Vosh::Fib::Fec fec = filedFec(viaSet);
    ASSERT_EQ(fec.viaCount, c.described);
    EXPECT_EQ(fec.via[0].labelAction, c.vias[0].first);
    EXPECT_EQ(fec.via[0].labelStackDepth, c.depth);
    EXPECT_EQ(fec.via[0].skipEgressAcl, c.skipEgressAcl);
    EXPECT_EQ(fec.via[0].ttlMode, c.ttlMode);
    EXPECT_EQ(hwRoute(100 + viaSet).hwFecId(), granted(fecIdOf(viaSet)));
  }
}

// Route intake drops vias of more than one label before they reach a FEC, so
// deeper pushes are checked on the rule itself.
TEST(MediatedLabelArithmetic, aPushAddsEveryLabelOfAStackOfTwoOrMore) {
  using Bexo::MplsLabel;
  const std::pair<Bexo::MplsLabelStack, int> cases[] = {
      {{MplsLabel(16), MplsLabel(17), MplsLabel(18)}, 3},
      {{MplsLabel(16), MplsLabel(17)}, 2},
      {{MplsLabel(3), MplsLabel(17)}, 2},
      {kNoLabel, 0}};
  for (const auto& [labels, depth] : cases) {
    Bexo::UnboundedMplsLabelOperation operation(Bexo::mplsActionPush, labels);
    EXPECT_EQ(Qel::getStackDepthAfterAction(Bexo::mplsActionPush, operation, "test"), depth)
        << labels.stringValue();
  }
}

// Primary via set p names backup via set p + 1; route 100 + i runs over p.
TEST_F(MediatedMode, aPrimaryIsFiledOnceRightAfterItsBackupAndNamesTheBackupsFec) {
  auto plain = [this](uint32_t viaSet) { mplsViaSetIs(viaSet, {{"10.0.0.2", "Ethernet1", 300}}); };
  auto lastFiling = [this] {
    uint32_t last = 0;
    allocator.requests->forEachHwFecIdRequest([&last](const FecId&, const Qel::HwFecIdRequest& r) {
      last = std::max(last, r.syncId.sequence);
    });
    return last;
  };
  struct Case {
    const char* what;
    std::function<void(uint32_t backup)> before;
    std::function<void(uint32_t backup)> fix;  // none: the back-off ends on its own
  };
  const Case cases[] = {
      {"backup missing from the LFIB", [](uint32_t) {}, plain},
      {"backup with a backup of its own",
       [&](uint32_t backup) {
         plain(backup + 1);
         mplsViaSetIs(backup, {{"10.0.0.2", "Ethernet1", 300}}, backup + 1);
         routeIs(200, backup);
         settle();
       },
       plain},
      {"backup not reviewed yet", plain, {}},
  };
  for (uint32_t i = 0; i < std::size(cases); ++i) {
    const Case& c = cases[i];
    SCOPED_TRACE(c.what);
    const uint32_t primary = 10 * i + 1, backup = primary + 1, label = 100 + i;
    c.before(backup);
    uint32_t filings = lastFiling();
    size_t adjacencies = root->routingHwMplsStatus()->adjacencys();
    mplsViaSetIs(primary, {{"10.0.0.2", "Ethernet1", 200}}, backup);
    routeIs(label, primary);
    settle();
    if (c.fix) {
      EXPECT_FALSE(filedFec(primary)) << "backing off";
      EXPECT_EQ(published(label).unprogrammedReason,
                static_cast<uint32_t>(Qel::UnprogrammedReason::unprogrammedReasonHwPending));
      EXPECT_EQ(root->routingHwMplsStatus()->adjacencys(), adjacencies + 1)
          << "no adjacency for a backup it cannot use";
      filings = lastFiling();
      c.fix(backup);
      settle();
    }
    // Every filing bumps the sequence: the backup's, then the primary's, once.
    EXPECT_EQ(filedRequest(backup).syncId.sequence, filings + 1);
    EXPECT_EQ(filedRequest(primary).syncId.sequence, filings + 2);
    EXPECT_EQ(filedFec(primary).backupFecId, fecIdOf(backup));
    EXPECT_EQ(hwRoute(label).hwFecId(), granted(fecIdOf(primary)));
  }
}

TEST_F(MediatedMode, anExternalFecRouteUsesItsPublishedHardwareIdRequestsNothingReleasesNothing) {
  const FecId external(0x0900000000000011ULL);  // the FEC externalFecViaSetIs names
  const Mpls::LfibViaSetKey viaSet(Mpls::viaTypeExternalFec, 7);
  externalFecViaSetIs(7);
  routeIs(100, 7, Mpls::viaTypeExternalFec);
  settle();
  EXPECT_FALSE(hwRoute(100)) << "its owner has published no hardware id yet";

  allocator.responses->hwFecIdIs(external, Qel::HwFecIdResponse{external, 0x777, {}});
  settle();
  EXPECT_EQ(hwRoute(100).hwFecId(), 0x777u);
  EXPECT_EQ(published(100).state, RouteState::routeStateProgrammed);
  EXPECT_EQ(filedFecRecords(), 0u);
  EXPECT_TRUE(root->lfibHwStatus()->viaSetHas(viaSet));
  externalFecViaSetIs(8);
  routeIs(101, 8, Mpls::viaTypeExternalFec);
  settle();
  EXPECT_EQ(hwRoute(101).hwFecId(), 0x777u) << "published before its route came";

  // Releasing a number this library never handed out would stop the agent.
  expectNothingLeftOnceRoutesGo({100, 101});
}

}  // namespace
}  // namespace QelTest
