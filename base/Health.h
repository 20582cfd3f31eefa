// What the loops last saw of the backend and what they counted since the process started, kept
// for the files monitoring tools read: the poll's and the sync's latest exchange, the orders
// that reached a final status, and the requests that failed. Written by the loops, read by the
// files' writers; its own lock only.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <map>
#include <mutex>
#include <string>

namespace kps {

struct ExchangeNote {
  std::string time;     // local, as the log writes it; empty: none yet
  std::string outcome;  // "HTTP 200, code \"100\", 2 tasks", "transfer error: ...", ...
  int rows = 0;         // the rows a sync sent (a sync with none to send is not noted)
};

enum class OrderEnd { Printed, Failed, Partial };

// Since the process started.
struct HealthCounts {
  std::uint64_t printed = 0, failed = 0, partial = 0;
  std::map<std::string, std::uint64_t> failedByReason;  // by failReason, "" for none
  std::chrono::system_clock::time_point lastPollSuccess, lastSyncSuccess;  // the epoch: none yet
  std::uint64_t pollsFailed = 0, syncsFailed = 0, downloadsFailed = 0;
};

class Health {
 public:
  static Health& instance();

  // A poll succeeds when the backend's task list was accepted, a sync when the exchange
  // completed (its answer is not judged).
  void notePoll(const std::string& outcome, bool succeeded);
  void noteSync(int rows, const std::string& outcome, bool succeeded);
  // A picture the object store did not deliver (not one this machine could not keep).
  void noteDownloadFailed();
  // Once per order, when it reaches its final status.
  void noteOrderEnded(OrderEnd end, const std::string& failReason = "");
  ExchangeNote lastPoll();
  ExchangeNote lastSync();
  HealthCounts counts();
  std::time_t startTime() const { return startTime_; }

  // Print runs ended: the files monitoring tools read are written at the sync loop's next turn
  // after one, each writer keeping the count it saw last.
  std::atomic<std::uint64_t> runsEnded{0};

 private:
  Health();

  const std::time_t startTime_;
  std::mutex mutex_;
  ExchangeNote poll_, sync_;
  HealthCounts counts_;
};

}  // namespace kps
