#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <vector>

#include "ModelsTestSupport.h"
#include "kiv/DirectMap.h"
#include "models/VoshTables.h"

namespace {

using Mpls::LfibViaIndexRange;
using Mpls::LfibViaKey;
using Mpls::LfibViaSet;
using Mpls::LfibViaSetKey;

const LfibViaSetKey kKey(Mpls::viaTypeMplsIp, 7);

LfibViaSet viaSetOf(uint32_t vias) {
  LfibViaSet set(kKey);
  for (uint32_t i = 0; i < vias; ++i) {
    set.viaKeyIs(LfibViaIndexRange(i), LfibViaKey(Mpls::viaTypeMplsIp, 1000 + i, i % 3));
  }
  return set;
}

std::vector<std::byte> encode(const LfibViaSet& set) {
  std::vector<std::byte> bytes(LfibViaSet::kMaxSerializedSize);
  bytes.resize(set.serialize(bytes.data()));
  return bytes;
}

TEST(LfibViaSetEncoding, readsBackEveryFieldAtEightBytesAVia) {
  LfibViaSet set(kKey);
  set.viaKeyIs(LfibViaIndexRange(0), LfibViaKey(Mpls::viaTypeMplsIp, 9, 2));
  set.viaKeyIs(LfibViaIndexRange(1), LfibViaKey(Mpls::viaTypeExternalFec, 3));
  set.viaKeyIs(LfibViaIndexRange(2), LfibViaKey(Mpls::viaTypeMplsIp, 1));
  set.backupViaSetKeyIs(LfibViaSetKey(Mpls::viaTypeMplsIp, 8));
  set.usableAsPrimaryViasIs(false);
  for (const LfibViaSet& given : {set, viaSetOf(Mpls::kMaxViasPerSet), LfibViaSet(kKey)}) {
    std::vector<std::byte> bytes = encode(given);
    EXPECT_EQ(bytes.size(), LfibViaSet::kHeaderSize + 8 * given.vias());
    LfibViaSet back;
    ASSERT_TRUE(LfibViaSet::deserialize(bytes.data(), bytes.size(), back));
    EXPECT_EQ(back, given);
    EXPECT_TRUE(back);
  }
  EXPECT_EQ(encode(viaSetOf(Mpls::kMaxViasPerSet)).size(), LfibViaSet::kMaxSerializedSize);
}

TEST(LfibViaSetEncoding, isRefusedWhenItsLengthDoesNotMatchItsCountOrItsCountIsTooHigh) {
  std::vector<std::byte> bytes = encode(viaSetOf(4));
  LfibViaSet back;
  EXPECT_FALSE(LfibViaSet::deserialize(bytes.data(), LfibViaSet::kHeaderSize - 1, back));
  EXPECT_FALSE(LfibViaSet::deserialize(bytes.data(), bytes.size() - 8, back));
  bytes.resize(bytes.size() + 8);
  EXPECT_FALSE(LfibViaSet::deserialize(bytes.data(), bytes.size(), back));

  std::vector<std::byte> full = encode(viaSetOf(Mpls::kMaxViasPerSet));
  full.resize(full.size() + 8);
  // A length that fits 129 vias; the count is the header's third field, after
  // the key and the backup key.
  uint32_t count = Mpls::kMaxViasPerSet + 1;
  std::memcpy(full.data() + 16, &count, sizeof count);
  EXPECT_FALSE(LfibViaSet::deserialize(full.data(), full.size(), back));
}

// Decoding into a via set that held more vias leaves nothing of them
// readable, even once the smaller set grows again past its count.
TEST(LfibViaSet, viaPastTheCountIsEmptyAndAPositionBeyondItExtendsTheSet) {
  LfibViaSet set(kKey);
  EXPECT_EQ(set.viaKey(LfibViaIndexRange(0)), LfibViaKey());
  set.viaKeyIs(LfibViaIndexRange(3), LfibViaKey(Mpls::viaTypeMplsIp, 5));
  EXPECT_EQ(set.vias(), 4u);
  EXPECT_EQ(set.viaKey(LfibViaIndexRange(1)), LfibViaKey());
  EXPECT_EQ(set.viaKey(LfibViaIndexRange(3)), LfibViaKey(Mpls::viaTypeMplsIp, 5));
  EXPECT_THROW(LfibViaIndexRange(Mpls::kMaxViasPerSet), std::out_of_range);

  set = viaSetOf(5);
  std::vector<std::byte> smaller = encode(viaSetOf(2));
  ASSERT_TRUE(LfibViaSet::deserialize(smaller.data(), smaller.size(), set));
  EXPECT_EQ(set, viaSetOf(2));
  EXPECT_TRUE(set);
  EXPECT_EQ(set.viaKey(LfibViaIndexRange(3)), LfibViaKey());
  set.viaKeyIs(LfibViaIndexRange(4), LfibViaKey(Mpls::viaTypeMplsIp, 9));
  EXPECT_EQ(set.vias(), 5u);
  EXPECT_EQ(set.viaKey(LfibViaIndexRange(2)), LfibViaKey());
  EXPECT_EQ(set.viaKey(LfibViaIndexRange(3)), LfibViaKey());
  EXPECT_FALSE(LfibViaSet());
  EXPECT_TRUE(LfibViaSet(kKey));
}

// Via set keys are kept by number in the tables' indexes: type blocks must
// not collide, and an index past the numbered range still has its place.
TEST(LfibViaSetKey, numbersTypesApartAndKeepsLargeIndexesOnTheSide) {
  using Numbering = Kiv::DenseKey<LfibViaSetKey>;
  const LfibViaSetKey lastOfMplsIp(Mpls::viaTypeMplsIp, (1u << 20) - 1);
  const LfibViaSetKey firstOfExternalFec(Mpls::viaTypeExternalFec, 0);
  const LfibViaSetKey large(Mpls::viaTypeMplsIp, 1u << 20);
  EXPECT_EQ(Numbering::numberOf(firstOfExternalFec), Numbering::numberOf(lastOfMplsIp) + 1);
  EXPECT_EQ(Numbering::keyOf(Numbering::numberOf(lastOfMplsIp)), lastOfMplsIp);
  EXPECT_EQ(Numbering::numberOf(large), Kiv::kNotNumbered);

  ModelsTest::expectKeyMapKeepsApart<LfibViaSetKey>({lastOfMplsIp, firstOfExternalFec, large});
}

}  // namespace
