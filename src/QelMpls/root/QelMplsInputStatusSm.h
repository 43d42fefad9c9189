#pragma once

// Input readiness. The core must not program after a restart until its inputs
// have settled; this state machine condenses three signals (MPLS routing on,
// system LFIB ready, route sync map written by the driver) into the summary
// the core watches.

#include <memory>

#include "QelMpls/core/QelMplsState.h"
#include "QelMpls/platform/QelMplsVoshTypes.h"
#include "kiv/Entity.h"
#include "models/MplsInfo.h"
#include "pellet/Trace.h"

namespace Qel {

class MplsSmInputStatusSm : public Kiv::Entity {
 public:
  MplsSmInputStatusSm(Kiv::Ptr<const MplsHwSingletonStatus> mplsHwSingletonStatus,
                      Kiv::Ptr<const Mpls::LocalLfibInfo> localLfibInfo,
                      Kiv::Ptr<MplsSmInputSummary> inputSummary,
                      Kiv::Ptr<const Mpls::RoutingInfo> mplsRoutingInfo);
  ~MplsSmInputStatusSm() override;

  void handleInitialized();
  void handleInputStatus();
  bool initialized() const { return initialized_; }
  MplsSmInputSummary* mplsSmInputSummary() const { return inputSummary_.get(); }

 private:
  class Reactors;
  Kiv::Ptr<const MplsHwSingletonStatus> mplsHwSingletonStatus_;
  Kiv::Ptr<const Mpls::LocalLfibInfo> localLfibInfo_;
  Kiv::Ptr<MplsSmInputSummary> inputSummary_;
  Kiv::Ptr<const Mpls::RoutingInfo> mplsRoutingInfo_;
  bool initialized_ = false;
  Pellet::Facility trace_;
  std::unique_ptr<Reactors> reactors_;
};

Kiv::Ptr<MplsSmInputStatusSm> mplsSmInputStatusSmFactory(
    Kiv::Ptr<const MplsHwSingletonStatus> mplsHwSingletonStatus,
    Kiv::Ptr<const Mpls::LocalLfibInfo> localLfibInfo, Kiv::Ptr<MplsSmInputSummary> inputSummary,
    Kiv::Ptr<const Mpls::RoutingInfo> mplsRoutingInfo);

}  // namespace Qel
