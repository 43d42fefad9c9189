#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "ModelsTestSupport.h"
#include "kiv/DirectMap.h"
#include "models/MplsRouteKey.h"

namespace {

using Mpls::RouteKey;

TEST(RouteKeyText, omitsTheDefaultSourceRoundTripsAndRefusesAnythingButLabelAndSource) {
  EXPECT_EQ(RouteKey(Bexo::MplsLabel(100)).stringValue(), "100");
  EXPECT_EQ(RouteKey(Bexo::MplsLabel(101), 2).stringValue(), "101/2");
  EXPECT_EQ(RouteKey::fromString("101/2"), RouteKey(Bexo::MplsLabel(101), 2));
  EXPECT_EQ(RouteKey::fromString("100"), RouteKey(Bexo::MplsLabel(100)));
  for (const char* bad : {"", "x", "100/", "100/256", "100/1x", "100/-1", "1048577"}) {
    EXPECT_THROW(RouteKey::fromString(bad), std::invalid_argument) << bad;
  }
}

TEST(RouteKey, ordersByLabelThenSourceHashesBothAndIsEmptyOnlyWhenDefault) {
  EXPECT_FALSE(RouteKey());
  EXPECT_TRUE(RouteKey(Bexo::MplsLabel(0)));
  EXPECT_LT(RouteKey(Bexo::MplsLabel(100), 9), RouteKey(Bexo::MplsLabel(101), 0));
  EXPECT_LT(RouteKey(Bexo::MplsLabel(100), 1), RouteKey(Bexo::MplsLabel(100), 2));
  EXPECT_NE(std::hash<RouteKey>{}(RouteKey(Bexo::MplsLabel(100), 1)),
            std::hash<RouteKey>{}(RouteKey(Bexo::MplsLabel(100), 2)));
}

// Keys are kept by number in the route-sized maps: neighbours across a
// source's block must not collide, and a key whose bytes came back with its
// reserved bytes set is a different key that has no number.
TEST(RouteKey, numbersDistinctKeysApartAndLeavesMalformedOnesUnnumbered) {
  using Numbering = Kiv::DenseKey<RouteKey>;
  const RouteKey lastOfSource0(Bexo::MplsLabel::none(), 0);
  const RouteKey firstOfSource1(Bexo::MplsLabel(0), 1);
  const RouteKey highest(Bexo::MplsLabel::none(), 255);
  EXPECT_EQ(Numbering::numberOf(firstOfSource1), Numbering::numberOf(lastOfSource0) + 1);
  EXPECT_NE(Numbering::numberOf(highest), Kiv::kNotNumbered);

  RouteKey malformed(Bexo::MplsLabel(7), 1);
  std::byte bytes[sizeof(RouteKey)];
  std::memcpy(bytes, &malformed, sizeof bytes);
  bytes[sizeof bytes - 1] = std::byte{1};
  std::memcpy(static_cast<void*>(&malformed), bytes, sizeof bytes);
  EXPECT_EQ(Numbering::numberOf(malformed), Kiv::kNotNumbered);

  ModelsTest::expectKeyMapKeepsApart<RouteKey>(
      {RouteKey(Bexo::MplsLabel(7), 1), malformed, lastOfSource0, firstOfSource1});
}

}  // namespace
