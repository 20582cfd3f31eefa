// The media a Windows printer has left, through the spooler's bidirectional schema
// (\Printer.Consumables), where its driver offers it.
#pragma once

#include <optional>
#include <string>

#include "printer/PrinterCondition.h"

namespace kps {

// The first consumable that reports a level: its name and level in percent. None where the
// driver has no bidirectional support or says nothing of its consumables.
std::optional<MediaReport> readConsumables(const std::wstring& printerName);

}  // namespace kps
