#pragma once

// Readiness and configuration entities of the MPLS routing library, mounted
// from the state database.

#include "kiv/Entity.h"

namespace Mpls {

// "routing/mpls/lfibInfo": what the LFIB producer says about its output.
class LfibInfo : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  static constexpr const char* kTypeName = "Mpls::LfibInfo";
  // The transit LFIB's writer has written everything it knows.
  KIV_ATTR(bool, transitLfibQuiesced, TransitLfibQuiesced, false)
};

// The agent's own view of the system LFIB.
class LocalLfibInfo : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  KIV_ATTR(bool, systemLfibReady, SystemLfibReady, false)
};

// "routing/mpls/routingInfo/status": MPLS routing configuration.
class RoutingInfo : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  static constexpr const char* kTypeName = "Mpls::RoutingInfo";
  KIV_ATTR(bool, mplsRouting, MplsRouting, false)
  // Whether a next hop may be resolved through the default route.
  KIV_ATTR(bool, nexthopResolutionAllowDefaultRoute, NexthopResolutionAllowDefaultRoute, false)
};

}  // namespace Mpls
