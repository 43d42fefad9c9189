#pragma once

// Reaching a table another party writes: in this process it may already be
// mounted (as that party's writer, or by an earlier look), from another
// process it is mapped read-only once it exists.

#include <string_view>

#include "vosh/EntityManager.h"

namespace Sim {

// Whether `path` can be bound in `em` now: mounted already, or mounted here as
// a shared reader because its writer has created it.
bool tableReadable(Vosh::EntityManager& em, std::string_view path);

}  // namespace Sim
