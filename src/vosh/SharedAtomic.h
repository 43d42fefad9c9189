#pragma once
// Atomic access to words that live in shared memory.
//
// The words sit in mappings shared with other processes, some of them mapped
// read-only, so they cannot be std::atomic objects and std::atomic_ref cannot
// load through a const pointer. The compiler's builtins do both, with the same
// orderings.

#include <cstdint>

namespace Vosh {

template <class T>
inline T loadAcquire(const T* p) noexcept {
  return __atomic_load_n(p, __ATOMIC_ACQUIRE);
}

template <class T>
inline T loadRelaxed(const T* p) noexcept {
  return __atomic_load_n(p, __ATOMIC_RELAXED);
}

template <class T>
inline void storeRelease(T* p, T v) noexcept {
  __atomic_store_n(p, v, __ATOMIC_RELEASE);
}

template <class T>
inline void storeRelaxed(T* p, T v) noexcept {
  __atomic_store_n(p, v, __ATOMIC_RELAXED);
}

inline void fenceAcquire() noexcept { __atomic_thread_fence(__ATOMIC_ACQUIRE); }
inline void fenceRelease() noexcept { __atomic_thread_fence(__ATOMIC_RELEASE); }

}  // namespace Vosh
