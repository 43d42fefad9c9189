#pragma once

// The MPLS routing library's label-forwarding table, as its producer publishes
// it in shared memory: routes by route key, via sets by via set key, and the
// vias of each kind by via key. Every record is trivially copyable and its
// empty (default-constructed) value stands for "absent". Via sets are
// variable-length records with their own serialisation.

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "bexo/IntfId.h"
#include "bexo/IpGenAddr.h"
#include "bexo/MplsLabelAction.h"
#include "bexo/UnboundedMplsLabelOperation.h"
#include "kiv/DenseKey.h"
#include "kiv/Value.h"
#include "models/MplsRouteKey.h"

namespace Mpls {

enum class LfibViaType : uint8_t {
  viaTypeUnknown,
  viaTypeMplsIp,
  viaTypeExternalFec,
  viaTypeIpLookup,
  viaTypeVlan,
  viaTypeEvpnVlanAware,
  viaTypeEvpnVlanFlood,
  viaTypeEvpnVlanAwareFlood,
  viaTypeEvpnEthernetSegment,
  viaTypeMplsPseudowire,
};
KIV_ENUM_NAMES(LfibViaType, lfibViaTypeInstance, "viaTypeUnknown", "viaTypeMplsIp",
               "viaTypeExternalFec", "viaTypeIpLookup", "viaTypeVlan", "viaTypeEvpnVlanAware",
               "viaTypeEvpnVlanFlood", "viaTypeEvpnVlanAwareFlood", "viaTypeEvpnEthernetSegment",
               "viaTypeMplsPseudowire")
constexpr LfibViaType viaTypeMplsIp = LfibViaType::viaTypeMplsIp;
constexpr LfibViaType viaTypeExternalFec = LfibViaType::viaTypeExternalFec;

// What the label stack carries once the last label is gone. payloadAutoDecide
// leaves the choice to the hardware (it looks at the first nibble).
enum class PayloadType : uint32_t {
  payloadUnknown,
  payloadIpv4,
  payloadIpv6,
  payloadMpls,
  payloadAutoDecide,
};
KIV_ENUM_NAMES(PayloadType, payloadTypeInstance, "unknown", "ipv4", "ipv6", "mpls", "autoDecide")

// The via set type recorded on a hardware adjacency: the via set's via type.
using LfibViaSetType = LfibViaType;

// Position of a via inside a via set.
class LfibViaIndexRange {
 public:
  static constexpr uint32_t min = 0;
  static constexpr uint32_t max = 127;
  constexpr LfibViaIndexRange() = default;
  explicit LfibViaIndexRange(uint32_t value);
  constexpr uint32_t value() const { return value_; }
  friend constexpr auto operator<=>(LfibViaIndexRange, LfibViaIndexRange) = default;

 private:
  uint32_t value_ = 0;
};
constexpr uint32_t kMaxViasPerSet = LfibViaIndexRange::max + 1;

struct LfibViaSetKey {
  LfibViaType viaType = LfibViaType::viaTypeUnknown;
  uint8_t reserved[3] = {0, 0, 0};
  uint32_t index = 0;

  LfibViaSetKey() = default;
  LfibViaSetKey(LfibViaType type, uint32_t idx) : viaType(type), index(idx) {}
  std::string stringValue() const;
  explicit operator bool() const { return *this != LfibViaSetKey(); }
  friend bool operator==(const LfibViaSetKey& a, const LfibViaSetKey& b) {
    return a.viaType == b.viaType && a.index == b.index;
  }
  friend auto operator<=>(const LfibViaSetKey& a, const LfibViaSetKey& b) {
    if (a.viaType != b.viaType) return a.viaType <=> b.viaType;
    return a.index <=> b.index;
  }
};

struct LfibViaKey {
  LfibViaType viaType = LfibViaType::viaTypeUnknown;
  LfibSource source = kDefaultLfibSource;
  uint8_t reserved[2] = {0, 0};
  uint32_t index = 0;

  LfibViaKey() = default;
  LfibViaKey(LfibViaType type, uint32_t idx, LfibSource src = kDefaultLfibSource)
      : viaType(type), source(src), index(idx) {}
  std::string stringValue() const;
  explicit operator bool() const { return *this != LfibViaKey(); }
  friend bool operator==(const LfibViaKey& a, const LfibViaKey& b) {
    return a.viaType == b.viaType && a.source == b.source && a.index == b.index;
  }
  friend auto operator<=>(const LfibViaKey& a, const LfibViaKey& b) {
    if (a.viaType != b.viaType) return a.viaType <=> b.viaType;
    if (a.index != b.index) return a.index <=> b.index;
    return a.source <=> b.source;
  }
};

// One LFIB route. The last byte is a producer flag carried through to the
// route's state untouched.
struct LfibRoute {
  RouteKey routeKey;
  LfibViaSetKey viaSetKey;
  LfibViaType viaType = LfibViaType::viaTypeUnknown;
  uint8_t reserved[2] = {0, 0};
  uint8_t flags = 0;

  std::string stringValue() const;
  explicit operator bool() const { return !(*this == LfibRoute()); }
  friend bool operator==(const LfibRoute& a, const LfibRoute& b) {
    return a.routeKey == b.routeKey && a.viaSetKey == b.viaSetKey && a.viaType == b.viaType &&
           a.flags == b.flags;
  }
};

// A via set: its key, its vias in position order and whether they may be
// used as primary vias. Serialised as a 24-byte header and 8 bytes per via.
class LfibViaSet {
 public:
  static constexpr size_t kHeaderSize = 24;
  static constexpr size_t kMaxSerializedSize = kHeaderSize + 8 * kMaxViasPerSet;

  // User-provided, so that value-initialising a via set (as every table
  // lookup does) does not clear its 1 KiB of via room first: only the
  // counted vias are ever read.
  LfibViaSet() {}
  explicit LfibViaSet(LfibViaSetKey key) : key_(key) {}

  const LfibViaSetKey& key() const { return key_; }
  LfibViaType viaType() const { return key_.viaType; }
  uint32_t vias() const { return count_; }
  // The via key at a position; a position past the count yields the empty key.
  LfibViaKey viaKey(LfibViaIndexRange index) const;
  void viaKeyIs(LfibViaIndexRange index, const LfibViaKey& key);
  bool usableAsPrimaryVias() const { return usableAsPrimaryVias_; }
  void usableAsPrimaryViasIs(bool v) { usableAsPrimaryVias_ = v; }
  const LfibViaSetKey& backupViaSetKey() const { return backup_; }
  void backupViaSetKeyIs(const LfibViaSetKey& k) { backup_ = k; }

  size_t serialize(std::byte* out) const;
  static bool deserialize(const std::byte* in, size_t len, LfibViaSet& out);

  std::string stringValue() const;
  explicit operator bool() const {
    return !(key_ == LfibViaSetKey()) || !(backup_ == LfibViaSetKey()) || count_ != 0 ||
           !usableAsPrimaryVias_;
  }
  // Compares the counted vias only: what lies past the count is not part of
  // the set.
  friend bool operator==(const LfibViaSet& a, const LfibViaSet& b);

 private:
  LfibViaSetKey key_;
  LfibViaSetKey backup_;
  uint32_t count_ = 0;
  bool usableAsPrimaryVias_ = true;
  // Room for the vias, as bytes: left uninitialised past the count, and
  // copying indeterminate bytes is well defined.
  std::array<std::byte, kMaxViasPerSet * sizeof(LfibViaKey)> viaKeyBytes_;
};

// A labelled next hop over an IP interface.
struct LfibMplsVia {
  LfibViaKey viaKey;
  Bexo::UnboundedMplsLabelOperation labelOperation;
  Bexo::IntfId intf;
  Bexo::IpGenAddr nextHop;
  PayloadType payloadType = PayloadType::payloadUnknown;
  uint32_t weight = 1;

  const Bexo::MplsLabelStack& labelStack() const { return labelOperation.labelStack(); }
  Bexo::MplsLabelAction labelAction() const { return labelOperation.action(); }
  std::string stringValue() const;
  explicit operator bool() const { return !(*this == LfibMplsVia()); }
  friend bool operator==(const LfibMplsVia&, const LfibMplsVia&) = default;
};

// Forwarding into a FEC allocated outside this library.
struct LfibExternalFecVia {
  LfibViaKey viaKey;
  uint64_t fecId = 0;
  explicit operator bool() const { return !(*this == LfibExternalFecVia()); }
  friend bool operator==(const LfibExternalFecVia&, const LfibExternalFecVia&) = default;
};

// Pop the last label and look the payload up in a VRF.
struct LfibIpLookupVia {
  LfibViaKey viaKey;
  std::array<char, 32> vrfName{};
  PayloadType payloadType = PayloadType::payloadUnknown;
  std::string_view vrf() const;
  explicit operator bool() const { return !(*this == LfibIpLookupVia()); }
  friend bool operator==(const LfibIpLookupVia&, const LfibIpLookupVia&) = default;
};

// Pop the last label into a VLAN (plain or EVPN flood).
struct LfibVlanVia {
  LfibViaKey viaKey;
  uint16_t vlanId = 0;
  bool flood = false;
  explicit operator bool() const { return !(*this == LfibVlanVia()); }
  friend bool operator==(const LfibVlanVia&, const LfibVlanVia&) = default;
};
using LfibEvpnVlanFloodVia = LfibVlanVia;

struct LfibDot1qTagToVlanKey {
  uint32_t index = 0;
  explicit operator bool() const { return index != 0; }
  friend bool operator==(const LfibDot1qTagToVlanKey&, const LfibDot1qTagToVlanKey&) = default;
  friend auto operator<=>(const LfibDot1qTagToVlanKey&, const LfibDot1qTagToVlanKey&) = default;
};

// VLAN-aware EVPN: the 802.1Q tag under the label selects the VLAN.
struct LfibEvpnVlanAwareVia {
  LfibViaKey viaKey;
  LfibDot1qTagToVlanKey dot1qTagToVlanKey;
  bool flood = false;
  explicit operator bool() const { return !(*this == LfibEvpnVlanAwareVia()); }
  friend bool operator==(const LfibEvpnVlanAwareVia&, const LfibEvpnVlanAwareVia&) = default;
};
using LfibEvpnVlanAwareFloodVia = LfibEvpnVlanAwareVia;

// A tag-to-VLAN map: the 802.1Q tags under a VLAN-aware label and the VLAN
// each selects.
struct LfibDot1qTagToVlan {
  static constexpr size_t kMaxPairs = 64;
  struct Pair {
    uint16_t dot1qTag = 0;
    uint16_t vlanId = 0;
    friend bool operator==(const Pair&, const Pair&) = default;
  };
  LfibDot1qTagToVlanKey key;
  uint32_t count = 0;
  std::array<Pair, kMaxPairs> pairs{};
  explicit operator bool() const { return !(*this == LfibDot1qTagToVlan()); }
  friend bool operator==(const LfibDot1qTagToVlan&, const LfibDot1qTagToVlan&) = default;
};

// Decapsulation into a pseudowire interface.
struct LfibPwVia {
  LfibViaKey viaKey;
  Bexo::IntfId pwIntf;
  explicit operator bool() const { return !(*this == LfibPwVia()); }
  friend bool operator==(const LfibPwVia&, const LfibPwVia&) = default;
};

}  // namespace Mpls

template <>
struct std::hash<Mpls::LfibViaSetKey> {
  size_t operator()(const Mpls::LfibViaSetKey& k) const noexcept {
    return (static_cast<size_t>(k.viaType) << 32) | k.index;
  }
};
// A via set key's number: its type's block of 2^20 indexes, then the index.
// Indexes from 2^20 on have no number, which bounds what one map can spend on
// pages when indexes are scattered: 1,024 pages per via type.
template <>
struct Kiv::DenseKey<Mpls::LfibViaSetKey> {
  static constexpr uint32_t kIndexBits = 20;
  static constexpr uint32_t kTypes = 16;
  static uint32_t numberOf(const Mpls::LfibViaSetKey& k) {
    const uint32_t type = static_cast<uint32_t>(k.viaType);
    if (type >= kTypes || k.index >> kIndexBits != 0) return Kiv::kNotNumbered;
    return type << kIndexBits | k.index;
  }
  static Mpls::LfibViaSetKey keyOf(uint32_t number) {
    return Mpls::LfibViaSetKey(static_cast<Mpls::LfibViaType>(number >> kIndexBits),
                               number & ((1u << kIndexBits) - 1));
  }
};
template <>
struct std::hash<Mpls::LfibViaKey> {
  size_t operator()(const Mpls::LfibViaKey& k) const noexcept {
    return (static_cast<size_t>(k.viaType) << 40) | (static_cast<size_t>(k.source) << 32) | k.index;
  }
};
template <>
struct std::hash<Mpls::LfibDot1qTagToVlanKey> {
  size_t operator()(const Mpls::LfibDot1qTagToVlanKey& k) const noexcept { return k.index; }
};
