// The store on real files: opening it, its order records, status and time stamps (the busy
// retry provoked by a second connection, two store objects on one file), picture retention.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <future>
#include <thread>

#include "remote/RemoteOrderIdManger.h"
#include "src/Database.h"
#include "src/Runtime.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/TaskBodies.h"
#include "tests/support/TempDir.h"

namespace kps {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

TEST(DatabaseOpen, FreshFileGetsBothTablesInWalModeAndAKeptOneIsLeftAlone) {
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

  TempDir other;
  SqliteFile foreign(other.file("PrintData.db"));
  ASSERT_TRUE(foreign.exec("CREATE TABLE local (other TEXT); INSERT INTO local VALUES ('kept');"));
  testing::internal::CaptureStderr();
  { Database store(other.file("PrintData.db")); }
  EXPECT_NE(testing::internal::GetCapturedStderr().find("Failed to create index: "), std::string::npos);
  EXPECT_EQ(foreign.scalar("SELECT other FROM local"), "kept");
  EXPECT_EQ(foreign.scalar("SELECT count(*) FROM sqlite_master WHERE type='table'"), "2");
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
  // The local time `days` ago, as the store writes its stamps; NULL for a negative day count.
  std::string daysAgo(double days) const {
    if (days < 0) return "NULL";
    const std::time_t when = now - static_cast<std::time_t>(days * 86400);
    std::tm local{};
    localtime_r(&when, &local);
    char text[32];
    std::strftime(text, sizeof text, "'%Y-%m-%d %H:%M:%S'", &local);
    return text;
  }
  // An order with its picture on disk (unless `onDisk` is false).
  std::string order(const std::string& id, int status, double updated, double synced,
                    std::string path = "", bool onDisk = true) {
    if (path.empty()) path = dir.file("pics/" + id + ".jpg");
    if (onDisk && !fs::exists(path)) {
      fs::create_directories(fs::path(path).parent_path());
      std::ofstream(path) << "jpeg";
    }
    EXPECT_TRUE(file.exec("INSERT INTO local (orderNo, uuid, path, status, updateTime, syncTime, type) VALUES ('O', '" +
                          id + "', '" + path + "', " + std::to_string(status) + ", " + daysAgo(updated) + ", " +
                          daysAgo(synced) + ", 'postcards')"));
    return path;
  }

  TempDir dir;
  WorkingDirectory cwd{dir.path()};
  Database store{"PrintData.db", 20};
  SqliteFile file{dir.file("PrintData.db")};
  std::time_t now = std::time(nullptr);
  RetentionSweep sweep;
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

TEST_F(Store, RetentionOnlyReportedFinalOrdersOlderThanTheDaysLoseTheirPicture) {
  TempDir elsewhere;
  struct Case {
    const char* id;
    int status;
    double updated, synced;  // days ago; -1 for never
    bool removed;
  };
  const Case cases[] = {
      {"printed", 2, 31, 30.5, true},         {"deleted", 3, 40, 40, true},
      {"failed", 4, 31, 31, true},            {"partial", 5, 90, 1, true},
      {"young", 2, 29, 28, false},            {"never-reported", 4, 31, -1, false},
      {"changed-since-report", 2, 31, 32, false},  {"pending", 0, 31, 30, false},
  };
  std::map<std::string, std::string> paths;
  for (const auto& c : cases) paths[c.id] = order(c.id, c.status, c.updated, c.synced);
  // A picture a pending order still needs; one outside the working directory; one no row names.
  const std::string shared = order("shared-final", 2, 31, 30);
  order("shared-pending", 0, -1, -1, shared);
  const std::string outside = order("outside", 2, 31, 30, elsewhere.file("x.jpg"));
  std::ofstream(dir.file("pics/stray.jpg")) << "jpeg";
  // Rows that name the service's own files, however they came to be written.
  std::ofstream(dir.file("config.ini")) << "[PrinterName]";
  fs::create_hard_link(dir.file("PrintData.db"), dir.file("pics/store-by-another-name.jpg"));
  std::vector<std::string> ownFiles;
  for (const char* name : {"config.ini", "PrintData.db", "PrintData.db-wal", "PrintData.db-shm", "pics/~~~~~~~~",
                           "pics/store-by-another-name.jpg"})
    ownFiles.push_back(order(std::string("own:") + name, 4, 31, 30, dir.file(name)));
  order("already-gone", 2, 31, 30, dir.file("pics/gone.jpg"), false);
  const std::string stuck = order("stuck", 2, 31, 30, dir.file("pics/a-folder.jpg"), false);
  fs::create_directories(stuck + "/inside");  // a non-empty folder cannot go

  OutputWatcher log;
  store.removeExpiredPictures(sweep, 0, now);  // absent or 0: nothing, ever
  for (const auto& c : cases) EXPECT_TRUE(fs::exists(paths[c.id])) << c.id;
  store.removeExpiredPictures(sweep, 30, now);
  for (const auto& c : cases) {
    EXPECT_EQ(!fs::exists(paths[c.id]), c.removed) << c.id;
    EXPECT_EQ(log.text().find("] picture removed after its retention: " + paths[c.id] + "\n") != std::string::npos,
              c.removed) << c.id;
  }
  EXPECT_TRUE(fs::exists(shared));
  EXPECT_TRUE(fs::exists(outside));
  EXPECT_TRUE(fs::exists(dir.file("pics/stray.jpg")));
  for (const auto& own : ownFiles) EXPECT_TRUE(fs::exists(own)) << own;
  EXPECT_EQ(log.text().find("gone.jpg"), std::string::npos);
  store.removeExpiredPictures(sweep, 30, now);  // a failed deletion: one line a pass, tried again
  EXPECT_EQ(count(log.text(), "] picture could not be removed: " + stuck + " ("), 2u) << log.text();
  EXPECT_EQ(file.scalar("SELECT count(*) FROM local"), "19");  // the rows stay
}

TEST_F(Store, RetentionNeverWaitsForTheStoreAndComesBackForWhatWasNotReady) {
  const std::string early = order("early-unreported", 2, 33, -1);
  const std::string middle = order("middle", 2, 32, 31);
  const std::string late = order("late", 2, 31, 30);

  // While an intake pass or a print run holds the store, a pass does nothing.
  std::promise<void> held, release;
  std::thread holder([&] {
    std::lock_guard<std::mutex> lock(databaseMutex);
    held.set_value();
    release.get_future().wait();
  });
  held.get_future().wait();
  store.removeExpiredPictures(sweep, 30, now, 2);
  release.set_value();
  holder.join();
  EXPECT_TRUE(fs::exists(middle));
  EXPECT_FALSE(sweep.ran);

  // Two orders a batch: the first sweep passes the unreported one by, the next comes back.
  store.removeExpiredPictures(sweep, 30, now, 2);
  EXPECT_FALSE(fs::exists(middle));
  store.removeExpiredPictures(sweep, 30, now, 2);
  EXPECT_FALSE(fs::exists(late));
  EXPECT_TRUE(fs::exists(early));
  ASSERT_TRUE(file.exec("UPDATE local SET syncTime = " + daysAgo(30) + " WHERE uuid = 'early-unreported'"));
  store.removeExpiredPictures(sweep, 30, now, 2);
  EXPECT_FALSE(fs::exists(early));
}

// The woken print worker holds newOrderMutex while it waits for databaseMutex: a sweep holding
// that past the next poll would let the poll's intake take it, store an order and wait for
// newOrderMutex for ever. So a sweep never holds the store while a print run is under way or
// about to start; with neither, it holds it (here, as long as the test likes) and the intake
// and the run that come meanwhile simply follow it.
TEST_F(Store, RetentionNeverHoldsTheStoreWhileARunIsUnderWayOrAboutToStart) {
  const std::string old = order("old", 2, 31, 30);
  std::promise<void> held, release;
  std::shared_future<void> released = release.get_future().share();
  bool entered = false;
  sweep.whileLocked = [&] { entered = true; };
  const auto raiseFlag = [](bool value) {
    std::lock_guard<std::mutex> lock(newOrderMutex);
    newOrderFlag = value;
  };
  raiseFlag(true);  // an intake pass announced orders; the worker has not run yet
  store.removeExpiredPictures(sweep, 30, now);
  EXPECT_FALSE(entered) << "a wake-up was pending";
  EXPECT_TRUE(fs::exists(old));
  raiseFlag(false);
  entered = false;
  std::promise<void> running;
  std::thread worker([&] {  // a print run under way holds newOrderMutex
    std::lock_guard<std::mutex> lock(newOrderMutex);
    running.set_value();
    released.wait();
  });
  running.get_future().wait();
  store.removeExpiredPictures(sweep, 30, now);
  EXPECT_FALSE(entered) << "a print run was under way";
  EXPECT_TRUE(fs::exists(old));
  release.set_value();
  worker.join();

  // Idle: the sweep holds the store until let go; an intake pass and the run it wakes wait.
  std::promise<void> letGo;
  std::shared_future<void> goOn = letGo.get_future().share();
  sweep.whileLocked = [&] { held.set_value(), goOn.wait(); };
  std::atomic<int> runs{0};
  std::atomic<bool> stop{false};
  std::thread printWorker([&] {
    std::unique_lock<std::mutex> lock(newOrderMutex);
    while (!stop) printWorkerCycle(lock, [&] { std::lock_guard<std::mutex> run(databaseMutex); ++runs; });
  });
  std::thread sweeper([&] { store.removeExpiredPictures(sweep, 30, now); });
  held.get_future().wait();
  fs::create_directories(dir.file("new"));
  std::ofstream(dir.file("new/a.jpg")) << "jpeg";
  RemoteOrderIdManger intake("PrintData.db");
  std::thread poll([&] { intake.ReceiveBackupData(taskList({task("T-new", "new/a.jpg")})); });
  letGo.set_value();
  sweeper.join();
  poll.join();
  const auto deadline = std::chrono::steady_clock::now() + 10s;
  while (runs == 0 && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  EXPECT_EQ(runs.load(), 1);
  EXPECT_FALSE(fs::exists(old));
  EXPECT_EQ(file.order("T-new"), "0|-|-");
  stop = true;
  announceNewOrders(nullptr);
  printWorker.join();
  raiseFlag(false);
}

}  // namespace
}  // namespace kps
