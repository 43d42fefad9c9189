#pragma once

// The MPLS routing side's output: the transit LFIB ("mpls/transitLfib",
// shared memory, written here) and what it says about it in the state
// database ("routing/mpls/lfibInfo": whether it has written everything it
// knows).
//
// Writes are ordered so that a reader never sees a reference to something
// that is not there yet: vias before the via set that lists them, via sets
// before the routes that use them; deletions the other way round.

#include <cstdint>
#include <map>
#include <vector>

#include "korba/EntityManager.h"
#include "models/MplsInfo.h"
#include "models/VoshTables.h"
#include "sim/Scenario.h"
#include "vosh/EntityManager.h"

namespace Sim {

class LfibProducer {
 public:
  static constexpr const char* kLfibPath = "mpls/transitLfib";
  static constexpr const char* kLfibInfoPath = "routing/mpls/lfibInfo";

  // Mounts the LFIB as its writer. An LFIB left by a previous writer is
  // dropped: a producer that starts again rebuilds its table from scratch.
  LfibProducer(Vosh::EntityManager& em, Korba::EntityManager& korba);

  // Defines or replaces via sets; a backup may name a set of the same batch.
  void viaSetsIs(const std::vector<ViaSetSpec>& viaSets);
  void viaSetDel(uint32_t id);
  void routesIs(const RouteRange& range);
  void routesDel(const RouteRange& range);
  void quiescedIs(bool quiesced) { lfibInfo_->transitLfibQuiescedIs(quiesced); }

  const Mpls::LfibStatus& lfib() const { return *lfib_; }
  uint64_t routes() const { return lfib_->routes(); }

 private:
  void writeVias(const ViaSetSpec& given);
  void deleteVias(const ViaSetSpec& given, uint32_t from);
  void deleteVia(Mpls::LfibViaType type, const Mpls::LfibViaKey& key);
  Mpls::LfibViaSet viaSetRecord(const ViaSetSpec& given) const;

  Kiv::Ptr<Mpls::LfibStatus> lfib_;
  Kiv::Ptr<Mpls::LfibInfo> lfibInfo_;
  // Every via set ever defined: a route keeps the type of its via set even
  // while the set itself is withdrawn.
  std::map<uint32_t, ViaSetSpec> viaSets_;
};

}  // namespace Sim
