#pragma once

// Tracing: named handles of per-level ring buffers, facilities that trace into them, and
// PELLET_TRACE to write a message.
//
//   Pellet::Handle& handle = Pellet::initializeHandle("Agent", {10, 10, 50, ...});
//   static Pellet::Facility fac(handle, "AgentSm");
//   PELLET_TRACE(fac, 3, "route {} bound to adjacency {}", key, index);
//
// Levels 0 to 2 are recorded by default. QELMPLS_TRACE="Facility/levels,..." ("*" for every
// facility, levels like "0-9" or "0,3,5-7") records the listed levels too and echoes them to
// stderr as "<time> <facility> <level> <message>". Everything retained can be dumped, merged
// across handles in the order it was traced.
//
// Single-threaded, like the agent that uses it: no call here takes a lock.

#include <functional>
#include <ostream>
#include <string>
#include <string_view>

#include "pellet/Capture.h"
#include "pellet/Facility.h"
#include "pellet/Handle.h"
#include "pellet/Level.h"

namespace Pellet {

// The handle of that name, created with defaultKibPerLevel if it does not exist yet.
Handle& handle(std::string_view name);

// The handle of that name with these ring sizes. A handle that already exists keeps the
// records of the levels whose size is unchanged.
Handle& initializeHandle(std::string_view name, const LevelSizes& kibPerLevel);

// Records exactly `levels` of `facility` ("*" for every facility, including later ones), and
// when `echo` is set also writes them to stderr. Overrides what was configured before.
void enable(std::string_view facility, LevelMask levels, bool echo);

// Adds the levels of a QELMPLS_TRACE-style text, recorded and echoed. Bad items are reported
// on stderr and skipped.
void configure(std::string_view settings);

// Where record times come from; monotonic seconds unless set. An empty function restores that.
// Set a virtual clock to make traces reproducible.
void timeSourceIs(std::function<double()> timeSource);

// Writes every retained record of every handle, in trace order, one per line:
// "<sequence> <time> <handle> <facility> <level> <message>".
void dump(std::ostream& out);
bool dumpToFile(const std::string& path);

}  // namespace Pellet
