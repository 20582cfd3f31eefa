// The status file on a real store: when it is written, and what a failure to write says.
#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <optional>
#include <tuple>

#include "base/Health.h"
#include "tests/support/Kiosk.h"
#include "tests/support/OutputWatcher.h"
#include "upkeep/PrinterWatch.h"
#include "upkeep/StatusFile.h"

namespace kps {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

// The status file's minute is counted on the steady clock: a wall clock set back two hours
// does not stop the heartbeat.
TEST(StatusFileWrites, AMinuteOnTheSteadyClockWhateverTheWallClockDoes) {
  Kiosk kiosk;
  PrinterWatch printer("no such printer", 0, [](const std::wstring&) { return PrinterState{}; });
  StatusFile status(kiosk.dir.file("status.json"), printer, kiosk.dir.file("PrintData.db"));
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
  PrinterWatch printer("no such printer", 0, [](const std::wstring&) { return PrinterState{}; });
  StatusFile status(path, printer, kiosk.dir.file("PrintData.db"));
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

// The printer object: the condition and the media as the service last read them, the printer
// asked at most once a minute however often the file is written, and one log line when its
// condition or its media's low state changes.
TEST(StatusFileWrites, ThePrinterAsLastReadWithItsConditionAndMedia) {
  Kiosk kiosk;
  const auto media = [](const char* name, std::optional<std::int32_t> prints) {
    MediaReport report;
    report.name = name, report.remainingPrints = prints;
    return report;
  };
  const auto state = [](std::vector<Condition> conditions, std::optional<MediaReport> loaded, const char* message = "") {
    PrinterState s;
    s.known = true, s.name = "kps-dnp", s.media = loaded, s.message = message;
    for (Condition c : conditions) s.conditions.push_back({c, Severity::Error});
    return s;
  };
  struct Row {
    PrinterState read;
    const char* printer;  // the object as written
    const char* line;     // the log line it brings, or ""
  };
  const Row rows[] = {
      {state({}, media("4x6", 37)),
       R"({"name":"kps-dnp","ready":true,"conditions":[],"message":null,"media":"4x6","remainingPrints":37})",
       "] printer condition: ready\n"},
      {state({}, media("4x6", 36)), R"("ready":true,"conditions":[],"message":null,"media":"4x6","remainingPrints":36})", ""},
      {state({}, media("4x6", 12)), R"("ready":true,"conditions":["media-low"],"message":null,"media":"4x6","remainingPrints":12})",
       "] printer condition: media-low\n"},
      {state({Condition::MediaEmpty}, media("4x6", 0), "Out of paper"),
       R"("ready":false,"conditions":["media-empty"],"message":"Out of paper","media":"4x6","remainingPrints":0})",
       "] printer condition: media-empty\n"},
      {state({}, std::nullopt), R"("ready":true,"conditions":[],"message":null,"media":null,"remainingPrints":null})",
       "] printer condition: ready\n"},
      {PrinterState{}, R"({"name":null,"ready":false,"conditions":[],"message":null,"media":null,"remainingPrints":null})",
       "] printer condition: not found\n"},
  };
  std::size_t next = 0, reads = 0;
  PrinterWatch printer("dnp", 20, [&](const std::wstring& name) {
    EXPECT_EQ(name, L"dnp");
    return ++reads, rows[next].read;
  });
  StatusFile status(kiosk.dir.file("status.json"), printer, kiosk.dir.file("PrintData.db"));
  const std::time_t now = std::time(nullptr);
  auto tick = std::chrono::steady_clock::now();
  for (; next < std::size(rows); ++next) {
    OutputWatcher log;
    // Written after two print runs within the minute: the printer is asked once.
    for (int run = 0; run < 2; ++run) {
      ++Health::instance().runsEnded;
      status.writeIfDue(now, tick + std::chrono::seconds(run));
    }
    EXPECT_EQ(reads, next + 1);
    const std::string written = kiosk.dir.read("status.json");
    EXPECT_NE(written.find(rows[next].printer), std::string::npos) << written;
    EXPECT_EQ(log.text().find("] printer condition: ") != std::string::npos, *rows[next].line != '\0') << log.text();
    EXPECT_NE(log.text().find(rows[next].line), std::string::npos) << log.text();
    tick += 61s;
  }
}

}  // namespace
}  // namespace kps
