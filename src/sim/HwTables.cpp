#include "sim/HwTables.h"

#include "sim/FecAllocator.h"
#include "sim/HwDriver.h"
#include "sim/LfibProducer.h"

namespace Sim {

namespace {

template <class T>
Kiv::Ptr<T> mapIfPresent(Vosh::EntityManager& em, const char* path) {
  try {
    em.mountReader(path, Vosh::mountTypeSharedReader);
    return Kiv::make<T>(em, path);
  } catch (const Vosh::MountError&) {
    return nullptr;
  }
}

}  // namespace

HwTables::HwTables(const std::string& prefix, Plin::TaskScheduler* scheduler)
    : em_(Kiv::make<Vosh::EntityManager>(prefix, scheduler)),
      lfib_(mapIfPresent<Mpls::LfibStatus>(*em_, LfibProducer::kLfibPath)),
      config_(mapIfPresent<Vosh::Qel::MplsHwCollectionConfig>(*em_, HwDriver::kRouteConfigPath)),
      status_(mapIfPresent<Vosh::Qel::MplsHwCollectionStatus>(*em_, HwDriver::kRouteStatusPath)),
      requests_(mapIfPresent<Qel::FecIdToHwFecIdRequest>(*em_, FecAllocator::kRequestPath)),
      responses_(mapIfPresent<Qel::FecIdToHwFecIdResponse>(*em_, FecAllocator::kResponsePath)) {}

}  // namespace Sim
