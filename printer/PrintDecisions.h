// The printing decisions that do not depend on the spooler: which installed printer to use,
// which paper and picture size a product type gets, and what a job's state means.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/Utf8.h"
#include "pictures/PictureSize.h"
#include "printer/CopyJob.h"
#include "printer/PrinterCondition.h"
#include "printer/PrinterSettings.h"

namespace kps {

// "(copy)" written in UTF-8 and read back as GB18030: the name Windows gives a duplicated
// printer on the kiosks' systems. Compared as these five code units, never as the word.
extern const std::wstring kCopyNameMarker;

// First name containing target that is not a copy; else the first copy that matches; else "".
std::wstring matchPrinter(const std::vector<std::wstring>& names, const std::wstring& target);

// Driver paper number for a product type: the Four size for postcards and frames, the Three
// size for fridge magnets and card sets. Empty for any other type (case-sensitive).
std::optional<std::int32_t> paperSizeFor(const std::string& type,
                                         const PrinterSettingsRecord& settings);

// The drawn rectangle: Four pair for postcards, frames and card sets, Three pair for fridge
// magnets; width x 3.7 and height x 3.8, truncated toward zero.
std::optional<PictureSize> pictureSizeFor(const std::string& type,
                                          const PrinterSettingsRecord& settings);

// Windows JOB_INFO_1 Status word to a result code; empty means the job is still under way.
std::optional<std::int32_t> resultForJobStatus(std::uint32_t status);

// The job wait's timing: a pause after submitting, then a query every pollMs for limitMs.
// Fixed in the service; tests shorten it so that no case waits a real minute.
struct JobWaitTiming {
  std::uint32_t settleMs = 1000;
  std::uint32_t pollMs = 1000;
  std::uint32_t limitMs = 60000;
};
JobWaitTiming& jobWaitTiming();

// One look at a job and its printer.
struct JobLook {
  std::optional<std::int32_t> ended;  // the job's own end: 0 printed (or forgotten), -1 failed
  std::optional<std::int32_t> fault;  // the code the printer's state gives while the job waits
  PrinterState printer;               // what stops it, where a copy waits for a person
};

// The completion wait shared by both platforms: look, pause a second, until the job ends, the
// printer's state gives a code, or limitMs have passed on the tick clock (-7). Ticks are
// unsigned 32-bit, so a wrap-around of the clock does not end the wait early. A copy that waits
// for a person ([WaitForPrinter]) gets kPrintWaiting instead of a fault, and its limit counts
// only the time the printer reported nothing wrong, across looks.
struct JobWaitClock {
  std::function<std::uint32_t()> ticks;
  std::function<void(std::uint32_t ms)> sleep;
};
std::int32_t waitForJob(const std::function<JobLook()>& lookOnce, const JobWaitClock& clock,
                        const JobWaitTiming& timing, CopyJob* copy = nullptr);

// The code a copy fails with when its printer has needed a person for too long before it made a
// job: what the copy would have met without waiting.
std::int32_t codeWithoutWaiting(const PrinterState& state);

// The real clock: a monotonic millisecond tick and a sleeping pause.
JobWaitClock systemJobWaitClock();

// [TimedOutJobs] cancel, and [WaitForPrinter] (nothing of a failed copy comes out later): a
// copy that timed out after its job was submitted has that job cancelled before the code goes
// back, so that a time-out never prints later. `cancel` asks the spooler and gives "" when it
// did, else why not. The code itself is never changed.
std::int32_t cancelIfTimedOut(std::int32_t code, const std::string& printer, std::int32_t jobId,
                              const std::function<std::string()>& cancel);

// The printer diagnostics' wide lines, written as UTF-8 to standard output or error.
void wideOut(const std::wstring& line);
void wideErr(const std::wstring& line);

}  // namespace kps
