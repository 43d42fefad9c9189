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

TEST_F(FeatureToggles, readFalseFromTheirOwnFileStayOnWhenNotListedAndAreCachedUntilReset) {
  EXPECT_TRUE(featureToggleEnabled("StageMgr.json", "QelL3AgentMpls"));
  fileIs("StageMgr.json", "{\n  \"QelL3AgentMpls\" : false,\n  \"Other\": true\n}\n");
  fileIs("Mpls.json", R"({})");
  EXPECT_TRUE(featureToggleEnabled("StageMgr.json", "QelL3AgentMpls"));
  EXPECT_TRUE(featureToggleEnabled("Mpls.json", "QelL3AgentMpls"));
  Qel::featureTogglesReset();
  EXPECT_FALSE(featureToggleEnabled("StageMgr.json", "QelL3AgentMpls"));
  EXPECT_TRUE(featureToggleEnabled("StageMgr.json", "Other"));
  EXPECT_TRUE(featureToggleEnabled("StageMgr.json", "NotListed"));
  fileIs("StageMgr.json", R"({"QelL3AgentMpls": true})");
  EXPECT_FALSE(featureToggleEnabled("StageMgr.json", "QelL3AgentMpls"));
}

// Every text below would turn the toggle off if it were taken at face value.
TEST_F(FeatureToggles, inAnUnparsableFileAreReportedOnceAndTakenAsMissing) {
  for (const char* text : {R"({"QelL3AgentMpls": false)", R"({"QelL3AgentMpls": false,})",
                           R"({"QelL3AgentMpls" false})", R"({"QelL3AgentMpls": "false"})",
                           R"({"QelL3AgentMpls": 0})", R"("QelL3AgentMpls": false)", ""}) {
    Qel::featureTogglesReset();
    fileIs("StageMgr.json", text);
    ::testing::internal::CaptureStderr();
    EXPECT_TRUE(featureToggleEnabled("StageMgr.json", "QelL3AgentMpls")) << text;
    EXPECT_TRUE(featureToggleEnabled("StageMgr.json", "QelL3AgentMpls")) << text;
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "feature toggles: cannot parse " + pathOf("StageMgr.json") + "; using defaults\n");
  }
}

}  // namespace
