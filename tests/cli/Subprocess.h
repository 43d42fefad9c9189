#pragma once

// Runs the qelmpls tool as a child process with its output in files, so a
// test can check the exit status and what it printed, or kill it halfway.

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace Cli::Test {

class Subprocess {
 public:
  // Starts QELMPLS_BIN with `args`; stdout and stderr go to files named after `outputBase`.
  Subprocess(const std::vector<std::string>& args, const std::string& outputBase)
      : out_(outputBase + ".out"), err_(outputBase + ".err") {
    std::vector<std::string> all{QELMPLS_BIN};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : all) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
  }
  ~Subprocess() {
    if (running()) {
      kill(pid_, SIGKILL);
      wait();
    }
    unlink(out_.c_str());
    unlink(err_.c_str());
  }
  Subprocess(const Subprocess&) = delete;
  Subprocess& operator=(const Subprocess&) = delete;

  bool started() const { return pid_ > 0; }
  bool running() {
    if (pid_ <= 0 || done_) return false;
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) finish(status);
    return !done_;
  }
  // The exit status, or 128 plus the signal that ended it.
  int wait() {
    if (pid_ > 0 && !done_) {
      int status = 0;
      waitpid(pid_, &status, 0);
      finish(status);
    }
    return exitCode_;
  }
  void signal(int sig) { kill(pid_, sig); }

  std::string out() const { return slurp(out_); }
  std::string err() const { return slurp(err_); }

  // Runs to completion.
  static int run(const std::vector<std::string>& args, const std::string& outputBase,
                 std::string* out = nullptr, std::string* err = nullptr) {
    Subprocess p(args, outputBase);
    int code = p.wait();
    if (out) *out = p.out();
    if (err) *err = p.err();
    return code;
  }

 private:
  void finish(int status) {
    done_ = true;
    exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  static std::string slurp(const std::string& path) {
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }

  std::string out_;
  std::string err_;
  pid_t pid_ = -1;
  bool done_ = false;
  int exitCode_ = -1;
};

}  // namespace Cli::Test
