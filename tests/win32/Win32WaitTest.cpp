// [WaitForPrinter] and the copies recorded, on the Windows printing layer under Wine: the print
// run over a store file, the copy's page made by Wine's GDI, the spooler's answers to the job and
// printer queries scripted. In every row what would come out (the job not cancelled, and printed)
// is what the order tells the backend, but where the spooler forgot the job and cannot know.
#include <windows.h>
#include <objbase.h>
#include <bidispl.h>
#include <winspool.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <tuple>

#include "store/Database.h"
#include "store/PrinterWait.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/SqliteFile.h"
#include "tests/win32/ScriptedSpooler.h"

namespace kps {
namespace {

using namespace std::chrono_literals;

// The job as the scripted spooler still holds it: by its id, or in the queue's list by its name.
bool spoolerHasJob = false;
DWORD printerStatus = 0;  // added to the printer's record while a job despools
DWORD writeJob(LPBYTE buffer, DWORD size, LPDWORD needed) {
  *needed = static_cast<DWORD>(sizeof(JOB_INFO_1W) + (documentName.size() + 1) * sizeof(wchar_t));
  if (!buffer || size < *needed) return SetLastError(ERROR_INSUFFICIENT_BUFFER), FALSE;
  auto* job = reinterpret_cast<JOB_INFO_1W*>(buffer);
  *job = JOB_INFO_1W{};
  job->JobId = static_cast<DWORD>(startedJob);
  auto* name = reinterpret_cast<wchar_t*>(buffer + sizeof(JOB_INFO_1W));
  std::memcpy(name, documentName.c_str(), (documentName.size() + 1) * sizeof(wchar_t));
  job->pDocument = name;
  return TRUE;
}
BOOL WINAPI scriptedGetJobW(HANDLE, DWORD id, DWORD, LPBYTE buffer, DWORD size, LPDWORD needed) {
  if (!spoolerHasJob || id != static_cast<DWORD>(startedJob)) return SetLastError(ERROR_INVALID_PARAMETER), FALSE;
  return writeJob(buffer, size, needed);
}
BOOL WINAPI scriptedEnumJobsW(HANDLE, DWORD, DWORD, DWORD, LPBYTE buffer, DWORD size, LPDWORD needed, LPDWORD count) {
  *count = 0;
  if (!spoolerHasJob) return *needed = 0, TRUE;
  if (!writeJob(buffer, size, needed)) return FALSE;
  return *count = 1, TRUE;
}
BOOL WINAPI scriptedGetPrinterA(HANDLE printer, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed) {
  const BOOL ok = kSystem.GetPrinterA(printer, level, buffer, size, needed);
  if (ok && buffer && level == 2) reinterpret_cast<PRINTER_INFO_2A*>(buffer)->Status |= printerStatus;
  return ok;
}

// The spooler's bidirectional channel as a driver that offers it answers: each consumable's
// schema and its value. Empty: the classes are not there (as under Wine).
std::vector<std::pair<std::wstring, int>> consumables;
std::wstring boundPrinter;
template <typename Interface>
struct Fake : Interface {
  ULONG refs = 1;
  HRESULT WINAPI QueryInterface(REFIID, void** out) override { return *out = nullptr, E_NOINTERFACE; }
  ULONG WINAPI AddRef() override { return ++refs; }
  ULONG WINAPI Release() override {
    const ULONG left = --refs;
    if (left == 0) delete this;
    return left;
  }
  virtual ~Fake() = default;
};
struct FakeRequest : Fake<IBidiRequest> {
  std::wstring schema;
  std::vector<std::pair<std::wstring, int>> outputs;
  HRESULT WINAPI SetSchema(const LPCWSTR wanted) override { return schema = wanted, S_OK; }
  HRESULT WINAPI SetInputData(const DWORD, const BYTE*, const UINT) override { return E_NOTIMPL; }
  HRESULT WINAPI GetResult(HRESULT* result) override { return *result = S_OK, S_OK; }
  HRESULT WINAPI GetOutputData(const DWORD index, LPWSTR* path, DWORD* type, BYTE** data, ULONG* size) override {
    if (index >= outputs.size()) return E_INVALIDARG;
    const std::wstring& name = outputs[index].first;
    *path = static_cast<LPWSTR>(CoTaskMemAlloc((name.size() + 1) * sizeof(wchar_t)));
    std::memcpy(*path, name.c_str(), (name.size() + 1) * sizeof(wchar_t));
    *data = static_cast<BYTE*>(CoTaskMemAlloc(sizeof(INT)));
    std::memcpy(*data, &outputs[index].second, sizeof(INT));
    *type = BIDI_INT, *size = sizeof(INT);
    return S_OK;
  }
  HRESULT WINAPI GetEnumCount(DWORD* total) override { return *total = static_cast<DWORD>(outputs.size()), S_OK; }
};
struct FakeSpooler : Fake<IBidiSpl> {
  HRESULT WINAPI BindDevice(const LPCWSTR device, const DWORD) override { return boundPrinter = device, S_OK; }
  HRESULT WINAPI UnbindDevice() override { return S_OK; }
  HRESULT WINAPI SendRecv(const LPCWSTR action, IBidiRequest* request) override {
    auto* fake = static_cast<FakeRequest*>(request);
    if (std::wstring(action) != BIDI_ACTION_GET_ALL || fake->schema != L"\\Printer.Consumables") return E_INVALIDARG;
    fake->outputs = consumables;
    return S_OK;
  }
  HRESULT WINAPI MultiSendRecv(const LPCWSTR, IBidiRequestContainer*) override { return E_NOTIMPL; }
};
HRESULT WINAPI scriptedCoCreateInstance(REFCLSID kind, LPUNKNOWN, DWORD, REFIID, LPVOID* out) {
  *out = nullptr;
  if (consumables.empty()) return REGDB_E_CLASSNOTREG;
  const CLSID spooler = {0x2a614240, 0xa4c5, 0x4c33, {0xbd, 0x87, 0x1b, 0xc7, 0x09, 0x33, 0x16, 0x39}};
  *out = IsEqualCLSID(kind, spooler) ? static_cast<void*>(new FakeSpooler) : static_cast<void*>(new FakeRequest);
  return S_OK;
}

class Win32Wait : public Win32Fixture {
 protected:
  void SetUp() override {
    Win32Fixture::SetUp();
    PrinterSettings.printerName = "kps-virtual";
    PrinterSettings.waitForPrinterMinutes = 10;
    jobWaitTiming() = JobWaitTiming{10, 50, 500};
    Win32Api& api = win32Api();
    scriptJobs(api);
    failWhenNamed(api);
    api.EnumPrintersW = scriptedEnumPrintersW;
    api.GetPrinterA = scriptedGetPrinterA;
    api.GetJobW = scriptedGetJobW;
    api.EnumJobsW = scriptedEnumJobsW;
    api.CoCreateInstance = scriptedCoCreateInstance;
    store.printerWait().clock = [this] { return now; };
    ASSERT_TRUE(store.insertOrder("local", "O", "T", wideToUtf8(env("KPS_TEST_PICTURE")), 0, 1, "postcards"));
  }
  void TearDown() override {
    nextRow();
    PrinterSettings = PrinterSettingsRecord{};
  }
  // The order pending again, no copy of it recorded, the spooler's answers as Wine's.
  void nextRow() {
    answers.clear(), asked = 0, jobControls.clear(), setJobError = 0, startedJob = 0, endedDocuments = 0;
    addedAttributes = addedStatus = printerStatus = 0, spoolerHasJob = false, failing.clear(), consumables.clear();
    ASSERT_TRUE(file.exec("UPDATE local SET status = 0, failReason = NULL, completedNumber = NULL; DELETE FROM jobs;"));
    store.printerWait().back();
  }
  void run(std::chrono::seconds later) {
    now += later;
    store.printPendingOrders();
  }

  ReplacedCalls replaced;
  const std::string folder = [] {
    const auto path = std::filesystem::temp_directory_path() / ("kps-wait-" + std::to_string(GetCurrentProcessId()));
    std::filesystem::remove_all(path);
    std::filesystem::create_directories(path);
    return path.string();
  }();
  Database store{folder + "/PrintData.db"};
  SqliteFile file{folder + "/PrintData.db"};
  std::chrono::steady_clock::time_point now{};
};

constexpr DWORD kPrinting = JOB_STATUS_PRINTING;

// The README's "When the printer fails", the [WaitForPrinter] column, Windows: the first run
// leaves the copy waiting (its job at the spooler, or no job while the printer is paused or works
// offline); a person comes (the spooler's answers change) and the next run ends it, or nobody
// comes and after the minutes its job is cancelled.
TEST_F(Win32Wait, WhatComesOutIsWhatTheBackendIsTold) {
  struct Row {
    const char* situation;
    std::vector<JobAnswer> first;  // the job's answers before anyone comes
    DWORD attributes, status;      // the printer's record before the copy
    bool comes;                    // someone comes: the job prints, the printer is set right
    DWORD refused;                 // the spooler refuses the cancel
    bool waits;                    // the first run leaves the copy waiting
    std::string told;              // the order at the end
    bool cancelled;                // the copy's job was cancelled (asked to be): nothing comes out
  };
  const Row rows[] = {
      {"Paper out before the job starts, refilled", {{JOB_STATUS_PAPEROUT, 0}}, 0, 0, true, 0, true, "2|1|-", false},
      {"Paper out mid-job, refilled", {{kPrinting, 0}, {kPrinting | JOB_STATUS_PAPEROUT, 0}}, 0, 0, true, 0, true, "2|1|-", false},
      {"Paper out, the wait runs out", {{JOB_STATUS_PAPEROUT, 0}}, 0, 0, false, 0, true, "4|-|IPP_JOB_HELD", true},
      {"Printer switched off during the job, back", {{kPrinting | JOB_STATUS_OFFLINE, 0}}, 0, 0, true, 0, true, "2|1|-", false},
      {"Printer switched off, the wait runs out", {{kPrinting | JOB_STATUS_OFFLINE, 0}}, 0, 0, false, 0,
       true, "4|-|IPP_JOB_FILE_NOT_EXIST", true},
      {"A job in error, set right", {{kPrinting | JOB_STATUS_ERROR, 0}}, 0, 0, true, 0, true, "2|1|-", false},
      {"A job waiting for user intervention, the wait runs out", {{kPrinting | JOB_STATUS_USER_INTERVENTION, 0}}, 0, 0,
       false, 0, true, "4|-|IPP_JOB_STOPPED", true},
      {"A job held, released", {{JOB_STATUS_PAUSED, 0}}, 0, 0, true, 0, true, "2|1|-", false},
      {"A job held, the wait runs out", {{JOB_STATUS_PAUSED, 0}}, 0, 0, false, 0, true, "4|-|IPP_TIME_OUT", true},
      {"The spooler refuses that cancel", {{JOB_STATUS_PAPEROUT, 0}}, 0, 0, false, ERROR_ACCESS_DENIED,
       true, "4|-|IPP_JOB_HELD", true},
      {"Printer working offline before a copy, back online", {{0, 0}}, PRINTER_ATTRIBUTE_WORK_OFFLINE, 0, true, 0,
       true, "2|1|-", false},
      {"Printer paused before a copy, the wait runs out", {{0, 0}}, 0, PRINTER_STATUS_PAUSED, false, 0,
       true, "4|-|IPP_JOB_HELD_NOT_PRINTER", false},
      // A printer that stalls without a word is not waited for: its minute ends the copy, and
      // the job is cancelled so that it never prints later.
      {"Paper out mid-job, refilled after the time-out", {{kPrinting, 0}}, 0, 0, false, 0, false, "4|-|IPP_TIME_OUT", true},
      // The spooler forgot the job: counted printed, though a person may have deleted it.
      {"The queue removed mid-run", {{kPrinting, 0}, {0, ERROR_INVALID_PARAMETER}}, 0, 0, false, 0, false, "2|1|-", false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.situation);
    nextRow();
    answers = row.first, addedAttributes = row.attributes, addedStatus = row.status, setJobError = row.refused;
    spoolerHasJob = true;
    OutputWatcher log;
    run(0s);
    const bool waiting = store.waitingForPrinter();
    EXPECT_EQ(waiting, row.waits) << file.order("T");
    if (waiting && row.comes) {
      answers = {{JOB_STATUS_PRINTED, 0}}, asked = 0, addedAttributes = addedStatus = 0;
      run(10s);
    } else if (waiting) {
      run(11min);
    }
    EXPECT_FALSE(store.waitingForPrinter());
    EXPECT_EQ(file.order("T"), row.told);
    const bool cancelled = std::count(jobControls.begin(), jobControls.end(), std::make_pair(DWORD(startedJob), DWORD(JOB_CONTROL_DELETE))) > 0;
    EXPECT_EQ(cancelled, row.cancelled);
    if (row.refused) {
      EXPECT_NE(log.text().find("(the spooler refused: SetJob error 5)"), std::string::npos) << log.text();
    }
  }
}

// After a power cut: a recorded job the spooler still has is followed, not made again; one it
// forgot counts as printed (it forgets a job once printed); one being made when the service
// stopped is looked for by its name, deleted (it never got its page) and made anew.
TEST_F(Win32Wait, ACopyRecordedBeforeAStopIsFollowedOrMadeAnew) {
  PrinterSettings.waitForPrinterMinutes = 0;
  struct Row {
    const char* situation;
    int recordedJob;    // -1: the record's id is the job's; 0: being made
    bool spoolerHasIt;
    std::string told;
    int newJobs;        // documents made by the run
    bool deleted;       // the found job deleted
  };
  const Row rows[] = {
      {"its job still at the spooler", -1, true, "2|1|-", 0, false},
      {"its job forgotten by the spooler", -1, false, "2|1|-", 0, false},
      {"being made, and at the spooler", 0, true, "2|1|-", 1, true},
      {"being made, never at the spooler", 0, false, "2|1|-", 1, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.situation);
    nextRow();
    // The job the stopped service made: its name and id as the spooler gave them.
    documentName = L"Print Image T 1/1";
    startedJob = 4242;
    const std::string recorded = row.recordedJob < 0 ? std::to_string(startedJob) : "0";
    ASSERT_TRUE(file.exec("INSERT INTO jobs (uuid, copy, name, jobId) VALUES ('T', 1, 'Print Image T 1/1', " + recorded + ")"));
    spoolerHasJob = row.spoolerHasIt;
    answers = {{JOB_STATUS_PRINTED, 0}};
    OutputWatcher log;
    run(0s);
    EXPECT_EQ(file.order("T"), row.told);
    EXPECT_EQ(endedDocuments, row.newJobs);
    EXPECT_EQ(std::count(jobControls.begin(), jobControls.end(), std::make_pair(DWORD(4242), DWORD(JOB_CONTROL_DELETE))) > 0,
              row.deleted);
    EXPECT_EQ(log.text().find("job no longer known to the spooler, counted printed: Print Image T 1/1") != std::string::npos,
              row.recordedJob < 0 && !row.spoolerHasIt) << log.text();
  }
}

// The printer as read before a copy: its condition from its record (what a person set always;
// the device's bits only while a job despools; Wine's records never say, so they are scripted),
// and the media left where the driver answers the bidirectional schema: the first consumable's
// level in percent (-1: it cannot tell); none where the channel is not there.
TEST_F(Win32Wait, ThePrintersConditionAndMediaAsRead) {
  using Consumables = std::vector<std::pair<std::wstring, int>>;
  struct Row {
    DWORD attributes, status;
    Consumables answers;
    const char* needs;     // what stops it, as a log line says it
    const char* expected;  // "name|percent", '-' unknown; "none": no media
  };
  const Row rows[] = {
      {0, 0, {}, "", "none"},
      {0, PRINTER_STATUS_PAPER_OUT, {}, "", "none"},  // no job: what the last one left
      {PRINTER_ATTRIBUTE_WORK_OFFLINE, 0, {}, "offline (offline)", "none"},
      {0, PRINTER_STATUS_PAUSED, {}, "paused by an operator (paused)", "none"},
      {0, 0, {{L"\\Printer.Consumables.Ribbon:Type", 0}, {L"\\Printer.Consumables.Ribbon:Level", 37},
              {L"\\Printer.Consumables.Paper:Level", 80}}, "", "Ribbon|37"},
      {0, 0, {{L"\\Printer.Consumables.Ribbon.Level", 12}}, "", "Ribbon|12"},
      {0, 0, {{L"\\Printer.Consumables.Ribbon:Level", -1}}, "", "Ribbon|-"},
      {0, 0, {{L"\\Printer.DeviceInfo:ModelName", 0}}, "", "none"},
  };
  for (const Row& row : rows) {
    addedAttributes = row.attributes, addedStatus = row.status, consumables = row.answers, boundPrinter.clear();
    const PrinterState state = manager.ReadPrinterState(L"virtual");
    EXPECT_EQ(state.name, "kps-virtual");
    EXPECT_EQ(state.needsPersonText(), row.needs) << std::hex << row.status;
    const std::string seen = state.media ? state.media->name + "|" +
                                               (state.media->levelPercent ? std::to_string(*state.media->levelPercent) : "-")
                                         : "none";
    EXPECT_EQ(seen, row.expected);
    EXPECT_EQ(boundPrinter, row.answers.empty() ? L"" : L"kps-virtual");
    EXPECT_FALSE(state.media && state.media->remainingPrints);  // the schema knows percent only
  }
}

}  // namespace
}  // namespace kps
