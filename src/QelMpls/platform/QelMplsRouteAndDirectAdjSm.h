#pragma once

// The direct programming mode: each route's hardware record points straight
// at a layer-2 adjacency record this library writes itself. No FEC allocator,
// no start-up synchronisation: the stage is normal at once, and a start is a
// cold start that rewrites the hardware tables from the LFIB.
//
// Unresolved next hops. A via whose next hop has no ARP entry yet (or, behind
// a VLAN interface, no MAC table entry) is left out of the adjacency's layer-2
// via set, but its next hop stays recorded with its proactive-ARP request, so
// the ARP answer re-reviews the adjacency. An adjacency with no resolved via
// has no layer-2 adjacency: it is unprogrammed with reason nexthopUnresolved,
// and so are its routes, which have no hardware record until ARP answers.

#include "QelMpls/core/QelMplsSm.h"

namespace Qel {

class MplsRouteAndDirectAdjSm : public MplsBaseSm {
 public:
  MplsRouteAndDirectAdjSm(const std::string& name, const Inputs& inputs);

  bool forwardingIntoExternalFecsSupported() const override { return false; }
  void handleInitializedSubClass() override;
  void reviewL3Adj(L3AdjIndex index, L3Adjacency* adjacency) override;
  void reviewL3AdjLegacy(L3AdjIndex index, L3Adjacency* adjacency);
  bool reviewRouteKey(const Mpls::RouteKey& routeKey, MplsRoute* route) override;
  bool reviewRouteKeyLegacy(const Mpls::RouteKey& routeKey, MplsRoute* route);
  // Nothing survives a start in this mode: the hardware is rebuilt from the LFIB.
  bool mplsNonStopForwardingSupported() const override { return false; }

 private:
  // Validates the adjacency and resolves its vias; false when it cannot be
  // programmed (its unprogrammed flag and reason are set).
  bool resolveL3Adj(L3Adjacency* adjacency);
  // An adjacency whose vias cannot be programmed keeps nothing they resolved
  // to: its routes lose their records rather than keep forwarding over vias
  // the LFIB no longer offers. Returns false.
  bool notProgrammable(L3Adjacency* adjacency, UnprogrammedReason reason);
  bool alreadyProgrammedAs(const Mpls::RouteKey& routeKey, const MplsRoute* route,
                           Vosh::Qel::MplsHwRouteConfig config, L2AdjIndex l2Index) const;
  bool handleUnresolvedRoute(const Mpls::RouteKey& routeKey, MplsRoute* route,
                             const L3Adjacency* adjacency);

  Pellet::Facility trace_;
  // Refilled by every adjacency review, so that a review allocates nothing
  // for it.
  ProgrammableMplsFecVias programmableScratch_;
};

Kiv::Ptr<MplsRouteAndDirectAdjSm> mplsRouteAndDirectAdjSmFactory(const MplsBaseSm::Inputs& inputs);

}  // namespace Qel
