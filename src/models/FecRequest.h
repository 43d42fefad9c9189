#pragma once

// The FEC-request library's shared-memory entities: a requester files FEC
// descriptions and hardware FEC id requests under FEC ids it allocates; the
// FEC allocator answers with hardware FEC ids. Also its state-database view
// of adjacency synchronisation after a restart.

#include <string>
#include <vector>

#include "bexo/IntfId.h"
#include "kiv/Entity.h"
#include "models/Fib.h"
#include "models/VoshTable.h"
#include "vosh/Mount.h"

namespace Qel {

class FecIdToHwFecIdRequest : public Kiv::Entity {
 public:
  static std::vector<Vosh::CollectionDecl> collections();
  FecIdToHwFecIdRequest(Vosh::EntityManager& em, std::string_view path);
  VOSH_TABLE(Vosh::Fib::FecId, AdjSyncId, adjSyncIdMap, AdjSyncIdMap)
  VOSH_TABLE(GenerationId, SyncRequestsReady, syncRequestsReady, SyncRequestsReady)
  VOSH_TABLE(Vosh::Fib::FecId, Vosh::Fib::Fec, fec, Fec)
  VOSH_TABLE(Vosh::Fib::FecId, Vosh::Fib6::Fec, fec6, Fec6)
  VOSH_TABLE(Vosh::Fib::FecId, HwFecIdRequest, hwFecIdRequest, HwFecIdRequest)
  VOSH_TABLE(uint64_t, Vosh::Fib::FecId, objTupleToFecId, ObjTupleToFecId)
};

class FecIdToHwFecIdResponse : public Kiv::Entity {
 public:
  static std::vector<Vosh::CollectionDecl> collections();
  FecIdToHwFecIdResponse(Vosh::EntityManager& em, std::string_view path);
  VOSH_TABLE(Vosh::Fib::FecId, HwFecIdResponse, hwFecId, HwFecId)
  VOSH_TABLE(Vosh::Fib::FecId, Bexo::IntfId, l2IntfId, L2IntfId)
};

// "qel/sync/adjSyncStatus": whether the FEC allocator has synchronised the
// adjacencies of the current generation.
class QelL3AdjSyncStatusExternal : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  static constexpr const char* kTypeName = "Qel::QelL3AdjSyncStatusExternal";
  KIV_ATTR(bool, adjSyncDone, AdjSyncDone, false)
  KIV_ATTR(GenerationId, generation, Generation, 0)
};

}  // namespace Qel
