#include "korba/MountGroup.h"

#include <fmt/format.h>

#include "kiv/Assert.h"
#include "korba/EntityManager.h"
#include "korba/MountMode.h"

namespace Korba {

std::string MountRecord::stringValue() const {
   return fmt::format("{} {} {}", path, typeName, mode);
}

std::ostream& operator<<(std::ostream& os, const MountRecord& r) { return os << r.stringValue(); }

MountGroup::MountGroup(Kiv::Ptr<EntityManager> entityManager, Kiv::Ptr<MountCallback> callback)
    : entityManager_(std::move(entityManager)), callback_(std::move(callback)) {
   KIV_ASSERT(callback_);
}

MountGroup::~MountGroup() = default;

void MountGroup::mount(const std::string& path, const std::string& typeName,
                       const std::string& mode) {
   KIV_ASSERT(!closed_);
   std::optional<MountMode> parsed = mountModeFromCode(mode);
   bool underCell = parsed && parsed->cellPath;
   MountRecord record{underCell ? entityManager_->cellPath(path) : path, typeName, mode};
   entityManager_->mountRecorded(record);
   mounts_.push_back(std::move(record));
}

void MountGroup::close() {
   KIV_ASSERT(!closed_);
   closed_ = true;
   Kiv::Ptr<EntityManager> entityManager = std::move(entityManager_);
   entityManager->groupClosed(this);
}

void MountGroup::mountsCompleteIs(MountStatus mountStatus, EntityManager* entityManager) {
   completed_ = true;
   mountStatus_ = mountStatus;
   // Let go of the callback once told: it usually points back at its owner.
   Kiv::Ptr<MountCallback> callback = std::move(callback_);
   callback->doMountsComplete(mountStatus, entityManager);
}

}  // namespace Korba
