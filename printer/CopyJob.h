// One copy of an order as the print run makes and follows it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "printer/PrinterCondition.h"

namespace kps {

// Not results: a copy's job waits at the spooler for a person ([WaitForPrinter]); a job looked
// for that the spooler never had.
inline constexpr std::int32_t kPrintWaiting = 1;
inline constexpr std::int32_t kPrintNoJob = 2;

// The job is named after the order and the copy, and the store learns the job's id before the
// page is sent, so that a job is found again after a restart. What a look at the job saw is kept
// for the next look and for the run.
struct CopyJob {
  std::string name = "Print Image";
  std::int32_t jobId = 0;  // 0: none known
  std::function<void(std::int32_t jobId)> made;  // the spooler gave the job this id
  bool waitForPerson = false;  // [WaitForPrinter]: a printer needing a person ends the look with kPrintWaiting
  std::uint32_t quietMs = 0;   // how long the job was followed while the printer reported nothing wrong
  PrinterState seen;           // the last look's printer, with the job's own condition
  std::int32_t fault = 0;      // the code that look gives without waiting (0: none)
};

// "Print Image T-1 2/3": the job of the second of three copies of the order of task T-1. Kept
// within the 255 bytes a job name may have: a long task id is cut at a character.
std::string copyJobName(const std::string& uuid, std::int32_t copy, std::int32_t copies);
// What every copy's name starts with ("Print Image T-1").
std::string copyJobPrefix(const std::string& uuid, std::int32_t copies);

}  // namespace kps
