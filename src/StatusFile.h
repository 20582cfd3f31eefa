// [StatusFile]: a heartbeat a monitoring tool can read. Once a minute, and after every print run,
// the file is replaced in one step with one JSON object: the time, the version, the last poll
// and the last sync, the printer the configured name selects now, the pending orders, today's
// printed and failed ones and the last failure. Written on the sync loop's thread through its
// own read-only connection: it never waits for the intake or a print run.
#pragma once

#include <ctime>
#include <memory>
#include <string>

#include "src/StoreReader.h"

namespace kps {

class StatusFile {
 public:
  explicit StatusFile(std::string path, std::string storePath = "PrintData.db");

  // Writes when a minute has passed since the last write, or a print run has ended since.
  void writeIfDue(std::time_t now);
  // The object as it stands now.
  std::string render(std::time_t now);

 private:
  std::string path_;
  std::string storePath_;
  std::unique_ptr<StoreReader> store_;  // kept open: its page cache stays warm between writes
  std::time_t lastWrite_ = 0;
  std::time_t lastFailureLine_ = 0;  // a failure to write is said at most once an hour
};

}  // namespace kps
