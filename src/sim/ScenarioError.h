#pragma once

// A scenario file that cannot be played: where (file, line, the key as a
// path such as "routes[2].viaSet") and what was wrong, usually what was
// expected there. The tool prints it as "file:line: key: problem" (a file that
// cannot be read has no line: "file: problem").

#include <stdexcept>
#include <string>

namespace Sim {

class ScenarioError : public std::runtime_error {
 public:
  ScenarioError(std::string file, int line, std::string key, std::string problem);

  const std::string& file() const noexcept { return file_; }
  int line() const noexcept { return line_; }
  const std::string& key() const noexcept { return key_; }
  const std::string& problem() const noexcept { return problem_; }

 private:
  std::string file_;
  int line_;
  std::string key_;
  std::string problem_;
};

}  // namespace Sim
