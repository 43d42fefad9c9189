#pragma once
// Shared-memory keyed tables.
//
// A mounted path is one POSIX shared-memory segment, named after the agent's
// prefix and the path, holding one or more named collections. Each
// collection is a dense array of fixed-size slots plus a change ring. One
// process writes a path (mount type 0, which declares the collections and
// their initial capacities); any number of processes read it (mount types 1
// and 3, read-only mappings).
//
// Nothing shared is a hash table. The writer and every reader keep their own
// key-to-slot index in process memory, so a lookup is a private hash probe
// plus one slot read, and a reader can never be misled by a half-updated
// shared structure: each slot carries a sequence lock, and a reader keeps
// only copies taken while the slot held still.
//
// Readers learn of changes from the change ring: every write appends its
// slot number. A reader's poll task takes in the ring from its cursor and
// notifies each changed key once, from the event loop, never inside the
// writer's call. A writer in the reader's own process schedules that task
// directly; a reader in real time also polls every millisecond for writers
// elsewhere. A reader that fell more than a ring behind rescans the slots.
//
// A full collection grows in place into the slots reserved behind it, and
// past them by making a new generation of the whole segment (see Mount.h):
// amortised O(1) per insert, no entry lost, no reader stopped.
//
// Contents outlive the writer: nothing is unlinked on unmount or exit. The
// next writer mount of the path finds the segment, rebuilds its index by a
// scan and carries on; that is what restart recovery reads. removeAll()
// clears an agent's segments away.
//
//   Vosh::EntityManager em("agent", &scheduler);
//   em.mountWriter("hardware/routes", {{"route", 1024}});
//   auto routes = em.table<RouteKey, RouteRecord>("hardware/routes", "route");
//   routes->set(key, record);

#include <string>
#include <string_view>
#include <vector>

#include "kiv/HashMap.h"
#include "kiv/Ptr.h"
#include "plin/TaskScheduler.h"
#include "vosh/Mount.h"
#include "vosh/Table.h"

namespace Vosh {

class EntityManager : public Kiv::RefCounted {
 public:
  // The prefix from QELMPLS_SHM_PREFIX when it is set, else "qelmpls".
  static std::string defaultPrefix();
  // Unlinks every segment under a prefix; mappings already made stay valid.
  static void removeAll(std::string_view prefix);

  // The agent's own entity manager, for code that is handed only the agent's
  // state-database side. Whoever builds the agent names it, keeps it alive
  // while it is named, and clears it when the agent goes.
  static EntityManager* agentEntityManager() noexcept { return agentEntityManager_; }
  static void agentEntityManagerIs(EntityManager* em) noexcept { agentEntityManager_ = em; }
  static void agentEntityManagerDel() noexcept { agentEntityManager_ = nullptr; }

  EntityManager(std::string prefix, Plin::TaskScheduler* scheduler);
  ~EntityManager() override;

  const std::string& prefix() const noexcept { return prefix_; }
  Plin::TaskScheduler* scheduler() const noexcept { return scheduler_; }

  // Creates the path's segment, or takes over the one a previous writer
  // left with its contents. Throws MountError when another writer has it.
  void mountWriter(std::string_view path, const std::vector<CollectionDecl>& collections);
  // Throws MountError when no writer has created the path.
  void mountReader(std::string_view path, MountType type);
  void unmount(std::string_view path);
  bool mounted(std::string_view path) const { return mounts_.contains(std::string(path)); }
  MountType mountType(std::string_view path) const { return mountAt(path).mount->type(); }
  // The name of the segment generation mapped now.
  std::string segmentName(std::string_view path) const {
    return mountAt(path).mount->segmentName();
  }

  // The writer's or a reader's view of a collection, as the path is mounted.
  // One view per collection: asking again gives the same one. Throws
  // MountError when the path is not mounted, has no such collection, or
  // holds records of another shape.
  template <TableKey K, TableRecord R>
  Kiv::Ptr<Table<K, R>> table(std::string_view path, std::string_view collection,
                              typename Table<K, R>::CorruptionHandler onCorrupt = {}) {
    MountEntry& entry = mountAt(path);
    if (TableEntry* existing = entry.tables.find(std::string(collection))) {
      checkSameTypes(path, collection, existing->typeTag, &kTypeTag<K, R>);
      if (onCorrupt)
        static_cast<Table<K, R>*>(existing->table.get())->corruptionHandlerIs(onCorrupt);
      return Kiv::Ptr<Table<K, R>>(static_cast<Table<K, R>*>(existing->table.get()));
    }
    prepareCollection(entry, path, collection, recordShapeOf<K, R>());
    auto table = Kiv::make<Table<K, R>>(entry.mount, std::string(collection), scheduler_,
                                        std::move(onCorrupt));
    entry.tables.insert(std::string(collection), TableEntry{table, &kTypeTag<K, R>});
    return table;
  }

 private:
  template <class K, class R>
  static constexpr char kTypeTag = 0;

  struct TableEntry {
    Kiv::Ptr<TableBase> table;
    const void* typeTag = nullptr;
  };
  struct MountEntry {
    Kiv::Ptr<Mount> mount;
    Kiv::HashMap<std::string, TableEntry> tables;
  };

  MountEntry& mountAt(std::string_view path) const;
  void checkNotMounted(std::string_view path) const;
  void prepareCollection(MountEntry& entry, std::string_view path, std::string_view collection,
                         const RecordShape& shape);
  static void checkSameTypes(std::string_view path, std::string_view collection, const void* had,
                             const void* asked);

  static inline EntityManager* agentEntityManager_ = nullptr;

  std::string prefix_;
  Plin::TaskScheduler* scheduler_;
  mutable Kiv::HashMap<std::string, MountEntry> mounts_;
};

}  // namespace Vosh
