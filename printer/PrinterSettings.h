// The process-wide copy of the printer configuration. Written once by the print worker's
// start (PrinterManager::LoadPrinterSettings), which then publishes it; the print worker reads
// it without locks afterwards, the other loops take their copy through the publication.
#pragma once

#include <cstdint>
#include <string>

namespace kps {

struct PrinterSettingsRecord {
  std::int32_t fourWidth = 0;
  std::int32_t fourHeight = 0;
  std::int32_t threeWidth = 0;
  std::int32_t threeHeight = 0;
  std::int32_t rearfeeder = 0;
  std::int32_t paperffder1 = 0;
  std::int32_t unused = 0;
  std::int32_t fourSize = 0;
  std::int32_t threeSize = 0;
  std::string printerName;
  std::string screenId;
  std::int32_t environment = 0;
  bool cancelTimedOutJobs = false;  // [TimedOutJobs] value=cancel
  std::int32_t waitForPrinterMinutes = 0;  // [WaitForPrinter] minutes=N; 0: never wait
};

// Defined with the other process-wide objects, first among them.
extern PrinterSettingsRecord PrinterSettings;

// The hand-over to the other threads. The entry point's start-up pauses still let the print
// worker publish first; this makes what the readers see defined whatever the timing.
void publishPrinterSettings();
// A copy of what was published, once it is (waiting until then).
PrinterSettingsRecord publishedPrinterSettings();

}  // namespace kps
