#include "bexo/AddressFamily.h"

#include "ThrownMessage.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

namespace Bexo {
namespace {

TEST(AddressFamilyValues, matchTheFamilyNumbersThatFecTypesAreChosenBy) {
  EXPECT_EQ(ipv4(), afIpv4);
  EXPECT_EQ(ipv6(), afIpv6);
  EXPECT_EQ(static_cast<int>(afUnknown), 0);
  EXPECT_EQ(static_cast<int>(ipv4()), 1);
  EXPECT_EQ(static_cast<int>(ipv6()), 2);
}

TEST(AddressFamilyText, roundTripsEveryFamily) {
  for (AddressFamily af : {afUnknown, afIpv4, afIpv6}) {
    EXPECT_EQ(addressFamilyInstance(stringValue(af)), af);
  }
  EXPECT_EQ(fmt::format("{}", ipv6()), "ipv6");
  std::ostringstream os;
  os << ipv4();
  EXPECT_EQ(os.str(), "ipv4");
}

TEST(AddressFamilyText, rejectsOtherNamesWithTheTextAndTheExpectedForm) {
  AddressFamily af = afIpv6;
  EXPECT_FALSE(parse("IPv4", af));
  EXPECT_EQ(af, afIpv6);
  EXPECT_EQ(BexoTest::thrownMessage<std::invalid_argument>([] { addressFamilyInstance("inet"); }),
            "bad address family 'inet': expected unknown, ipv4 or ipv6");
}

}  // namespace
}  // namespace Bexo
