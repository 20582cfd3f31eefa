// The one printing interface of the service. Platform-neutral decisions live in
// printer/PrintDecisions.h; each platform folder (printer/win32, printer/cups) implements the
// spooler operations declared here.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "printer/PrintDecisions.h"

namespace kps {

#ifdef _WIN32
using PrinterHandle = void*;        // the spooler handle from OpenPrinterW
#else
using PrinterHandle = const char*;  // the CUPS destination name
#endif

// Result codes of one copy: 0 printed, negative a failure (the print run names -7..-1).
enum PrintResult : std::int32_t {
  kPrintOk = 0,
  kPrintNotPrinter = -1,   // bad type, no printer, parameters not applied, job failed
  kPrintOffline = -2,
  kPrintPaperOut = -3,
  kPrintUserIntervention = -4,
  kPrintGraphicsStart = -5,
  kPrintPictureLoad = -6,
  kPrintTimeOut = -7,      // printer not opened, or the job did not finish within 60 s
  kPrintDeviceContext = -8,
  kPrintDocumentStart = -9,
  kPrintDrawing = -10,
};

class PrinterManager {
 public:
  // Loads config.ini, publishes PrinterSettings and prints the four configuration lines.
  void LoadPrinterSettings();

  std::vector<std::wstring> EnumeratePrinters();
  std::wstring FindPrinter(const std::wstring& target);
  bool SelectPrinter(const std::wstring& target, std::wstring& fullName);
  void ListInstalledPrinters();

  std::int32_t SetPrintParams(const std::wstring& printerName, const std::string& type);
  std::int32_t PrintImage(const std::wstring& printerName, const std::wstring& path,
                          const std::string& type);
  std::int32_t WaitForJobCompletion(PrinterHandle printer, std::int32_t jobId);

 private:
  // What every copy does before its job, on any spooler: the picture size by product type,
  // the printer made the default, its parameters applied. Empty when one of them fails.
  std::optional<PictureSize> prepareCopy(const std::wstring& printerName, const std::string& type,
                                         std::wstring& fullName);
};

}  // namespace kps
