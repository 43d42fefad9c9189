#include "bexo/MplsLabelStack.h"

#include "bexo/Hash.h"

#include <algorithm>
#include <ostream>
#include <stdexcept>
#include <type_traits>

namespace Bexo {

static_assert(std::is_trivially_copyable_v<MplsLabelStack>);

MplsLabelStack::MplsLabelStack(std::initializer_list<MplsLabel> labels) {
  for (MplsLabel label : labels) {
    labelAppend(label);
  }
}

void MplsLabelStack::labelAppend(MplsLabel label) {
  if (label.isNone()) {
    throw std::invalid_argument("MPLS label stack cannot hold the no-label value");
  }
  if (size_ == maxStackSize) {
    throw std::length_error(fmt::format("MPLS label stack holds at most {} labels", maxStackSize));
  }
  labels_[size_++] = label;
}

bool MplsLabelStack::parse(std::string_view text, MplsLabelStack& stack) {
  if (text.size() < 2 || text.front() != '[' || text.back() != ']') {
    return false;
  }
  std::string_view rest = text.substr(1, text.size() - 2);
  MplsLabelStack parsed;
  while (!rest.empty()) {
    const std::size_t space = rest.find(' ');
    MplsLabel label;
    if (parsed.size_ == maxStackSize || !MplsLabel::parse(rest.substr(0, space), label) ||
        label.isNone()) {
      return false;
    }
    parsed.labels_[parsed.size_++] = label;
    if (space == std::string_view::npos) {
      break;
    }
    rest.remove_prefix(space + 1);
    if (rest.empty()) {
      return false;
    }
  }
  stack = parsed;
  return true;
}

MplsLabelStack MplsLabelStack::fromString(std::string_view text) {
  MplsLabelStack stack;
  if (!parse(text, stack)) {
    throw std::invalid_argument(
        fmt::format("bad MPLS label stack '{}': expected up to {} labels from 0 to {} in brackets, "
                    "separated by spaces, like [16 17]",
                    text, maxStackSize, MplsLabel::maxValue));
  }
  return stack;
}

fmt::appender MplsLabelStack::formatTo(fmt::appender out) const {
  return fmt::format_to(out, "[{}]", fmt::join(labels(), " "));
}

std::string MplsLabelStack::stringValue() const { return fmt::to_string(*this); }

std::size_t MplsLabelStack::hash() const {
  std::size_t h = hashMix(size_);
  for (MplsLabel label : labels()) {
    h = hashCombine(h, label.value());
  }
  return h;
}

bool operator==(const MplsLabelStack& a, const MplsLabelStack& b) {
  return std::ranges::equal(a.labels(), b.labels());
}

std::strong_ordering operator<=>(const MplsLabelStack& a, const MplsLabelStack& b) {
  return std::lexicographical_compare_three_way(a.labels().begin(), a.labels().end(),
                                                b.labels().begin(), b.labels().end());
}

std::ostream& operator<<(std::ostream& os, const MplsLabelStack& stack) {
  return os << stack.stringValue();
}

}  // namespace Bexo
