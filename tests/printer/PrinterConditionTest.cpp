// The printer's condition in one vocabulary: what each spooler reports, and whether it needs a
// person. Also built into the Windows tests, where the spooler's bits are the platform's own.
#include "printer/PrinterCondition.h"

#include <gtest/gtest.h>

#include <iterator>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace kps {
namespace {

// "media-empty!" for an error, "media-low?" for a warning, "offline." for a report.
std::string words(const std::vector<ConditionSeen>& conditions) {
  std::string text;
  for (const ConditionSeen& seen : conditions)
    text += (text.empty() ? "" : " ") + std::string(conditionWord(seen.condition)) +
            (seen.severity == Severity::Error ? "!" : seen.severity == Severity::Warning ? "?" : ".");
  return text;
}

bool needsPerson(const std::vector<ConditionSeen>& conditions) {
  PrinterState state;
  state.conditions = conditions;
  return state.needsPerson();
}

// CUPS: printer-state (3 idle, 4 processing, 5 stopped), printer-state-reasons, accepting.
TEST(PrinterCondition, FromTheSchedulersReasons) {
  const std::tuple<int, std::vector<std::string>, bool, const char*, bool> rows[] = {
      {3, {"none"}, true, "", false},
      // A dye-sub driver out of paper keeps its job processing, or stops its queue.
      {4, {"media-empty-error"}, true, "media-empty!", true},
      {5, {"media-empty-error", "paused"}, true, "media-empty! stopped!", true},
      {5, {"paused"}, true, "paused!", true},  // cupsdisable: an operator's pause
      {5, {}, true, "paused!", true},
      {3, {"none"}, false, "not-accepting!", true},  // cupsreject
      // ippeveprinter's reasons carry no suffix: errors, as IPP has it.
      {4, {"media-empty", "media-needed"}, true, "media-empty!", true},
      {4, {"media-jam-error", "door-open-error", "cover-open-warning"}, true, "media-jam! door-open!", true},
      {4, {"marker-supply-empty-error", "toner-empty-warning"}, true, "marker-supply-empty!", true},
      // A printer that does not answer is offline whatever the severity a backend gives it.
      {4, {"offline-report"}, true, "offline.", true},
      {4, {"media-low-report", "marker-supply-low-warning"}, true, "media-low?", false},
      {4, {"cups-insecure-filter-warning", "connecting-to-device", "cups-waiting-for-job-completed"}, true, "", false},
      {4, {"spool-area-full-error", "fuser-over-temp-error"}, true, "other-error!", true},
      {5, {"other-error", "paused"}, true, "other-error! stopped!", true},
      {5, {"offline-report", "paused"}, false, "offline. stopped! not-accepting!", true},
  };
  for (const auto& [state, reasons, accepting, expected, needs] : rows) {
    const auto seen = conditionsFromIpp(state, reasons, accepting);
    std::string all;
    for (const auto& r : reasons) all += r + " ";
    EXPECT_EQ(words(seen), expected) << state << " " << all;
    EXPECT_EQ(needsPerson(seen), needs) << state << " " << all;
  }
  // A held job: its driver's, beside a fault; someone's at the PC otherwise.
  auto held = conditionsFromIpp(4, {"media-empty-error"}, true);
  addHeldJob(held);
  EXPECT_EQ(words(held), "media-empty! stopped!");
  held = conditionsFromIpp(3, {"none"}, true);
  addHeldJob(held);
  EXPECT_EQ(words(held), "paused!");
}

// Windows: PRINTER_INFO_2 Status and Attributes, a job's Status, and whether a job despools.
TEST(PrinterCondition, FromTheSpoolersBits) {
  constexpr std::uint32_t kPaused = 0x1, kError = 0x2, kPaperJam = 0x8, kPaperOut = 0x10, kOffline = 0x80,
                          kTonerLow = 0x20000, kNoToner = 0x40000, kDoorOpen = 0x400000, kWorkOffline = 0x400;
  constexpr std::uint32_t kJobPaused = 0x1, kJobError = 0x2, kJobPrinting = 0x10, kJobOffline = 0x20,
                          kJobPaperOut = 0x40, kJobBlocked = 0x200, kJobUserIntervention = 0x400;
  const std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, bool, const char*, bool> rows[] = {
      {0, 0, 0, false, "", false},
      // Without a job the device bits may be stale: the spooler updates them while one despools.
      {kPaperOut | kDoorOpen, 0, 0, false, "", false},
      {kPaperOut, 0, kJobPrinting, true, "media-empty!", true},
      {kPaperJam | kDoorOpen | kNoToner, 0, 0, true, "media-jam! marker-supply-empty! door-open!", true},
      {kOffline | kError, 0, 0, true, "offline! other-error!", true},
      {kTonerLow, 0, kJobPrinting, true, "media-low?", false},
      // The job's own bits.
      {0, 0, kJobPrinting | kJobPaperOut, true, "media-empty!", true},
      {0, 0, kJobOffline, true, "offline!", true},
      {0, 0, kJobError | kJobUserIntervention | kJobBlocked, true, "other-error!", true},
      {0, 0, kJobPaused, true, "paused!", true},
      // What a person set is never stale.
      {kPaused, 0, 0, false, "paused!", true},
      {0, kWorkOffline, 0, false, "offline!", true},
  };
  for (const auto& [status, attributes, job, despooling, expected, needs] : rows) {
    const auto seen = conditionsFromSpooler(status, attributes, job, despooling);
    EXPECT_EQ(words(seen), expected) << std::hex << status << " " << attributes << " " << job << " " << despooling;
    EXPECT_EQ(needsPerson(seen), needs) << std::hex << status << " " << attributes << " " << job;
  }
}

// The words are label values of monitoring series: none twice.
TEST(PrinterCondition, EveryWordOnceAndWhatStopsPrintingSaid) {
  std::set<std::string> words, phrases;
  for (const Condition condition : kAllConditions) words.insert(conditionWord(condition)), phrases.insert(conditionPhrase(condition));
  EXPECT_EQ(words.size(), std::size(kAllConditions));
  EXPECT_EQ(phrases.size(), std::size(kAllConditions));
  PrinterState state;
  state.conditions = {{Condition::MediaEmpty, Severity::Error}, {Condition::MediaLow, Severity::Warning},
                      {Condition::Offline, Severity::Report}};
  EXPECT_EQ(state.needsPersonText(), "out of paper (media-empty), offline (offline)");
}

}  // namespace
}  // namespace kps
