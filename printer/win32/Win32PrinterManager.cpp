// PrinterManager on Windows: the spooler (winspool), GDI and the GDI+ flat API.
#include <algorithm>
#include <iostream>
#include <memory>
#include <type_traits>

#include "base/Log.h"
#include "pictures/PictureHeader.h"
#include "printer/PrintDecisions.h"
#include "printer/PrinterManager.h"
#include "printer/PrinterSettings.h"
#include "printer/win32/FileStream.h"
#include "printer/win32/Win32Api.h"
#include "printer/win32/Win32Handles.h"

using namespace Gdiplus;

namespace kps {

Win32Api& win32Api() {
  static Win32Api api;
  return api;
}

namespace {

// GDI+ for one copy. Declared before every GDI+ object of the copy, so that it is shut down
// after all of them, on every path; a copy that printed leaves it started, as the service has
// always done.
class GdiplusSession {
 public:
  GdiplusSession() {
    GdiplusStartupInput input;
    started_ = api().GdiplusStartup(&token_, &input, nullptr) == Ok;
  }
  ~GdiplusSession() {
    if (started_ && !keep_) api().GdiplusShutdown(token_);
  }
  GdiplusSession(const GdiplusSession&) = delete;
  GdiplusSession& operator=(const GdiplusSession&) = delete;
  bool started() const { return started_; }
  void keepStarted() { keep_ = true; }

 private:
  ULONG_PTR token_ = 0;
  bool started_ = false;
  bool keep_ = false;
};

}  // namespace

std::vector<std::wstring> PrinterManager::EnumeratePrinters() {
  std::vector<std::wstring> names;
  DWORD needed = 0, returned = 0;
  api().EnumPrintersA(kEnumFlags, nullptr, 2, nullptr, 0, &needed, &returned);
  if (needed == 0) {
    std::cerr << "No printers found." << std::endl;
    return names;
  }
  // The size learnt from the ANSI call is used as it stands for the wide one.
  std::vector<BYTE> buffer(needed);
  if (!api().EnumPrintersW(kEnumFlags, nullptr, 2, buffer.data(), needed, &needed, &returned)) {
    const DWORD error = GetLastError();
    std::cerr << "Failed to enumerate printers. Error: " << error << std::endl;
    return names;
  }
  const auto* printers = reinterpret_cast<const PRINTER_INFO_2W*>(buffer.data());
  for (DWORD i = 0; i < returned; ++i)
    if (!(printers[i].Attributes & PRINTER_ATTRIBUTE_WORK_OFFLINE))
      names.emplace_back(printers[i].pPrinterName);
  return names;
}

namespace {

std::vector<std::string> capability(const std::wstring& name, const wchar_t* port, WORD which) {
  const int count = api().DeviceCapabilitiesW(name.c_str(), port, which, nullptr, nullptr);
  std::vector<std::string> values;
  if (count <= 0) return values;
  std::vector<WORD> numbers(static_cast<std::size_t>(count));
  const int got = api().DeviceCapabilitiesW(name.c_str(), port, which,
                                            reinterpret_cast<LPWSTR>(numbers.data()), nullptr);
  for (int i = 0; i < got && i < count; ++i) values.push_back(std::to_string(numbers[i]));
  return values;
}

}  // namespace

std::vector<BYTE> printerRecords(DWORD& count, bool& failed) {
  DWORD needed = 0;
  count = 0;
  failed = false;
  api().EnumPrintersW(kEnumFlags, nullptr, 2, nullptr, 0, &needed, &count);
  std::vector<BYTE> buffer(needed);
  if (needed > 0 && !api().EnumPrintersW(kEnumFlags, nullptr, 2, buffer.data(), needed, &needed, &count)) {
    failed = true;
    count = 0;
  }
  return buffer;
}

const PRINTER_INFO_2W* matchingRecord(const std::vector<BYTE>& buffer, DWORD count, const std::wstring& target) {
  const auto* records = reinterpret_cast<const PRINTER_INFO_2W*>(buffer.data());
  std::vector<std::wstring> names;
  for (DWORD i = 0; i < count; ++i) names.emplace_back(records[i].pPrinterName ? records[i].pPrinterName : L"");
  const std::wstring found = matchPrinter(names, target);
  for (DWORD i = 0; i < count && !found.empty(); ++i)
    if (names[i] == found) return &records[i];
  return nullptr;
}

Printer openMatchingPrinter(const std::wstring& target, std::wstring& fullName) {
  DWORD count = 0;
  bool failed = false;
  const std::vector<BYTE> buffer = printerRecords(count, failed);
  const PRINTER_INFO_2W* record = matchingRecord(buffer, count, target);
  fullName = record ? record->pPrinterName : L"";
  HANDLE opened = nullptr;
  PRINTER_DEFAULTSW defaults{nullptr, nullptr, PRINTER_ACCESS_USE};
  if (fullName.empty() || !api().OpenPrinterW(const_cast<LPWSTR>(fullName.c_str()), &opened, &defaults)) return nullptr;
  return Printer(opened);
}

std::vector<InstalledPrinter> PrinterManager::InstalledPrinters(bool& failed) {
  DWORD count = 0;
  const std::vector<BYTE> buffer = printerRecords(count, failed);
  std::vector<InstalledPrinter> printers;
  const auto* records = reinterpret_cast<const PRINTER_INFO_2W*>(buffer.data());
  for (DWORD i = 0; i < count; ++i) {
    InstalledPrinter printer{records[i].pPrinterName ? records[i].pPrinterName : L"", true, ""};
    if (records[i].Attributes & PRINTER_ATTRIBUTE_WORK_OFFLINE) printer.state = "works offline";
    else if (records[i].Status & PRINTER_STATUS_OFFLINE) printer.state = "is offline";
    else if (records[i].Status & PRINTER_STATUS_PAUSED) printer.state = "is paused";
    else if (records[i].Status & PRINTER_STATUS_PENDING_DELETION) printer.state = "is being deleted";
    printer.ready = printer.state.empty();
    printers.push_back(printer);
  }
  return printers;
}

namespace {

// A paper size or a bin as the driver lists them (DC_PAPERS, DC_BINS). The device mode takes
// the configured number into a 16-bit field whatever the driver lists: nothing fails a copy.
DriverChoice capabilityChoice(const std::wstring& printerName, WORD which, std::int32_t number) {
  DriverChoice choice;
  DWORD count = 0;
  bool failed = false;
  const std::vector<BYTE> buffer = printerRecords(count, failed);
  const auto* records = reinterpret_cast<const PRINTER_INFO_2W*>(buffer.data());
  for (DWORD i = 0; i < count; ++i)
    if (records[i].pPrinterName && printerName == records[i].pPrinterName) {
      choice.offers = capability(printerName, records[i].pPortName, which);
      choice.known = !choice.offers.empty() || which != DC_PAPERS;  // a driver lists some paper
    }
  choice.configured = std::to_string(static_cast<WORD>(static_cast<short>(number)));
  choice.offered = std::count(choice.offers.begin(), choice.offers.end(), choice.configured) > 0;
  return choice;
}

}  // namespace

DriverChoice PrinterManager::PaperChoice(const std::wstring& printerName, std::int32_t paper) {
  return capabilityChoice(printerName, DC_PAPERS, paper);
}

DriverChoice PrinterManager::SourceChoice(const std::wstring& printerName, std::int32_t bin) {
  return capabilityChoice(printerName, DC_BINS, bin);
}

// The media type goes into the device mode as it always has; the driver is not asked.
DriverChoice PrinterManager::MediaTypeChoice(const std::wstring&, std::int32_t) { return DriverChoice{}; }

bool PrinterManager::SelectPrinter(const std::wstring& target, std::wstring& fullName) {
  const std::wstring found = FindPrinter(target);
  if (found.empty()) {
    wideErr(L"Target printer not found: " + target);
    return false;
  }
  if (!api().SetDefaultPrinterW(found.c_str())) {
    const DWORD error = GetLastError();
    wideErr(L"Failed to set default printer. Error: " + std::to_wstring(error));
    return false;
  }
  wideOut(L"Default printer set to: " + found);
  fullName = found;
  return true;
}

void PrinterManager::ListInstalledPrinters() {
  DWORD needed = 0, returned = 0;
  api().EnumPrintersA(kEnumFlags, nullptr, 4, nullptr, 0, &needed, &returned);
  std::vector<BYTE> buffer(needed);
  if (!api().EnumPrintersA(kEnumFlags, nullptr, 4, buffer.data(), needed, &needed, &returned)) {
    wideErr(L"Failed to enumerate printers.");
    return;
  }
  std::wstring text = L"Installed printers:";
  const auto* printers = reinterpret_cast<const PRINTER_INFO_4A*>(buffer.data());
  for (DWORD i = 0; i < returned; ++i) {
    // ANSI names are in the system's code page.
    const int size = MultiByteToWideChar(CP_ACP, 0, printers[i].pPrinterName, -1, nullptr, 0);
    std::wstring name(size > 0 ? size - 1 : 0, L'\0');
    if (size > 0) MultiByteToWideChar(CP_ACP, 0, printers[i].pPrinterName, -1, name.data(), size);
    text += L"\n" + name;
  }
  wideOut(text);
}

std::int32_t PrinterManager::SetPrintParams(const std::wstring& printerName,
                                            const std::string& type) {
  const auto paper = paperSizeFor(type, PrinterSettings);
  if (!paper) {
    std::cout << "printer type error" << std::endl;
    return -1;
  }
  PRINTER_DEFAULTSW defaults{nullptr, nullptr, PRINTER_ALL_ACCESS};
  HANDLE handle = nullptr;
  if (!api().OpenPrinterW(const_cast<LPWSTR>(printerName.c_str()), &handle, &defaults)) {
    std::cerr << "Unable to open printer: " << std::endl;
    return 1;
  }
  Printer printer(handle);

  DWORD needed = 0;
  if (!api().GetPrinterA(handle, 2, nullptr, 0, &needed)) {
    const DWORD error = GetLastError();
    if (error != ERROR_INSUFFICIENT_BUFFER) return 3;
  }
  if (needed == 0) return 3;
  GlobalMemory<PRINTER_INFO_2A> info(static_cast<PRINTER_INFO_2A*>(GlobalAlloc(GPTR, needed)));
  if (!info) return 4;
  if (!api().GetPrinterA(handle, 2, reinterpret_cast<LPBYTE>(info.get()), needed, &needed)) return 5;

  // The ANSI calls get the wide name's buffer as it is, as the service always has: the open
  // handle, not the name, says which printer they act on.
  auto* deviceName = reinterpret_cast<LPSTR>(const_cast<wchar_t*>(printerName.c_str()));
  GlobalMemory<DEVMODEA> ownDevMode;
  if (!info->pDevMode) {
    const LONG size = api().DocumentPropertiesA(nullptr, handle, deviceName, nullptr, nullptr, 0);
    if (size == 0) return 6;
    // A negative size (an error) asks for more than any allocation gives: 7, as for no memory.
    ownDevMode.reset(static_cast<DEVMODEA*>(GlobalAlloc(GPTR, static_cast<SIZE_T>(size))));
    if (!ownDevMode) return 7;
    if (api().DocumentPropertiesA(nullptr, handle, deviceName, ownDevMode.get(), nullptr,
                                  DM_OUT_BUFFER) != IDOK)
      return 8;
    info->pDevMode = ownDevMode.get();
  }
  DEVMODEA* mode = info->pDevMode;
  std::cout << "pi2->pDevMode->dmDefaultSource  " << mode->dmDefaultSource << std::endl;
  std::cout << "pi2->pDevMode->dmMediaType  " << mode->dmMediaType << std::endl;
  std::cout << "pi2->pDevMode->dmPaperSize  " << mode->dmPaperSize << std::endl;

  mode->dmDefaultSource = static_cast<short>(PrinterSettings.rearfeeder);
  mode->dmFields |= DM_DEFAULTSOURCE;
  mode->dmPaperSize = static_cast<short>(*paper);
  mode->dmFields |= DM_PAPERSIZE;
  mode->dmMediaType = 326;
  mode->dmFields |= DM_MEDIATYPE;
  mode->dmDuplex = DMDUP_SIMPLEX;
  mode->dmFields |= DM_DUPLEX;
  // Two bytes of the kiosk driver's private settings. A driver whose private part is shorter
  // does not have them, and writing there would run past the device mode.
  if (mode->dmDriverExtra > 86) {
    reinterpret_cast<BYTE*>(mode)[mode->dmSize + 84] = 1;
    reinterpret_cast<BYTE*>(mode)[mode->dmSize + 86] = 0;
  }
  mode->dmColor = DMCOLOR_COLOR;
  mode->dmFields |= DM_COLOR;
  info->pSecurityDescriptor = nullptr;

  if (api().DocumentPropertiesA(nullptr, handle, deviceName, mode, mode,
                                DM_IN_BUFFER | DM_OUT_BUFFER) != IDOK)
    return 10;
  if (!api().SetPrinterA(handle, 2, reinterpret_cast<LPBYTE>(info.get()), 0)) return 11;
  SendMessageTimeoutA(HWND_BROADCAST, WM_DEVMODECHANGE, 0, reinterpret_cast<LPARAM>(deviceName),
                      SMTO_NORMAL, 1000, nullptr);
  printer.reset();  // closed before the memory is freed
  return 0;
}

std::int32_t PrinterManager::PrintImage(const std::wstring& printerName, const std::wstring& path,
                                        const std::string& type, CopyJob* copy) {
  std::wstring fullName;
  const auto size = prepareCopy(printerName, type, fullName);
  if (!size) return kPrintNotPrinter;

  // Everything below is released in the reverse order of its taking, on every path: the
  // graphics object, the device context, the printer, the picture, then GDI+ itself.
  GdiplusSession gdiplus;
  if (!gdiplus.started()) return kPrintGraphicsStart;
  // GDI+ is given only a regular file whose header names a format and a size the service
  // prints: what it would decode past that is a picture bomb, not a photo. It reads the file
  // the header was read from, still open, and the size it reads counts.
  PictureHeader header;
  const StreamPtr stream = streamOnFile(openPicture(wideToUtf8(path), header));
  if (!stream) return kPrintPictureLoad;
  GpImage* loaded = nullptr;
  if (api().GdipLoadImageFromStream(stream.get(), &loaded) != Ok) return kPrintPictureLoad;
  const std::unique_ptr<GpImage, ImageDisposer> image(loaded);
  UINT width = 0, height = 0;
  if (api().GdipGetImageWidth(image.get(), &width) != Ok || api().GdipGetImageHeight(image.get(), &height) != Ok)
    return kPrintPictureLoad;
  if (const std::string refusal = decodedSizeRefusal(header, width, height); !refusal.empty()) {
    logPictureRefusal(refusal, wideToUtf8(path));
    return kPrintPictureLoad;
  }
  HANDLE opened = nullptr;
  PRINTER_DEFAULTSW defaults{nullptr, nullptr, PRINTER_ACCESS_USE};
  if (!api().OpenPrinterW(const_cast<LPWSTR>(fullName.c_str()), &opened, &defaults)) {
    std::cerr << "Unable to open printer" << std::endl;
    return kPrintTimeOut;
  }
  const Printer printer(opened);
  const DeviceContext dc(api().CreateDCW(L"WINSPOOL", fullName.c_str(), nullptr, nullptr));
  if (!dc) return kPrintDeviceContext;
  DOCINFOW document{};
  document.cbSize = sizeof document;
  const std::wstring title = utf8ToWide(copy ? copy->name : "Print Image");
  document.lpszDocName = title.c_str();
  const int jobId = api().StartDocW(dc.get(), &document);
  if (jobId > 0 && copy && copy->made) copy->made(jobId);  // before the page: a job with a page is always found again
  if (jobId <= 0 || api().StartPage(dc.get()) <= 0) return kPrintDocumentStart;  // no EndDoc
  GpGraphics* made = nullptr;
  api().GdipCreateFromHDC(dc.get(), &made);
  const std::unique_ptr<GpGraphics, GraphicsDeleter> graphics(made);
  const bool drawn =
      api().GdipDrawImageRectI(graphics.get(), image.get(), 0, 0, size->width, size->height) == Ok;
  api().EndPage(dc.get());
  api().EndDoc(dc.get());
  if (!drawn) return kPrintDrawing;
  Sleep(jobWaitTiming().settleMs);
  gdiplus.keepStarted();
  return cancelIfTimedOut(WaitForJobCompletion(printer.get(), jobId, copy), wideToUtf8(fullName), jobId,
                          [&]() -> std::string {
                            if (api().SetJobW(printer.get(), jobId, 0, nullptr, JOB_CONTROL_DELETE))
                              return "";
                            return "SetJob error " + std::to_string(GetLastError());
                          });
}

}  // namespace kps
