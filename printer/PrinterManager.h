// The one printing interface of the service. Platform-neutral decisions live in
// printer/PrintDecisions.h; each platform folder (printer/win32, printer/cups) implements the
// spooler operations declared here.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "printer/PrintDecisions.h"
#include "printer/CopyJob.h"
#include "printer/PrinterCondition.h"
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

// How a printer's driver takes a configured paper size, paper source or media type number:
// what it uses for it, or what it offers instead.
struct DriverChoice {
  bool known = false;      // the driver could be asked
  bool hasChoice = true;   // false: the driver has no such setting, and nothing is sent for it
  bool named = true;       // false: the number has no name on this platform (the README's table)
  bool offered = false;
  bool required = false;   // a copy fails when it is not offered, rather than printing anyway
  std::string configured;  // the number as the platform names it: "256 (na_index-4x6_4x6in)"
  std::string uses;        // the driver's own paper for it, where that has another name
  bool cutOrComposite = false;  // `uses` is a sheet the driver cuts or a page made of two: no
                                // plain paper of the driver holds the size
  std::vector<std::string> offers;
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
  DriverChoice PaperChoice(const std::wstring& printerName, std::int32_t paper);
  DriverChoice SourceChoice(const std::wstring& printerName, std::int32_t bin);
  DriverChoice MediaTypeChoice(const std::wstring& printerName, std::int32_t mediaType);

  std::int32_t SetPrintParams(const std::wstring& printerName, const std::string& type);
  // `copy`, where the print run gives one, names the job, is told its id and says how to wait.
  std::int32_t PrintImage(const std::wstring& printerName, const std::wstring& path,
                          const std::string& type, CopyJob* copy = nullptr);
  std::int32_t WaitForJobCompletion(PrinterHandle printer, std::int32_t jobId, CopyJob* copy = nullptr);

  // The printer the configured name selects by the service's rule, among all installed ones
  // (a stopped queue too), as the spooler reports it now.
  PrinterState ReadPrinterState(const std::wstring& printerName);
  // A copy's job made before (by its id, else by its name), followed as PrintImage follows a new
  // one. kPrintNoJob when the spooler never had it; a job it had and forgot counts as printed.
  std::int32_t FollowJob(const std::wstring& printerName, CopyJob& copy);
  // "" when done, else why not.
  std::string CancelJob(const std::wstring& printerName, std::int32_t jobId);
  // A queue its driver stopped, and a job its driver held, given back to the driver: it looks
  // at the printer again. False where the spooler has no such thing or refused.
  bool ResumePrinter(const std::wstring& printerName);
  bool ReleaseJob(const std::wstring& printerName, std::int32_t jobId);

 private:
  // What every copy does before its job, on any spooler: the picture size by product type,
  // the printer made the default, its parameters applied. Empty when one of them fails.
  std::optional<PictureSize> prepareCopy(const std::wstring& printerName, const std::string& type,
                                         std::wstring& fullName);
};

}  // namespace kps
