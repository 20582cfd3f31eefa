// What the status file and the metrics file share: a file replaced on its schedule (see
// ScheduledFile) with what its render makes of the store, read through a connection of its own
// kept open, and of the printer as the sync loop's watch last read it.
#pragma once

#include <chrono>
#include <ctime>
#include <memory>
#include <string>
#include <utility>

#include "store/StoreReader.h"
#include "upkeep/PrinterWatch.h"
#include "upkeep/ScheduledFile.h"

namespace kps {

class UpkeepFile {
 public:
  // `what` names it in the failure line ("status file").
  UpkeepFile(std::string path, std::chrono::seconds period, std::string what, PrinterWatch& printer,
             std::string storePath)
      : file_(std::move(path), period, std::move(what)), printer_(printer), storePath_(std::move(storePath)) {}
  virtual ~UpkeepFile() = default;
  UpkeepFile(const UpkeepFile&) = delete;
  UpkeepFile& operator=(const UpkeepFile&) = delete;

  // Writes when its period (of the steady clock) has passed since the last write, or a print run
  // has ended since.
  void writeIfDue(std::time_t now, std::chrono::steady_clock::time_point tick = std::chrono::steady_clock::now()) {
    file_.writeIfDue([&] { return render(now, tick); }, tick);
  }
  // The file as it stands now (`tick`: now on the steady clock, for the printer's minute).
  virtual std::string render(std::time_t now, std::chrono::steady_clock::time_point tick = std::chrono::steady_clock::now()) = 0;

 protected:
  // Kept open: its page cache stays warm between writes; opened again after a failure.
  StoreReader& store() {
    if (!store_ || !store_->opened()) store_ = std::make_unique<StoreReader>(storePath_);
    return *store_;
  }
  PrinterWatch& watch() { return printer_; }

 private:
  ScheduledFile file_;
  PrinterWatch& printer_;
  std::string storePath_;
  std::unique_ptr<StoreReader> store_;
};

}  // namespace kps
