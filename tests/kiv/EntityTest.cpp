#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "kiv/Entity.h"

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

TEST(Entity, notificationReachesEveryLiveWatcherAndNoneAfterItGoes) {
   auto info = Kiv::make<RoutingInfo>();
   Watcher a, b;
   a.routingInfoIs(info.get());
   b.routingInfoIs(info.get());
   info->mplsRoutingIs(true);
   EXPECT_EQ(a.log, std::vector<std::string>{"on"});
   EXPECT_EQ(b.log, std::vector<std::string>{"on"});

   b.routingInfoDel();
   info->mplsRoutingIs(false);
   EXPECT_EQ(a.log, (std::vector<std::string>{"on", "off"}));
   EXPECT_EQ(b.log, std::vector<std::string>{"on"});
}

TEST(Entity, attributeNotifiesOnlyOnRealChange) {
   auto info = Kiv::make<RoutingInfo>();
   Watcher w;
   w.routingInfoIs(info.get());
   info->mplsRoutingIs(false);
   info->mplsRoutingIs(true);
   info->mplsRoutingIs(true);
   EXPECT_EQ(w.log, std::vector<std::string>{"on"});
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

TEST(Entity, reactorMayDropItselfFromInsideANotification) {
   auto info = Kiv::make<RoutingInfo>();
   Watcher w;
   int calls = 0;
   Kiv::Connection selfDropping;
   selfDropping = info->onMplsRouting.connect([&] {
      ++calls;
      selfDropping.disconnect();
   });
   w.routingInfoIs(info.get());
   info->mplsRoutingIs(true);
   info->mplsRoutingIs(false);
   EXPECT_EQ(calls, 1);
   EXPECT_EQ(w.log, (std::vector<std::string>{"on", "off"}));
}

TEST(Entity, connectionOutlivingItsSignalIsHarmless) {
   Kiv::Connection c;
   {
      auto info = Kiv::make<RoutingInfo>();
      c = info->onMplsRouting.connect([] {});
      EXPECT_TRUE(c.connected());
   }
   EXPECT_FALSE(c.connected());
   c.disconnect();
}

TEST(Ptr, releasesTheObjectWithTheLastReference) {
   struct Counted : Kiv::RefCounted {
      explicit Counted(int* alive) : alive(alive) { ++*alive; }
      ~Counted() override { --*alive; }
      int* alive;
   };
   int alive = 0;
   {
      Kiv::Ptr<Counted> a = Kiv::make<Counted>(&alive);
      Kiv::Ptr<Counted> b = a;
      EXPECT_EQ(a->refCount(), 2u);
      a = nullptr;
      EXPECT_EQ(alive, 1);
   }
   EXPECT_EQ(alive, 0);
}

}  // namespace
