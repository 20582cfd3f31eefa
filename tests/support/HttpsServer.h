// An HTTPS server in the test process, on a free loopback port, with a certificate from a CA
// made for the test run. Stopped and joined when the object goes.
#pragma once

#include <httplib.h>

#include <cstdlib>
#include <string>
#include <thread>

#include "tests/support/TempDir.h"

namespace kps {

// The certificates of this test binary, made once.
struct TestCertificates {
  static const TestCertificates& get() {
    static TestCertificates certificates;
    return certificates;
  }
  std::string caFile() const { return dir.file("ca.pem"); }
  std::string certFile() const { return dir.file("server.pem"); }
  std::string keyFile() const { return dir.file("server.key"); }
  // A second CA that signed nothing the servers present.
  std::string otherCaFile() const { return other.file("ca.pem"); }

 private:
  TestCertificates() {
    const std::string script = std::string(KPS_SOURCE_DIR) + "/tests/support/make-certs.sh";
    if (std::system((script + " " + dir.path()).c_str()) != 0 ||
        std::system((script + " " + other.path()).c_str()) != 0)
      std::abort();
  }
  TempDir dir;
  TempDir other;
};

class HttpsServer {
 public:
  // Without keepAlive every answer closes its connection: a client's kept connection would
  // otherwise hold stop() for the server's whole keep-alive time-out.
  explicit HttpsServer(bool keepAlive = false)
      : server_(TestCertificates::get().certFile().c_str(),
                TestCertificates::get().keyFile().c_str()) {
    server_.set_keep_alive_max_count(keepAlive ? 1000 : 1);
    server_.set_keep_alive_timeout(1);
  }
  ~HttpsServer() { stop(); }

  httplib::SSLServer& routes() { return server_; }

  // Starts listening on 127.0.0.1 (on `port`, or any free one); returns the origin
  // ("https://127.0.0.1:PORT").
  std::string start(int port = 0) {
    port_ = port ? (server_.bind_to_port("127.0.0.1", port) ? port : -1)
                 : server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    return origin();
  }
  std::string origin() const { return "https://127.0.0.1:" + std::to_string(port_); }
  std::string localhostOrigin() const { return "https://localhost:" + std::to_string(port_); }
  int port() const { return port_; }

  void stop() {
    if (!thread_.joinable()) return;
    // The socket listens from bind on; stop only once the accept loop has begun, or it would
    // begin after the stop and never end.
    while (!server_.is_running()) std::this_thread::yield();
    server_.stop();
    thread_.join();
  }

 private:
  httplib::SSLServer server_;
  std::thread thread_;
  int port_ = 0;
};

}  // namespace kps
