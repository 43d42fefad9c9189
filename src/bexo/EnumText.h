#pragma once

// Name tables of the enumerations. Values can arrive from shared memory written by another
// build, so a value without a name prints as "unknown" instead of failing.

#include <span>
#include <string_view>
#include <utility>

namespace Bexo {

template <typename E>
using EnumName = std::pair<E, std::string_view>;

template <typename E>
constexpr std::string_view enumText(std::span<const EnumName<E>> names, E value) {
  for (const auto& [candidate, text] : names) {
    if (candidate == value) {
      return text;
    }
  }
  return "unknown";
}

template <typename E>
constexpr bool enumParse(std::span<const EnumName<E>> names, std::string_view text, E& value) {
  for (const auto& [candidate, candidateText] : names) {
    if (candidateText == text) {
      value = candidate;
      return true;
    }
  }
  return false;
}

}  // namespace Bexo
