#pragma once

// "routing/hardware/route/status": per VRF, whether the hardware has it.

#include <string>

#include "kiv/Entity.h"

namespace L3 {
using VrfName = std::string;
}

namespace Routing::Hardware {

class RouteStatus : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  static constexpr const char* kTypeName = "Routing::Hardware::RouteStatus";
  KIV_ORDERED_COLL(L3::VrfName, bool, vrfStatus, VrfStatus)
};

}  // namespace Routing::Hardware
