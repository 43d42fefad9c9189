#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "plin/TaskScheduler.h"
#include "vosh/EntityManager.h"
#include "vosh/SegmentName.h"

namespace VoshTest {

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

  // Keys notified by a reader, in order of delivery.
  template <class TablePtr>
  Kiv::Connection record(const TablePtr& table, std::vector<uint64_t>& into) {
    return table->onChange.connect([&into](uint64_t key) { into.push_back(key); });
  }

  std::string prefix_;
  Plin::TaskScheduler scheduler_;
};

}  // namespace VoshTest
