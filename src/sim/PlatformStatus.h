#pragma once

// The platform's side of the hardware singletons in the state database: it
// reads the agent's singleton configuration and reports back, as a
// platform's agent would, that it turned MPLS forwarding on or off (in the
// singleton status and in the agent's hardware status entity) and that the
// driver's route sync map is complete.

#include <memory>

#include "QelMpls/platform/QelMplsVoshTypes.h"
#include "korba/EntityManager.h"

namespace Sim {

class PlatformStatus {
 public:
  static constexpr const char* kSingletonConfigPath = "hardware/qel/mplsHwSingletonConfig";
  static constexpr const char* kSingletonStatusPath = "hardware/qel/mplsHwSingletonStatus";

  explicit PlatformStatus(Korba::EntityManager& korba);
  ~PlatformStatus();

  // The hardware status entity of the agent run now (each run has its own).
  void hwStatusIs(Kiv::Ptr<Qel::MplsHwStatus> hwStatus);
  void routeSyncMapReadyIs(bool ready) { singletonStatus_->routeSyncMapReadyIs(ready); }

  const Qel::MplsHwSingletonConfig& singletonConfig() const { return *singletonConfig_; }
  const Qel::MplsHwSingletonStatus& singletonStatus() const { return *singletonStatus_; }

 private:
  class Reactors;
  void handleMplsRouting();

  Kiv::Ptr<Qel::MplsHwSingletonConfig> singletonConfig_;
  Kiv::Ptr<Qel::MplsHwSingletonStatus> singletonStatus_;
  Kiv::Ptr<Qel::MplsHwStatus> hwStatus_;
  std::unique_ptr<Reactors> reactors_;
};

}  // namespace Sim
