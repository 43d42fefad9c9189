#pragma once

// Plays a scenario on a simulated switch: the initial inputs, the agent's
// start, each step at its time, and then the wait until everything has
// settled (or a time limit passed).
//
// Time is the scheduler's: virtual unless the scheduler runs in real time, so
// a step at 600 seconds costs nothing when virtual. "Settled" means nothing
// is ready to run, the core is in its normal stage with nothing to review or
// publish, the driver has answered every record it was given, and, when
// routes wait for the unprogrammed-route retry, that retry has run once since
// the last change, so a capacity raised by a step is seen.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "plin/TaskScheduler.h"
#include "sim/RunTiming.h"
#include "sim/Scenario.h"
#include "sim/SimSwitch.h"

namespace Sim {

struct Progress {
  double time = 0;
  uint64_t lfibRoutes = 0;
  uint64_t trackedRoutes = 0;
  uint64_t unprogrammedRoutes = 0;
  // What the in-process driver holds; unknown when it runs elsewhere.
  std::optional<uint64_t> hardwareRoutes;
};

struct RunOptions {
  std::string prefix;
  bool externalDriver = false;
  // How long, after the last step, to wait for the switch to settle.
  double settleLimit = 700.0;
  // How long to wait for an external driver's table to appear.
  double driverWaitLimit = 30.0;
  // Called about once a second of wall time while the run is long.
  std::function<void(const Progress&)> progress;
};

class ScenarioRunner {
 public:
  ScenarioRunner(const Scenario& scenario, Plin::TaskScheduler* scheduler, RunOptions options);
  ~ScenarioRunner();

  // load() and then converge(). Throws std::runtime_error when an external
  // driver never shows up.
  void run();
  // Writes the scenario's inputs; with an external driver, waits for it.
  void load();
  // Starts the agent, plays the steps and waits until the switch settles;
  // returns whether it did.
  bool converge();
  // For changes made from outside (a benchmark): applyStep() plays one step
  // now, whatever its time; settle() waits until the switch settles again
  // and returns whether it did.
  void applyStep(const Step& step);
  bool settle();
  bool settled() const { return settled_; }
  const RunTiming& timing() const { return timing_; }
  // When the run started, on the scheduler's clock.
  double origin() const { return origin_; }
  SimSwitch& sim() { return *sim_; }
  const SimSwitch& sim() const { return *sim_; }

 private:
  void startAgent();
  // Runs the scheduler until `stop` holds or `seconds` have passed.
  bool runFor(double seconds, const std::function<bool()>& stop);
  bool quiet();
  bool allAnswered();
  void markChange();
  void maybeReportProgress();

  const Scenario& scenario_;
  Plin::TaskScheduler* scheduler_;
  RunOptions options_;
  std::unique_ptr<SimSwitch> sim_;
  double origin_ = 0;
  uint64_t retryRunsAtChange_ = 0;
  double nextAnswerScan_ = 0;
  double nextProgress_ = 0;
  RunTiming timing_;
  uint32_t checks_ = 0;
  bool settled_ = false;
};

}  // namespace Sim
