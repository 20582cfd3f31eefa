#include "upkeep/MetricsFile.h"

#include "base/Health.h"
#include "Deployment.h"
#include "store/Database.h"
#include "upkeep/MetricsText.h"

namespace kps {

namespace {

std::int64_t secondsSince1970(std::chrono::system_clock::time_point when) {
  return std::chrono::duration_cast<std::chrono::seconds>(when.time_since_epoch()).count();
}

void orders(MetricsText& out, StoreReader& store) {
  const auto [pending, oldest] = store.pendingOrders();
  // A store that cannot be read has no count: none is better than a false 0.
  if (!store.error().empty()) return;
  out.family("kioskprint_orders_pending", "gauge", "Orders waiting to be printed.");
  out.sample(pending);
  out.family("kioskprint_order_oldest_pending_age_seconds", "gauge",
             "Age of the oldest pending order (from its picture file), 0 without one.");
  out.sample(oldest < 0 ? 0 : oldest);
}

void counts(MetricsText& out, const HealthCounts& counts) {
  out.family("kioskprint_orders_finished_total", "counter", "Orders that reached a final status since the service started.");
  out.sample({{"status", "printed"}}, static_cast<std::int64_t>(counts.printed));
  out.sample({{"status", "failed"}}, static_cast<std::int64_t>(counts.failed));
  out.sample({{"status", "partial"}}, static_cast<std::int64_t>(counts.partial));

  // Every reason from the start, so that a fleet's increase() sees the first failure of each.
  out.family("kioskprint_orders_failed_total", "counter", "Orders that ended failed since the service started, by failReason.");
  const auto failed = [&](const std::string& reason) {
    const auto found = counts.failedByReason.find(reason);
    out.sample({{"reason", reason.empty() ? "none" : reason}},
               found == counts.failedByReason.end() ? 0 : static_cast<std::int64_t>(found->second));
  };
  for (const std::string& reason : Database::failReasonNames()) failed(reason);
  failed("");
  for (const auto& [reason, count] : counts.failedByReason) failed(reason);

  out.family("kioskprint_backend_last_success_timestamp_seconds", "gauge",
             "When the backend last took a request, in seconds since 1970; 0: not since the service started.");
  out.sample({{"request", "poll"}}, secondsSince1970(counts.lastPollSuccess));
  out.sample({{"request", "sync"}}, secondsSince1970(counts.lastSyncSuccess));
  out.family("kioskprint_backend_requests_failed_total", "counter",
             "Requests to the backend and the object store that failed since the service started.");
  out.sample({{"request", "poll"}}, static_cast<std::int64_t>(counts.pollsFailed));
  out.sample({{"request", "sync"}}, static_cast<std::int64_t>(counts.syncsFailed));
  out.sample({{"request", "download"}}, static_cast<std::int64_t>(counts.downloadsFailed));
}

void printer(MetricsText& out, const std::string& name, const PrinterState& state) {
  out.family("kioskprint_printer_ready", "gauge", "1 when the printer is found and nothing stops it printing.");
  out.sample({{"printer", name}}, state.ready() ? 1 : 0);
  // Every word always, so that an alert on one sees it go back to 0.
  out.family("kioskprint_printer_condition", "gauge", "1 while the printer reports the condition.");
  for (const Condition condition : kAllConditions)
    out.sample({{"printer", name}, {"condition", conditionWord(condition)}}, state.has(condition) ? 1 : 0);
  if (!state.media) return;
  const MetricsText::Labels media = {{"printer", name}, {"media", state.media->name}};
  out.family("kioskprint_printer_media_remaining_prints", "gauge",
             "Prints the loaded media has left, as the driver counts them.");
  if (state.media->remainingPrints) out.sample(media, *state.media->remainingPrints);
  out.family("kioskprint_printer_media_level_percent", "gauge", "The loaded media's level, as the driver reports it.");
  if (state.media->levelPercent) out.sample(media, *state.media->levelPercent);
}

}  // namespace

MetricsFile::MetricsFile(std::string path, PrinterWatch& printer, std::string storePath)
    : UpkeepFile(std::move(path), std::chrono::seconds(30), "metrics file", printer, std::move(storePath)) {}

std::string MetricsFile::render(std::time_t now, std::chrono::steady_clock::time_point tick) {
  MetricsText out;
  out.family("kioskprint_build_info", "gauge", "The service's version; always 1.");
  out.sample({{"version", deployment::kVersion}}, 1);
  out.family("kioskprint_start_time_seconds", "gauge", "When the service started, in seconds since 1970.");
  out.sample(Health::instance().startTime());
  out.family("kioskprint_metrics_written_timestamp_seconds", "gauge", "When this file was written, in seconds since 1970.");
  out.sample(now);

  orders(out, store());
  counts(out, Health::instance().counts());
  printer(out, watch().printerName(), watch().state(tick));
  return out.text();
}

}  // namespace kps
