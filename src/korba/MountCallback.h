#pragma once
// What a mount group tells when all its mounts are done. Called once, from the
// event loop, never from inside MountGroup::close().

#include "kiv/Ptr.h"
#include "korba/MountStatus.h"

namespace Korba {

class EntityManager;

class MountCallback : public Kiv::RefCounted {
 public:
   virtual void doMountsComplete(MountStatus mountStatus, EntityManager* entityManager) = 0;
};

}  // namespace Korba
