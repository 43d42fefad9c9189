#include "sim/Report.h"

#include <algorithm>
#include <map>

#include "QelMpls/core/QelMplsSm.h"
#include "models/MplsHardwareStatus.h"
#include "kiv/HashMap.h"
#include "sim/SimSwitch.h"

namespace Sim {

namespace {

using Vosh::Qel::MplsHwL2AdjacencyId;

constexpr const char* kHwMplsStatusPath = "routing/hardware/mpls/status";

constexpr std::string_view kCounterNames[] = {
    "routes", "l3Adjacencies", "l2Adjacencies", "nextHops", "unprogrammedRoutes",
    "routeKeyReviewed", "routeKeyPublished", "l3AdjReviewed", "l2AdjReviewed", "l2AdjDeleted",
    "unprogRouteRetried", "reviewCount", "driverRouteAnswers", "driverRoutesRefused",
    "driverL2Answers", "driverL2Refused", "driverStatusDeleted", "hardwareRoutes",
    "hardwareL2Adjacencies", "hwRouteDeletes", "hwRouteRepoints", "hwL2Deletes", "fecRequests",
    "fecAnswers", "hwFecIdsGranted", "proactiveArpRequests", "proactiveArpUnresolved",
    "agentStarts"};

// The FEC ids of the hardware ids the allocator granted.
using FecOfHwId = Kiv::HashMap<uint64_t, uint64_t>;

FecOfHwId fecOfHwId(const HwTables& tables) {
  FecOfHwId out;
  if (!tables.responses()) return out;
  tables.responses()->forEachHwFecId(
      [&out](const Vosh::Fib::FecId& fecId, const Qel::HwFecIdResponse& response) {
        if (response.hwFecIdValid()) out.insert(response.hwFecId, fecId.value());
      });
  return out;
}

std::string reasonName(uint32_t reason) {
  return std::string(Qel::stringValue(static_cast<Qel::UnprogrammedReason>(reason)));
}

// The driver's reasons are the first of the library's.
std::string driverReasonName(Vosh::Qel::MplsHwRouteUnprogrammedReason reason) {
  return reasonName(static_cast<uint32_t>(reason));
}

std::vector<Mpls::RouteKey> sortedUnique(std::vector<Mpls::RouteKey> keys) {
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  return keys;
}

std::vector<Mpls::Hardware::L2Via> viasOf(const Vosh::Qel::MplsHwL2AdjacencyConfig& config) {
  std::vector<Mpls::Hardware::L2Via> vias;
  for (uint32_t i = 0; i < config.l2Vias(); ++i) {
    vias.push_back(config.l2Via(Vosh::Qel::MplsHwL2ViaIndex(i)));
  }
  return vias;
}

// The adjacency and vias of a route's hardware record, and the driver's
// answer to it.
void fillFromHardware(const HwTables& tables, const FecOfHwId& fecs, RouteRow& row) {
  if (!tables.config() || !tables.config()->mplsHwRouteHas(row.key)) return;
  Vosh::Qel::MplsHwRouteConfig config = tables.config()->mplsHwRoute(row.key);
  row.inHardware = true;
  row.adjacencyIdType = std::string(Vosh::Qel::stringValue(config.adjacencyIdType));
  row.adjacencyId = config.adjacencyId;
  row.version = config.version;
  MplsHwL2AdjacencyId l2 = config.l2AdjId();
  if (l2 != Vosh::Qel::kAllOnes) row.vias = viasOf(tables.config()->l2Adjacency(l2));
  if (const uint64_t* fecId = fecs.find(config.hwFecId())) row.fecId = *fecId;
}

void describeFec(const HwTables& tables, const Vosh::Fib::FecId& fecId, FecRow& row) {
  Vosh::Fib::Fec fec = tables.requests()->fec(fecId);
  if (!fec) fec = tables.requests()->fec6(fecId);
  row.backupFecId = fec.backupFecId.value();
  row.vias.assign(fec.via.begin(), fec.via.begin() + fec.viaCount);
}

std::vector<FecRow> fecRows(const HwTables& tables) {
  std::map<uint64_t, FecRow> rows;
  if (tables.requests()) {
    tables.requests()->forEachHwFecIdRequest(
        [&](const Vosh::Fib::FecId& fecId, const Qel::HwFecIdRequest&) {
          FecRow& row = rows[fecId.value()];
          row.fecId = fecId.value();
          describeFec(tables, fecId, row);
        });
  }
  if (tables.responses()) {
    tables.responses()->forEachHwFecId(
        [&](const Vosh::Fib::FecId& fecId, const Qel::HwFecIdResponse& response) {
          FecRow& row = rows[fecId.value()];
          row.fecId = fecId.value();
          row.external = !response.request;
          if (response.hwFecIdValid()) row.hwFecId = response.hwFecId;
        });
  }
  std::map<uint64_t, uint64_t> users;
  if (tables.config()) {
    tables.config()->forEachMplsHwRoute(
        [&users](const Mpls::RouteKey&, const Vosh::Qel::MplsHwRouteConfig& config) {
          if (config.hwFecId() != Vosh::Qel::kAllOnes) ++users[config.hwFecId()];
        });
  }
  std::vector<FecRow> out;
  for (auto& [fecId, row] : rows) {
    if (row.hwFecId) row.routes = users[*row.hwFecId];
    out.push_back(std::move(row));
  }
  return out;
}

void fillDriverState(const HwTables& tables, RouteRow& row) {
  row.state = "pending";
  if (!row.inHardware || !tables.status()) return;
  Vosh::Qel::MplsHwRouteStatus status = tables.status()->mplsHwRoute(row.key);
  if (!status || status.version != row.version) return;
  if (status.state == Vosh::Qel::mplsHwRouteStateProgrammed) {
    row.state = "programmed";
  } else if (status.state == Vosh::Qel::mplsHwRouteStateUnprogrammed) {
    row.state = "unprogrammed";
    row.reason = driverReasonName(status.reason);
  }
}

std::vector<L2Row> l2Rows(const HwTables& tables, uint64_t& orphans) {
  std::vector<L2Row> rows;
  orphans = 0;
  if (!tables.config()) return rows;
  std::map<MplsHwL2AdjacencyId, uint64_t> users;
  tables.config()->forEachMplsHwRoute(
      [&users](const Mpls::RouteKey&, const Vosh::Qel::MplsHwRouteConfig& config) {
        if (config.l2AdjId() != Vosh::Qel::kAllOnes) ++users[config.l2AdjId()];
      });
  tables.config()->forEachL2Adjacency([&](MplsHwL2AdjacencyId id,
                                          const Vosh::Qel::MplsHwL2AdjacencyConfig& config) {
    L2Row row;
    row.id = id;
    row.version = config.version();
    row.vias = viasOf(config);
    auto used = users.find(id);
    row.routes = used == users.end() ? 0 : used->second;
    if (row.routes == 0) ++orphans;
    row.state = "pending";
    Vosh::Qel::MplsHwL2AdjacencyStatus status =
        tables.status() ? tables.status()->l2Adjacency(id) : Vosh::Qel::MplsHwL2AdjacencyStatus{};
    if (status && status.version == row.version) {
      row.state =
          status.state == Vosh::Qel::mplsHwL2AdjStateProgrammed ? "programmed" : "unprogrammed";
    }
    rows.push_back(std::move(row));
  });
  std::sort(rows.begin(), rows.end(), [](const L2Row& a, const L2Row& b) { return a.id < b.id; });
  return rows;
}

std::vector<Mpls::RouteKey> tableKeys(const HwTables& tables) {
  std::vector<Mpls::RouteKey> keys;
  if (tables.lfib()) {
    tables.lfib()->forEachRoute(
        [&keys](const Mpls::RouteKey& k, const Mpls::LfibRoute&) { keys.push_back(k); });
  }
  if (tables.config()) {
    tables.config()->forEachMplsHwRoute(
        [&keys](const Mpls::RouteKey& k, const auto&) { keys.push_back(k); });
  }
  return keys;
}

void countStates(Report& report) {
  for (const RouteRow& row : report.routes) {
    if (row.state == "programmed") ++report.programmed;
    if (row.state == "unprogrammed") ++report.unprogrammed;
    if (row.state == "pending") ++report.pending;
  }
}

void addCoreCounters(const Qel::MplsBaseSm& core, Report& report) {
  const Qel::MplsState& s = *core.mplsState();
  report.counters.insert(report.counters.end(), {{"routes", s.routes()},
                                                 {"l3Adjacencies", s.l3Adjacencys()},
                                                 {"l2Adjacencies", s.l2Adjacencys()},
                                                 {"nextHops", s.mplsNextHops()},
                                                 {"unprogrammedRoutes", s.unprogrammedRoutes()},
                                                 {"routeKeyReviewed", s.routeKeyReviewed()},
                                                 {"routeKeyPublished", s.routeKeyPublished()},
                                                 {"l3AdjReviewed", s.l3AdjReviewed()},
                                                 {"l2AdjReviewed", s.l2AdjReviewed()},
                                                 {"l2AdjDeleted", s.l2AdjDeleted()},
                                                 {"unprogRouteRetried", s.unprogRouteRetried()},
                                                 {"reviewCount", core.reviewCount()}});
  const Qel::MplsSmStartupRecord& record = *core.mplsSmStartupRecord();
  report.startupStage = std::string(Qel::stringValue(record.lastStage()));
  for (const auto& [stage, seconds] : record.timeTaken()) {
    report.startupTimes.emplace_back(std::string(Qel::stringValue(stage)), seconds);
  }
}

void addDriverCounters(const HwDriver& driver, Report& report) {
  const HwDriver::Counters& c = driver.counters();
  report.counters.insert(report.counters.end(),
                         {{"driverRouteAnswers", c.routeAnswers},
                          {"driverRoutesRefused", c.routesRefused},
                          {"driverL2Answers", c.l2Answers},
                          {"driverL2Refused", c.l2Refused},
                          {"driverStatusDeleted", c.statusDeleted},
                          {"hardwareRoutes", driver.hwRoutes()},
                          {"hardwareL2Adjacencies", driver.hwL2Adjacencies()},
                          {"hwRouteDeletes", c.hwRouteDeletes},
                          {"hwRouteRepoints", c.hwRouteRepoints},
                          {"hwL2Deletes", c.hwL2Deletes}});
}

void addAllocatorCounters(const FecAllocator& allocator, Report& report) {
  const FecAllocator::Counters c = allocator.counters();
  report.counters.insert(report.counters.end(), {{"fecRequests", c.fecRequests},
                                                 {"fecAnswers", c.fecAnswers},
                                                 {"hwFecIdsGranted", allocator.grants()}});
}

}  // namespace

bool isReportCounter(std::string_view name) {
  return std::find(std::begin(kCounterNames), std::end(kCounterNames), name) !=
         std::end(kCounterNames);
}

std::string reportCounterList() {
  std::string out;
  for (std::string_view name : kCounterNames) {
    if (!out.empty()) out += ", ";
    out += name;
  }
  return out;
}

Report reportOf(const HwTables& tables) {
  Report report;
  const FecOfHwId fecs = fecOfHwId(tables);
  for (const Mpls::RouteKey& key : sortedUnique(tableKeys(tables))) {
    RouteRow row;
    row.key = key;
    row.inLfib = tables.lfib() && tables.lfib()->routeHas(key);
    fillFromHardware(tables, fecs, row);
    fillDriverState(tables, row);
    report.routes.push_back(std::move(row));
  }
  countStates(report);
  report.l2Adjacencies = l2Rows(tables, report.orphanL2Adjacencies);
  report.fecs = fecRows(tables);
  return report;
}

Report reportOf(const SimSwitch& sim, double origin) {
  HwTables tables(sim.prefix(), sim.scheduler());
  Report report;
  const FecOfHwId fecs = fecOfHwId(tables);
  report.endTime = sim.scheduler()->now() - origin;
  auto published = sim.korba().entityAs<Mpls::Hardware::Status>(kHwMplsStatusPath);
  std::vector<Mpls::RouteKey> keys = tableKeys(tables);
  if (published) {
    for (const auto& entry : published->routeColl()) keys.push_back(entry.first);
  }
  for (const Mpls::RouteKey& key : sortedUnique(std::move(keys))) {
    RouteRow row;
    row.key = key;
    row.inLfib = sim.lfib().lfib().routeHas(key);
    fillFromHardware(tables, fecs, row);
    const Mpls::Hardware::RouteInfo* info = published ? published->routeFind(key) : nullptr;
    if (!info) {
      row.state = "pending";
    } else if (info->state == Mpls::Hardware::RouteState::routeStateProgrammed) {
      row.state = "programmed";
      row.l3Adjacency = info->adjacencyIndex;
    } else {
      row.state = "unprogrammed";
      row.reason = reasonName(info->unprogrammedReason);
      row.l3Adjacency = info->adjacencyIndex;
    }
    report.routes.push_back(std::move(row));
  }
  countStates(report);
  report.l2Adjacencies = l2Rows(tables, report.orphanL2Adjacencies);
  report.fecs = fecRows(tables);
  if (const Qel::MplsBaseSm* core = sim.agent().core()) addCoreCounters(*core, report);
  if (const HwDriver* driver = sim.driver()) addDriverCounters(*driver, report);
  if (const FecAllocator* allocator = sim.fecAllocator()) addAllocatorCounters(*allocator, report);
  report.counters.insert(report.counters.end(),
                         {{"proactiveArpRequests", sim.proactiveArp().requestsSeen()},
                          {"proactiveArpUnresolved", sim.proactiveArp().unresolved()},
                          {"agentStarts", sim.agent().starts()}});
  for (const Qel::SysLog::Entry& entry : Qel::SysLog::instance().entries()) {
    report.logs.push_back(LogRow{entry.time - origin, entry.name, entry.text});
  }
  return report;
}

}  // namespace Sim
