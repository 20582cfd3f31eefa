// Whether the printer can print now, in one small vocabulary for both spoolers: what a CUPS
// scheduler says in printer-state-reasons and what the Windows spooler says in its status bits
// become the same words, and one rule decides from them whether the printer needs a person.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kps {

enum class Condition {
  MediaEmpty,         // out of paper
  MediaJam,
  MarkerSupplyEmpty,  // out of ribbon or ink
  DoorOpen,           // a cover or a door
  Offline,            // switched off, unplugged, or set to work offline
  StoppedByDriver,    // the driver stopped its queue or held its job after a fault
  PausedByOperator,   // a queue or a job paused by hand
  NotAccepting,       // the queue refuses jobs
  OtherError,
  MediaLow,           // a warning: it still prints
};
inline constexpr Condition kAllConditions[] = {
    Condition::MediaEmpty,      Condition::MediaJam,         Condition::MarkerSupplyEmpty, Condition::DoorOpen,
    Condition::Offline,         Condition::StoppedByDriver,  Condition::PausedByOperator,  Condition::NotAccepting,
    Condition::OtherError,      Condition::MediaLow};

// "media-empty": the word monitoring tools and the status file use.
const char* conditionWord(Condition condition);
// "out of paper": the words a log line or --check says it in.
const char* conditionPhrase(Condition condition);

enum class Severity { Report, Warning, Error };

struct ConditionSeen {
  Condition condition;
  Severity severity;
  bool operator==(const ConditionSeen& other) const {
    return condition == other.condition && severity == other.severity;
  }
};

// The media a printer has loaded, as its driver reports it.
struct MediaReport {
  std::string name;                             // the driver's name for it ("4x6"); "" when it gives none
  std::optional<std::int32_t> remainingPrints;  // none: unknown
  std::optional<std::int32_t> levelPercent;     // none: unknown
  bool low = false;                             // the driver's own low mark, where it only knows percent
};

// What one look at a printer (and, during a copy, at its job) found.
struct PrinterState {
  bool known = false;  // the spooler answered and has the printer
  std::string name;    // the installed printer's full name
  std::vector<ConditionSeen> conditions;
  std::string message;  // the spooler's own words, where it has any
  // The printer's own faults are its state now: a job despools, and the spooler hears from the
  // printer. Otherwise they may be what the last job left (a CUPS queue keeps its driver's last
  // words until the next job).
  bool current = true;
  std::optional<MediaReport> media;  // none: the driver says nothing of its media

  bool has(Condition condition) const;
  // Some condition stops printing until someone comes: any error but a low supply, and a printer
  // that is offline however it is reported.
  bool needsPerson() const;
  // The conditions that stop printing, in their phrases and words: "out of paper (media-empty)".
  std::string needsPersonText() const;
  // A new job would only wait: a queue a person or a driver stopped, or one that refuses jobs,
  // always; a fault of the printer's own only while it is current.
  bool blocksNewJob() const;
  // Known, and nothing stops printing.
  bool ready() const { return known && !needsPerson(); }
};

// CUPS: the printer's state (3 idle, 4 processing, 5 stopped), printer-state-reasons and
// printer-is-accepting-jobs. A reason without a suffix is an error, as IPP says; a stopped queue
// is its driver's when an error stands beside its "paused", an operator's when "paused" stands alone.
std::vector<ConditionSeen> conditionsFromIpp(int printerState, const std::vector<std::string>& reasons, bool accepting);

// CUPS: a job the scheduler holds (pending-held): the driver's when the printer reports a fault,
// otherwise someone's at the PC.
void addHeldJob(std::vector<ConditionSeen>& conditions);

// Windows: PRINTER_INFO_2's Status and Attributes, and a job's JOB_INFO_1 Status (0 outside a
// copy). The spooler updates a printer's device bits (paper, jam, door, toner, offline, error)
// only while a job despools: without a job in its queue they may be stale and are not read.
std::vector<ConditionSeen> conditionsFromSpooler(std::uint32_t printerStatus, std::uint32_t attributes,
                                                 std::uint32_t jobStatus, bool despooling);

}  // namespace kps
