#include "tests/support/ChildProcess.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <thread>

namespace kps {

ChildProcess::ChildProcess(const std::vector<std::string>& argv, const std::string& workDir,
                           const std::map<std::string, std::string>& env) {
  const std::string out = files_.file("out"), err = files_.file("err");
  pid_ = ::fork();
  if (pid_ != 0) return;
  ::dup2(::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 1);
  ::dup2(::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
  if (::chdir(workDir.c_str()) != 0) ::_exit(126);
  for (const auto& [name, value] : env)
    value.empty() ? ::unsetenv(name.c_str()) : ::setenv(name.c_str(), value.c_str(), 1);
  std::vector<char*> args;
  for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  ::execv(args[0], args.data());
  ::_exit(127);
}

bool ChildProcess::waitForOutput(const std::string& text, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (out().find(text) == std::string::npos) {
    if (std::chrono::steady_clock::now() > deadline || waitForExit(std::chrono::milliseconds(20)) != -1)
      return out().find(text) != std::string::npos;
  }
  return true;
}

int ChildProcess::waitForExit(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    if (pid_ > 0 && ::waitpid(pid_, &status_, WNOHANG) == pid_) pid_ = -1;
    if (pid_ <= 0) return status_;
    if (std::chrono::steady_clock::now() >= deadline) return -1;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));  // the child ends on its own time
  }
}

void ChildProcess::kill() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, &status_, 0);
  pid_ = -1;
}

int runToEnd(const std::vector<std::string>& argv, const std::string& workDir,
             const std::map<std::string, std::string>& env, std::chrono::milliseconds limit,
             std::string& output) {
  ChildProcess command(argv, workDir, env);
  const int status = command.waitForExit(limit);
  output = command.out() + command.err();
  return status >= 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int freeLoopbackPort() {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  ::close(fd);
  return ntohs(address.sin_port);
}

int runWithSpareMemory(std::size_t spareBytes, const std::function<int()>& body) {
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child < 0) return -1;
  if (child == 0) {
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlim_t limit = static_cast<rlim_t>(pages) * ::sysconf(_SC_PAGESIZE) + spareBytes;
    const rlimit bound{limit, limit};
    ::setrlimit(RLIMIT_AS, &bound);
    _exit(body());
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  return status;
}

}  // namespace kps
