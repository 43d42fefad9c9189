#pragma once
// An inclusive range of unsigned 64-bit numbers. Both ends are held, so a
// range can reach the largest number without an overflowing past-the-end bound.

#include <fmt/format.h>

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>

#include "kiv/HashMap.h"

namespace Plin {

struct Range {
   uint64_t first = 0;
   uint64_t last = 0;

   bool contains(uint64_t n) const noexcept { return first <= n && n <= last; }
   bool valid() const noexcept { return first <= last; }
   std::string stringValue() const { return fmt::format("[{}, {}]", first, last); }
   friend bool operator==(const Range&, const Range&) = default;
};

inline std::ostream& operator<<(std::ostream& os, const Range& r) { return os << r.stringValue(); }

}  // namespace Plin

template <>
struct std::hash<Plin::Range> {
   size_t operator()(const Plin::Range& r) const noexcept {
      return Kiv::mixHash(r.first ^ Kiv::mixHash(r.last));
   }
};
