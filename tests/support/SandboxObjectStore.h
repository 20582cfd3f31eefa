// The sandbox's object store (sandbox/server.js) for a test program: on free loopback ports,
// in a data folder of its own, stopped by its PID when the object goes. It checks every
// signature with the official client's own signer; faults are scripted through its files.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "remote/ObjectStore.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/HttpsServer.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/TaskBodies.h"

namespace kps {

class SandboxObjectStore {
 public:
  SandboxObjectStore()
      : port_(freeLoopbackPort()),
        server_({"/usr/bin/node", std::string(KPS_SOURCE_DIR) + "/sandbox/server.js",
                 TestCertificates::get().folder(), data_.path()},
                "/", {{"KPS_SANDBOX_PORTS", std::to_string(freeLoopbackPort()) + "," +
                                                std::to_string(freeLoopbackPort()) + "," + std::to_string(port_)}}) {
    for (int i = 0; i < 500 && !std::filesystem::exists(data_.file("ready")); ++i)
      server_.waitForExit(std::chrono::milliseconds(20));
  }
  // Settings for the client under test: this store, its keys; back-offs recorded, not taken.
  OssSettings settings() {
    OssSettings s{"https://127.0.0.1:" + std::to_string(port_), "qzlp", "sandbox-access-key-id",
                  "sandbox-access-key-secret"};
    s.pause = [this](std::chrono::milliseconds ms) { pauses_.push_back(ms.count()); };
    return s;
  }
  void put(const std::string& key, const std::string& bytes) { data_.write("objects/" + key, bytes); }
  // Answers for the next requests, one each (the forms are listed in sandbox/server.js).
  void fail(const std::string& json, int times = 1) {
    std::string lines = data_.read("oss-faults");
    for (int i = 0; i < times; ++i) lines += json + "\n";
    data_.write("oss-faults", lines);
  }
  // The store's clock runs `ahead` seconds before this machine's.
  void skewClock(int ahead, bool serverTimeInBody) {
    data_.write("oss-clock", "{\"ahead\":" + std::to_string(ahead) + ",\"serverTime\":" +
                                 (serverTimeInBody ? "true}" : "false}"));
  }
  int requests() const { return static_cast<int>(count(data_.read("oss-requests.log"), "\n")); }
  const std::vector<long>& pauses() const { return pauses_; }
  // Back to no objects, faults, clock skew, requests or pauses.
  void reset() {
    for (const char* name : {"objects", "oss-faults", "oss-clock", "oss-requests.log"})
      std::filesystem::remove_all(data_.file(name));
    pauses_.clear();
  }

 private:
  TempDir data_;
  int port_;
  ChildProcess server_;
  std::vector<long> pauses_;
};

}  // namespace kps
