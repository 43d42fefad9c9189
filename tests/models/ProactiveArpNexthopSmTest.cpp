#include <gtest/gtest.h>

#include "ModelsTestSupport.h"
#include "models/ProactiveArpNexthopSm.h"

namespace {

constexpr const char* kPath = "arp/proactive/config/qelMpls";

// The client writes its requests; the ARP side reads them.
class ProactiveArpNexthop : public ModelsTest::ShmFixture {
 protected:
  ProactiveArpNexthop() {
    writerShm->mountWriter(kPath, Arp::ProactiveArp::ClientConfig::collections());
    sm =
        Qel::ProactiveArpNexthopSmIs(Kiv::make<Arp::ProactiveArp::ClientConfig>(*writerShm, kPath));
    readerShm->mountReader(kPath, Vosh::mountTypeReader);
    arpSide = Kiv::make<Arp::ProactiveArp::ClientConfig>(*readerShm, kPath);
  }
  Arp::Table::ArpKey arpKey(const char* ip, const char* intf) {
    return Arp::Table::ArpKey(Bexo::IpGenAddr::fromString(ip), Bexo::IntfId::fromString(intf));
  }

  Kiv::Ptr<Qel::ProactiveArpNexthopSm> sm;
  Kiv::Ptr<Arp::ProactiveArp::ClientConfig> arpSide;
};

TEST_F(ProactiveArpNexthop, requestReachesTheArpSideUntilWithdrawn) {
  sm->addEntry(Bexo::IpGenAddr::fromString("10.0.0.2"), Bexo::IntfId::fromString("Ethernet1"));
  sm->addEntry(Bexo::IpGenAddr::fromString("10.0.0.2"), Bexo::IntfId::fromString("Ethernet2"));
  deliver();
  EXPECT_EQ(arpSide->requests(), 2u);
  EXPECT_EQ(arpSide->request(arpKey("10.0.0.2", "Ethernet1")).key, arpKey("10.0.0.2", "Ethernet1"));

  sm->removeEntry(Bexo::IpGenAddr::fromString("10.0.0.2"), Bexo::IntfId::fromString("Ethernet1"));
  deliver();
  EXPECT_EQ(arpSide->requests(), 1u);
  EXPECT_FALSE(arpSide->requestHas(arpKey("10.0.0.2", "Ethernet1")));
}

TEST_F(ProactiveArpNexthop, holdsOneRequestPerNextHop) {
  sm->addEntry(Bexo::IpGenAddr::fromString("10.0.0.2"), Bexo::IntfId::fromString("Ethernet1"));
  sm->addEntry(Bexo::IpGenAddr::fromString("10.0.0.2"), Bexo::IntfId::fromString("Ethernet1"));
  deliver();
  EXPECT_EQ(arpSide->requests(), 1u);
}

}  // namespace
