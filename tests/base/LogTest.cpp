// The log writer: every kind of value, the machine's local time, lines from many threads.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <functional>
#include <regex>
#include <sstream>
#include <thread>
#include <vector>

#include "base/Log.h"
#include "tests/support/OutputWatcher.h"

namespace kps {
namespace {

const std::string kStamp = R"(\[\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\] )";

TEST(Log, LineFormatsWithEveryValueKind) {
  const std::pair<std::function<void()>, std::string> cases[] = {
      {[] { logLine(KPS_TAG_TASK, 18, "url : ", std::string("https://h/x")); },
       R"(\[\.\.\\\.\.\\\.\.\\src\\task:18\] url : https://h/x)"},
      {[] { logLine(KPS_TAG_REMOTE, 7, "response :", std::string("{\"code\":1}\nmore")); },
       R"(\[\.\.\\\.\.\\\.\.\\remote\\remote:7\] response :\{"code":1\}\nmore)"},
      {[] { logLine(KPS_TAG_DATABASE, 4, "uuid : ", "t-1"); }, R"(\[\.\.\\\.\.\\\.\.\\src\\Database:4\] uuid : t-1)"},
      {[] { logLine(KPS_TAG_PRINTER, 5, "Error code:", std::uint32_t{4294967295u}); },
       R"(\[\.\.\\\.\.\\\.\.\\printer\\PrinterManager:5\] Error code:4294967295)"},
      // A write that failed before (a full disk under a redirection) silences no later line.
      {[] { std::cout.setstate(std::ios::badbit); logLine(KPS_TAG_TASK, 6, "after a failed write"); },
       R"(\[\.\.\\\.\.\\\.\.\\src\\task:6\] after a failed write)"},
  };
  for (const auto& [call, rest] : cases) {
    OutputWatcher capture;
    call();
    const std::string text = capture.text();
    EXPECT_TRUE(std::regex_match(text, std::regex(kStamp + rest + "\n"))) << text;
  }
}

// The zone's time computed without the local-time functions: UTC plus 5:30.
std::string utcPlusFiveThirty() {
  const std::time_t shifted = std::time(nullptr) + 5 * 3600 + 30 * 60;
  std::tm utc{};
  gmtime_r(&shifted, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &utc);
  return text;
}

TEST(Log, TimeStampIsLocalTimeOfTheMachinesZone) {
  const char* old = std::getenv("TZ");
  const std::string saved = old ? old : "";
  ::setenv("TZ", "KPS-05:30", 1);  // no daylight saving, half an hour off the hour
  ::tzset();
  const std::string before = utcPlusFiveThirty();
  OutputWatcher capture;
  logLine(KPS_TAG_TASK, 1, "x");
  const std::string after = utcPlusFiveThirty();
  old ? ::setenv("TZ", saved.c_str(), 1) : ::unsetenv("TZ");
  ::tzset();
  const std::string stamp = capture.text().substr(1, 19);
  EXPECT_LE(before, stamp);
  EXPECT_LE(stamp, after);
}

TEST(Log, ConcurrentLinesNeverMix) {
  constexpr int kThreads = 3, kLines = 300;
  OutputWatcher capture;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([t] {
      const std::string value(200, static_cast<char>('a' + t));
      for (int i = 0; i < kLines; ++i) logLine(KPS_TAG_TASK, t, "v=", value);
    });
  for (auto& thread : threads) thread.join();
  std::istringstream lines(capture.text());
  const std::regex whole(kStamp + R"(\[\.\.\\\.\.\\\.\.\\src\\task:(\d)\] v=(a{200}|b{200}|c{200}))");
  std::string line;
  int count = 0;
  for (std::smatch match; std::getline(lines, line); ++count) {
    ASSERT_TRUE(std::regex_match(line, match, whole)) << line;
    EXPECT_EQ(match[2].str()[0], 'a' + std::stoi(match[1].str()));
  }
  EXPECT_EQ(count, kThreads * kLines);
}

}  // namespace
}  // namespace kps
