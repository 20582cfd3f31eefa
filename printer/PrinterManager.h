// The one printing interface of the service. Platform-neutral decisions live in
// printer/PrintDecisions.h; each platform folder (printer/win32, printer/cups) implements the
// spooler operations declared here.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "printer/PrintDecisions.h"
#include "printer/PrinterSettings.h"

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

// An installed printer and whether it takes jobs now.
struct InstalledPrinter {
  std::wstring name;
  bool ready = true;
  std::string state;  // why it is not ready: "works offline", "is paused", "is stopped", ...
};

// The paper sizes and paper sources a printer's driver offers, named as PaperName and
// SourceName name the configured numbers. `known` is false when the driver cannot be asked.
struct DriverOffer {
  bool known = false;
  std::vector<std::string> papers;
  std::vector<std::string> sources;
};

struct PrinterConfigValues;
// The printer configuration as the print worker publishes it.
PrinterSettingsRecord printerSettingsFrom(const PrinterConfigValues& config);

class PrinterManager {
 public:
  // Loads config.ini, publishes PrinterSettings and prints the four configuration lines.
  void LoadPrinterSettings();

  std::vector<std::wstring> EnumeratePrinters();
  std::wstring FindPrinter(const std::wstring& target);
  bool SelectPrinter(const std::wstring& target, std::wstring& fullName);
  void ListInstalledPrinters();
  // Every installed printer the spooler lists, ready or not. Empty with `failed` set when the
  // spooler cannot be asked.
  std::vector<InstalledPrinter> InstalledPrinters(bool& failed);
  DriverOffer OfferedMedia(const std::wstring& printerName);
  // A configured paper or bin number as this platform names it (Windows: the number itself;
  // CUPS: its PWG name); empty when the platform has no name for it.
  std::optional<std::string> PaperName(std::int32_t paper);
  std::optional<std::string> SourceName(std::int32_t bin);

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
