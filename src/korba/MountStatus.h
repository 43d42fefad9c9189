#pragma once
// How a mount group ended. The trailing underscores are the state database's
// own spelling; agents assert on "mountStatus == Korba::mountSuccess_".

#include <cstdint>

#include "kiv/Value.h"

namespace Korba {

enum MountStatus : uint8_t {
   mountSuccess_,
   // A mode code other than "r", "w", "rc", "wc", "rS", "wS".
   mountFailureBadMode_,
   // No factory is registered for the type name.
   mountFailureUnknownType_,
   // The path holds, or the same group mounts it as, another type.
   mountFailureTypeMismatch_,
};

KIV_ENUM_NAMES(MountStatus, mountStatusInstance, "mountSuccess_", "mountFailureBadMode_",
               "mountFailureUnknownType_", "mountFailureTypeMismatch_")

}  // namespace Korba
