// A private CUPS scheduler with the sandbox's queues, for the whole test binary: started once
// on free loopback ports, stopped by its PIDs at the end (also after failed tests).
#pragma once

#include <cups/cups.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "tests/support/TempDir.h"

namespace kps {

inline int freeLoopbackPort() {
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

class PrivateCups {
 public:
  PrivateCups() {
    port_ = freeLoopbackPort();
    const std::string server = "localhost:" + std::to_string(port_);
    ::setenv("CUPS_SERVER", server.c_str(), 1);
    ::setenv("HOME", home_.path().c_str(), 1);  // lpoptions of the default printer go here
    cupsSetServer(server.c_str());
    run("start " + state_.path() + " " + std::to_string(port_) + " " +
        std::to_string(freeLoopbackPort()));
  }
  ~PrivateCups() { run("stop " + state_.path()); }
  PrivateCups(const PrivateCups&) = delete;
  PrivateCups& operator=(const PrivateCups&) = delete;

  // Runs a CUPS command-line tool against this scheduler; its exit status.
  int tool(const std::string& command) const { return std::system((command + " >/dev/null 2>&1").c_str()); }
  // Output of a command (stdout), for lp's "request id is ...".
  std::string output(const std::string& command) const {
    std::string text;
    if (FILE* pipe = ::popen(command.c_str(), "r")) {
      char buffer[512];
      while (std::fgets(buffer, sizeof buffer, pipe)) text += buffer;
      ::pclose(pipe);
    }
    return text;
  }
  void setScriptMode(const std::string& mode) const {
    std::ofstream(state_.file("script-mode")) << mode << "\n";
  }
  std::string keptDocumentsDir() const { return state_.file("eve"); }
  std::string stateDir() const { return state_.path(); }

 private:
  void run(const std::string& arguments) const {
    const std::string command =
        std::string(KPS_SOURCE_DIR) + "/sandbox/cups.sh " + arguments + " >/dev/null";
    if (std::system(command.c_str()) != 0) std::abort();
  }
  TempDir state_;
  TempDir home_;
  int port_ = 0;
};

}  // namespace kps
