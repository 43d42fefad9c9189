#pragma once

#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "pellet/Handle.h"
#include "pellet/Level.h"

namespace Pellet {

struct FacilityState;

// The tracing identity of one component (a state machine traces under its own name) on one
// handle. Obtain it once, as a static or a member, and trace through PELLET_TRACE.
//
// The enabled levels are cached inside every Facility object, and the registry rewrites the
// cache whenever the configuration changes, so asking whether a level is on is one load and
// one branch, with no indirection and no lookup.
class Facility {
 public:
  Facility(Handle& handle, std::string_view name);
  Facility(const Facility& other);
  Facility& operator=(const Facility& other);
  ~Facility();

  bool on(int level) const { return (enabled_ >> level) & 1u; }

  const std::string& name() const;
  Handle& handle() const;

  // Formats into a stack buffer, so a message of ordinary length costs no allocation.
  template <typename... Args>
  void record(int level, fmt::format_string<Args...> format, Args&&... args) const {
    fmt::memory_buffer text;
    fmt::format_to(fmt::appender(text), format, std::forward<Args>(args)...);
    write(level, std::string_view(text.data(), text.size()));
  }

  // Stores an already formatted message: into the ring, onto stderr, into live captures,
  // as the configuration of this facility says.
  void write(int level, std::string_view message) const;

 private:
  friend class Registry;

  // Called by the registry whenever the configuration of this facility changes.
  void enabledIs(LevelMask enabled) { enabled_ = enabled; }
  void attach(FacilityState& state);
  void detach();

  LevelMask enabled_ = 0;
  FacilityState* state_ = nullptr;
};

}  // namespace Pellet

// Traces a message when `level` is on for `fac`. The format string is checked at compile time;
// the arguments are evaluated only when the level is on.
#define PELLET_TRACE(fac, level, format, ...)                               \
  do {                                                                      \
    if ((fac).on(level)) {                                                  \
      (fac).record((level), FMT_STRING(format) __VA_OPT__(, ) __VA_ARGS__); \
    }                                                                       \
  } while (0)
