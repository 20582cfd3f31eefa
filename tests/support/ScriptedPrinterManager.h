// A PrinterManager linked in place of a spooler layer: PrintImage answers what the test says.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace kps {

using PrintImageScript =
    std::function<std::int32_t(const std::wstring& printer, const std::wstring& path,
                               const std::string& type)>;
// Called for every copy; must be set by the test.
extern PrintImageScript scriptedPrintImage;

}  // namespace kps
