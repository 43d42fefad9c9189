#pragma once

// A layer-3 interface id in 32 bits, so that vias and next-hop keys stay small in shared
// memory. The family sits in the top four bits and the numbers of the name below it, so the
// family of an id is known without a lookup and ids of one family sort by their numbers.
//
//   family           text form                    numbers
//   unset            ""                           IntfId(), the empty value
//   Null0            "Null0"                      discard interface
//   Ethernet         "Ethernet<p>", "Ethernet<p>/<s>"  port 1-65535, sub-port 1-4095
//   VLAN             "Vlan<v>"                    VLAN id 1-4094
//   next-hop group   "NexthopGroup<n>"            group id 0-268435455
//   dynamic tunnel   "DynamicTunnel<n>"           tunnel id 0-268435455
//   pseudowire       "Pseudowire<n>"              pseudowire id 0-268435455 (VLAN-attached)
//   port pseudowire  "PortPseudowire<n>"          pseudowire id 0-268435455 (whole port)
//
// Names are case-sensitive and numbers have no leading zeros, so each interface has exactly
// one name. Next-hop-group ids name a FEC that the group's owner allocates (FecIdIntfId).

#include "bexo/ValueFormatter.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Bexo {

class IntfId {
 public:
  static constexpr std::uint32_t maxEthernetPort = 0xFFFF;
  static constexpr std::uint32_t maxEthernetSubPort = 0xFFF;
  static constexpr std::uint16_t maxVlanId = 4094;
  static constexpr std::uint32_t maxNumber = 0x0FFFFFFF;

  constexpr IntfId() = default;

  // These throw std::invalid_argument when a number is out of the family's range.
  static IntfId null0();
  static IntfId ethernet(std::uint32_t port, std::uint32_t subPort = 0);
  static IntfId vlan(std::uint32_t vlanId);
  static IntfId nexthopGroup(std::uint32_t groupId);
  static IntfId dynamicTunnel(std::uint32_t tunnelId);
  static IntfId pseudowire(std::uint32_t pseudowireId);
  static IntfId portPseudowire(std::uint32_t pseudowireId);

  // Throws std::invalid_argument naming the text when it is not an interface name.
  static IntfId fromString(std::string_view text);
  static bool parse(std::string_view text, IntfId& intfId);

  constexpr std::uint32_t value() const { return value_; }
  bool isNull0() const;
  bool isEthernet() const;
  bool isVlan() const;
  // The first number of the name: the port, VLAN id, group, tunnel or pseudowire id; 0 for
  // Null0 and the unset id.
  std::uint32_t number() const;
  // 0 unless a VLAN interface.
  std::uint16_t vlanId() const;
  // 0 unless an Ethernet sub-port ("Ethernet1/2").
  std::uint32_t ethernetSubPort() const;

  std::string stringValue() const;
  fmt::appender formatTo(fmt::appender out) const;
  std::size_t hash() const;

  friend constexpr bool operator==(IntfId, IntfId) = default;
  friend constexpr std::strong_ordering operator<=>(IntfId, IntfId) = default;

 private:
  friend struct FecIdIntfId;
  friend struct DynamicTunnelIntfId;
  friend struct PseudowireIntfId;

  enum Family : std::uint32_t {
    familyUnset = 0,
    familyNull0 = 1,
    familyEthernet = 2,
    familyVlan = 3,
    familyNexthopGroup = 4,
    familyDynamicTunnel = 5,
    familyPseudowire = 6,
    familyPortPseudowire = 7,
  };

  static constexpr unsigned familyShift = 28;
  static constexpr unsigned ethernetPortShift = 12;

  constexpr IntfId(Family family, std::uint32_t numbers)
      : value_((static_cast<std::uint32_t>(family) << familyShift) | numbers) {}
  static IntfId numbered(Family family, std::uint32_t number);
  constexpr Family family() const { return static_cast<Family>(value_ >> familyShift); }
  constexpr std::uint32_t numbers() const { return value_ & maxNumber; }

  std::uint32_t value_ = 0;
};

struct FecIdIntfId {
  static bool isNexthopGroupIdIntfId(IntfId intfId);
};

struct DynamicTunnelIntfId {
  static bool isDynamicTunnelIntfId(IntfId intfId);
};

struct PseudowireIntfId {
  // True for both pseudowire families.
  static bool isPseudowireIntfId(IntfId intfId);
  static bool isPortPseudowireIntfId(IntfId intfId);
};

std::ostream& operator<<(std::ostream& os, IntfId intfId);

}  // namespace Bexo

template <>
struct std::hash<Bexo::IntfId> {
  std::size_t operator()(Bexo::IntfId intfId) const noexcept { return intfId.hash(); }
};

template <>
struct fmt::formatter<Bexo::IntfId> : Bexo::ValueFormatter<Bexo::IntfId> {};
