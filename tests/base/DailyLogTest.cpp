// [LogFile]: the streams into one file per local day, under a clock the test moves.
#include <gtest/gtest.h>

#include <atomic>
#include <ctime>
#include <exception>
#include <filesystem>
#include <map>
#include <regex>
#include <sstream>
#include <thread>
#include <vector>

#include "base/DailyLog.h"
#include "base/Log.h"
#include "tests/support/TempDir.h"

namespace kps {
namespace {

namespace fs = std::filesystem;

// A local time of this machine's zone.
std::time_t localTime(int year, int month, int day, int hour, int minute) {
  std::tm tm{};
  tm.tm_year = year - 1900, tm.tm_mon = month - 1, tm.tm_mday = day, tm.tm_hour = hour, tm.tm_min = minute;
  tm.tm_isdst = -1;
  return std::mktime(&tm);
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The standard streams as the process had them, captured for the test's length.
struct CapturedStreams {
  std::stringbuf out, err;
  std::streambuf* savedOut = std::cout.rdbuf(&out);
  std::streambuf* savedErr = std::cerr.rdbuf(&err);
  ~CapturedStreams() {
    std::cout.rdbuf(savedOut);
    std::cerr.rdbuf(savedErr);
  }
};

std::string file(const TempDir& dir, const char* day) {
  return dir.read("logs/kiosk-print-service-" + std::string(day) + ".log");
}

// Threads write across two midnights, the second while they write: every line lands whole in
// exactly one file, each thread's lines in order, none on the standard streams. The log takes
// the streams only: what ends the process is the entry point's business.
TEST(DailyLog, LinesOfSeveralThreadsAcrossMidnightNoneLostOrSplit) {
  const std::terminate_handler handler = std::get_terminate();
  constexpr int kThreads = 3, kLines = 400;
  TempDir dir;
  CapturedStreams streams;
  // Computed before any thread writes: mktime may change the zone's state that localtime_r reads.
  const std::time_t days[] = {localTime(2026, 11, 23, 23, 59), localTime(2026, 11, 24, 0, 1), localTime(2026, 11, 25, 0, 1)};
  std::atomic<std::time_t> now{days[0]};
  std::atomic<int> written{0};
  {
    DailyLog log({dir.file("logs"), 14}, [&] { return now.load(); });
    log.attach();
    EXPECT_EQ(std::get_terminate(), handler);
    const auto writeLines = [&](int phase) {
      std::vector<std::thread> threads;
      for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t, phase] {
          for (int i = 0; i < kLines; ++i) {
            const std::string tag = "P" + std::to_string(phase) + " T" + std::to_string(t) + " L" + std::to_string(i);
            if (i % 3 == 0) logLine(KPS_TAG_TASK, i, "line ", tag);
            else (i % 3 == 1 ? std::cout : std::cerr) << tag << " untimed " << std::string(i % 50, 'x') << std::endl;
            ++written;
          }
        });
      return threads;
    };
    for (auto& thread : writeLines(1)) thread.join();
    now = days[1];
    auto threads = writeLines(2);
    while (written < kThreads * kLines + kThreads * kLines / 2) std::this_thread::yield();
    now = days[2];  // while they write
    for (auto& thread : threads) thread.join();
  }
  EXPECT_EQ(streams.out.str() + streams.err.str(), "");

  const std::regex whole(R"((\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\] \[[^\]]+\] line )?P(\d) T(\d) L(\d+)( untimed x*)?)");
  std::map<std::string, int> seen;
  std::map<std::pair<int, int>, int> lastIndex;  // (phase, thread) -> last line index read, in file order
  for (const char* day : {"2026-11-23", "2026-11-24", "2026-11-25"}) {
    for (const std::string& line : linesOf(file(dir, day))) {
      std::smatch match;
      ASSERT_TRUE(std::regex_match(line, match, whole)) << day << ": " << line;
      const int phase = std::stoi(match[2]), thread = std::stoi(match[3]), index = std::stoi(match[4]);
      EXPECT_EQ(phase == 1, std::string(day) == "2026-11-23") << day << ": " << line;
      const auto last = lastIndex.emplace(std::make_pair(phase, thread), -1).first;
      EXPECT_GT(index, last->second) << line;
      last->second = index;
      ++seen["P" + std::string(match[2]) + " T" + std::string(match[3]) + " L" + std::string(match[4])];
    }
  }
  EXPECT_EQ(seen.size(), 2u * kThreads * kLines);
  for (const auto& [line, count] : seen) EXPECT_EQ(count, 1) << line;
  EXPECT_FALSE(linesOf(file(dir, "2026-11-24")).empty());
  EXPECT_FALSE(linesOf(file(dir, "2026-11-25")).empty());
}

// At its start (and at each switch) files of its own name older than keepDays days go; nothing
// else in the folder is touched.
TEST(DailyLog, KeepDaysRemovesExactlyItsOwnOldFiles) {
  const std::pair<std::string, bool> files[] = {
      {"kiosk-print-service-2026-11-09.log", true},  {"kiosk-print-service-2026-11-08.log", false},
      {"kiosk-print-service-2025-12-31.log", false}, {"kiosk-print-service-2026-11-22.log", true},
      {"kiosk-print-service-2026-11-08.log.1", true}, {"kiosk-print-service-2026-11-08.txt", true},
      {"other-2026-11-01.log", true},                {"kiosk-print-service-latest.log", true},
  };
  TempDir dir;
  for (const auto& [name, kept] : files) dir.write("logs/" + name, "old\n");
  fs::create_directories(dir.file("logs/kiosk-print-service-2026-01-01.log"));  // a folder is no file of its
  CapturedStreams streams;
  {
    DailyLog log({dir.file("logs"), 14}, [] { return localTime(2026, 11, 23, 12, 0); });
    log.attach();
    std::cout << "first line" << std::endl;
  }
  for (const auto& [name, kept] : files) EXPECT_EQ(fs::exists(dir.file("logs/" + name)), kept) << name;
  EXPECT_TRUE(fs::is_directory(dir.file("logs/kiosk-print-service-2026-01-01.log")));
  EXPECT_EQ(file(dir, "2026-11-23"), "first line\n");
}

// A folder removed under the running log is made again for the next line. One that cannot be
// made (a file has its name) sends the lines to the standard streams with one line saying why,
// and is tried again a minute later on the steady clock, whatever the wall clock does. A file
// that ends inside a line (a write that failed, a power cut) gets the next line on a line of
// its own.
TEST(DailyLog, AFolderThatGoesIsMadeAgainAndAHalfLineIsEndedFirst) {
  TempDir dir;
  CapturedStreams streams;
  dir.write("logs/kiosk-print-service-2026-11-23.log", "half a li");
  std::atomic<std::time_t> now{localTime(2026, 11, 23, 10, 0)};
  const auto start = std::chrono::steady_clock::now();
  std::atomic<int> seconds{0};  // on the steady clock
  {
    DailyLog log({dir.file("logs"), 14}, [&] { return now.load(); }, [&] { return start + std::chrono::seconds(seconds); });
    log.attach();
    std::cout << "A" << std::endl;
    EXPECT_EQ(file(dir, "2026-11-23"), "half a li\nA\n");
    fs::remove_all(dir.file("logs"));
    std::cout << "B" << std::endl;  // the folder made again
    EXPECT_EQ(file(dir, "2026-11-23"), "B\n");
    fs::remove_all(dir.file("logs"));
    dir.write("logs", "a file where the folder was");
    std::cout << "C" << std::endl;
    std::cerr << "D" << std::endl;
    now = now - 7200;  // the wall clock set back two hours
    fs::remove(dir.file("logs"));
    seconds = 59;
    std::cout << "E" << std::endl;  // not tried again yet
    seconds = 60;
    std::cout << "F" << std::endl;
  }
  EXPECT_EQ(file(dir, "2026-11-23"), "F\n");
  EXPECT_EQ(streams.out.str(), "C\nE\n");
  const std::vector<std::string> errors = linesOf(streams.err.str());
  ASSERT_EQ(errors.size(), 2u) << streams.err.str();
  EXPECT_TRUE(std::regex_match(errors[0], std::regex(R"(\[2026-11-23 10:00:00\] log file .*kiosk-print-service-2026-11-23\.log: )"
                                                     R"(cannot open it: .+; lines go to the standard streams, tried again in a minute)")))
      << errors[0];
  EXPECT_EQ(errors[1], "D");
}

}  // namespace
}  // namespace kps
