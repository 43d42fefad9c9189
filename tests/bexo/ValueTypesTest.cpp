// The network value types. Their text forms are one table row per type: what reads back
// unchanged, what is refused (leaving the target alone and naming the text and the expected
// form), and the text of the default value. Then layout for shared memory and hardware
// records, kinds, numbers, order and hashing.

#include "bexo/AddressFamily.h"
#include "bexo/AddressingMethod.h"
#include "bexo/EthAddr.h"
#include "bexo/IntfId.h"
#include "bexo/IpGenAddr.h"
#include "bexo/MplsLabel.h"
#include "bexo/MplsLabelAction.h"
#include "bexo/MplsLabelStack.h"
#include "bexo/UnboundedMplsLabelOperation.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Bexo {
namespace {

// Streaming and {fmt} must print the same text.
template <typename T>
std::string printed(const T& value) {
  std::ostringstream os;
  os << value;
  EXPECT_EQ(fmt::format("{}", value), os.str());
  return os.str();
}

// `what` as the refusal names the type, `expected` as it describes the form. The ascending texts
// print back as they are, in ascending order of their values with distinct hashes; an alias
// reads as the value of the text it prints as, with the same hash; a bad text is refused and
// leaves the target as it was.
template <typename T>
void expectTextForm(const std::string& what, const std::string& expected,
                    T (*read)(std::string_view), bool (*parse)(std::string_view, T&), T sentinel,
                    const std::string& defaultText, const std::vector<std::string>& ascending,
                    const std::vector<std::string>& bad,
                    const std::vector<std::pair<std::string, std::string>>& aliases = {}) {
  SCOPED_TRACE(what);
  const std::hash<T> hash;
  EXPECT_TRUE(read(defaultText) == T() && printed(T()) == defaultText);
  for (size_t i = 0; i < ascending.size(); ++i) {
    EXPECT_EQ(printed(read(ascending[i])), ascending[i]);
    if (i > 0) {
      const T before = read(ascending[i - 1]), value = read(ascending[i]);
      EXPECT_TRUE(before < value && hash(before) != hash(value)) << ascending[i];
    }
  }
  for (const auto& [text, printedAs] : aliases) {
    EXPECT_EQ(printed(read(text)), printedAs);
    EXPECT_TRUE(read(text) == read(printedAs) && hash(read(text)) == hash(read(printedAs)));
  }
  for (const std::string& text : bad) {
    T value = sentinel;
    EXPECT_TRUE(!parse(text, value) && value == sentinel) << text;
    try {
      read(text);
      ADD_FAILURE() << "read " << text;
    } catch (const std::invalid_argument& e) {
      EXPECT_EQ(e.what(), "bad " + what + " '" + text + "': " + expected);
    }
  }
}

// Hashes must also tell apart what the ascending texts do not put side by side.
TEST(TextForm, readsBackWhatItPrintsInOrderAndRefusesTheRestNamingTextAndForm) {
  using Op = UnboundedMplsLabelOperation;
  expectTextForm<AddressFamily>("address family", "expected unknown, ipv4 or ipv6",
                                addressFamilyInstance, parse, afIpv6, "unknown",
                                {"unknown", "ipv4", "ipv6"}, {"inet", "IPv4"});
  expectTextForm<AddressingMethod>("addressing method", "expected unknown, nexthop or multicast",
                                   addressingMethodInstance, parse, addressingNexthop, "unknown",
                                   {"unknown", "nexthop", "multicast"}, {"fec"});
  expectTextForm<MplsLabelAction>("MPLS label action", "expected push, pop or swap",
                                  mplsLabelActionInstance, parse, mplsActionPop, "push",
                                  {"push", "pop", "swap"}, {"jump", "Swap"});
  expectTextForm<EthAddr>(
      "MAC address", "expected six hex byte pairs separated by colons, like 00:1c:73:00:00:01",
      &EthAddr::fromString, &EthAddr::parse, EthAddr({1, 2, 3, 4, 5, 6}), "00:00:00:00:00:00",
      {"00:00:00:00:00:00", "00:00:00:00:00:ff", "00:00:00:00:01:00", "00:1c:73:00:00:01",
       "00:1c:73:00:00:02", "ff:ff:ff:ff:ff:ff"},
      {"zz", "", "00:1c:73:00:00", "00-1c-73-00-00-01", "00:1c:73:00:00:0g", "00:1c:73:00:00:011",
       "001c.7300.0001", "0:1c:73:00:00:01:"},
      {{"00:1C:73:0a:00:01", "00:1c:73:0a:00:01"}});
  expectTextForm<IntfId>(
      "interface name",
      "expected Null0, Ethernet<port>, Ethernet<port>/<sub-port>, Vlan<1-4094>, "
      "NexthopGroup<n>, DynamicTunnel<n>, Pseudowire<n> or PortPseudowire<n>",
      &IntfId::fromString, &IntfId::parse, IntfId::vlan(7), "",
      {"", "Null0", "Ethernet1", "Ethernet2", "Ethernet2/1", "Ethernet2/4", "Ethernet3",
       "Ethernet10", "Ethernet12/3", "Ethernet65535/4095", "Vlan100", "Vlan4094", "NexthopGroup5",
       "NexthopGroup268435455", "DynamicTunnel3", "Pseudowire1", "PortPseudowire2"},
      {"Vlan4095", "Null1", "ethernet1", "Ethernet", "Ethernet0", "Ethernet01", "Ethernet1/",
       "Ethernet1/0", "Ethernet1/2/3", "Ethernet65536", "Vlan0", "Vlan010", "NexthopGroup",
       "NexthopGroup268435456", "DynamicTunnel-1", "Pseudowire 1", "Loopback0"});
  expectTextForm<IpGenAddr>(
      "IP address", "expected a dotted IPv4 or an IPv6 address", &IpGenAddr::fromString,
      &IpGenAddr::parse, IpGenAddr::fromIpv4(1), "",
      {"", "0.0.0.0", "10.0.0.1", "10.0.0.2", "10.0.0.10", "255.255.255.255",
       "::", "a00:1::", "2001:db8::1", "2001:db8::2"},
      {"10.0.0.300", "10.0.0", "2001:db8:::1", "router1", " 10.0.0.1", std::string(100, '1')},
      {{"2001:0db8:0:0::1", "2001:db8::1"}});
  expectTextForm<MplsLabel>(
      "MPLS label", "expected none or a number from 0 to 1048575", &MplsLabel::fromString,
      &MplsLabel::parse, MplsLabel(7), "none", {"0", "3", "16", "17", "1048575", "none"},
      {"16x", "", "-1", "+1", "016", " 16", "1048576", "99999999999", "None"});
  expectTextForm<MplsLabelStack>(
      "MPLS label stack",
      "expected up to 12 labels from 0 to 1048575 in brackets, separated by spaces, like "
      "[16 17]",
      &MplsLabelStack::fromString, &MplsLabelStack::parse, MplsLabelStack{MplsLabel(5)}, "[]",
      {"[]", "[0]", "[3]", "[16]", "[16 17]", "[16 17 1048575]", "[17]", "[17 16]"},
      {"[x]", "", "16 17", "[16,17]", "[16  17]", "[16 ]", "[ 16]", "[none]", "[1048576]", "[16",
       "[1 2 3 4 5 6 7 8 9 10 11 12 13]"});
  expectTextForm<Op>("MPLS label operation",
                     "expected push, pop or swap, a space and a label stack in brackets, like swap "
                     "[200]",
                     &Op::fromString, &Op::parse, Op(mplsActionPop, {}), "push []",
                     {"push []", "push [16 17]", "push [900]", "pop []", "pop [1]", "swap [1]",
                      "swap [2]", "swap [200]", "swap [201]"},
                     {"swap 200", "", "swap", "swap[200]", "swap  [200]", "jump [1]", "swap [200] ",
                      "SWAP [200]"});
  EXPECT_NE(std::hash<IpGenAddr>()(IpGenAddr::fromString("10.0.0.1")),
            std::hash<IpGenAddr>()(IpGenAddr::fromString("a00:1::")));
  EXPECT_NE(std::hash<MplsLabelStack>()(MplsLabelStack::fromString("[16 17]")),
            std::hash<MplsLabelStack>()(MplsLabelStack::fromString("[17 16]")));
  EXPECT_NE(std::hash<Op>()(Op::fromString("swap [200]")),
            std::hash<Op>()(Op::fromString("push [200]")));
}

TEST(TextForm, readsTheValuesItNames) {
  EXPECT_EQ(addressFamilyInstance("ipv4"), ipv4());
  EXPECT_EQ(addressFamilyInstance("ipv6"), ipv6());
  EXPECT_EQ(mplsLabelActionInstance("pop"), mplsActionPop);
  EXPECT_EQ(mplsLabelActionInstance("swap"), mplsActionSwap);
  EXPECT_EQ(addressingMethodInstance("multicast"), addressingMulticast);
  EXPECT_EQ(EthAddr::fromString("00:1C:73:0a:00:01"),
            EthAddr({0x00, 0x1c, 0x73, 0x0a, 0x00, 0x01}));
  EXPECT_EQ(IntfId::fromString("Vlan4094"), IntfId::vlan(4094));
  EXPECT_EQ(IntfId::fromString("Ethernet65535/4095"), IntfId::ethernet(65535, 4095));
  EXPECT_EQ(IntfId::fromString("NexthopGroup268435455"), IntfId::nexthopGroup(268435455));
  EXPECT_EQ(IpGenAddr::fromString("10.0.0.1"), IpGenAddr::fromIpv4(0x0a000001));
  EXPECT_EQ(MplsLabel::fromString("16"), MplsLabel(16));
  EXPECT_EQ(MplsLabelStack::fromString("[16 17]"), MplsLabelStack({MplsLabel(16), MplsLabel(17)}));
  EXPECT_EQ(UnboundedMplsLabelOperation::fromString("swap [200]"),
            UnboundedMplsLabelOperation(mplsActionSwap, {MplsLabel(200)}));
}

TEST(TextForm, honoursWidthAndNamesForeignEnumValuesUnknown) {
  EXPECT_EQ(fmt::format("[{:>6}]", MplsLabel(16)), "[    16]");
  EXPECT_EQ(fmt::format("{}", static_cast<MplsLabelAction>(9)), "unknown");
}

template <typename T>
constexpr bool kShareable = std::is_trivially_copyable_v<T>;
static_assert(kShareable<EthAddr> && sizeof(EthAddr) == 6);
static_assert(kShareable<IntfId> && sizeof(IntfId) == 4);
static_assert(kShareable<IpGenAddr> && sizeof(IpGenAddr) == 17);
static_assert(kShareable<MplsLabelStack> && sizeof(MplsLabelStack) <= 4 * 12 + 4);
static_assert(kShareable<UnboundedMplsLabelOperation>);
static_assert(sizeof(AddressingMethod) == 4 && sizeof(MplsLabelAction) == 4);

TEST(ValueHash, spreadsNeighbouringLabelsOverTheLowBits) {
  std::unordered_set<std::size_t> lowBits;
  for (std::uint32_t value = 16; value < 16 + 64; ++value) {
    lowBits.insert(MplsLabel(value).hash() & 0xFF);
  }
  EXPECT_GT(lowBits.size(), 32u);
}

TEST(EthAddr, isMulticastByTheGroupBitOfTheFirstByte) {
  EXPECT_TRUE(EthAddr::fromString("01:00:5e:00:00:01").isMulticast());
  EXPECT_TRUE(EthAddr::fromString("ff:ff:ff:ff:ff:ff").isMulticast());
  EXPECT_FALSE(EthAddr::fromString("00:1c:73:00:00:01").isMulticast());
}

TEST(IpGenAddr, givesItsFamilyAndBytes) {
  const IpGenAddr v4 = IpGenAddr::fromString("10.0.0.1");
  EXPECT_EQ(v4.af(), afIpv4);
  EXPECT_EQ(v4.ipv4Value(), 0x0a000001u);
  EXPECT_EQ(v4.bytes().size(), 4u);
  const IpGenAddr v6 = IpGenAddr::fromString("2001:db8::1");
  EXPECT_EQ(v6.af(), afIpv6);
  EXPECT_EQ(v6.bytes().size(), 16u);
  EXPECT_EQ(v6.bytes()[1], 0x01);
  EXPECT_EQ(v6.ipv4Value(), 0u);
  EXPECT_EQ(IpGenAddr().af(), afUnknown);
  EXPECT_TRUE(IpGenAddr().bytes().empty());
}

TEST(IntfId, eachNameBelongsToExactlyItsOwnFamily) {
  const char* names[] = {"Null0",          "Ethernet1",   "Vlan100",        "NexthopGroup5",
                         "DynamicTunnel3", "Pseudowire1", "PortPseudowire2"};
  for (int family = 0; family < 7; ++family) {
    const IntfId id = IntfId::fromString(names[family]);
    const bool portPw = PseudowireIntfId::isPortPseudowireIntfId(id);
    const bool in[] = {id.isNull0(),
                       id.isEthernet(),
                       id.isVlan(),
                       FecIdIntfId::isNexthopGroupIdIntfId(id),
                       DynamicTunnelIntfId::isDynamicTunnelIntfId(id),
                       PseudowireIntfId::isPseudowireIntfId(id) && !portPw,
                       portPw};
    for (int other = 0; other < 7; ++other) EXPECT_EQ(in[other], other == family) << names[family];
  }
  EXPECT_TRUE(PseudowireIntfId::isPseudowireIntfId(IntfId::fromString("PortPseudowire2")));
  EXPECT_TRUE(IntfId::fromString("Ethernet12/3").isEthernet());
  EXPECT_NE(IntfId(), IntfId::null0());
  EXPECT_FALSE(IntfId().isNull0());
}

TEST(IntfId, givesBackTheNumbersOfItsName) {
  EXPECT_EQ(IntfId::fromString("Vlan100").vlanId(), 100);
  EXPECT_EQ(IntfId::fromString("Ethernet100").vlanId(), 0);
  EXPECT_EQ(IntfId::fromString("NexthopGroup5").number(), 5u);
  const IntfId subPort = IntfId::fromString("Ethernet12/3");
  EXPECT_EQ(subPort.number(), 12u);
  EXPECT_EQ(subPort.ethernetSubPort(), 3u);
  EXPECT_EQ(IntfId::fromString("Ethernet12").ethernetSubPort(), 0u);
}

TEST(IntfId, keepsTheSameNumberInDifferentFamiliesApart) {
  const std::vector<IntfId> fives = {IntfId::ethernet(5),     IntfId::vlan(5),
                                     IntfId::nexthopGroup(5), IntfId::dynamicTunnel(5),
                                     IntfId::pseudowire(5),   IntfId::portPseudowire(5)};
  std::set<std::size_t> hashes;
  for (IntfId id : fives) hashes.insert(std::hash<IntfId>()(id));
  EXPECT_EQ(std::set<IntfId>(fives.begin(), fives.end()).size(), fives.size());
  EXPECT_EQ(hashes.size(), fives.size());
}

TEST(IntfId, makersRefuseNumbersOutsideTheFamilyRange) {
  try {
    IntfId::vlan(4095);
    ADD_FAILURE() << "made Vlan4095";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "VLAN id 4095 out of range: expected 1 to 4094");
  }
  EXPECT_THROW(IntfId::vlan(0x10064), std::invalid_argument);
  EXPECT_THROW(IntfId::ethernet(0), std::invalid_argument);
  EXPECT_THROW(IntfId::ethernet(1, 4096), std::invalid_argument);
  EXPECT_THROW(IntfId::pseudowire(0x10000000), std::invalid_argument);
}

TEST(MplsLabel, defaultsToTheNoLabelValueAndRefusesValuesAboveIt) {
  EXPECT_TRUE(MplsLabel().isNone());
  EXPECT_EQ(MplsLabel().value(), 0x100000u);
  EXPECT_TRUE(MplsLabel(1048576).isNone());
  EXPECT_FALSE(MplsLabel(0).isNone());
  EXPECT_EQ(MplsLabel(0xFFFFF).value(), 0xFFFFFu);
  try {
    MplsLabel(0x100001);
    ADD_FAILURE() << "made label 1048577";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(),
                 "MPLS label 1048577 out of range: expected 0 to 1048575, or 1048576 for no label");
  }
  EXPECT_TRUE(MplsLabel(3).isImplicitNull());
  EXPECT_EQ(MplsLabel::implicitNull(), MplsLabel(3));
  EXPECT_FALSE(MplsLabel(0).isImplicitNull());
}

TEST(MplsLabelStack, holdsUpToTwelveLabelsOutermostFirst) {
  MplsLabelStack stack;
  EXPECT_THROW(stack.labelAppend(MplsLabel::none()), std::invalid_argument);
  EXPECT_EQ(stack.stackSize(), 0u);
  for (std::uint32_t i = 0; i < MplsLabelStack::maxStackSize; ++i) stack.labelAppend(MplsLabel(i));
  EXPECT_EQ(stack[0], MplsLabel(0));
  EXPECT_EQ(stack[11], MplsLabel(11));
  try {
    stack.labelAppend(MplsLabel(1));
    ADD_FAILURE() << "a thirteenth label";
  } catch (const std::length_error& e) {
    EXPECT_STREQ(e.what(), "MPLS label stack holds at most 12 labels");
  }
  EXPECT_EQ(stack.stackSize(), 12u);
}

}  // namespace
}  // namespace Bexo
