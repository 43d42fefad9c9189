#include "sim/ResourceUsage.h"

#include <malloc.h>
#include <sys/resource.h>
#include <time.h>

namespace Sim {

namespace {

double secondsOf(clockid_t clock) {
  timespec ts{};
  clock_gettime(clock, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

}  // namespace

double wallSeconds() { return secondsOf(CLOCK_MONOTONIC); }

double cpuSeconds() { return secondsOf(CLOCK_PROCESS_CPUTIME_ID); }

uint64_t heapBytesInUse() {
  struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

uint64_t peakRssBytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<uint64_t>(usage.ru_maxrss) * 1024;
}

}  // namespace Sim
