#pragma once

// The trace levels of the core state machine's facility, shared by the files
// of its unit. 0 to 2 are recorded by default; the rest cost one branch each
// unless switched on.

namespace Qel::MplsSmTrace {
constexpr int kTraceAlert = 0;
constexpr int kTraceStartup = 1;
constexpr int kTraceAdj = 4;
constexpr int kTraceRoute = 6;
constexpr int kTraceViaSet = 7;
constexpr int kTraceDetail = 8;
constexpr int kTraceFunc = 9;
}  // namespace Qel::MplsSmTrace
