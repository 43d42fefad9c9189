#pragma once

#include <array>
#include <cstdint>

namespace Pellet {

// Levels run from 0 (rare, important) to 9 (chatty). A set of levels is a 10-bit mask.
inline constexpr int levelCount = 10;

using LevelMask = uint16_t;

inline constexpr LevelMask allLevels = (1u << levelCount) - 1;

// Levels 0 to 2 are cheap enough to keep in the rings all the time, so a problem seen in the
// field has some history behind it without anyone having turned tracing on.
inline constexpr LevelMask defaultLevels = 0b111;

constexpr LevelMask levelBit(int level) { return static_cast<LevelMask>(1u << level); }

// Ring sizes of one handle, in KiB, indexed by level.
using LevelSizes = std::array<uint32_t, levelCount>;

inline constexpr LevelSizes defaultKibPerLevel = {16, 16, 16, 16, 16, 16, 16, 16, 16, 16};

}  // namespace Pellet
