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

template <class K>
concept DenselyNumbered = requires(const K& key, uint32_t number) {
   { DenseKey<K>::numberOf(key) } -> std::same_as<uint32_t>;
   { DenseKey<K>::keyOf(number) } -> std::same_as<K>;
};

}  // namespace Kiv
