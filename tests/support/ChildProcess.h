// A child process for tests: started with its output captured, stopped by its PID when the
// test is done with it (also when an assertion fails first).
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace kps {

class ChildProcess {
 public:
  // Runs argv[0] in workDir with extra environment variables (an empty value removes one);
  // stdout and stderr are captured.
  ChildProcess(const std::vector<std::string>& argv, const std::string& workDir,
               const std::map<std::string, std::string>& env = {});
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  int pid() const { return pid_; }

  // Reads until standard output holds `text` or the deadline passes; true if found.
  bool waitForOutput(const std::string& text, std::chrono::milliseconds timeout);
  // Waits for the child to exit on its own; returns its wait status, or -1 on timeout.
  int waitForExit(std::chrono::milliseconds timeout);
  // Takes in whatever output has arrived, without waiting.
  void drain() {
    while (pump(std::chrono::milliseconds(0))) {
    }
  }
  // SIGKILL and reap.
  void kill();

  const std::string& out() const { return out_; }
  const std::string& err() const { return err_; }

 private:
  bool pump(std::chrono::milliseconds timeout);

  int pid_ = -1;
  int outFd_ = -1;
  int errFd_ = -1;
  int status_ = -1;
  std::string out_;
  std::string err_;
};

}  // namespace kps
