// The metrics file on a real store, with the printer as a scripted read gives it: when it is
// written, and what each series says.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>
#include <tuple>

#include "base/Health.h"
#include "Deployment.h"
#include "store/Database.h"
#include "tests/support/Kiosk.h"
#include "tests/support/PrometheusText.h"
#include "upkeep/MetricsFile.h"

namespace kps {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

PrinterState printerWith(std::vector<ConditionSeen> conditions, std::optional<MediaReport> media = std::nullopt) {
  PrinterState state;
  state.known = true;
  state.conditions = std::move(conditions);
  state.media = std::move(media);
  return state;
}

// Every 30 s of the steady clock and after every print run; a failed replacement (here a folder
// in the file's place, as a reader holding it is on Windows) is tried once more at the next turn.
TEST(MetricsFileWrites, ThirtySecondsAfterEveryRunAndOnceMoreAfterAFailure) {
  Kiosk kiosk;
  PrinterWatch printer("no such printer", 0, [](const std::wstring&) { return PrinterState{}; });
  const std::string path = kiosk.dir.file("kiosk.prom");
  MetricsFile metrics(path, printer, kiosk.dir.file("PrintData.db"));
  const auto start = std::chrono::steady_clock::now();
  const std::tuple<std::chrono::seconds, bool, bool, bool> steps[] = {
      // steady time, a print run ended before, the path taken, written
      {0s, false, false, true},   {10s, false, false, false}, {20s, true, false, true},  {40s, false, false, false},
      {50s, false, false, true},  {52s, true, true, false},   {54s, false, false, true}, {84s, false, true, false},
      {86s, false, true, false},  {88s, false, false, false}, {114s, false, false, false}, {116s, false, false, true},
  };
  for (const auto& [steady, runEnded, taken, written] : steps) {
    fs::remove_all(path);
    if (taken) kiosk.dir.write("kiosk.prom/held", "");
    if (runEnded) ++Health::instance().runsEnded;
    metrics.writeIfDue(std::time(nullptr), start + steady);
    EXPECT_EQ(fs::is_regular_file(path), written) << steady.count() << " s";
    EXPECT_FALSE(fs::exists(path + ".tmp")) << steady.count() << " s";
  }
}

TEST(MetricsFileSays, ThePrinterAsItWasLastRead) {
  struct Case {
    const char* name;
    std::string printerName;
    PrinterState state;
    std::int32_t mediaLowPrints;
    std::string label;                          // the printer label as written
    std::map<std::string, double> samples;      // beside the conditions
    std::vector<std::string> conditions;        // the words at 1, the others at 0
    std::vector<const char*> absent;            // families left out
  };
  const char* const remaining = "kioskprint_printer_media_remaining_prints";
  const char* const level = "kioskprint_printer_media_level_percent";
  const Case cases[] = {
      {"not found", "EPSON", PrinterState{}, 0, "EPSON", {{"kioskprint_printer_ready{printer=\"EPSON\"}", 0}}, {},
       {remaining, level}},
      {"ready, its media counted", "DS620", printerWith({}, MediaReport{"4x6", 120, 80, false}), 0, "DS620",
       {{"kioskprint_printer_ready{printer=\"DS620\"}", 1},
        {"kioskprint_printer_media_remaining_prints{media=\"4x6\",printer=\"DS620\"}", 120},
        {"kioskprint_printer_media_level_percent{media=\"4x6\",printer=\"DS620\"}", 80}},
       {}, {}},
      {"out of paper, stopped by its driver", "DS620",
       printerWith({{Condition::MediaEmpty, Severity::Error}, {Condition::StoppedByDriver, Severity::Error}},
                   MediaReport{"4x6", 0, std::nullopt, false}),
       0, "DS620",
       {{"kioskprint_printer_ready{printer=\"DS620\"}", 0},
        {"kioskprint_printer_media_remaining_prints{media=\"4x6\",printer=\"DS620\"}", 0}},
       {"media-empty", "stopped"}, {level}},
      // Low by [MediaLow]: a warning, the printer still ready; a media the driver does not name.
      {"low by the setting, unnamed media", "DS620", printerWith({}, MediaReport{"", 30, std::nullopt, false}), 50, "DS620",
       {{"kioskprint_printer_ready{printer=\"DS620\"}", 1},
        {"kioskprint_printer_media_remaining_prints{media=\"\",printer=\"DS620\"}", 30}},
       {"media-low"}, {level}},
      {"a level only", "DS620", printerWith({}, MediaReport{"ribbon", std::nullopt, 5, true}), 0, "DS620",
       {{"kioskprint_printer_media_level_percent{media=\"ribbon\",printer=\"DS620\"}", 5}}, {"media-low"}, {remaining}},
      // A name of config.ini in the kiosk's code page, with what the format escapes.
      {"a name to escape", "Photo \"A\"\\B\nC\xB4\xF2", printerWith({{Condition::Offline, Severity::Report}}), 0,
       "Photo \\\"A\\\"\\\\B\\nC\xEF\xBF\xBD\xEF\xBF\xBD",
       {{"kioskprint_printer_ready{printer=\"Photo \\\"A\\\"\\\\B\\nC\xEF\xBF\xBD\xEF\xBF\xBD\"}", 0}}, {"offline"},
       {remaining, level}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Kiosk kiosk;
    PrinterWatch printer(c.printerName, c.mediaLowPrints, [&](const std::wstring&) { return c.state; });
    MetricsFile metrics(kiosk.dir.file("kiosk.prom"), printer, kiosk.dir.file("PrintData.db"));
    const std::string text = metrics.render(std::time(nullptr));
    const auto samples = prometheusSamples(text);
    for (const auto& [series, value] : c.samples) {
      ASSERT_EQ(samples.count(series), 1u) << series << "\n" << text;
      EXPECT_EQ(samples.at(series), value) << series;
    }
    for (const Condition condition : kAllConditions) {
      const std::string word = conditionWord(condition);
      const std::string series = "kioskprint_printer_condition{condition=\"" + word + "\",printer=\"" + c.label + "\"}";
      const bool on = std::find(c.conditions.begin(), c.conditions.end(), word) != c.conditions.end();
      ASSERT_EQ(samples.count(series), 1u) << series << "\n" << text;
      EXPECT_EQ(samples.at(series), on ? 1 : 0) << series;
    }
    const auto conditions = std::count_if(samples.begin(), samples.end(), [](const auto& sample) {
      return sample.first.rfind("kioskprint_printer_condition{", 0) == 0;
    });
    for (const char* family : c.absent) EXPECT_EQ(text.find(family), std::string::npos) << family;
    EXPECT_EQ(conditions, static_cast<std::ptrdiff_t>(std::size(kAllConditions)));
  }
}

// The store's pending orders; the counts the loops made since the start, each series once, and
// the file's form: no carriage return, a final line feed, HELP and TYPE before each family.
TEST(MetricsFileSays, TheOrdersAndWhatTheLoopsCounted) {
  Kiosk kiosk;
  kiosk.order("T-old", 0, -1, -1);
  kiosk.order("T-new", 0, -1, -1);
  kiosk.order("T-done", 2, 60, 30);
  kiosk.age("p/T-old.jpg", 20min);
  PrinterWatch printer("EPSON", 0, [](const std::wstring&) { return PrinterState{}; });
  MetricsFile metrics(kiosk.dir.file("kiosk.prom"), printer, kiosk.dir.file("PrintData.db"));

  Health& health = Health::instance();
  const HealthCounts before = health.counts();
  health.noteOrderEnded(OrderEnd::Printed);
  health.noteOrderEnded(OrderEnd::Partial);
  health.noteOrderEnded(OrderEnd::Failed, "IPP_TIME_OUT");
  health.noteOrderEnded(OrderEnd::Failed, "IPP_TIME_OUT");
  health.noteOrderEnded(OrderEnd::Failed, "");
  health.notePoll("HTTP 200", true);
  health.notePoll("transfer error", false);
  health.noteSync(1, "not reached the backend", false);
  health.noteDownloadFailed();
  const HealthCounts after = health.counts();
  const std::time_t now = std::time(nullptr);
  const std::string text = metrics.render(now);
  const auto samples = prometheusSamples(text);

  const auto failedBefore = [&](const std::string& reason) {
    const auto found = before.failedByReason.find(reason);
    return found == before.failedByReason.end() ? 0.0 : static_cast<double>(found->second);
  };
  const std::map<std::string, double> expected = {
      {"kioskprint_build_info{version=\"" + std::string(deployment::kVersion) + "\"}", 1},
      {"kioskprint_start_time_seconds", static_cast<double>(health.startTime())},
      {"kioskprint_metrics_written_timestamp_seconds", static_cast<double>(now)},
      {"kioskprint_orders_pending", 2},
      {"kioskprint_orders_finished_total{status=\"printed\"}", before.printed + 1.0},
      {"kioskprint_orders_finished_total{status=\"partial\"}", before.partial + 1.0},
      {"kioskprint_orders_finished_total{status=\"failed\"}", before.failed + 3.0},
      {"kioskprint_orders_failed_total{reason=\"IPP_TIME_OUT\"}", failedBefore("IPP_TIME_OUT") + 2},
      {"kioskprint_orders_failed_total{reason=\"none\"}", failedBefore("") + 1},
      {"kioskprint_orders_failed_total{reason=\"IPP_JOB_HELD_PIC_PATH_NOT_EXIST\"}", failedBefore(Database::kPictureMissing)},
      {"kioskprint_backend_last_success_timestamp_seconds{request=\"poll\"}",
       static_cast<double>(std::chrono::system_clock::to_time_t(after.lastPollSuccess))},
      {"kioskprint_backend_last_success_timestamp_seconds{request=\"sync\"}",
       static_cast<double>(std::chrono::duration_cast<std::chrono::seconds>(after.lastSyncSuccess.time_since_epoch()).count())},
      {"kioskprint_backend_requests_failed_total{request=\"poll\"}", before.pollsFailed + 1.0},
      {"kioskprint_backend_requests_failed_total{request=\"sync\"}", before.syncsFailed + 1.0},
      {"kioskprint_backend_requests_failed_total{request=\"download\"}", before.downloadsFailed + 1.0},
  };
  for (const auto& [series, value] : expected) {
    ASSERT_EQ(samples.count(series), 1u) << series << "\n" << text;
    EXPECT_EQ(samples.at(series), value) << series;
  }
  const double age = samples.at("kioskprint_order_oldest_pending_age_seconds");
  EXPECT_GE(age, 1200);
  EXPECT_LT(age, 1260);
  // Every failReason an order can end with is there from the start, at 0 until it counts.
  for (const std::string& reason : Database::failReasonNames())
    EXPECT_EQ(samples.count("kioskprint_orders_failed_total{reason=\"" + reason + "\"}"), 1u) << reason;

  // Each sample line once (the reading would fold a second), each family's comments once, first.
  std::size_t lines = 0, helps = 0;
  std::string family;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("# HELP ", 0) == 0) {
      ++helps;
      family = line.substr(7, line.find(' ', 7) - 7);
      continue;
    }
    if (line.rfind("# TYPE " + family + " ", 0) == 0) continue;
    ++lines;
    EXPECT_EQ(line.rfind(family, 0), 0u) << line;
  }
  EXPECT_EQ(lines, samples.size());
  EXPECT_EQ(helps, 11u);  // the README table's 13 families but the media ones, absent here
  EXPECT_EQ(text.find('\r'), std::string::npos);
  ASSERT_FALSE(text.empty());
  EXPECT_EQ(text.back(), '\n');

  // A store that cannot be read gives no pending series rather than a false 0.
  MetricsFile unread(kiosk.dir.file("kiosk.prom"), printer, kiosk.dir.file("no/such/store.db"));
  const std::string without = unread.render(now);
  EXPECT_EQ(without.find("kioskprint_orders_pending"), std::string::npos);
  EXPECT_EQ(without.find("kioskprint_order_oldest_pending_age_seconds"), std::string::npos);
  EXPECT_NE(without.find("kioskprint_orders_finished_total"), std::string::npos);
}

}  // namespace
}  // namespace kps
