// The HTTP JSON client and the status sync against HTTPS servers on loopback, the sync over a
// real store file.
#include <gtest/gtest.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "base/Health.h"
#include "remote/HttpRequest.h"
#include "remote/RemoteOrderIdManger.h"
#include "store/Database.h"
#include "tests/support/Counted.h"
#include "tests/support/HttpsServer.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/SqliteFile.h"

namespace kps {
namespace {

// A backend on loopback that keeps its connections, and a store file for the sync.
class Backend : public ::testing::Test {
 protected:
  void SetUp() override { base = serve(0); }
  void TearDown() override {
    {
      std::lock_guard<std::mutex> lock(mutex);
      release = true;
    }
    released.notify_all();
  }
  // Starts a new server (on `port`, or a free one); the old one closes its connections as it goes.
  std::string serve(int port) {
    server = std::make_unique<HttpsServer>();
    auto& routes = server->routes();
    routes.Get("/list", [this](const httplib::Request& req, httplib::Response& res) {
      record(req);
      res.set_content("{\"code\":\"100\"}", "application/json");
    });
    routes.Post("/sync", [this](const httplib::Request& req, httplib::Response& res) {
      record(req);
      res.status = 500;  // any completed exchange counts as received
      res.set_content("{\"error\":\"backend exploded\"}", "application/json");
    });
    routes.Get("/print/task/list", [this](const httplib::Request& req, httplib::Response& res) {
      record(req);
      res.set_content("{\"code\":\"100\",\"msg\":\"success\",\"data\":[]}", "application/json");
    });
    routes.Get("/zeros", [](const httplib::Request&, httplib::Response& res) { res.set_content(std::string("a\0b\0\0c", 6), "x/y"); });
    routes.Get("/moved", [](const httplib::Request&, httplib::Response& res) { res.set_redirect("/list?from=redirect"); });
    routes.Get("/missing", [](const httplib::Request&, httplib::Response& res) { res.status = 404; res.set_content("not here", "text/plain"); });
    routes.Get("/silent", [this](const httplib::Request&, httplib::Response&) {
      std::unique_lock<std::mutex> lock(mutex);
      released.wait(lock, [this] { return release; });
    });
    return server->start(port);
  }
  void record(const httplib::Request& req) {
    std::lock_guard<std::mutex> lock(mutex);
    seen = req.method + " " + req.target + " accept=" + req.get_header_value("Accept") + " type=" +
           req.get_header_value("Content-Type") + " " + req.body;
    bodies.push_back(req.body);
    ports.push_back(req.remote_port);
  }
  std::vector<std::string> sent() {
    std::lock_guard<std::mutex> lock(mutex);
    return bodies;
  }
  // A row as the print run leaves it; columns given as SQL values.
  void row(const std::string& uuid, int status, const char* syncTime, const char* updateTime,
           const char* failReason = "NULL", const char* completed = "NULL") {
    ASSERT_TRUE(file.exec("INSERT INTO local (orderNo, uuid, path, status, syncTime, updateTime, failReason, "
                          "completedNumber, type) VALUES ('O', '" + uuid + "', 'p', " + std::to_string(status) + ", " +
                          syncTime + ", " + updateTime + ", " + failReason + ", " + completed + ", 'frames')"));
  }

  TestTransport transport;
  std::mutex mutex;
  std::condition_variable released;
  bool release = false;
  std::string seen;
  std::vector<std::string> bodies;
  std::vector<int> ports;  // the client's end of the connection each request came on
  std::unique_ptr<HttpsServer> server;
  std::string base;
  TempDir dir;
  Database store{dir.file("PrintData.db")};
  SqliteFile file{dir.file("PrintData.db")};
};

TEST_F(Backend, RequestsAsSentAndBodiesAsReceived) {
  struct Case {
    std::string path, params;
    const char* method;
    std::string seen, body;
  };
  const std::string json = "{\"code\":\"100\"}";
  const Case cases[] = {
      {"/list", "screenNumber=S1", "GET", "GET /list?screenNumber=S1 accept=application/json type= ", json},
      {"/list", "", "get", "GET /list accept=application/json type= ", json},  // no "?" without parameters
      {"/sync", "[{\"taskId\":\"T\"}]", "post", "POST /sync accept=*/* type=application/json [{\"taskId\":\"T\"}]",
       "{\"error\":\"backend exploded\"}"},  // an error status is the caller's to judge
      {"/zeros", "", "GET", "", std::string("a\0b\0\0c", 6)},  // taken by count, not up to a zero
      {"/moved", "", "GET", "GET /list?from=redirect accept=application/json type= ", json},
      {"/missing", "", "GET", "", "not here"},
  };
  for (const auto& c : cases) {
    std::string response = "old";
    seen.clear();  // the test's thread reads it once the exchange is over
    EXPECT_EQ(HttpRequest(base + c.path, c.params, c.method, response), 0) << c.path;
    EXPECT_EQ(response, c.body) << c.path;
    EXPECT_EQ(seen, c.seen) << c.path;
  }
  // The intake's own request: its query text as the backend receives it.
  RemoteOrderIdManger intake(dir.file("Intake.db"));
  OutputWatcher log;
  intake.GetTaskList("SCREEN-7", base + "/print/task/list");
  EXPECT_EQ(seen, "GET /print/task/list?screenNumber=SCREEN-7 accept=application/json type= ");
  EXPECT_NE(log.text().find("] response :{\"code\":\"100\",\"msg\":\"success\",\"data\":[]}\n"), std::string::npos);
}

TEST_F(Backend, FailuresSayWhatTheyShouldAndKeepTheResponse) {
  const std::size_t before = sent().size();
  for (const char* method : {"Get", "PUT", "GET ", "pOST", "", "DELETE"}) {  // no request, no word
    std::string response = "kept";
    testing::internal::CaptureStderr();
    EXPECT_EQ(HttpRequest(base + "/list", "", method, response), -1) << method;
    EXPECT_EQ(testing::internal::GetCapturedStderr() + response, "kept") << method;
  }
  std::string response = "kept";
  EXPECT_EQ(HttpRequest(base + "/list", "", nullptr, response), -1);
  EXPECT_EQ(sent().size(), before);

  httpSettings().timeoutMs = 300;
  testing::internal::CaptureStderr();
  EXPECT_EQ(HttpRequest(base + "/silent", "", "GET", response), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "curl_easy_perform() failed: Timeout was reached\n");
  EXPECT_EQ(lastTaskListResult, CURLE_OPERATION_TIMEDOUT);
  EXPECT_EQ(response, "kept");

  httpSettings().caBundle = TestCertificates::get().otherCaFile();
  testing::internal::CaptureStderr();
  EXPECT_EQ(HttpRequest(base + "/list", "", "GET", response), -1);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("curl_easy_perform() failed: "), std::string::npos);
  EXPECT_EQ(sent().size(), before);  // an untrusted server hears nothing

  // The sync's variant says nothing and leaves the task list's last result alone.
  const CURLcode last = lastTaskListResult;
  testing::internal::CaptureStderr();
  EXPECT_EQ(HttpRequestQuiet("https://127.0.0.1:1/sync", "[]", "POST", response), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(lastTaskListResult, last);
  EXPECT_EQ(HttpRequest("https://127.0.0.1:1/list", "", "GET", response), -1);
  EXPECT_EQ(lastTaskListResult, CURLE_COULDNT_CONNECT);
}

// Polls and syncs reuse one connection; a backend that drops it costs a new one, not a request.
TEST_F(Backend, OneConnectionIsKeptAndALostOneIsMadeAgain) {
  std::string response;
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(HttpRequest(base + "/list", "screenNumber=S", "GET", response), 0);
    ASSERT_EQ(HttpRequestQuiet(base + "/sync", "[]", "POST", response), 0);
  }
  EXPECT_EQ(std::set<int>(ports.begin(), ports.end()).size(), 1u);
  serve(server->port());
  EXPECT_EQ(HttpRequest(base + "/list", "", "GET", response), 0);
  ASSERT_EQ(ports.size(), 7u);
  EXPECT_NE(ports.back(), ports.front());

  // However busy, a connection lives only so long, so that a changed address is followed.
  httpSettings().connectionLifetimeSeconds = 1;
  const auto start = std::chrono::steady_clock::now();
  while (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(2500)) {
    ASSERT_EQ(HttpRequest(base + "/list", "", "GET", response), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // a poll's pace, well inside the keep-alive
  }
  const std::set<int> used(ports.begin() + 7, ports.end());
  EXPECT_GE(used.size(), 2u);
  EXPECT_LE(used.size(), 4u);
}

TEST_F(Backend, SyncSendsExactlyTheChangedRowsAsCompactJsonInStoredOrder) {
  const char* t0 = "'2026-01-01 10:00:00'";
  const char* t1 = "'2026-01-01 10:00:01'";
  row("pending", 0, "NULL", t0);
  row("never-synced", 2, "NULL", t0, "NULL", "3");
  row("changed", 5, t0, t1, "'IPP_JOB_HELD'", "1");
  row("unchanged", 2, "'2026-01-01 10:00:05'", t1);
  row("same-second", 2, t1, t1);
  row("empty-sync", 3, "''", t0, "NULL", "0");
  row("failed", 4, "NULL", t0, "'IPP_TIME_OUT'");
  row("failed-no-reason", 4, "NULL", t0);
  row("quote\"d", 4, "NULL", t0, "'line\nbreak\\'");

  const auto lastSuccess = [] { return Health::instance().counts().lastSyncSuccess; };
  auto succeeded = lastSuccess();
  {
    OutputWatcher down;
    const Counted counted;
    store.syncStatus("https://127.0.0.1:1/sync");  // a backend that is down stamps nothing
    EXPECT_NE(down.text().find("URL_UPDATE_PRINTSTATUS ERROR \n"), std::string::npos);
    EXPECT_EQ(file.scalar("SELECT group_concat(uuid) FROM local WHERE syncTime > ''"), "changed,unchanged,same-second");
    EXPECT_EQ(counted.since(), "sync failed");
    EXPECT_EQ(lastSuccess(), succeeded);
  }
  OutputWatcher log;
  const Counted counted;
  store.syncStatus(base + "/sync");
  EXPECT_EQ(counted.since(), "");  // its 500 is a completed exchange too
  EXPECT_GT(lastSuccess(), succeeded);
  succeeded = lastSuccess();
  const auto requests = sent();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0],
            "[{\"taskId\":\"never-synced\",\"status\":2,\"completedNumber\":3},"
            "{\"taskId\":\"changed\",\"status\":5,\"completedNumber\":1},"
            "{\"taskId\":\"empty-sync\",\"status\":3,\"completedNumber\":0},"
            "{\"taskId\":\"failed\",\"status\":4,\"completedNumber\":0,\"failReason\":\"IPP_TIME_OUT\"},"
            "{\"taskId\":\"failed-no-reason\",\"status\":4,\"completedNumber\":0},"
            "{\"taskId\":\"quote\\\"d\",\"status\":4,\"completedNumber\":0,\"failReason\":\"line\\nbreak\\\\\"}]");
  EXPECT_NE(log.text().find("] Printer Sending the following data to backend: " + requests[0] + "\n"), std::string::npos);
  EXPECT_NE(log.text().find("] backend updataDataResponse : {\"error\":\"backend exploded\"}\n"), std::string::npos);
  EXPECT_EQ(file.scalar("SELECT count(*) FROM local WHERE syncTime IS NULL OR syncTime = ''"), "1");  // the pending one

  OutputWatcher quiet;
  store.syncStatus(base + "/sync");  // everything reported: nothing more to send, nothing logged
  EXPECT_EQ(sent().size(), 1u);
  EXPECT_EQ(quiet.text(), "");
  EXPECT_EQ(lastSuccess(), succeeded);
}

// A poll succeeds, for the metrics, when the backend's task list was accepted: then it is
// stamped; anything else counts as a failed poll.
TEST_F(Backend, APollSucceedsOnlyWithAnAcceptedTaskList) {
  RemoteOrderIdManger intake(dir.file("Intake.db"));
  const std::pair<std::string, bool> polls[] = {
      {base + "/print/task/list", true},
      {base + "/list", false},     // code "100" without its "msg"
      {base + "/missing", false},  // HTTP 404
      {"https://127.0.0.1:1/print/task/list", false},
      {base + "/print/task/list", true},
  };
  for (const auto& [url, accepted] : polls) {
    const auto before = Health::instance().counts().lastPollSuccess;
    const Counted counted;
    OutputWatcher quiet;
    testing::internal::CaptureStderr();
    intake.GetTaskList("S", url);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(counted.since(), accepted ? "" : "poll failed") << url;
    const auto after = Health::instance().counts().lastPollSuccess;
    EXPECT_TRUE(accepted ? after > before : after == before) << url;
  }
}

}  // namespace
}  // namespace kps
