// Status and time stamps, the busy retry provoked by a second connection, and two store
// objects on one file.
#include <gtest/gtest.h>

#include <regex>
#include <thread>

#include "remote/RemoteOrderIdManger.h"
#include "src/Database.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/TempDir.h"

namespace kps {
namespace {

using namespace std::chrono_literals;

class StatusStamping : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(store.insertOrder("local", "O", "T-0", "p", 0, 1, "postcards"));
    ASSERT_TRUE(store.insertOrder("local", "O", "T-2", "p", 0, 1, "postcards"));
    store.updateStatus("T-2", 2, 1);
  }
  std::string row(const std::string& uuid) {
    return file.scalar("SELECT status||'|'||ifnull(completedNumber,'-')||'|'||"
                       "ifnull(failReason,'-') FROM local WHERE uuid='" + uuid + "'");
  }
  TempDir dir;
  Database store{dir.file("PrintData.db"), 20};
  SqliteFile file{dir.file("PrintData.db")};
};

TEST_F(StatusStamping, FailStatusOnlyChangesPendingRows) {
  testing::internal::CaptureStdout();
  store.updateFailStatus("T-0", 4, "IPP_TIME_OUT");
  store.updateFailStatus("T-2", 4, "IPP_JOB_HELD");
  store.updateFailStatus("T-0", 4, "IPP_JOB_STOPPED");  // now final: unchanged
  store.updateFailStatus("unknown", 4, "x");
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(row("T-0"), "4|-|IPP_TIME_OUT");
  EXPECT_EQ(row("T-2"), "2|1|-");
  // Every one of them, matched or not, logs the success line.
  const std::regex success(R"(\] updateFailStatus success: \n)");
  EXPECT_EQ(std::distance(std::sregex_iterator(out.begin(), out.end(), success),
                          std::sregex_iterator()), 4);
}

TEST_F(StatusStamping, StatusOverwritesAnyStatusAndKeepsTheReason) {
  store.updateFailStatus("T-0", 4, "IPP_JOB_ABORTED");
  store.updateStatus("T-0", 5, 2);
  EXPECT_EQ(row("T-0"), "5|2|IPP_JOB_ABORTED");
  store.updateStatus("T-0", 0, 0);
  EXPECT_EQ(row("T-0"), "0|0|IPP_JOB_ABORTED");
}

TEST_F(StatusStamping, TimesAreLocalTextAndEqualWithinOneSecond) {
  std::string before, stampUpdate, stampSync, after;
  do {  // both stamps in one clock second, whatever second the test starts in
    before = Database::currentTimeString();
    store.updateTime("T-0");
    store.updateSyncTime("T-0");
    after = Database::currentTimeString();
  } while (before != after);
  stampUpdate = file.scalar("SELECT updateTime FROM local WHERE uuid='T-0'");
  stampSync = file.scalar("SELECT syncTime FROM local WHERE uuid='T-0'");
  EXPECT_TRUE(std::regex_match(stampUpdate, std::regex(R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2})")));
  EXPECT_EQ(stampUpdate, before);
  EXPECT_EQ(stampSync, stampUpdate);
  // Equal texts: the row does not count as changed since its last report.
  EXPECT_EQ(file.scalar("SELECT count(*) FROM local WHERE updateTime > syncTime"), "0");
}

TEST_F(StatusStamping, BusyDatabaseGetsFiveAttemptsAndNoSuccessLine) {
  SqliteFile holder(dir.file("PrintData.db"));
  ASSERT_TRUE(holder.exec("BEGIN IMMEDIATE"));
  struct Case {
    std::function<void()> call;
    std::string failure;
  };
  const Case cases[] = {
      {[&] { store.updateStatus("T-0", 2, 1); }, "updateStatus Failed to execute update statement: "},
      {[&] { store.updateFailStatus("T-0", 4, "x"); },
       "updateFailStatus Failed to execute update statement: "},
      {[&] { store.updateTime("T-0"); }, "updateTime Failed to execute update statement: "},
  };
  for (const auto& c : cases) {
    testing::internal::CaptureStdout();
    c.call();
    const std::string out = testing::internal::GetCapturedStdout();
    const std::regex failure(std::regex_replace(c.failure, std::regex(R"([\[\]\(\)])"), R"(\$&)") +
                             "database is locked\n");
    EXPECT_EQ(std::distance(std::sregex_iterator(out.begin(), out.end(), failure),
                            std::sregex_iterator()), 5) << out;
    EXPECT_EQ(out.find("success"), std::string::npos) << out;
  }
  ASSERT_TRUE(holder.exec("COMMIT"));
  EXPECT_EQ(row("T-0"), "0|-|-");
}

TEST_F(StatusStamping, UpdateGoesThroughWhenTheLockIsReleasedBetweenAttempts) {
  SqliteFile holder(dir.file("PrintData.db"));
  ASSERT_TRUE(holder.exec("BEGIN IMMEDIATE"));
  OutputWatcher log;
  std::thread update([&] { store.updateStatus("T-0", 2, 1); });
  // Let go of the lock once the first attempt has been refused.
  const bool refused = log.waitFor("updateStatus Failed to execute update statement: ", 10s);
  EXPECT_TRUE(holder.exec("COMMIT"));
  update.join();
  ASSERT_TRUE(refused);
  EXPECT_NE(log.text().find("updateStatus success: "), std::string::npos) << log.text();
  EXPECT_EQ(row("T-0"), "2|1|-");
}

TEST(TwoStores, WritesFromTwoThreadsThroughTwoObjectsAreAllKept) {
  TempDir dir;
  RemoteOrderIdManger intake(dir.file("PrintData.db"));
  Database shared(dir.file("PrintData.db"));
  constexpr int kRows = 150;
  testing::internal::CaptureStdout();
  std::thread inserter([&] {
    for (int i = 0; i < kRows; ++i)
      ASSERT_TRUE(intake.insertOrder("local", "O", "T-" + std::to_string(i), "p", 0, 1, "frames"));
  });
  const auto deadline = std::chrono::steady_clock::now() + 60s;  // a failed insert ends the wait
  std::thread stamper([&] {
    for (int i = 0; i < kRows; ++i) {
      // Stamps land once the row exists; retry the ones that raced ahead of the insert.
      const std::string uuid = "T-" + std::to_string(i);
      std::vector<OrderStatusRecord> rows;
      do {
        rows.clear();
        shared.getOrdersByOrderNo("local", "O", rows);
        if (std::chrono::steady_clock::now() > deadline) return;
      } while (static_cast<int>(rows.size()) <= i);
      shared.updateStatus(uuid, 2, 1);
      shared.updateTime(uuid);
    }
  });
  inserter.join();
  stamper.join();
  testing::internal::GetCapturedStdout();
  SqliteFile file(dir.file("PrintData.db"));
  EXPECT_EQ(file.scalar("SELECT count(*) FROM local"), std::to_string(kRows));
  EXPECT_EQ(file.scalar("SELECT count(*) FROM local WHERE status = 2 AND updateTime IS NOT NULL"),
            std::to_string(kRows));
}

}  // namespace
}  // namespace kps
