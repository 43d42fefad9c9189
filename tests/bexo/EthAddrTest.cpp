#include "bexo/EthAddr.h"

#include "ThrownMessage.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

namespace Bexo {
namespace {

TEST(EthAddrLayout, isSixTriviallyCopyableBytes) {
  EXPECT_TRUE(std::is_trivially_copyable_v<EthAddr>);
  EXPECT_EQ(sizeof(EthAddr), 6u);
}

TEST(EthAddrText, roundTripsInLowerCase) {
  const EthAddr addr = EthAddr::fromString("00:1C:73:0a:00:01");
  EXPECT_EQ(addr, EthAddr({0x00, 0x1c, 0x73, 0x0a, 0x00, 0x01}));
  EXPECT_EQ(addr.stringValue(), "00:1c:73:0a:00:01");
  EXPECT_EQ(EthAddr::fromString(addr.stringValue()), addr);
}

TEST(EthAddrText, theEmptyAddressIsAllZeros) {
  EXPECT_EQ(EthAddr().stringValue(), "00:00:00:00:00:00");
  EXPECT_EQ(EthAddr::fromString("00:00:00:00:00:00"), EthAddr());
}

TEST(EthAddrText, rejectsMalformedAddressesWithTheTextAndTheExpectedForm) {
  for (const char* text : {"", "00:1c:73:00:00", "00-1c-73-00-00-01", "00:1c:73:00:00:0g",
                           "00:1c:73:00:00:011", "001c.7300.0001", "0:1c:73:00:00:01:"}) {
    EthAddr addr({1, 2, 3, 4, 5, 6});
    EXPECT_FALSE(EthAddr::parse(text, addr)) << text;
    EXPECT_EQ(addr, EthAddr({1, 2, 3, 4, 5, 6}));
  }
  EXPECT_EQ(BexoTest::thrownMessage<std::invalid_argument>([] { EthAddr::fromString("zz"); }),
            "bad MAC address 'zz': expected six hex byte pairs separated by colons, like "
            "00:1c:73:00:00:01");
}

TEST(EthAddrKinds, multicastIsTheGroupBitOfTheFirstByte) {
  EXPECT_TRUE(EthAddr::fromString("01:00:5e:00:00:01").isMulticast());
  EXPECT_TRUE(EthAddr::fromString("ff:ff:ff:ff:ff:ff").isMulticast());
  EXPECT_FALSE(EthAddr::fromString("00:1c:73:00:00:01").isMulticast());
}

TEST(EthAddrOrderAndHash, followTheFortyEightBitValue) {
  EXPECT_LT(EthAddr::fromString("00:00:00:00:00:ff"), EthAddr::fromString("00:00:00:00:01:00"));
  EXPECT_EQ(std::hash<EthAddr>()(EthAddr::fromString("00:1c:73:00:00:01")),
            EthAddr({0x00, 0x1c, 0x73, 0x00, 0x00, 0x01}).hash());
  EXPECT_NE(EthAddr::fromString("00:1c:73:00:00:01").hash(),
            EthAddr::fromString("00:1c:73:00:00:02").hash());
}

}  // namespace
}  // namespace Bexo
