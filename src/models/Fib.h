#pragma once

// FEC identifiers and the records of the FEC-request library: the FEC
// descriptions a client files, the hardware FEC id requests, and the
// synchronisation ids that tie requests to one run of the requester.

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "bexo/IntfId.h"
#include "bexo/IpGenAddr.h"
#include "bexo/MplsLabel.h"
#include "bexo/MplsLabelAction.h"
#include "models/MplsLfib.h"

namespace Vosh::Fib {

// The adjacency type in a FEC id's top byte. MPLS FECs of this library use
// mplsAdj (IPv4 family) and mpls6Adj (IPv6 family); pseudowire decapsulation
// FECs use pwDecapAdj.
enum class AdjType : uint8_t {
  unknownAdj = 0,
  nextHopGroupAdj = 5,
  dynamicTunnelAdj = 6,
  mplsAdj = 9,
  mpls6Adj = 10,
  pwDecapAdj = 11,
  externalAdj = 12,
};

class FecId {
 public:
  static constexpr unsigned kAdjTypeShift = 56;
  static constexpr uint64_t kIndexMask = (uint64_t{1} << kAdjTypeShift) - 1;

  constexpr FecId() = default;
  constexpr explicit FecId(uint64_t value) : value_(value) {}
  static constexpr FecId fecIdForAdjType(AdjType type, uint64_t index) {
    return FecId((uint64_t{static_cast<uint8_t>(type)} << kAdjTypeShift) | (index & kIndexMask));
  }
  constexpr uint64_t value() const { return value_; }
  constexpr AdjType adjType() const { return static_cast<AdjType>(value_ >> kAdjTypeShift); }
  constexpr uint64_t index() const { return value_ & kIndexMask; }
  std::string stringValue() const;
  explicit operator bool() const { return value_ != 0; }
  friend constexpr auto operator<=>(FecId, FecId) = default;

 private:
  uint64_t value_ = 0;
};

// One via of a FEC description. The label is the via's single outgoing label
// (none for a pop); the TTL mode and payload type say what a pop hands on.
struct FecVia {
  Bexo::IpGenAddr nextHop;
  Bexo::IntfId intf;
  Bexo::MplsLabel label;
  Bexo::MplsLabelAction labelAction = Bexo::mplsActionPush;
  Mpls::PayloadType payloadType = Mpls::PayloadType::payloadUnknown;
  uint16_t vlanId = 0;
  uint16_t weight = 1;
  uint8_t ttlMode = 0;
  bool skipEgressAcl = false;
  // Labels the packet gains at this hop (negative: loses), which sizes the
  // encapsulation the allocator reserves.
  int8_t labelStackDepth = 0;
  friend bool operator==(const FecVia&, const FecVia&) = default;
};

// A FEC description (IPv4 family); Fib6::Fec is the IPv6-family twin. Stored
// as a header and its counted vias, so that a table of a hundred thousand
// two-via FECs does not take the room of as many 64-via ones.
struct Fec {
  static constexpr size_t kMaxVias = 64;
  static constexpr size_t kHeaderSize = 24;
  static constexpr size_t kMaxSerializedSize = kHeaderSize + kMaxVias * sizeof(FecVia);
  FecId fecId;
  FecId backupFecId;
  uint32_t viaCount = 0;
  std::array<FecVia, kMaxVias> via{};

  void viaAppend(const FecVia& v) { via[viaCount++] = v; }
  size_t serialize(std::byte* out) const;
  static bool deserialize(const std::byte* in, size_t length, Fec& out);
  explicit operator bool() const { return fecId || backupFecId || viaCount != 0; }
  // Only the counted vias belong to the description.
  friend bool operator==(const Fec& a, const Fec& b);
};

}  // namespace Vosh::Fib

namespace Vosh::Fib6 {
struct Fec : Vosh::Fib::Fec {
  static bool deserialize(const std::byte* in, size_t length, Fec& out) {
    return Vosh::Fib::Fec::deserialize(in, length, out);
  }
};
}  // namespace Vosh::Fib6

namespace Qel {

using GenerationId = uint32_t;

// The synchronisation id under which a FEC was requested: the requester's
// generation and a sequence within it.
struct AdjSyncId {
  GenerationId generation = 0;
  uint32_t sequence = 0;
  std::string stringValue() const;
  explicit operator bool() const { return !(*this == AdjSyncId()); }
  friend bool operator==(const AdjSyncId&, const AdjSyncId&) = default;
  friend auto operator<=>(const AdjSyncId&, const AdjSyncId&) = default;
};

struct HwFecIdRequest {
  Vosh::Fib::FecId fecId;
  AdjSyncId syncId;
  uint32_t viaCount = 0;
  explicit operator bool() const { return !(*this == HwFecIdRequest()); }
  friend bool operator==(const HwFecIdRequest&, const HwFecIdRequest&) = default;
};

// Written once a requester has filed every request of a generation.
struct SyncRequestsReady {
  GenerationId generation = 0;
  bool ready = false;
  explicit operator bool() const { return !(*this == SyncRequestsReady()); }
  friend bool operator==(const SyncRequestsReady&, const SyncRequestsReady&) = default;
};

// The allocator's answer: the hardware FEC id of a FEC id, with the request it
// answers, so that an answer to a request since replaced is told apart.
struct HwFecIdResponse {
  static constexpr uint64_t kInvalidHwFecId = ~uint64_t{0};
  Vosh::Fib::FecId fecId;
  uint64_t hwFecId = kInvalidHwFecId;
  HwFecIdRequest request;
  bool hwFecIdValid() const { return hwFecId != kInvalidHwFecId; }
  explicit operator bool() const { return !(*this == HwFecIdResponse()); }
  friend bool operator==(const HwFecIdResponse&, const HwFecIdResponse&) = default;
};

}  // namespace Qel

template <>
struct std::hash<Vosh::Fib::FecId> {
  size_t operator()(const Vosh::Fib::FecId& f) const noexcept { return f.value(); }
};
