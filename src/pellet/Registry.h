#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pellet/Handle.h"
#include "pellet/Level.h"

namespace Pellet {

class Capture;
class Facility;

// What the registry knows of one facility on one handle; shared by all Facility objects of
// that name on that handle.
struct FacilityState {
  Handle* handle;
  uint32_t id;
  std::string name;
  LevelMask recorded = defaultLevels;
  LevelMask echoed = 0;
  bool captured = false;
  std::vector<Facility*> instances;

  LevelMask enabled() const { return recorded | echoed | (captured ? allLevels : LevelMask{0}); }
};

// The process-wide tracing state: handles, facilities, their configuration, the clock and the
// live captures. Created on first use, when it reads QELMPLS_TRACE, and never destroyed, so
// static Facility objects may be torn down in any order at exit.
class Registry {
 public:
  static Registry& instance();

  Handle& handle(std::string_view name);
  Handle& initializeHandle(std::string_view name, const LevelSizes& kibPerLevel);

  FacilityState& facilityState(Handle& handle, std::string_view name);
  std::string_view facilityName(uint32_t id) const { return facilityNames_[id]; }

  // Sets the recorded levels of a facility ("*" for all, present and future); echo sends the
  // same levels to stderr as well.
  void enable(std::string_view facility, LevelMask levels, bool echo);
  // Adds recorded and echoed levels from a "Facility/levels,..." text. Bad items are reported
  // on `errors` and skipped.
  void configure(std::string_view settings, std::ostream& errors);

  void captureIs(Capture& capture);
  void captureDel(Capture& capture);

  void timeSourceIs(std::function<double()> timeSource);

  void write(const FacilityState& state, int level, std::string_view message);

  void dump(std::ostream& out) const;

 private:
  // A configuration step, replayed on facilities created later so that the order of calls,
  // not the order of creation, decides the outcome.
  struct Rule {
    std::string facility;
    LevelMask recorded;
    LevelMask echoed;
    bool additive;
  };

  Registry();

  uint32_t facilityId(std::string_view name);
  void addRule(Rule rule);
  static void apply(const Rule& rule, FacilityState& state);
  bool capturedByAny(std::string_view facility) const;
  static void publish(FacilityState& state);
  void recomputeCaptured();

  std::map<std::string, std::unique_ptr<Handle>, std::less<>> handles_;
  std::map<std::pair<std::string, std::string>, std::unique_ptr<FacilityState>> facilities_;
  std::deque<std::string> facilityNames_;
  std::map<std::string, uint32_t, std::less<>> facilityIds_;
  std::vector<Rule> rules_;
  std::vector<Capture*> captures_;
  std::function<double()> timeSource_;
  uint64_t nextSequence_ = 1;
};

}  // namespace Pellet
