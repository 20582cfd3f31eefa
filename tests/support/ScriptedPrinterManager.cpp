#include "tests/support/ScriptedPrinterManager.h"

#include "printer/PrinterManager.h"

namespace kps {

PrintImageScript scriptedPrintImage;

std::int32_t PrinterManager::PrintImage(const std::wstring& printerName, const std::wstring& path,
                                        const std::string& type) {
  return scriptedPrintImage(printerName, path, type);
}

}  // namespace kps
