// A private CUPS scheduler with the sandbox's queues (sandbox/cups.sh), for the whole test
// program: started once on free loopback ports, stopped by its PIDs at the end (also after
// failed tests). The process's CUPS clients, tools included, talk to it.
#pragma once

#include <cups/cups.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/support/ChildProcess.h"
#include "tests/support/Shell.h"

namespace kps {

class PrivateCups {
 public:
  PrivateCups() {
    const std::string server = "localhost:" + std::to_string(freeLoopbackPort());
    ::setenv("CUPS_SERVER", server.c_str(), 1);
    ::setenv("HOME", home_.path().c_str(), 1);  // lpoptions of the default printer go here
    cupsSetServer(server.c_str());
    if (sh(script_ + " start " + state_.path() + " " + server.substr(10) + " " + std::to_string(freeLoopbackPort())) != 0)
      std::abort();
  }
  ~PrivateCups() { sh(script_ + " stop " + state_.path()); }

  void setScriptMode(const std::string& mode) const { state_.write("script-mode", mode + "\n"); }
  // kps-script's prints left, reported after every job, out of paper at 0; -1: none reported.
  void setMediaLeft(int prints) const {
    if (prints < 0) {
      std::remove(state_.file("media-left").c_str());
      return;
    }
    state_.write("media-left", std::to_string(prints) + "\n");
    ::chmod(state_.file("media-left").c_str(), 0666);  // the backend runs as lp
  }
  // kps-script reports its media as a driver that counts: prints, of a 400-print roll.
  void setMediaCounted(bool counted) const {
    if (counted) state_.write("media-counted", "");
    else std::remove(state_.file("media-counted").c_str());
  }
  // The jobs of kps-script whose page came out, in order.
  std::string pages() const { return state_.read("pages"); }
  // Stops the scheduler alone and starts it again; it keeps its jobs.
  void restartScheduler() const { sh(script_ + " restart " + state_.path()); }
  std::string keptDocumentsDir() const { return state_.file("eve"); }
  // The virtual printer's newest kept document (named by its job number), "" for none.
  std::string newestKeptPdf() const {
    std::string kept;
    long newest = 0;
    for (const auto& entry : std::filesystem::directory_iterator(keptDocumentsDir()))
      if (entry.path().extension() == ".pdf" && std::atol(entry.path().filename().c_str()) > newest)
        newest = std::atol(entry.path().filename().c_str()), kept = entry.path().string();
    return kept;
  }
  // The scheduler's log (debug level: what each job's filters said), and a PPD whose paper is
  // the virtual printer's, for queues a test adds.
  std::string log() const { return state_.read("log/error_log"); }
  // Every request the scheduler answered, with its status ("GET /printers/Q.ppd HTTP/1.1" 200).
  std::string accessLog() const { return state_.read("log/access_log"); }
  std::string photoPpd() const { return state_.file("photo.ppd"); }

 private:
  const std::string script_ = std::string(KPS_SOURCE_DIR) + "/sandbox/cups.sh";
  TempDir state_;
  TempDir home_;
};

}  // namespace kps
