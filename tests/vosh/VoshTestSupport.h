#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "plin/TaskScheduler.h"
#include "vosh/EntityManager.h"
#include "vosh/SegmentName.h"

namespace VoshTest {

// A fixed record of 40 bytes, the size of a hardware route record. Every
// field follows from the key and the version, so a torn copy shows.
struct Route {
  uint64_t nextHop = 0;
  uint32_t label = 0;
  uint32_t version = 0;
  uint64_t check[3] = {};
  friend bool operator==(const Route&, const Route&) = default;
};
static_assert(sizeof(Route) == 40);

inline Route routeFor(uint64_t key, uint32_t version = 1) {
  Route r;
  r.nextHop = key * 7 + 1;
  r.label = static_cast<uint32_t>(key & 0xfffff);
  r.version = version;
  r.check[0] = r.check[1] = r.check[2] = key ^ version;
  return r;
}

// A serialized record of any length up to kMaxSerializedSize; one that begins
// with '!' reads back corrupt, as a damaged record would. Long ones do not
// fit in a slot and continue in its overflow cell.
struct Blob {
  static constexpr size_t kMaxSerializedSize = 324;
  std::string bytes;

  size_t serialize(std::byte* out) const {
    std::memcpy(out, bytes.data(), bytes.size());
    return bytes.size();
  }
  static bool deserialize(const std::byte* in, size_t length, Blob& out) {
    out.bytes.assign(reinterpret_cast<const char*>(in), length);
    return out.bytes.empty() || out.bytes[0] != '!';
  }
  friend bool operator==(const Blob&, const Blob&) = default;
};

// Keys [0, kBlobKeys) have blobs from 4 bytes to near the largest, 8 apart.
inline constexpr uint64_t kBlobKeys = 40;
inline Blob blobFor(uint64_t key) {
  return Blob{std::string(4 + 8 * key, static_cast<char>('a' + key % 26))};
}

using RouteTable = Vosh::Table<uint64_t, Route>;

// Whether keys [0, count) hold routeFor(key), and nothing else is there.
inline bool holdsRoutesUpTo(const RouteTable& routes, uint64_t count) {
  for (uint64_t k = 0; k < count; ++k) {
    if (routes.lookup(k) != routeFor(k)) return false;
  }
  return routes.size() == count;
}

inline void writeRoutes(RouteTable& routes, uint64_t from, uint64_t to) {
  for (uint64_t k = from; k < to; ++k) routes.set(k, routeFor(k));
}

// An entity manager with one path mounted, and its view of one collection.
struct Side {
  Kiv::Ptr<Vosh::EntityManager> em;
  Kiv::Ptr<RouteTable> routes;
};

// Segments of each test live under their own prefix, made from the one ctest
// gives the executable and the test's name, and are removed before and after.
class VoshFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    prefix_ = Vosh::EntityManager::defaultPrefix() + "_" + info->name();
    Vosh::EntityManager::removeAll(prefix_);
  }
  void TearDown() override { Vosh::EntityManager::removeAll(prefix_); }

  Kiv::Ptr<Vosh::EntityManager> manager() {
    return Kiv::make<Vosh::EntityManager>(prefix_, &scheduler_);
  }

  // The writer of `path`, viewing the first collection declared as routes.
  Side writer(const std::vector<Vosh::CollectionDecl>& decls = {{"route", 16}},
              const std::string& path = "hw/routes") {
    auto em = manager();
    em->mountWriter(path, decls);
    return {em, em->table<uint64_t, Route>(path, decls.front().name)};
  }

  Side reader(Vosh::MountType type = Vosh::mountTypeReader, const std::string& path = "hw/routes") {
    auto em = manager();
    em->mountReader(path, type);
    return {em, em->table<uint64_t, Route>(path, "route")};
  }

  // Keys notified by a reader, in order of delivery.
  template <class TablePtr>
  Kiv::Connection record(const TablePtr& table, std::vector<uint64_t>& into) {
    return table->onChange.connect([&into](uint64_t key) { into.push_back(key); });
  }

  // The generations of `path`'s segment that have a name now.
  std::vector<uint32_t> generationsPresent(const std::string& path = "hw/routes") {
    return Vosh::segmentGenerationsPresent(Vosh::segmentBaseName(prefix_, path));
  }

  std::string prefix_;
  Plin::TaskScheduler scheduler_;
};

}  // namespace VoshTest
