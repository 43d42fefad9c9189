#include "bexo/AddressingMethod.h"

#include "bexo/EnumText.h"

#include <array>
#include <ostream>
#include <stdexcept>

namespace Bexo {

namespace {

constexpr std::array<EnumName<AddressingMethod>, 3> names{{
    {addressingUnknown, "unknown"},
    {addressingNexthop, "nexthop"},
    {addressingMulticast, "multicast"},
}};

}  // namespace

std::string_view stringValue(AddressingMethod method) {
  return enumText<AddressingMethod>(names, method);
}

bool parse(std::string_view text, AddressingMethod& method) {
  return enumParse<AddressingMethod>(names, text, method);
}

AddressingMethod addressingMethodInstance(std::string_view text) {
  AddressingMethod method = addressingUnknown;
  if (!parse(text, method)) {
    throw std::invalid_argument(
        fmt::format("bad addressing method '{}': expected unknown, nexthop or multicast", text));
  }
  return method;
}

std::ostream& operator<<(std::ostream& os, AddressingMethod method) {
  return os << stringValue(method);
}

}  // namespace Bexo
