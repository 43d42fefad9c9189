#include "bexo/MplsLabelStack.h"

#include "ThrownMessage.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>

namespace Bexo {
namespace {

TEST(MplsLabelStackLayout, isTriviallyCopyableForSharedMemory) {
  EXPECT_TRUE(std::is_trivially_copyable_v<MplsLabelStack>);
  EXPECT_LE(sizeof(MplsLabelStack), 4 * MplsLabelStack::maxStackSize + 4);
}

TEST(MplsLabelStackContents, holdsLabelsOutermostFirst) {
  MplsLabelStack stack;
  EXPECT_EQ(stack.stackSize(), 0u);
  stack.labelAppend(MplsLabel(16));
  stack.labelAppend(MplsLabel(17));
  EXPECT_EQ(stack.stackSize(), 2u);
  EXPECT_EQ(stack[0], MplsLabel(16));
  EXPECT_EQ(stack[1], MplsLabel(17));
  EXPECT_EQ(stack, MplsLabelStack({MplsLabel(16), MplsLabel(17)}));
}

TEST(MplsLabelStackContents, refusesALabelBeyondTheInlineCapacity) {
  MplsLabelStack stack;
  for (std::size_t i = 0; i < MplsLabelStack::maxStackSize; ++i) {
    stack.labelAppend(MplsLabel(100 + static_cast<std::uint32_t>(i)));
  }
  EXPECT_EQ(BexoTest::thrownMessage<std::length_error>([&] { stack.labelAppend(MplsLabel(1)); }),
            "MPLS label stack holds at most 12 labels");
  EXPECT_EQ(stack.stackSize(), MplsLabelStack::maxStackSize);
}

TEST(MplsLabelStackContents, refusesTheNoLabelValue) {
  MplsLabelStack stack;
  EXPECT_THROW(stack.labelAppend(MplsLabel::none()), std::invalid_argument);
  EXPECT_EQ(stack.stackSize(), 0u);
}

TEST(MplsLabelStackText, roundTripsEmptyAndDeepStacks) {
  for (const char* text : {"[]", "[3]", "[16 17 1048575]"}) {
    EXPECT_EQ(MplsLabelStack::fromString(text).stringValue(), text);
  }
  EXPECT_EQ(MplsLabelStack::fromString("[16 17]"), MplsLabelStack({MplsLabel(16), MplsLabel(17)}));
}

TEST(MplsLabelStackText, rejectsMalformedStacksWithTheTextAndTheExpectedForm) {
  const std::string thirteen = "[1 2 3 4 5 6 7 8 9 10 11 12 13]";
  for (const std::string& text :
       {std::string(""), std::string("16 17"), std::string("[16,17]"), std::string("[16  17]"),
        std::string("[16 ]"), std::string("[ 16]"), std::string("[none]"), std::string("[1048576]"),
        std::string("[16"), thirteen}) {
    MplsLabelStack stack{MplsLabel(5)};
    EXPECT_FALSE(MplsLabelStack::parse(text, stack)) << text;
    EXPECT_EQ(stack, MplsLabelStack{MplsLabel(5)});
  }
  EXPECT_EQ(
      BexoTest::thrownMessage<std::invalid_argument>([] { MplsLabelStack::fromString("[x]"); }),
      "bad MPLS label stack '[x]': expected up to 12 labels from 0 to 1048575 in brackets, "
      "separated by spaces, like [16 17]");
}

TEST(MplsLabelStackOrder, isLexicographicWithAPrefixFirst) {
  const MplsLabelStack shorter{MplsLabel(16)};
  const MplsLabelStack longer{MplsLabel(16), MplsLabel(17)};
  EXPECT_LT(MplsLabelStack(), shorter);
  EXPECT_LT(shorter, longer);
  EXPECT_LT(longer, MplsLabelStack{MplsLabel(17)});
}

TEST(MplsLabelStackHash, agreesWithEqualityAndDependsOnLabelOrder) {
  const MplsLabelStack stack{MplsLabel(16), MplsLabel(17)};
  EXPECT_EQ(std::hash<MplsLabelStack>()(MplsLabelStack::fromString("[16 17]")), stack.hash());
  EXPECT_NE(stack.hash(), MplsLabelStack({MplsLabel(17), MplsLabel(16)}).hash());
  EXPECT_NE(MplsLabelStack().hash(), MplsLabelStack{MplsLabel(0)}.hash());
}

}  // namespace
}  // namespace Bexo
