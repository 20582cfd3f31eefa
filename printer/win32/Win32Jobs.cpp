// PrinterManager on Windows, a copy's job and its printer's condition: the job followed until it
// ends, found again by its id or its name after a restart, cancelled; the printer's status read.
#include <iostream>
#include <memory>
#include <optional>

#include "base/Log.h"
#include "printer/PrinterManager.h"
#include "printer/win32/Win32Consumables.h"
#include "printer/win32/Win32Handles.h"

namespace kps {

namespace {

// The printer's Status and Attributes, and whether a job is in its queue; empty when not read.
struct PrinterStatus {
  DWORD status = 0, attributes = 0, jobs = 0;
};
std::optional<PrinterStatus> printerStatus(HANDLE printer) {
  DWORD needed = 0;
  api().GetPrinterA(printer, 2, nullptr, 0, &needed);
  if (needed == 0) return std::nullopt;
  std::vector<BYTE> buffer(needed);
  if (!api().GetPrinterA(printer, 2, buffer.data(), needed, &needed)) return std::nullopt;
  const auto* info = reinterpret_cast<const PRINTER_INFO_2A*>(buffer.data());
  return PrinterStatus{info->Status, info->Attributes, info->cJobs};
}

// A job of the printer's queue by its document name: its id, 0 when none.
DWORD jobNamed(HANDLE printer, const std::wstring& name) {
  DWORD needed = 0, count = 0;
  api().EnumJobsW(printer, 0, 0xFFFF, 1, nullptr, 0, &needed, &count);
  if (needed == 0) return 0;
  std::vector<BYTE> buffer(needed);
  if (!api().EnumJobsW(printer, 0, 0xFFFF, 1, buffer.data(), needed, &needed, &count)) return 0;
  const auto* jobs = reinterpret_cast<const JOB_INFO_1W*>(buffer.data());
  for (DWORD i = 0; i < count; ++i)
    if (jobs[i].pDocument && name == jobs[i].pDocument) return jobs[i].JobId;
  return 0;
}

}  // namespace

std::int32_t PrinterManager::WaitForJobCompletion(PrinterHandle printer, std::int32_t jobId, CopyJob* copy) {
  const bool readPrinter = copy && copy->waitForPerson;
  return waitForJob(
      [&]() -> JobLook {
        DWORD needed = 0;
        if (!api().GetJobA(printer, jobId, 1, nullptr, 0, &needed)) {
          const DWORD error = GetLastError();
          if (error != ERROR_INSUFFICIENT_BUFFER) {
            if (error == ERROR_INVALID_PARAMETER || error == ERROR_INVALID_HANDLE) {
              logLine(KPS_TAG_PRINTER, __LINE__, "GetJob failed: job might have been deleted or finished. Error code:",
                      static_cast<std::uint32_t>(error));
              return JobLook{kPrintOk, std::nullopt, {}};
            }
            std::cerr << "GetJob failed. Error code: " << error << std::endl;
            return JobLook{kPrintNotPrinter, std::nullopt, {}};
          }
        }
        std::unique_ptr<BYTE[]> buffer(new (std::nothrow) BYTE[needed ? needed : 1]);
        if (!buffer) {
          std::cerr << "Memory allocation failed" << std::endl;
          return JobLook{kPrintNotPrinter, std::nullopt, {}};
        }
        if (!api().GetJobA(printer, jobId, 1, buffer.get(), needed, &needed)) {
          const DWORD error = GetLastError();
          std::cerr << "GetJob failed (2). Error code: " << error << std::endl;
          return JobLook{(error == ERROR_INVALID_PARAMETER || error == ERROR_INVALID_HANDLE) ? kPrintOk : kPrintNotPrinter,
                         std::nullopt, {}};
        }
        const DWORD status = reinterpret_cast<const JOB_INFO_1A*>(buffer.get())->Status;
        JobLook look;
        if ((status & JOB_STATUS_PRINTED) || status == 0) look.ended = kPrintOk;
        else if (status & (JOB_STATUS_DELETED | JOB_STATUS_DELETING)) look.ended = kPrintNotPrinter;
        else look.fault = resultForJobStatus(status);
        // A copy that waits for a person reads what stops its job; the spooler updates the
        // printer's status while a job despools, as this one does.
        if (readPrinter) {
          const auto state = printerStatus(printer);
          look.printer.known = state.has_value();
          look.printer.conditions = conditionsFromSpooler(state ? state->status : 0, state ? state->attributes : 0, status, true);
        }
        return look;
      },
      systemJobWaitClock(), jobWaitTiming(), copy);
}

std::int32_t PrinterManager::FollowJob(const std::wstring& printerName, CopyJob& copy) {
  std::wstring fullName;
  const Printer printer = openMatchingPrinter(printerName, fullName);
  const std::wstring name = utf8ToWide(copy.name);
  DWORD found = 0;
  if (printer && copy.jobId > 0) {
    DWORD needed = 0;
    api().GetJobW(printer.get(), copy.jobId, 1, nullptr, 0, &needed);
    std::vector<BYTE> buffer(needed ? needed : 1);
    if (needed && api().GetJobW(printer.get(), copy.jobId, 1, buffer.data(), needed, &needed)) {
      const auto* job = reinterpret_cast<const JOB_INFO_1W*>(buffer.data());
      if (job->pDocument && name == job->pDocument) found = job->JobId;
    }
  }
  if (printer && !found) found = jobNamed(printer.get(), name);
  if (!found) {
    if (copy.jobId <= 0) return kPrintNoJob;
    // The spooler keeps a job across a power cut and forgets it once printed: a job it no longer
    // has most likely came out.
    logLine(KPS_TAG_PRINTER, __LINE__, "job no longer known to the spooler, counted printed: ", copy.name);
    return kPrintOk;
  }
  if (copy.jobId <= 0) {
    // Made, but its id was never recorded: the service stopped before it ended the document.
    api().SetJobW(printer.get(), found, 0, nullptr, JOB_CONTROL_DELETE);
    return kPrintNoJob;
  }
  copy.jobId = static_cast<std::int32_t>(found);
  return cancelIfTimedOut(WaitForJobCompletion(printer.get(), copy.jobId, &copy), wideToUtf8(fullName), copy.jobId,
                          [&]() -> std::string {
                            if (api().SetJobW(printer.get(), found, 0, nullptr, JOB_CONTROL_DELETE)) return "";
                            return "SetJob error " + std::to_string(GetLastError());
                          });
}

std::string PrinterManager::CancelJob(const std::wstring& printerName, std::int32_t jobId) {
  std::wstring fullName;
  const Printer printer = openMatchingPrinter(printerName, fullName);
  if (!printer) return "no such printer";
  if (api().SetJobW(printer.get(), static_cast<DWORD>(jobId), 0, nullptr, JOB_CONTROL_DELETE)) return "";
  return "SetJob error " + std::to_string(GetLastError());
}

// Windows drivers neither stop their printer nor hold a job: what is paused there, a person paused.
bool PrinterManager::ResumePrinter(const std::wstring&) { return false; }
bool PrinterManager::ReleaseJob(const std::wstring&, std::int32_t) { return false; }

PrinterState PrinterManager::ReadPrinterState(const std::wstring& printerName) {
  PrinterState state;
  DWORD count = 0;
  bool failed = false;
  const std::vector<BYTE> buffer = printerRecords(count, failed);
  if (const PRINTER_INFO_2W* record = matchingRecord(buffer, count, printerName)) {
    state.known = true;
    state.name = wideToUtf8(record->pPrinterName);
    state.conditions = conditionsFromSpooler(record->Status, record->Attributes, 0, record->cJobs > 0);
    state.media = readConsumables(record->pPrinterName);
  }
  return state;
}

}  // namespace kps
