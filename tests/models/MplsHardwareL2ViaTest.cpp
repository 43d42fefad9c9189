#include <gtest/gtest.h>

#include <initializer_list>

#include "models/MplsHardwareL2Via.h"

namespace {

using Mpls::Hardware::L2Via;
using Mpls::Hardware::L2ViaSet;

L2Via viaTo(const char* nextHop, uint32_t label, const char* intf = "Ethernet1") {
  return L2Via(Bexo::IntfId::fromString(intf), Bexo::EthAddr::fromString("00:00:5e:00:53:01"), 1006,
               Bexo::MplsLabel(label), 1, Bexo::IpGenAddr::fromString(nextHop));
}

L2ViaSet setOf(std::initializer_list<L2Via> vias) {
  L2ViaSet set;
  for (const L2Via& via : vias) set.l2ViaIs(via);
  return set;
}

TEST(L2Via, givesBackItsNextHopAndDiffersByItsFamilyAsWellAsBytes) {
  EXPECT_EQ(viaTo("10.0.0.2", 200).nextHop(), Bexo::IpGenAddr::fromString("10.0.0.2"));
  EXPECT_EQ(viaTo("2001:db8::2", 200).nextHop(), Bexo::IpGenAddr::fromString("2001:db8::2"));
  EXPECT_EQ(L2Via().nextHop(), Bexo::IpGenAddr());
  EXPECT_NE(viaTo("10.0.0.2", 200), viaTo("::a00:2", 200));
  EXPECT_NE(viaTo("10.0.0.2", 200), viaTo("10.0.0.2", 201));
  EXPECT_EQ(viaTo("10.0.0.2", 200), viaTo("10.0.0.2", 200));
}

// Adjacencies share a layer-2 adjacency when their resolved vias are the same,
// whatever order the vias were resolved in.
TEST(L2ViaSet, isTheSameForTheSameViasInAnyOrderAndHoldsARepeatedViaOnce) {
  const L2Via a = viaTo("10.0.0.2", 200), b = viaTo("10.0.1.2", 300, "Ethernet2"),
              c = viaTo("10.0.0.3", 100);
  EXPECT_EQ(setOf({a, b, c}), setOf({c, b, a}));
  EXPECT_EQ(std::hash<L2ViaSet>{}(setOf({a, b, c})), std::hash<L2ViaSet>{}(setOf({c, b, a})));
  EXPECT_EQ(setOf({a, a}).size(), 1u);
  EXPECT_NE(setOf({a}), setOf({viaTo("10.0.0.2", 201)}));
}

}  // namespace
