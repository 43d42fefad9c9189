#pragma once

// Address family of an IpGenAddr. One byte, so that an address stays 17 bytes.
//
// Text forms: "unknown", "ipv4", "ipv6".

#include "bexo/ValueFormatter.h"

#include <cstdint>
#include <iosfwd>
#include <string_view>

namespace Bexo {

enum AddressFamily : std::uint8_t {
  afUnknown = 0,
  afIpv4 = 1,
  afIpv6 = 2,
};

constexpr AddressFamily ipv4() { return afIpv4; }
constexpr AddressFamily ipv6() { return afIpv6; }

std::string_view stringValue(AddressFamily af);
// Throws std::invalid_argument naming the text when it is not a family name.
AddressFamily addressFamilyInstance(std::string_view text);
bool parse(std::string_view text, AddressFamily& af);
std::ostream& operator<<(std::ostream& os, AddressFamily af);

}  // namespace Bexo

template <>
struct fmt::formatter<Bexo::AddressFamily> : Bexo::EnumFormatter<Bexo::AddressFamily> {};
