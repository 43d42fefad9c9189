#include "bexo/UnboundedMplsLabelOperation.h"

#include "bexo/Hash.h"

#include <ostream>
#include <stdexcept>
#include <type_traits>

namespace Bexo {

static_assert(std::is_trivially_copyable_v<UnboundedMplsLabelOperation>);

bool UnboundedMplsLabelOperation::parse(std::string_view text,
                                        UnboundedMplsLabelOperation& operation) {
  const std::size_t space = text.find(' ');
  if (space == std::string_view::npos) {
    return false;
  }
  UnboundedMplsLabelOperation parsed;
  if (!Bexo::parse(text.substr(0, space), parsed.action_) ||
      !MplsLabelStack::parse(text.substr(space + 1), parsed.labelStack_)) {
    return false;
  }
  operation = parsed;
  return true;
}

UnboundedMplsLabelOperation UnboundedMplsLabelOperation::fromString(std::string_view text) {
  UnboundedMplsLabelOperation operation;
  if (!parse(text, operation)) {
    throw std::invalid_argument(fmt::format(
        "bad MPLS label operation '{}': expected push, pop or swap, a space and a label stack "
        "in brackets, like swap [200]",
        text));
  }
  return operation;
}

fmt::appender UnboundedMplsLabelOperation::formatTo(fmt::appender out) const {
  return fmt::format_to(out, "{} {}", action_, labelStack_);
}

std::string UnboundedMplsLabelOperation::stringValue() const { return fmt::to_string(*this); }

std::size_t UnboundedMplsLabelOperation::hash() const {
  return hashCombine(labelStack_.hash(), action_);
}

std::ostream& operator<<(std::ostream& os, const UnboundedMplsLabelOperation& operation) {
  return os << operation.stringValue();
}

}  // namespace Bexo
