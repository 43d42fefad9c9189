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
  static Bexo::IpGenAddr ip(const char* text) { return Bexo::IpGenAddr::fromString(text); }
  static Bexo::IntfId intf(const char* text) { return Bexo::IntfId::fromString(text); }
  static Arp::Table::ArpKey arpKey(const char* addr, const char* name) {
    return Arp::Table::ArpKey(ip(addr), intf(name));
  }

  Kiv::Ptr<Qel::ProactiveArpNexthopSm> sm;
  Kiv::Ptr<Arp::ProactiveArp::ClientConfig> arpSide;
};

TEST_F(ProactiveArpNexthop, holdsOneRequestPerNextHopUntilWithdrawn) {
  sm->addEntry(ip("10.0.0.2"), intf("Ethernet1"));
  sm->addEntry(ip("10.0.0.2"), intf("Ethernet1"));
  sm->addEntry(ip("10.0.0.2"), intf("Ethernet2"));
  deliver();
  EXPECT_EQ(arpSide->requests(), 2u);
  EXPECT_EQ(arpSide->request(arpKey("10.0.0.2", "Ethernet1")).key, arpKey("10.0.0.2", "Ethernet1"));

  sm->removeEntry(ip("10.0.0.2"), intf("Ethernet1"));
  deliver();
  EXPECT_EQ(arpSide->requests(), 1u);
  EXPECT_FALSE(arpSide->requestHas(arpKey("10.0.0.2", "Ethernet1")));
}

}  // namespace
