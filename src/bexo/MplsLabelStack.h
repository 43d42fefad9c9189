#pragma once

// The labels that a hop imposes, outermost (top of stack) first. The labels are held inline,
// up to maxStackSize, so that a stack is trivially copyable and can sit in shared-memory via
// records without a heap behind it; that bound is above what forwarding hardware imposes in
// one pass. Only the first stackSize() slots count: equality, order and hash ignore the rest.
//
// Text form: the labels in brackets, outermost first, separated by single spaces:
// "[16 17]", "[]".

#include "bexo/MplsLabel.h"
#include "bexo/ValueFormatter.h"

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>

namespace Bexo {

class MplsLabelStack {
 public:
  static constexpr std::size_t maxStackSize = 12;

  constexpr MplsLabelStack() = default;
  // Throws as labelAppend does.
  MplsLabelStack(std::initializer_list<MplsLabel> labels);

  // Throws std::invalid_argument naming the text when it is not a label stack.
  static MplsLabelStack fromString(std::string_view text);
  static bool parse(std::string_view text, MplsLabelStack& stack);

  constexpr std::size_t stackSize() const { return size_; }
  // `index` 0 is the outermost label; must be below stackSize().
  constexpr MplsLabel operator[](std::size_t index) const { return labels_[index]; }
  std::span<const MplsLabel> labels() const { return std::span(labels_).first(size_); }
  // Adds `label` below the labels already held. Throws std::length_error when full and
  // std::invalid_argument for the no-label value, which a stack never carries.
  void labelAppend(MplsLabel label);

  std::string stringValue() const;
  fmt::appender formatTo(fmt::appender out) const;
  std::size_t hash() const;

  friend bool operator==(const MplsLabelStack& a, const MplsLabelStack& b);
  friend std::strong_ordering operator<=>(const MplsLabelStack& a, const MplsLabelStack& b);

 private:
  std::array<MplsLabel, maxStackSize> labels_{};
  std::uint8_t size_ = 0;
};

std::ostream& operator<<(std::ostream& os, const MplsLabelStack& stack);

}  // namespace Bexo

template <>
struct std::hash<Bexo::MplsLabelStack> {
  std::size_t operator()(const Bexo::MplsLabelStack& stack) const noexcept { return stack.hash(); }
};

template <>
struct fmt::formatter<Bexo::MplsLabelStack> : Bexo::ValueFormatter<Bexo::MplsLabelStack> {};
