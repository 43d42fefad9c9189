#include "sim/ScenarioRunner.h"

#include <stdexcept>

#include <fmt/format.h>

#include "QelMpls/core/QelMplsSm.h"
#include "sim/ResourceUsage.h"

namespace Sim {

namespace {

constexpr double kAnswerScanInterval = 0.05;
constexpr double kProgressInterval = 1.0;
constexpr uint32_t kChecksPerClockRead = 256;

SimSwitch::Options switchOptions(const Scenario& scenario, const RunOptions& options) {
  SimSwitch::Options out;
  out.prefix = options.prefix;
  out.externalDriver = options.externalDriver;
  out.mode = scenario.mode;
  out.driver = scenario.driver;
  out.fecAllocator = scenario.fecAllocator;
  return out;
}

bool reviewWorkLeft(const Qel::MplsState& s) {
  return s.routeKeyForReviews() != 0 || s.l3AdjForReviews() != 0 || s.l2AdjForReviews() != 0 ||
         s.routeKeyForPublishs() != 0 || s.l2AdjPendingForDeletes() != 0;
}

}  // namespace

ScenarioRunner::ScenarioRunner(const Scenario& scenario, Plin::TaskScheduler* scheduler,
                               RunOptions options)
    : scenario_(scenario),
      scheduler_(scheduler),
      options_(std::move(options)),
      sim_(std::make_unique<SimSwitch>(scheduler, switchOptions(scenario, options_))) {}

ScenarioRunner::~ScenarioRunner() = default;

void ScenarioRunner::run() {
  load();
  converge();
}

void ScenarioRunner::load() {
  Stopwatch watch;
  nextProgress_ = wallSeconds() + kProgressInterval;
  origin_ = scheduler_->now();
  Qel::SysLog::instance().clear();
  sim_->routingIs(RoutingSpec{scenario_.mplsRouting, scenario_.allowDefaultRoute});
  sim_->inputsIs(scenario_.inputs);
  sim_->lfibQuiescedIs(true);
  if (options_.externalDriver &&
      !runFor(options_.driverWaitLimit, [this] { return sim_->driverTableExists(); })) {
    throw std::runtime_error(
        fmt::format("no driver under prefix '{}' (start `qelmpls driver --prefix {}` first)",
                    sim_->prefix(), sim_->prefix()));
  }
  timing_.loadSeconds = watch.wall();
}

bool ScenarioRunner::converge() {
  timing_.heapBytesAtStart = heapBytesInUse();
  Stopwatch watch;
  startAgent();
  for (const Step& step : scenario_.steps) {
    const double wait = origin_ + step.at - scheduler_->now();
    if (wait > 0) runFor(wait, nullptr);
    applyStep(step);
  }
  settle();
  timing_.convergeSeconds = watch.wall();
  timing_.convergeCpuSeconds = watch.cpu();
  timing_.heapBytesAtEnd = heapBytesInUse();
  timing_.peakRssBytes = peakRssBytes();
  timing_.routes = sim_->lfib().routes();
  return settled_;
}

bool ScenarioRunner::settle() {
  settled_ = runFor(options_.settleLimit, [this] { return quiet(); });
  return settled_;
}

void ScenarioRunner::startAgent() {
  sim_->agentStart();
  // The root mounts from the event loop; its tables exist once that ran.
  runFor(0, nullptr);
  sim_->attachReaders();
  markChange();
}

// A restart's other changes happen while the agent is down.
void ScenarioRunner::applyStep(const Step& step) {
  if (step.restartAgent) sim_->agentStop();
  if (step.del) sim_->inputsDel(*step.del);
  if (step.set) sim_->inputsIs(*step.set);
  if (step.routing) sim_->routingIs(*step.routing);
  if (step.platform) sim_->platformIs(*step.platform);
  if (step.restartAgent) startAgent();
  markChange();
}

void ScenarioRunner::markChange() {
  const Qel::MplsBaseSm* core = sim_->agent().core();
  retryRunsAtChange_ = core ? core->unprogrammedRouteTask()->runCount() : 0;
}

bool ScenarioRunner::runFor(double seconds, const std::function<bool()>& stop) {
  return scheduler_->runUntil(
      [this, &stop] {
        maybeReportProgress();
        return stop && stop();
      },
      seconds);
}

bool ScenarioRunner::quiet() {
  if (scheduler_->hasReadyTask()) return false;
  sim_->attachReaders();
  const Qel::MplsBaseSm* core = sim_->agent().core();
  if (!core || core->mplsSmStartupStatus() != Qel::MplsSmStartupStatus::mplsSmNormal) return false;
  if (reviewWorkLeft(*core->mplsState())) return false;
  const Plin::Task* retry = core->unprogrammedRouteTask();
  if (retry->scheduled() && retry->runCount() <= retryRunsAtChange_) return false;
  if (const FecAllocator* allocator = sim_->fecAllocator(); allocator && allocator->pending()) {
    return false;
  }
  if (const HwDriver* driver = sim_->driver()) return driver->attached() && !driver->pending();
  return allAnswered();
}

// With the driver elsewhere, whether it has answered every record the agent
// wrote, at most every kAnswerScanInterval seconds.
bool ScenarioRunner::allAnswered() {
  const double now = scheduler_->now();
  if (now < nextAnswerScan_) return false;
  nextAnswerScan_ = now + kAnswerScanInterval;
  const Qel::MplsRootSm& root = *sim_->agent().root();
  const auto& config = *root.mplsHwCollectionConfig();
  const auto& status = *root.mplsHwCollectionStatus();
  bool answered = true;
  config.forEachMplsHwRoute([&](const Mpls::RouteKey& key, const auto& record) {
    if (answered && status.mplsHwRoute(key).version != record.version) answered = false;
  });
  config.forEachL2Adjacency([&](uint64_t id, const auto& record) {
    if (answered && status.l2Adjacency(id).version != record.version()) answered = false;
  });
  return answered;
}

void ScenarioRunner::maybeReportProgress() {
  if (!options_.progress || ++checks_ % kChecksPerClockRead != 0) return;
  const double wall = wallSeconds();
  if (wall < nextProgress_) return;
  nextProgress_ = wall + kProgressInterval;
  Progress progress;
  progress.time = scheduler_->now() - origin_;
  progress.lfibRoutes = sim_->lfib().routes();
  if (const Qel::MplsBaseSm* core = sim_->agent().core()) {
    progress.trackedRoutes = core->mplsState()->routes();
    progress.unprogrammedRoutes = core->mplsState()->unprogrammedRoutes();
  }
  if (const HwDriver* driver = sim_->driver()) progress.hardwareRoutes = driver->hwRoutes();
  options_.progress(progress);
}

}  // namespace Sim
