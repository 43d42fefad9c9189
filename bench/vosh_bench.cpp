// Shared-memory table operations against std::unordered_map in process
// memory, and the rate at which a reader takes in and delivers changes.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "plin/TaskScheduler.h"
#include "vosh/EntityManager.h"

namespace {

constexpr uint64_t kEntries = 1'000'000;

// 40 bytes, the size of a hardware route record.
struct Record {
  uint64_t nextHop = 0;
  uint32_t label = 0;
  uint32_t version = 0;
  uint64_t extra[3] = {};
};
static_assert(sizeof(Record) == 40);

Record recordFor(uint64_t key, uint32_t version) {
  Record r;
  r.nextHop = key;
  r.label = static_cast<uint32_t>(key);
  r.version = version;
  return r;
}

// Spread keys, visited in a shuffled order, as route keys would be.
const std::vector<uint64_t>& keys() {
  static const std::vector<uint64_t> k = [] {
    std::vector<uint64_t> v(kEntries);
    for (uint64_t i = 0; i < kEntries; ++i) v[i] = (i + 1) * 0x9e3779b97f4a7c15ULL;
    std::shuffle(v.begin(), v.end(), std::mt19937_64(42));
    return v;
  }();
  return k;
}

std::string benchPrefix() { return "qbench" + std::to_string(getpid()); }

void perOp(benchmark::State& state, uint64_t opsPerIteration) {
  state.counters["per_op"] = benchmark::Counter(
      static_cast<double>(opsPerIteration),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

struct Tables {
  explicit Tables(uint32_t capacity, bool withReader = false)
      : writer(Kiv::make<Vosh::EntityManager>(benchPrefix(), &scheduler)) {
    writer->mountWriter("bench", {{"route", capacity}});
    routes = writer->table<uint64_t, Record>("bench", "route");
    if (!withReader) return;
    readerManager = Kiv::make<Vosh::EntityManager>(benchPrefix(), &scheduler);
    readerManager->mountReader("bench", Vosh::mountTypeReader);
    reader = readerManager->table<uint64_t, Record>("bench", "route");
  }
  ~Tables() {
    reader = nullptr;
    routes = nullptr;
    readerManager = nullptr;
    writer = nullptr;
    Vosh::EntityManager::removeAll(benchPrefix());
  }
  void fill(uint32_t version = 1) {
    for (uint64_t k : keys()) routes->set(k, recordFor(k, version));
  }

  Plin::TaskScheduler scheduler;
  Kiv::Ptr<Vosh::EntityManager> writer;
  Kiv::Ptr<Vosh::EntityManager> readerManager;
  Kiv::Ptr<Vosh::Table<uint64_t, Record>> routes;
  Kiv::Ptr<Vosh::Table<uint64_t, Record>> reader;
};

void BM_VoshInsertGrowingFrom1024(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    {
      Tables t(1024);
      state.ResumeTiming();
      t.fill();
      state.PauseTiming();
    }
    state.ResumeTiming();
  }
  perOp(state, kEntries);
}
BENCHMARK(BM_VoshInsertGrowingFrom1024)->Unit(benchmark::kMillisecond);

void BM_VoshInsertPresized(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    {
      Tables t(kEntries);
      state.ResumeTiming();
      t.fill();
      state.PauseTiming();
    }
    state.ResumeTiming();
  }
  perOp(state, kEntries);
}
BENCHMARK(BM_VoshInsertPresized)->Unit(benchmark::kMillisecond);

void BM_VoshUpdate(benchmark::State& state) {
  Tables t(kEntries);
  t.fill();
  uint32_t version = 1;
  for (auto _ : state) t.fill(++version);
  perOp(state, kEntries);
}
BENCHMARK(BM_VoshUpdate)->Unit(benchmark::kMillisecond);

void BM_VoshLookup(benchmark::State& state) {
  Tables t(kEntries);
  t.fill();
  for (auto _ : state) {
    for (uint64_t k : keys()) benchmark::DoNotOptimize(t.routes->lookup(k));
  }
  perOp(state, kEntries);
}
BENCHMARK(BM_VoshLookup)->Unit(benchmark::kMillisecond);

void BM_VoshReaderLookup(benchmark::State& state) {
  Tables t(kEntries, true);
  t.fill();
  t.scheduler.runUntilIdle();
  for (auto _ : state) {
    for (uint64_t k : keys()) benchmark::DoNotOptimize(t.reader->lookup(k));
  }
  perOp(state, kEntries);
}
BENCHMARK(BM_VoshReaderLookup)->Unit(benchmark::kMillisecond);

void BM_VoshDelete(benchmark::State& state) {
  Tables t(kEntries);
  for (auto _ : state) {
    state.PauseTiming();
    t.fill();
    state.ResumeTiming();
    for (uint64_t k : keys()) t.routes->del(k);
  }
  perOp(state, kEntries);
}
BENCHMARK(BM_VoshDelete)->Unit(benchmark::kMillisecond);

void BM_UnorderedMapInsert(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    {
      std::unordered_map<uint64_t, Record> map;
      state.ResumeTiming();
      for (uint64_t k : keys()) map[k] = recordFor(k, 1);
      state.PauseTiming();
    }
    state.ResumeTiming();
  }
  perOp(state, kEntries);
}
BENCHMARK(BM_UnorderedMapInsert)->Unit(benchmark::kMillisecond);

void BM_UnorderedMapUpdate(benchmark::State& state) {
  std::unordered_map<uint64_t, Record> map;
  for (uint64_t k : keys()) map[k] = recordFor(k, 1);
  uint32_t version = 1;
  for (auto _ : state) {
    ++version;
    for (uint64_t k : keys()) map[k] = recordFor(k, version);
  }
  perOp(state, kEntries);
}
BENCHMARK(BM_UnorderedMapUpdate)->Unit(benchmark::kMillisecond);

void BM_UnorderedMapLookup(benchmark::State& state) {
  std::unordered_map<uint64_t, Record> map;
  for (uint64_t k : keys()) map[k] = recordFor(k, 1);
  for (auto _ : state) {
    for (uint64_t k : keys()) {
      auto it = map.find(k);
      benchmark::DoNotOptimize(it == map.end() ? Record{} : it->second);
    }
  }
  perOp(state, kEntries);
}
BENCHMARK(BM_UnorderedMapLookup)->Unit(benchmark::kMillisecond);

void BM_UnorderedMapErase(benchmark::State& state) {
  std::unordered_map<uint64_t, Record> map;
  for (auto _ : state) {
    state.PauseTiming();
    for (uint64_t k : keys()) map[k] = recordFor(k, 1);
    state.ResumeTiming();
    for (uint64_t k : keys()) map.erase(k);
  }
  perOp(state, kEntries);
}
BENCHMARK(BM_UnorderedMapErase)->Unit(benchmark::kMillisecond);

// Changes taken in and delivered per second by an in-process reader: batches
// within the change ring (range 0), and a million changes at once, which
// overflow the ring and are found again by a rescan (range 1).
void BM_VoshReaderNotification(benchmark::State& state) {
  const uint64_t batch = state.range(0) ? kEntries : 50'000;
  Tables t(kEntries, true);
  t.fill();
  t.scheduler.runUntilIdle();
  uint64_t delivered = 0;
  auto c = t.reader->onChange.connect([&](uint64_t) { ++delivered; });
  uint32_t version = 1;
  for (auto _ : state) {
    state.PauseTiming();
    ++version;
    for (uint64_t i = 0; i < batch; ++i) t.routes->set(keys()[i], recordFor(keys()[i], version));
    state.ResumeTiming();
    t.scheduler.runUntilIdle();
  }
  if (delivered != batch * state.iterations()) state.SkipWithError("changes lost");
  state.counters["changes_per_s"] =
      benchmark::Counter(static_cast<double>(batch), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_VoshReaderNotification)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
