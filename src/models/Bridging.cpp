#include "models/Bridging.h"

#include <fmt/format.h>

namespace Bridging {

std::string HostKey::stringValue() const { return fmt::format("{}/{}", fid, mac); }

}  // namespace Bridging
