#include <gtest/gtest.h>

#include "models/Fib.h"

namespace {

using Vosh::Fib::AdjType;
using Vosh::Fib::FecId;

TEST(FecId, carriesItsAdjacencyTypeInTheTopByte) {
  FecId id = FecId::fecIdForAdjType(AdjType::mplsAdj, 0x11);
  EXPECT_EQ(id.value(), 0x0900000000000011ULL);
  EXPECT_EQ(id.adjType(), AdjType::mplsAdj);
  EXPECT_EQ(id.index(), 0x11u);
  EXPECT_EQ(FecId(0x0a00000000000005ULL).adjType(), AdjType::mpls6Adj);
}

TEST(FecId, keepsAnIndexTooWideOutOfTheAdjacencyType) {
  FecId id = FecId::fecIdForAdjType(AdjType::mpls6Adj, ~uint64_t{0});
  EXPECT_EQ(id.adjType(), AdjType::mpls6Adj);
  EXPECT_EQ(id.index(), FecId::kIndexMask);
}

TEST(FecId, printsAsFullWidthHex) {
  EXPECT_EQ(FecId(0x0900000000000011ULL).stringValue(), "0x0900000000000011");
}

}  // namespace
