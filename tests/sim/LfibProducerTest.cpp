#include "sim/LfibProducer.h"

#include <gtest/gtest.h>

#include "ShmPrefix.h"

namespace Sim {
namespace {

ViaSetSpec mplsIpSet(uint32_t id, size_t vias) {
  ViaSetSpec given;
  given.id = id;
  given.type = Mpls::LfibViaType::viaTypeMplsIp;
  for (size_t i = 0; i < vias; ++i) {
    ViaSpec via;
    via.nextHop = Bexo::IpGenAddr::fromIpv4(0x0a000002 + static_cast<uint32_t>(i));
    via.intf = Bexo::IntfId::ethernet(1);
    given.vias.push_back(via);
  }
  return given;
}

class LfibProducerTest : public ::testing::Test {
 protected:
  TestShmPrefix prefix_;
  Plin::TaskScheduler scheduler_;
  Kiv::Ptr<Vosh::EntityManager> em_ = Kiv::make<Vosh::EntityManager>(prefix_.str(), &scheduler_);
  Kiv::Ptr<Korba::EntityManager> korba_ = Kiv::make<Korba::EntityManager>(&scheduler_);
  std::unique_ptr<LfibProducer> producer_ = std::make_unique<LfibProducer>(*em_, *korba_);
};

TEST_F(LfibProducerTest, WritesOneRoutePerLabelOfARangeWithItsViaSetsKeyAndType) {
  producer_->viaSetsIs({mplsIpSet(3, 1)});
  producer_->routesIs(RouteRange{100, 104, 2, 3});
  EXPECT_EQ(producer_->routes(), 5u);
  Mpls::LfibRoute route = producer_->lfib().route(Mpls::RouteKey(Bexo::MplsLabel(102), 2));
  EXPECT_EQ(route.viaSetKey, Mpls::LfibViaSetKey(Mpls::LfibViaType::viaTypeMplsIp, 3));
  EXPECT_EQ(route.viaType, Mpls::LfibViaType::viaTypeMplsIp);
  producer_->routesDel(RouteRange{101, 103, 2, 0});
  EXPECT_EQ(producer_->routes(), 2u);
}

// Each via of a set is listed under its own key, and goes when its set no longer lists it.
TEST_F(LfibProducerTest, KeepsExactlyTheViasItsSetsList) {
  ViaSetSpec given = mplsIpSet(3, 3);
  producer_->viaSetsIs({given});
  Mpls::LfibViaSet record = producer_->lfib().viaSet(given.key());
  ASSERT_EQ(record.vias(), 3u);
  Mpls::LfibMplsVia second = producer_->lfib().mplsVia(record.viaKey(Mpls::LfibViaIndexRange(1)));
  EXPECT_EQ(second.nextHop, given.vias[1].nextHop);
  producer_->viaSetsIs({mplsIpSet(3, 1)});
  EXPECT_EQ(producer_->lfib().mplsVias(), 1u);
  EXPECT_EQ(producer_->lfib().viaSet(given.key()).vias(), 1u);
  producer_->viaSetDel(3);
  EXPECT_EQ(producer_->lfib().viaSets(), 0u);
  EXPECT_EQ(producer_->lfib().mplsVias(), 0u);
}

TEST_F(LfibProducerTest, ResolvesABackupDefinedLaterInTheSameBatch) {
  ViaSetSpec primary = mplsIpSet(1, 1);
  primary.backup = 2;
  producer_->viaSetsIs({primary, mplsIpSet(2, 1)});
  EXPECT_EQ(producer_->lfib().viaSet(primary.key()).backupViaSetKey(), mplsIpSet(2, 1).key());
}

TEST_F(LfibProducerTest, StartsFromAnEmptyTableWhateverAPreviousProducerLeft) {
  producer_->viaSetsIs({mplsIpSet(3, 1)});
  producer_->routesIs(RouteRange{100, 109, 0, 3});
  producer_.reset();
  em_->unmount(LfibProducer::kLfibPath);
  korba_ = Kiv::make<Korba::EntityManager>(&scheduler_);
  producer_ = std::make_unique<LfibProducer>(*em_, *korba_);
  EXPECT_EQ(producer_->routes(), 0u);
  EXPECT_EQ(producer_->lfib().mplsVias(), 0u);
}

TEST_F(LfibProducerTest, SaysInTheStateDatabaseWhenItHasWrittenEverything) {
  auto info = korba_->entityAs<Mpls::LfibInfo>(LfibProducer::kLfibInfoPath);
  ASSERT_TRUE(info);
  EXPECT_FALSE(info->transitLfibQuiesced());
  producer_->quiescedIs(true);
  EXPECT_TRUE(info->transitLfibQuiesced());
}

}  // namespace
}  // namespace Sim
