#include "sim/ExpectChecker.h"

#include <algorithm>
#include <cctype>
#include <string_view>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace Sim {

namespace {

const RouteRow* findRoute(const Report& report, const Mpls::RouteKey& key) {
  auto it =
      std::lower_bound(report.routes.begin(), report.routes.end(), key,
                       [](const RouteRow& row, const Mpls::RouteKey& k) { return row.key < k; });
  return it != report.routes.end() && it->key == key ? &*it : nullptr;
}

bool matches(const L2ViaExpect& expect, const Mpls::Hardware::L2Via& via) {
  return (!expect.mac || *expect.mac == via.mac) && (!expect.vlan || *expect.vlan == via.vlan) &&
         (!expect.intf || *expect.intf == via.intf) &&
         (!expect.label || *expect.label == via.label.value()) &&
         (!expect.weight || *expect.weight == via.weight);
}

std::string viaText(const Mpls::Hardware::L2Via& via) {
  return fmt::format("{{mac: {}, vlan: {}, interface: {}, label: {}, weight: {}}}", via.mac,
                     via.vlan, via.intf, via.label, via.weight);
}

std::string expectText(const L2ViaExpect& e) {
  std::vector<std::string> parts;
  if (e.mac) parts.push_back(fmt::format("mac: {}", *e.mac));
  if (e.vlan) parts.push_back(fmt::format("vlan: {}", *e.vlan));
  if (e.intf) parts.push_back(fmt::format("interface: {}", *e.intf));
  if (e.label) parts.push_back(fmt::format("label: {}", *e.label));
  if (e.weight) parts.push_back(fmt::format("weight: {}", *e.weight));
  return fmt::format("{{{}}}", fmt::join(parts, ", "));
}

// Every expected via matches a distinct resolved via, and none is left over.
bool l2Matches(const std::vector<L2ViaExpect>& expected,
               const std::vector<Mpls::Hardware::L2Via>& vias) {
  if (expected.size() != vias.size()) return false;
  std::vector<bool> used(vias.size(), false);
  for (const L2ViaExpect& e : expected) {
    bool found = false;
    for (size_t i = 0; i < vias.size() && !found; ++i) {
      if (!used[i] && matches(e, vias[i])) used[i] = found = true;
    }
    if (!found) return false;
  }
  return true;
}

// "adjIdTypeHardware" as a scenario names it: "hardware".
std::string adjIdTypeName(const std::string& stored) {
  constexpr std::string_view kPrefix = "adjIdType";
  if (stored.rfind(kPrefix, 0) != 0 || stored.size() == kPrefix.size()) return stored;
  std::string name = stored.substr(kPrefix.size());
  name[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(name[0])));
  return name;
}

std::string hwFecIdFound(const std::string& expected, const RouteRow& row) {
  const bool valid = row.pointsAtHwFec() && row.fecId != 0;
  if (expected == "valid" || expected == "invalid") return valid ? "valid" : "invalid";
  return row.pointsAtHwFec() ? std::to_string(row.adjacencyId) : "none";
}

void checkRoute(const RouteExpect& expect, const Report& report,
                std::vector<ExpectFailure>& failures) {
  const std::string what = fmt::format("routes.\"{}\"", expect.key);
  const RouteRow* row = findRoute(report, expect.key);
  if (expect.absent) {
    if (row) {
      failures.push_back(
          {expect.line, what, "absent",
           fmt::format("{}{}", row->state, row->inHardware ? " (in hardware)" : "")});
    }
    return;
  }
  if (!row) {
    failures.push_back({expect.line, what, "present", "absent"});
    return;
  }
  if (expect.state && *expect.state != row->state) {
    failures.push_back({expect.line, what + ".state", *expect.state, row->state});
  }
  if (expect.reason && *expect.reason != (row->reason.empty() ? "none" : row->reason)) {
    failures.push_back({expect.line, what + ".reason", *expect.reason,
                        row->reason.empty() ? "none" : row->reason});
  }
  if (expect.adjIdType && *expect.adjIdType != adjIdTypeName(row->adjacencyIdType)) {
    failures.push_back({expect.line, what + ".adjIdType", *expect.adjIdType,
                        row->inHardware ? adjIdTypeName(row->adjacencyIdType) : "no record"});
  }
  if (expect.hwFecId && *expect.hwFecId != hwFecIdFound(*expect.hwFecId, *row)) {
    failures.push_back(
        {expect.line, what + ".hwFecId", *expect.hwFecId, hwFecIdFound(*expect.hwFecId, *row)});
  }
  if (expect.l2 && !l2Matches(*expect.l2, row->vias)) {
    std::vector<std::string> want;
    for (const L2ViaExpect& e : *expect.l2) want.push_back(expectText(e));
    std::vector<std::string> have;
    for (const auto& via : row->vias) have.push_back(viaText(via));
    failures.push_back({expect.line, what + ".l2", fmt::format("[{}]", fmt::join(want, ", ")),
                        fmt::format("[{}]", fmt::join(have, ", "))});
  }
}

void checkCount(const std::optional<uint64_t>& expected, uint64_t found, int line,
                const std::string& what, std::vector<ExpectFailure>& failures) {
  if (expected && *expected != found) {
    failures.push_back({line, what, std::to_string(*expected), std::to_string(found)});
  }
}

}  // namespace

std::vector<ExpectFailure> checkExpectations(const Expectations& expect, const Report& report) {
  std::vector<ExpectFailure> failures;
  checkCount(expect.programmed, report.programmed, expect.programmedLine, "routes.programmed",
             failures);
  checkCount(expect.unprogrammed, report.unprogrammed, expect.unprogrammedLine,
             "routes.unprogrammed", failures);
  for (const RouteExpect& route : expect.routes) checkRoute(route, report, failures);
  checkCount(expect.l2Adjacencies, report.l2Adjacencies.size(), expect.l2AdjacenciesLine,
             "l2Adjacencies", failures);
  for (const std::string& name : expect.log) {
    bool logged = std::any_of(report.logs.begin(), report.logs.end(),
                              [&name](const LogRow& log) { return log.name == name; });
    if (!logged) failures.push_back({expect.logLine, "log", name, "not logged"});
  }
  for (const CounterExpect& counter : expect.counters) {
    auto found = std::find_if(report.counters.begin(), report.counters.end(),
                              [&counter](const auto& c) { return c.first == counter.name; });
    if (found == report.counters.end()) {
      failures.push_back({counter.line, "counters." + counter.name,
                          std::to_string(counter.value), "not counted in this run"});
    } else {
      checkCount(counter.value, found->second, counter.line, "counters." + counter.name,
                 failures);
    }
  }
  return failures;
}

std::string describe(const std::string& file, const ExpectFailure& failure) {
  return fmt::format("{}:{}: {}: expected {}, found {}", file, failure.line, failure.what,
                     failure.expected, failure.found);
}

}  // namespace Sim
