#pragma once

// What an agent programmed, gathered into plain rows for the tool's table,
// its JSON output and the scenario's expectations.
//
// Inside the simulating process a route's state and reason are the ones the
// library published (the MPLS hardware routing status), and the counters and
// start-up record come from the core. From another process only the shared-
// memory tables can be read: a route's state is then the driver's answer to
// the record's current version, and "pending" while it has not answered.
// Either way the adjacency and the resolved vias are read from the hardware
// tables, so what is shown is what the hardware was asked to hold.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "models/Fib.h"
#include "models/MplsHardwareL2Via.h"
#include "models/MplsRouteKey.h"
#include "sim/RunTiming.h"
#include "sim/HwTables.h"

namespace Sim {

class SimSwitch;

struct RouteRow {
  Mpls::RouteKey key;
  bool inLfib = false;
  // programmed, unprogrammed, pending (not answered or not published yet).
  std::string state;
  std::string reason;
  uint64_t l3Adjacency = 0;
  bool inHardware = false;
  std::string adjacencyIdType;
  uint64_t adjacencyId = 0;
  uint32_t version = 0;
  // The FEC whose hardware id the record points at (mediated mode), 0 if none.
  uint64_t fecId = 0;
  std::vector<Mpls::Hardware::L2Via> vias;

  // The hardware record points at a hardware FEC id (adjacencyId) rather
  // than at a layer-2 record.
  bool pointsAtHwFec() const { return inHardware && adjacencyIdType == kHwFecIdType; }
  static constexpr std::string_view kHwFecIdType = "adjIdTypeHardware";
};

// A FEC the agent requested or another owner created, with the allocator's
// answer and the route records pointing at its hardware id.
struct FecRow {
  uint64_t fecId = 0;
  // Absent until answered.
  std::optional<uint64_t> hwFecId;
  bool external = false;
  uint64_t backupFecId = 0;
  std::vector<Vosh::Fib::FecVia> vias;
  uint64_t routes = 0;
};

struct L2Row {
  uint64_t id = 0;
  uint32_t version = 0;
  // The driver's answer to this version: programmed, unprogrammed or pending.
  std::string state;
  uint64_t routes = 0;
  std::vector<Mpls::Hardware::L2Via> vias;
};

struct LogRow {
  double time = 0;
  std::string name;
  std::string text;
};

struct Report {
  double endTime = 0;
  std::vector<RouteRow> routes;
  std::vector<L2Row> l2Adjacencies;
  std::vector<FecRow> fecs;
  uint64_t programmed = 0;
  uint64_t unprogrammed = 0;
  uint64_t pending = 0;
  // Layer-2 records no route record points at.
  uint64_t orphanL2Adjacencies = 0;
  std::string startupStage;
  // Stage name and seconds spent in it, in stage order.
  std::vector<std::pair<std::string, double>> startupTimes;
  std::vector<LogRow> logs;
  std::vector<std::pair<std::string, uint64_t>> counters;
  // Set by whoever ran the simulation and measured it.
  std::optional<RunTiming> timing;
};

// The counters a report may carry, which a scenario's expectations name.
bool isReportCounter(std::string_view name);
std::string reportCounterList();

// The final state of a simulation, with the library's published view; times
// are counted from `origin` on the simulation's clock.
Report reportOf(const SimSwitch& sim, double origin);
// What the shared-memory tables of a prefix hold.
Report reportOf(const HwTables& tables);

}  // namespace Sim
