// An HTTPS server in the test process, on a loopback port, with a certificate from a CA made
// for the test run (and a second CA that signed nothing it presents), stopped and joined when
// the object goes; and the client's transport settings pointed at that CA.
#pragma once

#include <httplib.h>

#include <cstdlib>
#include <string>
#include <thread>

#include "remote/HttpRequest.h"
#include "remote/ObjectStore.h"
#include "tests/support/TempDir.h"

namespace kps {

struct TestCertificates {
  static const TestCertificates& get() {
    static const TestCertificates certificates;
    return certificates;
  }
  std::string caFile() const { return dir.file("ca.pem"); }
  std::string otherCaFile() const { return other.file("ca.pem"); }
  std::string folder() const { return dir.path(); }  // also server.pem and server.key
  TempDir dir, other;

 private:
  TestCertificates() {
    const std::string script = std::string(KPS_SOURCE_DIR) + "/sandbox/make-certs.sh ";
    if (std::system((script + dir.path()).c_str()) != 0 || std::system((script + other.path()).c_str()) != 0) std::abort();
  }
};

// The client's settings for the life of the object, put back as they were afterwards (also
// when an assertion ends the test early).
class TestTransport {
 public:
  TestTransport() : http_(httpSettings()), oss_(ossSettings()), offset_(ossClockOffsetSeconds()) {
    httpSettings().caBundle = TestCertificates::get().caFile();
  }
  ~TestTransport() {
    httpSettings() = http_;
    ossSettings() = oss_;
    ossClockOffsetSeconds() = offset_;
  }

 private:
  const HttpSettings http_;
  const OssSettings oss_;
  const std::int64_t offset_;
};

// Keeps its connections as a backend does; stopping waits out its one-second keep-alive time.
class HttpsServer {
 public:
  HttpsServer()
      : server_(TestCertificates::get().dir.file("server.pem").c_str(), TestCertificates::get().dir.file("server.key").c_str()) {
    server_.set_keep_alive_max_count(1000);
    server_.set_keep_alive_timeout(1);
  }
  ~HttpsServer() {
    if (!thread_.joinable()) return;
    // It listens from bind on; stopping before the accept loop began would leave it running.
    while (!server_.is_running()) std::this_thread::yield();
    server_.stop();
    thread_.join();
  }
  httplib::SSLServer& routes() { return server_; }

  // Listens on 127.0.0.1 (on `port`, or a free one); returns the origin "https://127.0.0.1:PORT".
  std::string start(int port = 0) {
    port_ = port ? (server_.bind_to_port("127.0.0.1", port) ? port : -1) : server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    return "https://127.0.0.1:" + std::to_string(port_);
  }
  int port() const { return port_; }

 private:
  httplib::SSLServer server_;
  std::thread thread_;
  int port_ = 0;
};

}  // namespace kps
