// [StatusFile]: a heartbeat a monitoring tool can read. Once a minute, and after every print run,
// the file is replaced in one step with one JSON object: the time, the version, the last poll
// and the last sync, the printer the configured name selects with its condition and media (as
// last read, at most once a minute), the pending orders, today's printed and failed ones and the
// last failure. Written on the sync loop's thread through its
// own read-only connection: it never waits for the intake or a print run.
#pragma once

#include <chrono>
#include <ctime>
#include <memory>
#include <string>

#include "store/StoreReader.h"
#include "upkeep/ScheduledFile.h"

namespace kps {

class PrinterWatch;

class StatusFile {
 public:
  // `printer`: the printer as the service last read it, shared with the other upkeep.
  StatusFile(std::string path, PrinterWatch& printer, std::string storePath = "PrintData.db");

  // Writes when a minute (of the steady clock) has passed since the last write, or a print run
  // has ended since; see ScheduledFile.
  void writeIfDue(std::time_t now, std::chrono::steady_clock::time_point tick = std::chrono::steady_clock::now());
  // The object as it stands now (`tick`: now on the steady clock, for the printer's minute).
  std::string render(std::time_t now, std::chrono::steady_clock::time_point tick = std::chrono::steady_clock::now());

 private:
  ScheduledFile file_;
  PrinterWatch& printer_;
  std::string storePath_;
  std::unique_ptr<StoreReader> store_;  // kept open: its page cache stays warm between writes
};

}  // namespace kps
