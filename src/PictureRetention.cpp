// Picture retention, opt-in: a picture file goes once its order is final, reported and older
// than the configured days, unless a pending order still needs it. The row stays.
#include <filesystem>
#include <iostream>

#include "src/Database.h"
#include "src/FilePath.h"
#include "src/Log.h"
#include "src/PictureRetention.h"
#include "src/Runtime.h"
#include "src/ServiceFiles.h"

namespace kps {

namespace {

// True when the file lies under `base` once links and ".." are resolved.
bool under(const std::filesystem::path& base, const std::string& path) {
  std::error_code error;
  const auto file = std::filesystem::weakly_canonical(toPath(path), error);
  if (error) return false;
  const auto relative = file.lexically_relative(base);
  return !relative.empty() && relative.is_relative() && *relative.begin() != "..";
}

}  // namespace

void Database::removeExpiredPictures(RetentionSweep& sweep, std::int32_t days, std::time_t now,
                                     int batch) {
  if (days <= 0 || !db) return;
  // An intake pass could be about to print a file that is still here; a print run holds the
  // lock for minutes. Either way this pass waits for its next turn instead of for a lock.
  // A print run about to start (its wake-up pending) counts as under way: the woken worker
  // holds newOrderMutex while it waits for databaseMutex, so a pass holding databaseMutex past
  // the next poll would let that poll's intake take it, store an order and wait for
  // newOrderMutex for ever. With no wake-up pending and databaseMutex held here, none can be
  // raised (only an intake pass raises one, inside databaseMutex).
  std::unique_lock<std::mutex> wakeUp(newOrderMutex, std::try_to_lock);
  if (!wakeUp || newOrderFlag) return;
  std::unique_lock<std::mutex> store(databaseMutex, std::try_to_lock);
  if (!store) return;
  wakeUp.unlock();
  if (sweep.whileLocked) sweep.whileLocked();
  sweep.ran = true;
  sweep.lastRun = std::chrono::steady_clock::now();
  if (!sweep.indexed) {
    char* message = nullptr;
    if (sqlite3_exec(db, "CREATE INDEX IF NOT EXISTS local_updated ON local(updateTime) WHERE status != 0;",
                     nullptr, nullptr, &message) != SQLITE_OK)
      std::cerr << "Failed to create index: " << (message ? message : "") << std::endl;
    sqlite3_free(message);
    sweep.indexed = true;
  }
  std::error_code error;
  const auto base = std::filesystem::canonical(toPath(workingDirectory()), error);
  if (error) return;
  const OwnFiles own = serviceOwnFiles();

  SqliteStatement query(db,
                        "SELECT rowid, path, status, syncTime, updateTime, EXISTS (SELECT 1 FROM local "
                        "AS p WHERE p.status = 0 AND p.path = local.path) FROM local WHERE status != 0 "
                        "AND updateTime < ? AND (updateTime > ? OR (updateTime = ? AND rowid > ?)) "
                        "ORDER BY updateTime, rowid LIMIT ?;");
  if (!query.ok()) {
    std::cerr << "Failed to prepare query: " << errorMessage() << std::endl;
    return;
  }
  const std::string cutoff = localTimeString(now - static_cast<std::time_t>(days) * 24 * 60 * 60);
  query.bind(1, cutoff);
  query.bind(2, sweep.afterTime);
  query.bind(3, sweep.afterTime);
  sqlite3_bind_int64(query.get(), 4, sweep.afterRow);
  query.bind(5, batch);
  int rows = 0;
  while (query.step() == SQLITE_ROW) {
    ++rows;
    const std::int64_t rowid = sqlite3_column_int64(query.get(), 0);
    const char* path = query.text(1);
    const std::int32_t status = query.integer(2);
    const std::string syncTime = query.text(3) ? query.text(3) : "";
    const std::string updateTime = query.text(4);
    const bool pendingUse = query.integer(5) != 0;
    bool again = false;
    // Whatever a row says, the service's own files are never a picture.
    if (path && status >= 2 && status <= 5 && under(base, path) && !own.owns(path)) {
      if (syncTime.empty() || syncTime < updateTime || pendingUse) {
        again = true;  // not reported since its last change, or still to be printed
      } else if (std::filesystem::remove(toPath(path), error)) {
        logLine(KPS_TAG_DATABASE, __LINE__, "picture removed after its retention: ", std::string(path));
      } else if (error) {
        logLine(KPS_TAG_DATABASE, __LINE__, "picture could not be removed: ",
                std::string(path) + " (" + error.message() + ")");
        again = true;
      }
    }
    if (again && sweep.blockedRow < 0) {
      sweep.blockedTime = updateTime;
      sweep.blockedRow = rowid;
    }
    sweep.afterTime = updateTime;
    sweep.afterRow = rowid;
  }
  if (rows < batch && sweep.blockedRow >= 0) {  // swept to the cutoff: start again where it must
    sweep.afterTime = sweep.blockedTime;
    sweep.afterRow = sweep.blockedRow - 1;
    sweep.blockedRow = -1;
  }
}

}  // namespace kps
