#pragma once

// The platform's side of the hardware singletons in the state database: it
// reads the agent's singleton configuration and reports back, as a
// platform's agent would, that it turned MPLS forwarding on or off (in the
// singleton status and in the agent's hardware status entity) and that the
// driver's route sync map is complete. It also carries the FEC allocator's
// word that a generation's adjacencies are synchronised from the allocator's
// own table (which may be written in another process) into the adjacency
// sync status the agent reads.

#include <memory>

#include "QelMpls/platform/QelMplsVoshTypes.h"
#include "korba/EntityManager.h"
#include "models/FecRequest.h"
#include "sim/FecAllocator.h"
#include "vosh/EntityManager.h"

namespace Sim {

class PlatformStatus {
 public:
  static constexpr const char* kSingletonConfigPath = "hardware/qel/mplsHwSingletonConfig";
  static constexpr const char* kSingletonStatusPath = "hardware/qel/mplsHwSingletonStatus";
  static constexpr const char* kAdjSyncStatusPath = "qel/sync/adjSyncStatus";

  explicit PlatformStatus(Korba::EntityManager& korba);
  ~PlatformStatus();

  // The hardware status entity of the agent run now (each run has its own).
  void hwStatusIs(Kiv::Ptr<Qel::MplsHwStatus> hwStatus);
  void routeSyncMapReadyIs(bool ready) { singletonStatus_->routeSyncMapReadyIs(ready); }
  // Follows the FEC allocator's status table once it exists; false before.
  bool fecAllocatorAttach(Vosh::EntityManager& em);

  const Qel::MplsHwSingletonConfig& singletonConfig() const { return *singletonConfig_; }
  const Qel::MplsHwSingletonStatus& singletonStatus() const { return *singletonStatus_; }
  const Qel::QelL3AdjSyncStatusExternal& adjSyncStatus() const { return *adjSyncStatus_; }

 private:
  class Reactors;
  class AllocatorReactors;
  void handleMplsRouting();
  void handleAdjSyncDone();

  Kiv::Ptr<Qel::MplsHwSingletonConfig> singletonConfig_;
  Kiv::Ptr<Qel::MplsHwSingletonStatus> singletonStatus_;
  Kiv::Ptr<Qel::MplsHwStatus> hwStatus_;
  Kiv::Ptr<Qel::QelL3AdjSyncStatusExternal> adjSyncStatus_;
  Kiv::Ptr<FecAllocatorStatus> allocatorStatus_;
  std::unique_ptr<Reactors> reactors_;
  std::unique_ptr<AllocatorReactors> allocatorReactors_;
};

}  // namespace Sim
