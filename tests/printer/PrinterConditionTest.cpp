// The printer's condition in one vocabulary: what each spooler reports, and whether it needs a
// person. Also built into the Windows tests, where the spooler's bits are the platform's own.
#include "printer/PrinterCondition.h"
#include "printer/MediaReport.h"

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
  // Before a copy: a queue's stop always blocks a new job; a printer's own fault only while it
  // is current: an idle queue's fault is what its last job's driver said.
  const std::tuple<int, std::vector<std::string>, bool> before[] = {
      {3, {"media-empty-error"}, false}, {4, {"media-empty-error"}, true}, {5, {"paused"}, true}, {3, {"none"}, false}};
  for (const auto& [printerState, reasons, blocks] : before) {
    PrinterState state;
    state.conditions = conditionsFromIpp(printerState, reasons, true);
    state.current = printerState != 3;
    EXPECT_EQ(state.blocksNewJob(), blocks) << printerState << " " << reasons.front();
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

// The media as drivers report it: the prints left and the media's name from a dye-sub driver's
// message, a level in percent of its high level (a count where that is past 100, or the level
// alone is), -1/-2/-3 unknown, the driver's low mark in the level's own units.
TEST(PrinterCondition, MediaFromTheMarkers) {
  struct Row {
    std::vector<std::string> names;
    std::vector<int> levels, low, high;
    const char* message;
    const char* expected;  // "name|prints|percent|low", '-' for unknown; "none" for no media
  };
  const Row rows[] = {
      {{"Ribbon"}, {9}, {}, {}, "37 native prints remaining on 4x6 media", "4x6|37|9|0"},
      {{"Ribbon"}, {9}, {10}, {}, "", "Ribbon|-|9|1"},
      {{"Ribbon"}, {11}, {10}, {100}, "", "Ribbon|-|11|0"},
      {{"Ribbon"}, {-1}, {}, {}, "", "Ribbon|-|-|0"},
      {{"Ribbon"}, {-2}, {}, {}, "", "Ribbon|-|-|0"},
      {{"Ribbon"}, {-3}, {10}, {}, "", "Ribbon|-|-|0"},
      {{"Media"}, {650}, {}, {}, "", "Media|650|-|0"},
      // A count with the full count as its high level: 37 of 400 prints, low at 40 prints.
      {{"Ribbon"}, {37}, {40}, {400}, "", "Ribbon|37|9|1"},
      {{"Ribbon"}, {41}, {40}, {400}, "", "Ribbon|41|10|0"},
      {{"Ribbon"}, {-2}, {40}, {400}, "", "Ribbon|-|-|0"},
      {{}, {}, {}, {}, "1 print remaining", "|1|-|0"},
      {{"Ribbon"}, {0}, {}, {}, "0 native prints remaining on 5x7 media", "5x7|0|0|0"},
      {{"Ink"}, {40}, {}, {}, "Ink low", "Ink|-|40|0"},
      {{}, {}, {}, {}, "", "none"},
  };
  for (const Row& row : rows) {
    const auto media = mediaFromMarkers(row.names, row.levels, row.low, row.high, row.message);
    const auto text = [](const std::optional<std::int32_t>& n) { return n ? std::to_string(*n) : std::string("-"); };
    const std::string seen = media ? media->name + "|" + text(media->remainingPrints) + "|" + text(media->levelPercent) + "|" +
                                         (media->low ? "1" : "0")
                                   : "none";
    EXPECT_EQ(seen, row.expected) << row.message;
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
