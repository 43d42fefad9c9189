#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "TestRecords.h"
#include "VoshTestSupport.h"

namespace VoshTest {
namespace {

// The peer executable, started with pipes to its stdin and from its stdout.
class Peer {
 public:
  explicit Peer(const std::vector<std::string>& args) {
    int toChild[2], fromChild[2];
    if (pipe2(toChild, O_CLOEXEC) != 0 || pipe2(fromChild, O_CLOEXEC) != 0) std::abort();
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(VOSH_TEST_PEER));
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
      dup2(toChild[0], STDIN_FILENO);
      dup2(fromChild[1], STDOUT_FILENO);
      execv(VOSH_TEST_PEER, argv.data());
      _exit(127);
    }
    close(toChild[0]);
    close(fromChild[1]);
    toChild_ = toChild[1];
    fromChild_ = fdopen(fromChild[0], "r");
  }
  ~Peer() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    close(toChild_);
    fclose(fromChild_);
  }

  std::string readLine() {
    char buffer[4096];
    if (!fgets(buffer, sizeof(buffer), fromChild_)) return "<eof>";
    std::string line(buffer);
    if (!line.empty() && line.back() == '\n') line.pop_back();
    return line;
  }
  void writeLine(const std::string& line) {
    std::string text = line + "\n";
    ASSERT_EQ(write(toChild_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  int exitCode() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
  int toChild_ = -1;
  FILE* fromChild_ = nullptr;
};

class CrossProcessTest : public VoshFixture {};

#if defined(__SANITIZE_ADDRESS__)
constexpr uint64_t kMaxLookups = 300'000;
#else
constexpr uint64_t kMaxLookups = 1'000'000;
#endif

TEST_F(CrossProcessTest, aReaderInAnotherProcessFindsEverythingTheWriterWrote) {
  auto writer = manager();
  writer->mountWriter("hw/routes", {{"route", 1024}});
  auto routes = writer->table<uint64_t, Route>("hw/routes", "route");
  for (uint64_t k = 0; k < 10'000; ++k) routes->set(k, routeFor(k));
  Peer peer({"verify", prefix_, "hw/routes", "10000"});
  EXPECT_EQ(peer.readLine(), "verified 10000");
  EXPECT_EQ(peer.exitCode(), 0);
}

TEST_F(CrossProcessTest, whatAWriterProcessLeftIsFoundByTheNextWriterMount) {
  {
    Peer peer({"write", prefix_, "hw/routes", "5000"});
    EXPECT_EQ(peer.readLine(), "wrote 5000");
    ASSERT_EQ(peer.exitCode(), 0);
  }
  auto writer = manager();
  writer->mountWriter("hw/routes", {{"route", 1024}});
  auto routes = writer->table<uint64_t, Route>("hw/routes", "route");
  EXPECT_EQ(routes->size(), 5000u);
  uint64_t missing = 0;
  for (uint64_t k = 0; k < 5000; ++k) missing += routes->lookup(k) != routeFor(k);
  EXPECT_EQ(missing, 0u);
}

TEST_F(CrossProcessTest, aReaderInAnotherProcessIsToldOfEachChangedKeyOnce) {
  auto writer = manager();
  writer->mountWriter("hw/routes", {{"route", 16}});
  auto routes = writer->table<uint64_t, Route>("hw/routes", "route");
  for (uint64_t k = 1; k <= 3; ++k) routes->set(k, routeFor(k));
  Peer peer({"watch", prefix_, "hw/routes"});
  ASSERT_EQ(peer.readLine(), "ready");
  routes->set(2, routeFor(2, 2));
  routes->set(2, routeFor(2, 3));
  routes->del(3);
  routes->set(4, routeFor(4));
  peer.writeLine("go");
  EXPECT_EQ(peer.readLine(), "notified 2:3 3:absent 4:1");
  EXPECT_EQ(peer.exitCode(), 0);
}

TEST_F(CrossProcessTest, aReaderInRealTimeHearsAnotherProcessWithoutBeingAskedToPoll) {
  Peer peer({"write-on-line", prefix_, "hw/routes", "100"});
  ASSERT_EQ(peer.readLine(), "ready");
  Plin::TaskScheduler realTime(Plin::TaskScheduler::Mode::realTime);
  auto readerManager = Kiv::make<Vosh::EntityManager>(prefix_, &realTime);
  readerManager->mountReader("hw/routes", Vosh::mountTypeReader);
  auto reader = readerManager->table<uint64_t, Route>("hw/routes", "route");
  std::vector<uint64_t> notified;
  auto c = record(reader, notified);
  peer.writeLine("go");
  EXPECT_EQ(peer.readLine(), "wrote 100");
  EXPECT_TRUE(realTime.runUntil([&] { return notified.size() == 100; }, 10.0));
  EXPECT_EQ(reader->lookup(99), routeFor(99));
  EXPECT_EQ(peer.exitCode(), 0);
  readerManager->unmount("hw/routes");
  EXPECT_EQ(realTime.nextExpiry(), std::numeric_limits<double>::infinity());
}

TEST_F(CrossProcessTest, aReaderNeverSeesATornRecordWhileAnotherProcessRewritesIt) {
  Peer peer({"churn", prefix_, "hw/routes"});
  ASSERT_EQ(peer.readLine(), "ready");
  auto readerManager = manager();
  readerManager->mountReader("hw/routes", Vosh::mountTypeReader);
  std::vector<uint64_t> reports;
  auto reader = readerManager->table<uint64_t, Route>(
      "hw/routes", "route", [&](uint64_t key) { reports.push_back(key); });
  uint64_t torn = 0, changes = 0, last[4] = {};
  for (uint64_t i = 0; i < kMaxLookups && changes < 100'000; ++i) {
    Route r = reader->lookup(i % 4);
    torn += !isUniform(r);
    changes += r.nextHop != last[i % 4];
    last[i % 4] = r.nextHop;
  }
  peer.writeLine("stop");
  EXPECT_EQ(peer.readLine().rfind("done ", 0), 0u);
  EXPECT_EQ(peer.exitCode(), 0);
  EXPECT_EQ(torn, 0u);
  EXPECT_TRUE(reports.empty());
  EXPECT_GT(changes, 4u);
}

}  // namespace
}  // namespace VoshTest
