#include "bexo/AddressingMethod.h"

#include "ThrownMessage.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace Bexo {
namespace {

TEST(AddressingMethodValues, areThirtyTwoBitsWideForHardwareRecords) {
  EXPECT_EQ(sizeof(AddressingMethod), 4u);
  EXPECT_EQ(AddressingMethod(), addressingUnknown);
}

TEST(AddressingMethodText, roundTripsEveryMethod) {
  for (AddressingMethod method : {addressingUnknown, addressingNexthop, addressingMulticast}) {
    EXPECT_EQ(addressingMethodInstance(fmt::format("{}", method)), method);
  }
  EXPECT_EQ(stringValue(addressingMulticast), "multicast");
}

TEST(AddressingMethodText, rejectsOtherNamesWithTheTextAndTheExpectedForm) {
  EXPECT_EQ(BexoTest::thrownMessage<std::invalid_argument>([] { addressingMethodInstance("fec"); }),
            "bad addressing method 'fec': expected unknown, nexthop or multicast");
}

}  // namespace
}  // namespace Bexo
