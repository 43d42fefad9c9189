#include "pellet/Registry.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include <fmt/format.h>
#include <fmt/ostream.h>

#include "pellet/Capture.h"
#include "pellet/Facility.h"
#include "pellet/LevelSettings.h"

namespace Pellet {

namespace {

constexpr std::string_view everyFacility = "*";

double monotonicSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// One formatted write per line, so lines from this process never interleave mid-line.
void echo(const FacilityState& state, int level, double time, std::string_view message) {
  fmt::print(stderr, FMT_STRING("{:.6f} {} {} {}\n"), time, state.name, level, message);
}

}  // namespace

Registry& Registry::instance() {
  static Registry* const registry = new Registry();
  return *registry;
}

Registry::Registry() : timeSource_(monotonicSeconds) {
  if (const char* settings = std::getenv("QELMPLS_TRACE")) configure(settings, std::cerr);
}

Handle& Registry::handle(std::string_view name) {
  auto it = handles_.find(name);
  if (it == handles_.end()) {
    it = handles_.emplace(name, std::make_unique<Handle>(std::string(name), defaultKibPerLevel))
             .first;
  }
  return *it->second;
}

Handle& Registry::initializeHandle(std::string_view name, const LevelSizes& kibPerLevel) {
  auto it = handles_.find(name);
  if (it == handles_.end()) {
    it = handles_.emplace(name, std::make_unique<Handle>(std::string(name), kibPerLevel)).first;
  } else {
    it->second->kibPerLevelIs(kibPerLevel);
  }
  return *it->second;
}

FacilityState& Registry::facilityState(Handle& handle, std::string_view name) {
  auto key = std::make_pair(handle.name(), std::string(name));
  auto it = facilities_.find(key);
  if (it != facilities_.end()) return *it->second;

  auto state = std::make_unique<FacilityState>();
  state->handle = &handle;
  state->id = facilityId(name);
  state->name = std::string(name);
  state->captured = capturedByAny(name);
  for (const Rule& rule : rules_) apply(rule, *state);
  return *facilities_.emplace(std::move(key), std::move(state)).first->second;
}

uint32_t Registry::facilityId(std::string_view name) {
  auto it = facilityIds_.find(name);
  if (it != facilityIds_.end()) return it->second;
  const auto id = static_cast<uint32_t>(facilityNames_.size());
  facilityNames_.emplace_back(name);
  facilityIds_.emplace(name, id);
  return id;
}

void Registry::enable(std::string_view facility, LevelMask levels, bool echo) {
  levels &= allLevels;
  addRule(Rule{std::string(facility), levels, echo ? levels : LevelMask{0}, false});
}

void Registry::configure(std::string_view settings, std::ostream& errors) {
  for (const LevelSetting& setting : parseLevelSettings(settings, errors)) {
    addRule(Rule{setting.facility, setting.levels, setting.levels, true});
  }
}

// A rule that sets levels outright makes the earlier rules it covers irrelevant; dropping them
// keeps the list as short as the number of facilities ever configured.
void Registry::addRule(Rule rule) {
  if (!rule.additive) {
    std::erase_if(rules_, [&](const Rule& earlier) {
      return rule.facility == everyFacility || earlier.facility == rule.facility;
    });
  }
  for (auto& [key, state] : facilities_) {
    apply(rule, *state);
    publish(*state);
  }
  rules_.push_back(std::move(rule));
}

void Registry::apply(const Rule& rule, FacilityState& state) {
  if (rule.facility != everyFacility && rule.facility != state.name) return;
  if (rule.additive) {
    state.recorded |= rule.recorded;
    state.echoed |= rule.echoed;
  } else {
    state.recorded = rule.recorded;
    state.echoed = rule.echoed;
  }
}

void Registry::publish(FacilityState& state) {
  for (Facility* facility : state.instances) facility->enabledIs(state.enabled());
}

void Registry::captureIs(Capture& capture) {
  captures_.push_back(&capture);
  recomputeCaptured();
}

void Registry::captureDel(Capture& capture) {
  std::erase(captures_, &capture);
  recomputeCaptured();
}

bool Registry::capturedByAny(std::string_view facility) const {
  return std::any_of(captures_.begin(), captures_.end(),
                     [&](const Capture* capture) { return capture->wants(facility); });
}

void Registry::recomputeCaptured() {
  for (auto& [key, state] : facilities_) {
    state->captured = capturedByAny(state->name);
    publish(*state);
  }
}

void Registry::timeSourceIs(std::function<double()> timeSource) {
  timeSource_ = timeSource ? std::move(timeSource) : std::function<double()>(monotonicSeconds);
}

void Registry::write(const FacilityState& state, int level, std::string_view message) {
  const LevelMask bit = levelBit(level);
  const uint64_t sequence = nextSequence_++;
  const double time = timeSource_();
  if (state.recorded & bit) state.handle->append(level, sequence, time, state.id, message);
  if (state.echoed & bit) echo(state, level, time, message);
  if (!state.captured) return;
  for (Capture* capture : captures_) {
    if (capture->wants(state.name)) capture->collect(state.name, level, message);
  }
}

void Registry::dump(std::ostream& out) const {
  struct Line {
    const Handle* handle;
    Record record;
  };
  std::vector<Line> lines;
  for (const auto& [name, handle] : handles_) {
    for (Record& record : handle->records()) lines.push_back(Line{handle.get(), std::move(record)});
  }
  std::sort(lines.begin(), lines.end(),
            [](const Line& a, const Line& b) { return a.record.sequence < b.record.sequence; });
  for (const Line& line : lines) {
    const Record& r = line.record;
    fmt::print(out, FMT_STRING("{} {:.6f} {} {} {} {}\n"), r.sequence, r.time, line.handle->name(),
               r.facility, r.level, r.message);
  }
}

}  // namespace Pellet
