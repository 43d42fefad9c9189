#include "bexo/MplsLabelAction.h"

#include "ThrownMessage.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

namespace Bexo {
namespace {

TEST(MplsLabelActionValues, keepTheNumberingThatHardwareRecordsCarry) {
  EXPECT_EQ(static_cast<int>(mplsActionPush), 0);
  EXPECT_EQ(static_cast<int>(mplsActionPop), 1);
  EXPECT_EQ(static_cast<int>(mplsActionSwap), 2);
  EXPECT_EQ(sizeof(MplsLabelAction), 4u);
}

TEST(MplsLabelActionText, roundTripsEveryAction) {
  EXPECT_EQ(mplsLabelActionInstance("push"), mplsActionPush);
  EXPECT_EQ(mplsLabelActionInstance("pop"), mplsActionPop);
  EXPECT_EQ(mplsLabelActionInstance("swap"), mplsActionSwap);
  for (MplsLabelAction action : {mplsActionPush, mplsActionPop, mplsActionSwap}) {
    EXPECT_EQ(mplsLabelActionInstance(stringValue(action)), action);
  }
  std::ostringstream os;
  os << mplsActionSwap;
  EXPECT_EQ(os.str(), "swap");
}

TEST(MplsLabelActionText, printsAnUnnamedValueFromForeignDataAsUnknown) {
  EXPECT_EQ(fmt::format("{}", static_cast<MplsLabelAction>(9)), "unknown");
}

TEST(MplsLabelActionText, rejectsOtherNamesWithTheTextAndTheExpectedForm) {
  MplsLabelAction action = mplsActionPop;
  EXPECT_FALSE(parse("Swap", action));
  EXPECT_EQ(action, mplsActionPop);
  EXPECT_EQ(BexoTest::thrownMessage<std::invalid_argument>([] { mplsLabelActionInstance("jump"); }),
            "bad MPLS label action 'jump': expected push, pop or swap");
}

}  // namespace
}  // namespace Bexo
