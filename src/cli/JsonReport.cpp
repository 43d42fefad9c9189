#include "cli/JsonReport.h"

#include <fmt/format.h>

namespace Cli {

namespace {

nlohmann::ordered_json viaJson(const Mpls::Hardware::L2Via& via) {
  return {{"interface", fmt::format("{}", via.intf)},
          {"mac", fmt::format("{}", via.mac)},
          {"vlan", via.vlan},
          {"label", via.label.value()},
          {"weight", via.weight},
          {"nextHop", fmt::format("{}", via.nextHop())}};
}

nlohmann::ordered_json routeJson(const Sim::RouteRow& r) {
  nlohmann::ordered_json vias = nlohmann::ordered_json::array();
  for (const auto& via : r.vias) vias.push_back(viaJson(via));
  return {{"label", r.key.topLabel().value()},
          {"source", r.key.source()},
          {"state", r.state},
          {"reason", r.reason.empty() ? "none" : r.reason},
          {"l3Adjacency", r.l3Adjacency},
          {"inLfib", r.inLfib},
          {"inHardware", r.inHardware},
          {"adjacencyIdType", r.adjacencyIdType},
          {"adjacencyId", r.adjacencyId},
          {"fecId", r.fecId},
          {"hwFecId",
           r.pointsAtHwFec() ? nlohmann::ordered_json(r.adjacencyId) : nlohmann::ordered_json()},
          {"version", r.version},
          {"vias", std::move(vias)}};
}

nlohmann::ordered_json l2Json(const Sim::L2Row& r) {
  nlohmann::ordered_json vias = nlohmann::ordered_json::array();
  for (const auto& via : r.vias) vias.push_back(viaJson(via));
  return {{"id", r.id},
          {"version", r.version},
          {"state", r.state},
          {"routes", r.routes},
          {"vias", std::move(vias)}};
}

nlohmann::ordered_json fecViaJson(const Vosh::Fib::FecVia& via) {
  return {{"interface", fmt::format("{}", via.intf)},
          {"nextHop", fmt::format("{}", via.nextHop)},
          {"action", std::string(Bexo::stringValue(via.labelAction))},
          {"label", via.label.value()},
          {"weight", via.weight},
          {"labelStackDepth", via.labelStackDepth},
          {"skipEgressAcl", via.skipEgressAcl}};
}

nlohmann::ordered_json fecJson(const Sim::FecRow& f) {
  nlohmann::ordered_json vias = nlohmann::ordered_json::array();
  for (const auto& via : f.vias) vias.push_back(fecViaJson(via));
  return {{"fecId", f.fecId},
          {"hwFecId", f.hwFecId ? nlohmann::ordered_json(*f.hwFecId) : nlohmann::ordered_json()},
          {"owner", f.external ? "external" : "agent"},
          {"backupFecId", f.backupFecId},
          {"routes", f.routes},
          {"vias", std::move(vias)}};
}

// Wall-clock seconds and bytes, whatever clock the scenario's steps ran on.
nlohmann::ordered_json timingJson(const Sim::RunTiming& t) {
  return {{"load", t.loadSeconds},
          {"converge", t.convergeSeconds},
          {"convergeCpu", t.convergeCpuSeconds},
          {"peakRssBytes", t.peakRssBytes},
          {"heapBytesPerRoute", t.heapBytesPerRoute()},
          {"routes", t.routes}};
}

}  // namespace

nlohmann::ordered_json toJson(const Sim::Report& report, bool settled) {
  nlohmann::ordered_json out;
  out["endTime"] = report.endTime;
  out["settled"] = settled;
  out["summary"] = {{"programmed", report.programmed},
                    {"unprogrammed", report.unprogrammed},
                    {"pending", report.pending},
                    {"l2Adjacencies", report.l2Adjacencies.size()},
                    {"orphanL2Adjacencies", report.orphanL2Adjacencies}};
  out["routes"] = nlohmann::ordered_json::array();
  for (const Sim::RouteRow& r : report.routes) out["routes"].push_back(routeJson(r));
  out["l2Adjacencies"] = nlohmann::ordered_json::array();
  for (const Sim::L2Row& r : report.l2Adjacencies) out["l2Adjacencies"].push_back(l2Json(r));
  out["fecs"] = nlohmann::ordered_json::array();
  for (const Sim::FecRow& f : report.fecs) out["fecs"].push_back(fecJson(f));
  out["decap"] = nlohmann::ordered_json::array();
  out["pseudowires"] = nlohmann::ordered_json::array();
  out["multicast"] = nlohmann::ordered_json::array();
  out["counters"] = nlohmann::ordered_json::object();
  for (const auto& [name, value] : report.counters) out["counters"][name] = value;
  nlohmann::ordered_json times = nlohmann::ordered_json::object();
  for (const auto& [stage, seconds] : report.startupTimes) times[stage] = seconds;
  out["startup"] = {{"stage", report.startupStage}, {"timeTaken", std::move(times)}};
  out["logs"] = nlohmann::ordered_json::array();
  for (const Sim::LogRow& log : report.logs) {
    out["logs"].push_back({{"time", log.time}, {"name", log.name}, {"text", log.text}});
  }
  if (report.timing) out["timing"] = timingJson(*report.timing);
  return out;
}

}  // namespace Cli
