#include <gtest/gtest.h>

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "Qel/FeatureToggle.h"

namespace {

using Qel::featureToggleEnabled;

// Each test gets a toggle directory of its own, named to the library through
// QELMPLS_TOGGLE_DIR, and a cache with nothing read yet.
class FeatureToggles : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "qeltogglesXXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
    setenv("QELMPLS_TOGGLE_DIR", dir_.c_str(), 1);
    Qel::featureTogglesReset();
  }
  void TearDown() override {
    Qel::featureTogglesReset();
    unsetenv("QELMPLS_TOGGLE_DIR");
    std::filesystem::remove_all(dir_);
  }
  void fileIs(const std::string& name, const std::string& text) {
    std::ofstream(dir_ / name) << text;
  }
  std::string pathOf(const std::string& name) const { return (dir_ / name).string(); }

  std::filesystem::path dir_;
};

TEST_F(FeatureToggles, areOnWhenTheirFileIsMissing) {
  EXPECT_TRUE(featureToggleEnabled("StageMgr.json", "QelL3AgentMpls"));
  EXPECT_TRUE(featureToggleEnabled("QelMpls.json", "QelMplsAgentKivModels"));
}

TEST_F(FeatureToggles, readFalseFromTheirFileAndStayOnWhenNotListed) {
  fileIs("StageMgr.json", "{\n  \"QelL3AgentMpls\" : false,\n  \"Other\": true\n}\n");
  EXPECT_FALSE(featureToggleEnabled("StageMgr.json", "QelL3AgentMpls"));
  EXPECT_TRUE(featureToggleEnabled("StageMgr.json", "Other"));
  EXPECT_TRUE(featureToggleEnabled("StageMgr.json", "NotListed"));
}

TEST_F(FeatureToggles, ofOneFileDoNotAnswerForAnother) {
  fileIs("StageMgr.json", R"({"MplsUcmp": false})");
  fileIs("Mpls.json", R"({})");
  EXPECT_FALSE(featureToggleEnabled("StageMgr.json", "MplsUcmp"));
  EXPECT_TRUE(featureToggleEnabled("Mpls.json", "MplsUcmp"));
}

TEST_F(FeatureToggles, areReadOnceAndCachedUntilReset) {
  EXPECT_TRUE(featureToggleEnabled("StageMgr.json", "QelL3AgentMpls"));
  fileIs("StageMgr.json", R"({"QelL3AgentMpls": false})");
  EXPECT_TRUE(featureToggleEnabled("StageMgr.json", "QelL3AgentMpls"));
  fileIs("QelMpls.json", R"({"QelMplsAgentKivModels": false})");
  EXPECT_FALSE(featureToggleEnabled("QelMpls.json", "QelMplsAgentKivModels"));
  fileIs("QelMpls.json", R"({"QelMplsAgentKivModels": true})");
  EXPECT_FALSE(featureToggleEnabled("QelMpls.json", "QelMplsAgentKivModels"));
  Qel::featureTogglesReset();
  EXPECT_TRUE(featureToggleEnabled("QelMpls.json", "QelMplsAgentKivModels"));
  EXPECT_FALSE(featureToggleEnabled("StageMgr.json", "QelL3AgentMpls"));
}

// Every text below would turn the toggle off if it were taken at face value.
class UnparsableToggleFile : public FeatureToggles,
                             public ::testing::WithParamInterface<const char*> {};

TEST_P(UnparsableToggleFile, isReportedOnceAndTreatedAsMissing) {
  fileIs("StageMgr.json", GetParam());
  ::testing::internal::CaptureStderr();
  EXPECT_TRUE(featureToggleEnabled("StageMgr.json", "QelL3AgentMpls"));
  EXPECT_TRUE(featureToggleEnabled("StageMgr.json", "QelL3AgentMpls"));
  std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(err, "feature toggles: cannot parse " + pathOf("StageMgr.json") + "; using defaults\n");
}

INSTANTIATE_TEST_SUITE_P(
    Texts, UnparsableToggleFile,
    ::testing::Values(R"({"QelL3AgentMpls": false)", R"({"QelL3AgentMpls": false,})",
                      R"({"QelL3AgentMpls" false})", R"({"QelL3AgentMpls": "false"})",
                      R"({"QelL3AgentMpls": 0})", R"("QelL3AgentMpls": false)", ""));

}  // namespace
