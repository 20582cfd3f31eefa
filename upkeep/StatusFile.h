// [StatusFile]: a heartbeat a monitoring tool can read. Once a minute, and after every print run,
// the file is replaced in one step with one JSON object: the time, the version, the last poll
// and the last sync, the printer the configured name selects with its condition and media (as
// last read, at most once a minute), the pending orders, today's printed and failed ones and the
// last failure. Written on the sync loop's thread through its
// own read-only connection: it never waits for the intake or a print run.
#pragma once

#include <chrono>
#include <ctime>
#include <string>

#include "upkeep/UpkeepFile.h"

namespace kps {

class StatusFile : public UpkeepFile {
 public:
  // Once a minute and after every print run; `printer` is the sync loop's watch.
  StatusFile(std::string path, PrinterWatch& printer, std::string storePath = "PrintData.db");
  std::string render(std::time_t now, std::chrono::steady_clock::time_point tick = std::chrono::steady_clock::now()) override;
};

}  // namespace kps
