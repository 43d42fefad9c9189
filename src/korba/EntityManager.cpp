#include "korba/EntityManager.h"

#include <fmt/format.h>

#include <map>

#include "kiv/Assert.h"
#include "korba/MountMode.h"

namespace Korba {

namespace {
// Mount completions come ahead of the state machines' own work, which the
// completions usually start.
constexpr Plin::TaskPriority kMountTaskPriority = 1;
}  // namespace

EntityManager::EntityManager(Plin::TaskScheduler* scheduler, int cellId)
    : cellId_(cellId),
      mountTask_(scheduler, kMountTaskPriority, "Korba::EntityManager-mounts",
                 [this] { runMountTask(); }) {}

std::string EntityManager::cellPath(std::string_view path) const {
   return fmt::format("cell/{}/{}", cellId_, path);
}

void EntityManager::registerType(const std::string& typeName, EntityFactory factory) {
   KIV_ASSERT(factory);
   factories_.insert(typeName, std::move(factory));
}

Kiv::Ptr<Kiv::Entity> EntityManager::entity(const std::string& path) const {
   const PathEntry* e = entities_.find(path);
   return e ? e->entity : Kiv::Ptr<Kiv::Entity>();
}

std::string EntityManager::entityTypeName(const std::string& path) const {
   const PathEntry* e = entities_.find(path);
   return e ? e->typeName : std::string();
}

void EntityManager::entityIs(const std::string& path, const std::string& typeName,
                             Kiv::Ptr<Kiv::Entity> entity) {
   KIV_ASSERT(entity);
   if (const PathEntry* e = entities_.find(path)) {
      KIV_ASSERT(e->entity == entity && e->typeName == typeName);
      return;
   }
   entities_.insert(path, PathEntry{typeName, std::move(entity)});
}

Kiv::Ptr<MountGroup> EntityManager::mountGroup(Kiv::Ptr<MountCallback> callback) {
   return Kiv::Ptr<MountGroup>(new MountGroup(Kiv::Ptr<EntityManager>(this), std::move(callback)));
}

void EntityManager::groupClosed(Kiv::Ptr<MountGroup> group) {
   closedGroups_.push_back(std::move(group));
   mountTask_.scheduleNow();
}

MountStatus EntityManager::mountCheck(const MountGroup& group) const {
   // Paths this group would create, so that two mounts of one path in one
   // group must agree on its type too.
   std::map<std::string, std::string> created;
   for (const MountRecord& m : group.mounts()) {
      if (!mountModeFromCode(m.mode)) return mountFailureBadMode_;
      if (!typeRegistered(m.typeName)) return mountFailureUnknownType_;
      const PathEntry* existing = entities_.find(m.path);
      const std::string& heldType =
          existing ? existing->typeName : created.try_emplace(m.path, m.typeName).first->second;
      if (heldType != m.typeName) return mountFailureTypeMismatch_;
   }
   return mountSuccess_;
}

void EntityManager::mountAll(const MountGroup& group) {
   for (const MountRecord& m : group.mounts()) {
      if (entities_.contains(m.path)) continue;
      Kiv::Ptr<Kiv::Entity> entity = (*factories_.find(m.typeName))(m.path);
      KIV_ASSERT(entity);
      entities_.insert(m.path, PathEntry{m.typeName, std::move(entity)});
   }
}

void EntityManager::runMountTask() {
   while (!closedGroups_.empty()) {
      Kiv::Ptr<MountGroup> group = std::move(closedGroups_.front());
      closedGroups_.pop_front();
      MountStatus status = mountCheck(*group);
      if (status == mountSuccess_) mountAll(*group);
      group->mountsCompleteIs(status, this);
      if (mountTask_.taskShouldYield()) break;
   }
   if (!closedGroups_.empty()) mountTask_.scheduleNow();
}

}  // namespace Korba
