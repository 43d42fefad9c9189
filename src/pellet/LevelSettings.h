#pragma once

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "pellet/Level.h"

namespace Pellet {

// One facility and the levels chosen for it; "*" names every facility.
struct LevelSetting {
  std::string facility;
  LevelMask levels;

  bool operator==(const LevelSetting&) const = default;
};

// Reads "Facility/levels,Facility2/levels", where levels are single levels and ranges
// separated by commas ("0-9", "0,3,5-7"). A bad item is reported on `errors` and skipped, the
// rest is still taken: a typo in a debugging setting must not stop the agent.
std::vector<LevelSetting> parseLevelSettings(std::string_view text, std::ostream& errors);

}  // namespace Pellet
