// qelmpls: plays scenarios on the simulated switch, shows what an agent
// programmed, runs the simulated driver and FEC allocator on their own and
// writes scale scenarios.

#include <iostream>

#include <CLI/CLI.hpp>

#include "cli/DriverCommand.h"
#include "cli/GenCommand.h"
#include "cli/RunCommand.h"
#include "cli/ShowCommand.h"

namespace {

constexpr int kExitUsage = 2;

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"qelmpls: the MPLS programming library on a simulated switch"};
  app.require_subcommand(1);

  Cli::RunArgs run;
  CLI::App* runCmd = app.add_subcommand("run", "play a scenario file and show the result");
  runCmd->add_option("file", run.file, "scenario file (YAML)")->required();
  runCmd->add_option("--mode", run.mode,
                     "programming mode, direct or mediated (default: the scenario's)");
  runCmd->add_flag("--check", run.check, "verify the scenario's expect section (exit 1 if not)");
  runCmd->add_option("--json", run.jsonOut,
                     "write the final state as JSON to this file (- for stdout)");
  runCmd->add_option("--trace", run.trace, "trace facilities and levels, e.g. QelMplsSm/0-9");
  runCmd->add_flag("--realtime", run.realtime,
                   "run steps on the real clock instead of virtual time");
  runCmd->add_option("--prefix", run.prefix,
                     "shared-memory prefix (default: one of the run's own)");
  runCmd->add_flag("--keep", run.keep, "keep the shared-memory tables after the run");
  runCmd->add_flag("--external-driver", run.externalDriver,
                   "use the driver of `qelmpls driver --prefix P` (implies --realtime)");
  runCmd->add_option("--max-rows", run.maxRows, "routes shown in the table");

  Cli::ShowArgs show;
  CLI::App* showCmd = app.add_subcommand("show", "show an agent's shared-memory tables");
  showCmd->add_option("what", show.what, "routes, l2, fecs or status")
      ->required()
      ->check(CLI::IsMember({"routes", "l2", "fecs", "status"}));
  showCmd->add_option("--prefix", show.prefix, "the agent's shared-memory prefix")->required();
  showCmd->add_flag("--json", show.json, "print JSON");
  showCmd->add_option("--max-rows", show.maxRows, "rows shown in a table");

  Cli::GenArgs gen;
  CLI::App* genCmd = app.add_subcommand("gen", "write a scale scenario");
  genCmd->add_option("--routes", gen.shape.routes, "LFIB routes, labels from 16 up")
      ->capture_default_str();
  genCmd->add_option("--via-sets", gen.shape.viaSets, "via sets the routes share")
      ->capture_default_str();
  genCmd->add_option("--next-hops", gen.shape.nextHops, "next hops the via sets pick from")
      ->capture_default_str();
  genCmd->add_option("--ecmp", gen.shape.ecmp, "vias per via set")->capture_default_str();
  genCmd->add_option("--vlan-share", gen.shape.vlanShare,
                     "share of next hops behind VLAN interfaces, 0 to 1")
      ->capture_default_str();
  genCmd->add_option("--mode", gen.mode, "programming mode: direct or mediated")
      ->capture_default_str();
  genCmd->add_option("--seed", gen.shape.seed, "picks the next hops of each via set")
      ->capture_default_str();
  genCmd->add_option("-o,--out", gen.out, "file to write (- for stdout)")->required();

  std::string cleanPrefix;
  CLI::App* cleanCmd = app.add_subcommand("clean", "remove an agent's shared-memory tables");
  cleanCmd->add_option("--prefix", cleanPrefix, "the agent's shared-memory prefix")->required();

  Cli::DriverArgs driver;
  std::vector<uint32_t> failLabels;
  CLI::App* driverCmd = app.add_subcommand("driver", "run the simulated driver in this process");
  driverCmd->add_option("--prefix", driver.prefix, "the agent's shared-memory prefix")->required();
  driverCmd->add_option("--route-capacity", driver.routeCapacity, "routes the hardware holds");
  driverCmd->add_option("--l2-capacity", driver.l2AdjCapacity, "layer-2 adjacencies it holds");
  driverCmd->add_option("--answer-delay", driver.answerDelay, "seconds before each answer");
  driverCmd->add_option("--fail-label", failLabels, "answer routes of this label invalid FEC");
  driverCmd->add_option("--fec-answer-delay", driver.fecAnswerDelay,
                        "seconds before the FEC allocator answers a request");
  driverCmd->add_option("--fec-capacity", driver.fecCapacity, "hardware FEC ids it grants");

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return kExitUsage;
  }

  if (runCmd->parsed()) return Cli::runCommand(run);
  if (showCmd->parsed()) return Cli::showCommand(show);
  if (cleanCmd->parsed()) return Cli::cleanCommand(cleanPrefix);
  if (genCmd->parsed()) return Cli::genCommand(gen);
  driver.failLabels.insert(failLabels.begin(), failLabels.end());
  return Cli::driverCommand(driver);
}
