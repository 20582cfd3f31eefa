// [MetricsFile]: the kiosk's health in Prometheus text for a collector's textfile folder
// (node_exporter, windows_exporter). Every 30 s, and after every print run, the file is replaced
// in one step. The names are the ones fleets build dashboards and alerts on: the README lists
// them, and a change to one is a change for every fleet. Written on the sync loop's thread
// through its own read-only connection: it never waits for the intake or a print run.
#pragma once

#include <chrono>
#include <ctime>
#include <memory>
#include <string>

#include "store/StoreReader.h"
#include "upkeep/PrinterWatch.h"
#include "upkeep/ScheduledFile.h"

namespace kps {

class MetricsFile {
 public:
  // `printer` is the sync loop's watch, read at most once a minute whoever asks.
  MetricsFile(std::string path, PrinterWatch& printer, std::string storePath = "PrintData.db");

  // Writes when 30 s (of the steady clock) have passed since the last write, or a print run has
  // ended since; see ScheduledFile.
  void writeIfDue(std::time_t now, std::chrono::steady_clock::time_point tick = std::chrono::steady_clock::now());
  // The text as it stands now.
  std::string render(std::time_t now, std::chrono::steady_clock::time_point tick = std::chrono::steady_clock::now());

 private:
  ScheduledFile file_;
  PrinterWatch& printer_;
  std::string storePath_;
  std::unique_ptr<StoreReader> store_;  // kept open: its page cache stays warm between writes
};

}  // namespace kps
