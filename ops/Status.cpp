// `--status`: the kiosk's health for a person or a monitoring tool, read from the store through
// a read-only connection of its own, safe while the service runs, and the printer's condition.
// Exit code: 0 healthy; 1 when something waits too long (a pending order, a final order not
// reported, a stale status file) or the printer needs a person or its media is low; 2 when the
// store cannot be read.
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "base/FilePath.h"
#include "base/Log.h"
#include "ops/Commands.h"
#include "ops/Words.h"
#include "printer/PrinterManager.h"
#include "store/StoreReader.h"
#include "upkeep/PrinterWatch.h"

namespace kps::ops {

namespace {

constexpr std::int64_t kLongestWaitSeconds = 15 * 60;
constexpr std::int64_t kFreshStatusSeconds = 3 * 60;
// The pictures looked for on disk: those of the newest orders only, so that a store of a
// million orders costs no more than a month's.
constexpr int kNewestOrders = 10000;

// How long ago the file was written: negative when its time is ahead of the clock (the clock was
// set back since); empty when there is no such file.
std::optional<std::int64_t> secondsSince(const std::filesystem::path& file) {
  std::error_code error;
  const auto written = std::filesystem::last_write_time(file, error);
  if (error) return std::nullopt;
  return std::chrono::duration_cast<std::chrono::seconds>(std::filesystem::file_time_type::clock::now() - written).count();
}

}  // namespace

int runStatus(std::ostream& out) {
  const std::time_t now = std::time(nullptr);
  StoreReader store("PrintData.db");
  if (!store.opened()) {
    out << "store PrintData.db cannot be read: " << store.error() << std::endl;
    return 2;
  }
  const std::string today = localTimeString(now).substr(0, 10);
  const std::string weekAgo = localTimeString(now - 6 * 86400).substr(0, 10);
  // Any query that fails makes the store unreadable to a monitor, whatever the others found.
  std::string failed;
  const auto query = [&](const std::string& sql, const std::vector<std::string>& parameters = {}) {
    auto rows = store.rows(sql, parameters);
    if (!store.error().empty() && failed.empty()) failed = store.error();
    return rows;
  };
  const char* const byDay = "SELECT status, count(*) FROM local WHERE status != 0 AND substr(updateTime, 1, 10) >= ?1 "
                            "GROUP BY status ORDER BY status";
  const auto todays = query(byDay, {today});
  const auto weeks = query(byDay, {weekAgo});
  const auto unreported = query(
      "SELECT count(*), ifnull(min(updateTime), '') FROM local WHERE status != 0 AND "
      "(syncTime IS NULL OR syncTime = '' OR updateTime > syncTime)");
  const auto lastReport = query("SELECT ifnull(max(syncTime), '') FROM local");
  const auto reasons = query(
      "SELECT ifnull(failReason, '(none)'), count(*) FROM local WHERE status = 4 AND substr(updateTime, 1, 10) >= ?1 "
      "GROUP BY 1 ORDER BY 2 DESC, 1",
      {weekAgo});
  const auto paths = query("SELECT DISTINCT path FROM (SELECT path FROM local ORDER BY rowid DESC LIMIT " +
                           std::to_string(kNewestOrders) + ") WHERE path IS NOT NULL");
  const auto orders = query("SELECT count(*) FROM local");
  const auto [pending, oldest] = store.pendingOrders();
  if (!store.error().empty() && failed.empty()) failed = store.error();
  if (!failed.empty() || unreported.empty() || lastReport.empty() || orders.empty()) {
    out << "store PrintData.db cannot be read: " << failed << std::endl;
    return 2;
  }

  std::vector<std::string> attention;
  out << "orders today (" << today << "): " << ordersText(todays) << std::endl;
  out << "orders the last 7 days (since " << weekAgo << "): " << ordersText(weeks) << std::endl;
  out << "pending: " << pending << (oldest >= 0 ? ", the oldest " + ageText(oldest) + " old" : "") << std::endl;
  if (oldest > kLongestWaitSeconds) attention.push_back("an order has been pending for " + ageText(oldest));
  out << "last report to the backend: " << (lastReport[0][0].empty() ? "never" : lastReport[0][0])
      << "; final orders not reported yet: " << unreported[0][0] << std::endl;
  if (unreported[0][0] != "0" && !unreported[0][1].empty() &&
      unreported[0][1] < localTimeString(now - kLongestWaitSeconds))
    attention.push_back("final orders have waited since " + unreported[0][1] + " to be reported");
  std::string failures;
  for (const auto& row : reasons) failures += (failures.empty() ? "" : ", ") + row[0] + " " + row[1];
  out << "failure reasons the last 7 days: " << (failures.empty() ? "none" : failures) << std::endl;
  std::uintmax_t files = 0, bytes = 0;
  for (const auto& row : paths) {
    std::error_code error;
    const auto size = std::filesystem::file_size(toPath(row[0]), error);
    if (!error) ++files, bytes += size;
  }
  out << "pictures on disk: " << files << " (" << (bytes >> 20) << " MiB)"
      << (std::stoll(orders[0][0]) > kNewestOrders ? ", of the newest " + std::to_string(kNewestOrders) + " orders" : "")
      << std::endl;

  const PrinterConfigValues settings = readOptionalSettings("./config.ini");
  PrinterState printer = PrinterManager().ReadPrinterState(utf8ToWide(settings.PrinterName));
  markMediaLow(printer, settings.MediaLowPrints);
  const PrinterLine condition = describePrinter(printer);
  out << "printer " << (printer.known ? printer.name : settings.PrinterName) << ": " << condition.text << std::endl;
  if (printer.needsPerson()) attention.push_back("the printer needs a person: " + printer.needsPersonText());
  else if (printer.has(Condition::MediaLow)) attention.push_back("the printer's " + condition.text);

  const std::string statusFile = settings.StatusFilePath;
  if (!statusFile.empty()) {
    const auto age = secondsSince(toPath(statusFile));
    std::ifstream in(toPath(statusFile), std::ios::binary);
    const std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!age) {
      out << "status file " << statusFile << ": missing" << std::endl;
      attention.push_back("the status file is missing");
    } else if (*age < 0) {
      // The service rewrites it within a minute of the clock going back; one ahead for longer
      // has not been written since.
      out << "status file " << statusFile << ": there, its time " << ageText(-*age) << " ahead of the clock" << std::endl
          << content;
      if (-*age > kFreshStatusSeconds)
        attention.push_back("the status file's time is " + ageText(-*age) + " ahead of the clock: not written since it was set back");
    } else {
      out << "status file " << statusFile << ": written " << ageText(*age) << " ago" << std::endl << content;
      if (*age > kFreshStatusSeconds) attention.push_back("the status file is " + ageText(*age) + " old");
    }
  }
  for (const auto& line : attention) out << "attention: " << line << std::endl;
  out << (attention.empty() ? "healthy" : "needs attention") << std::endl;
  return attention.empty() ? 0 : 1;
}

}  // namespace kps::ops
