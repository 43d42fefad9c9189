#include "bexo/UnboundedMplsLabelOperation.h"

#include "ThrownMessage.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

namespace Bexo {
namespace {

TEST(UnboundedMplsLabelOperationLayout, isTriviallyCopyableForSharedMemory) {
  EXPECT_TRUE(std::is_trivially_copyable_v<UnboundedMplsLabelOperation>);
}

TEST(UnboundedMplsLabelOperationText, roundTripsEachAction) {
  for (const char* text : {"swap [200]", "push [16 17]", "pop []"}) {
    EXPECT_EQ(UnboundedMplsLabelOperation::fromString(text).stringValue(), text);
  }
  const UnboundedMplsLabelOperation swap = UnboundedMplsLabelOperation::fromString("swap [200]");
  EXPECT_EQ(swap.action(), mplsActionSwap);
  EXPECT_EQ(swap.labelStack().stackSize(), 1u);
  EXPECT_EQ(swap.labelStack()[0], MplsLabel(200));
}

TEST(UnboundedMplsLabelOperationText, theEmptyOperationPushesNothing) {
  EXPECT_EQ(UnboundedMplsLabelOperation().stringValue(), "push []");
  EXPECT_EQ(UnboundedMplsLabelOperation::fromString("push []"), UnboundedMplsLabelOperation());
}

TEST(UnboundedMplsLabelOperationText, rejectsMalformedTextWithTheTextAndTheExpectedForm) {
  for (const char* text : {"", "swap", "swap[200]", "swap  [200]", "jump [1]", "swap 200",
                           "swap [200] ", "SWAP [200]"}) {
    UnboundedMplsLabelOperation operation(mplsActionPop, {});
    EXPECT_FALSE(UnboundedMplsLabelOperation::parse(text, operation)) << text;
    EXPECT_EQ(operation.action(), mplsActionPop);
  }
  EXPECT_EQ(BexoTest::thrownMessage<std::invalid_argument>(
                [] { UnboundedMplsLabelOperation::fromString("swap 200"); }),
            "bad MPLS label operation 'swap 200': expected push, pop or swap, a space and a "
            "label stack in brackets, like swap [200]");
}

TEST(UnboundedMplsLabelOperationEquality, takesBothActionAndStackIntoAccount) {
  const MplsLabelStack stack{MplsLabel(200)};
  const UnboundedMplsLabelOperation swap(mplsActionSwap, stack);
  EXPECT_NE(swap, UnboundedMplsLabelOperation(mplsActionPush, stack));
  EXPECT_NE(swap, UnboundedMplsLabelOperation(mplsActionSwap, {MplsLabel(201)}));
  EXPECT_NE(swap.hash(), UnboundedMplsLabelOperation(mplsActionPush, stack).hash());
  EXPECT_EQ(std::hash<UnboundedMplsLabelOperation>()(swap),
            UnboundedMplsLabelOperation::fromString("swap [200]").hash());
}

TEST(UnboundedMplsLabelOperationOrder, comparesTheActionFirst) {
  EXPECT_LT(UnboundedMplsLabelOperation::fromString("push [900]"),
            UnboundedMplsLabelOperation::fromString("pop [1]"));
  EXPECT_LT(UnboundedMplsLabelOperation::fromString("swap [1]"),
            UnboundedMplsLabelOperation::fromString("swap [2]"));
}

}  // namespace
}  // namespace Bexo
