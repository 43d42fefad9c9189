#include "models/MplsLfib.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace Mpls {

LfibViaIndexRange::LfibViaIndexRange(uint32_t value) : value_(value) {
  if (value > max) {
    throw std::out_of_range(
        "LfibViaIndexRange::value < LfibViaIndexRange::min or > LfibViaIndexRange::max not "
        "allowed");
  }
}

std::string LfibViaSetKey::stringValue() const {
  return fmt::format("{}/{}", Mpls::stringValue(viaType), index);
}

std::string LfibViaKey::stringValue() const {
  return fmt::format("{}/{}/{}", Mpls::stringValue(viaType), index, source);
}

std::string LfibRoute::stringValue() const {
  return fmt::format("LfibRoute({} viaSet {} type {} flags {})", routeKey.stringValue(),
                     viaSetKey.stringValue(), Mpls::stringValue(viaType), flags);
}

LfibViaKey LfibViaSet::viaKey(LfibViaIndexRange index) const {
  LfibViaKey key;
  if (index.value() < count_) {
    std::memcpy(&key, viaKeyBytes_.data() + index.value() * sizeof key, sizeof key);
  }
  return key;
}

void LfibViaSet::viaKeyIs(LfibViaIndexRange index, const LfibViaKey& key) {
  const LfibViaKey empty;
  for (uint32_t i = count_; i < index.value(); ++i) {
    std::memcpy(viaKeyBytes_.data() + i * sizeof empty, &empty, sizeof empty);
  }
  count_ = std::max(count_, index.value() + 1);
  std::memcpy(viaKeyBytes_.data() + index.value() * sizeof key, &key, sizeof key);
}

bool operator==(const LfibViaSet& a, const LfibViaSet& b) {
  if (!(a.key_ == b.key_) || !(a.backup_ == b.backup_) || a.count_ != b.count_ ||
      a.usableAsPrimaryVias_ != b.usableAsPrimaryVias_) {
    return false;
  }
  for (uint32_t i = 0; i < a.count_; ++i) {
    if (!(a.viaKey(LfibViaIndexRange(i)) == b.viaKey(LfibViaIndexRange(i)))) return false;
  }
  return true;
}

namespace {
struct ViaSetHeader {
  LfibViaSetKey key;
  LfibViaSetKey backup;
  uint32_t count;
  uint32_t usableAsPrimary;
};
static_assert(sizeof(ViaSetHeader) == LfibViaSet::kHeaderSize);
static_assert(sizeof(LfibViaKey) == 8);
}  // namespace

size_t LfibViaSet::serialize(std::byte* out) const {
  ViaSetHeader h{key_, backup_, count_, usableAsPrimaryVias_ ? 1u : 0u};
  std::memcpy(out, &h, sizeof h);
  std::memcpy(out + sizeof h, viaKeyBytes_.data(), count_ * sizeof(LfibViaKey));
  return sizeof h + count_ * sizeof(LfibViaKey);
}

bool LfibViaSet::deserialize(const std::byte* in, size_t len, LfibViaSet& out) {
  ViaSetHeader h;
  if (len < sizeof h) return false;
  std::memcpy(&h, in, sizeof h);
  if (h.count > kMaxViasPerSet || len != sizeof h + h.count * sizeof(LfibViaKey)) return false;
  // Only the counted vias are ever read, so the rest of the array is left
  // as it is rather than cleared, which would cost more than the decoding.
  out.key_ = h.key;
  out.backup_ = h.backup;
  out.count_ = h.count;
  out.usableAsPrimaryVias_ = h.usableAsPrimary != 0;
  // Via by via: a via set holds a few, and a copy of a length known only
  // here was compiled to a string move whose start-up cost was most of the
  // decoding.
  for (uint32_t i = 0; i < h.count; ++i) {
    std::memcpy(out.viaKeyBytes_.data() + i * sizeof(LfibViaKey),
                in + sizeof h + i * sizeof(LfibViaKey), sizeof(LfibViaKey));
  }
  return true;
}

std::string LfibViaSet::stringValue() const {
  std::string vias;
  for (uint32_t i = 0; i < count_; ++i) {
    if (i) vias += ", ";
    vias += viaKey(LfibViaIndexRange(i)).stringValue();
  }
  return fmt::format("LfibViaSet({} vias [{}])", key_.stringValue(), vias);
}

std::string LfibMplsVia::stringValue() const {
  return fmt::format("LfibMplsVia({} {} via {} on {} payload {} weight {})", viaKey.stringValue(),
                     labelOperation, nextHop, intf, Mpls::stringValue(payloadType), weight);
}

std::string_view LfibIpLookupVia::vrf() const {
  return std::string_view(vrfName.data(), strnlen(vrfName.data(), vrfName.size()));
}

}  // namespace Mpls
