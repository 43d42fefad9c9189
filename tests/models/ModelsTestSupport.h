#pragma once

#include <gtest/gtest.h>

#include <string>

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

}  // namespace ModelsTest
