#pragma once

// How the adjacency that a hardware route record points at reaches its next hops. 32 bits
// wide because it sits in hardware route records.
//
//   addressingUnknown   (0, "unknown")    not set; a driver must not program the route.
//   addressingNexthop   (1, "nexthop")    unicast: the adjacency id names next hops that
//                                         were resolved to layer-2 rewrites.
//   addressingMulticast (2, "multicast")  point-to-multipoint: the adjacency id is the
//                                         hardware id of a multicast group of next hops.

#include "bexo/ValueFormatter.h"

#include <cstdint>
#include <iosfwd>
#include <string_view>

namespace Bexo {

enum AddressingMethod : std::uint32_t {
  addressingUnknown = 0,
  addressingNexthop = 1,
  addressingMulticast = 2,
};

std::string_view stringValue(AddressingMethod method);
// Throws std::invalid_argument naming the text when it is not a method name.
AddressingMethod addressingMethodInstance(std::string_view text);
bool parse(std::string_view text, AddressingMethod& method);
std::ostream& operator<<(std::ostream& os, AddressingMethod method);

}  // namespace Bexo

template <>
struct fmt::formatter<Bexo::AddressingMethod> : Bexo::EnumFormatter<Bexo::AddressingMethod> {};
