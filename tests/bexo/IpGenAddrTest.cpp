#include "bexo/IpGenAddr.h"

#include "ThrownMessage.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>

namespace Bexo {
namespace {

TEST(IpGenAddrLayout, isSmallAndTriviallyCopyableForSharedMemory) {
  EXPECT_TRUE(std::is_trivially_copyable_v<IpGenAddr>);
  EXPECT_EQ(sizeof(IpGenAddr), 17u);
}

TEST(IpGenAddrText, roundTripsIpv4) {
  const IpGenAddr addr = IpGenAddr::fromString("10.0.0.1");
  EXPECT_EQ(addr.af(), ipv4());
  EXPECT_EQ(addr.ipv4Value(), 0x0a000001u);
  EXPECT_EQ(addr, IpGenAddr::fromIpv4(0x0a000001));
  EXPECT_EQ(addr.stringValue(), "10.0.0.1");
  EXPECT_EQ(addr.bytes().size(), 4u);
}

TEST(IpGenAddrText, roundTripsIpv6InItsShortestForm) {
  const IpGenAddr addr = IpGenAddr::fromString("2001:0db8:0:0::1");
  EXPECT_EQ(addr.af(), ipv6());
  EXPECT_EQ(addr.stringValue(), "2001:db8::1");
  EXPECT_EQ(IpGenAddr::fromString(addr.stringValue()), addr);
  EXPECT_EQ(addr.bytes().size(), 16u);
  EXPECT_EQ(addr.bytes()[1], 0x01);
  EXPECT_EQ(addr.ipv4Value(), 0u);
}

TEST(IpGenAddrText, theUnsetAddressIsTheEmptyText) {
  EXPECT_EQ(IpGenAddr().af(), afUnknown);
  EXPECT_EQ(IpGenAddr().stringValue(), "");
  EXPECT_TRUE(IpGenAddr().bytes().empty());
  EXPECT_EQ(IpGenAddr::fromString(""), IpGenAddr());
}

TEST(IpGenAddrText, rejectsMalformedAddressesWithTheTextAndTheExpectedForm) {
  const std::string tooLong(100, '1');
  for (const std::string& text :
       {std::string("10.0.0.300"), std::string("10.0.0"), std::string("2001:db8:::1"),
        std::string("router1"), std::string(" 10.0.0.1"), tooLong}) {
    IpGenAddr addr = IpGenAddr::fromIpv4(1);
    EXPECT_FALSE(IpGenAddr::parse(text, addr)) << text;
    EXPECT_EQ(addr, IpGenAddr::fromIpv4(1));
  }
  EXPECT_EQ(
      BexoTest::thrownMessage<std::invalid_argument>([] { IpGenAddr::fromString("10.0.0.300"); }),
      "bad IP address '10.0.0.300': expected a dotted IPv4 or an IPv6 address");
}

TEST(IpGenAddrOrder, putsIpv4BeforeIpv6AndComparesNumerically) {
  EXPECT_LT(IpGenAddr(), IpGenAddr::fromString("0.0.0.0"));
  EXPECT_LT(IpGenAddr::fromString("255.255.255.255"), IpGenAddr::fromString("::"));
  EXPECT_LT(IpGenAddr::fromString("10.0.0.2"), IpGenAddr::fromString("10.0.0.10"));
}

TEST(IpGenAddrEquality, tellsFamiliesApartEvenWhenTheBytesAgree) {
  const IpGenAddr v4 = IpGenAddr::fromString("10.0.0.1");
  const IpGenAddr v6 = IpGenAddr::fromString("a00:1::");
  EXPECT_NE(v4, v6);
  EXPECT_NE(v4.hash(), v6.hash());
}

TEST(IpGenAddrHash, agreesWithEquality) {
  EXPECT_EQ(std::hash<IpGenAddr>()(IpGenAddr::fromString("2001:db8::1")),
            IpGenAddr::fromString("2001:db8:0::1").hash());
  EXPECT_NE(IpGenAddr::fromString("2001:db8::1").hash(),
            IpGenAddr::fromString("2001:db8::2").hash());
}

}  // namespace
}  // namespace Bexo
