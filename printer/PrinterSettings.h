// The process-wide copy of the printer configuration. Written once by the print worker's
// start (PrinterManager::LoadPrinterSettings) and read afterwards without locks: the start-up
// pauses of the entry point order that write before the other loops read it.
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
};

// Defined with the other process-wide objects, first among them.
extern PrinterSettingsRecord PrinterSettings;

}  // namespace kps
