// The HTTP JSON client against an HTTPS server on loopback.
#include "remote/HttpRequest.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <set>

#include "tests/support/HttpsServer.h"
#include "tests/support/TestTransport.h"

namespace kps {
namespace {

class HttpRequestTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto& routes = server.routes();
    routes.Get("/list", [this](const httplib::Request& req, httplib::Response& res) {
      ++hits;
      lastTarget = req.target;
      lastAccept = req.get_header_value("Accept");
      res.set_content("{\"code\":\"100\"}", "application/json");
    });
    routes.Post("/sync", [this](const httplib::Request& req, httplib::Response& res) {
      ++hits;
      lastBody = req.body;
      lastContentType = req.get_header_value("Content-Type");
      res.set_content("ok", "text/plain");
    });
    routes.Get("/zeros", [](const httplib::Request&, httplib::Response& res) {
      res.set_content(std::string("a\0b\0\0c", 6), "application/octet-stream");
    });
    routes.Get("/moved", [](const httplib::Request&, httplib::Response& res) {
      res.set_redirect("/list?from=redirect");
    });
    routes.Get("/missing", [](const httplib::Request&, httplib::Response& res) {
      res.status = 404;
      res.set_content("{\"error\":\"not here\"}", "application/json");
    });
    routes.Get("/broken", [](const httplib::Request&, httplib::Response& res) {
      res.status = 503;
      res.set_content("down", "text/plain");
    });
    routes.Get("/silent", [this](const httplib::Request&, httplib::Response& res) {
      std::unique_lock<std::mutex> lock(silentMutex);
      silentRelease.wait(lock, [this] { return released; });
      res.set_content("late", "text/plain");
    });
    base = server.start();
  }
  void TearDown() override {
    {
      std::lock_guard<std::mutex> lock(silentMutex);
      released = true;
    }
    silentRelease.notify_all();
    server.stop();
  }

  TestTransport transport;
  HttpsServer server;
  std::string base;
  std::atomic<int> hits{0};
  std::string lastTarget, lastAccept, lastBody, lastContentType;
  std::mutex silentMutex;
  std::condition_variable silentRelease;
  bool released = false;
};

TEST_F(HttpRequestTest, GetAddsTheQueryOnlyWhenThereIsOne) {
  std::string response = "old";
  ASSERT_EQ(HttpRequest(base + "/list", "screenNumber=S1", "GET", response), 0);
  EXPECT_EQ(response, "{\"code\":\"100\"}");
  EXPECT_EQ(lastTarget, "/list?screenNumber=S1");
  EXPECT_EQ(lastAccept, "application/json");
  ASSERT_EQ(HttpRequest(base + "/list", "", "get", response), 0);
  EXPECT_EQ(lastTarget, "/list");
}

TEST_F(HttpRequestTest, PostSendsTheJsonBody) {
  std::string response;
  const std::string body = "[{\"taskId\":\"T\",\"status\":2,\"completedNumber\":1}]";
  ASSERT_EQ(HttpRequest(base + "/sync", body, "post", response), 0);
  EXPECT_EQ(lastBody, body);
  EXPECT_EQ(lastContentType, "application/json");
  EXPECT_EQ(response, "ok");
}

TEST_F(HttpRequestTest, RefusedMethodsMakeNoRequestAndSayNothing) {
  for (const char* method : {"Get", "PUT", "GET ", "pOST", "", "DELETE"}) {
    std::string response = "kept";
    testing::internal::CaptureStderr();
    EXPECT_EQ(HttpRequest(base + "/list", "", method, response), -1) << method;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(response, "kept");
  }
  std::string response;
  EXPECT_EQ(HttpRequest(base + "/list", "", nullptr, response), -1);
  EXPECT_EQ(hits.load(), 0);
}

TEST_F(HttpRequestTest, BodiesComeBackWholeWhateverTheStatus) {
  struct Case {
    const char* path;
    std::string body;
  };
  const Case cases[] = {{"/zeros", std::string("a\0b\0\0c", 6)},
                        {"/moved", "{\"code\":\"100\"}"},
                        {"/missing", "{\"error\":\"not here\"}"},
                        {"/broken", "down"}};
  for (const auto& c : cases) {
    std::string response;
    EXPECT_EQ(HttpRequest(base + c.path, "", "GET", response), 0) << c.path;
    EXPECT_EQ(response, c.body) << c.path;
  }
  EXPECT_EQ(lastTarget, "/list?from=redirect");
}

TEST_F(HttpRequestTest, SilentServerTimesOut) {
  httpSettings().timeoutMs = 300;
  std::string response = "kept";
  testing::internal::CaptureStderr();
  EXPECT_EQ(HttpRequest(base + "/silent", "", "GET", response), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "curl_easy_perform() failed: Timeout was reached\n");
  EXPECT_EQ(response, "kept");
  EXPECT_EQ(lastTaskListResult, CURLE_OPERATION_TIMEDOUT);
}

TEST_F(HttpRequestTest, UntrustedCertificateIsRefused) {
  httpSettings().caBundle = TestCertificates::get().otherCaFile();
  std::string response;
  testing::internal::CaptureStderr();
  EXPECT_EQ(HttpRequest(base + "/list", "", "GET", response), -1);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("curl_easy_perform() failed: "),
            std::string::npos);
  EXPECT_EQ(hits.load(), 0);
}

TEST_F(HttpRequestTest, QuietVariantSaysNothingAndKeepsTheLastResult) {
  lastTaskListResult = CURLE_OK;
  std::string response;
  testing::internal::CaptureStderr();
  EXPECT_EQ(HttpRequestQuiet("https://127.0.0.1:1/sync", "[]", "POST", response), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(lastTaskListResult, CURLE_OK);
  EXPECT_EQ(HttpRequest("https://127.0.0.1:1/list", "", "GET", response), -1);
  EXPECT_EQ(lastTaskListResult, CURLE_COULDNT_CONNECT);
}

// Polls and syncs reuse one connection; a backend that drops it costs a new one, not a request.
TEST(BackendConnection, OneIsKeptAndALostOneIsMadeAgain) {
  TestTransport transport;
  std::mutex mutex;
  std::vector<int> ports;  // the client's end of the connection each request came on
  const auto serve = [&](HttpsServer& server) {
    const auto record = [&](const httplib::Request& req, httplib::Response& res) {
      std::lock_guard<std::mutex> lock(mutex);
      ports.push_back(req.remote_port);
      res.set_content("{}", "application/json");
    };
    server.routes().Get("/list", record);
    server.routes().Post("/sync", record);
  };
  auto server = std::make_unique<HttpsServer>(true);
  serve(*server);
  const std::string base = server->start();
  std::string response;
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(HttpRequest(base + "/list", "screenNumber=S", "GET", response), 0);
    ASSERT_EQ(HttpRequestQuiet(base + "/sync", "[]", "POST", response), 0);
  }
  EXPECT_EQ(std::set<int>(ports.begin(), ports.end()).size(), 1u);

  const int port = server->port();
  server = std::make_unique<HttpsServer>(true);  // the old one closes the connection as it goes
  serve(*server);
  server->start(port);
  EXPECT_EQ(HttpRequest(base + "/list", "", "GET", response), 0);
  ASSERT_EQ(ports.size(), 7u);
  EXPECT_NE(ports.back(), ports.front());
}

}  // namespace
}  // namespace kps
