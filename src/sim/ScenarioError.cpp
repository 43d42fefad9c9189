#include "sim/ScenarioError.h"

#include <fmt/format.h>

namespace Sim {

namespace {
std::string describe(const std::string& file, int line, const std::string& key,
                     const std::string& problem) {
  if (line == 0) return fmt::format("{}: {}", file, problem);
  if (key.empty()) return fmt::format("{}:{}: {}", file, line, problem);
  return fmt::format("{}:{}: {}: {}", file, line, key, problem);
}
}  // namespace

ScenarioError::ScenarioError(std::string file, int line, std::string key, std::string problem)
    : std::runtime_error(describe(file, line, key, problem)),
      file_(std::move(file)),
      line_(line),
      key_(std::move(key)),
      problem_(std::move(problem)) {}

}  // namespace Sim
