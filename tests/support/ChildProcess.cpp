#include "tests/support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace kps {

ChildProcess::ChildProcess(const std::vector<std::string>& argv, const std::string& workDir,
                           const std::map<std::string, std::string>& env) {
  int outPipe[2], errPipe[2];
  if (::pipe(outPipe) != 0 || ::pipe(errPipe) != 0) return;
  pid_ = ::fork();
  if (pid_ == 0) {
    ::dup2(outPipe[1], 1);
    ::dup2(errPipe[1], 2);
    ::close(outPipe[0]);
    ::close(errPipe[0]);
    if (::chdir(workDir.c_str()) != 0) ::_exit(126);
    for (const auto& [name, value] : env)
      value.empty() ? ::unsetenv(name.c_str()) : ::setenv(name.c_str(), value.c_str(), 1);
    std::vector<char*> args;
    for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    ::execv(args[0], args.data());
    ::_exit(127);
  }
  ::close(outPipe[1]);
  ::close(errPipe[1]);
  outFd_ = outPipe[0];
  errFd_ = errPipe[0];
}

ChildProcess::~ChildProcess() {
  kill();
  if (outFd_ >= 0) ::close(outFd_);
  if (errFd_ >= 0) ::close(errFd_);
}

bool ChildProcess::pump(std::chrono::milliseconds timeout) {
  pollfd fds[2] = {{outFd_, POLLIN, 0}, {errFd_, POLLIN, 0}};
  if (outFd_ < 0 && errFd_ < 0) return false;
  if (::poll(fds, 2, static_cast<int>(timeout.count())) <= 0) return false;
  bool any = false;
  char buffer[4096];
  for (int i = 0; i < 2; ++i) {
    if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
    const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
    int& fd = i == 0 ? outFd_ : errFd_;
    if (n > 0) {
      (i == 0 ? out_ : err_).append(buffer, static_cast<std::size_t>(n));
      any = true;
    } else {
      ::close(fd);  // end of file: the child closed it or exited
      fd = -1;
    }
  }
  return any;
}

bool ChildProcess::waitForOutput(const std::string& text, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (out_.find(text) == std::string::npos) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0 || (outFd_ < 0 && errFd_ < 0)) return false;
    pump(left);
  }
  return true;
}

int ChildProcess::waitForExit(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (pid_ > 0 && std::chrono::steady_clock::now() < deadline) {
    pump(std::chrono::milliseconds(20));
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
      status_ = status;
      pid_ = -1;
    } else if (outFd_ < 0 && errFd_ < 0) {
      ::usleep(1000);  // both pipes closed: only the reaping is left
    }
  }
  if (pid_ <= 0)
    while ((outFd_ >= 0 || errFd_ >= 0) && pump(std::chrono::milliseconds(100))) {
    }
  return pid_ > 0 ? -1 : status_;
}

void ChildProcess::kill() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  int status = 0;
  ::waitpid(pid_, &status, 0);
  if (status_ == -1) status_ = status;
  pid_ = -1;
}

}  // namespace kps
