#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "korba/MountMode.h"

namespace {

using Korba::MountMode;
using Korba::mountModeFromCode;

TEST(MountMode, everyAcceptedCodeReadsBackAsItself) {
   for (const char* code : {"r", "w", "rc", "wc", "rS", "wS"}) {
      std::optional<MountMode> mode = mountModeFromCode(code);
      ASSERT_TRUE(mode) << code;
      EXPECT_EQ(mode->stringValue(), code);
   }
}

TEST(MountMode, anyOtherCodeIsRefused) {
   for (const char* code : {"", "x", "c", "S", "R", "rw", "wr", "rcS", "rSc", "rcc", "r ", "wC"}) {
      EXPECT_EQ(mountModeFromCode(code), std::nullopt) << '"' << code << '"';
   }
}

}  // namespace
