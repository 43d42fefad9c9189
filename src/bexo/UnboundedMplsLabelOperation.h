#pragma once

// The label operation of a via: an action on the top label and the labels it imposes,
// outermost first. "Unbounded" as opposed to a single-label operation: a push may impose a
// whole stack (up to MplsLabelStack::maxStackSize labels, held inline so that the operation
// stays trivially copyable). The default value, a push of nothing, is the empty value.
//
// Text form: the action, one space, the stack: "swap [200]", "push [16 17]", "pop []".

#include "bexo/MplsLabelAction.h"
#include "bexo/MplsLabelStack.h"
#include "bexo/ValueFormatter.h"

#include <compare>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Bexo {

class UnboundedMplsLabelOperation {
 public:
  constexpr UnboundedMplsLabelOperation() = default;
  UnboundedMplsLabelOperation(MplsLabelAction action, const MplsLabelStack& labelStack)
      : action_(action), labelStack_(labelStack) {}

  // Throws std::invalid_argument naming the text when it is not a label operation.
  static UnboundedMplsLabelOperation fromString(std::string_view text);
  static bool parse(std::string_view text, UnboundedMplsLabelOperation& operation);

  MplsLabelAction action() const { return action_; }
  const MplsLabelStack& labelStack() const { return labelStack_; }

  std::string stringValue() const;
  fmt::appender formatTo(fmt::appender out) const;
  std::size_t hash() const;

  friend bool operator==(const UnboundedMplsLabelOperation&,
                         const UnboundedMplsLabelOperation&) = default;
  friend std::strong_ordering operator<=>(const UnboundedMplsLabelOperation&,
                                          const UnboundedMplsLabelOperation&) = default;

 private:
  MplsLabelAction action_ = mplsActionPush;
  MplsLabelStack labelStack_;
};

std::ostream& operator<<(std::ostream& os, const UnboundedMplsLabelOperation& operation);

}  // namespace Bexo

template <>
struct std::hash<Bexo::UnboundedMplsLabelOperation> {
  std::size_t operator()(const Bexo::UnboundedMplsLabelOperation& operation) const noexcept {
    return operation.hash();
  }
};

template <>
struct fmt::formatter<Bexo::UnboundedMplsLabelOperation>
    : Bexo::ValueFormatter<Bexo::UnboundedMplsLabelOperation> {};
