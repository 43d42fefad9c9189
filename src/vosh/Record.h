#pragma once
// How keys and records go into slots.
//
// A fixed record is any trivially copyable type: its bytes are the slot's
// record bytes. A serialized record encodes itself, for records whose used
// size varies a lot (a list of up to a hundred vias, mostly short):
//
//   static constexpr size_t kMaxSerializedSize;   slots are sized for this
//   size_t serialize(std::byte* out) const;       returns the bytes written
//   static bool deserialize(const std::byte* in, size_t length, R& out);
//                                                 false when the bytes are corrupt
//
// Serialization wins when a type offers both.

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <type_traits>

#include "vosh/Layout.h"

namespace Vosh {

template <class R>
concept SerializedRecord = std::default_initializable<R> &&
    requires(const R& r, std::byte* out, const std::byte* in, size_t length, R& into) {
  { R::kMaxSerializedSize } -> std::convertible_to<size_t>;
  { r.serialize(out) } -> std::convertible_to<size_t>;
  { R::deserialize(in, length, into) } -> std::convertible_to<bool>;
};

template <class R>
concept FixedRecord =
    !SerializedRecord<R> && std::is_trivially_copyable_v<R> && std::default_initializable<R>;

template <class R>
concept TableRecord = SerializedRecord<R> || FixedRecord<R>;

template <class K>
concept TableKey = std::is_trivially_copyable_v<K> && std::default_initializable<K> &&
    std::equality_comparable<K> && requires(const K& k) {
  { std::hash<K>{}(k) } -> std::convertible_to<size_t>;
};

template <class R>
struct RecordCodec;

template <FixedRecord R>
struct RecordCodec<R> {
  static constexpr RecordKind kKind = RecordKind::fixed;
  static constexpr uint32_t kMaxBytes = sizeof(R);

  // The encoding of a fixed record is the record itself: no copy.
  static uint32_t encode(const R& r, std::byte*, const std::byte*& bytes) {
    bytes = reinterpret_cast<const std::byte*>(&r);
    return kMaxBytes;
  }
  // Reads straight into the result.
  static std::byte* readBuffer(R& out, std::byte*) { return reinterpret_cast<std::byte*>(&out); }
  static bool decode(const std::byte*, uint32_t length, R&) { return length == kMaxBytes; }
};

template <SerializedRecord R>
struct RecordCodec<R> {
  static constexpr RecordKind kKind = RecordKind::serialized;
  static constexpr uint32_t kMaxBytes = static_cast<uint32_t>(R::kMaxSerializedSize);
  static_assert(R::kMaxSerializedSize < (size_t{1} << 31), "record too large for a slot");

  static uint32_t encode(const R& r, std::byte* scratch, const std::byte*& bytes) {
    bytes = scratch;
    return static_cast<uint32_t>(r.serialize(scratch));
  }
  static std::byte* readBuffer(R&, std::byte* scratch) { return scratch; }
  static bool decode(const std::byte* in, uint32_t length, R& out) {
    return length <= kMaxBytes && R::deserialize(in, length, out);
  }
};

template <class K, class R>
RecordShape recordShapeOf() {
  return RecordShape{RecordCodec<R>::kKind, static_cast<uint32_t>(sizeof(K)),
                     RecordCodec<R>::kMaxBytes};
}

}  // namespace Vosh
