// The printer as the service last read it, for the status file and the metrics file: read again
// at most once a minute (a minute of the steady clock), so that writing them never asks the
// printer more often; one log line when its condition or its media's low state changes.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "printer/PrinterCondition.h"

namespace kps {

class PrinterWatch {
 public:
  using Read = std::function<PrinterState(const std::wstring& printerName)>;
  // `printerName` as config.ini gives it; `mediaLowPrints` from [MediaLow] (0: the driver's own
  // low mark only). `read` asks the spooler; tests put in their own.
  PrinterWatch(std::string printerName, std::int32_t mediaLowPrints, Read read = {});

  // What the last read found, reading again first when a minute has passed since it.
  const PrinterState& state(std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now());
  const std::string& printerName() const { return printerName_; }

 private:
  std::string printerName_;
  std::int32_t mediaLowPrints_;
  Read read_;
  PrinterState state_;
  std::optional<std::chrono::steady_clock::time_point> lastRead_;
  std::string said_;  // what the last line said
};

// Media low: at `lowPrints` prints or fewer where the driver counts prints, else at its own
// low mark; adds the media-low condition (a warning). None left: out of media (media-empty).
void markMediaLow(PrinterState& state, std::int32_t lowPrints);

// The printer's condition and media in one line, for --check and --status alike: "ready, 37
// prints remaining on 4x6 media"; "needs a person: out of paper (media-empty)"; "media low: 12
// prints remaining on 4x6 media"; "not found".
struct PrinterLine {
  enum class Verdict { Ok, Warn, Fail } verdict;
  std::string text;
};
PrinterLine describePrinter(const PrinterState& state);

}  // namespace kps
