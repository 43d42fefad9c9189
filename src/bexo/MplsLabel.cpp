#include "bexo/MplsLabel.h"

#include "bexo/DecimalText.h"
#include "bexo/Hash.h"

#include <ostream>
#include <stdexcept>

namespace Bexo {

static_assert(sizeof(MplsLabel) == 4);

namespace {

constexpr std::string_view noneText = "none";

}  // namespace

void MplsLabel::throwOutOfRange(std::uint32_t value) {
  throw std::invalid_argument(
      fmt::format("MPLS label {} out of range: expected 0 to {}, or {} for no label", value,
                  maxValue, noneValue));
}

bool MplsLabel::parse(std::string_view text, MplsLabel& label) {
  if (text == noneText) {
    label = none();
    return true;
  }
  std::uint32_t value = 0;
  if (!parseDecimal(text, maxValue, value)) {
    return false;
  }
  label = MplsLabel(value);
  return true;
}

MplsLabel MplsLabel::fromString(std::string_view text) {
  MplsLabel label;
  if (!parse(text, label)) {
    throw std::invalid_argument(
        fmt::format("bad MPLS label '{}': expected none or a number from 0 to {}", text, maxValue));
  }
  return label;
}

fmt::appender MplsLabel::formatTo(fmt::appender out) const {
  if (isNone()) {
    return fmt::format_to(out, "{}", noneText);
  }
  return fmt::format_to(out, "{}", value_);
}

std::string MplsLabel::stringValue() const { return fmt::to_string(*this); }

std::size_t MplsLabel::hash() const { return hashMix(value_); }

std::ostream& operator<<(std::ostream& os, MplsLabel label) { return os << label.stringValue(); }

}  // namespace Bexo
