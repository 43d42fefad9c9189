// Cost of one PELLET_TRACE: at a level that is off (the common case in the agent's hot paths)
// and at a level that is recorded into its ring.
#include <benchmark/benchmark.h>

#include <cstdint>

#include "pellet/Trace.h"

namespace {

Pellet::Facility& benchFacility() {
  static Pellet::Facility fac(
      Pellet::initializeHandle("Bench", {64, 64, 64, 64, 64, 64, 64, 64, 64, 64}), "BenchSm");
  return fac;
}

void traceAtAnOffLevel(benchmark::State& state) {
  Pellet::Facility& fac = benchFacility();
  Pellet::enable("BenchSm", Pellet::defaultLevels, false);
  uint64_t key = 0;
  for (auto _ : state) {
    PELLET_TRACE(fac, 7, "route {} reviewed, adjacency {}", key, key + 1);
    benchmark::DoNotOptimize(++key);
  }
}
BENCHMARK(traceAtAnOffLevel);

void traceAtARecordedLevel(benchmark::State& state) {
  Pellet::Facility& fac = benchFacility();
  Pellet::enable("BenchSm", Pellet::defaultLevels, false);
  Pellet::timeSourceIs([] { return 0.0; });
  uint64_t key = 0;
  for (auto _ : state) {
    PELLET_TRACE(fac, 2, "route {} reviewed, adjacency {}", key, key + 1);
    benchmark::DoNotOptimize(++key);
  }
  Pellet::timeSourceIs(nullptr);
}
BENCHMARK(traceAtARecordedLevel);

void traceAtARecordedLevelWithTheRealClock(benchmark::State& state) {
  Pellet::Facility& fac = benchFacility();
  Pellet::enable("BenchSm", Pellet::defaultLevels, false);
  uint64_t key = 0;
  for (auto _ : state) {
    PELLET_TRACE(fac, 2, "route {} reviewed, adjacency {}", key, key + 1);
    benchmark::DoNotOptimize(++key);
  }
}
BENCHMARK(traceAtARecordedLevelWithTheRealClock);

}  // namespace
