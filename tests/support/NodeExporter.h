// Debian's prometheus-node-exporter for a test: only its textfile collector, reading `folder`,
// on a free loopback port; stopped by its PID when the object goes, also when a test fails.
#pragma once

#include <httplib.h>

#include <chrono>
#include <string>

#include "tests/support/ChildProcess.h"
#include "tests/support/WaitUntil.h"

namespace kps {

class NodeExporter {
 public:
  explicit NodeExporter(const std::string& folder)
      : port_(freeLoopbackPort()),
        process_({"/usr/bin/prometheus-node-exporter", "--collector.disable-defaults", "--collector.textfile",
                  "--collector.textfile.directory=" + folder, "--web.listen-address=127.0.0.1:" + std::to_string(port_)},
                 folder) {}

  // Whether it answers within `limit`.
  bool ready(std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    return waitUntil([&] { return !scrape().empty(); }, limit);
  }
  // Its /metrics, or "" when it does not answer.
  std::string scrape() {
    httplib::Client client("127.0.0.1", port_);
    client.set_connection_timeout(2);
    client.set_read_timeout(5);
    const auto answer = client.Get("/metrics");
    return answer && answer->status == 200 ? answer->body : "";
  }
  std::string log() const { return process_.err(); }

 private:
  int port_;
  ChildProcess process_;
};

}  // namespace kps
