#include "models/FecRequest.h"

namespace Qel {

namespace {
std::vector<Vosh::CollectionDecl> decls(std::initializer_list<const char*> names) {
  std::vector<Vosh::CollectionDecl> out;
  for (const char* n : names) out.push_back(Vosh::CollectionDecl{n, 1024});
  return out;
}
}  // namespace

std::vector<Vosh::CollectionDecl> FecIdToHwFecIdRequest::collections() {
  return decls({"adjSyncIdMap", "syncRequestsReady", "fec", "fec6", "hwFecIdRequest",
                "objTupleToFecId"});
}

FecIdToHwFecIdRequest::FecIdToHwFecIdRequest(Vosh::EntityManager& em, std::string_view path)
    : Kiv::Entity(std::string(path)) {
  Vosh::bindTable(em, path, "adjSyncIdMap", adjSyncIdMap_);
  Vosh::bindTable(em, path, "syncRequestsReady", syncRequestsReady_);
  Vosh::bindTable(em, path, "fec", fec_);
  Vosh::bindTable(em, path, "fec6", fec6_);
  Vosh::bindTable(em, path, "hwFecIdRequest", hwFecIdRequest_);
  Vosh::bindTable(em, path, "objTupleToFecId", objTupleToFecId_);
}

std::vector<Vosh::CollectionDecl> FecIdToHwFecIdResponse::collections() {
  return decls({"hwFecId", "l2IntfId"});
}

FecIdToHwFecIdResponse::FecIdToHwFecIdResponse(Vosh::EntityManager& em, std::string_view path)
    : Kiv::Entity(std::string(path)) {
  Vosh::bindTable(em, path, "hwFecId", hwFecId_);
  Vosh::bindTable(em, path, "l2IntfId", l2IntfId_);
}

}  // namespace Qel
