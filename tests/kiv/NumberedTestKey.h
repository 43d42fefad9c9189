#pragma once
// A key for the tests of containers that keep numbered keys apart from the
// rest: numbered below 2^16 (64 pages of numbers), without a number above.

#include <cstddef>
#include <cstdint>
#include <functional>

#include "kiv/DenseKey.h"

namespace KivTest {

struct Key {
   uint64_t value = 0;
   friend bool operator==(Key, Key) = default;
};
inline constexpr uint64_t kNumbered = 1u << 16;

}  // namespace KivTest

template <>
struct Kiv::DenseKey<KivTest::Key> {
   static uint32_t numberOf(KivTest::Key k) {
      return k.value < KivTest::kNumbered ? static_cast<uint32_t>(k.value) : Kiv::kNotNumbered;
   }
   static KivTest::Key keyOf(uint32_t number) { return KivTest::Key{number}; }
};

template <>
struct std::hash<KivTest::Key> {
   size_t operator()(KivTest::Key k) const noexcept { return k.value; }
};
