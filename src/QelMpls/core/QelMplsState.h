#pragma once

// The core state machine's working memory: every route it tracks, the
// layer-3 adjacencies the routes share by via set key, the layer-2
// adjacencies the layer-3 adjacencies share by resolved layer-2 via set, the
// next hops and MAC entries adjacencies depend on, and the sets the review,
// retry and publish tasks drain. Membership sets are the reference counts: an
// owner is deleted by its own review once its set of users is empty.
//
// Records derive from Kiv::RefCounted rather than Kiv::Entity: there is one per
// route, and a name string each would cost more than the route itself.

#include <cstdint>
#include <map>
#include <string>

#include "bexo/AddressingMethod.h"
#include "bexo/IntfId.h"
#include "bexo/IpGenAddr.h"
#include "bexo/MplsLabelAction.h"
#include "kiv/Entity.h"
#include "kiv/Value.h"
#include "models/Bridging.h"
#include "models/Fib.h"
#include "models/MplsHardwareStatus.h"
#include "models/MplsLfib.h"
#include "models/MplsRouteKey.h"

namespace Qel {

enum class MplsSmStartupStatus : uint8_t {
  mplsSmUnknown,
  mplsSmWaitingForSyncMap,
  mplsSmProcessingSyncMap,
  mplsSmWaitingForSyncResponses,
  mplsSmNormal,
};
KIV_ENUM_NAMES(MplsSmStartupStatus, mplsSmStartupStatusInstance, "mplsSmUnknown",
               "mplsSmWaitingForSyncMap", "mplsSmProcessingSyncMap",
               "mplsSmWaitingForSyncResponses", "mplsSmNormal")

enum class L3AdjLFibAdjType : uint8_t {
  adjTypeUnknown,
  adjTypeRegular,
  adjTypeDynamicTunnel,
  adjTypeNexthopGroup,
};
KIV_ENUM_NAMES(L3AdjLFibAdjType, l3AdjLFibAdjTypeInstance, "adjTypeUnknown", "adjTypeRegular",
               "adjTypeDynamicTunnel", "adjTypeNexthopGroup")

enum class MplsSmInputStatus : uint8_t {
  mplsSmInputUnknown,
  mplsSmInputNotReady,
  mplsSmInputReady,
};
KIV_ENUM_NAMES(MplsSmInputStatus, mplsSmInputStatusInstance, "mplsSmInputUnknown",
               "mplsSmInputNotReady", "mplsSmInputReady")

enum class MplsSmAdjacencyProgrammer : uint8_t {
  mplsSmAdjacencyNone,
  mplsSmAdjacencyDirect,
  mplsSmAdjacencyMediated,
};
KIV_ENUM_NAMES(MplsSmAdjacencyProgrammer, mplsSmAdjacencyProgrammerInstance,
               "mplsSmAdjacencyNone", "mplsSmAdjacencyDirect", "mplsSmAdjacencyMediated")

// Why a route or adjacency is not in hardware. The first values mirror the
// driver's reasons; the rest are this library's own.
enum class UnprogrammedReason : uint8_t {
  unprogrammedReasonNone,
  unprogrammedReasonRouteFull,
  unprogrammedReasonAdjacencyFull,
  unprogrammedReasonInterfaceNotReady,
  unprogrammedReasonInvalidFecId,
  unprogrammedReasonViaSetNotSane,
  unprogrammedReasonNexthopUnresolved,
  unprogrammedReasonNoAdjacency,
  unprogrammedReasonHwPending,
};
KIV_ENUM_NAMES(UnprogrammedReason, unprogrammedReasonInstance, "none", "routeFull",
               "adjacencyFull", "interfaceNotReady", "invalidFecId", "viaSetNotSane",
               "nexthopUnresolved", "noAdjacency", "hwPending")

// How a FEC and its routes are to be programmed.
enum class MplsFecProgAction : uint8_t {
  mplsFecProgActionNone,
  mplsFecProgActionProgram,
  mplsFecProgActionUpdate,
  mplsFecProgActionRemove,
};
KIV_ENUM_NAMES(MplsFecProgAction, mplsFecProgActionInstance, "none", "program", "update",
               "remove")

using L3AdjIndex = uint64_t;
using L2AdjIndex = uint64_t;
using McastGroupId = uint16_t;

// A next hop: an address on an interface. Text form "10.0.0.2/Ethernet1".
struct IpAddrIntfId {
  Bexo::IpGenAddr addr;
  Bexo::IntfId intf;
  IpAddrIntfId() = default;
  IpAddrIntfId(Bexo::IpGenAddr a, Bexo::IntfId i) : addr(a), intf(i) {}
  explicit IpAddrIntfId(std::string_view text);
  std::string stringValue() const;
  friend bool operator==(const IpAddrIntfId&, const IpAddrIntfId&) = default;
  friend auto operator<=>(const IpAddrIntfId&, const IpAddrIntfId&) = default;
};

}  // namespace Qel

template <>
struct std::hash<Qel::IpAddrIntfId> {
  size_t operator()(const Qel::IpAddrIntfId& k) const noexcept {
    return std::hash<Bexo::IpGenAddr>{}(k.addr) * 31 + std::hash<Bexo::IntfId>{}(k.intf);
  }
};

namespace Qel {

class MplsL2Adjacency;
class ExternalFecInfo;
class MulticastGroupInfo;

class MplsRoute : public Kiv::RefCounted {
 public:
  explicit MplsRoute(const Mpls::RouteKey& key) : key_(key) {}
  const Mpls::RouteKey& key() const { return key_; }

  KIV_VALUE(bool, unprogrammed, false)
  KIV_VALUE(UnprogrammedReason, unprogrammedReason, UnprogrammedReason::unprogrammedReasonNone)
  KIV_VALUE(bool, isInstalledWithMulticast, false)
  KIV_VALUE(uint8_t, lfibFlags, 0)
  // The layer-3 adjacency the route is bound to (0: none yet) and the via
  // set key that adjacency was built for.
  KIV_VALUE(L3AdjIndex, l3AdjIndex, 0)
  KIV_VALUE(Mpls::LfibViaSetKey, viaSetKey, {})
  // The layer-2 adjacency the route's hardware record points at (0: none).
  KIV_VALUE(L2AdjIndex, l2AdjIndex, 0)
  KIV_VALUE(Bexo::MplsLabelAction, labelAction, Bexo::mplsActionSwap)
  KIV_VALUE(Mpls::PayloadType, payloadType, Mpls::PayloadType::payloadMpls)
  KIV_VALUE(Bexo::AddressingMethod, addressing, Bexo::AddressingMethod{})
  KIV_VALUE(Vosh::Fib::FecId, extFecId, {})
  // A hardware record was written and the driver has not answered it yet.
  KIV_VALUE(bool, awaitingHw, false)

  uint64_t version() const { return version_; }
  void versionInc() { ++version_; }
  // Takes over the version of a record a previous run wrote, when this run
  // finds it already holding what it would write.
  void versionIs(uint64_t version) { version_ = version; }

 private:
  Mpls::RouteKey key_;
  uint64_t version_ = 1;
};

// A cached copy of the sane MPLS-over-IP vias of one via set, by position.
class CachedLFibMplsViaColl : public Kiv::RefCounted {
 public:
  KIV_FLAT_COLL(uint32_t, Mpls::LfibMplsVia, via, Via)
  KIV_VALUE(bool, usableAsPrimaryVias, true)
  void viaIs(Mpls::LfibViaIndexRange index, const Mpls::LfibMplsVia& v) { viaIs(index.value(), v); }
};

// The vias that passed validation and will be programmed.
class ProgrammableMplsFecVias : public Kiv::RefCounted {
 public:
  ProgrammableMplsFecVias() = default;
  KIV_FLAT_COLL(uint32_t, Mpls::LfibMplsVia, via, Via)
  KIV_VALUE(MplsFecProgAction, programAction, MplsFecProgAction::mplsFecProgActionProgram)
};

class L3Adjacency : public Kiv::RefCounted {
 public:
  explicit L3Adjacency(L3AdjIndex index) : index_(index) {}
  L3AdjIndex index() const { return index_; }

  KIV_SET(Mpls::RouteKey, routeKey)
  KIV_FLAT_SET(IpAddrIntfId, nextHop)
  KIV_FLAT_SET(Bridging::HostKey, hostKey)
  KIV_FLAT_SET(L3AdjIndex, primaryAdj)
  // The adjacency of the backup via set this one falls back on (0: none).
  KIV_VALUE(L3AdjIndex, backupAdj, 0)
  KIV_VALUE(Kiv::Ptr<MplsL2Adjacency>, l2Adjacency, nullptr)
  KIV_VALUE(Kiv::Ptr<ExternalFecInfo>, extFecInfo, nullptr)
  KIV_VALUE(Kiv::Ptr<MulticastGroupInfo>, multicastGroupInfo, nullptr)
  KIV_VALUE(bool, unprogrammed, true)
  KIV_VALUE(UnprogrammedReason, unprogrammedReason, UnprogrammedReason::unprogrammedReasonNone)
  KIV_VALUE(Mpls::LfibViaSetKey, viaSetKey, {})
  KIV_VALUE(L3AdjLFibAdjType, lFibAdjType, L3AdjLFibAdjType::adjTypeUnknown)
  KIV_VALUE(Kiv::Ptr<const CachedLFibMplsViaColl>, cachedVias, nullptr)

 private:
  L3AdjIndex index_;
};

class MplsL2Adjacency : public Kiv::RefCounted {
 public:
  MplsL2Adjacency(L2AdjIndex index, Kiv::Ptr<Mpls::Hardware::L2Adjacency> hw)
      : index_(index), hwL2Adjacency_(std::move(hw)) {}
  L2AdjIndex index() const { return index_; }
  const Kiv::Ptr<Mpls::Hardware::L2Adjacency>& hwL2Adjacency() const { return hwL2Adjacency_; }
  const Mpls::Hardware::L2ViaSet& l2ViaSet() const { return hwL2Adjacency_->l2ViaSet(); }

  KIV_FLAT_SET(L3AdjIndex, l3Adjacency)
  KIV_SET(Mpls::RouteKey, routeKey)
  // Bumped on every write of the hardware record; its low byte is the
  // record's version.
  KIV_VALUE(uint64_t, version, 0)

 private:
  L2AdjIndex index_;
  Kiv::Ptr<Mpls::Hardware::L2Adjacency> hwL2Adjacency_;
};

class ExternalFecInfo : public Kiv::RefCounted {
 public:
  explicit ExternalFecInfo(Vosh::Fib::FecId fecId) : fecId_(fecId) {}
  Vosh::Fib::FecId fecId() const { return fecId_; }
  KIV_SET(Mpls::RouteKey, dependentRouteKey)
  // Usually one adjacency and no primary: in one array each.
  KIV_FLAT_SET(L3AdjIndex, dependentL3Adjacency)
  KIV_FLAT_SET(Vosh::Fib::FecId, dependentPrimaryExtFecInfo)
  // The allocator's answer (all ones until there is one) and whether the
  // FEC forwards; the backup FEC the description names (0: none).
  KIV_VALUE(uint64_t, hwFecId, ~uint64_t{0})
  KIV_VALUE(bool, forwarding, false)
  KIV_VALUE(Vosh::Fib::FecId, backupFecId, {})
  // Its number came from this library's allocator and goes back to it.
  KIV_VALUE(bool, allocated, false)
  bool hwFecIdValid() const { return hwFecId() != ~uint64_t{0}; }

 private:
  Vosh::Fib::FecId fecId_;
};

class MulticastGroupInfo : public Kiv::RefCounted {
 public:
  explicit MulticastGroupInfo(McastGroupId id) : id_(id) {}
  McastGroupId id() const { return id_; }
  KIV_ORDERED_SET(Vosh::Fib::FecId, tearDownFec)
  KIV_ORDERED_SET(Vosh::Fib::FecId, fecIdToMulticastFecInfo)

 private:
  McastGroupId id_;
};

class MplsNextHop : public Kiv::RefCounted {
 public:
  explicit MplsNextHop(const IpAddrIntfId& key) : key_(key) {}
  const IpAddrIntfId& key() const { return key_; }
  // Hundreds of adjacencies per next hop, each added again at every review:
  // a hash set keeps that O(1).
  KIV_SET(L3AdjIndex, resolvedByMNH)

 private:
  IpAddrIntfId key_;
};

class MplsFdbEntry : public Kiv::RefCounted {
 public:
  explicit MplsFdbEntry(const Bridging::HostKey& key) : key_(key) {}
  const Bridging::HostKey& key() const { return key_; }
  KIV_ORDERED_SET(L3AdjIndex, l3AdjIdx)

 private:
  Bridging::HostKey key_;
};

class MplsState : public Kiv::RefCounted {
 public:
  KIV_DENSE_COLL(Mpls::RouteKey, Kiv::Ptr<MplsRoute>, route, Route)
  KIV_INDEX_COLL(L3AdjIndex, Kiv::Ptr<L3Adjacency>, l3Adjacency, L3Adjacency)
  KIV_INDEX_COLL(L2AdjIndex, Kiv::Ptr<MplsL2Adjacency>, l2Adjacency, L2Adjacency)
  KIV_COLL(IpAddrIntfId, Kiv::Ptr<MplsNextHop>, mplsNextHop, MplsNextHop)
  KIV_ORDERED_COLL(Vosh::Fib::FecId, Kiv::Ptr<ExternalFecInfo>, extFecInfo, ExtFecInfo)
  KIV_DENSE_COLL(Mpls::LfibViaSetKey, L3AdjIndex, lFibViaSetToL3Adj, LFibViaSetToL3Adj)
  KIV_ORDERED_COLL(Mpls::LfibViaSetKey, Vosh::Fib::FecId, lFibViaSetToFecId, LFibViaSetToFecId)
  KIV_ORDERED_COLL(Mpls::LfibViaKey, Vosh::Fib::FecId, viaKeyToFecId, ViaKeyToFecId)
  KIV_ORDERED_COLL(Bridging::HostKey, Kiv::Ptr<MplsFdbEntry>, fdbToL3AdjIdx, FdbToL3AdjIdx)
  KIV_ORDERED_COLL(McastGroupId, Kiv::Ptr<MulticastGroupInfo>, multicastGroupInfo,
                   MulticastGroupInfo)

  KIV_DENSE_SET(Mpls::RouteKey, routeKeyForReview)
  KIV_DENSE_SET(Mpls::RouteKey, routeKeyForPublish)
  KIV_DENSE_SET(Mpls::RouteKey, unprogrammedRoute)
  KIV_INDEX_SET(L3AdjIndex, l3AdjForReview)
  KIV_INDEX_SET(L2AdjIndex, l2AdjForReview)
  KIV_INDEX_SET(L2AdjIndex, l2AdjPendingForDelete)
  KIV_INDEX_SET(L2AdjIndex, unprogrammedL2Adj)

  KIV_COUNTER(numUnprogrammedRoute)
  KIV_COUNTER(numUnprogrammedAdj)
  KIV_COUNTER(routeKeyReviewed)
  KIV_COUNTER(routeKeyPublished)
  KIV_COUNTER(l3AdjReviewed)
  KIV_COUNTER(l2AdjReviewed)
  KIV_COUNTER(l2AdjDeleted)
  KIV_COUNTER(unprogRouteRetried)
  KIV_COUNTER(unprogAdjRetried)

  // Get-or-create forms.
  Kiv::Ptr<MplsRoute> routeIs(const Mpls::RouteKey& key);
  Kiv::Ptr<L3Adjacency> l3AdjacencyIs(L3AdjIndex index);
  Kiv::Ptr<MplsNextHop> mplsNextHopIs(const IpAddrIntfId& key);
  Kiv::Ptr<MplsFdbEntry> fdbToL3AdjIdxIs(const Bridging::HostKey& key);
  Kiv::Ptr<ExternalFecInfo> extFecInfoIs(Vosh::Fib::FecId fecId);
};

// The adjacency kind a via collection makes.
L3AdjLFibAdjType l3AdjLFibAdjType(const CachedLFibMplsViaColl* vias);

// Start-up timing: the stage reached and how long each took.
class MplsSmStartupRecord : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  KIV_VALUE(MplsSmStartupStatus, lastStage, MplsSmStartupStatus::mplsSmUnknown)
  KIV_VALUE(double, lastStageTime, 0.0)
  const std::map<MplsSmStartupStatus, double>& timeTaken() const { return timeTaken_; }
  void updateMplsSmStartupRecord(MplsSmStartupStatus newStage, double now);
  void clearAndInitialize(double now);

 private:
  std::map<MplsSmStartupStatus, double> timeTaken_;
};

Kiv::Ptr<MplsSmStartupRecord> mplsSmStartupRecordFactory(const std::string& name);

// What the input status state machine condenses the core's inputs into.
class MplsSmInputSummary : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  KIV_ATTR(MplsSmInputStatus, status, Status, MplsSmInputStatus::mplsSmInputUnknown)
};
Kiv::Ptr<MplsSmInputSummary> mplsSmInputSummaryFactory();

}  // namespace Qel
