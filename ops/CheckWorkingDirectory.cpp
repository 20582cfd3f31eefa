// `--check`, the working directory: that the service can write there, has room for pictures,
// and what its store holds, read without a write.
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include "base/FilePath.h"
#include "ops/Commands.h"
#include "ops/Words.h"
#include "store/StoreReader.h"

namespace kps::ops {

namespace {

constexpr std::uintmax_t kLeastFreeBytes = 1ull << 30;

void checkStore(CheckReport& report) {
  const std::string what = "store PrintData.db";
  std::error_code ignored;
  if (!std::filesystem::exists(toPath("PrintData.db"), ignored)) {
    report.ok(what, "absent (created at first start)");
    return;
  }
  StoreReader store("PrintData.db");
  if (!store.opened()) {
    report.fail(what, "cannot be opened read-only: " + store.error());
    return;
  }
  const std::string check = store.quickCheck();
  if (check != "ok") {
    report.fail(what, "quick check: " + check);
    return;
  }
  const auto counts = store.rows("SELECT status, count(*) FROM local GROUP BY status ORDER BY status;");
  if (!store.error().empty()) {
    report.fail(what, "its orders cannot be read: " + store.error());
    return;
  }
  const std::int64_t oldest = store.pendingOrders().second;
  report.ok(what, "quick check ok; orders: " + ordersText(counts) +
                      (oldest >= 0 ? "; oldest pending order " + ageText(oldest) : ""));
}

}  // namespace

void checkWorkingDirectory(CheckReport& report) {
  const std::string dir = workingDirectory();
  const std::string what = "working directory " + dir;
  // A probe of its own, made new and gone again at once: the only write the check makes. A
  // file of that name already there is left as it is and another name taken.
  std::error_code ignored;
  bool writable = false;
  for (int attempt = 0; attempt < 100 && !writable; ++attempt) {
    const std::string probe = "kiosk-print-service-check" + (attempt ? "-" + std::to_string(attempt) : "") + ".probe";
    writable = static_cast<bool>(FilePtr(createNewFile(probe)));  // closed again here
    if (writable) std::filesystem::remove(toPath(probe), ignored);
    else if (!std::filesystem::exists(toPath(probe), ignored)) break;  // not there, yet not made: not writable
  }
  if (!writable) report.fail(what, "not writable");
  const auto space = std::filesystem::space(toPath(dir), ignored);
  const std::string free = std::to_string(space.available >> 20) + " MiB free";
  if (ignored)
    report.warn(what, "free space unknown: " + ignored.message());
  else if (space.available < kLeastFreeBytes)
    report.warn(what, (writable ? "writable, only " : "only ") + free + " (less than 1 GiB)");
  else if (writable)
    report.ok(what, "writable, " + free);
  checkStore(report);
}

}  // namespace kps::ops
