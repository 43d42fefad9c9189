#pragma once
// Key types whose values number densely, such as a label drawn from a 20-bit
// space, can be kept in arrays indexed by that number instead of in hash
// tables. A key type opts in by specialising DenseKey:
//
//   template <> struct Kiv::DenseKey<MyKey> {
//     static uint32_t numberOf(const MyKey&);  // kNotNumbered if it has none
//     static MyKey keyOf(uint32_t number);
//   };
//
// numberOf must give distinct keys distinct numbers and equal keys equal
// ones; a key it cannot number (bytes read back corrupt) is still a key and
// goes to the containers' hash-map side.

#include <concepts>
#include <cstdint>

namespace Kiv {

template <class K>
struct DenseKey;

inline constexpr uint32_t kNotNumbered = 0xffffffffu;

template <class Numbering, class K>
concept NumberingOf = requires(const K& key, uint32_t number) {
   { Numbering::numberOf(key) } -> std::same_as<uint32_t>;
   { Numbering::keyOf(number) } -> std::same_as<K>;
};

template <class K>
concept DenselyNumbered = NumberingOf<DenseKey<K>, K>;

// Indexes handed out by a counter (adjacency indexes) number as themselves;
// one past the 32-bit range has no number.
template <std::unsigned_integral I>
struct CountedIndex {
   static uint32_t numberOf(I index) {
      return index < kNotNumbered ? static_cast<uint32_t>(index) : kNotNumbered;
   }
   static I keyOf(uint32_t number) { return number; }
};

}  // namespace Kiv
