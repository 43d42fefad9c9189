#include <gtest/gtest.h>

#include "models/MplsHardwareL2Via.h"

namespace {

using Mpls::Hardware::L2Via;
using Mpls::Hardware::L2ViaSet;

L2Via viaTo(const char* nextHop, uint32_t label, const char* intf = "Ethernet1") {
  return L2Via(Bexo::IntfId::fromString(intf), Bexo::EthAddr::fromString("00:00:5e:00:53:01"), 1006,
               Bexo::MplsLabel(label), 1, Bexo::IpGenAddr::fromString(nextHop));
}

TEST(L2Via, givesBackTheNextHopItWasResolvedFrom) {
  EXPECT_EQ(viaTo("10.0.0.2", 200).nextHop(), Bexo::IpGenAddr::fromString("10.0.0.2"));
  EXPECT_EQ(viaTo("2001:db8::2", 200).nextHop(), Bexo::IpGenAddr::fromString("2001:db8::2"));
  EXPECT_EQ(L2Via().nextHop(), Bexo::IpGenAddr());
}

TEST(L2Via, differsByNextHopFamilyAsWellAsBytes) {
  EXPECT_NE(viaTo("10.0.0.2", 200), viaTo("::a00:2", 200));
  EXPECT_NE(viaTo("10.0.0.2", 200), viaTo("10.0.0.2", 201));
  EXPECT_EQ(viaTo("10.0.0.2", 200), viaTo("10.0.0.2", 200));
}

// Adjacencies share a layer-2 adjacency when their resolved vias are the same,
// whatever order the vias were resolved in.
TEST(L2ViaSet, isTheSameForTheSameViasInAnyOrder) {
  L2ViaSet forward;
  forward.l2ViaIs(viaTo("10.0.0.2", 200));
  forward.l2ViaIs(viaTo("10.0.1.2", 300, "Ethernet2"));
  forward.l2ViaIs(viaTo("10.0.0.3", 100));
  L2ViaSet backward;
  backward.l2ViaIs(viaTo("10.0.0.3", 100));
  backward.l2ViaIs(viaTo("10.0.1.2", 300, "Ethernet2"));
  backward.l2ViaIs(viaTo("10.0.0.2", 200));
  EXPECT_EQ(forward, backward);
  EXPECT_EQ(std::hash<L2ViaSet>{}(forward), std::hash<L2ViaSet>{}(backward));
}

TEST(L2ViaSet, holdsARepeatedViaOnce) {
  L2ViaSet set;
  set.l2ViaIs(viaTo("10.0.0.2", 200));
  set.l2ViaIs(viaTo("10.0.0.2", 200));
  EXPECT_EQ(set.size(), 1u);
}

TEST(L2ViaSet, differsWhenOneViaDiffers) {
  L2ViaSet a, b;
  a.l2ViaIs(viaTo("10.0.0.2", 200));
  b.l2ViaIs(viaTo("10.0.0.2", 201));
  EXPECT_NE(a, b);
}

}  // namespace
