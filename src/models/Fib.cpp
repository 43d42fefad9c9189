#include "models/Fib.h"

#include <fmt/format.h>

namespace Vosh::Fib {

std::string FecId::stringValue() const { return fmt::format("{:#018x}", value_); }

}  // namespace Vosh::Fib

namespace Qel {

std::string AdjSyncId::stringValue() const { return fmt::format("{}.{}", generation, sequence); }

}  // namespace Qel
