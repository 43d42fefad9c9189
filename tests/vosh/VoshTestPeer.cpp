// The other process of the cross-process tests. Commands, each with a
// segment prefix and a path:
//   verify N    mount as reader; check that keys [0, N) hold routeFor(key)
//   write N     mount as writer, write keys [0, N), exit
//   watch       mount as reader; say "ready"; on a line from stdin, poll and
//               print each notified key with what a lookup then answers
//   write-on-line N
//               mount as writer; say "ready"; on a line from stdin write
//               keys [0, N) and exit
//   churn       mount as writer; say "ready"; rewrite keys 0 to 3 in turn
//               with uniform records until a line arrives on stdin
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "TestRecords.h"
#include "plin/TaskScheduler.h"
#include "vosh/EntityManager.h"

namespace {

using VoshTest::Route;

constexpr const char* kCollection = "route";
constexpr uint64_t kChurnKeys = 4;

void say(const std::string& line) {
  std::fputs((line + "\n").c_str(), stdout);
  std::fflush(stdout);
}

void waitForLine() {
  char line[64];
  if (!std::fgets(line, sizeof(line), stdin)) std::exit(3);
}

bool lineWaiting() {
  pollfd p{0, POLLIN, 0};
  return ::poll(&p, 1, 0) > 0;
}

int verify(Vosh::EntityManager& em, const std::string& path, uint64_t count) {
  em.mountReader(path, Vosh::mountTypeReader);
  auto routes = em.table<uint64_t, Route>(path, kCollection);
  if (routes->size() != count) {
    say(fmt::format("size {} expected {}", routes->size(), count));
    return 1;
  }
  for (uint64_t k = 0; k < count; ++k) {
    if (routes->lookup(k) != VoshTest::routeFor(k)) {
      say(fmt::format("key {} differs", k));
      return 1;
    }
  }
  say(fmt::format("verified {}", count));
  return 0;
}

int write(Vosh::EntityManager& em, const std::string& path, uint64_t count) {
  em.mountWriter(path, {{kCollection, 1024}});
  auto routes = em.table<uint64_t, Route>(path, kCollection);
  for (uint64_t k = 0; k < count; ++k) routes->set(k, VoshTest::routeFor(k));
  say(fmt::format("wrote {}", count));
  return 0;
}

int writeOnLine(Vosh::EntityManager& em, const std::string& path, uint64_t count) {
  em.mountWriter(path, {{kCollection, 1024}});
  auto routes = em.table<uint64_t, Route>(path, kCollection);
  say("ready");
  waitForLine();
  for (uint64_t k = 0; k < count; ++k) routes->set(k, VoshTest::routeFor(k));
  say(fmt::format("wrote {}", count));
  return 0;
}

int watch(Vosh::EntityManager& em, Plin::TaskScheduler& scheduler, const std::string& path) {
  em.mountReader(path, Vosh::mountTypeSharedReader);
  auto routes = em.table<uint64_t, Route>(path, kCollection);
  std::string report = "notified";
  auto c = routes->onChange.connect([&](uint64_t key) {
    Route r = routes->lookup(key);
    report += r == Route{} ? fmt::format(" {}:absent", key) : fmt::format(" {}:{}", key, r.version);
  });
  say("ready");
  waitForLine();
  routes->poll();
  scheduler.runUntilIdle();
  say(report);
  return 0;
}

int churn(Vosh::EntityManager& em, const std::string& path) {
  em.mountWriter(path, {{kCollection, 16}});
  auto routes = em.table<uint64_t, Route>(path, kCollection);
  uint64_t n = 0;
  for (; n < kChurnKeys; ++n) routes->set(n, VoshTest::uniformRoute(n));
  say("ready");
  for (;;) {
    for (int i = 0; i < 4096; ++i, ++n) routes->set(n % kChurnKeys, VoshTest::uniformRoute(n));
    if (lineWaiting()) break;
  }
  say(fmt::format("done {}", n));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: %s verify|write|write-on-line|watch|churn PREFIX PATH [COUNT]\n",
                 argv[0]);
    return 2;
  }
  std::string command = argv[1];
  std::string path = argv[3];
  uint64_t count = argc > 4 ? std::strtoull(argv[4], nullptr, 10) : 0;
  Plin::TaskScheduler scheduler;
  auto em = Kiv::make<Vosh::EntityManager>(argv[2], &scheduler);
  try {
    if (command == "verify") return verify(*em, path, count);
    if (command == "write") return write(*em, path, count);
    if (command == "write-on-line") return writeOnLine(*em, path, count);
    if (command == "watch") return watch(*em, scheduler, path);
    if (command == "churn") return churn(*em, path);
  } catch (const Vosh::MountError& e) {
    say(e.what());
    return 1;
  }
  return 2;
}
