#pragma once

// The hardware programming tables: the records this library writes for the
// driver and the driver's answers. Layouts, widths and enumeration values are
// a contract with the driver (see docs/hardware-tables.md) and are checked
// below with static_assert; do not reorder fields.

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <string>

#include "bexo/AddressingMethod.h"
#include "bexo/MplsLabelAction.h"
#include "kiv/Entity.h"
#include "kiv/Value.h"
#include "models/Fib.h"
#include "models/MplsHardwareL2Via.h"
#include "models/MplsHardwareStatus.h"
#include "models/MplsLfib.h"
#include "models/MplsRouteKey.h"

namespace Vosh::Qel {

using MplsHwL2AdjacencyId = uint64_t;
using MplsHwAdjacencyHwId = uint64_t;
constexpr uint64_t kAllOnes = std::numeric_limits<uint64_t>::max();

// Position of a via inside one layer-2 adjacency record.
class MplsHwL2ViaIndex {
 public:
  static constexpr uint16_t min = 0;
  static constexpr uint16_t max = 127;
  explicit MplsHwL2ViaIndex(uint32_t value);
  constexpr uint16_t value() const { return value_; }

 private:
  uint16_t value_;
};

enum MplsHwAdjacencyIdType : uint32_t {
  adjIdTypeUnknown = 0,
  adjIdTypeHardware = 1,
  adjIdTypeL2Adjacency = 2,
};
KIV_ENUM_NAMES(MplsHwAdjacencyIdType, mplsHwAdjacencyIdTypeInstance, "adjIdTypeUnknown",
               "adjIdTypeHardware", "adjIdTypeL2Adjacency")

enum MplsHwRouteState : uint32_t {
  mplsHwRouteStateUnknown = 0,
  mplsHwRouteStateProgrammed = 1,
  mplsHwRouteStateUnprogrammed = 2,
};
KIV_ENUM_NAMES(MplsHwRouteState, mplsHwRouteStateInstance, "mplsHwRouteStateUnknown",
               "mplsHwRouteStateProgrammed", "mplsHwRouteStateUnprogrammed")

enum MplsHwRouteUnprogrammedReason : uint32_t {
  mplsHwUnprogReasonSuccess = 0,
  mplsHwUnprogReasonRouteFull = 1,
  mplsHwUnprogReasonAdjacencyFull = 2,
  mplsHwUnprogReasonInterfaceNotReady = 3,
  mplsHwUnprogReasonInvalidFecId = 4,
};
KIV_ENUM_NAMES(MplsHwRouteUnprogrammedReason, mplsHwRouteUnprogrammedReasonInstance,
               "mplsHwUnprogReasonSuccess", "mplsHwUnprogReasonRouteFull",
               "mplsHwUnprogReasonAdjacencyFull", "mplsHwUnprogReasonInterfaceNotReady",
               "mplsHwUnprogReasonInvalidFecId")

enum MplsHwL2AdjacencyState : uint32_t {
  mplsHwL2AdjStateUnknown = 0,
  mplsHwL2AdjStateProgrammed = 1,
  mplsHwL2AdjStateUnprogrammed = 2,
};
KIV_ENUM_NAMES(MplsHwL2AdjacencyState, mplsHwL2AdjacencyStateInstance, "mplsHwL2AdjStateUnknown",
               "mplsHwL2AdjStateProgrammed", "mplsHwL2AdjStateUnprogrammed")

// One MPLS route as programmed: what to do with the top label and where the
// packet goes (a hardware FEC id or a layer-2 adjacency index).
struct MplsHwRouteConfig {
  Mpls::RouteKey routeKey;
  Bexo::MplsLabelAction labelAction = Bexo::mplsActionPush;
  Mpls::PayloadType payloadType = Mpls::PayloadType::payloadUnknown;
  Bexo::AddressingMethod addressing{};
  MplsHwAdjacencyIdType adjacencyIdType = adjIdTypeUnknown;
  uint64_t adjacencyId = 0;
  uint8_t version = 0;
  uint8_t reserved[7] = {};

  void hwFecIdIs(MplsHwAdjacencyHwId id) {
    adjacencyId = id;
    adjacencyIdType = adjIdTypeHardware;
  }
  void l2AdjIdIs(MplsHwL2AdjacencyId id) {
    adjacencyId = id;
    adjacencyIdType = adjIdTypeL2Adjacency;
  }
  MplsHwAdjacencyHwId hwFecId() const {
    return adjacencyIdType == adjIdTypeHardware ? adjacencyId : kAllOnes;
  }
  MplsHwL2AdjacencyId l2AdjId() const {
    return adjacencyIdType == adjIdTypeL2Adjacency ? adjacencyId : kAllOnes;
  }
  std::string stringValue() const;
  explicit operator bool() const { return !(*this == MplsHwRouteConfig()); }
  friend bool operator==(const MplsHwRouteConfig& a, const MplsHwRouteConfig& b);
};

// The driver's answer for one route.
struct MplsHwRouteStatus {
  Mpls::RouteKey routeKey;
  MplsHwRouteState state = mplsHwRouteStateUnknown;
  MplsHwRouteUnprogrammedReason reason = mplsHwUnprogReasonSuccess;
  uint8_t version = 0;
  // Set by the driver when a failure is worth reporting as a resource
  // condition (it is not for a route the driver refuses for other reasons).
  uint8_t resourceFlag = 0;
  uint8_t reserved[6] = {};

  std::string stringValue() const;
  explicit operator bool() const { return !(*this == MplsHwRouteStatus()); }
  friend bool operator==(const MplsHwRouteStatus& a, const MplsHwRouteStatus& b);
};

// One layer-2 adjacency: the resolved vias a route's record points at.
// Variable length: 16 bytes of header and 44 per via.
class MplsHwL2AdjacencyConfig {
 public:
  static constexpr uint32_t kMaxVias = 128;
  static constexpr size_t kHeaderSize = 16;
  static constexpr size_t kMaxSerializedSize = kHeaderSize + sizeof(Mpls::Hardware::L2Via) * kMaxVias;

  MplsHwL2AdjacencyConfig() = default;
  explicit MplsHwL2AdjacencyConfig(MplsHwL2AdjacencyId key) : key_(key) {}

  MplsHwL2AdjacencyId key() const { return key_; }
  uint8_t version() const { return version_; }
  void versionIs(uint8_t v) { version_ = v; }
  uint32_t l2Vias() const { return count_; }
  const Mpls::Hardware::L2Via& l2Via(MplsHwL2ViaIndex index) const;
  void l2ViaIs(MplsHwL2ViaIndex index, const Mpls::Hardware::L2Via& via);
  void l2ViaDel(MplsHwL2ViaIndex index);
  void l2ViaDelAll();

  size_t serializedSize() const { return kHeaderSize + count_ * sizeof(Mpls::Hardware::L2Via); }
  size_t serialize(std::byte* out) const;
  // False when the stored record is corrupt (a count above 128 or a length
  // that does not match it).
  static bool deserialize(const std::byte* in, size_t len, MplsHwL2AdjacencyConfig& out);

  std::string stringValue() const;
  explicit operator bool() const { return !(*this == MplsHwL2AdjacencyConfig()); }
  friend bool operator==(const MplsHwL2AdjacencyConfig& a, const MplsHwL2AdjacencyConfig& b);

 private:
  MplsHwL2AdjacencyId key_ = 0;
  uint8_t version_ = 0;
  uint32_t count_ = 0;
  std::array<Mpls::Hardware::L2Via, kMaxVias> vias_{};
};

struct MplsHwL2AdjacencyStatus {
  MplsHwL2AdjacencyId key = 0;
  MplsHwL2AdjacencyState state = mplsHwL2AdjStateUnknown;
  uint8_t version = 0;
  uint8_t reserved[3] = {};

  std::string stringValue() const;
  explicit operator bool() const { return !(*this == MplsHwL2AdjacencyStatus()); }
  friend bool operator==(const MplsHwL2AdjacencyStatus& a, const MplsHwL2AdjacencyStatus& b);
};

// What the hardware holds per route, kept by the driver across restarts.
struct MplsRouteSyncMap {
  Mpls::RouteKey routeKey;
  ::Qel::AdjSyncId syncId;
  std::string stringValue() const;
  explicit operator bool() const { return !(*this == MplsRouteSyncMap()); }
  friend bool operator==(const MplsRouteSyncMap&, const MplsRouteSyncMap&) = default;
};

static_assert(sizeof(Mpls::RouteKey) == 8);
static_assert(offsetof(MplsHwRouteConfig, routeKey) == 0);
static_assert(offsetof(MplsHwRouteConfig, labelAction) == 8);
static_assert(offsetof(MplsHwRouteConfig, payloadType) == 12);
static_assert(offsetof(MplsHwRouteConfig, addressing) == 16);
static_assert(offsetof(MplsHwRouteConfig, adjacencyIdType) == 20);
static_assert(offsetof(MplsHwRouteConfig, adjacencyId) == 24);
static_assert(offsetof(MplsHwRouteConfig, version) == 32);
static_assert(sizeof(MplsHwRouteConfig) == 40);
static_assert(offsetof(MplsHwRouteStatus, routeKey) == 0);
static_assert(offsetof(MplsHwRouteStatus, state) == 8);
static_assert(offsetof(MplsHwRouteStatus, reason) == 12);
static_assert(offsetof(MplsHwRouteStatus, version) == 16);
static_assert(sizeof(MplsHwRouteStatus) == 24);
static_assert(offsetof(MplsHwL2AdjacencyStatus, key) == 0);
static_assert(offsetof(MplsHwL2AdjacencyStatus, state) == 8);
static_assert(offsetof(MplsHwL2AdjacencyStatus, version) == 12);
static_assert(sizeof(MplsHwL2AdjacencyStatus) == 16);
static_assert(sizeof(Mpls::Hardware::L2Via) == 44);
static_assert(MplsHwL2AdjacencyConfig::kMaxSerializedSize == 5648);

}  // namespace Vosh::Qel

namespace Qel {

// Defined with its names by the core's working state (QelMplsState.h); only
// its width is needed here, and the hardware types stay free of the core.
enum class UnprogrammedReason : uint8_t;

// A route in the state-database form of the hardware configuration.
struct MplsHwRoute {
  Mpls::RouteKey routeKey;
  Kiv::Ptr<Mpls::Hardware::L2Adjacency> l2Adjacency;
  uint64_t version = 0;
  std::string stringValue() const;
  friend bool operator==(const MplsHwRoute&, const MplsHwRoute&) = default;
};

struct McastHwId {
  bool valid = false;
  uint32_t value = 0;
  static const McastHwId invalid;
  std::string stringValue() const;
  friend bool operator==(const McastHwId&, const McastHwId&) = default;
  friend auto operator<=>(const McastHwId&, const McastHwId&) = default;
};
inline constexpr McastHwId McastHwId::invalid{};

// The state-database hardware configuration, used when routes are handed to
// the platform through entities rather than shared memory.
class MplsHwConfig : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  KIV_COLL(Mpls::RouteKey, MplsHwRoute, route, Route)
  KIV_COLL(Kiv::Ptr<Mpls::Hardware::L2Adjacency>, uint32_t, l2Adjacency, L2Adjacency)
  KIV_ATTR(bool, mplsRouting, MplsRouting, false)
};
Kiv::Ptr<MplsHwConfig> mplsHwConfigFactory(const std::string& name);

class MplsHwStatus : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  KIV_COLL(Mpls::RouteKey, MplsHwRoute, route, Route)
  KIV_COLL(Kiv::Ptr<Mpls::Hardware::L2Adjacency>, uint32_t, l2Adjacency, L2Adjacency)
  KIV_COLL(Kiv::Ptr<Mpls::Hardware::L2Adjacency>, bool, unprogrammedAdjacency,
           UnprogrammedAdjacency)
  KIV_COLL(Mpls::RouteKey, bool, unprogrammedRoute, UnprogrammedRoute)
  KIV_ATTR(UnprogrammedReason, unprogrammedReason, UnprogrammedReason, UnprogrammedReason{})
  KIV_ATTR(bool, mplsRouting, MplsRouting, false)
  KIV_ATTR(uint32_t, maxEcmpSize, MaxEcmpSize, 128)
  KIV_ATTR(bool, lfibCountersSupported, LfibCountersSupported, false)
};
Kiv::Ptr<MplsHwStatus> mplsHwStatusFactory(const std::string& name);

class McastHwStatus : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  KIV_ORDERED_COLL(uint16_t, McastHwId, mcastHwId, McastHwId)
  KIV_ORDERED_COLL(uint16_t, uint32_t, mcastHwIdSeq, McastHwIdSeq)
  void mcastHwIdSeqInc(uint16_t group) { mcastHwIdSeqIs(group, mcastHwIdSeq(group) + 1); }
};

// The multicast groups the mediated mode asks the group programmer for.
class McastGroupProgConfig : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  KIV_ORDERED_COLL(uint16_t, uint32_t, groupRequestId, GroupRequestId)
};

class MulticastFecInfo : public Kiv::RefCounted {
 public:
  explicit MulticastFecInfo(Vosh::Fib::FecId fecId) : fecId_(fecId) {}
  Vosh::Fib::FecId fecId() const { return fecId_; }
  KIV_ORDERED_SET(uint16_t, dependMcastGroupId)

 private:
  Vosh::Fib::FecId fecId_;
};

// Hardware singletons shared with the platform driver in the state database.
class MplsHwSingletonConfig : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  static constexpr const char* kTypeName = "Qel::MplsHwSingletonConfig";
  KIV_ATTR(bool, mplsRouting, MplsRouting, false)
  KIV_ATTR(bool, ready, Ready, false)
  KIV_ATTR(uint32_t, endOfMplsSyncAtGeneration, EndOfMplsSyncAtGeneration, 0)
  KIV_ATTR(uint64_t, routesUnderReview, RoutesUnderReview, 0)
  KIV_ATTR(uint64_t, l3AdjsUnderReview, L3AdjsUnderReview, 0)
};

class MplsHwSingletonStatus : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  static constexpr const char* kTypeName = "Qel::MplsHwSingletonStatus";
  // The driver has written the route sync map completely.
  KIV_ATTR(bool, routeSyncMapReady, RouteSyncMapReady, false)
  // The driver has turned MPLS forwarding on.
  KIV_ATTR(bool, mplsRoutingEnabled, MplsRoutingEnabled, false)
};

}  // namespace Qel
