#include "models/MplsHardwareStatus.h"

namespace Mpls::Hardware {

Kiv::Ptr<Adjacency> Status::adjacencyIs(uint64_t index) {
  if (auto existing = adjacency(index)) return existing;
  auto adj = Kiv::make<Adjacency>(index);
  adjacencyIs(index, adj);
  return adj;
}

Kiv::Ptr<L2Adjacency> Status::l2AdjacencyIs(uint64_t index) {
  if (auto existing = l2Adjacency(index)) return existing;
  auto adj = Kiv::make<L2Adjacency>(index);
  l2AdjacencyIs(index, adj);
  return adj;
}

}  // namespace Mpls::Hardware
