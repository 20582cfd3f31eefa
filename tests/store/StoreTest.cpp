// The store on real files: opening it, its order records, status and time stamps (the busy
// retry provoked by a second connection, two store objects on one file).
#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <thread>

#include "remote/RemoteOrderIdManger.h"
#include "store/Database.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/TaskBodies.h"
#include "tests/support/TempDir.h"

namespace kps {
namespace {

using namespace std::chrono_literals;

TEST(DatabaseOpen, FreshFileGetsItsTablesInWalModeAndAKeptOneIsLeftAlone) {
  TempDir dir;
  const std::string create = "(orderNo TEXT NOT NULL, uuid TEXT PRIMARY KEY NOT NULL, path TEXT NOT NULL, status "
                             "INTEGER NOT NULL, syncTime TEXT, updateTime TEXT, printerName TEXT DEFAULT 'EPSON "
                             "L8160 Series', failReason TEXT, deleteTime TEXT, createTime TEXT, completedNumber "
                             "INTEGER, realNumber INTEGER DEFAULT 1, type TEXT NOT NULL)";
  { Database store(dir.file("PrintData.db")); }
  { Database again(dir.file("PrintData.db")); }  // a second start creates nothing
  SqliteFile file(dir.file("PrintData.db"));
  EXPECT_EQ(file.scalar("SELECT sql FROM sqlite_master WHERE name='local'"), "CREATE TABLE local " + create);
  EXPECT_EQ(file.scalar("SELECT sql FROM sqlite_master WHERE name='remote'"), "CREATE TABLE remote " + create);
  EXPECT_EQ(file.scalar("PRAGMA journal_mode"), "wal");
  // The copies the print run makes, in a table of their own: the orders table keeps its columns.
  EXPECT_EQ(file.scalar("SELECT sql FROM sqlite_master WHERE name='jobs'"),
            "CREATE TABLE jobs (uuid TEXT NOT NULL, copy INTEGER NOT NULL, name TEXT NOT NULL, jobId INTEGER, "
            "result INTEGER, PRIMARY KEY (uuid, copy))");

  TempDir other;
  SqliteFile foreign(other.file("PrintData.db"));
  ASSERT_TRUE(foreign.exec("CREATE TABLE local (other TEXT); INSERT INTO local VALUES ('kept');"));
  testing::internal::CaptureStderr();
  { Database store(other.file("PrintData.db")); }
  EXPECT_NE(testing::internal::GetCapturedStderr().find("Failed to create index: "), std::string::npos);
  EXPECT_EQ(foreign.scalar("SELECT other FROM local"), "kept");
  EXPECT_EQ(foreign.scalar("SELECT count(*) FROM sqlite_master WHERE type='table'"), "3");
}

TEST(DatabaseOpen, CreatesMissingFoldersWithEitherSeparator) {
  const std::pair<const char*, const char*> cases[] = {
      {"/a/b/PrintData.db", "/a/b/PrintData.db"}, {"\\c\\d\\PrintData.db", "/c/d/PrintData.db"}, {"/e\\f//x.db", "/e/f/x.db"}};
  for (const auto& [given, onDisk] : cases) {
    TempDir dir;
    { Database store(dir.path() + given); }
    EXPECT_TRUE(std::filesystem::is_regular_file(dir.path() + onDisk)) << given;
  }
}

TEST(DatabaseOpen, FailuresThrowWithTheirMessagesAndLoseNothing) {
  struct Case {
    const char* name;
    std::function<std::string(TempDir&)> path;
    const char* thrown;
    std::vector<std::string> lines;
  };
  const std::string garbage(8192, 'x');
  const Case cases[] = {
      {"a file where a folder should be", [](TempDir& d) { d.write("blocker", "x"); return d.file("blocker/sub/P.db"); },
       "Failed to create directory for database", {"Error creating directory: "}},
      {"a folder where the file should be", [](TempDir& d) { return d.path(); },
       "Failed to open or create database", {"Can't open or create database: "}},
      // The WAL pragma's failure closes the handle; the set-up goes on without ever using it.
      {"not a database", [&](TempDir& d) { return d.write("PrintData.db", garbage); }, "Failed to execute SQL",
       {"Failed to enable WAL mode: file is not a database", "Failed to prepare query: the database connection is closed",
        "Failed to prepare SQL statement: the database connection is closed"}},
  };
  for (const auto& c : cases) {
    TempDir dir;
    const std::string path = c.path(dir);
    testing::internal::CaptureStderr();
    try {
      Database store(path);
      ADD_FAILURE() << c.name << ": no error";
    } catch (const std::runtime_error& e) {
      EXPECT_STREQ(e.what(), c.thrown) << c.name;
    }
    const std::string err = testing::internal::GetCapturedStderr();
    for (const auto& line : c.lines) EXPECT_NE(err.find(line), std::string::npos) << c.name << ": " << err;
  }
  TempDir dir;
  EXPECT_THROW(Database{dir.write("PrintData.db", garbage)}, std::runtime_error);
  EXPECT_EQ(dir.read("PrintData.db"), garbage);  // nothing stored is lost
}

// A store in a working directory of its own, with a second connection on its file.
class Store : public ::testing::Test {
 protected:
  TempDir dir;
  WorkingDirectory cwd{dir.path()};
  Database store{"PrintData.db", 20};
  SqliteFile file{dir.file("PrintData.db")};
};

TEST_F(Store, OrderRecordsInsertLookUpAndDelete) {
  ASSERT_TRUE(store.insertOrder("local", "O-1", "T-1", "/p/a.jpg", 0, 2, "postcards"));
  EXPECT_EQ(file.scalar("SELECT orderNo||'|'||path||'|'||status||'|'||realNumber||'|'||type||'|'||printerName||'|'||"
                        "ifnull(completedNumber||syncTime||updateTime||failReason||deleteTime||createTime, 'NULL') "
                        "FROM local WHERE uuid='T-1'"),
            "O-1|/p/a.jpg|0|2|postcards|EPSON L8160 Series|NULL");
  ASSERT_TRUE(file.exec("INSERT INTO local (orderNo, uuid, path, status, type) VALUES ('O-1', 'T-2', 'p', 0, 't')"));
  store.updateStatus("T-2", 5, 3);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(store.insertOrder("local", "O-9", "T-1", "b.jpg", 4, 3, "cardsets"));  // same uuid: the first stays
  EXPECT_FALSE(store.insertOrder("nosuch", "O", "T", "p", 0, 1, "t"));
  EXPECT_FALSE(store.deleteOrder("nosuch", "O"));
  std::vector<OrderStatusRecord> list{{9, 9, "already there"}};
  store.getOrdersByOrderNo("nosuch", "O", list);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Execution failed: UNIQUE constraint failed: local.uuid\n"
            "Failed to prepare statement: no such table: nosuch\nFailed to prepare statement: no such table: nosuch\n"
            "Failed to prepare statement: no such table: nosuch\n");
  store.getOrdersByOrderNo("local", "O-1", list);
  std::string rows;  // appended, not cleared; a NULL completedNumber reads as 0, realNumber defaults to 1
  for (const auto& r : list) rows += r.uuid + "|" + std::to_string(r.status) + "|" + std::to_string(r.completedNumber) + " ";
  EXPECT_EQ(rows, "already there|9|9 T-1|0|0 T-2|5|3 ");
  EXPECT_EQ(file.scalar("SELECT group_concat(orderNo||path||status||realNumber) FROM local"), "O-1/p/a.jpg02,O-1p51");
  EXPECT_TRUE(store.deleteOrder("local", "O-404"));
  EXPECT_TRUE(store.deleteOrder("local", "O-1"));
  EXPECT_EQ(file.scalar("SELECT count(*) FROM local"), "0");
}

TEST_F(Store, BusyDatabaseGetsFiveAttemptsAndNoSuccessLine) {
  ASSERT_TRUE(store.insertOrder("local", "O", "T-0", "p", 0, 1, "postcards"));
  SqliteFile holder(dir.file("PrintData.db"));
  ASSERT_TRUE(holder.exec("BEGIN IMMEDIATE"));
  const std::pair<std::function<void()>, std::string> cases[] = {
      {[&] { store.updateStatus("T-0", 2, 1); }, "updateStatus"},
      {[&] { store.updateFailStatus("T-0", 4, "x"); }, "updateFailStatus"},
      {[&] { store.updateTime("T-0"); }, "updateTime"},
  };
  for (const auto& [call, name] : cases) {
    OutputWatcher log;
    call();
    EXPECT_EQ(count(log.text(), "] " + name + " Failed to execute update statement: database is locked\n"), 5u) << name;
    EXPECT_EQ(log.text().find("success"), std::string::npos) << log.text();
  }
  ASSERT_TRUE(holder.exec("COMMIT"));
  EXPECT_EQ(file.order("T-0"), "0|-|-");
}

TEST_F(Store, UpdateGoesThroughWhenTheLockIsReleasedBetweenAttempts) {
  ASSERT_TRUE(store.insertOrder("local", "O", "T-0", "p", 0, 1, "postcards"));
  SqliteFile holder(dir.file("PrintData.db"));
  ASSERT_TRUE(holder.exec("BEGIN IMMEDIATE"));
  OutputWatcher log;
  std::thread update([&] { store.updateStatus("T-0", 2, 1); });
  const bool refused = log.waitFor("updateStatus Failed to execute update statement: ", 10s);
  EXPECT_TRUE(holder.exec("COMMIT"));  // let go once the first attempt has been refused
  update.join();
  ASSERT_TRUE(refused);
  EXPECT_NE(log.text().find("updateStatus success: "), std::string::npos) << log.text();
  EXPECT_EQ(file.order("T-0"), "2|1|-");
}

TEST_F(Store, WritesFromTwoThreadsThroughTwoObjectsAreAllKept) {
  RemoteOrderIdManger intake("PrintData.db");
  Database shared("PrintData.db");  // with the busy time-out the service uses
  constexpr int kRows = 150;
  OutputWatcher log;
  const auto deadline = std::chrono::steady_clock::now() + 60s;  // a failed insert ends the wait
  std::thread inserter([&] {
    for (int i = 0; i < kRows; ++i)
      ASSERT_TRUE(intake.insertOrder("local", "O", "T-" + std::to_string(i), "p", 0, 1, "frames"));
  });
  std::thread stamper([&] {
    for (int i = 0; i < kRows; ++i) {
      std::vector<OrderStatusRecord> rows;  // stamps land once the row exists
      while (static_cast<int>(rows.size()) <= i && std::chrono::steady_clock::now() < deadline) {
        rows.clear();
        shared.getOrdersByOrderNo("local", "O", rows);
      }
      shared.updateStatus("T-" + std::to_string(i), 2, 1);
      shared.updateTime("T-" + std::to_string(i));
    }
  });
  inserter.join();
  stamper.join();
  EXPECT_EQ(file.scalar("SELECT count(*) FROM local WHERE status = 2 AND updateTime IS NOT NULL"), std::to_string(kRows));
}

}  // namespace
}  // namespace kps
