#pragma once

// A MAC address: six bytes in wire order, trivially copyable. The all-zero address is the
// empty value. Addresses order as the 48-bit numbers they spell.
//
// Text form: six lower-case hex pairs separated by colons, "00:1c:73:00:00:01". Upper-case
// digits are accepted when parsing.

#include "bexo/ValueFormatter.h"

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Bexo {

class EthAddr {
 public:
  using Bytes = std::array<std::uint8_t, 6>;

  constexpr EthAddr() = default;
  explicit constexpr EthAddr(const Bytes& bytes) : bytes_(bytes) {}

  // Throws std::invalid_argument naming the text when it is not a MAC address.
  static EthAddr fromString(std::string_view text);
  static bool parse(std::string_view text, EthAddr& addr);

  constexpr const Bytes& bytes() const { return bytes_; }
  // Group bit of the first byte: multicast and broadcast destinations.
  constexpr bool isMulticast() const { return (bytes_[0] & 0x01) != 0; }

  std::string stringValue() const;
  fmt::appender formatTo(fmt::appender out) const;
  std::size_t hash() const;

  friend constexpr bool operator==(const EthAddr&, const EthAddr&) = default;
  friend constexpr std::strong_ordering operator<=>(const EthAddr&, const EthAddr&) = default;

 private:
  Bytes bytes_{};
};

std::ostream& operator<<(std::ostream& os, const EthAddr& addr);

}  // namespace Bexo

template <>
struct std::hash<Bexo::EthAddr> {
  std::size_t operator()(const Bexo::EthAddr& addr) const noexcept { return addr.hash(); }
};

template <>
struct fmt::formatter<Bexo::EthAddr> : Bexo::ValueFormatter<Bexo::EthAddr> {};
