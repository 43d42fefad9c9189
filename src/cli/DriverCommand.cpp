#include "cli/DriverCommand.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>

#include <fmt/format.h>

#include "plin/TaskScheduler.h"
#include "sim/FecAllocator.h"
#include "sim/HwDriver.h"

namespace Cli {

namespace {

constexpr double kAttachRetry = 0.05;

int stopPipe[2] = {-1, -1};

void requestStop(int) {
  const char byte = 1;
  [[maybe_unused]] ssize_t n = write(stopPipe[1], &byte, 1);
}

}  // namespace

int driverCommand(const DriverArgs& args) {
  if (pipe2(stopPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
    fmt::print(stderr, "qelmpls driver: cannot create a pipe\n");
    return 3;
  }
  std::signal(SIGINT, requestStop);
  std::signal(SIGTERM, requestStop);
  Plin::TaskScheduler scheduler(Plin::TaskScheduler::Mode::realTime);
  scheduler.fdWatch(stopPipe[0], [&scheduler] { scheduler.stop(); });

  Sim::DriverConfig config;
  config.routeCapacity = args.routeCapacity;
  config.l2AdjCapacity = args.l2AdjCapacity;
  config.answerDelay = args.answerDelay;
  config.failLabels = args.failLabels;
  Sim::FecAllocatorConfig fecConfig;
  fecConfig.answerDelay = args.fecAnswerDelay;
  fecConfig.capacity = args.fecCapacity;
  auto em = Kiv::make<Vosh::EntityManager>(args.prefix, &scheduler);
  Sim::FecAllocator allocator(args.prefix, &scheduler, fecConfig);
  Sim::HwDriver driver(em, config);
  driver.fecAllocatorIs(&allocator);
  // Each agent start makes its tables anew; both follow the tables they find.
  Plin::Task attachTask(&scheduler, Sim::HwDriver::kTaskPriority, "qelmpls-driver-attach", [&] {
    const bool allocatorAttached = allocator.attach();
    if (driver.attach() && allocatorAttached) {
      fmt::print(stderr, "qelmpls driver: reading the agent's tables\n");
    } else {
      attachTask.scheduleAfter(kAttachRetry);
    }
  });
  attachTask.scheduleNow();
  fmt::print(stderr, "qelmpls driver: serving prefix '{}'\n", args.prefix);
  scheduler.run();

  const Sim::HwDriver::Counters& c = driver.counters();
  fmt::print(
      "driver: {} route answers ({} refused), {} layer-2 answers ({} refused), {} statuses "
      "deleted; hardware holds {} routes, {} layer-2 adjacencies; {} route deletes, {} route "
      "repoints, {} layer-2 deletes\n",
      c.routeAnswers, c.routesRefused, c.l2Answers, c.l2Refused, c.statusDeleted, driver.hwRoutes(),
      driver.hwL2Adjacencies(), c.hwRouteDeletes, c.hwRouteRepoints, c.hwL2Deletes);
  const Sim::FecAllocator::Counters f = allocator.counters();
  fmt::print("fec allocator: {} FEC ids requested, {} answers, {} hardware FEC ids granted\n",
             f.fecRequests, f.fecAnswers, allocator.grants());
  return 0;
}

}  // namespace Cli
