#include "models/Arp.h"

#include <fmt/format.h>

namespace Arp::Table {

std::string ArpKey::stringValue() const { return fmt::format("{}/{}", addr, intf); }

}  // namespace Arp::Table
