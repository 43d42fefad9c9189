#pragma once

// What a run costs the process: wall and CPU time, the heap in use and the
// peak resident set. Read at a run's milestones, never in a loop.

#include <cstdint>

namespace Sim {

// Monotonic wall-clock seconds.
double wallSeconds();
// CPU seconds this process has used, all threads.
double cpuSeconds();
// Bytes the allocator has handed out and not taken back.
uint64_t heapBytesInUse();
// The largest resident set the process has had, shared memory it touched
// included.
uint64_t peakRssBytes();

// Wall and CPU time since construction.
struct Stopwatch {
  double wallStart = wallSeconds();
  double cpuStart = cpuSeconds();
  double wall() const { return wallSeconds() - wallStart; }
  double cpu() const { return cpuSeconds() - cpuStart; }
};

}  // namespace Sim
