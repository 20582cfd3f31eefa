// Owners of what the Windows printing layer takes, each released through the table of calls on
// every path, and the spooler's list of printers, shared by the layer's files.
#pragma once

#include <memory>
#include <type_traits>
#include <vector>

#include "printer/win32/Win32Api.h"

namespace kps {

inline Win32Api& api() { return win32Api(); }

struct GlobalFreer {
  void operator()(void* memory) const { GlobalFree(memory); }
};
template <typename T>
using GlobalMemory = std::unique_ptr<T, GlobalFreer>;
struct PrinterCloser {
  void operator()(HANDLE printer) const { api().ClosePrinter(printer); }
};
using Printer = std::unique_ptr<void, PrinterCloser>;
struct DcDeleter {
  void operator()(HDC dc) const { api().DeleteDC(dc); }
};
using DeviceContext = std::unique_ptr<std::remove_pointer_t<HDC>, DcDeleter>;
struct ImageDisposer {
  void operator()(Gdiplus::GpImage* image) const { api().GdipDisposeImage(image); }
};
struct GraphicsDeleter {
  void operator()(Gdiplus::GpGraphics* graphics) const { api().GdipDeleteGraphics(graphics); }
};

constexpr DWORD kEnumFlags = PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS;  // 6

// Every printer's level-2 record, or nothing with `failed` set.
std::vector<BYTE> printerRecords(DWORD& count, bool& failed);

// The record of the printer the configured name selects by the service's rule among every
// installed one (working offline or paused too), in the records of printerRecords; null when none.
const PRINTER_INFO_2W* matchingRecord(const std::vector<BYTE>& records, DWORD count, const std::wstring& target);

// That printer opened for use; null when there is none.
Printer openMatchingPrinter(const std::wstring& target, std::wstring& fullName);

}  // namespace kps
