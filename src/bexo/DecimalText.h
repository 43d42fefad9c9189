#pragma once

// Strict decimal numbers inside names and label lists. Leading zeros, signs and blanks are
// refused so that every accepted text is the one the value prints as: names used as keys
// ("Vlan10" and "Vlan010") must not alias.

#include <cstdint>
#include <string_view>

namespace Bexo {

// Reads all of `text` as a decimal number no greater than `max`; leaves `value` alone on failure.
bool parseDecimal(std::string_view text, std::uint32_t max, std::uint32_t& value);

}  // namespace Bexo
