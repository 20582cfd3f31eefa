#include "base/Health.h"

#include "base/Log.h"

namespace kps {

namespace {

// Made before main: the process's start, not the first note's.
Health& startedHealth = Health::instance();

}  // namespace

Health::Health() : startTime_(std::time(nullptr)) {}

Health& Health::instance() {
  static Health health;
  return health;
}

void Health::notePoll(const std::string& outcome, bool succeeded) {
  std::lock_guard<std::mutex> lock(mutex_);
  poll_ = ExchangeNote{localTimeString(), outcome, 0};
  if (succeeded)
    counts_.lastPollSuccess = std::chrono::system_clock::now();
  else
    ++counts_.pollsFailed;
}

void Health::noteSync(int rows, const std::string& outcome, bool succeeded) {
  std::lock_guard<std::mutex> lock(mutex_);
  sync_ = ExchangeNote{localTimeString(), outcome, rows};
  if (succeeded)
    counts_.lastSyncSuccess = std::chrono::system_clock::now();
  else
    ++counts_.syncsFailed;
}

void Health::noteDownloadFailed() {
  std::lock_guard<std::mutex> lock(mutex_);
  ++counts_.downloadsFailed;
}

void Health::noteOrderEnded(OrderEnd end, const std::string& failReason) {
  std::lock_guard<std::mutex> lock(mutex_);
  switch (end) {
    case OrderEnd::Printed: ++counts_.printed; break;
    case OrderEnd::Partial: ++counts_.partial; break;
    case OrderEnd::Failed:
      ++counts_.failed;
      ++counts_.failedByReason[failReason];
      break;
  }
}

ExchangeNote Health::lastPoll() {
  std::lock_guard<std::mutex> lock(mutex_);
  return poll_;
}

ExchangeNote Health::lastSync() {
  std::lock_guard<std::mutex> lock(mutex_);
  return sync_;
}

HealthCounts Health::counts() {
  std::lock_guard<std::mutex> lock(mutex_);
  return counts_;
}

}  // namespace kps
