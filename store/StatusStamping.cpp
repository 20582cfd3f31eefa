// Status and time stamps of one row of table local.
#include <chrono>
#include <functional>
#include <iostream>
#include <thread>

#include "base/Log.h"
#include "store/Database.h"

namespace kps {

std::string Database::currentTimeString() { return localTimeString(); }

int Database::stepWithBusyRetry(SqliteStatement& statement, const char* failureLine,
                                const char* successLine) {
  // Any result but busy counts as done, errors included: the row is left as SQLite left it.
  int result = SQLITE_BUSY;
  for (int attempt = 0; attempt < 5; ++attempt) {
    if ((result = statement.step()) != SQLITE_BUSY) {
      logLine(KPS_TAG_DATABASE, __LINE__, successLine);
      return result;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    logLine(KPS_TAG_DATABASE, __LINE__, failureLine, errorMessage());
  }
  return result;
}

bool Database::updateRow(const char* sql, const char* prepareFailure,
                         const std::function<void(SqliteStatement&)>& bind,
                         const char* failureLine, const char* successLine) {
  std::lock_guard<std::mutex> lock(mutex);
  SqliteStatement update(db, sql);
  if (!update.ok()) {
    std::cerr << prepareFailure << errorMessage() << std::endl;
    return false;
  }
  bind(update);
  return stepWithBusyRetry(update, failureLine, successLine) == SQLITE_DONE && sqlite3_changes(db) > 0;
}

bool Database::updateFailStatus(const std::string& uuid, std::int32_t status,
                                const std::string& failReason) {
  return updateRow("UPDATE local SET status = ?, failReason = ? WHERE uuid = ? and status = 0;",
            "Failed to prepare update statement: ",
            [&](SqliteStatement& update) {
              update.bind(1, status);
              update.bind(2, failReason);
              update.bind(3, uuid);
            },
            "updateFailStatus Failed to execute update statement: ", "updateFailStatus success: ");
}

void Database::updateStatus(const std::string& uuid, std::int32_t status,
                            std::int32_t completedNumber) {
  updateRow("UPDATE local SET status = ?, completedNumber = ? WHERE uuid = ?;",
            "Failed to prepare update statement: ",
            [&](SqliteStatement& update) {
              update.bind(1, status);
              update.bind(2, completedNumber);
              update.bind(3, uuid);
            },
            "updateStatus Failed to execute update statement: ", "updateStatus success: ");
}

void Database::updateTime(const std::string& uuid) {
  std::string now;  // bound without a copy: it must outlive the step
  updateRow("UPDATE local SET updateTime = ? WHERE uuid = ?;", "Failed to prepare statement: ",
            [&](SqliteStatement& update) {
              now = currentTimeString();
              update.bind(1, now);
              update.bind(2, uuid);
            },
            "updateTime Failed to execute update statement: ", "updateTime success: ");
}

void Database::updateSyncTime(const std::string& uuid) {
  std::lock_guard<std::mutex> lock(mutex);
  const std::string now = currentTimeString();
  SqliteStatement update(db, "UPDATE local SET syncTime = ? WHERE uuid = ?;");
  if (!update.ok()) {
    std::cerr << "Failed to prepare statement: " << errorMessage() << std::endl;
    return;
  }
  update.bind(1, now);
  update.bind(2, uuid);
  if (update.step() != SQLITE_DONE) std::cerr << "Execution failed: " << errorMessage() << std::endl;
}

}  // namespace kps
