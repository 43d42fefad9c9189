#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kiv/DirectMap.h"
#include "models/VoshTables.h"
#include "plin/TaskScheduler.h"
#include "vosh/EntityManager.h"

namespace ModelsTest {

// Shared-memory segments of each test live under their own prefix, made from
// the one ctest gives the executable and the test's name, and are removed
// before and after. The table's writer and its reader hold separate entity
// managers, as two processes would.
class ShmFixture : public ::testing::Test {
 protected:
  ShmFixture()
      : prefix(Vosh::EntityManager::defaultPrefix() + "_" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name()) {
    Vosh::EntityManager::removeAll(prefix);
    writerShm = Kiv::make<Vosh::EntityManager>(prefix, &scheduler);
    readerShm = Kiv::make<Vosh::EntityManager>(prefix, &scheduler);
  }
  ~ShmFixture() override {
    readerShm = nullptr;
    writerShm = nullptr;
    Vosh::EntityManager::removeAll(prefix);
  }
  // Lets the reader's views take in what the writer wrote.
  void deliver() { scheduler.runUntilIdle(); }

  std::string prefix;
  Plin::TaskScheduler scheduler;
  Kiv::Ptr<Vosh::EntityManager> writerShm;
  Kiv::Ptr<Vosh::EntityManager> readerShm;
};

// The LFIB producer writes the transit LFIB; `lfib` is its consumer's reading view.
class LfibFixture : public ShmFixture {
 protected:
  static constexpr const char* kLfibPath = "mpls/transitLfib";
  LfibFixture() {
    writerShm->mountWriter(kLfibPath, Mpls::LfibStatus::collections());
    producer = Kiv::make<Mpls::LfibStatus>(*writerShm, kLfibPath);
    readerShm->mountReader(kLfibPath, Vosh::mountTypeSharedReader);
    lfib = Kiv::make<Mpls::LfibStatus>(*readerShm, kLfibPath);
  }
  Kiv::Ptr<Mpls::LfibStatus> producer;
  Kiv::Ptr<Mpls::LfibStatus> lfib;
};

// Keys kept by number in the route-sized maps: each of `keys` must keep a value of its own.
template <typename Key>
void expectKeyMapKeepsApart(const std::vector<Key>& keys) {
  Kiv::KeyMap<Key, size_t> map;
  for (size_t i = 0; i < keys.size(); ++i) map.insert(keys[i], i);
  EXPECT_EQ(map.size(), keys.size());
  for (size_t i = 0; i < keys.size(); ++i) EXPECT_EQ(*map.find(keys[i]), i);
}

}  // namespace ModelsTest
