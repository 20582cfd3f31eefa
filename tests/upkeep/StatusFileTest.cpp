// The status file on a real store: when it is written, and what a failure to write says.
#include <gtest/gtest.h>

#include <filesystem>
#include <tuple>

#include "tests/support/Kiosk.h"
#include "tests/support/OutputWatcher.h"
#include "upkeep/StatusFile.h"

namespace kps {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

// The status file's minute is counted on the steady clock: a wall clock set back two hours
// does not stop the heartbeat.
TEST(StatusFileWrites, AMinuteOnTheSteadyClockWhateverTheWallClockDoes) {
  Kiosk kiosk;
  StatusFile status(kiosk.dir.file("status.json"), "no such printer", kiosk.dir.file("PrintData.db"));
  const std::time_t now = std::time(nullptr);
  const auto start = std::chrono::steady_clock::now();
  const std::tuple<std::time_t, std::chrono::seconds, bool> writes[] = {
      {now, 0s, true}, {now + 30, 30s, false}, {now - 7200, 61s, true}, {now - 7190, 90s, false}, {now - 7140, 122s, true}};
  for (const auto& [wall, steady, written] : writes) {
    fs::remove(kiosk.dir.file("status.json"));
    status.writeIfDue(wall, start + steady);
    EXPECT_EQ(fs::exists(kiosk.dir.file("status.json")), written) << steady.count() << " s";
  }
}

// A file that cannot be written (its folder is a file) is one log line, again only after an
// hour of steady time, however often it fails in between.
TEST(StatusFileWrites, AFailureIsSaidOnceAnHour) {
  Kiosk kiosk;
  kiosk.dir.write("taken", "a file where the folder would be");
  const std::string path = kiosk.dir.file("taken/status.json");
  StatusFile status(path, "no such printer", kiosk.dir.file("PrintData.db"));
  const std::time_t now = std::time(nullptr);
  const auto start = std::chrono::steady_clock::now();
  // Tried once a minute; said at the first failure and an hour after the last line.
  const std::pair<std::chrono::seconds, std::size_t> tries[] = {{0s, 1}, {61s, 1}, {3599s, 1}, {3660s, 2}, {3721s, 2}, {7261s, 3}};
  OutputWatcher log;
  for (const auto& [steady, lines] : tries) {
    status.writeIfDue(now, start + steady);
    EXPECT_EQ(count(log.text(), "] status file cannot be written: " + path + ": "), lines) << steady.count() << " s";
  }
  EXPECT_FALSE(fs::exists(path));
}

}  // namespace
}  // namespace kps
