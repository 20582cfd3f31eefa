// Where the opt-in picture retention stands between its passes (Database::removeExpiredPictures).
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace kps {

struct RetentionSweep {
  // The next batch starts after this row, in (updateTime, rowid) order.
  std::string afterTime;
  std::int64_t afterRow = 0;
  // The first row of the current sweep that must be looked at again (not reported yet, still
  // used by a pending order, or not deletable this time); none when blockedRow < 0.
  std::string blockedTime;
  std::int64_t blockedRow = -1;
  bool indexed = false;
  // Called once a pass holds the store, before it works: tests hold a pass there.
  std::function<void()> whileLocked;
  bool ran = false;
  std::chrono::steady_clock::time_point lastRun;

  // At most one pass a minute.
  bool due(std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now()) const {
    return !ran || now - lastRun >= std::chrono::minutes(1);
  }
};

}  // namespace kps
