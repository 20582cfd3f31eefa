// Picture retention on a real store: which pictures go, and a pass that never waits for the
// store nor holds it while a print run is under way or about to start.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>
#include <map>
#include <thread>

#include "remote/RemoteOrderIdManger.h"
#include "store/Runtime.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/TaskBodies.h"
#include "tests/support/TempDir.h"
#include "upkeep/PictureRetention.h"

namespace kps {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

// Orders of a store in a working directory of its own, with their pictures on disk.
class Retention : public ::testing::Test {
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

TEST_F(Retention, OnlyReportedFinalOrdersOlderThanTheDaysLoseTheirPicture) {
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
  removeExpiredPictures(store, sweep, 0, now);  // absent or 0: nothing, ever
  for (const auto& c : cases) EXPECT_TRUE(fs::exists(paths[c.id])) << c.id;
  removeExpiredPictures(store, sweep, 30, now);
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
  removeExpiredPictures(store, sweep, 30, now);  // a failed deletion: one line a pass, tried again
  EXPECT_EQ(count(log.text(), "] picture could not be removed: " + stuck + " ("), 2u) << log.text();
  EXPECT_EQ(file.scalar("SELECT count(*) FROM local"), "19");  // the rows stay
}

TEST_F(Retention, NeverWaitsForTheStoreAndComesBackForWhatWasNotReady) {
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
  removeExpiredPictures(store, sweep, 30, now, 2);
  release.set_value();
  holder.join();
  EXPECT_TRUE(fs::exists(middle));
  EXPECT_FALSE(sweep.ran);

  // Two orders a batch: the first sweep passes the unreported one by, the next comes back.
  removeExpiredPictures(store, sweep, 30, now, 2);
  EXPECT_FALSE(fs::exists(middle));
  removeExpiredPictures(store, sweep, 30, now, 2);
  EXPECT_FALSE(fs::exists(late));
  EXPECT_TRUE(fs::exists(early));
  ASSERT_TRUE(file.exec("UPDATE local SET syncTime = " + daysAgo(30) + " WHERE uuid = 'early-unreported'"));
  removeExpiredPictures(store, sweep, 30, now, 2);
  EXPECT_FALSE(fs::exists(early));
}

// The woken print worker holds newOrderMutex while it waits for databaseMutex: a sweep holding
// that past the next poll would let the poll's intake take it, store an order and wait for
// newOrderMutex for ever. So a sweep never holds the store while a print run is under way or
// about to start; with neither, it holds it (here, as long as the test likes) and the intake
// and the run that come meanwhile simply follow it.
TEST_F(Retention, NeverHoldsTheStoreWhileARunIsUnderWayOrAboutToStart) {
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
  removeExpiredPictures(store, sweep, 30, now);
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
  removeExpiredPictures(store, sweep, 30, now);
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
  // The worker takes newOrderMutex before it waits: a pass that meets it then is skipped, and
  // comes back at its next turn, as the service's does.
  std::thread sweeper([&] {
    while (!sweep.ran) removeExpiredPictures(store, sweep, 30, now);
  });
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
