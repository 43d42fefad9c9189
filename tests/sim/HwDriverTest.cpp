#include "sim/HwDriver.h"

#include <gtest/gtest.h>

#include "ShmPrefix.h"

namespace Sim {
namespace {

using Vosh::Qel::MplsHwL2AdjacencyConfig;
using Vosh::Qel::MplsHwRouteConfig;
using Vosh::Qel::MplsHwRouteStatus;

Mpls::RouteKey key(uint32_t label) { return Mpls::RouteKey(Bexo::MplsLabel(label)); }

class HwDriverTest : public ::testing::Test {
 protected:
  void SetUp() override {
    agentEm_ = Kiv::make<Vosh::EntityManager>(prefix_.str(), &scheduler_);
    agentEm_->mountWriter(HwDriver::kRouteConfigPath,
                          Vosh::Qel::MplsHwCollectionConfig::collections());
    config_ = Kiv::make<Vosh::Qel::MplsHwCollectionConfig>(*agentEm_, HwDriver::kRouteConfigPath);
  }

  HwDriver& startDriver(const DriverConfig& config = {}) {
    driver_ = std::make_unique<HwDriver>(Kiv::make<Vosh::EntityManager>(prefix_.str(), &scheduler_),
                                         config);
    EXPECT_TRUE(driver_->attach());
    return *driver_;
  }

  void writeL2(uint64_t id, uint8_t version) {
    MplsHwL2AdjacencyConfig record(id);
    record.versionIs(version);
    record.l2ViaIs(Vosh::Qel::MplsHwL2ViaIndex(0),
                   Mpls::Hardware::L2Via(
                       Bexo::IntfId::ethernet(1), Bexo::EthAddr::fromString("00:00:5e:00:53:01"),
                       1006, Bexo::MplsLabel(200), 1, Bexo::IpGenAddr::fromString("10.0.0.2")));
    config_->l2AdjacencyIs(record);
  }

  void writeRoute(uint32_t label, uint64_t l2, uint8_t version) {
    MplsHwRouteConfig record;
    record.routeKey = key(label);
    record.labelAction = Bexo::mplsActionSwap;
    record.l2AdjIdIs(l2);
    record.version = version;
    config_->mplsHwRouteIs(record);
  }

  MplsHwRouteStatus status(uint32_t label) const {
    return driver_->status().mplsHwRoute(key(label));
  }

  TestShmPrefix prefix_;
  Plin::TaskScheduler scheduler_;
  Kiv::Ptr<Vosh::EntityManager> agentEm_;
  Kiv::Ptr<Vosh::Qel::MplsHwCollectionConfig> config_;
  std::unique_ptr<HwDriver> driver_;
};

TEST_F(HwDriverTest, AnswersEachRouteWithTheVersionItActedOn) {
  startDriver();
  writeL2(7, 1);
  writeRoute(100, 7, 1);
  scheduler_.runUntilIdle();
  EXPECT_EQ(status(100).state, Vosh::Qel::mplsHwRouteStateProgrammed);
  EXPECT_EQ(status(100).version, 1);
  writeRoute(100, 7, 2);
  scheduler_.runUntilIdle();
  EXPECT_EQ(status(100).version, 2);
  EXPECT_TRUE(driver_->status().mplsRouteSyncMapHas(key(100)));
  EXPECT_EQ(driver_->status().l2Adjacency(7).state, Vosh::Qel::mplsHwL2AdjStateProgrammed);
}

TEST_F(HwDriverTest, RefusesRoutesBeyondItsCapacityAsResourceFull) {
  DriverConfig config;
  config.routeCapacity = 2;
  startDriver(config);
  writeL2(7, 1);
  for (uint32_t label = 100; label < 103; ++label) writeRoute(label, 7, 1);
  scheduler_.runUntilIdle();
  EXPECT_EQ(status(100).state, Vosh::Qel::mplsHwRouteStateProgrammed);
  EXPECT_EQ(status(101).state, Vosh::Qel::mplsHwRouteStateProgrammed);
  MplsHwRouteStatus refused = status(102);
  EXPECT_EQ(refused.state, Vosh::Qel::mplsHwRouteStateUnprogrammed);
  EXPECT_EQ(refused.reason, Vosh::Qel::mplsHwUnprogReasonRouteFull);
  EXPECT_EQ(refused.resourceFlag, 1);
  EXPECT_FALSE(driver_->status().mplsRouteSyncMapHas(key(102)));
  EXPECT_EQ(driver_->hwRoutes(), 2u);
}

TEST_F(HwDriverTest, ProgramsARefusedRouteWhenRewrittenAfterRoomWasFreed) {
  DriverConfig config;
  config.routeCapacity = 1;
  startDriver(config);
  writeL2(7, 1);
  writeRoute(100, 7, 1);
  writeRoute(101, 7, 1);
  scheduler_.runUntilIdle();
  ASSERT_EQ(status(101).state, Vosh::Qel::mplsHwRouteStateUnprogrammed);
  config_->mplsHwRouteDel(key(100));
  writeRoute(101, 7, 2);
  scheduler_.runUntilIdle();
  EXPECT_FALSE(driver_->status().mplsHwRouteHas(key(100)));
  EXPECT_EQ(status(101).state, Vosh::Qel::mplsHwRouteStateProgrammed);
}

TEST_F(HwDriverTest, AnswersFailLabelsUnprogrammedWithAnInvalidFec) {
  DriverConfig config;
  config.failLabels = {100};
  startDriver(config);
  writeL2(7, 1);
  writeRoute(100, 7, 1);
  scheduler_.runUntilIdle();
  EXPECT_EQ(status(100).reason, Vosh::Qel::mplsHwUnprogReasonInvalidFecId);
  EXPECT_EQ(status(100).resourceFlag, 0);
}

TEST_F(HwDriverTest, RefusesRoutesOverALayer2AdjacencyBeyondItsCapacity) {
  DriverConfig config;
  config.l2AdjCapacity = 1;
  startDriver(config);
  writeL2(7, 1);
  writeL2(8, 1);
  writeRoute(100, 7, 1);
  writeRoute(101, 8, 1);
  scheduler_.runUntilIdle();
  EXPECT_EQ(driver_->status().l2Adjacency(8).state, Vosh::Qel::mplsHwL2AdjStateUnprogrammed);
  EXPECT_EQ(status(100).state, Vosh::Qel::mplsHwRouteStateProgrammed);
  EXPECT_EQ(status(101).reason, Vosh::Qel::mplsHwUnprogReasonAdjacencyFull);
}

TEST_F(HwDriverTest, DeletesTheStatusOfARecordThatWentAway) {
  startDriver();
  writeL2(7, 1);
  writeRoute(100, 7, 1);
  scheduler_.runUntilIdle();
  config_->mplsHwRouteDel(key(100));
  config_->l2AdjacencyDel(7);
  scheduler_.runUntilIdle();
  EXPECT_FALSE(driver_->status().mplsHwRouteHas(key(100)));
  EXPECT_FALSE(driver_->status().l2AdjacencyHas(7));
  EXPECT_FALSE(driver_->status().mplsRouteSyncMapHas(key(100)));
  EXPECT_EQ(driver_->hwRoutes(), 0u);
}

TEST_F(HwDriverTest, AnswersOnlyAfterItsAnswerDelay) {
  DriverConfig config;
  config.answerDelay = 2.0;
  startDriver(config);
  writeL2(7, 1);
  writeRoute(100, 7, 1);
  scheduler_.advance(1.9);
  EXPECT_FALSE(driver_->status().mplsHwRouteHas(key(100)));
  EXPECT_TRUE(driver_->pending());
  scheduler_.advance(0.2);
  EXPECT_EQ(status(100).state, Vosh::Qel::mplsHwRouteStateProgrammed);
  EXPECT_FALSE(driver_->pending());
}

TEST_F(HwDriverTest, NeverAnswersWhenToldNotTo) {
  DriverConfig config;
  config.answer = false;
  startDriver(config);
  writeL2(7, 1);
  writeRoute(100, 7, 1);
  scheduler_.runUntilIdle();
  EXPECT_FALSE(driver_->status().mplsHwRouteHas(key(100)));
  EXPECT_FALSE(driver_->pending());
}

TEST_F(HwDriverTest, AnswersWhatWasWrittenBeforeItAttached) {
  writeL2(7, 1);
  writeRoute(100, 7, 3);
  startDriver();
  scheduler_.runUntilIdle();
  EXPECT_EQ(status(100).version, 3);
}

TEST_F(HwDriverTest, TakesOverTheHardwareAPreviousDriverLeft) {
  DriverConfig config;
  config.routeCapacity = 1;
  startDriver(config);
  writeL2(7, 1);
  writeRoute(100, 7, 1);
  scheduler_.runUntilIdle();
  driver_.reset();
  writeRoute(101, 7, 1);
  startDriver(config);
  scheduler_.runUntilIdle();
  EXPECT_EQ(driver_->hwRoutes(), 1u);
  EXPECT_EQ(status(100).state, Vosh::Qel::mplsHwRouteStateProgrammed);
  EXPECT_EQ(status(101).reason, Vosh::Qel::mplsHwUnprogReasonRouteFull);
}

TEST_F(HwDriverTest, WaitsForTheConfigurationTableToExist) {
  const std::string elsewhere = prefix_.str() + "x";
  {
    HwDriver driver(Kiv::make<Vosh::EntityManager>(elsewhere, &scheduler_), DriverConfig{});
    EXPECT_FALSE(driver.attach());
  }
  Vosh::EntityManager::removeAll(elsewhere);
}

}  // namespace
}  // namespace Sim
