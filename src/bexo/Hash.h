#pragma once

// Hashes of the network value types. They are fixed functions of the value (no per-process
// seed) so that anything derived from a hash, such as the order of a dump, is the same on
// every run, and they mix all bits so that power-of-two tables keyed by small integers
// (labels, interface ids) still spread well.

#include <cstddef>
#include <cstdint>

namespace Bexo {

// Final mixing step of splitmix64: every input bit affects every output bit.
constexpr std::size_t hashMix(std::uint64_t x) {
  x ^= x >> 30;
  x *= 0xbf58476d1ce4e5b9ULL;
  x ^= x >> 27;
  x *= 0x94d049bb133111ebULL;
  x ^= x >> 31;
  return static_cast<std::size_t>(x);
}

constexpr std::size_t hashCombine(std::size_t seed, std::uint64_t value) {
  return hashMix(seed ^ (value + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2)));
}

}  // namespace Bexo
