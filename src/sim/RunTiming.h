#pragma once

#include <cstdint>

namespace Sim {

// What a run cost. `load` is writing the inputs (the tool adds its parsing);
// `converge` runs from the agent's start, with the LFIB fully written, until
// the switch settled after the last step: every route programmed or
// unprogrammed for a reason, and published. The heap figures bracket the same
// span, so their difference is what the agent (and the in-process driver's
// record of the hardware) keeps.
struct RunTiming {
  double loadSeconds = 0;
  double convergeSeconds = 0;
  double convergeCpuSeconds = 0;
  uint64_t heapBytesAtStart = 0;
  uint64_t heapBytesAtEnd = 0;
  uint64_t peakRssBytes = 0;
  uint64_t routes = 0;

  double heapBytesPerRoute() const {
    if (routes == 0 || heapBytesAtEnd < heapBytesAtStart) return 0;
    return static_cast<double>(heapBytesAtEnd - heapBytesAtStart) / static_cast<double>(routes);
  }
};

}  // namespace Sim
