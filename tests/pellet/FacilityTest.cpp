#include <string>

#include <gtest/gtest.h>

#include "pellet/Trace.h"

namespace {

TEST(FacilityLevels, recordLevelsZeroToTwoByDefault) {
  Pellet::Facility fac(Pellet::handle("FacilityTests"), "DefaultFac");
  EXPECT_TRUE(fac.on(0));
  EXPECT_TRUE(fac.on(2));
  EXPECT_FALSE(fac.on(3));
  EXPECT_FALSE(fac.on(9));
}

TEST(FacilityLevels, anOffLevelDoesNotEvaluateItsArguments) {
  Pellet::Facility fac(Pellet::handle("FacilityTests"), "LazyFac");
  int evaluations = 0;
  auto costly = [&] { return ++evaluations; };
  PELLET_TRACE(fac, 7, "costly {}", costly());
  EXPECT_EQ(evaluations, 0);
  PELLET_TRACE(fac, 1, "costly {}", costly());
  EXPECT_EQ(evaluations, 1);
}

TEST(FacilityLevels, enableSetsExactlyTheGivenLevels) {
  Pellet::Facility fac(Pellet::handle("FacilityTests"), "EnabledFac");
  Pellet::enable("EnabledFac", Pellet::levelBit(5), false);
  EXPECT_TRUE(fac.on(5));
  EXPECT_FALSE(fac.on(0));
  PELLET_TRACE(fac, 5, "at five");
  ASSERT_EQ(fac.handle().records(5).size(), 1u);
  EXPECT_EQ(fac.handle().records(5)[0].message, "at five");
}

TEST(FacilityLevels, reachCopiesAndFacilitiesOfTheSameNameMadeLater) {
  Pellet::Facility original(Pellet::handle("FacilityTests"), "SharedFac");
  Pellet::Facility copy = original;
  Pellet::enable("SharedFac", Pellet::allLevels, false);
  Pellet::Facility later(Pellet::handle("OtherFacilityTests"), "SharedFac");
  EXPECT_TRUE(copy.on(9));
  EXPECT_TRUE(later.on(9));
}

TEST(FacilityLevels, everyFacilityRuleCoversLaterFacilitiesUntilOverridden) {
  Pellet::enable("*", Pellet::levelBit(8), false);
  Pellet::Facility made(Pellet::handle("FacilityTests"), "StarFac");
  Pellet::enable("StarFac", Pellet::levelBit(6), false);
  Pellet::Facility other(Pellet::handle("FacilityTests"), "OtherStarFac");
  EXPECT_TRUE(other.on(8));
  EXPECT_FALSE(made.on(8));
  EXPECT_TRUE(made.on(6));
  Pellet::enable("*", Pellet::defaultLevels, false);
  EXPECT_TRUE(made.on(0));
  EXPECT_FALSE(made.on(6));
}

TEST(FacilityEcho, writesTimeFacilityLevelAndMessageToStderr) {
  Pellet::Facility fac(Pellet::handle("FacilityTests"), "EchoFac");
  Pellet::enable("EchoFac", Pellet::levelBit(4), true);
  Pellet::timeSourceIs([] { return 2.5; });
  testing::internal::CaptureStderr();
  PELLET_TRACE(fac, 4, "hello {}", 7);
  const std::string echoed = testing::internal::GetCapturedStderr();
  Pellet::timeSourceIs(nullptr);
  EXPECT_EQ(echoed, "2.500000 EchoFac 4 hello 7\n");
}

TEST(FacilityEcho, configureAddsEchoedLevelsAndLeavesDefaultsQuiet) {
  Pellet::Facility fac(Pellet::handle("FacilityTests"), "ConfiguredFac");
  Pellet::configure("ConfiguredFac/3-4");
  testing::internal::CaptureStderr();
  PELLET_TRACE(fac, 0, "recorded only");
  PELLET_TRACE(fac, 3, "echoed");
  const std::string echoed = testing::internal::GetCapturedStderr();
  EXPECT_EQ(echoed.find("recorded only"), std::string::npos);
  EXPECT_NE(echoed.find("ConfiguredFac 3 echoed"), std::string::npos);
  EXPECT_EQ(fac.handle().records(0).back().message, "recorded only");
}

}  // namespace
