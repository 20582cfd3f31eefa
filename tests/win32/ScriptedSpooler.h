// The Windows printing layer's calls scripted for a test: the table's entries replaced for one
// test and put back after it, calls made to fail by name, and the spooler's answers to job
// queries and controls noted or made up (Wine hands a job to CUPS at EndDoc and then no longer
// knows it). Shared by the Windows tests.
#pragma once

#include <windows.h>
#include <winspool.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "base/Utf8.h"
#include "printer/PrintDecisions.h"
#include "printer/PrinterManager.h"
#include "printer/PrinterSettings.h"
#include "printer/win32/Win32Api.h"

namespace kps {

inline std::wstring env(const char* name) {
  const char* value = std::getenv(name);
  return value ? utf8ToWide(value) : std::wstring();
}

// The settings of every Windows test: sizes Wine's driver holds.
class Win32Fixture : public ::testing::Test {
 protected:
  void SetUp() override {
    PrinterSettings = PrinterSettingsRecord{};
    PrinterSettings.fourWidth = 100, PrinterSettings.fourHeight = 150, PrinterSettings.rearfeeder = 7;  // DMBIN_AUTO
    PrinterSettings.threeWidth = 80, PrinterSettings.threeHeight = 80;
    PrinterSettings.fourSize = 1, PrinterSettings.threeSize = 9;  // letter (it holds a 3.7 x 5.7 in picture), A4
    jobWaitTiming() = JobWaitTiming{1000, 1000, 10000};
  }
  PrinterManager manager;
};

// Calls of the table replaced for one test; the system's are put back after it.
class ReplacedCalls {
 public:
  ReplacedCalls() : saved_(win32Api()) {}
  ~ReplacedCalls() { win32Api() = saved_; }

 private:
  Win32Api saved_;
};

inline const Win32Api kSystem;         // the system's own functions
inline std::vector<std::string> released;  // what a copy gave back, in order
inline std::string failing;                // the call made to fail
inline LONG devModeSize = 0;               // the driver's answer to the size question; 1: its own
inline int startedJob = 0;                 // the job id StartDocW gave
inline std::wstring documentName;          // the name StartDocW gave it

// The calls of a copy that fail when `failing` names them; the rest are the system's.
inline void failWhenNamed(Win32Api& api) {
  api.GdipLoadImageFromStream = [](IStream* stream, Gdiplus::GpImage** image) {
    return failing == "load" ? Gdiplus::InvalidParameter : kSystem.GdipLoadImageFromStream(stream, image);
  };
  api.GdipGetImageWidth = [](Gdiplus::GpImage* image, UINT* width) {
    if (failing == "size") return Gdiplus::GenericError;
    const Gdiplus::GpStatus status = kSystem.GdipGetImageWidth(image, width);
    if (failing == "wider") ++*width;  // GDI+ reads a column more than the header said
    return status;
  };
  api.GdipDrawImageRectI = [](Gdiplus::GpGraphics* g, Gdiplus::GpImage* i, INT x, INT y, INT w, INT h) {
    return failing == "draw" ? Gdiplus::GenericError : kSystem.GdipDrawImageRectI(g, i, x, y, w, h);
  };
  api.OpenPrinterW = [](LPWSTR name, LPHANDLE printer, LPPRINTER_DEFAULTSW defaults) {
    const bool forJob = defaults && defaults->DesiredAccess == PRINTER_ACCESS_USE;
    return failing == "open" && forJob ? FALSE : kSystem.OpenPrinterW(name, printer, defaults);
  };
  api.CreateDCW = [](LPCWSTR driver, LPCWSTR device, LPCWSTR port, const DEVMODEW* mode) {
    return failing == "dc" ? nullptr : kSystem.CreateDCW(driver, device, port, mode);
  };
  api.StartDocW = [](HDC dc, const DOCINFOW* document) {
    documentName = document->lpszDocName ? document->lpszDocName : L"";
    return startedJob = failing == "document" ? 0 : kSystem.StartDocW(dc, document);
  };
}

// Each printer record with attributes and status bits added, as a test sets them.
inline DWORD addedAttributes = 0, addedStatus = 0;
inline bool enumerationFails = false;
inline BOOL WINAPI scriptedEnumPrintersW(DWORD flags, LPWSTR name, DWORD level, LPBYTE buffer, DWORD size,
                                         LPDWORD needed, LPDWORD returned) {
  if (enumerationFails && buffer) return SetLastError(ERROR_ACCESS_DENIED), FALSE;
  const BOOL ok = kSystem.EnumPrintersW(flags, name, level, buffer, size, needed, returned);
  for (DWORD i = 0; ok && buffer && level == 2 && i < *returned; ++i) {
    reinterpret_cast<PRINTER_INFO_2W*>(buffer)[i].Attributes |= addedAttributes;
    reinterpret_cast<PRINTER_INFO_2W*>(buffer)[i].Status |= addedStatus;
  }
  return ok;
}

// The answers to a job's queries, one per query, the last repeated; what SetJobW is asked is
// noted, not passed on, and fails with setJobError where a test sets one.
struct JobAnswer {
  DWORD status;  // the job's status word, or
  DWORD error;   // the error its query fails with
};
inline std::vector<JobAnswer> answers;
inline std::size_t asked = 0;
inline std::vector<std::pair<DWORD, DWORD>> jobControls;  // job id, command
inline DWORD setJobError = 0;
inline int endedDocuments = 0;
inline void scriptJobs(Win32Api& api) {
  api.GetJobA = [](HANDLE, DWORD, DWORD, LPBYTE buffer, DWORD, LPDWORD needed) -> BOOL {
    const JobAnswer answer = answers[std::min(buffer ? asked - 1 : asked++, answers.size() - 1)];
    if (answer.error) return SetLastError(answer.error), FALSE;
    *needed = sizeof(JOB_INFO_1A);
    if (!buffer) return SetLastError(ERROR_INSUFFICIENT_BUFFER), FALSE;
    *reinterpret_cast<JOB_INFO_1A*>(buffer) = JOB_INFO_1A{};
    reinterpret_cast<JOB_INFO_1A*>(buffer)->Status = answer.status;
    return TRUE;
  };
  api.SetJobW = [](HANDLE, DWORD job, DWORD, LPBYTE, DWORD command) -> BOOL {
    jobControls.emplace_back(job, command);
    return setJobError ? (SetLastError(setJobError), FALSE) : TRUE;
  };
  api.EndDoc = [](HDC dc) { return ++endedDocuments, kSystem.EndDoc(dc); };
}

}  // namespace kps
