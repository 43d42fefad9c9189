#include "pellet/Trace.h"

#include <fstream>
#include <iostream>
#include <utility>

#include "pellet/Registry.h"

namespace Pellet {

Handle& handle(std::string_view name) { return Registry::instance().handle(name); }

Handle& initializeHandle(std::string_view name, const LevelSizes& kibPerLevel) {
  return Registry::instance().initializeHandle(name, kibPerLevel);
}

void enable(std::string_view facility, LevelMask levels, bool echo) {
  Registry::instance().enable(facility, levels, echo);
}

void configure(std::string_view settings) { Registry::instance().configure(settings, std::cerr); }

void timeSourceIs(std::function<double()> timeSource) {
  Registry::instance().timeSourceIs(std::move(timeSource));
}

void dump(std::ostream& out) { Registry::instance().dump(out); }

bool dumpToFile(const std::string& path) {
  std::ofstream out(path);
  if (!out) return false;
  dump(out);
  out.close();
  return static_cast<bool>(out);
}

}  // namespace Pellet
