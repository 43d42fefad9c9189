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
  TablePrinter table({"LABEL", "SOURCE", "STATE", "REASON", "L3ADJ", "L2ADJ", "VIAS"});
  size_t shown = std::min(maxRows, report.routes.size());
  for (size_t i = 0; i < shown; ++i) {
    const Sim::RouteRow& r = report.routes[i];
    table.row({fmt::format("{}", r.key.topLabel()), fmt::format("{}", r.key.source()), r.state,
               orDash(r.reason), r.l3Adjacency ? std::to_string(r.l3Adjacency) : "-",
               r.inHardware ? std::to_string(r.adjacencyId) : "-", viasText(r.vias)});
  }
  table.print(out);
  printLeftOut(out, report.routes.size(), shown);
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
