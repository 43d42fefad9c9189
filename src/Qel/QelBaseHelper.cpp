#include "Qel/QelBaseHelper.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "kiv/Assert.h"

namespace Qel {

bool noopAgent() { return std::getenv("QEL_NOOP_AGENT") != nullptr; }

void QelBaseHelper::qelAssert(std::string_view message) const {
  std::fprintf(stderr, "%.*s\n", static_cast<int>(message.size()), message.data());
  Kiv::internalError(message, __FILE__, __LINE__);
}

}  // namespace Qel

namespace QelHelper {

RouteUpdateStatus MplsSmHelper::updateRoute(const Mpls::RouteKey&, Bexo::MplsLabelAction,
                                            Mpls::PayloadType, uint64_t&,
                                            Bexo::AddressingMethod) {
  if (Qel::noopAgent()) return routeUpdateSuccess;
  qelAssert("This function must be implemented by derived class");
}

void MplsSmHelper::deleteRoute(const Mpls::RouteKey&) {
  if (Qel::noopAgent()) return;
  qelAssert("This function must be implemented by derived class");
}

uint32_t MplsForwardingHelper::createOrUpdateMplsRoute(Bexo::MplsLabel, uint64_t&) {
  if (Qel::noopAgent()) return 2;
  qelAssert("Unimplemented createOrUpdateMplsRoute");
}

void MplsForwardingHelper::deleteMplsRoute(Bexo::MplsLabel) {
  if (Qel::noopAgent()) return;
  qelAssert("Unimplemented deleteMplsRoute");
}

}  // namespace QelHelper
