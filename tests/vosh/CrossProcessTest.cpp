#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <limits>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "VoshTestSupport.h"

namespace VoshTest {
namespace {

// Another process, forked, running `body` with an entity manager of its own.
// It exits with 0 when body returns true; the two sides keep in step by
// sending each other a byte over a socket.
class Child {
 public:
  using Body = std::function<bool(Child&, Vosh::EntityManager&)>;
  Child(const std::string& prefix, const Body& body) {
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) std::abort();
    pid_ = fork();
    if (pid_ < 0) std::abort();
    fd_ = fds[pid_ == 0 ? 1 : 0];
    close(fds[pid_ == 0 ? 0 : 1]);
    if (pid_ != 0) return;
    // Nothing may leave the child but its exit code: an exception would carry
    // on with the rest of the test program in here.
    bool ok = false;
    try {
      Plin::TaskScheduler scheduler;
      ok = body(*this, *Kiv::make<Vosh::EntityManager>(prefix, &scheduler));
    } catch (...) {
    }
    _exit(ok ? 0 : 1);
  }
  ~Child() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    close(fd_);
  }

  // A lost signal shows as the other side's awaitSignal() failing.
  void signal() { send(fd_, "", 1, MSG_NOSIGNAL); }
  // False when the other side is gone.
  bool awaitSignal() {
    char c;
    return read(fd_, &c, 1) == 1;
  }
  bool signalled() {
    pollfd p{fd_, POLLIN, 0};
    return ::poll(&p, 1, 0) > 0;
  }
  bool succeeded() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }

 private:
  pid_t pid_ = -1;
  int fd_ = -1;
};

class CrossProcessTest : public VoshFixture {};

// One reader polls when asked, the other by itself in real time; each is
// told of each changed key once, with the record as the writer left it.
TEST_F(CrossProcessTest, readersHearEachKeyAnotherProcessChangedOnce) {
  Child writerProcess(prefix_, [](Child& self, Vosh::EntityManager& em) {
    em.mountWriter("hw/routes", {{"route", 16}});
    auto routes = em.table<uint64_t, Route>("hw/routes", "route");
    writeRoutes(*routes, 1, 4);
    self.signal();
    self.awaitSignal();
    routes->set(2, routeFor(2, 2));
    routes->set(2, routeFor(2, 3));
    routes->del(3);
    routes->set(4, routeFor(4));
    return true;
  });
  ASSERT_TRUE(writerProcess.awaitSignal());
  Side polled = reader(Vosh::mountTypeSharedReader);
  Plin::TaskScheduler realTime(Plin::TaskScheduler::Mode::realTime);
  auto realTimeManager = Kiv::make<Vosh::EntityManager>(prefix_, &realTime);
  realTimeManager->mountReader("hw/routes", Vosh::mountTypeReader);
  auto inRealTime = realTimeManager->table<uint64_t, Route>("hw/routes", "route");
  std::string heard[2];
  auto hear = [&](std::string& into, RouteTable& routes) {
    return routes.onChange.connect([&](uint64_t key) {
      const Route r = routes.lookup(key);
      into += r == Route{} ? fmt::format(" {}:absent", key) : fmt::format(" {}:{}", key, r.version);
    });
  };
  auto c0 = hear(heard[0], *polled.routes);
  auto c1 = hear(heard[1], *inRealTime);
  writerProcess.signal();
  ASSERT_TRUE(writerProcess.succeeded());
  polled.routes->poll();
  scheduler_.runUntilIdle();
  EXPECT_EQ(heard[0], " 2:3 3:absent 4:1");
  EXPECT_TRUE(realTime.runUntil([&] { return heard[1].size() == heard[0].size(); }, 10.0));
  EXPECT_EQ(heard[1], heard[0]);
  realTimeManager->unmount("hw/routes");
  EXPECT_EQ(realTime.nextExpiry(), std::numeric_limits<double>::infinity());
}

TEST_F(CrossProcessTest, aReaderNeverSeesATornRecordWhileAnotherProcessRewritesIt) {
  Child churn(prefix_, [](Child& self, Vosh::EntityManager& em) {
    em.mountWriter("hw/routes", {{"route", 16}});
    auto routes = em.table<uint64_t, Route>("hw/routes", "route");
    uint32_t n = 0;
    for (; n < 4; ++n) routes->set(n, routeFor(n, n));
    self.signal();
    while (!self.signalled()) {
      for (int i = 0; i < 4096; ++i, ++n) routes->set(n % 4, routeFor(n % 4, n));
    }
    return true;
  });
  ASSERT_TRUE(churn.awaitSignal());
  auto readerManager = manager();
  readerManager->mountReader("hw/routes", Vosh::mountTypeReader);
  std::vector<uint64_t> reports;
  auto reader = readerManager->table<uint64_t, Route>(
      "hw/routes", "route", [&](uint64_t key) { reports.push_back(key); });
  uint64_t torn = 0, changes = 0, last[4] = {};
  // Bounded by changes seen, not by reads: on a loaded machine the writer may
  // get no processor for the first million reads.
  for (uint64_t i = 0; i < 500'000'000 && changes < 100'000; ++i) {
    Route r = reader->lookup(i % 4);
    torn += r != routeFor(i % 4, r.version);
    changes += r.version != last[i % 4];
    last[i % 4] = r.version;
  }
  churn.signal();
  EXPECT_TRUE(churn.succeeded());
  EXPECT_EQ(torn, 0u);
  EXPECT_TRUE(reports.empty());
  EXPECT_GT(changes, 4u);
}

}  // namespace
}  // namespace VoshTest
