#include "kiv/Assert.h"

#include <fmt/format.h>

namespace Kiv {

InternalError::InternalError(std::string condition, const char* file, int line)
    : std::logic_error(fmt::format("internal error: {} ({}:{})", condition, file, line)),
      condition_(std::move(condition)) {}

void internalError(std::string_view condition, const char* file, int line) {
   throw InternalError(std::string(condition), file, line);
}

}  // namespace Kiv
