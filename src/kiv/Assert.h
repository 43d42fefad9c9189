#pragma once
// Internal assertions. A broken invariant is not an input error: it stops the
// agent with the failed condition as text. The failure is raised as
// Kiv::InternalError so that the agent's top level can report it and exit, and
// so that tests can see it happen.

#include <stdexcept>
#include <string>
#include <string_view>

namespace Kiv {

class InternalError : public std::logic_error {
 public:
   InternalError(std::string condition, const char* file, int line);
   const std::string& condition() const noexcept { return condition_; }

 private:
   std::string condition_;
};

[[noreturn]] void internalError(std::string_view condition, const char* file, int line);

}  // namespace Kiv

#define KIV_ASSERT(cond) \
   ((cond) ? static_cast<void>(0) : ::Kiv::internalError(#cond, __FILE__, __LINE__))
// For conditions whose agreed text differs from how the check is spelled here.
#define KIV_ASSERT_TEXT(cond, text) \
   ((cond) ? static_cast<void>(0) : ::Kiv::internalError(text, __FILE__, __LINE__))
