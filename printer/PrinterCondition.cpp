#include "printer/PrinterCondition.h"

#include <algorithm>

namespace kps {

namespace {

struct Words {
  Condition condition;
  const char* word;
  const char* phrase;
};
constexpr Words kWords[] = {
    {Condition::MediaEmpty, "media-empty", "out of paper"},
    {Condition::MediaJam, "media-jam", "paper jam"},
    {Condition::MarkerSupplyEmpty, "marker-supply-empty", "out of ribbon or ink"},
    {Condition::DoorOpen, "door-open", "a cover or door is open"},
    {Condition::Offline, "offline", "offline"},
    {Condition::StoppedByDriver, "stopped", "stopped by its driver"},
    {Condition::PausedByOperator, "paused", "paused by an operator"},
    {Condition::NotAccepting, "not-accepting", "not accepting jobs"},
    {Condition::OtherError, "other-error", "an error"},
    {Condition::MediaLow, "media-low", "media low"},
};

const Words& wordsOf(Condition condition) {
  return *std::find_if(std::begin(kWords), std::end(kWords), [&](const Words& w) { return w.condition == condition; });
}

void add(std::vector<ConditionSeen>& seen, Condition condition, Severity severity) {
  for (ConditionSeen& already : seen)
    if (already.condition == condition) {
      already.severity = std::max(already.severity, severity);
      return;
    }
  seen.push_back({condition, severity});
}

bool stopsPrinting(const ConditionSeen& seen) {
  if (seen.condition == Condition::MediaLow) return false;
  return seen.condition == Condition::Offline || seen.severity == Severity::Error;
}

// IPP's printer-state-reasons keywords, by their stem.
struct Reason {
  const char* stem;
  Condition condition;
};
constexpr Reason kReasons[] = {
    {"media-empty", Condition::MediaEmpty},          {"media-needed", Condition::MediaEmpty},
    {"media-jam", Condition::MediaJam},              {"marker-supply-empty", Condition::MarkerSupplyEmpty},
    {"toner-empty", Condition::MarkerSupplyEmpty},   {"door-open", Condition::DoorOpen},
    {"cover-open", Condition::DoorOpen},             {"interlock-open", Condition::DoorOpen},
    {"offline", Condition::Offline},                 {"media-low", Condition::MediaLow},
    {"marker-supply-low", Condition::MediaLow},      {"toner-low", Condition::MediaLow},
};

bool endsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

const char* conditionWord(Condition condition) { return wordsOf(condition).word; }
const char* conditionPhrase(Condition condition) { return wordsOf(condition).phrase; }

bool PrinterState::has(Condition condition) const {
  return std::any_of(conditions.begin(), conditions.end(), [&](const ConditionSeen& c) { return c.condition == condition; });
}

bool PrinterState::needsPerson() const { return std::any_of(conditions.begin(), conditions.end(), stopsPrinting); }

bool PrinterState::blocksNewJob() const {
  return std::any_of(conditions.begin(), conditions.end(), [&](const ConditionSeen& seen) {
    const bool queueState = seen.condition == Condition::StoppedByDriver ||
                            seen.condition == Condition::PausedByOperator || seen.condition == Condition::NotAccepting;
    return stopsPrinting(seen) && (current || queueState);
  });
}

std::string PrinterState::needsPersonText() const {
  std::string text;
  for (const ConditionSeen& seen : conditions)
    if (stopsPrinting(seen))
      text += (text.empty() ? "" : ", ") + std::string(conditionPhrase(seen.condition)) + " (" +
              conditionWord(seen.condition) + ")";
  return text;
}

std::vector<ConditionSeen> conditionsFromIpp(int printerState, const std::vector<std::string>& reasons, bool accepting) {
  std::vector<ConditionSeen> seen;
  for (const std::string& reason : reasons) {
    std::string stem = reason;
    Severity severity = Severity::Error;  // IPP: a reason without a suffix is an error
    bool suffixed = true;
    if (endsWith(reason, "-error")) stem.resize(reason.size() - 6);
    else if (endsWith(reason, "-warning")) stem.resize(reason.size() - 8), severity = Severity::Warning;
    else if (endsWith(reason, "-report")) stem.resize(reason.size() - 7), severity = Severity::Report;
    else suffixed = false;
    const Reason* known = std::find_if(std::begin(kReasons), std::end(kReasons), [&](const Reason& r) { return stem == r.stem; });
    if (known != std::end(kReasons)) add(seen, known->condition, severity);
    // A fault of the printer's own that has no word here; the scheduler's own reasons without a
    // suffix ("paused", "connecting-to-device", "cups-waiting-...") are states, not faults.
    else if (suffixed && severity == Severity::Error) add(seen, Condition::OtherError, severity);
  }
  const bool stopped = printerState == 5;
  if (stopped || std::find(reasons.begin(), reasons.end(), "paused") != reasons.end()) {
    const bool fault = std::any_of(seen.begin(), seen.end(), stopsPrinting);
    add(seen, fault ? Condition::StoppedByDriver : Condition::PausedByOperator, Severity::Error);
  }
  if (!accepting) add(seen, Condition::NotAccepting, Severity::Error);
  return seen;
}

void addHeldJob(std::vector<ConditionSeen>& conditions) {
  const bool fault = std::any_of(conditions.begin(), conditions.end(), stopsPrinting);
  add(conditions, fault ? Condition::StoppedByDriver : Condition::PausedByOperator, Severity::Error);
}

std::vector<ConditionSeen> conditionsFromSpooler(std::uint32_t printerStatus, std::uint32_t attributes,
                                                 std::uint32_t jobStatus, bool despooling) {
  // PRINTER_STATUS_*, PRINTER_ATTRIBUTE_WORK_OFFLINE and JOB_STATUS_* of winspool.h.
  constexpr std::uint32_t kPaused = 0x1, kError = 0x2, kPendingDeletion = 0x4, kPaperJam = 0x8, kPaperOut = 0x10,
                          kPaperProblem = 0x40, kOffline = 0x80, kOutputBinFull = 0x800, kNotAvailable = 0x1000,
                          kTonerLow = 0x20000, kNoToner = 0x40000, kUserIntervention = 0x100000,
                          kDoorOpen = 0x400000;
  constexpr std::uint32_t kWorkOffline = 0x400;
  constexpr std::uint32_t kJobPaused = 0x1, kJobError = 0x2, kJobOffline = 0x20, kJobPaperOut = 0x40,
                          kJobBlocked = 0x200, kJobUserIntervention = 0x400;
  std::vector<ConditionSeen> seen;
  if (despooling) {
    const std::pair<std::uint32_t, Condition> device[] = {
        {kPaperOut, Condition::MediaEmpty},      {kPaperJam, Condition::MediaJam},
        {kNoToner, Condition::MarkerSupplyEmpty}, {kDoorOpen, Condition::DoorOpen},
        {kOffline, Condition::Offline},          {kNotAvailable, Condition::Offline},
        {kError, Condition::OtherError},         {kPaperProblem, Condition::OtherError},
        {kOutputBinFull, Condition::OtherError}, {kUserIntervention, Condition::OtherError}};
    for (const auto& [bit, condition] : device)
      if (printerStatus & bit) add(seen, condition, Severity::Error);
    if (printerStatus & kTonerLow) add(seen, Condition::MediaLow, Severity::Warning);
  }
  const std::pair<std::uint32_t, Condition> job[] = {
      {kJobPaperOut, Condition::MediaEmpty}, {kJobOffline, Condition::Offline}, {kJobError, Condition::OtherError},
      {kJobUserIntervention, Condition::OtherError}, {kJobBlocked, Condition::OtherError},
      {kJobPaused, Condition::PausedByOperator}};
  for (const auto& [bit, condition] : job)
    if (jobStatus & bit) add(seen, condition, Severity::Error);
  // What a person set, and so never stale.
  if (printerStatus & kPaused) add(seen, Condition::PausedByOperator, Severity::Error);
  if (attributes & kWorkOffline) add(seen, Condition::Offline, Severity::Error);
  if (printerStatus & kPendingDeletion) add(seen, Condition::NotAccepting, Severity::Error);
  return seen;
}

}  // namespace kps
