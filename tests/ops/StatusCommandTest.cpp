// `--status` of the real binary on seeded stores: what it prints and the exit code a monitoring
// tool acts on; also beside the running service.
#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <functional>

#include "tests/support/Kiosk.h"

namespace kps {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

TEST(StatusCommand, CountsAndTheExitCodeAMonitorActsOn) {
  struct Case {
    const char* name;
    std::function<void(Kiosk&)> arrange;
    int code;
    std::vector<std::string> lines;
  };
  const Case cases[] = {
      {"reported orders of today and the week",
       [](Kiosk& t) {
         t.order("a", 2, 60, 30), t.order("b", 4, 120, 30, "IPP_TIME_OUT"), t.order("c", 4, 3 * 86400, 30, "IPP_TIME_OUT");
         t.order("d", 4, 4 * 86400, 30, "IPP_JOB_HELD"), t.order("e", 2, 10 * 86400, 9 * 86400);
       },
       0,
       {"orders today (", "): 1 printed, 1 failed\n", "orders the last 7 days (since ", "): 1 printed, 3 failed\n",
        "pending: 0\n", "final orders not reported yet: 0\n",
        "failure reasons the last 7 days: IPP_TIME_OUT 2, IPP_JOB_HELD 1\n", "pictures on disk: 5 (5 MiB)\n", "healthy\n"}},
      {"a pending order of 5 minutes", [](Kiosk& t) { t.order("p", 0, -1, -1), t.age("p/p.jpg", 5min); }, 0,
       {"pending: 1, the oldest 5 min old\n", "healthy\n"}},
      {"a pending order of 20 minutes", [](Kiosk& t) { t.order("p", 0, -1, -1), t.age("p/p.jpg", 20min); }, 1,
       {"attention: an order has been pending for 20 min\n", "needs attention\n"}},
      {"a final order unreported for 20 minutes", [](Kiosk& t) { t.order("u", 2, 20 * 60, -1); }, 1,
       {"last report to the backend: never; final orders not reported yet: 1\n", "attention: final orders have waited since "}},
      {"a final order unreported for a minute", [](Kiosk& t) { t.order("u", 2, 60, 3600); }, 0,
       {"final orders not reported yet: 1\n", "healthy\n"}},
      {"a status file configured and missing",
       [](Kiosk& t) { t.dir.write("config.ini", sampleConfig({}) + "[StatusFile]\npath=status.json\n"); }, 1,
       {"status file status.json: missing\n", "attention: the status file is missing\n"}},
      {"a stale status file",
       [](Kiosk& t) {
         t.dir.write("config.ini", sampleConfig({}) + "[StatusFile]\npath=status.json\n");
         t.dir.write("status.json", "{\"time\":\"then\"}\n"), t.age("status.json", 5min);
       },
       1, {"status file status.json: written 5 min ago\n{\"time\":\"then\"}\n", "attention: the status file is 5 min old\n"}},
      // The clock set back: the file is there, its time ahead; hours ahead, it was not written since.
      {"a status file hours ahead of the clock",
       [](Kiosk& t) {
         t.dir.write("config.ini", sampleConfig({}) + "[StatusFile]\npath=status.json\n");
         t.dir.write("status.json", "{\"time\":\"later\"}\n"), t.age("status.json", -3h - 30min);
       },
       1, {"status file status.json: there, its time 3 h ahead of the clock\n{\"time\":\"later\"}\n",
           "attention: the status file's time is 3 h ahead of the clock: not written since it was set back\n"}},
      {"a status file a minute ahead of the clock",
       [](Kiosk& t) {
         t.dir.write("config.ini", sampleConfig({}) + "[StatusFile]\npath=status.json\n");
         t.dir.write("status.json", "{}\n"), t.age("status.json", -1min);
       },
       0, {"status file status.json: there, its time ", " ahead of the clock\n", "healthy\n"}},
      {"a fresh status file",
       [](Kiosk& t) {
         t.dir.write("config.ini", sampleConfig({}) + "[StatusFile]\npath=status.json\n");
         t.dir.write("status.json", "{\"time\":\"now\"}\n");
       },
       0, {"{\"time\":\"now\"}\n", "healthy\n"}},
      {"a table of another shape: a NULL and a text status", [](Kiosk& t) {
         ASSERT_TRUE(SqliteFile(t.dir.file("PrintData.db")).exec(
             "DROP TABLE local; CREATE TABLE local (uuid, path, status, updateTime, syncTime, failReason);"
             "INSERT INTO local VALUES ('a', NULL, NULL, datetime('now', 'localtime'), NULL, NULL), "
             "('b', NULL, 'odd', datetime('now', 'localtime'), NULL, NULL), ('c', NULL, 2, datetime('now', 'localtime'), NULL, NULL)"));
       }, 0, {"): 1 printed, 1 of status \"odd\"\n"}},
      {"one query of several failing", [](Kiosk& t) {
         ASSERT_TRUE(SqliteFile(t.dir.file("PrintData.db")).exec(
             "DROP TABLE local; CREATE TABLE local (uuid, path, status, updateTime, syncTime)"));
       }, 2, {"store PrintData.db cannot be read: no such column: failReason\n"}},
      // Pictures are looked for among the newest orders only: the five oldest here are not.
      {"more orders than are looked at", [](Kiosk& t) {
         for (int i = 0; i < 5; ++i) t.order("old-" + std::to_string(i), 2, 60, 30);
         ASSERT_TRUE(SqliteFile(t.dir.file("PrintData.db")).exec(
             "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 10000) "
             "INSERT INTO local (orderNo, uuid, path, status, updateTime, syncTime, type) SELECT 'O', 'new-' || i, '" +
             t.dir.file("p/new.jpg") + "', 2, datetime('now', 'localtime', '-1 minute'), datetime('now', 'localtime'), 'postcards' FROM n"));
         t.dir.write("p/new.jpg", std::string(1 << 20, 'j'));
       }, 0, {"pictures on disk: 1 (1 MiB), of the newest 10000 orders\n"}},
      {"no store", [](Kiosk& t) { fs::remove(t.dir.file("PrintData.db")); }, 2, {"store PrintData.db cannot be read: "}},
      {"a file that is not a store", [](Kiosk& t) { t.dir.write("PrintData.db", std::string(4096, 'x')); }, 2,
       {"store PrintData.db cannot be read: "}},
  };
  for (const auto& c : cases) {
    Kiosk kiosk;
    c.arrange(kiosk);
    EXPECT_EQ(kiosk.status(), c.code) << c.name << "\n" << kiosk.out;
    for (const auto& line : c.lines)
      EXPECT_NE(kiosk.out.find(line), std::string::npos) << c.name << ": " << line << "\n" << kiosk.out;
    EXPECT_FALSE(fs::exists(kiosk.dir.file("PrintData.db-wal"))) << c.name;
  }
}

// Beside the running service, which holds the store in write-ahead mode: read, never waited on.
TEST(StatusCommand, ReadsAStoreTheRunningServiceHolds) {
  Kiosk kiosk;
  kiosk.order("a", 2, 60, 30);
  ChildProcess service({KPS_BINARY}, kiosk.dir.path());
  ASSERT_TRUE(service.waitForOutput("] url : ", 10s)) << service.out();
  ASSERT_TRUE(fs::exists(kiosk.dir.file("PrintData.db-wal")));
  EXPECT_EQ(kiosk.status(), 0) << kiosk.out;
  EXPECT_NE(kiosk.out.find("): 1 printed\n"), std::string::npos) << kiosk.out;
  EXPECT_EQ(service.waitForExit(0ms), -1);  // still running
}

}  // namespace
}  // namespace kps
