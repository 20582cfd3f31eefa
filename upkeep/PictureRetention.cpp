#include "upkeep/PictureRetention.h"

#include <filesystem>

#include "base/FilePath.h"
#include "base/Log.h"
#include "config/ServiceFiles.h"
#include "store/Runtime.h"

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

void removeExpiredPictures(Database& store, RetentionSweep& sweep, std::int32_t days, std::time_t now,
                           int batch) {
  if (days <= 0 || !store.isOpen()) return;
  // An intake pass could be about to print a file that is still here; a print run holds the
  // lock for minutes. Either way this pass waits for its next turn instead of for a lock.
  // A print run about to start (its wake-up pending) counts as under way: the woken worker
  // holds newOrderMutex while it waits for databaseMutex, so a pass holding databaseMutex past
  // the next poll would let that poll's intake take it, store an order and wait for
  // newOrderMutex for ever. With no wake-up pending and databaseMutex held here, none can be
  // raised (only an intake pass raises one, inside databaseMutex).
  std::unique_lock<std::mutex> wakeUp(newOrderMutex, std::try_to_lock);
  if (!wakeUp || newOrderFlag) return;
  std::unique_lock<std::mutex> held(databaseMutex, std::try_to_lock);
  if (!held) return;
  wakeUp.unlock();
  if (sweep.whileLocked) sweep.whileLocked();
  sweep.ran = true;
  sweep.lastRun = std::chrono::steady_clock::now();
  if (!sweep.indexed) {
    store.createRetentionIndex();
    sweep.indexed = true;
  }
  std::error_code error;
  const auto base = std::filesystem::canonical(toPath(workingDirectory()), error);
  if (error) return;
  const OwnFiles own = serviceOwnFiles();

  const std::string cutoff = localTimeString(now - static_cast<std::time_t>(days) * 24 * 60 * 60);
  std::vector<FinalOrderPicture> rows;
  if (!store.finalOrdersChangedBefore(cutoff, sweep.afterTime, sweep.afterRow, batch, rows)) return;
  for (const FinalOrderPicture& row : rows) {
    bool again = false;
    // Whatever a row says, the service's own files are never a picture.
    if (row.path && row.status >= 2 && row.status <= 5 && under(base, *row.path) && !own.owns(*row.path)) {
      const std::string& path = *row.path;
      if (row.syncTime.empty() || row.syncTime < row.updateTime || row.pendingUse) {
        again = true;  // not reported since its last change, or still to be printed
      } else if (std::filesystem::remove(toPath(path), error)) {
        logLine(KPS_TAG_DATABASE, __LINE__, "picture removed after its retention: ", path);
      } else if (error) {
        logLine(KPS_TAG_DATABASE, __LINE__, "picture could not be removed: ", path + " (" + error.message() + ")");
        again = true;
      }
    }
    if (again && sweep.blockedRow < 0) {
      sweep.blockedTime = row.updateTime;
      sweep.blockedRow = row.rowid;
    }
    sweep.afterTime = row.updateTime;
    sweep.afterRow = row.rowid;
  }
  // Swept to the cutoff: start again where it must.
  if (static_cast<int>(rows.size()) < batch && sweep.blockedRow >= 0) {
    sweep.afterTime = sweep.blockedTime;
    sweep.afterRow = sweep.blockedRow - 1;
    sweep.blockedRow = -1;
  }
}

}  // namespace kps
