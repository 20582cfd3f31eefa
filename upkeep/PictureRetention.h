// Picture retention, opt-in: a picture file goes once its order is final, reported and older
// than the configured days, unless a pending order still needs it. The row stays.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <ctime>
#include <string>

#include "store/Database.h"

namespace kps {

// Where retention stands between its passes.
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

// One pass (days > 0): at most `batch` orders, in the order of their updateTime, whose pictures
// may go at `now` (seconds since 1970). Does nothing while databaseMutex is held elsewhere.
void removeExpiredPictures(Database& store, RetentionSweep& sweep, std::int32_t days, std::time_t now,
                           int batch = 1000);

}  // namespace kps
