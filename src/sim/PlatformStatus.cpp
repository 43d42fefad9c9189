#include "sim/PlatformStatus.h"

#include <algorithm>

#include "kiv/Entity.h"
#include "sim/SharedTables.h"

namespace Sim {

class PlatformStatus::Reactors : public Kiv::Reactor {
 public:
  Reactors(PlatformStatus* platform, const Qel::MplsHwSingletonConfig& config) {
    on(config.onMplsRouting, [platform] { platform->handleMplsRouting(); });
  }
};

class PlatformStatus::AllocatorReactors : public Kiv::Reactor {
 public:
  AllocatorReactors(PlatformStatus* platform, const FecAllocatorStatus& status) {
    on(status.onAdjSyncDone(), [platform](Qel::GenerationId) { platform->handleAdjSyncDone(); });
  }
};

PlatformStatus::PlatformStatus(Korba::EntityManager& korba)
    : singletonConfig_(Kiv::make<Qel::MplsHwSingletonConfig>(korba.cellPath(kSingletonConfigPath))),
      singletonStatus_(Kiv::make<Qel::MplsHwSingletonStatus>(korba.cellPath(kSingletonStatusPath))),
      adjSyncStatus_(
          Kiv::make<Qel::QelL3AdjSyncStatusExternal>(korba.cellPath(kAdjSyncStatusPath))) {
  korba.entityIs(korba.cellPath(kSingletonConfigPath), Qel::MplsHwSingletonConfig::kTypeName,
                 singletonConfig_);
  korba.entityIs(korba.cellPath(kSingletonStatusPath), Qel::MplsHwSingletonStatus::kTypeName,
                 singletonStatus_);
  korba.entityIs(korba.cellPath(kAdjSyncStatusPath), Qel::QelL3AdjSyncStatusExternal::kTypeName,
                 adjSyncStatus_);
  reactors_ = std::make_unique<Reactors>(this, *singletonConfig_);
}

PlatformStatus::~PlatformStatus() = default;

bool PlatformStatus::fecAllocatorAttach(Vosh::EntityManager& em) {
  if (allocatorStatus_) return true;
  if (!tableReadable(em, FecAllocatorStatus::kPath)) return false;
  allocatorStatus_ = Kiv::make<FecAllocatorStatus>(em, FecAllocatorStatus::kPath);
  allocatorReactors_ = std::make_unique<AllocatorReactors>(this, *allocatorStatus_);
  handleAdjSyncDone();
  return true;
}

// The agent compares the generation with its own before it trusts the flag,
// so the generation goes first.
void PlatformStatus::handleAdjSyncDone() {
  Qel::GenerationId latest = 0;
  allocatorStatus_->forEachAdjSyncDone([&latest](Qel::GenerationId g, const auto& done) {
    if (done.ready) latest = std::max(latest, g);
  });
  if (latest <= adjSyncStatus_->generation()) return;
  adjSyncStatus_->generationIs(latest);
  adjSyncStatus_->adjSyncDoneIs(true);
}

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
