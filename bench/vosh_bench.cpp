// Shared-memory table operations against std::unordered_map in process
// memory, and the rate at which a reader takes in and delivers changes.
//
// Each operation runs over a million keys (the scale the tables are built
// for, where every access misses the caches) and over ten thousand (where
// the table fits in them, which shows the cost of the code itself).
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
constexpr uint64_t kCachedEntries = 10'000;

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

// Spread 8-byte keys, visited in a shuffled order, as route keys would be:
// the first range(0) of a fixed shuffle of a million.
std::vector<uint64_t> keysFor(const benchmark::State& state) {
  static const std::vector<uint64_t> all = [] {
    std::vector<uint64_t> v(kEntries);
    for (uint64_t i = 0; i < kEntries; ++i) v[i] = (i + 1) * 0x9e3779b97f4a7c15ULL;
    std::shuffle(v.begin(), v.end(), std::mt19937_64(42));
    return v;
  }();
  return std::vector<uint64_t>(all.begin(), all.begin() + state.range(0));
}

std::string benchPrefix() { return "qbench" + std::to_string(getpid()); }

void perOp(benchmark::State& state, size_t opsPerIteration) {
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
  void fill(const std::vector<uint64_t>& keys, uint32_t version = 1) {
    for (uint64_t k : keys) routes->set(k, recordFor(k, version));
  }

  Plin::TaskScheduler scheduler;
  Kiv::Ptr<Vosh::EntityManager> writer;
  Kiv::Ptr<Vosh::EntityManager> readerManager;
  Kiv::Ptr<Vosh::Table<uint64_t, Record>> routes;
  Kiv::Ptr<Vosh::Table<uint64_t, Record>> reader;
};

void sizes(benchmark::internal::Benchmark* b) {
  b->Arg(kEntries)->Arg(kCachedEntries)->Unit(benchmark::kMicrosecond);
}

// Inserts into a table mounted with capacity `initial`: 1024 makes it grow
// through every doubling, the full count measures inserts alone.
void insert(benchmark::State& state, uint32_t initial) {
  std::vector<uint64_t> keys = keysFor(state);
  for (auto _ : state) {
    state.PauseTiming();
    {
      Tables t(initial ? initial : static_cast<uint32_t>(keys.size()));
      state.ResumeTiming();
      t.fill(keys);
      state.PauseTiming();
    }
    state.ResumeTiming();
  }
  perOp(state, keys.size());
}

void BM_VoshInsertGrowingFrom1024(benchmark::State& state) { insert(state, 1024); }
BENCHMARK(BM_VoshInsertGrowingFrom1024)->Apply(sizes);

void BM_VoshInsertPresized(benchmark::State& state) { insert(state, 0); }
BENCHMARK(BM_VoshInsertPresized)->Apply(sizes);

void BM_VoshUpdate(benchmark::State& state) {
  std::vector<uint64_t> keys = keysFor(state);
  Tables t(static_cast<uint32_t>(keys.size()));
  t.fill(keys);
  uint32_t version = 1;
  for (auto _ : state) t.fill(keys, ++version);
  perOp(state, keys.size());
}
BENCHMARK(BM_VoshUpdate)->Apply(sizes);

void BM_VoshLookup(benchmark::State& state) {
  std::vector<uint64_t> keys = keysFor(state);
  Tables t(static_cast<uint32_t>(keys.size()));
  t.fill(keys);
  for (auto _ : state) {
    for (uint64_t k : keys) benchmark::DoNotOptimize(t.routes->lookup(k));
  }
  perOp(state, keys.size());
}
BENCHMARK(BM_VoshLookup)->Apply(sizes);

void BM_VoshReaderLookup(benchmark::State& state) {
  std::vector<uint64_t> keys = keysFor(state);
  Tables t(static_cast<uint32_t>(keys.size()), true);
  t.fill(keys);
  t.scheduler.runUntilIdle();
  for (auto _ : state) {
    for (uint64_t k : keys) benchmark::DoNotOptimize(t.reader->lookup(k));
  }
  perOp(state, keys.size());
}
BENCHMARK(BM_VoshReaderLookup)->Apply(sizes);

void BM_VoshDelete(benchmark::State& state) {
  std::vector<uint64_t> keys = keysFor(state);
  Tables t(static_cast<uint32_t>(keys.size()));
  for (auto _ : state) {
    state.PauseTiming();
    t.fill(keys);
    state.ResumeTiming();
    for (uint64_t k : keys) t.routes->del(k);
  }
  perOp(state, keys.size());
}
BENCHMARK(BM_VoshDelete)->Apply(sizes);

void BM_UnorderedMapInsert(benchmark::State& state) {
  std::vector<uint64_t> keys = keysFor(state);
  for (auto _ : state) {
    state.PauseTiming();
    {
      std::unordered_map<uint64_t, Record> map;
      state.ResumeTiming();
      for (uint64_t k : keys) map[k] = recordFor(k, 1);
      state.PauseTiming();
    }
    state.ResumeTiming();
  }
  perOp(state, keys.size());
}
BENCHMARK(BM_UnorderedMapInsert)->Apply(sizes);

void BM_UnorderedMapUpdate(benchmark::State& state) {
  std::vector<uint64_t> keys = keysFor(state);
  std::unordered_map<uint64_t, Record> map;
  for (uint64_t k : keys) map[k] = recordFor(k, 1);
  uint32_t version = 1;
  for (auto _ : state) {
    ++version;
    for (uint64_t k : keys) map[k] = recordFor(k, version);
  }
  perOp(state, keys.size());
}
BENCHMARK(BM_UnorderedMapUpdate)->Apply(sizes);

void BM_UnorderedMapLookup(benchmark::State& state) {
  std::vector<uint64_t> keys = keysFor(state);
  std::unordered_map<uint64_t, Record> map;
  for (uint64_t k : keys) map[k] = recordFor(k, 1);
  for (auto _ : state) {
    for (uint64_t k : keys) {
      auto it = map.find(k);
      benchmark::DoNotOptimize(it == map.end() ? Record{} : it->second);
    }
  }
  perOp(state, keys.size());
}
BENCHMARK(BM_UnorderedMapLookup)->Apply(sizes);

void BM_UnorderedMapErase(benchmark::State& state) {
  std::vector<uint64_t> keys = keysFor(state);
  std::unordered_map<uint64_t, Record> map;
  for (auto _ : state) {
    state.PauseTiming();
    for (uint64_t k : keys) map[k] = recordFor(k, 1);
    state.ResumeTiming();
    for (uint64_t k : keys) map.erase(k);
  }
  perOp(state, keys.size());
}
BENCHMARK(BM_UnorderedMapErase)->Apply(sizes);

// Changes taken in and delivered per second by an in-process reader of a
// million-entry table: batches of range(0) rewritten keys. 50,000 fit in the
// change ring; a million overflow it and are found again by a rescan.
void BM_VoshReaderNotification(benchmark::State& state) {
  static const std::vector<uint64_t> all = [] {
    std::vector<uint64_t> v(kEntries);
    for (uint64_t i = 0; i < kEntries; ++i) v[i] = (i + 1) * 0x9e3779b97f4a7c15ULL;
    return v;
  }();
  const auto batch = static_cast<uint64_t>(state.range(0));
  Tables t(kEntries, true);
  t.fill(all);
  t.scheduler.runUntilIdle();
  uint64_t delivered = 0;
  auto c = t.reader->onChange.connect([&](uint64_t) { ++delivered; });
  uint32_t version = 1;
  for (auto _ : state) {
    state.PauseTiming();
    ++version;
    for (uint64_t i = 0; i < batch; ++i) t.routes->set(all[i], recordFor(all[i], version));
    state.ResumeTiming();
    t.scheduler.runUntilIdle();
  }
  if (delivered != batch * state.iterations()) state.SkipWithError("changes lost");
  state.counters["changes_per_s"] =
      benchmark::Counter(static_cast<double>(batch), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_VoshReaderNotification)->Arg(50'000)->Arg(kEntries)->Unit(benchmark::kMillisecond);

}  // namespace
