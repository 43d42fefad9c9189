#pragma once

// The key of one LFIB route: its top label and the source that installed it.
// Eight bytes, laid out for shared-memory records: label (4), source (1),
// three zero bytes. Text form "100" for the default source, "101/2" otherwise.

#include <bit>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "bexo/MplsLabel.h"
#include "kiv/DenseKey.h"

namespace Mpls {

using LfibSource = uint8_t;
constexpr LfibSource kDefaultLfibSource = 0;

class RouteKey {
 public:
  constexpr RouteKey() = default;
  constexpr explicit RouteKey(Bexo::MplsLabel topLabel, LfibSource source = kDefaultLfibSource)
      : topLabel_(topLabel), source_(source) {}

  constexpr Bexo::MplsLabel topLabel() const { return topLabel_; }
  constexpr LfibSource source() const { return source_; }

  // "100" or "100/2"; throws std::invalid_argument naming the text otherwise.
  static RouteKey fromString(std::string_view text);
  std::string stringValue() const;
  explicit operator bool() const { return *this != RouteKey(); }

  friend constexpr bool operator==(const RouteKey&, const RouteKey&) = default;
  friend constexpr auto operator<=>(const RouteKey& a, const RouteKey& b) {
    if (auto c = a.topLabel_ <=> b.topLabel_; c != 0) return c;
    return a.source_ <=> b.source_;
  }

 private:
  Bexo::MplsLabel topLabel_;
  LfibSource source_ = kDefaultLfibSource;
  uint8_t reserved_[3] = {0, 0, 0};
};
static_assert(sizeof(RouteKey) == 8);

}  // namespace Mpls

template <>
struct std::hash<Mpls::RouteKey> {
  size_t operator()(const Mpls::RouteKey& k) const noexcept {
    return (static_cast<size_t>(k.topLabel().value()) << 8) | k.source();
  }
};

// A route key's number: the source's block of 2^20 + 1 labels (the no-label
// value included), then the label, so that consecutive labels of one source
// sit side by side. A key whose reserved bytes are not zero, or whose label is
// out of range, has no number.
template <>
struct Kiv::DenseKey<Mpls::RouteKey> {
  static constexpr uint32_t kLabels = Bexo::MplsLabel::noneValue + 1;
  // Every route-keyed index numbers its key on each lookup: one load of the
  // whole key, not a field-by-field comparison with a rebuilt one.
  static uint32_t numberOf(const Mpls::RouteKey& k) {
    static_assert(std::endian::native == std::endian::little);
    const auto raw = std::bit_cast<uint64_t>(k);
    const auto label = static_cast<uint32_t>(raw);
    const uint64_t reserved = raw >> 40;
    if (label >= kLabels || reserved != 0) return Kiv::kNotNumbered;
    return static_cast<uint32_t>((raw >> 32) & 0xff) * kLabels + label;
  }
  static Mpls::RouteKey keyOf(uint32_t number) {
    return Mpls::RouteKey(Bexo::MplsLabel(number % kLabels),
                          static_cast<Mpls::LfibSource>(number / kLabels));
  }
};
