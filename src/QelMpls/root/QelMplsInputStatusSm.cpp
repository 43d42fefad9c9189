#include "QelMpls/root/QelMplsInputStatusSm.h"

#include "QelMpls/core/QelMplsSm.h"

namespace Qel {

class MplsSmInputStatusSm::Reactors : public Kiv::Reactor {
 public:
  explicit Reactors(MplsSmInputStatusSm* sm) {
    on(sm->mplsHwSingletonStatus_->onRouteSyncMapReady, [sm] { sm->handleInputStatus(); });
    on(sm->localLfibInfo_->onSystemLfibReady, [sm] { sm->handleInputStatus(); });
    on(sm->mplsRoutingInfo_->onMplsRouting, [sm] { sm->handleInputStatus(); });
  }
};

MplsSmInputStatusSm::MplsSmInputStatusSm(
    Kiv::Ptr<const MplsHwSingletonStatus> mplsHwSingletonStatus,
    Kiv::Ptr<const Mpls::LocalLfibInfo> localLfibInfo, Kiv::Ptr<MplsSmInputSummary> inputSummary,
    Kiv::Ptr<const Mpls::RoutingInfo> mplsRoutingInfo)
    : Kiv::Entity("mplsSmInputStatusSm"),
      mplsHwSingletonStatus_(std::move(mplsHwSingletonStatus)),
      localLfibInfo_(std::move(localLfibInfo)),
      inputSummary_(std::move(inputSummary)),
      mplsRoutingInfo_(std::move(mplsRoutingInfo)),
      trace_(initializeQelMplsPelletHandle(), "QelMplsInputStatusSm") {
  reactors_ = std::make_unique<Reactors>(this);
}

MplsSmInputStatusSm::~MplsSmInputStatusSm() = default;

void MplsSmInputStatusSm::handleInitialized() {
  initialized_ = true;
  handleInputStatus();
}

void MplsSmInputStatusSm::handleInputStatus() {
  if (!initialized_) return;
  bool routing = mplsRoutingInfo_->mplsRouting();
  bool systemLfib = localLfibInfo_->systemLfibReady();
  bool syncMap = mplsHwSingletonStatus_->routeSyncMapReady();
  PELLET_TRACE(trace_, 2, "Previous status {}, mpls routing {}, system lfib {}, route sync map {}",
               inputSummary_->status(), routing, systemLfib, syncMap);
  bool ready = routing && systemLfib && syncMap;
  inputSummary_->statusIs(ready ? MplsSmInputStatus::mplsSmInputReady
                                : MplsSmInputStatus::mplsSmInputNotReady);
}

Kiv::Ptr<MplsSmInputStatusSm> mplsSmInputStatusSmFactory(
    Kiv::Ptr<const MplsHwSingletonStatus> mplsHwSingletonStatus,
    Kiv::Ptr<const Mpls::LocalLfibInfo> localLfibInfo, Kiv::Ptr<MplsSmInputSummary> inputSummary,
    Kiv::Ptr<const Mpls::RoutingInfo> mplsRoutingInfo) {
  auto sm = Kiv::make<MplsSmInputStatusSm>(std::move(mplsHwSingletonStatus),
                                           std::move(localLfibInfo), std::move(inputSummary),
                                           std::move(mplsRoutingInfo));
  sm->handleInitialized();
  return sm;
}

}  // namespace Qel
