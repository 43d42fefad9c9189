#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <vector>

#include "kiv/Assert.h"
#include "kiv/Entity.h"
#include "kiv/Value.h"

namespace Demo {
enum class Stage { stageUnknown, stageWaiting, stageNormal };
KIV_ENUM_NAMES(Stage, stageInstance, "stageUnknown", "stageWaiting", "stageNormal")
}  // namespace Demo

namespace {

struct RoutingInfo : Kiv::Entity {
   KIV_ATTR(bool, mplsRouting, MplsRouting, false)
   KIV_COLL(int, std::string, label, Label)
   KIV_COUNTER(changes)
};

struct RoutingReactor : Kiv::Reactor {
   explicit RoutingReactor(RoutingInfo* info, std::vector<std::string>* log) {
      on(info->onMplsRouting, [info, log] { log->push_back(info->mplsRouting() ? "on" : "off"); });
      on(info->onLabel, [log](int k) { log->push_back("label " + std::to_string(k)); });
   }
};

// A state machine holding a reactor per input, as the library's state machines do.
struct Watcher {
   std::vector<std::string> log;
   std::unique_ptr<RoutingReactor> kivRoutingInfo;
   void routingInfoIs(RoutingInfo* info) { kivRoutingInfo = std::make_unique<RoutingReactor>(info, &log); }
   void routingInfoDel() { kivRoutingInfo.reset(); }
};

// A connection may drop itself from inside its own notification.
TEST(Entity, attributeTellsEveryLiveWatcherOfRealChangesOnly) {
   auto info = Kiv::make<RoutingInfo>();
   Watcher a, b;
   int calls = 0;
   Kiv::Connection selfDropping;
   selfDropping = info->onMplsRouting.connect([&] {
      ++calls;
      selfDropping.disconnect();
   });
   a.routingInfoIs(info.get());
   b.routingInfoIs(info.get());
   info->mplsRoutingIs(false);
   info->mplsRoutingIs(true);
   info->mplsRoutingIs(true);
   EXPECT_EQ(a.log, std::vector<std::string>{"on"});
   EXPECT_EQ(b.log, std::vector<std::string>{"on"});

   b.routingInfoDel();
   info->mplsRoutingIs(false);
   EXPECT_EQ(a.log, (std::vector<std::string>{"on", "off"}));
   EXPECT_EQ(b.log, std::vector<std::string>{"on"});
   EXPECT_EQ(calls, 1);
}

TEST(Entity, collectionNotifiesPerKeyOnSetChangeAndDelete) {
   auto info = Kiv::make<RoutingInfo>();
   Watcher w;
   w.routingInfoIs(info.get());
   info->labelIs(7, "a");
   info->labelIs(7, "a");  // unchanged: silent
   info->labelIs(8, "b");
   info->labelDel(7);
   info->labelDel(7);  // absent: silent
   EXPECT_EQ(w.log, (std::vector<std::string>{"label 7", "label 8", "label 7"}));
   EXPECT_EQ(info->label(8), "b");
   EXPECT_EQ(info->label(7), "");
   EXPECT_FALSE(info->labelHas(7));

   w.log.clear();
   info->labelIs(9, "c");
   info->labelDelAll();
   EXPECT_EQ(w.log, (std::vector<std::string>{"label 9", "label 8", "label 9"}));
   EXPECT_EQ(info->labels(), 0u);
}

// A connection outliving its signal is harmless.
TEST(Ptr, releasesTheObjectWithTheLastReference) {
   struct Counted : RoutingInfo {
      explicit Counted(int* alive) : alive(alive) { ++*alive; }
      ~Counted() override { --*alive; }
      int* alive;
   };
   int alive = 0;
   Kiv::Connection c;
   {
      Kiv::Ptr<Counted> a = Kiv::make<Counted>(&alive);
      Kiv::Ptr<Counted> b = a;
      c = b->onMplsRouting.connect([] {});
      EXPECT_TRUE(c.connected());
      EXPECT_EQ(a->refCount(), 2u);
      a = nullptr;
      EXPECT_EQ(alive, 1);
   }
   EXPECT_EQ(alive, 0);
   EXPECT_FALSE(c.connected());
   c.disconnect();
}

TEST(Enum, printsParsesAndFormatsAndRejectsUnknownTextNamingTheType) {
   EXPECT_EQ(stringValue(Demo::Stage::stageNormal), "stageNormal");
   EXPECT_EQ(Demo::stageInstance("stageWaiting"), Demo::Stage::stageWaiting);
   std::ostringstream os;
   os << Demo::Stage::stageUnknown;
   EXPECT_EQ(os.str(), "stageUnknown");
   EXPECT_EQ(fmt::format("stage {}", Demo::Stage::stageNormal), "stage stageNormal");
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
