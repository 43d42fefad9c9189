#pragma once
// The in-process state database: entities stored by path.
//
// Each path holds one entity and the type name it was published or mounted
// with. A state machine gets at the database's tables by mounting paths in a
// mount group (see MountGroup.h) and then fetching the entities: a path
// mounted with a type name other than the one it holds fails the group, and
// so does a type name that no factory is registered for.
//
// A mounted path that holds nothing yet gets a fresh entity from the type's
// factory, for readers as well as writers: a reader mounted before its
// producer then holds the very entity the producer fills later, and neither
// has to wait for the other. For the same reason a path keeps its entity for
// the manager's life; readers hold the pointer they mounted.
//
// "Cell" paths are a switch's own part of the database, stored under
// "cell/<cellId>/".
//
// Mount groups complete in the order they were closed, from one task of the
// scheduler, never inside close().

#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "kiv/Entity.h"
#include "kiv/OrderedMap.h"
#include "korba/MountCallback.h"
#include "korba/MountGroup.h"
#include "korba/MountStatus.h"
#include "plin/TaskScheduler.h"

namespace Korba {

class EntityManager : public Kiv::RefCounted {
 public:
   // Makes the entity for a path that a mount finds empty; given the path.
   using EntityFactory = std::function<Kiv::Ptr<Kiv::Entity>(const std::string& path)>;
   struct PathEntry {
      std::string typeName;
      Kiv::Ptr<Kiv::Entity> entity;
   };

   explicit EntityManager(Plin::TaskScheduler* scheduler, int cellId = 1);
   EntityManager(const EntityManager&) = delete;
   EntityManager& operator=(const EntityManager&) = delete;

   int cellId() const noexcept { return cellId_; }
   std::string cellPath(std::string_view path) const;

   // A later registration of the same type name replaces the factory.
   void registerType(const std::string& typeName, EntityFactory factory);
   // Registers a factory that makes a T, named after the path when T takes a name.
   template <class T>
   void registerType(const std::string& typeName);
   bool typeRegistered(const std::string& typeName) const { return factories_.contains(typeName); }

   // The entity at a path (not cell-resolved), or null.
   Kiv::Ptr<Kiv::Entity> entity(const std::string& path) const;
   // The entity at a path as a T, or null when there is none or it is no T.
   template <class T>
   Kiv::Ptr<T> entityAs(const std::string& path) const;
   // The type name at a path; empty when the path holds nothing.
   std::string entityTypeName(const std::string& path) const;
   // Publishes an entity at a free path (producers and tests). Publishing a
   // different entity over an occupied path is an internal error.
   void entityIs(const std::string& path, const std::string& typeName,
                 Kiv::Ptr<Kiv::Entity> entity);
   const Kiv::OrderedMap<std::string, PathEntry>& entities() const noexcept { return entities_; }

   Kiv::Ptr<MountGroup> mountGroup(Kiv::Ptr<MountCallback> callback);
   // Every mount asked for, in the order asked, whatever became of its group.
   const std::vector<MountRecord>& mounts() const noexcept { return mounts_; }

 private:
   friend class MountGroup;
   void mountRecorded(const MountRecord& record) { mounts_.push_back(record); }
   void groupClosed(Kiv::Ptr<MountGroup> group);
   MountStatus mountCheck(const MountGroup& group) const;
   void mountAll(const MountGroup& group);
   void runMountTask();

   int cellId_;
   Kiv::OrderedMap<std::string, EntityFactory> factories_;
   Kiv::OrderedMap<std::string, PathEntry> entities_;
   std::vector<MountRecord> mounts_;
   std::deque<Kiv::Ptr<MountGroup>> closedGroups_;
   Plin::Task mountTask_;
};

template <class T>
void EntityManager::registerType(const std::string& typeName) {
   registerType(typeName, [](const std::string& path) -> Kiv::Ptr<Kiv::Entity> {
      if constexpr (std::is_constructible_v<T, std::string>) {
         return Kiv::make<T>(path);
      } else {
         return Kiv::make<T>();
      }
   });
}

template <class T>
Kiv::Ptr<T> EntityManager::entityAs(const std::string& path) const {
   const PathEntry* e = entities_.find(path);
   return e ? Kiv::Ptr<T>(dynamic_cast<T*>(e->entity.get())) : Kiv::Ptr<T>();
}

}  // namespace Korba
