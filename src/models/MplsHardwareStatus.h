#pragma once

// The MPLS hardware routing status that this library publishes in the state
// database ("routing/hardware/mpls/status"): per route its programming state,
// per layer-3 adjacency its vias and layer-2 adjacency, per layer-2 adjacency
// its resolved vias. Readers are the CLI, the routing side and the driver.

#include <cstdint>
#include <string>

#include "kiv/Entity.h"
#include "models/MplsHardwareL2Via.h"
#include "models/MplsLfib.h"

namespace Mpls::Hardware {

enum class RouteState : uint8_t { routeStateUnknown, routeStateProgrammed, routeStateUnprogrammed };
KIV_ENUM_NAMES(RouteState, routeStateInstance, "unknown", "programmed", "unprogrammed")

// One published route. The two one-byte fields sit together: one is kept per
// route, and apart they padded it from 24 to 32 bytes.
struct RouteInfo {
  RouteState state = RouteState::routeStateUnknown;
  uint8_t version = 0;
  uint32_t unprogrammedReason = 0;
  uint64_t adjacencyIndex = 0;
  uint64_t l2AdjacencyIndex = 0;
  friend bool operator==(const RouteInfo&, const RouteInfo&) = default;
};

class AdjacencyBase : public Kiv::Entity {
 public:
  explicit AdjacencyBase(uint64_t index) : index_(index) {}
  uint64_t index() const { return index_; }
  KIV_ATTR(bool, unprogrammed, Unprogrammed, false)

 private:
  uint64_t index_;
};

// The hardware view of one layer-3 adjacency.
class Adjacency : public AdjacencyBase {
 public:
  using AdjacencyBase::AdjacencyBase;
  KIV_FLAT_COLL(uint32_t, LfibMplsVia, via, Via)
  KIV_ATTR(LfibViaSetType, viaSetType, ViaSetType, LfibViaType::viaTypeUnknown)
  KIV_ATTR(uint64_t, l2Adjacency, L2Adjacency, 0)
};

// The hardware view of one layer-2 adjacency.
class L2Adjacency : public AdjacencyBase {
 public:
  using AdjacencyBase::AdjacencyBase;
  const L2ViaSet& l2ViaSet() const { return l2ViaSet_; }
  void l2ViaSetIs(const L2ViaSet& s) { l2ViaSet_ = s; }
  KIV_ATTR(uint8_t, version, Version, 0)

 private:
  L2ViaSet l2ViaSet_;
};

struct AdjacencyBackupStatus {
  uint64_t primaryIndex = 0;
  bool backupActive = false;
  friend bool operator==(const AdjacencyBackupStatus&, const AdjacencyBackupStatus&) = default;
};

class Status : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  static constexpr const char* kTypeName = "Mpls::Hardware::Status";

  KIV_DENSE_COLL(RouteKey, RouteInfo, route, Route)
  KIV_INDEX_COLL(uint64_t, Kiv::Ptr<Adjacency>, adjacency, Adjacency)
  KIV_INDEX_COLL(uint64_t, AdjacencyBackupStatus, adjacencyBackupStatus, AdjacencyBackupStatus)
  KIV_INDEX_COLL(uint64_t, Kiv::Ptr<L2Adjacency>, l2Adjacency, L2Adjacency)
  KIV_ATTR(bool, nexthopResolutionAllowDefaultRoute, NexthopResolutionAllowDefaultRoute, false)

  // Get or create the adjacency of an index.
  Kiv::Ptr<Adjacency> adjacencyIs(uint64_t index);
  Kiv::Ptr<L2Adjacency> l2AdjacencyIs(uint64_t index);
};

}  // namespace Mpls::Hardware
