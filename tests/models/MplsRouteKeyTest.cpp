#include <gtest/gtest.h>

#include <stdexcept>

#include "models/MplsRouteKey.h"

namespace {

using Mpls::RouteKey;

TEST(RouteKeyText, omitsTheDefaultSourceAndRoundTrips) {
  EXPECT_EQ(RouteKey(Bexo::MplsLabel(100)).stringValue(), "100");
  EXPECT_EQ(RouteKey(Bexo::MplsLabel(101), 2).stringValue(), "101/2");
  EXPECT_EQ(RouteKey::fromString("101/2"), RouteKey(Bexo::MplsLabel(101), 2));
  EXPECT_EQ(RouteKey::fromString("100"), RouteKey(Bexo::MplsLabel(100)));
}

TEST(RouteKeyText, refusesAnythingButLabelAndSource) {
  for (const char* bad : {"", "x", "100/", "100/256", "100/1x", "100/-1", "1048577"}) {
    EXPECT_THROW(RouteKey::fromString(bad), std::invalid_argument) << bad;
  }
}

TEST(RouteKey, ordersByLabelThenSourceAndHashesBoth) {
  EXPECT_LT(RouteKey(Bexo::MplsLabel(100), 9), RouteKey(Bexo::MplsLabel(101), 0));
  EXPECT_LT(RouteKey(Bexo::MplsLabel(100), 1), RouteKey(Bexo::MplsLabel(100), 2));
  EXPECT_NE(std::hash<RouteKey>{}(RouteKey(Bexo::MplsLabel(100), 1)),
            std::hash<RouteKey>{}(RouteKey(Bexo::MplsLabel(100), 2)));
}

TEST(RouteKey, isEmptyOnlyWhenDefault) {
  EXPECT_FALSE(RouteKey());
  EXPECT_TRUE(RouteKey(Bexo::MplsLabel(0)));
}

}  // namespace
