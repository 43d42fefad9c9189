#include "plin/NumAllocator.h"

#include "kiv/Assert.h"

namespace Plin {

namespace {
// Hold-back ends at most a 64th of the hold-back time late, and a wheel of
// twice that many slots keeps every held-back number within one turn.
constexpr double kTicksPerHoldBack = 64;
constexpr uint32_t kHoldBackSlots = 128;

double holdBackTick(double expirySeconds) {
   return expirySeconds > 0 ? expirySeconds / kTicksPerHoldBack : 1.0;
}
}  // namespace

NumAllocatorConfig::NumAllocatorConfig(Range range, double expirySeconds)
    : range_(range), expirySeconds_(expirySeconds) {
   KIV_ASSERT(range.valid());
   KIV_ASSERT(expirySeconds >= 0);
}

NumAllocator::NumAllocator(Kiv::Ptr<const NumAllocatorConfig> config,
                           Kiv::Ptr<NumAllocatorStatus> status, TaskScheduler* scheduler,
                           TaskPriority priority)
    : config_(std::move(config)),
      status_(std::move(status)),
      nextFresh_(config_->range().first),
      holdBack_(scheduler, priority, "Plin::NumAllocator-holdBack",
                holdBackTick(config_->expirySeconds()), kHoldBackSlots,
                [this](uint64_t n) { handleExpiry(n); }) {
   KIV_ASSERT(status_->allocateds() == 0 && status_->heldBacks() == 0 && status_->recycleds() == 0);
}

bool NumAllocator::seen(uint64_t n) const {
   return status_->allocatedHas(n) || status_->heldBackHas(n) || status_->recycledHas(n);
}

std::optional<uint64_t> NumAllocator::takeFresh() {
   while (freshLeft_) {
      uint64_t n = nextFresh_;
      if (n == config_->range().last) {
         freshLeft_ = false;
      } else {
         ++nextFresh_;
      }
      if (!seen(n)) return n;
   }
   return std::nullopt;
}

uint64_t NumAllocator::handOut(uint64_t n) {
   status_->allocatedIs(n);
   status_->allocationsInc();
   return n;
}

std::optional<uint64_t> NumAllocator::allocate() {
   if (std::optional<uint64_t> n = takeFresh()) return handOut(*n);
   if (const uint64_t* oldest = status_->recycledColl().front()) {
      uint64_t n = *oldest;
      status_->recycledDel(n);
      return handOut(n);
   }
   status_->exhaustionsInc();
   return std::nullopt;
}

bool NumAllocator::allocateSpecific(uint64_t n) {
   if (!config_->range().contains(n) || status_->allocatedHas(n)) return false;
   if (status_->heldBackHas(n)) {
      holdBack_.cancel(n);
      status_->heldBackDel(n);
   }
   status_->recycledDel(n);
   handOut(n);
   return true;
}

void NumAllocator::release(uint64_t n) {
   KIV_ASSERT(status_->allocatedHas(n));
   status_->allocatedDel(n);
   status_->releasesInc();
   if (config_->expirySeconds() <= 0) {
      status_->recycledIs(n);
      return;
   }
   status_->heldBackIs(n);
   holdBack_.add(n, config_->expirySeconds());
}

void NumAllocator::handleExpiry(uint64_t n) {
   status_->heldBackDel(n);
   status_->recycledIs(n);
}

}  // namespace Plin
