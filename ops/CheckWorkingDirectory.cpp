// `--check`, the working directory: that the service can write there, has room for pictures,
// and what its store holds, read without a write.
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include "ops/Commands.h"
#include "src/FilePath.h"
#include "src/StoreReader.h"

namespace kps::ops {

namespace {

constexpr std::uintmax_t kLeastFreeBytes = 1ull << 30;

const char* statusName(std::int32_t status) {
  switch (status) {
    case 0: return "pending";
    case 1: return "withdrawn";
    case 2: return "printed";
    case 3: return "deleted";
    case 4: return "failed";
    case 5: return "partly printed";
    default: return nullptr;
  }
}

std::string age(std::chrono::seconds seconds) {
  const auto s = seconds.count();
  if (s < 120) return std::to_string(s) + " s";
  if (s < 7200) return std::to_string(s / 60) + " min";
  if (s < 172800) return std::to_string(s / 3600) + " h";
  return std::to_string(s / 86400) + " days";
}

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
  const auto counts = store.ordersByStatus();
  std::string text;
  for (const auto& [status, count] : counts) {
    const char* name = statusName(status);
    text += (text.empty() ? "" : ", ") + std::to_string(count) + " " +
            (name ? name : "status " + std::to_string(status));
  }
  if (!store.error().empty()) {
    report.fail(what, "its orders cannot be read: " + store.error());
    return;
  }
  // The store keeps no time for a pending order; its picture was written when it was taken in.
  const auto now = std::filesystem::file_time_type::clock::now();
  std::chrono::seconds oldest{-1};
  for (const std::string& path : store.pendingPictures()) {
    const auto written = std::filesystem::last_write_time(toPath(path), ignored);
    if (!ignored) oldest = std::max(oldest, std::chrono::duration_cast<std::chrono::seconds>(now - written));
  }
  report.ok(what, "quick check ok; orders: " + (text.empty() ? std::string("none") : text) +
                      (oldest.count() >= 0 ? "; oldest pending order " + age(oldest) : ""));
}

}  // namespace

void checkWorkingDirectory(CheckReport& report) {
  const std::string dir = workingDirectory();
  const std::string what = "working directory " + dir;
  // A probe of its own name, gone again at once: the only write the check makes.
  const std::filesystem::path probe = toPath("kiosk-print-service-check.probe");
  std::error_code ignored;
  const bool writable = static_cast<bool>(std::ofstream(probe));
  std::filesystem::remove(probe, ignored);
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
