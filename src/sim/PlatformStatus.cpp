#include "sim/PlatformStatus.h"

#include "kiv/Entity.h"

namespace Sim {

class PlatformStatus::Reactors : public Kiv::Reactor {
 public:
  Reactors(PlatformStatus* platform, const Qel::MplsHwSingletonConfig& config) {
    on(config.onMplsRouting, [platform] { platform->handleMplsRouting(); });
  }
};

PlatformStatus::PlatformStatus(Korba::EntityManager& korba)
    : singletonConfig_(Kiv::make<Qel::MplsHwSingletonConfig>(korba.cellPath(kSingletonConfigPath))),
      singletonStatus_(
          Kiv::make<Qel::MplsHwSingletonStatus>(korba.cellPath(kSingletonStatusPath))) {
  korba.entityIs(korba.cellPath(kSingletonConfigPath), Qel::MplsHwSingletonConfig::kTypeName,
                 singletonConfig_);
  korba.entityIs(korba.cellPath(kSingletonStatusPath), Qel::MplsHwSingletonStatus::kTypeName,
                 singletonStatus_);
  reactors_ = std::make_unique<Reactors>(this, *singletonConfig_);
}

PlatformStatus::~PlatformStatus() = default;

void PlatformStatus::hwStatusIs(Kiv::Ptr<Qel::MplsHwStatus> hwStatus) {
  hwStatus_ = std::move(hwStatus);
  handleMplsRouting();
}

void PlatformStatus::handleMplsRouting() {
  bool enabled = singletonConfig_->mplsRouting();
  singletonStatus_->mplsRoutingEnabledIs(enabled);
  if (hwStatus_) hwStatus_->mplsRoutingIs(enabled);
}

}  // namespace Sim
