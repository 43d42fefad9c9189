#include <gtest/gtest.h>

#include "plin/AttrLogSm.h"

namespace {

TEST(AttrLogSm, tellsItsWatchersOnlyWhenTheCloggedStateChanges) {
   auto log = Kiv::make<Plin::AttrLogSm>();
   int changes = 0;
   Kiv::Connection c = log->onAttrLogOutClogged.connect([&] { ++changes; });
   EXPECT_FALSE(log->isAttrLogOutClogged());
   log->attrLogOutCloggedIs(false);
   EXPECT_EQ(changes, 0);
   log->attrLogOutCloggedIs(true);
   log->attrLogOutCloggedIs(true);
   EXPECT_TRUE(log->isAttrLogOutClogged());
   EXPECT_EQ(changes, 1);
   log->attrLogOutCloggedIs(false);
   EXPECT_EQ(changes, 2);
}

}  // namespace
