// Kept apart from the other neutral members: a static library pulls this object in only where
// FindPrinter is used, so a build without a spooler layer need not define EnumeratePrinters.
#include "printer/PrintDecisions.h"
#include "printer/PrinterManager.h"

namespace kps {

std::wstring PrinterManager::FindPrinter(const std::wstring& target) {
  return matchPrinter(EnumeratePrinters(), target);
}

}  // namespace kps
