#include "printer/PrintDecisions.h"

#include <chrono>
#include <iostream>
#include <thread>

#ifdef _WIN32
#include <windows.h>
#endif

#include "base/Log.h"
#include "base/Utf8.h"

namespace kps {

const std::wstring kCopyNameMarker = {L'\x0028', L'\x9353', L'\xE21B', L'\x6E70', L'\x0029'};

std::wstring matchPrinter(const std::vector<std::wstring>& names, const std::wstring& target) {
  const std::wstring* remembered = nullptr;
  for (const auto& name : names) {
    if (name.find(target) == std::wstring::npos) continue;
    if (name.find(kCopyNameMarker) == std::wstring::npos) return name;
    if (!remembered) remembered = &name;
  }
  return remembered ? *remembered : std::wstring();
}

std::optional<std::int32_t> paperSizeFor(const std::string& type,
                                         const PrinterSettingsRecord& settings) {
  if (type == "postcards" || type == "frames") return settings.fourSize;
  if (type == "fridgemagnets" || type == "cardsets") return settings.threeSize;
  return std::nullopt;
}

std::optional<PictureSize> pictureSizeFor(const std::string& type,
                                          const PrinterSettingsRecord& settings) {
  std::int32_t width, height;
  if (type == "postcards" || type == "frames" || type == "cardsets") {
    width = settings.fourWidth;
    height = settings.fourHeight;
  } else if (type == "fridgemagnets") {
    width = settings.threeWidth;
    height = settings.threeHeight;
  } else {
    return std::nullopt;
  }
  return PictureSize{static_cast<std::int32_t>(static_cast<double>(width) * 3.7),
                     static_cast<std::int32_t>(static_cast<double>(height) * 3.8)};
}

std::optional<std::int32_t> resultForJobStatus(std::uint32_t status) {
  constexpr std::uint32_t kError = 0x2, kDeleting = 0x4, kOffline = 0x20, kPaperOut = 0x40,
                          kPrinted = 0x80, kDeleted = 0x100, kUserIntervention = 0x400;
  if ((status & kPrinted) || status == 0) return 0;
  if (status & (kDeleted | kDeleting | kError)) return -1;
  if (status & kOffline) return -2;
  if (status & kPaperOut) return -3;
  if (status & kUserIntervention) return -4;
  return std::nullopt;
}

JobWaitTiming& jobWaitTiming() {
  static JobWaitTiming timing;
  return timing;
}

std::int32_t waitForJob(const std::function<JobLook()>& lookOnce, const JobWaitClock& clock,
                        const JobWaitTiming& timing, CopyJob* copy) {
  const bool waiting = copy && copy->waitForPerson;
  const std::uint32_t start = clock.ticks();
  const auto spent = [&] { return waiting ? copy->quietMs : static_cast<std::uint32_t>(clock.ticks() - start); };
  for (;;) {
    if (spent() >= timing.limitMs) break;
    const JobLook look = lookOnce();
    if (look.ended) return *look.ended;
    if (waiting) {
      copy->seen = look.printer;
      copy->fault = look.fault.value_or(0);
      if (look.printer.needsPerson()) return kPrintWaiting;
    }
    if (look.fault) return *look.fault;
    const std::uint32_t before = clock.ticks();
    clock.sleep(timing.pollMs);
    if (waiting) copy->quietMs += static_cast<std::uint32_t>(clock.ticks() - before);
    if (spent() >= timing.limitMs) break;
  }
  logLine(KPS_TAG_PRINTER, __LINE__, "WaitForJobCompletion timed out.");
  return -7;
}

std::int32_t codeWithoutWaiting(const PrinterState& state) {
  // A stopped queue, or one that refuses jobs, is skipped: no printer matches.
  if (state.has(Condition::StoppedByDriver) || state.has(Condition::PausedByOperator) ||
      state.has(Condition::NotAccepting))
    return -1;
  if (state.has(Condition::Offline)) return -2;
  if (state.has(Condition::MediaEmpty)) return -3;
  return -7;
}

std::int32_t cancelIfTimedOut(std::int32_t code, const std::string& printer, std::int32_t jobId,
                              const std::function<std::string()>& cancel) {
  if (code != -7 || (!PrinterSettings.cancelTimedOutJobs && PrinterSettings.waitForPrinterMinutes <= 0)) return code;
  const std::string job = "job " + std::to_string(jobId) + " on printer " + printer;
  logLine(KPS_TAG_PRINTER, __LINE__, "Cancelling the timed-out ", job);
  const std::string failure = cancel();
  if (!failure.empty())
    logLine(KPS_TAG_PRINTER, __LINE__, "Could not cancel the timed-out ",
            job + " (" + failure + "); it may still print");
  return code;
}

JobWaitClock systemJobWaitClock() {
#ifdef _WIN32
  return JobWaitClock{[] { return static_cast<std::uint32_t>(GetTickCount()); },
                      [](std::uint32_t ms) { Sleep(ms); }};
#else
  return JobWaitClock{
      [] {
        using namespace std::chrono;
        return static_cast<std::uint32_t>(
            duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
      },
      [](std::uint32_t ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }};
#endif
}

// UTF-8 on every platform: a wide stream loses every later line once it meets a character
// outside the console's code page (Windows), or its first use fixes its orientation (glibc).
void wideOut(const std::wstring& line) { std::cout << wideToUtf8(line) << std::endl; }
void wideErr(const std::wstring& line) { std::cerr << wideToUtf8(line) << std::endl; }

}  // namespace kps
