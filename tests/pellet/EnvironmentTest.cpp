#include <string>

#include <gtest/gtest.h>

#include "pellet/Trace.h"

// Run with QELMPLS_TRACE="EnvSm/4,6-7,Oops,*/9": a bad item among good ones.
namespace {

TEST(EnvironmentSettings, enableAndEchoTheListedLevelsAndSkipTheBadItem) {
  Pellet::Facility fac(Pellet::handle("EnvHandle"), "EnvSm");
  Pellet::Facility unlisted(Pellet::handle("EnvHandle"), "UnlistedSm");
  EXPECT_TRUE(fac.on(0));
  EXPECT_TRUE(fac.on(4));
  EXPECT_FALSE(fac.on(5));
  EXPECT_TRUE(fac.on(7));
  EXPECT_TRUE(unlisted.on(9));
  EXPECT_FALSE(unlisted.on(4));
  testing::internal::CaptureStderr();
  PELLET_TRACE(fac, 6, "echoed {}", "from the environment");
  PELLET_TRACE(fac, 1, "kept quiet");
  const std::string echoed = testing::internal::GetCapturedStderr();
  EXPECT_NE(echoed.find(" EnvSm 6 echoed from the environment\n"), std::string::npos);
  EXPECT_EQ(echoed.find("kept quiet"), std::string::npos);
}

}  // namespace
