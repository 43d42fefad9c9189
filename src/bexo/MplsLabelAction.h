#pragma once

// What a hop does with the top label. 32 bits wide because it sits in hardware route
// records. The numbering is shared with the hardware and its users: 0 pushes (an empty
// push leaves the stack as it is), 1 pops, 2 swaps.
//
// Text forms: "push", "pop", "swap".

#include "bexo/ValueFormatter.h"

#include <cstdint>
#include <iosfwd>
#include <string_view>

namespace Bexo {

enum MplsLabelAction : std::uint32_t {
  mplsActionPush = 0,
  mplsActionPop = 1,
  mplsActionSwap = 2,
};

std::string_view stringValue(MplsLabelAction action);
// Throws std::invalid_argument naming the text when it is not an action name.
MplsLabelAction mplsLabelActionInstance(std::string_view text);
bool parse(std::string_view text, MplsLabelAction& action);
std::ostream& operator<<(std::ostream& os, MplsLabelAction action);

}  // namespace Bexo

template <>
struct fmt::formatter<Bexo::MplsLabelAction> : Bexo::EnumFormatter<Bexo::MplsLabelAction> {};
