#include <gtest/gtest.h>

#include <stdlib.h>

#include <functional>
#include <string>
#include <utility>

#include "Qel/QelBaseHelper.h"
#include "kiv/Assert.h"

namespace {

using QelHelper::MplsForwardingHelper;
using QelHelper::MplsSmHelper;

const Mpls::RouteKey kRoute(Bexo::MplsLabel(100));

// The hook must stop the agent with its message as the failed condition and
// the same message, alone on its line, on stderr.
void expectRefusal(const std::function<void()>& hook, const std::string& message) {
  ::testing::internal::CaptureStderr();
  try {
    hook();
    ADD_FAILURE() << "the hook returned instead of stopping the agent";
  } catch (const Kiv::InternalError& e) {
    EXPECT_EQ(e.condition(), message);
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), message + "\n");
}

class DefaultHooks : public ::testing::Test {
 protected:
  void SetUp() override { unsetenv("QEL_NOOP_AGENT"); }
  void TearDown() override { unsetenv("QEL_NOOP_AGENT"); }
  MplsSmHelper smHelper{"platformSmHelper"};
  MplsForwardingHelper forwardingHelper{"platformForwardingHelper"};
  uint64_t value = 77;
};

TEST_F(DefaultHooks, stopTheAgentNamingTheMissingOverride) {
  const std::string derived = "This function must be implemented by derived class";
  const std::pair<std::function<void()>, std::string> hooks[] = {
      {[&] {
         smHelper.updateRoute(kRoute, Bexo::mplsActionSwap, Mpls::PayloadType::payloadMpls, value,
                              Bexo::AddressingMethod{});
       },
       derived},
      {[&] { smHelper.deleteRoute(kRoute); }, derived},
      {[&] { forwardingHelper.createOrUpdateMplsRoute(Bexo::MplsLabel(100), value); },
       "Unimplemented createOrUpdateMplsRoute"},
      {[&] { forwardingHelper.deleteMplsRoute(Bexo::MplsLabel(100)); },
       "Unimplemented deleteMplsRoute"},
  };
  for (const auto& [hook, message] : hooks) expectRefusal(hook, message);
}

// "QEL_NOOP_AGENT" counts as set whatever its value, empty included.
TEST_F(DefaultHooks, returnTheirNoOperationResultsSilentlyInANoOperationAgent) {
  for (const char* setting : {"", "0", "1"}) {
    setenv("QEL_NOOP_AGENT", setting, 1);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(smHelper.updateRoute(kRoute, Bexo::mplsActionSwap, Mpls::PayloadType::payloadMpls,
                                   value, Bexo::AddressingMethod{}),
              0u);
    EXPECT_EQ(forwardingHelper.createOrUpdateMplsRoute(Bexo::MplsLabel(100), value), 2u);
    EXPECT_NO_THROW(smHelper.deleteRoute(kRoute));
    EXPECT_NO_THROW(forwardingHelper.deleteMplsRoute(Bexo::MplsLabel(100)));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(value, 77u);
  }
}

}  // namespace
