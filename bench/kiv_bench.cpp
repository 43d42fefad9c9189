// Costs of the runtime's hot paths: notifying a watcher of a collection
// change, and dispatching a task through the scheduler.

#include <benchmark/benchmark.h>

#include "kiv/Entity.h"
#include "plin/TaskScheduler.h"

namespace {

struct Table : Kiv::Entity {
  KIV_COLL(uint64_t, uint64_t, entry, Entry)
};

void notificationDispatch(benchmark::State& state) {
  auto table = Kiv::make<Table>();
  uint64_t seen = 0;
  Kiv::Connection c = table->onEntry.connect([&seen](uint64_t k) { seen += k; });
  uint64_t i = 0;
  for (auto _ : state) {
    ++i;
    table->entryIs(i & 1023, i);
  }
  benchmark::DoNotOptimize(seen);
}
BENCHMARK(notificationDispatch);

void taskDispatch(benchmark::State& state) {
  Plin::TaskScheduler scheduler;
  uint64_t runs = 0;
  Plin::Task task(&scheduler, 2, "bench", [&runs] { ++runs; });
  for (auto _ : state) {
    task.scheduleNow();
    scheduler.runUntilIdle();
  }
  benchmark::DoNotOptimize(runs);
}
BENCHMARK(taskDispatch);

void hashMapInsertErase(benchmark::State& state) {
  Kiv::HashMap<uint64_t, uint64_t> map;
  uint64_t i = 0;
  for (auto _ : state) {
    map.insert(i, i);
    if (i >= 1024) map.erase(i - 1024);
    ++i;
  }
}
BENCHMARK(hashMapInsertErase);

}  // namespace
