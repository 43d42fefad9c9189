#include <gtest/gtest.h>

#include "models/Fib.h"

namespace {

using Vosh::Fib::AdjType;
using Vosh::Fib::FecId;

// The index cannot spill into the type however wide it is given; printed full width.
TEST(FecId, carriesItsAdjacencyTypeInTheTopByte) {
  FecId id = FecId::fecIdForAdjType(AdjType::mplsAdj, 0x11);
  EXPECT_EQ(id.value(), 0x0900000000000011ULL);
  EXPECT_EQ(id.adjType(), AdjType::mplsAdj);
  EXPECT_EQ(id.index(), 0x11u);
  EXPECT_EQ(id.stringValue(), "0x0900000000000011");
  EXPECT_EQ(FecId(0x0a00000000000005ULL).adjType(), AdjType::mpls6Adj);
  FecId wide = FecId::fecIdForAdjType(AdjType::mpls6Adj, ~uint64_t{0});
  EXPECT_EQ(wide.adjType(), AdjType::mpls6Adj);
  EXPECT_EQ(wide.index(), FecId::kIndexMask);
}

}  // namespace
