#include "bexo/MplsLabel.h"

#include "ThrownMessage.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <unordered_set>

namespace Bexo {
namespace {

TEST(MplsLabelNoLabelValue, isWhatADefaultLabelHolds) {
  EXPECT_EQ(MplsLabel(), MplsLabel::none());
  EXPECT_TRUE(MplsLabel().isNone());
  EXPECT_EQ(MplsLabel().value(), 0x100000u);
  EXPECT_FALSE(MplsLabel(0).isNone());
}

TEST(MplsLabelNoLabelValue, canBeBuiltFromItsNumber) { EXPECT_TRUE(MplsLabel(1048576).isNone()); }

TEST(MplsLabelRange, rejectsValuesAboveTheNoLabelValue) {
  EXPECT_EQ(MplsLabel(0xFFFFF).value(), 0xFFFFFu);
  EXPECT_EQ(BexoTest::thrownMessage<std::invalid_argument>([] { MplsLabel(0x100001); }),
            "MPLS label 1048577 out of range: expected 0 to 1048575, or 1048576 for no label");
}

TEST(MplsLabelText, roundTripsLabelsAndNone) {
  for (const char* text : {"0", "3", "16", "1048575", "none"}) {
    EXPECT_EQ(MplsLabel::fromString(text).stringValue(), text);
  }
  EXPECT_EQ(MplsLabel::fromString("16"), MplsLabel(16));
}

TEST(MplsLabelText, rejectsMalformedLabelsWithTheTextAndTheExpectedForm) {
  for (const char* text : {"", "-1", "+1", "016", " 16", "16x", "1048576", "99999999999", "None"}) {
    MplsLabel label(7);
    EXPECT_FALSE(MplsLabel::parse(text, label)) << text;
    EXPECT_EQ(label, MplsLabel(7)) << "a failed parse must leave the label alone";
  }
  EXPECT_EQ(BexoTest::thrownMessage<std::invalid_argument>([] { MplsLabel::fromString("16x"); }),
            "bad MPLS label '16x': expected none or a number from 0 to 1048575");
}

TEST(MplsLabelText, formatsWithWidthAndStreams) {
  EXPECT_EQ(fmt::format("[{:>6}]", MplsLabel(16)), "[    16]");
  std::ostringstream os;
  os << MplsLabel::none() << ' ' << MplsLabel(17);
  EXPECT_EQ(os.str(), "none 17");
}

TEST(MplsLabelWellKnownValues, implicitNullIsLabelThree) {
  EXPECT_TRUE(MplsLabel(3).isImplicitNull());
  EXPECT_EQ(MplsLabel::implicitNull(), MplsLabel(3));
  EXPECT_FALSE(MplsLabel(0).isImplicitNull());
}

TEST(MplsLabelHash, agreesWithEqualityAndSpreadsNeighbouringLabels) {
  EXPECT_EQ(std::hash<MplsLabel>()(MplsLabel::fromString("100")), MplsLabel(100).hash());
  std::unordered_set<std::size_t> lowBits;
  for (std::uint32_t value = 16; value < 16 + 64; ++value) {
    lowBits.insert(MplsLabel(value).hash() & 0xFF);
  }
  EXPECT_GT(lowBits.size(), 32u);
}

TEST(MplsLabelOrder, followsTheValueWithNoLabelLast) {
  EXPECT_LT(MplsLabel(16), MplsLabel(17));
  EXPECT_LT(MplsLabel(0xFFFFF), MplsLabel::none());
}

}  // namespace
}  // namespace Bexo
