// The platform-neutral members that drive the platform's own: a static library pulls this
// object in only where they are used, so a build without a spooler layer need not define
// EnumeratePrinters and the rest.
#include <iostream>

#include "base/Log.h"
#include "printer/PrintDecisions.h"
#include "printer/PrinterManager.h"
#include "printer/PrinterSettings.h"

namespace kps {

std::wstring PrinterManager::FindPrinter(const std::wstring& target) {
  return matchPrinter(EnumeratePrinters(), target);
}

std::optional<PictureSize> PrinterManager::prepareCopy(const std::wstring& printerName,
                                                       const std::string& type,
                                                       std::wstring& fullName) {
  const auto size = pictureSizeFor(type, PrinterSettings);
  if (!size) {
    std::cerr << "printer type error" << std::endl;
    return std::nullopt;
  }
  // A picture drawn no pixel wide or high would come out as a blank sheet reported printed.
  if (size->width <= 0 || size->height <= 0) {
    logLine(KPS_TAG_PRINTER, __LINE__, "picture size draws nothing, no copy is made: ",
            type + " " + std::to_string(size->width) + " x " + std::to_string(size->height) + " hundredths of an inch");
    return std::nullopt;
  }
  if (!SelectPrinter(printerName, fullName)) return std::nullopt;
  if (SetPrintParams(fullName, type) != 0) {
    logLine(KPS_TAG_PRINTER, __LINE__, "SetPrintParams failed");
    return std::nullopt;
  }
  return size;
}

}  // namespace kps
