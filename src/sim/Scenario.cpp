#include "sim/Scenario.h"

namespace Sim {

Mpls::LfibViaKey ViaSetSpec::viaKey(uint32_t position) const {
  return Mpls::LfibViaKey(type, id * Mpls::kMaxViasPerSet + position);
}

void DriverConfig::apply(const DriverSpec& spec) {
  if (spec.routeCapacity) routeCapacity = *spec.routeCapacity;
  if (spec.l2AdjCapacity) l2AdjCapacity = *spec.l2AdjCapacity;
  if (spec.answerDelay) answerDelay = *spec.answerDelay;
  if (spec.answer) answer = *spec.answer;
  if (spec.failLabels) failLabels = *spec.failLabels;
}

}  // namespace Sim
