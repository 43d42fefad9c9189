#pragma once

// What the files of the core state machine's unit share: the trace levels of
// its facility (0 to 2 are recorded by default; the rest cost one branch each
// unless switched on) and the start-up stages by their short names.

#include "QelMpls/core/QelMplsState.h"

namespace Qel::MplsSmTrace {
using MplsSmStartupStatus::mplsSmNormal;
using MplsSmStartupStatus::mplsSmProcessingSyncMap;
using MplsSmStartupStatus::mplsSmUnknown;
using MplsSmStartupStatus::mplsSmWaitingForSyncMap;
using MplsSmStartupStatus::mplsSmWaitingForSyncResponses;

constexpr int kTraceAlert = 0;
constexpr int kTraceStartup = 1;
constexpr int kTraceAdj = 4;
constexpr int kTraceRoute = 6;
constexpr int kTraceViaSet = 7;
constexpr int kTraceDetail = 8;
constexpr int kTraceFunc = 9;
}  // namespace Qel::MplsSmTrace
