#pragma once

// An IPv4 or IPv6 address in one fixed 17-byte value: the family, then 16 address bytes in
// network order (an IPv4 address in the first four, the rest zero). Fixed size and trivially
// copyable so that it can sit in shared-memory records and be hashed and compared without
// looking at the family first. Addresses order by family, then numerically.
//
// Text form: dotted IPv4 ("10.0.0.1") or IPv6 ("2001:db8::1") as inet_ntop writes it. The
// unset address (family afUnknown) is the empty text, so that records holding one print and
// parse back.

#include "bexo/AddressFamily.h"
#include "bexo/ValueFormatter.h"

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>

namespace Bexo {

class IpGenAddr {
 public:
  using Ipv6Bytes = std::array<std::uint8_t, 16>;

  constexpr IpGenAddr() = default;
  // `address` in host order: fromIpv4(0x0a000001) is 10.0.0.1.
  static IpGenAddr fromIpv4(std::uint32_t address);
  static IpGenAddr fromIpv6(const Ipv6Bytes& bytes);

  // Throws std::invalid_argument naming the text when it is not an address.
  static IpGenAddr fromString(std::string_view text);
  static bool parse(std::string_view text, IpGenAddr& addr);

  constexpr AddressFamily af() const { return af_; }
  // Host-order value of an IPv4 address; 0 for other families.
  std::uint32_t ipv4Value() const;
  // The address bytes in network order: 4 for IPv4, 16 for IPv6, none when unset.
  std::span<const std::uint8_t> bytes() const;

  std::string stringValue() const;
  fmt::appender formatTo(fmt::appender out) const;
  std::size_t hash() const;

  friend bool operator==(const IpGenAddr&, const IpGenAddr&) = default;
  friend std::strong_ordering operator<=>(const IpGenAddr&, const IpGenAddr&) = default;

 private:
  AddressFamily af_ = afUnknown;
  Ipv6Bytes bytes_{};
};

std::ostream& operator<<(std::ostream& os, const IpGenAddr& addr);

}  // namespace Bexo

template <>
struct std::hash<Bexo::IpGenAddr> {
  std::size_t operator()(const Bexo::IpGenAddr& addr) const noexcept { return addr.hash(); }
};

template <>
struct fmt::formatter<Bexo::IpGenAddr> : Bexo::ValueFormatter<Bexo::IpGenAddr> {};
