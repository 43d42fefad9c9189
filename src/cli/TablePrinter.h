#pragma once

// Aligned text tables and the tool's human-readable views of a report: the
// routes, the layer-2 records and the run's summary.

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "sim/Report.h"

namespace Cli {

class TablePrinter {
 public:
  explicit TablePrinter(std::vector<std::string> headers);
  void row(std::vector<std::string> cells);
  // Columns padded to their widest cell; the last one is not padded.
  void print(std::ostream& out) const;

 private:
  std::vector<std::vector<std::string>> rows_;
};

// At most `maxRows` rows, then a line saying how many were left out.
void printRoutes(std::ostream& out, const Sim::Report& report, size_t maxRows);
void printL2Adjacencies(std::ostream& out, const Sim::Report& report, size_t maxRows);
void printFecs(std::ostream& out, const Sim::Report& report, size_t maxRows);
void printSummary(std::ostream& out, const Sim::Report& report, bool settled);
// What the shared-memory tables hold, in counts.
void printStatus(std::ostream& out, const Sim::Report& report);

std::string viaText(const Mpls::Hardware::L2Via& via);

}  // namespace Cli
