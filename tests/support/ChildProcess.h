// A child process for tests, its output going to files: stopped by its PID when the object goes
// (also when an assertion fails first).
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/support/TempDir.h"

namespace kps {

class ChildProcess {
 public:
  // Runs argv[0] in workDir with extra environment variables (an empty value removes one).
  ChildProcess(const std::vector<std::string>& argv, const std::string& workDir,
               const std::map<std::string, std::string>& env = {});
  ~ChildProcess() { kill(); }

  // Waits until standard output holds `text`; false when the deadline passes first.
  bool waitForOutput(const std::string& text, std::chrono::milliseconds timeout);
  // Waits for the child to end by itself: its wait status, or -1 when it still runs.
  int waitForExit(std::chrono::milliseconds timeout);
  void kill();  // SIGKILL and reap

  std::string out() const { return files_.read("out"); }
  std::string err() const { return files_.read("err"); }

 private:
  TempDir files_;
  int pid_ = -1;
  int status_ = -1;
};

// Runs a command to its end, bounded by `limit` (killed after it): its exit code, -1 when it
// did not end by itself; its standard output and then its standard error in `output`.
int runToEnd(const std::vector<std::string>& argv, const std::string& workDir,
             const std::map<std::string, std::string>& env, std::chrono::milliseconds limit,
             std::string& output);

// A loopback port no one listens on now, for a daemon a test starts.
int freeLoopbackPort();

// Runs `body` in a forked child whose address space may grow by `spareBytes` only, and returns
// the child's wait status (`body`'s result as its exit code, or the signal that ended it).
// Meaningless under a sanitizer, whose shadow memory does not fit such a limit.
int runWithSpareMemory(std::size_t spareBytes, const std::function<int()>& body);

}  // namespace kps
