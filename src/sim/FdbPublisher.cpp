#include "sim/FdbPublisher.h"

namespace Sim {

FdbPublisher::FdbPublisher(Vosh::EntityManager& em) {
  em.mountWriter(kPath, Vosh::Bridging::Status::collections());
  table_ = Kiv::make<Vosh::Bridging::Status>(em, kPath);
  table_->hostEntryDelAll();
}

}  // namespace Sim
