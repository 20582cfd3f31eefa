// The service process: its process-wide objects, the entry point and the three worker loops.
#include <curl/curl.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <fstream>
#include <iterator>
// Before the stores below: their set-up may report on std::cerr during static initialisation,
// and <iostream> is what makes the standard streams usable that early in this file.
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "base/DailyLog.h"
#include "base/Health.h"
#include "base/Log.h"
#include "config/PrinterConfig.h"
#include "config/ServiceFiles.h"
#include "printer/PrinterManager.h"
#include "printer/PrinterSettings.h"
#include "remote/Endpoints.h"
#include "remote/RemoteOrderIdManger.h"
#include "src/LastWords.h"
#include "ops/Dispatch.h"
#include "store/Database.h"
#include "store/Runtime.h"
#include "upkeep/MetricsFile.h"
#include "upkeep/PictureRetention.h"
#include "upkeep/PrinterWatch.h"
#include "upkeep/StatusFile.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace {

// An operator's command (any argument) must neither create nor open the store: the stores
// below are then made in memory. Asked of the system, as main's arguments are not there yet.
bool startedWithArguments() {
#ifdef _WIN32
  const wchar_t* rest = GetCommandLineW();
  if (*rest == L'"') {
    for (++rest; *rest && *rest != L'"';) ++rest;
    if (*rest) ++rest;
  } else {
    while (*rest && *rest != L' ' && *rest != L'\t') ++rest;
  }
  while (*rest == L' ' || *rest == L'\t') ++rest;
  return *rest != L'\0';
#else
  std::ifstream file("/proc/self/cmdline", std::ios::binary);
  const std::string line((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  return std::count(line.begin(), line.end(), '\0') > 1;
#endif
}

const char* const storePath = startedWithArguments() ? ":memory:" : "PrintData.db";

// [LogFile], before anything else of the service: what the stores say as they open, and why
// the process ends, reach its file. Without it the standard streams stay as they are. A
// keepDays that is not a number is left to the print worker's start, which ends on it.
std::unique_ptr<kps::DailyLog> startDailyLog() {
  if (startedWithArguments()) return nullptr;  // an operator's command writes where it is run
  const kps::PrinterConfigValues& optIn = kps::startSettings();
  if (optIn.LogFolder.empty()) return nullptr;
  auto log = std::make_unique<kps::DailyLog>(kps::DailyLogSettings{optIn.LogFolder, optIn.LogKeepDays});
  log->attach();
  kps::sayLastWordsOnTheLog();  // the stores below may end the process as they open
  return log;
}

}  // namespace

using namespace std::chrono_literals;

// The process-wide objects, built in exactly this order before main runs and so destroyed in
// the reverse order. They share this one file because C++ orders the initialisation of
// namespace-scope objects only within a file.
kps::PrinterSettingsRecord kps::PrinterSettings;
std::mutex kps::logMutex;
std::mutex kps::databaseMutex;
static const std::unique_ptr<kps::DailyLog> dailyLog = startDailyLog();
static kps::RemoteOrderIdManger intakeDatabase(storePath);
std::mutex kps::newOrderMutex;
std::condition_variable kps::newOrderCondition;
static std::shared_ptr<kps::Database> sharedDatabase = std::make_shared<kps::Database>(storePath);
bool kps::newOrderFlag = false;

namespace {

void printWorker() {
  kps::PrinterManager manager;
  manager.LoadPrinterSettings();
  std::unique_lock<std::mutex> lock(kps::newOrderMutex);
  // The first run goes at once: orders a stopped service left unfinished, and pending ones,
  // are taken up without waiting for a new order. A run that left a copy waiting for its
  // printer is followed by another within 10 s.
  std::optional<std::chrono::milliseconds> lookAgain = 0ms;
  for (;;)
    kps::printWorkerCycle(lock, [&] {
      sharedDatabase->printPendingOrders();
      ++kps::Health::instance().runsEnded;
      lookAgain = sharedDatabase->waitingForPrinter() ? std::optional<std::chrono::milliseconds>(10s) : std::nullopt;
    }, lookAgain);
}

void syncLoop() {
  const std::string url = kps::syncUrl(kps::publishedPrinterSettings().environment);
  const kps::PrinterConfigValues& optIn = kps::startSettings();
  const std::int32_t retentionDays = optIn.PictureRetentionDays;
  kps::logLine(KPS_TAG_TASK, __LINE__, "url : ", url);
  kps::RetentionSweep retention;
  // The printer as the upkeep last read it: asked at most once a minute, whoever writes.
  kps::PrinterWatch printer(optIn.PrinterName, optIn.MediaLowPrints);
  // Opt-in, as retention: without [StatusFile] nothing of it runs.
  std::unique_ptr<kps::StatusFile> status;
  if (!optIn.StatusFilePath.empty()) {
    const std::string problem = kps::writtenFileProblem(optIn.StatusFilePath, optIn.LogFolder);
    if (problem.empty())
      status = std::make_unique<kps::StatusFile>(optIn.StatusFilePath, printer);
    else
      kps::logLine(KPS_TAG_TASK, __LINE__, "[StatusFile] path refused, no status file is written: ", problem);
  }
  // The same for [MetricsFile]; the printer is read only when something asks.
  std::unique_ptr<kps::MetricsFile> metrics;
  if (!optIn.MetricsFilePath.empty()) {
    const std::string problem = kps::writtenFileProblem(optIn.MetricsFilePath, optIn.LogFolder, optIn.StatusFilePath);
    if (problem.empty())
      metrics = std::make_unique<kps::MetricsFile>(optIn.MetricsFilePath, printer);
    else
      kps::logLine(KPS_TAG_TASK, __LINE__, "[MetricsFile] path refused, no metrics file is written: ", problem);
  }
  for (;;) {
    sharedDatabase->syncStatus(url);
    // Opt-in: without PictureRetentionDays nothing here runs.
    if (retentionDays > 0 && retention.due())
      kps::removeExpiredPictures(*sharedDatabase, retention, retentionDays, std::time(nullptr));
    if (metrics) metrics->writeIfDue(std::time(nullptr));
    if (status) status->writeIfDue(std::time(nullptr));
    // [MediaLow] alone still has the log say when the media runs low (read once a minute).
    if (optIn.MediaLowPrints > 0) printer.state();
    std::this_thread::sleep_for(2000ms);
  }
}

void taskPollLoop() {
  const kps::PrinterSettingsRecord settings = kps::publishedPrinterSettings();
  const std::string screenId = settings.screenId;
  const std::string url = kps::taskListUrl(settings.environment);
  for (;;) {
    sharedDatabase->fetchTaskList(screenId, url);
    std::this_thread::sleep_for(3000ms);
  }
}

}  // namespace

// The store the poll loop works through hands the fetch to the intake's own store object.
void kps::Database::fetchTaskList(std::string screenNumber, std::string url) {
  intakeDatabase.GetTaskList(screenNumber, url);
}

int main(int argc, char** argv) {
#ifdef _WIN32
  // Log lines are UTF-8: a console is told so; redirected output takes the bytes as they are.
  DWORD consoleMode = 0;
  if (GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &consoleMode)) SetConsoleOutputCP(CP_UTF8);
#endif
  if (argc > 1) return kps::runOperatorCommand(argc, argv);
  // libcurl's global set-up is not thread-safe: done once, before any worker starts.
  curl_global_init(CURL_GLOBAL_DEFAULT);
  // The print worker publishes PrinterSettings at its start, the other two loops take their
  // copy of it once at theirs; the pauses let it go first.
  std::thread printThread(printWorker);
  std::this_thread::sleep_for(50ms);
  std::thread syncThread(syncLoop);
  std::this_thread::sleep_for(500ms);
  std::thread pollThread(taskPollLoop);
  syncThread.detach();
  pollThread.detach();
  printThread.detach();
  for (;;) std::this_thread::sleep_for(500ms);
}
