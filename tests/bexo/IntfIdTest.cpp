#include "bexo/IntfId.h"

#include "ThrownMessage.h"

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace Bexo {
namespace {

const std::vector<std::string> oneNamePerFamily = {
    "Null0",         "Ethernet1",      "Ethernet12/3", "Vlan100",
    "NexthopGroup5", "DynamicTunnel3", "Pseudowire1",  "PortPseudowire2"};

TEST(IntfIdLayout, isFourTriviallyCopyableBytes) {
  EXPECT_TRUE(std::is_trivially_copyable_v<IntfId>);
  EXPECT_EQ(sizeof(IntfId), 4u);
}

TEST(IntfIdText, roundTripsEveryFamily) {
  for (const std::string& name : oneNamePerFamily) {
    EXPECT_EQ(IntfId::fromString(name).stringValue(), name);
  }
  EXPECT_EQ(IntfId::fromString("Vlan4094"), IntfId::vlan(4094));
  EXPECT_EQ(IntfId::fromString("Ethernet65535/4095"), IntfId::ethernet(65535, 4095));
  EXPECT_EQ(IntfId::fromString("NexthopGroup268435455"), IntfId::nexthopGroup(268435455));
}

TEST(IntfIdText, theUnsetIdIsTheEmptyTextAndIsNotNull0) {
  EXPECT_EQ(IntfId().stringValue(), "");
  EXPECT_EQ(IntfId::fromString(""), IntfId());
  EXPECT_NE(IntfId(), IntfId::null0());
  EXPECT_FALSE(IntfId().isNull0());
}

TEST(IntfIdText, rejectsMalformedNamesWithTheTextAndTheExpectedForm) {
  for (const char* text :
       {"Null1", "ethernet1", "Ethernet", "Ethernet0", "Ethernet01", "Ethernet1/", "Ethernet1/0",
        "Ethernet1/2/3", "Ethernet65536", "Vlan0", "Vlan4095", "Vlan010", "NexthopGroup",
        "NexthopGroup268435456", "DynamicTunnel-1", "Pseudowire 1", "Loopback0"}) {
    IntfId intfId = IntfId::vlan(7);
    EXPECT_FALSE(IntfId::parse(text, intfId)) << text;
    EXPECT_EQ(intfId, IntfId::vlan(7));
  }
  EXPECT_EQ(BexoTest::thrownMessage<std::invalid_argument>([] { IntfId::fromString("Vlan4095"); }),
            "bad interface name 'Vlan4095': expected Null0, Ethernet<port>, "
            "Ethernet<port>/<sub-port>, Vlan<1-4094>, NexthopGroup<n>, DynamicTunnel<n>, "
            "Pseudowire<n> or PortPseudowire<n>");
}

TEST(IntfIdMakers, refuseNumbersOutsideTheFamilyRange) {
  EXPECT_EQ(BexoTest::thrownMessage<std::invalid_argument>([] { IntfId::vlan(4095); }),
            "VLAN id 4095 out of range: expected 1 to 4094");
  EXPECT_THROW(IntfId::vlan(0x10064), std::invalid_argument);
  EXPECT_THROW(IntfId::ethernet(0), std::invalid_argument);
  EXPECT_THROW(IntfId::ethernet(1, 4096), std::invalid_argument);
  EXPECT_THROW(IntfId::pseudowire(0x10000000), std::invalid_argument);
}

TEST(IntfIdFamilies, eachNameBelongsToExactlyOneFamily) {
  for (const std::string& name : oneNamePerFamily) {
    const IntfId id = IntfId::fromString(name);
    const bool portPw = PseudowireIntfId::isPortPseudowireIntfId(id);
    const bool vlanPw = PseudowireIntfId::isPseudowireIntfId(id) && !portPw;
    const int families = id.isNull0() + id.isEthernet() + id.isVlan() +
                         FecIdIntfId::isNexthopGroupIdIntfId(id) +
                         DynamicTunnelIntfId::isDynamicTunnelIntfId(id) + vlanPw + portPw;
    EXPECT_EQ(families, 1) << name;
  }
  EXPECT_TRUE(FecIdIntfId::isNexthopGroupIdIntfId(IntfId::fromString("NexthopGroup5")));
  EXPECT_TRUE(DynamicTunnelIntfId::isDynamicTunnelIntfId(IntfId::fromString("DynamicTunnel3")));
  EXPECT_TRUE(PseudowireIntfId::isPseudowireIntfId(IntfId::fromString("PortPseudowire2")));
  EXPECT_FALSE(PseudowireIntfId::isPortPseudowireIntfId(IntfId::fromString("Pseudowire2")));
  EXPECT_TRUE(IntfId::fromString("Null0").isNull0());
}

TEST(IntfIdNumbers, comeBackFromTheName) {
  EXPECT_EQ(IntfId::fromString("Vlan100").vlanId(), 100);
  EXPECT_EQ(IntfId::fromString("Ethernet100").vlanId(), 0);
  EXPECT_EQ(IntfId::fromString("NexthopGroup5").number(), 5u);
  const IntfId subPort = IntfId::fromString("Ethernet12/3");
  EXPECT_EQ(subPort.number(), 12u);
  EXPECT_EQ(subPort.ethernetSubPort(), 3u);
  EXPECT_EQ(IntfId::fromString("Ethernet12").ethernetSubPort(), 0u);
}

TEST(IntfIdEquality, sameNumberInDifferentFamiliesDiffersInValueAndHash) {
  const std::vector<IntfId> fives = {IntfId::ethernet(5),     IntfId::vlan(5),
                                     IntfId::nexthopGroup(5), IntfId::dynamicTunnel(5),
                                     IntfId::pseudowire(5),   IntfId::portPseudowire(5)};
  EXPECT_EQ(std::set<IntfId>(fives.begin(), fives.end()).size(), fives.size());
  std::set<std::size_t> hashes;
  for (IntfId id : fives) {
    hashes.insert(std::hash<IntfId>()(id));
  }
  EXPECT_EQ(hashes.size(), fives.size());
  EXPECT_EQ(IntfId::fromString("Vlan5").hash(), IntfId::vlan(5).hash());
}

TEST(IntfIdOrder, sortsPortsNumericallyWithSubPortsAfterTheirPort) {
  EXPECT_LT(IntfId::fromString("Ethernet2"), IntfId::fromString("Ethernet10"));
  EXPECT_LT(IntfId::fromString("Ethernet2"), IntfId::fromString("Ethernet2/1"));
  EXPECT_LT(IntfId::fromString("Ethernet2/4"), IntfId::fromString("Ethernet3"));
}

}  // namespace
}  // namespace Bexo
