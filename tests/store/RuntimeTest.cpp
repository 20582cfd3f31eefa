// The wake-up hand-off between the intake and the print worker (with the print run replaced by
// test doubles), and the print worker's settings handed to the other loops.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <future>
#include <thread>

#include "printer/PrinterSettings.h"
#include "store/Runtime.h"

namespace kps {
namespace {

using namespace std::chrono_literals;

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

// A loop that asks for the print worker's settings before they are published waits for them and
// sees them whole (this suite also runs under ThreadSanitizer, which finds an unordered read).
TEST(HandOff, TheOtherLoopsSeeThePrintWorkersSettingsWhole) {
  std::promise<void> asked;
  auto loop = std::async(std::launch::async, [&] {
    asked.set_value();
    return publishedPrinterSettings();
  });
  asked.get_future().wait();
  PrinterSettings = PrinterSettingsRecord{};
  PrinterSettings.screenId = "SCREEN-7", PrinterSettings.environment = 1;
  publishPrinterSettings();
  const PrinterSettingsRecord seen = loop.get();
  EXPECT_EQ(std::make_pair(seen.screenId, seen.environment), std::make_pair(std::string("SCREEN-7"), 1));
}

}  // namespace
}  // namespace kps
