#include "sim/HwDriver.h"

#include <gtest/gtest.h>

#include <functional>

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

  // Ends the running driver first, as a process of its own would end.
  void startDriver(const std::function<void(DriverConfig&)>& configure = {}) {
    DriverConfig config;
    if (configure) configure(config);
    driver_.reset();
    driver_ = std::make_unique<HwDriver>(Kiv::make<Vosh::EntityManager>(prefix_.str(), &scheduler_),
                                         config);
    EXPECT_TRUE(driver_->attach());
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

// A refused route takes room only once rewritten after room was freed; what went away
// leaves no status behind.
TEST_F(HwDriverTest, RefusesRoutesBeyondItsCapacityUntilRoomIsFreed) {
  startDriver([](DriverConfig& c) { c.routeCapacity = 2; });
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

  config_->mplsHwRouteDel(key(100));
  writeRoute(102, 7, 2);
  scheduler_.runUntilIdle();
  EXPECT_FALSE(driver_->status().mplsHwRouteHas(key(100)));
  EXPECT_FALSE(driver_->status().mplsRouteSyncMapHas(key(100)));
  EXPECT_EQ(status(102).state, Vosh::Qel::mplsHwRouteStateProgrammed);

  config_->mplsHwRouteDel(key(101));
  config_->mplsHwRouteDel(key(102));
  config_->l2AdjacencyDel(7);
  scheduler_.runUntilIdle();
  EXPECT_FALSE(driver_->status().l2AdjacencyHas(7));
  EXPECT_EQ(driver_->hwRoutes(), 0u);
}

TEST_F(HwDriverTest, AnswersFailLabelsUnprogrammedWithAnInvalidFec) {
  startDriver([](DriverConfig& c) { c.failLabels = {100}; });
  writeL2(7, 1);
  writeRoute(100, 7, 1);
  scheduler_.runUntilIdle();
  EXPECT_EQ(status(100).reason, Vosh::Qel::mplsHwUnprogReasonInvalidFecId);
  EXPECT_EQ(status(100).resourceFlag, 0);
}

TEST_F(HwDriverTest, RefusesRoutesOverALayer2AdjacencyBeyondItsCapacity) {
  startDriver([](DriverConfig& c) { c.l2AdjCapacity = 1; });
  writeL2(7, 1);
  writeL2(8, 1);
  writeRoute(100, 7, 1);
  writeRoute(101, 8, 1);
  scheduler_.runUntilIdle();
  EXPECT_EQ(driver_->status().l2Adjacency(8).state, Vosh::Qel::mplsHwL2AdjStateUnprogrammed);
  EXPECT_EQ(status(100).state, Vosh::Qel::mplsHwRouteStateProgrammed);
  EXPECT_EQ(status(101).reason, Vosh::Qel::mplsHwUnprogReasonAdjacencyFull);
}

TEST_F(HwDriverTest, AnswersOnlyAfterItsAnswerDelayAndNeverWhenToldNotTo) {
  startDriver([](DriverConfig& c) { c.answerDelay = 2.0; });
  writeL2(7, 1);
  writeRoute(100, 7, 1);
  scheduler_.advance(1.9);
  EXPECT_FALSE(driver_->status().mplsHwRouteHas(key(100)));
  EXPECT_TRUE(driver_->pending());
  scheduler_.advance(0.2);
  EXPECT_EQ(status(100).state, Vosh::Qel::mplsHwRouteStateProgrammed);
  EXPECT_FALSE(driver_->pending());

  startDriver([](DriverConfig& c) { c.answer = false; });
  writeRoute(101, 7, 1);
  scheduler_.runUntilIdle();
  EXPECT_FALSE(driver_->status().mplsHwRouteHas(key(101)));
  EXPECT_FALSE(driver_->pending());
}

// Routes written while no driver ran are answered with the version last written, against
// the room the previous driver's routes already take.
TEST_F(HwDriverTest, TakesOverTheHardwareAPreviousDriverLeft) {
  startDriver([](DriverConfig& c) { c.routeCapacity = 1; });
  writeL2(7, 1);
  writeRoute(100, 7, 1);
  scheduler_.runUntilIdle();
  driver_.reset();
  writeRoute(100, 7, 3);
  writeRoute(101, 7, 1);
  startDriver([](DriverConfig& c) { c.routeCapacity = 1; });
  scheduler_.runUntilIdle();
  EXPECT_EQ(driver_->hwRoutes(), 1u);
  EXPECT_EQ(status(100).state, Vosh::Qel::mplsHwRouteStateProgrammed);
  EXPECT_EQ(status(100).version, 3);
  EXPECT_EQ(status(101).reason, Vosh::Qel::mplsHwUnprogReasonRouteFull);
}

}  // namespace
}  // namespace Sim
