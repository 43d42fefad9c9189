#include "vosh/EntityManager.h"

#include <cstdlib>

#include <fmt/format.h>

#include "vosh/Segment.h"
#include "vosh/SegmentName.h"

namespace Vosh {

std::string EntityManager::defaultPrefix() {
  const char* fromEnv = std::getenv("QELMPLS_SHM_PREFIX");
  return fromEnv && *fromEnv ? std::string(fromEnv) : std::string("qelmpls");
}

void EntityManager::removeAll(std::string_view prefix) {
  for (const std::string& name : segmentNamesUnder(prefix)) Segment::unlink(name);
}

EntityManager::EntityManager(std::string prefix, Plin::TaskScheduler* scheduler)
    : prefix_(std::move(prefix)), scheduler_(scheduler) {
  if (prefix_.empty() || prefix_.find_first_of("/.") != std::string::npos) {
    throw MountError(fmt::format("vosh: bad segment prefix '{}'", prefix_));
  }
}

EntityManager::~EntityManager() {
  if (agentEntityManager_ == this) agentEntityManagerDel();
  for (auto& [path, entry] : mounts_) entry.mount->close();
}

void EntityManager::mountWriter(std::string_view path,
                                const std::vector<CollectionDecl>& collections) {
  checkNotMounted(path);
  mounts_.insert(std::string(path), MountEntry{Mount::writerMount(prefix_, path, collections), {}});
}

void EntityManager::mountReader(std::string_view path, MountType type) {
  checkNotMounted(path);
  mounts_.insert(std::string(path), MountEntry{Mount::readerMount(prefix_, path, type), {}});
}

void EntityManager::checkNotMounted(std::string_view path) const {
  if (mounted(path)) throw MountError(fmt::format("vosh: {} is already mounted", path));
}

void EntityManager::unmount(std::string_view path) {
  MountEntry* entry = mounts_.find(std::string(path));
  if (!entry) return;
  entry->mount->close();
  mounts_.erase(std::string(path));
}

EntityManager::MountEntry& EntityManager::mountAt(std::string_view path) const {
  MountEntry* entry = mounts_.find(std::string(path));
  if (!entry) throw MountError(fmt::format("vosh: {} is not mounted", path));
  return *entry;
}

void EntityManager::prepareCollection(MountEntry& entry, std::string_view path,
                                      std::string_view collection, const RecordShape& shape) {
  Mount& mount = *entry.mount;
  if (mount.writable()) {
    mount.collectionShapeIs(collection, shape);
    return;
  }
  mount.refresh();
  const CollectionHeader* c = mount.collection(collection);
  if (!c) throw MountError(fmt::format("vosh: {} has no collection {}", path, collection));
  if (c->kind != RecordKind::untyped && recordShape(*c) != shape) {
    throw MountError(fmt::format(
        "vosh: {} {}: its records are not of this table's types ({} byte keys, {} byte records)",
        path, collection, shape.keyBytes, shape.recordBytes));
  }
}

void EntityManager::checkSameTypes(std::string_view path, std::string_view collection,
                                   const void* had, const void* asked) {
  if (had != asked) {
    throw MountError(fmt::format("vosh: {} {}: already viewed with other key or record types", path,
                                 collection));
  }
}

}  // namespace Vosh
