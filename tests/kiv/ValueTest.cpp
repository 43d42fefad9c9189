#include <gtest/gtest.h>

#include <sstream>

#include "kiv/Assert.h"
#include "kiv/Value.h"

namespace Demo {
enum class Stage { stageUnknown, stageWaiting, stageNormal };
KIV_ENUM_NAMES(Stage, stageInstance, "stageUnknown", "stageWaiting", "stageNormal")
}  // namespace Demo

namespace {

TEST(Enum, printsParsesAndFormats) {
   EXPECT_EQ(stringValue(Demo::Stage::stageNormal), "stageNormal");
   EXPECT_EQ(Demo::stageInstance("stageWaiting"), Demo::Stage::stageWaiting);
   std::ostringstream os;
   os << Demo::Stage::stageUnknown;
   EXPECT_EQ(os.str(), "stageUnknown");
   EXPECT_EQ(fmt::format("stage {}", Demo::Stage::stageNormal), "stage stageNormal");
}

TEST(Enum, rejectsUnknownTextNamingTheType) {
   try {
      Demo::stageInstance("stageBogus");
      FAIL() << "no exception";
   } catch (const std::invalid_argument& e) {
      EXPECT_NE(std::string(e.what()).find("Stage"), std::string::npos);
      EXPECT_NE(std::string(e.what()).find("stageBogus"), std::string::npos);
   }
}

TEST(Assert, failureCarriesTheConditionText) {
   int mountStatus = 2;
   try {
      KIV_ASSERT_TEXT(mountStatus == 0, "mountStatus == Korba::mountSuccess_");
      FAIL() << "no exception";
   } catch (const Kiv::InternalError& e) {
      EXPECT_EQ(e.condition(), "mountStatus == Korba::mountSuccess_");
   }
   try {
      KIV_ASSERT(mountStatus < 1);
      FAIL() << "no exception";
   } catch (const Kiv::InternalError& e) {
      EXPECT_EQ(e.condition(), "mountStatus < 1");
   }
}

struct Point {
   int x = 0, y = 0;
   bool operator==(const Point&) const = default;
   std::string stringValue() const { return fmt::format("({}, {})", x, y); }
};

TEST(Value, emptyMeansDefaultConstructedAndFormatsThroughStringValue) {
   EXPECT_TRUE(Kiv::isEmpty(Point{}));
   EXPECT_FALSE(Kiv::isEmpty(Point{0, 1}));
   EXPECT_EQ(fmt::format("{}", Point{1, 2}), "(1, 2)");
}

}  // namespace
