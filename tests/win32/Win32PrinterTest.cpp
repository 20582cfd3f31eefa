// The Windows printing layer through the real Windows API (under Wine, whose spooler is a
// private CUPS scheduler with a virtual printer; see run-under-wine.sh).
#include <windows.h>
#include <winspool.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "printer/PrintDecisions.h"
#include "printer/PrinterManager.h"
#include "printer/PrinterSettings.h"
#include "printer/win32/Win32Api.h"
#include "tests/win32/ScriptedSpooler.h"

namespace kps {
namespace {

class Win32Printer : public Win32Fixture {};

TEST_F(Win32Printer, QueueFoundBySubstringMadeTheDefaultAndItsDeviceModeWritten) {
  EXPECT_EQ(manager.FindPrinter(L"virtual"), L"kps-virtual");
  std::wstring full;
  ASSERT_TRUE(manager.SelectPrinter(L"virtual", full));
  EXPECT_EQ(full, L"kps-virtual");
  wchar_t name[256];
  DWORD size = 256;
  ASSERT_TRUE(GetDefaultPrinterW(name, &size));
  EXPECT_STREQ(name, L"kps-virtual");
  for (const auto& [type, paper] : {std::pair{"postcards", 1}, {"frames", 1}, {"cardsets", 9}, {"fridgemagnets", 9}}) {
    ASSERT_EQ(manager.SetPrintParams(L"kps-virtual", type), 0) << type;
    HANDLE printer = nullptr;
    ASSERT_TRUE(OpenPrinterW(const_cast<LPWSTR>(L"kps-virtual"), &printer, nullptr));
    DWORD needed = 0;
    GetPrinterA(printer, 2, nullptr, 0, &needed);
    std::vector<BYTE> buffer(needed);
    ASSERT_TRUE(GetPrinterA(printer, 2, buffer.data(), needed, &needed));
    ClosePrinter(printer);
    const DEVMODEA* mode = reinterpret_cast<PRINTER_INFO_2A*>(buffer.data())->pDevMode;
    ASSERT_NE(mode, nullptr);
    EXPECT_EQ(std::vector<long>({mode->dmPaperSize, mode->dmDefaultSource, static_cast<long>(mode->dmMediaType),
                                 mode->dmDuplex, mode->dmColor}),
              std::vector<long>({paper, 7, 326, DMDUP_SIMPLEX, DMCOLOR_COLOR})) << type;
    // Wine's PostScript driver keeps the media type and duplex values but clears their flags
    // in its merge (it supports neither); the other three flags survive it.
    EXPECT_EQ(mode->dmFields & (DM_PAPERSIZE | DM_DEFAULTSOURCE | DM_COLOR),
              static_cast<DWORD>(DM_PAPERSIZE | DM_DEFAULTSOURCE | DM_COLOR));
  }
  // Failures before any job: no printer call for an unknown type.
  EXPECT_EQ(manager.SetPrintParams(L"kps-virtual", "Postcards"), -1);
  EXPECT_EQ(manager.SetPrintParams(L"kps-missing", "postcards"), 1);
  EXPECT_FALSE(manager.SelectPrinter(L"no such printer", full));
  EXPECT_EQ(manager.PrintImage(L"no such printer", env("KPS_TEST_PICTURE"), "postcards"), -1);
  testing::internal::CaptureStdout();
  EXPECT_EQ(manager.PrintImage(L"virtual", env("KPS_TEST_PICTURE"), "poster"), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout().find("Default printer set to"), std::string::npos);
}




// Whatever fails, every GDI+ object goes before GDI+ itself, and all that was taken is given
// back in the reverse order of its taking.
TEST_F(Win32Printer, EveryPathReleasesWhatItTookGdiplusLast) {
  ReplacedCalls replaced;
  Win32Api& api = win32Api();
  failWhenNamed(api);
  api.GdiplusStartup = [](ULONG_PTR* token, const Gdiplus::GdiplusStartupInput* in, Gdiplus::GdiplusStartupOutput* out) {
    released.clear();  // the copy's GDI+ part starts here
    return kSystem.GdiplusStartup(token, in, out);
  };
  api.GdiplusShutdown = [](ULONG_PTR token) { released.push_back("GDI+"), kSystem.GdiplusShutdown(token); };
  api.GdipDisposeImage = [](Gdiplus::GpImage* image) { return released.push_back("picture"), kSystem.GdipDisposeImage(image); };
  api.GdipDeleteGraphics = [](Gdiplus::GpGraphics* g) { return released.push_back("graphics"), kSystem.GdipDeleteGraphics(g); };
  api.ClosePrinter = [](HANDLE printer) { return released.push_back("printer"), kSystem.ClosePrinter(printer); };
  api.DeleteDC = [](HDC dc) { return released.push_back("device context"), kSystem.DeleteDC(dc); };
  const std::tuple<const char*, std::int32_t, std::vector<std::string>> cases[] = {
      {"load", -6, {"GDI+"}},
      {"size", -6, {"picture", "GDI+"}},
      {"wider", -6, {"picture", "GDI+"}},
      {"open", -7, {"picture", "GDI+"}},
      {"dc", -8, {"printer", "picture", "GDI+"}},
      {"document", -9, {"device context", "printer", "picture", "GDI+"}},
      {"draw", -10, {"graphics", "device context", "printer", "picture", "GDI+"}},
      // A printed copy leaves GDI+ started; the graphics go before the device context they
      // were made from, as GDI+ requires.
      {"", 0, {"graphics", "device context", "printer", "picture"}},
  };
  for (const auto& [call, code, order] : cases) {
    failing = call;
    EXPECT_EQ(manager.PrintImage(L"virtual", env("KPS_TEST_PICTURE"), "postcards"), code) << call;
    EXPECT_EQ(released, order) << call;
  }
  failing.clear();
}

// GDI+ decodes the file whose header was read, through the file held open since: a picture
// put in its place at the path meanwhile is not what is drawn.
std::wstring copyPath, otherPath;
BOOL replaced = FALSE;
UINT drawnWidth = 0;
TEST_F(Win32Printer, GdiplusDrawsTheFileWhoseHeaderWasRead) {
  ReplacedCalls calls;
  wchar_t folder[MAX_PATH + 1] = {};
  ASSERT_GT(GetTempPathW(MAX_PATH, folder), 0u);
  copyPath = std::wstring(folder) + L"kps-copy.jpg", otherPath = std::wstring(folder) + L"kps-other.bmp";
  ASSERT_TRUE(CopyFileW(env("KPS_TEST_PICTURE").c_str(), copyPath.c_str(), FALSE));
  ASSERT_TRUE(CopyFileW(env("KPS_TEST_OTHER").c_str(), otherPath.c_str(), FALSE));
  win32Api().GdipLoadImageFromStream = [](IStream* stream, Gdiplus::GpImage** image) {
    replaced = MoveFileExW(otherPath.c_str(), copyPath.c_str(), MOVEFILE_REPLACE_EXISTING);
    return kSystem.GdipLoadImageFromStream(stream, image);
  };
  win32Api().GdipDrawImageRectI = [](Gdiplus::GpGraphics* g, Gdiplus::GpImage* i, INT x, INT y, INT w, INT h) {
    Gdiplus::DllExports::GdipGetImageWidth(i, &drawnWidth);
    return kSystem.GdipDrawImageRectI(g, i, x, y, w, h);
  };
  EXPECT_EQ(manager.PrintImage(L"virtual", copyPath, "postcards"), 0);
  EXPECT_EQ(drawnWidth, 400u) << (replaced ? "replaced" : "not replaced") << " after the header was read";
  DeleteFileW(copyPath.c_str()), DeleteFileW(otherPath.c_str());
}

// The driver's two private bytes are written only where its private part reaches them. Wine's
// driver keeps 8 private bytes, so the record's device mode is handed out as a copy in a larger
// buffer claiming `forcedExtra`, marked beyond the driver's own bytes.
WORD forcedExtra = 0, realExtra = 0;
alignas(8) BYTE claimedMode[1024];
BYTE privateBytes[2] = {};  // what the device mode held there when it was handed back
TEST_F(Win32Printer, DriverPrivateBytesOnlyWhereTheDeviceModeHasThem) {
  ReplacedCalls replaced;
  win32Api().GetPrinterA = [](HANDLE printer, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed) {
    const BOOL ok = kSystem.GetPrinterA(printer, level, buffer, size, needed);
    auto* info = reinterpret_cast<PRINTER_INFO_2A*>(buffer);
    if (ok && buffer && info->pDevMode) {
      const DEVMODEA* own = info->pDevMode;
      realExtra = own->dmDriverExtra;
      std::fill(std::begin(claimedMode), std::end(claimedMode), BYTE{0xAB});
      std::memcpy(claimedMode, own, own->dmSize + own->dmDriverExtra);
      info->pDevMode = reinterpret_cast<DEVMODEA*>(claimedMode);
      info->pDevMode->dmDriverExtra = forcedExtra;
    }
    return ok;
  };
  win32Api().DocumentPropertiesA = [](HWND window, HANDLE printer, LPSTR name, PDEVMODEA out, PDEVMODEA in, DWORD mode) {
    if ((mode & DM_IN_BUFFER) && in) {
      privateBytes[0] = reinterpret_cast<const BYTE*>(in)[in->dmSize + 84];
      privateBytes[1] = reinterpret_cast<const BYTE*>(in)[in->dmSize + 86];
      in->dmDriverExtra = realExtra;  // the driver gets back what it gave
    }
    return kSystem.DocumentPropertiesA(window, printer, name, out, in, mode);
  };
  for (const auto& [extra, bytes] : {std::pair<WORD, std::vector<int>>{512, {1, 0}}, {87, {1, 0}},
                                     {86, {0xAB, 0xAB}}, {8, {0xAB, 0xAB}}}) {
    forcedExtra = extra;
    privateBytes[0] = privateBytes[1] = 0x55;
    ASSERT_EQ(manager.SetPrintParams(L"kps-virtual", "postcards"), 0) << extra;
    EXPECT_EQ(std::vector<int>(privateBytes, privateBytes + 2), bytes) << extra;
  }
}

// What the operator's check reads of the printers: each printer's state from its record
// (scripted: Wine's records say nothing of it), and the paper sizes and sources its driver offers.
TEST_F(Win32Printer, InstalledPrintersWithTheirStateAndWhatTheDriverOffers) {
  ReplacedCalls replaced;
  win32Api().EnumPrintersW = scriptedEnumPrintersW;
  const std::tuple<DWORD, DWORD, std::string> cases[] = {
      {0, 0, ""}, {PRINTER_ATTRIBUTE_WORK_OFFLINE, 0, "works offline"},
      {0, PRINTER_STATUS_OFFLINE, "is offline"}, {0, PRINTER_STATUS_PAUSED, "is paused"}};
  for (const auto& [attributes, status, state] : cases) {
    addedAttributes = attributes, addedStatus = status;
    bool failed = true;
    const std::vector<InstalledPrinter> printers = manager.InstalledPrinters(failed);
    EXPECT_FALSE(failed);
    const auto found = std::find_if(printers.begin(), printers.end(), [](const InstalledPrinter& p) { return p.name == L"kps-virtual"; });
    ASSERT_NE(found, printers.end()) << state;
    EXPECT_EQ(std::make_pair(found->ready, found->state), std::make_pair(state.empty(), state));
  }
  addedAttributes = addedStatus = 0;
  enumerationFails = true;
  bool failed = false;
  EXPECT_TRUE(manager.InstalledPrinters(failed).empty());
  EXPECT_TRUE(failed);
  enumerationFails = false;

  // Wine's driver for the queue offers letter (1) and A4 (9) among others, not A3 (8); a paper
  // it lacks is written into the device mode all the same, so nothing is required.
  for (const auto& [paper, offered] : {std::pair{1, true}, {9, true}, {8, false}}) {
    const DriverChoice choice = manager.PaperChoice(L"kps-virtual", paper);
    EXPECT_TRUE(choice.known && choice.hasChoice && !choice.required) << paper;
    EXPECT_EQ(choice.offered, offered) << paper;
    EXPECT_EQ(choice.configured, std::to_string(paper));
    EXPECT_EQ(std::count(choice.offers.begin(), choice.offers.end(), "9"), 1) << paper;
  }
  EXPECT_EQ(manager.PaperChoice(L"kps-virtual", 65535 + 257).configured, "256");  // a 16-bit field
  EXPECT_FALSE(manager.SourceChoice(L"kps-virtual", 7).offers.empty());
  EXPECT_FALSE(manager.PaperChoice(L"kps-missing", 1).known);
  EXPECT_FALSE(manager.MediaTypeChoice(L"kps-virtual", 326).known);  // the driver is not asked
}

// The README's "When the printer fails", Windows column: the spooler's answers to the job
// queries are scripted (Wine hands a job to CUPS at EndDoc and then no longer knows it), the
// rest of the copy is Wine's. What SetJobW was asked is noted, not passed on.
TEST_F(Win32Printer, WhenThePrinterFails) {
  ReplacedCalls replaced;
  Win32Api& api = win32Api();
  scriptJobs(api);
  failWhenNamed(api);
  api.EnumPrintersW = scriptedEnumPrintersW;
  constexpr DWORD kPrinting = JOB_STATUS_PRINTING;
  struct Row {
    const char* situation;
    std::vector<JobAnswer> answers;
    bool cancel;          // [TimedOutJobs] value=cancel
    DWORD setJobError;    // the spooler refuses the cancel
    const char* failing;  // "offline" (the printer works offline), "dc", "draw", "wider"
    std::int32_t code;
    int documentsEnded;   // 1: the page went to the spooler
    const char* picture = "KPS_TEST_PICTURE";  // the variable naming the copy's picture
    const char* line = "";                     // a line the copy logs
  };
  const Row rows[] = {
      {"Paper out before the job starts", {{JOB_STATUS_PAPEROUT, 0}}, false, 0, "", -3, 1},
      {"Paper out mid-job, refilled after the time-out", {{kPrinting, 0}}, false, 0, "", -7, 1},
      {"Paper out mid-job, refilled after the time-out (with cancel)", {{kPrinting, 0}}, true, 0, "", -7, 1},
      {"The spooler refuses that cancel (the job is past cancelling)", {{kPrinting, 0}}, true, ERROR_ACCESS_DENIED, "", -7, 1},
      {"Printer switched off or unplugged during the job", {{kPrinting, 0}, {kPrinting | JOB_STATUS_OFFLINE, 0}}, false, 0, "", -2, 1},
      {"Printer stopped / working offline before a copy", {{0, 0}}, false, 0, "offline", -1, 0},
      {"The queue removed mid-run", {{kPrinting, 0}, {0, ERROR_INVALID_PARAMETER}}, false, 0, "", 0, 1},
      {"A job held", {{JOB_STATUS_PAUSED, 0}}, false, 0, "", -7, 1},
      {"A job held (with cancel)", {{JOB_STATUS_PAUSED, 0}}, true, 0, "", -7, 1},
      {"A job cancelled at the PC", {{kPrinting, 0}, {0, ERROR_INVALID_PARAMETER}}, false, 0, "", 0, 1},
      {"A job cancelled at the PC, asked while it is being deleted", {{kPrinting, 0}, {JOB_STATUS_DELETING, 0}}, false, 0, "", -1, 1},
      {"The spooler (scheduler) restarted mid-job", {{kPrinting, 0}, {0, ERROR_INVALID_HANDLE}}, false, 0, "", 0, 1},
      {"A job still waiting behind another after a second", {{0, 0}}, false, 0, "", 0, 1},
      {"The picture cannot be drawn", {{0, 0}}, false, 0, "draw", -10, 1},
      {"The printer's media cannot be read (Windows: no device context)", {{0, 0}}, false, 0, "dc", -8, 0},
      {"A picture beyond the pixel budget (a picture bomb)", {{0, 0}}, false, 0, "", -6, 0, "KPS_TEST_BOMB",
       "] picture refused, 30000 x 30000 pixels, more than the 100 MP or 20000 pixels a side a print takes: "},
      {"A picture beyond the pixel budget (GDI+ reads it larger than its header)", {{0, 0}}, false, 0, "wider", -6, 0,
       "KPS_TEST_PICTURE", "] picture refused, its decoder reads 401 x 600 pixels, more than the 400 x 600 of its header: "},
      {"A picture of a format the service does not print", {{0, 0}}, false, 0, "", -6, 0, "KPS_TEST_SVG",
       "] picture refused, not a JPEG, PNG, BMP, GIF or TIFF picture: "},
  };
  jobWaitTiming() = JobWaitTiming{10, 50, 500};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.situation);
    answers = row.answers, asked = 0, startedJob = endedDocuments = 0, jobControls.clear();
    setJobError = row.setJobError, failing = row.failing;
    addedAttributes = failing == "offline" ? PRINTER_ATTRIBUTE_WORK_OFFLINE : 0;
    PrinterSettings.cancelTimedOutJobs = row.cancel;
    testing::internal::CaptureStdout();
    EXPECT_EQ(manager.PrintImage(L"virtual", env(row.picture), "postcards"), row.code);
    std::string log = testing::internal::GetCapturedStdout();
    log.erase(std::remove(log.begin(), log.end(), '\r'), log.end());  // a Windows text stream's line ends
    EXPECT_NE(log.find(row.line), std::string::npos) << log;
    EXPECT_EQ(endedDocuments, row.documentsEnded);
    const std::string job = "job " + std::to_string(startedJob) + " on printer kps-virtual";
    using Controls = std::vector<std::pair<DWORD, DWORD>>;
    const Controls cancelled = {{startedJob, JOB_CONTROL_DELETE}};
    EXPECT_EQ(jobControls, row.cancel ? cancelled : Controls());
    EXPECT_EQ(log.find("] Cancelling the timed-out " + job + "\n") != std::string::npos, row.cancel) << log;
    EXPECT_EQ(log.find("] Could not cancel the timed-out " + job + " (SetJob error 5); it may still print\n") != std::string::npos,
              row.setJobError != 0) << log;
  }
  failing.clear(), addedAttributes = 0, PrinterSettings.cancelTimedOutJobs = false;
}

// With no device mode in the printer's record, the driver is asked for one's size: 0 ends with
// 6; a negative size is no allocation that can succeed, 7; its own size works.
TEST_F(Win32Printer, PrinterRecordWithoutDeviceMode) {
  ReplacedCalls replaced;
  win32Api().GetPrinterA = [](HANDLE printer, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed) {
    const BOOL ok = kSystem.GetPrinterA(printer, level, buffer, size, needed);
    if (ok && buffer) reinterpret_cast<PRINTER_INFO_2A*>(buffer)->pDevMode = nullptr;
    return ok;
  };
  win32Api().DocumentPropertiesA = [](HWND window, HANDLE printer, LPSTR name, PDEVMODEA out, PDEVMODEA in, DWORD mode) {
    return mode == 0 && devModeSize != 1 ? devModeSize : kSystem.DocumentPropertiesA(window, printer, name, out, in, mode);
  };
  for (const auto& [size, code] : {std::pair<LONG, std::int32_t>{0, 6}, {-1, 7}, {1, 0}}) {
    devModeSize = size;
    EXPECT_EQ(manager.SetPrintParams(L"kps-virtual", "postcards"), code) << size;
  }
}

// Every diagnostic line arrives whole, whatever the printer name holds, and carries the error
// the failing call left.
TEST_F(Win32Printer, DiagnosticsKeepEveryLineAndTheirErrorCode) {
  ReplacedCalls replaced;
  std::wstring full;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(manager.SelectPrinter(kCopyNameMarker + L" \x732B\x54AA", full));
  EXPECT_FALSE(manager.SelectPrinter(L"no such printer", full));
  win32Api().SetDefaultPrinterW = [](LPCWSTR) { return SetLastError(ERROR_INVALID_PRINTER_NAME), FALSE; };
  EXPECT_FALSE(manager.SelectPrinter(L"virtual", full));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Target printer not found: (\xE9\x8D\x93\xEE\x88\x9B\xE6\xB9\xB0) \xE7\x8C\xAB\xE5\x92\xAA\n"
            "Target printer not found: no such printer\n"
            "Failed to set default printer. Error: 1801\n");
}

}  // namespace
}  // namespace kps
