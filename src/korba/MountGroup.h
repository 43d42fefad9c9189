#pragma once
// A batch of mounts that completes as one.
//
// A group is filled with mount() calls, then close() hands it to its entity
// manager, which mounts every path on a later turn of the event loop and tells
// the group's callback how it went. A group mounts all its paths or none: it is
// checked whole before anything is created, so a failed group leaves the store
// as it found it.
//
// An open group keeps its entity manager alive; once closed, the manager keeps
// the group until its callback has run, so the caller may let go of it.

#include <ostream>
#include <string>
#include <vector>

#include "kiv/Ptr.h"
#include "korba/MountCallback.h"
#include "korba/MountStatus.h"

namespace Korba {

class EntityManager;

// One mount as asked for: the path after cell resolution, the type name and
// the mode code as given.
struct MountRecord {
   std::string path;
   std::string typeName;
   std::string mode;

   std::string stringValue() const;
   friend bool operator==(const MountRecord&, const MountRecord&) = default;
};

std::ostream& operator<<(std::ostream& os, const MountRecord& r);

class MountGroup : public Kiv::RefCounted {
 public:
   // `mode` is a mount mode code; an unknown one fails the group.
   void mount(const std::string& path, const std::string& typeName, const std::string& mode);
   // Starts the mounts. The callback runs later, from the event loop.
   void close();

   bool closed() const noexcept { return closed_; }
   bool completed() const noexcept { return completed_; }
   // Meaningful once completed().
   MountStatus mountStatus() const noexcept { return mountStatus_; }
   const std::vector<MountRecord>& mounts() const noexcept { return mounts_; }

 private:
   friend class EntityManager;
   MountGroup(Kiv::Ptr<EntityManager> entityManager, Kiv::Ptr<MountCallback> callback);
   // Out of line: EntityManager is incomplete here.
   ~MountGroup() override;
   void mountsCompleteIs(MountStatus mountStatus, EntityManager* entityManager);

   Kiv::Ptr<EntityManager> entityManager_;
   Kiv::Ptr<MountCallback> callback_;
   std::vector<MountRecord> mounts_;
   bool closed_ = false;
   bool completed_ = false;
   MountStatus mountStatus_ = mountSuccess_;
};

}  // namespace Korba
