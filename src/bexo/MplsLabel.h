#pragma once

// An MPLS label: a 20-bit value held in 32 bits so that records carrying labels keep a
// plain, aligned layout in shared memory. The value one above the 20-bit range, 0x100000,
// stands for "no label" wherever a single label is taken from something that may have none;
// it is what a default-constructed label holds, so an absent label is an empty value.
//
// Text form: the decimal value ("16", "1048575"), or "none" for the no-label value.

#include "bexo/ValueFormatter.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Bexo {

class MplsLabel {
 public:
  static constexpr std::uint32_t maxValue = 0xFFFFF;
  static constexpr std::uint32_t noneValue = 0x100000;
  static constexpr std::uint32_t implicitNullValue = 3;

  constexpr MplsLabel() = default;
  // Accepts 0 to maxValue, and noneValue for no label; anything above throws
  // std::invalid_argument.
  explicit constexpr MplsLabel(std::uint32_t value) : value_(checked(value)) {}

  static constexpr MplsLabel none() { return MplsLabel(); }
  static constexpr MplsLabel implicitNull() { return MplsLabel(implicitNullValue); }

  // Throws std::invalid_argument naming the text when it is not a label.
  static MplsLabel fromString(std::string_view text);
  static bool parse(std::string_view text, MplsLabel& label);

  constexpr std::uint32_t value() const { return value_; }
  constexpr bool isNone() const { return value_ == noneValue; }
  constexpr bool isImplicitNull() const { return value_ == implicitNullValue; }

  std::string stringValue() const;
  fmt::appender formatTo(fmt::appender out) const;
  std::size_t hash() const;

  friend constexpr bool operator==(MplsLabel, MplsLabel) = default;
  friend constexpr std::strong_ordering operator<=>(MplsLabel, MplsLabel) = default;

 private:
  static constexpr std::uint32_t checked(std::uint32_t value) {
    if (value > noneValue) {
      throwOutOfRange(value);
    }
    return value;
  }
  [[noreturn]] static void throwOutOfRange(std::uint32_t value);

  std::uint32_t value_ = noneValue;
};

std::ostream& operator<<(std::ostream& os, MplsLabel label);

}  // namespace Bexo

template <>
struct std::hash<Bexo::MplsLabel> {
  std::size_t operator()(Bexo::MplsLabel label) const noexcept { return label.hash(); }
};

template <>
struct fmt::formatter<Bexo::MplsLabel> : Bexo::ValueFormatter<Bexo::MplsLabel> {};
