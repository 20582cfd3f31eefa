#include "base/Health.h"

#include "base/Log.h"

namespace kps {

Health& Health::instance() {
  static Health health;
  return health;
}

void Health::notePoll(const std::string& outcome) {
  std::lock_guard<std::mutex> lock(mutex_);
  poll_ = ExchangeNote{localTimeString(), outcome, 0};
}

void Health::noteSync(int rows, const std::string& outcome) {
  std::lock_guard<std::mutex> lock(mutex_);
  sync_ = ExchangeNote{localTimeString(), outcome, rows};
}

ExchangeNote Health::lastPoll() {
  std::lock_guard<std::mutex> lock(mutex_);
  return poll_;
}

ExchangeNote Health::lastSync() {
  std::lock_guard<std::mutex> lock(mutex_);
  return sync_;
}

}  // namespace kps
