// The log writer, and the wake-up hand-off between the intake and the print worker (with the
// print run replaced by test doubles).
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <future>
#include <regex>
#include <sstream>
#include <thread>
#include <vector>

#include "src/Log.h"
#include "src/Runtime.h"
#include "tests/support/OutputWatcher.h"

namespace kps {
namespace {

using namespace std::chrono_literals;

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

// Runs print worker cycles on a thread of its own until it goes.
class Worker {
 public:
  explicit Worker(std::function<void()> printRun) : printRun_(std::move(printRun)) {
    thread_ = std::thread([this] {
      std::unique_lock<std::mutex> lock(newOrderMutex);
      while (!stop_) printWorkerCycle(lock, [this] { if (!stop_) printRun_(); });
    });
  }
  ~Worker() {
    stop_ = true;
    announceNewOrders(nullptr);
    thread_.join();
    std::lock_guard<std::mutex> lock(newOrderMutex);
    newOrderFlag = false;
  }
  // The flag as the waiting worker leaves it (the worker holds the mutex during a run).
  static bool flag() {
    std::lock_guard<std::mutex> lock(newOrderMutex);
    return newOrderFlag;
  }

 private:
  std::function<void()> printRun_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

// True while the thread sleeps in the kernel on a futex: for a thread whose next step is
// taking a mutex, that it is blocked on it.
bool blockedOnFutex(pid_t tid) {
  std::ifstream in("/proc/self/task/" + std::to_string(tid) + "/syscall");
  long number = -1;
  in >> number;
  return number == SYS_futex;
}

TEST(HandOff, OrdersStoredDuringARunGiveExactlyOneMoreRun) {
  std::atomic<int> runs{0};
  std::promise<void> firstStarted, releaseFirst, secondDone;
  auto release = releaseFirst.get_future().share();
  Worker worker([&] {
    const int run = ++runs;
    if (run == 1) {
      firstStarted.set_value();
      release.wait();
    } else if (run == 2) {
      secondDone.set_value();
    }
  });
  announceNewOrders(nullptr);
  firstStarted.get_future().wait();
  // An intake pass during the run: the run ends only once the intake certainly waits for the
  // mutex the run holds.
  std::atomic<pid_t> intakeTid{0};
  std::thread intake([&] {
    intakeTid = static_cast<pid_t>(::syscall(SYS_gettid));
    announceNewOrders(nullptr);
  });
  const auto deadline = std::chrono::steady_clock::now() + 10s;
  while (!(intakeTid && blockedOnFutex(intakeTid)) && std::chrono::steady_clock::now() < deadline)
    std::this_thread::yield();
  EXPECT_EQ(runs.load(), 1);
  releaseFirst.set_value();
  intake.join();
  ASSERT_EQ(secondDone.get_future().wait_for(10s), std::future_status::ready);
  EXPECT_FALSE(Worker::flag());  // the pass was consumed by the second run
  EXPECT_EQ(runs.load(), 2);
}

TEST(HandOff, SignalRaisedBeforeTheWorkerWaitsIsNotLost) {
  announceNewOrders(nullptr);
  std::promise<void> ran;
  Worker worker([&] { ran.set_value(); });
  EXPECT_EQ(ran.get_future().wait_for(10s), std::future_status::ready);
  EXPECT_FALSE(Worker::flag());
}

}  // namespace
}  // namespace kps
