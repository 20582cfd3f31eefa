// The wake-up hand-off between the intake and the print worker, with the print run replaced
// by test doubles.
#include "src/Runtime.h"

#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <thread>
#include <vector>

namespace kps {
namespace {

using namespace std::chrono_literals;

// Runs print worker cycles on a thread of its own until stopped.
class Worker {
 public:
  explicit Worker(std::function<void()> printRun) : printRun_(std::move(printRun)) {
    thread_ = std::thread([this] {
      std::unique_lock<std::mutex> lock(newOrderMutex);
      while (!stop_) printWorkerCycle(lock, [this] {
        if (!stop_) printRun_();
      });
    });
  }
  ~Worker() {
    stop_ = true;
    announceNewOrders(nullptr);
    thread_.join();
    std::lock_guard<std::mutex> lock(newOrderMutex);
    newOrderFlag = false;
  }

 private:
  std::function<void()> printRun_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

// Holds newOrderMutex: only possible while the worker waits (it holds it during a run).
bool flagWhileWorkerWaits() {
  std::lock_guard<std::mutex> lock(newOrderMutex);
  return newOrderFlag;
}

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
  // An intake pass while the run holds the mutex queues behind it: the run ends only once
  // the intake is certainly waiting for the mutex.
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

  // The pass was consumed: the worker waits with the flag clear, after two runs.
  EXPECT_FALSE(flagWhileWorkerWaits());
  EXPECT_EQ(runs.load(), 2);
}

TEST(HandOff, SignalRaisedBeforeTheWorkerWaitsIsNotLost) {
  announceNewOrders(nullptr);
  std::promise<void> ran;
  Worker worker([&] { ran.set_value(); });
  EXPECT_EQ(ran.get_future().wait_for(10s), std::future_status::ready);
  EXPECT_FALSE(flagWhileWorkerWaits());
}

TEST(HandOff, NoWakeUpIsLostUnderConcurrentIntake) {
  constexpr int kIntakes = 4, kPasses = 200;
  std::atomic<int> announced{0};
  std::mutex seenMutex;
  std::condition_variable seenChanged;
  int lastSeen = 0;
  Worker worker([&] {
    std::lock_guard<std::mutex> lock(seenMutex);
    lastSeen = announced.load();
    seenChanged.notify_all();
  });

  std::vector<std::thread> intakes;
  for (int i = 0; i < kIntakes; ++i)
    intakes.emplace_back([&] {
      for (int p = 0; p < kPasses; ++p) announceNewOrders([&] { ++announced; });
    });
  for (auto& intake : intakes) intake.join();

  // Every pass is followed by a run that starts after it.
  std::unique_lock<std::mutex> lock(seenMutex);
  EXPECT_TRUE(seenChanged.wait_for(lock, 10s, [&] { return lastSeen == kIntakes * kPasses; }));
}

TEST(HandOff, AnnounceRunsItsLinesUnderTheWakeUpMutex) {
  bool heldInside = false;
  announceNewOrders([&] {
    heldInside = !std::async(std::launch::async, [] {
                    const bool got = newOrderMutex.try_lock();
                    if (got) newOrderMutex.unlock();
                    return got;
                  }).get();
  });
  EXPECT_TRUE(heldInside);
  std::lock_guard<std::mutex> lock(newOrderMutex);
  EXPECT_TRUE(newOrderFlag);
  newOrderFlag = false;
}

}  // namespace
}  // namespace kps
