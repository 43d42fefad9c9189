#include "cli/TablePrinter.h"

#include <algorithm>

#include <fmt/format.h>
#include <fmt/ostream.h>

namespace Cli {

namespace {

std::string orDash(const std::string& text) { return text.empty() ? "-" : text; }

std::string viasText(const std::vector<Mpls::Hardware::L2Via>& vias) {
  std::string out;
  for (const auto& via : vias) {
    if (!out.empty()) out += "; ";
    out += viaText(via);
  }
  return orDash(out);
}

void printLeftOut(std::ostream& out, size_t total, size_t shown) {
  if (total > shown) {
    fmt::print(out, "... {} more (--max-rows, or --json for everything)\n", total - shown);
  }
}

// A route's layer-2 adjacency, or in the mediated mode its FEC and hardware FEC.
std::vector<std::string> targetCells(const Sim::RouteRow& r, bool fecs) {
  const std::string l2 = r.inHardware && !r.pointsAtHwFec() ? std::to_string(r.adjacencyId) : "-";
  if (!fecs) return {l2};
  return {l2, r.fecId ? fmt::format("{:#x}", r.fecId) : "-",
          r.pointsAtHwFec() ? fmt::format("{:#x}", r.adjacencyId) : "-"};
}

std::string fecViaText(const Vosh::Fib::FecVia& via) {
  std::string label = via.labelAction == Bexo::mplsActionPop
                          ? std::string("pop")
                          : fmt::format("{} {}", Bexo::stringValue(via.labelAction), via.label);
  return fmt::format("{} {} {}{}", via.intf, via.nextHop, label,
                     via.weight == 1 ? std::string() : fmt::format(" weight {}", via.weight));
}

}  // namespace

TablePrinter::TablePrinter(std::vector<std::string> headers) {
  rows_.push_back(std::move(headers));
}

void TablePrinter::row(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }

void TablePrinter::print(std::ostream& out) const {
  std::vector<size_t> widths;
  for (const auto& row : rows_) {
    widths.resize(std::max(widths.size(), row.size()), 0);
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  for (const auto& row : rows_) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      if (i + 1 < row.size()) line += std::string(widths[i] - row[i].size() + 2, ' ');
    }
    out << line << '\n';
  }
}

std::string viaText(const Mpls::Hardware::L2Via& via) {
  return fmt::format("{} {} vlan {} label {}{}", via.intf, via.mac, via.vlan, via.label,
                     via.weight == 1 ? std::string() : fmt::format(" weight {}", via.weight));
}

void printRoutes(std::ostream& out, const Sim::Report& report, size_t maxRows) {
  const bool fecs = std::any_of(report.routes.begin(), report.routes.end(),
                                [](const Sim::RouteRow& r) { return r.pointsAtHwFec(); });
  std::vector<std::string> headers = {"LABEL", "SOURCE", "STATE", "REASON", "L3ADJ", "L2ADJ"};
  if (fecs) headers.insert(headers.end(), {"FEC", "HWFEC"});
  headers.push_back("VIAS");
  TablePrinter table(std::move(headers));
  size_t shown = std::min(maxRows, report.routes.size());
  for (size_t i = 0; i < shown; ++i) {
    const Sim::RouteRow& r = report.routes[i];
    std::vector<std::string> cells = {fmt::format("{}", r.key.topLabel()),
                                      fmt::format("{}", r.key.source()), r.state, orDash(r.reason),
                                      r.l3Adjacency ? std::to_string(r.l3Adjacency) : "-"};
    for (std::string& cell : targetCells(r, fecs)) cells.push_back(std::move(cell));
    cells.push_back(viasText(r.vias));
    table.row(std::move(cells));
  }
  table.print(out);
  printLeftOut(out, report.routes.size(), shown);
}

void printFecs(std::ostream& out, const Sim::Report& report, size_t maxRows) {
  TablePrinter table({"FEC", "HWFEC", "OWNER", "ROUTES", "BACKUP", "VIAS"});
  size_t shown = std::min(maxRows, report.fecs.size());
  for (size_t i = 0; i < shown; ++i) {
    const Sim::FecRow& f = report.fecs[i];
    std::string vias;
    for (const Vosh::Fib::FecVia& via : f.vias) {
      vias += fmt::format("{}{}", vias.empty() ? "" : "; ", fecViaText(via));
    }
    table.row({fmt::format("{:#x}", f.fecId), f.hwFecId ? fmt::format("{:#x}", *f.hwFecId) : "-",
               f.external ? "external" : "agent", std::to_string(f.routes),
               f.backupFecId ? fmt::format("{:#x}", f.backupFecId) : "-", orDash(vias)});
  }
  table.print(out);
  printLeftOut(out, report.fecs.size(), shown);
}

void printL2Adjacencies(std::ostream& out, const Sim::Report& report, size_t maxRows) {
  TablePrinter table({"L2ADJ", "VERSION", "STATE", "ROUTES", "VIAS"});
  size_t shown = std::min(maxRows, report.l2Adjacencies.size());
  for (size_t i = 0; i < shown; ++i) {
    const Sim::L2Row& r = report.l2Adjacencies[i];
    table.row({std::to_string(r.id), std::to_string(r.version), r.state, std::to_string(r.routes),
               viasText(r.vias)});
  }
  table.print(out);
  printLeftOut(out, report.l2Adjacencies.size(), shown);
}

void printSummary(std::ostream& out, const Sim::Report& report, bool settled) {
  fmt::print(out, "\nSummary at {:.3f}s ({})\n", report.endTime,
             settled ? "settled" : "not settled: time limit reached");
  fmt::print(out, "  routes:          {} programmed, {} unprogrammed, {} pending\n",
             report.programmed, report.unprogrammed, report.pending);
  fmt::print(out, "  layer-2 records: {} ({} used by no route)\n", report.l2Adjacencies.size(),
             report.orphanL2Adjacencies);
  std::string stages;
  for (const auto& [stage, seconds] : report.startupTimes) {
    stages += fmt::format("{}{} {:.3f}s", stages.empty() ? "" : ", ", stage, seconds);
  }
  fmt::print(out, "  start-up:        now {}{}\n", orDash(report.startupStage),
             stages.empty() ? "" : fmt::format(" (after {})", stages));
  if (report.logs.empty()) {
    fmt::print(out, "  resource logs:   none\n");
  } else {
    fmt::print(out, "  resource logs:\n");
    for (const Sim::LogRow& log : report.logs) {
      fmt::print(out, "    {:.3f}s {}: {}\n", log.time, log.name, log.text);
    }
  }
}

void printStatus(std::ostream& out, const Sim::Report& report) {
  uint64_t inLfib = 0;
  uint64_t inHardware = 0;
  for (const Sim::RouteRow& r : report.routes) {
    inLfib += r.inLfib ? 1 : 0;
    inHardware += r.inHardware ? 1 : 0;
  }
  fmt::print(out, "LFIB routes:       {}\n", inLfib);
  fmt::print(out, "hardware routes:   {} ({} programmed, {} unprogrammed, {} pending)\n",
             inHardware, report.programmed, report.unprogrammed, report.pending);
  fmt::print(out, "layer-2 records:   {} ({} used by no route)\n", report.l2Adjacencies.size(),
             report.orphanL2Adjacencies);
}

}  // namespace Cli
