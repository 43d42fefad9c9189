#pragma once

// A shared-memory prefix of a test's own, cleared before and after it, so
// that tests never see each other's tables nor what a crashed run left.

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "vosh/EntityManager.h"

namespace Sim {

class TestShmPrefix {
 public:
  TestShmPrefix() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    prefix_ = Vosh::EntityManager::defaultPrefix() + "-" + info->name();
    std::replace(prefix_.begin(), prefix_.end(), '/', '-');  // parameterised tests' names
    Vosh::EntityManager::removeAll(prefix_);
  }
  ~TestShmPrefix() { Vosh::EntityManager::removeAll(prefix_); }
  const std::string& str() const { return prefix_; }

 private:
  std::string prefix_;
};

}  // namespace Sim
