#pragma once
// Small record types for exercising the table machinery, shared by the tests
// and by the peer process they start.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace VoshTest {

// A fixed record of 40 bytes, the size of a hardware route record.
struct Route {
  uint64_t nextHop = 0;
  uint32_t label = 0;
  uint32_t version = 0;
  uint64_t check[3] = {};
  friend bool operator==(const Route&, const Route&) = default;
};
static_assert(sizeof(Route) == 40);

inline Route routeFor(uint64_t key, uint32_t version = 1) {
  Route r;
  r.nextHop = key * 7 + 1;
  r.label = static_cast<uint32_t>(key & 0xfffff);
  r.version = version;
  r.check[0] = r.check[1] = r.check[2] = key ^ version;
  return r;
}

// Every field derived from one number, so a torn copy shows.
inline Route uniformRoute(uint64_t n) {
  Route r;
  r.nextHop = n;
  r.label = static_cast<uint32_t>(n);
  r.version = static_cast<uint32_t>(n);
  r.check[0] = r.check[1] = r.check[2] = n;
  return r;
}

inline bool isUniform(const Route& r) {
  return r.label == static_cast<uint32_t>(r.nextHop) && r.version == r.label &&
         r.check[0] == r.nextHop && r.check[1] == r.nextHop && r.check[2] == r.nextHop;
}

// A serialized record: a count and that many hops. A count above kMaxHops
// serializes as written and reads back corrupt, as a damaged record would.
// Long lists do not fit in a slot and continue in its overflow cell.
struct HopList {
  static constexpr uint32_t kMaxHops = 40;
  static constexpr size_t kMaxSerializedSize = 4 + 8 * kMaxHops;

  uint32_t count = 0;
  std::array<uint64_t, kMaxHops> hops{};

  size_t serialize(std::byte* out) const {
    uint32_t stored = std::min(count, kMaxHops);
    std::memcpy(out, &count, 4);
    std::memcpy(out + 4, hops.data(), 8 * stored);
    return 4 + 8 * size_t{stored};
  }
  static bool deserialize(const std::byte* in, size_t length, HopList& out) {
    if (length < 4) return false;
    std::memcpy(&out.count, in, 4);
    if (out.count > kMaxHops || length != 4 + 8 * size_t{out.count}) return false;
    std::memcpy(out.hops.data(), in + 4, 8 * size_t{out.count});
    return true;
  }
  friend bool operator==(const HopList&, const HopList&) = default;
};

inline HopList hopsFor(uint64_t key) {
  HopList h;
  h.count = static_cast<uint32_t>(key % HopList::kMaxHops) + 1;
  for (uint32_t i = 0; i < h.count; ++i) h.hops[i] = key * 100 + i;
  return h;
}

}  // namespace VoshTest
