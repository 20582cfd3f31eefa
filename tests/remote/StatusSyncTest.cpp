// The status sync over a real store file and an HTTPS backend double.
#include <gtest/gtest.h>

#include <mutex>
#include <vector>

#include "remote/HttpRequest.h"
#include "src/Database.h"
#include "tests/support/HttpsServer.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/TestTransport.h"

namespace kps {
namespace {

class StatusSyncTest : public ::testing::Test {
 protected:
  void SetUp() override {
    backend.routes().Post("/print/task/sync", [this](const httplib::Request& req,
                                                     httplib::Response& res) {
      std::lock_guard<std::mutex> lock(mutex);
      bodies.push_back(req.body);
      res.status = answerStatus;
      res.set_content(answer, "application/json");
    });
    url = backend.start() + "/print/task/sync";
  }

  void row(const std::string& uuid, int status, const char* syncTime, const char* updateTime,
           const char* failReason = nullptr, const char* completed = nullptr) {
    auto quoted = [](const char* v) { return v ? "'" + std::string(v) + "'" : std::string("NULL"); };
    ASSERT_TRUE(file.exec("INSERT INTO local (orderNo, uuid, path, status, syncTime, updateTime, "
                          "failReason, completedNumber, type) VALUES ('O', '" + uuid + "', 'p', " +
                          std::to_string(status) + ", " + quoted(syncTime) + ", " +
                          quoted(updateTime) + ", " + quoted(failReason) + ", " +
                          (completed ? completed : "NULL") + ", 'frames')"));
  }
  std::vector<std::string> sent() {
    std::lock_guard<std::mutex> lock(mutex);
    return bodies;
  }

  TestTransport transport;
  HttpsServer backend;
  std::string url;
  std::mutex mutex;
  std::vector<std::string> bodies;
  int answerStatus = 200;
  std::string answer = "{\"code\":\"100\"}";
  TempDir dir;
  Database store{dir.file("PrintData.db")};
  SqliteFile file{dir.file("PrintData.db")};
};

TEST_F(StatusSyncTest, SendsExactlyTheChangedRowsAsCompactJson) {
  row("pending", 0, nullptr, "2026-01-01 10:00:00");
  row("never-synced", 2, nullptr, "2026-01-01 10:00:00", nullptr, "3");
  row("changed", 5, "2026-01-01 10:00:00", "2026-01-01 10:00:01", "IPP_JOB_HELD", "1");
  row("unchanged", 2, "2026-01-01 10:00:05", "2026-01-01 10:00:01");
  row("same-second", 2, "2026-01-01 10:00:01", "2026-01-01 10:00:01");
  row("empty-sync", 3, "", "2026-01-01 10:00:00", nullptr, "0");
  row("failed", 4, nullptr, "2026-01-01 10:00:00", "IPP_TIME_OUT");
  row("failed-no-reason", 4, nullptr, "2026-01-01 10:00:00");
  row("quote\"d", 4, nullptr, "2026-01-01 10:00:00", "line\nbreak\\");

  OutputWatcher log;
  store.syncStatus(url);
  const auto requests = sent();
  ASSERT_EQ(requests.size(), 1u);
  const std::string expected =
      "[{\"taskId\":\"never-synced\",\"status\":2,\"completedNumber\":3},"
      "{\"taskId\":\"changed\",\"status\":5,\"completedNumber\":1},"
      "{\"taskId\":\"empty-sync\",\"status\":3,\"completedNumber\":0},"
      "{\"taskId\":\"failed\",\"status\":4,\"completedNumber\":0,\"failReason\":\"IPP_TIME_OUT\"},"
      "{\"taskId\":\"failed-no-reason\",\"status\":4,\"completedNumber\":0},"
      "{\"taskId\":\"quote\\\"d\",\"status\":4,\"completedNumber\":0,"
      "\"failReason\":\"line\\nbreak\\\\\"}]";
  // In the order the rows were stored, as the query returns them without an index.
  EXPECT_EQ(requests[0], expected);
  EXPECT_NE(log.text().find("] Printer Sending the following data to backend: " + requests[0] + "\n"),
            std::string::npos);
  EXPECT_NE(log.text().find("] backend updataDataResponse : {\"code\":\"100\"}\n"),
            std::string::npos);
  EXPECT_EQ(file.scalar("SELECT count(*) FROM local WHERE syncTime IS NULL OR syncTime = ''"), "1");

  store.syncStatus(url);  // everything reported: nothing more to send
  EXPECT_EQ(sent().size(), 1u);
}

TEST_F(StatusSyncTest, AnyCompletedExchangeCountsAsReceived) {
  answerStatus = 500;
  answer = "{\"error\":\"backend exploded\"}";
  row("T-1", 2, nullptr, "2026-01-01 10:00:00");
  OutputWatcher log;
  store.syncStatus(url);
  EXPECT_NE(file.scalar("SELECT syncTime FROM local"), "NULL");
  EXPECT_NE(log.text().find("backend updataDataResponse : {\"error\":\"backend exploded\"}"),
            std::string::npos);
}

TEST_F(StatusSyncTest, BackendDownQueuesEverythingForTheFirstPassAfter) {
  row("T-1", 2, nullptr, "2026-01-01 10:00:00");
  backend.stop();
  for (int pass = 0; pass < 2; ++pass) {
    OutputWatcher log;
    testing::internal::CaptureStderr();
    store.syncStatus(url);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");  // the sync's transfer says nothing
    EXPECT_NE(log.text().find("URL_UPDATE_PRINTSTATUS ERROR \n"), std::string::npos);
    row("T-" + std::to_string(pass + 2), 4, nullptr, "2026-01-01 10:00:00", "IPP_JOB_HELD");
  }
  EXPECT_EQ(file.scalar("SELECT count(*) FROM local WHERE syncTime IS NULL"), "3");

  HttpsServer again;
  std::vector<std::string> received;
  again.routes().Post("/print/task/sync", [&](const httplib::Request& req, httplib::Response& res) {
    received.push_back(req.body);
    res.set_content("ok", "text/plain");
  });
  const std::string back = again.start() + "/print/task/sync";
  OutputWatcher log;
  store.syncStatus(back);
  again.stop();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0],
            "[{\"taskId\":\"T-1\",\"status\":2,\"completedNumber\":0},"
            "{\"taskId\":\"T-2\",\"status\":4,\"completedNumber\":0,\"failReason\":\"IPP_JOB_HELD\"},"
            "{\"taskId\":\"T-3\",\"status\":4,\"completedNumber\":0,\"failReason\":\"IPP_JOB_HELD\"}]");
  EXPECT_EQ(file.scalar("SELECT count(*) FROM local WHERE syncTime IS NULL"), "0");
}

TEST_F(StatusSyncTest, NothingToSendMakesNoRequestAndNoLine) {
  row("pending", 0, nullptr, nullptr);
  OutputWatcher log;
  store.syncStatus(url);
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(log.text(), "");
}

}  // namespace
}  // namespace kps
