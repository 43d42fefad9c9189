#include "pellet/LevelSettings.h"

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Pellet::levelBit;
using Pellet::LevelSetting;

std::vector<LevelSetting> parsed(std::string_view text, std::string* errors = nullptr) {
  std::ostringstream out;
  auto settings = Pellet::parseLevelSettings(text, out);
  if (errors) *errors = out.str();
  return settings;
}

TEST(LevelSettingsParsing, readsARangeOfLevels) {
  EXPECT_EQ(parsed("QelMplsSm/0-9"), (std::vector<LevelSetting>{{"QelMplsSm", Pellet::allLevels}}));
}

TEST(LevelSettingsParsing, continuesALevelListAcrossCommasUntilTheNextFacility) {
  const auto settings = parsed("A/0,3,5-7,B/1");
  const Pellet::LevelMask a = levelBit(0) | levelBit(3) | levelBit(5) | levelBit(6) | levelBit(7);
  EXPECT_EQ(settings, (std::vector<LevelSetting>{{"A", a}, {"B", levelBit(1)}}));
}

TEST(LevelSettingsParsing, takesStarAsAFacilityAndToleratesBlanks) {
  EXPECT_EQ(parsed(" */2 , 4 ,"), (std::vector<LevelSetting>{{"*", levelBit(2) | levelBit(4)}}));
}

TEST(LevelSettingsParsing, takesAnEmptyTextAsNothingWithoutComplaint) {
  std::string errors;
  EXPECT_TRUE(parsed("", &errors).empty());
  EXPECT_EQ(errors, "");
}

class LevelSettingsBadItem : public testing::TestWithParam<const char*> {};

TEST_P(LevelSettingsBadItem, isReportedAndSkippedWhileTheRestIsKept) {
  std::string errors;
  const std::string bad = GetParam();
  const auto settings = parsed(bad + ",Good/2", &errors);
  EXPECT_EQ(settings, (std::vector<LevelSetting>{{"Good", levelBit(2)}}));
  EXPECT_NE(errors.find("ignored trace setting \"" + bad + "\""), std::string::npos) << errors;
}

INSTANTIATE_TEST_SUITE_P(Items, LevelSettingsBadItem,
                         testing::Values("A", "/3", "A/x", "A/12", "A/10", "A/7-3", "A/-1", "A/",
                                         "A/2-", "A/3x"));

TEST(LevelSettingsParsing, keepsTheGoodLevelsOfAFacilityWithABadOne) {
  std::string errors;
  EXPECT_EQ(parsed("A/x,4", &errors), (std::vector<LevelSetting>{{"A", levelBit(4)}}));
  EXPECT_NE(errors.find("\"A/x\""), std::string::npos);
}

}  // namespace
