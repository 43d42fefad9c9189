#include "QelMpls/platform/QelMplsVoshTables.h"

namespace Vosh::Qel {

namespace {
constexpr uint32_t kInitialCapacity = 1024;
}

std::vector<Vosh::CollectionDecl> MplsHwCollectionConfig::collections() {
  return {{"mplsHwRoute", kInitialCapacity}, {"l2Adjacency", kInitialCapacity}};
}

MplsHwCollectionConfig::MplsHwCollectionConfig(Vosh::EntityManager& em, std::string_view path)
    : Kiv::Entity(std::string(path)) {
  Vosh::bindTable(em, path, "mplsHwRoute", mplsHwRoute_);
  Vosh::bindTable(em, path, "l2Adjacency", l2Adjacency_);
}

std::vector<Vosh::CollectionDecl> MplsHwCollectionStatus::collections() {
  return {{"mplsHwRoute", kInitialCapacity},
          {"l2Adjacency", kInitialCapacity},
          {"mplsRouteSyncMap", kInitialCapacity}};
}

MplsHwCollectionStatus::MplsHwCollectionStatus(Vosh::EntityManager& em, std::string_view path)
    : Kiv::Entity(std::string(path)) {
  Vosh::bindTable(em, path, "mplsHwRoute", mplsHwRoute_);
  Vosh::bindTable(em, path, "l2Adjacency", l2Adjacency_);
  Vosh::bindTable(em, path, "mplsRouteSyncMap", mplsRouteSyncMap_);
}

}  // namespace Vosh::Qel
