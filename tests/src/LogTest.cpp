#include "src/Log.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <iostream>
#include <regex>
#include <sstream>
#include <thread>
#include <vector>

namespace kps {
namespace {

// Captures std::cout for the life of the object.
class CoutCapture {
 public:
  CoutCapture() : old_(std::cout.rdbuf(buffer_.rdbuf())) {}
  ~CoutCapture() { std::cout.rdbuf(old_); }
  std::string text() const { return buffer_.str(); }

 private:
  std::ostringstream buffer_;
  std::streambuf* old_;
};

const std::string kStamp = R"(\[\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\] )";

TEST(Log, LineFormatsWithEveryValueKind) {
  struct Case {
    std::function<void()> call;
    std::string rest;  // everything after the time stamp, as a regex
  };
  const std::vector<Case> cases = {
      {[] { logLine(KPS_TAG_TASK, 18, "url : ", std::string("https://h/x")); },
       R"(\[\.\.\\\.\.\\\.\.\\src\\task:18\] url : https://h/x)"},
      {[] { logLine(KPS_TAG_REMOTE, 7, "response :", std::string("{\"code\":1}")); },
       R"(\[\.\.\\\.\.\\\.\.\\remote\\remote:7\] response :\{"code":1\})"},
      {[] { logLine(KPS_TAG_DATABASE, 3, "Print success "); },
       R"(\[\.\.\\\.\.\\\.\.\\src\\Database:3\] Print success )"},
      {[] { logLine(KPS_TAG_DATABASE, 4, "uuid : ", "t-1"); },
       R"(\[\.\.\\\.\.\\\.\.\\src\\Database:4\] uuid : t-1)"},
      {[] { logLine(KPS_TAG_PRINTER, 5, "Error code:", std::uint32_t{4294967295u}); },
       R"(\[\.\.\\\.\.\\\.\.\\printer\\PrinterManager:5\] Error code:4294967295)"},
  };
  for (const auto& c : cases) {
    CoutCapture capture;
    c.call();
    const std::string text = capture.text();
    EXPECT_TRUE(std::regex_match(text, std::regex(kStamp + c.rest + "\n"))) << text;
  }
}

// The zone's time computed without the local-time functions under test: UTC plus 5:30.
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
  ::setenv("TZ", "KPS-05:30", 1);  // a zone with no daylight saving, half an hour off the hour
  ::tzset();
  const std::string before = utcPlusFiveThirty();
  CoutCapture capture;
  logLine(KPS_TAG_TASK, 1, "x");
  const std::string after = utcPlusFiveThirty();
  old ? ::setenv("TZ", saved.c_str(), 1) : ::unsetenv("TZ");
  ::tzset();
  const std::string stamp = capture.text().substr(1, 19);
  EXPECT_LE(before, stamp);
  EXPECT_LE(stamp, after);
}

TEST(Log, ValueWithLineBreakIsWrittenAsIs) {
  CoutCapture capture;
  logLine(KPS_TAG_TASK, 2, "body:", std::string("a\nb"));
  EXPECT_NE(capture.text().find("body:a\nb\n"), std::string::npos);
}

TEST(Log, ConcurrentLinesNeverMix) {
  constexpr int kThreads = 3, kLines = 300;
  CoutCapture capture;
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
  while (std::getline(lines, line)) {
    std::smatch match;
    ASSERT_TRUE(std::regex_match(line, match, whole)) << line;
    EXPECT_EQ(match[2].str()[0], 'a' + std::stoi(match[1].str()));
    ++count;
  }
  EXPECT_EQ(count, kThreads * kLines);
}

}  // namespace
}  // namespace kps
