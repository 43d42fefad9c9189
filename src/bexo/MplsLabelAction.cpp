#include "bexo/MplsLabelAction.h"

#include "bexo/EnumText.h"

#include <array>
#include <ostream>
#include <stdexcept>

namespace Bexo {

namespace {

constexpr std::array<EnumName<MplsLabelAction>, 3> names{{
    {mplsActionPush, "push"},
    {mplsActionPop, "pop"},
    {mplsActionSwap, "swap"},
}};

}  // namespace

std::string_view stringValue(MplsLabelAction action) {
  return enumText<MplsLabelAction>(names, action);
}

bool parse(std::string_view text, MplsLabelAction& action) {
  return enumParse<MplsLabelAction>(names, text, action);
}

MplsLabelAction mplsLabelActionInstance(std::string_view text) {
  MplsLabelAction action = mplsActionPush;
  if (!parse(text, action)) {
    throw std::invalid_argument(
        fmt::format("bad MPLS label action '{}': expected push, pop or swap", text));
  }
  return action;
}

std::ostream& operator<<(std::ostream& os, MplsLabelAction action) {
  return os << stringValue(action);
}

}  // namespace Bexo
