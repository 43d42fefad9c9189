#pragma once

#include <string>

namespace BexoTest {

// The message of the `Exception` that `action` throws, or a marker that fails any comparison
// with a real message.
template <typename Exception, typename Action>
std::string thrownMessage(Action action) {
  try {
    action();
  } catch (const Exception& e) {
    return e.what();
  }
  return "<no exception>";
}

}  // namespace BexoTest
