#include "sim/Scenario.h"

namespace Sim {

Mpls::LfibViaKey ViaSetSpec::viaKey(uint32_t position) const {
  return Mpls::LfibViaKey(type, id * Mpls::kMaxViasPerSet + position);
}

void DriverConfig::apply(const DriverSpec& given) {
  if (given.routeCapacity) routeCapacity = *given.routeCapacity;
  if (given.l2AdjCapacity) l2AdjCapacity = *given.l2AdjCapacity;
  if (given.answerDelay) answerDelay = *given.answerDelay;
  if (given.answer) answer = *given.answer;
  if (given.failLabels) failLabels = *given.failLabels;
}

void FecAllocatorConfig::apply(const FecAllocatorSpec& given) {
  if (given.answerDelay) answerDelay = *given.answerDelay;
  if (given.answer) answer = *given.answer;
  if (given.capacity) capacity = *given.capacity;
}

}  // namespace Sim
