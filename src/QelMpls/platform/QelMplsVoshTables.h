#pragma once

// The shared-memory hardware tables: the configuration this library writes
// ("hardware/qel/mplsHwRouteConfig") and the driver's status it reads
// ("hardware/qel/mplsHwRouteStatus"). The record layouts are in
// QelMplsVoshTypes.h and docs/hardware-tables.md.

#include <vector>

#include "QelMpls/platform/QelMplsVoshTypes.h"
#include "kiv/Entity.h"
#include "models/VoshTable.h"
#include "vosh/Mount.h"

namespace Vosh::Qel {

class MplsHwCollectionConfig : public Kiv::Entity {
 public:
  static std::vector<Vosh::CollectionDecl> collections();
  MplsHwCollectionConfig(Vosh::EntityManager& em, std::string_view path);

  VOSH_TABLE(Mpls::RouteKey, MplsHwRouteConfig, mplsHwRoute, MplsHwRoute)
  VOSH_TABLE(MplsHwL2AdjacencyId, MplsHwL2AdjacencyConfig, l2Adjacency, L2Adjacency)

  void mplsHwRouteIs(const MplsHwRouteConfig& r) { mplsHwRouteIs(r.routeKey, r); }
  void l2AdjacencyIs(const MplsHwL2AdjacencyConfig& a) { l2AdjacencyIs(a.key(), a); }
  // The framework's control attributes of each table.
  Vosh::TableBase& mplsHwRouteControl() const { return *mplsHwRoute_; }
  Vosh::TableBase& l2AdjacencyControl() const { return *l2Adjacency_; }
};

class MplsHwCollectionStatus : public Kiv::Entity {
 public:
  static std::vector<Vosh::CollectionDecl> collections();
  MplsHwCollectionStatus(Vosh::EntityManager& em, std::string_view path);

  VOSH_TABLE(Mpls::RouteKey, MplsHwRouteStatus, mplsHwRoute, MplsHwRoute)
  VOSH_TABLE(MplsHwL2AdjacencyId, MplsHwL2AdjacencyStatus, l2Adjacency, L2Adjacency)
  VOSH_TABLE(Mpls::RouteKey, MplsRouteSyncMap, mplsRouteSyncMap, MplsRouteSyncMap)

  void mplsHwRouteIs(const MplsHwRouteStatus& s) { mplsHwRouteIs(s.routeKey, s); }
  void l2AdjacencyIs(const MplsHwL2AdjacencyStatus& s) { l2AdjacencyIs(s.key, s); }
  Vosh::TableBase& mplsHwRouteControl() const { return *mplsHwRoute_; }
  Vosh::TableBase& l2AdjacencyControl() const { return *l2Adjacency_; }
  Vosh::TableBase& mplsRouteSyncMapControl() const { return *mplsRouteSyncMap_; }
};

}  // namespace Vosh::Qel
