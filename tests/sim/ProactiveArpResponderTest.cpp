#include "sim/ProactiveArpResponder.h"

#include <gtest/gtest.h>

#include "ShmPrefix.h"

namespace Sim {
namespace {

Arp::Table::ArpKey nextHop(const char* ip) {
  return Arp::Table::ArpKey(Bexo::IpGenAddr::fromString(ip), Bexo::IntfId::ethernet(1));
}

ArpSpec neighbour(const char* ip, const char* mac) {
  return ArpSpec{nextHop(ip), Bexo::EthAddr::fromString(mac)};
}

class ProactiveArpResponderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    agentEm_->mountWriter(ProactiveArpResponder::kPath,
                          Arp::ProactiveArp::ClientConfig::collections());
    requests_ = Kiv::make<Arp::ProactiveArp::ClientConfig>(*agentEm_, ProactiveArpResponder::kPath);
  }
  void request(const Arp::Table::ArpKey& key) {
    requests_->requestIs(key, Arp::ProactiveArp::Request{key});
    scheduler_.runUntilIdle();
  }
  Bexo::EthAddr arpMac(const char* ip) const { return arp_.table().arpEntry(nextHop(ip)).mac; }

  TestShmPrefix prefix_;
  Plin::TaskScheduler scheduler_;
  Kiv::Ptr<Vosh::EntityManager> simEm_ = Kiv::make<Vosh::EntityManager>(prefix_.str(), &scheduler_);
  Kiv::Ptr<Vosh::EntityManager> agentEm_ =
      Kiv::make<Vosh::EntityManager>(prefix_.str(), &scheduler_);
  Kiv::Ptr<Arp::ProactiveArp::ClientConfig> requests_;
  ArpPublisher arp_{*simEm_};
  ProactiveArpResponder responder_{simEm_, arp_};
};

TEST_F(ProactiveArpResponderTest, PutsANeighbourInTheArpTableOnceAskedForAndFollowsIt) {
  ASSERT_TRUE(responder_.attach());
  arp_.neighbourIs(neighbour("10.0.0.2", "00:00:5e:00:53:01"));
  EXPECT_FALSE(arp_.table().arpEntryHas(nextHop("10.0.0.2")));
  request(nextHop("10.0.0.2"));
  EXPECT_EQ(arpMac("10.0.0.2"), Bexo::EthAddr::fromString("00:00:5e:00:53:01"));
  EXPECT_EQ(responder_.unresolved(), 0u);
  arp_.neighbourIs(neighbour("10.0.0.2", "00:00:5e:00:53:99"));
  EXPECT_EQ(arpMac("10.0.0.2"), Bexo::EthAddr::fromString("00:00:5e:00:53:99"));
  arp_.neighbourDel(nextHop("10.0.0.2"));
  EXPECT_FALSE(arp_.table().arpEntryHas(nextHop("10.0.0.2")));
}

TEST_F(ProactiveArpResponderTest, ResolvesARequestOnceTheNeighbourAppears) {
  ASSERT_TRUE(responder_.attach());
  request(nextHop("10.0.0.2"));
  EXPECT_EQ(responder_.unresolved(), 1u);
  arp_.neighbourIs(neighbour("10.0.0.2", "00:00:5e:00:53:01"));
  EXPECT_TRUE(arp_.table().arpEntryHas(nextHop("10.0.0.2")));
  EXPECT_EQ(responder_.unresolved(), 0u);
}

TEST_F(ProactiveArpResponderTest, AnswersRequestsMadeBeforeItAttached) {
  arp_.neighbourIs(neighbour("10.0.0.2", "00:00:5e:00:53:01"));
  request(nextHop("10.0.0.2"));
  EXPECT_FALSE(arp_.table().arpEntryHas(nextHop("10.0.0.2")));
  ASSERT_TRUE(responder_.attach());
  EXPECT_TRUE(arp_.table().arpEntryHas(nextHop("10.0.0.2")));
  EXPECT_EQ(responder_.requestsSeen(), 1u);
}

}  // namespace
}  // namespace Sim
