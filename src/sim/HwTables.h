#pragma once

// A reader's view of an agent's shared-memory tables under one prefix: the
// transit LFIB, the hardware configuration the agent wrote, the driver's
// status, and in the mediated mode the FEC requests and the allocator's
// answers. It maps them read-only in an entity manager of its own, so it works
// the same inside the simulating process and from another one (`qelmpls
// show`), on a live agent or on the tables a stopped one left.

#include <string>

#include "QelMpls/platform/QelMplsVoshTables.h"
#include "models/FecRequest.h"
#include "models/VoshTables.h"
#include "plin/TaskScheduler.h"
#include "vosh/EntityManager.h"

namespace Sim {

class HwTables {
 public:
  // Maps whatever of the tables exists; a missing one reads as empty.
  HwTables(const std::string& prefix, Plin::TaskScheduler* scheduler);

  const Mpls::LfibStatus* lfib() const { return lfib_.get(); }
  const Vosh::Qel::MplsHwCollectionConfig* config() const { return config_.get(); }
  const Vosh::Qel::MplsHwCollectionStatus* status() const { return status_.get(); }
  const Qel::FecIdToHwFecIdRequest* requests() const { return requests_.get(); }
  const Qel::FecIdToHwFecIdResponse* responses() const { return responses_.get(); }

 private:
  Kiv::Ptr<Vosh::EntityManager> em_;
  Kiv::Ptr<Mpls::LfibStatus> lfib_;
  Kiv::Ptr<Vosh::Qel::MplsHwCollectionConfig> config_;
  Kiv::Ptr<Vosh::Qel::MplsHwCollectionStatus> status_;
  Kiv::Ptr<Qel::FecIdToHwFecIdRequest> requests_;
  Kiv::Ptr<Qel::FecIdToHwFecIdResponse> responses_;
};

}  // namespace Sim
