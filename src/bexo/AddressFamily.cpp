#include "bexo/AddressFamily.h"

#include "bexo/EnumText.h"

#include <array>
#include <ostream>
#include <stdexcept>

namespace Bexo {

namespace {

constexpr std::array<EnumName<AddressFamily>, 3> names{{
    {afUnknown, "unknown"},
    {afIpv4, "ipv4"},
    {afIpv6, "ipv6"},
}};

}  // namespace

std::string_view stringValue(AddressFamily af) { return enumText<AddressFamily>(names, af); }

bool parse(std::string_view text, AddressFamily& af) {
  return enumParse<AddressFamily>(names, text, af);
}

AddressFamily addressFamilyInstance(std::string_view text) {
  AddressFamily af = afUnknown;
  if (!parse(text, af)) {
    throw std::invalid_argument(
        fmt::format("bad address family '{}': expected unknown, ipv4 or ipv6", text));
  }
  return af;
}

std::ostream& operator<<(std::ostream& os, AddressFamily af) { return os << stringValue(af); }

}  // namespace Bexo
