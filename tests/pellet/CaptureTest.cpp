#include <gtest/gtest.h>

#include "pellet/Trace.h"

namespace {

TEST(CaptureMessages, seesEveryLevelOfTheCapturedFacility) {
  Pellet::Facility fac(Pellet::handle("CaptureTests"), "CapturedSm");
  Pellet::Capture capture;
  PELLET_TRACE(fac, 9, "Delet stale route: {}", 16);
  PELLET_TRACE(fac, 0, "route {} programmed", 17);
  PELLET_TRACE(fac, 5, "Delet stale route: {}", 18);

  EXPECT_TRUE(capture.contains("Delet stale route: "));
  EXPECT_FALSE(capture.contains("absent"));
  EXPECT_EQ(capture.count("Delet stale route: "), 2u);
  ASSERT_EQ(capture.messages().size(), 3u);
  EXPECT_EQ(capture.messages()[0].facility, "CapturedSm");
  EXPECT_EQ(capture.messages()[0].level, 9);
  EXPECT_EQ(capture.messages()[0].text, "Delet stale route: 16");
}

TEST(CaptureMessages, takesOnlyTheNamedFacilities) {
  Pellet::Facility wanted(Pellet::handle("CaptureTests"), "WantedSm");
  Pellet::Facility other(Pellet::handle("CaptureTests"), "OtherSm");
  Pellet::Capture capture{"WantedSm"};
  PELLET_TRACE(other, 0, "from other");
  PELLET_TRACE(wanted, 0, "from wanted");
  ASSERT_EQ(capture.messages().size(), 1u);
  EXPECT_EQ(capture.messages()[0].text, "from wanted");
}

TEST(CaptureMessages, coversFacilitiesMadeWhileItLives) {
  Pellet::Capture capture{"LateSm"};
  Pellet::Facility late(Pellet::handle("CaptureTests"), "LateSm");
  PELLET_TRACE(late, 8, "late message");
  EXPECT_TRUE(capture.contains("late message"));
}

TEST(CaptureLevels, areRestoredWhenTheCaptureEnds) {
  Pellet::Facility fac(Pellet::handle("CaptureTests"), "RestoredSm");
  Pellet::enable("RestoredSm", Pellet::levelBit(4), false);
  {
    Pellet::Capture capture;
    EXPECT_TRUE(fac.on(9));
  }
  EXPECT_FALSE(fac.on(9));
  EXPECT_FALSE(fac.on(0));
  EXPECT_TRUE(fac.on(4));
}

TEST(CaptureLevels, doNotPutExtraLevelsIntoTheRings) {
  Pellet::Facility fac(Pellet::handle("CaptureRingTests"), "UnringedSm");
  Pellet::Capture capture;
  PELLET_TRACE(fac, 7, "captured only");
  EXPECT_TRUE(capture.contains("captured only"));
  EXPECT_TRUE(fac.handle().records(7).empty());
}

TEST(CaptureLevels, stayOnWhileAnOuterCaptureLives) {
  Pellet::Facility fac(Pellet::handle("CaptureTests"), "NestedSm");
  Pellet::Capture outer{"NestedSm"};
  { Pellet::Capture inner{"NestedSm"}; }
  EXPECT_TRUE(fac.on(9));
  PELLET_TRACE(fac, 9, "after inner");
  EXPECT_TRUE(outer.contains("after inner"));
}

}  // namespace
