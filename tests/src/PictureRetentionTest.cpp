// Picture retention over a real store file and real picture files in the working directory.
#include <gtest/gtest.h>

#include <filesystem>
#include <future>
#include <thread>

#include "src/Database.h"
#include "src/Runtime.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/TempDir.h"
#include "tests/support/WorkingDirectory.h"

namespace kps {
namespace {

namespace fs = std::filesystem;

class PictureRetentionTest : public ::testing::Test {
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
  Database store{"PrintData.db"};
  SqliteFile file{dir.file("PrintData.db")};
  std::time_t now = std::time(nullptr);
  RetentionSweep sweep;
};

TEST_F(PictureRetentionTest, OnlyReportedFinalOrdersOlderThanTheDaysLoseTheirPicture) {
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
  order("already-gone", 2, 31, 30, dir.file("pics/gone.jpg"), false);

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
  EXPECT_EQ(log.text().find("gone.jpg"), std::string::npos);
  EXPECT_EQ(file.scalar("SELECT count(*) FROM local"), "12");  // the rows stay
}

TEST_F(PictureRetentionTest, AFailedDeletionIsOneLineAndTriedAgain) {
  const std::string folder = dir.file("pics/a-folder.jpg");  // a non-empty folder cannot go
  fs::create_directories(folder + "/inside");
  order("stuck", 2, 31, 30, folder);
  for (int pass = 1; pass <= 2; ++pass) {
    OutputWatcher log;
    store.removeExpiredPictures(sweep, 30, now);
    EXPECT_NE(log.text().find("] picture could not be removed: " + folder + " ("), std::string::npos) << pass;
  }
  EXPECT_TRUE(fs::exists(folder));
}

TEST_F(PictureRetentionTest, NeverWaitsForTheStoreAndComesBackForWhatWasNotReady) {
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

}  // namespace
}  // namespace kps
