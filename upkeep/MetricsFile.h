// [MetricsFile]: the kiosk's health in Prometheus text for a collector's textfile folder
// (node_exporter, windows_exporter). Every 30 s, and after every print run, the file is replaced
// in one step. The names are the ones fleets build dashboards and alerts on: the README lists
// them, and a change to one is a change for every fleet. Written on the sync loop's thread
// through its own read-only connection: it never waits for the intake or a print run.
#pragma once

#include <chrono>
#include <ctime>
#include <string>

#include "upkeep/UpkeepFile.h"

namespace kps {

class MetricsFile : public UpkeepFile {
 public:
  // Once every 30 s and after every print run; `printer` is the sync loop's watch.
  MetricsFile(std::string path, PrinterWatch& printer, std::string storePath = "PrintData.db");
  std::string render(std::time_t now, std::chrono::steady_clock::time_point tick = std::chrono::steady_clock::now()) override;
};

}  // namespace kps
