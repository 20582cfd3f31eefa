// [WaitForPrinter] on a real scheduler: the print run over a store file, its copy's job at a
// private CUPS whose test backend runs out of paper the ways real drivers do (keeps the job
// processing, stops its queue, holds its job), goes offline, stalls, or meets an operator's
// pause. In every row what came out is what the order tells the backend.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <regex>

#include "base/Utf8.h"
#include "printer/PrintDecisions.h"
#include "printer/PrinterSettings.h"
#include "store/Database.h"
#include "store/PrinterWait.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/PrivateCups.h"
#include "tests/support/Shell.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/WaitUntil.h"

namespace kps {
namespace {

using namespace std::chrono_literals;

PrivateCups* cups = nullptr;

class PrinterNeedsAPerson : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { cups = new PrivateCups; }  // one scheduler for the whole program
  static void TearDownTestSuite() { delete cups; }
  void SetUp() override {
    PrinterSettings = PrinterSettingsRecord{};
    PrinterSettings.printerName = "kps-script";
    PrinterSettings.fourWidth = 100, PrinterSettings.fourHeight = 150, PrinterSettings.rearfeeder = 7;
    PrinterSettings.fourSize = 256, PrinterSettings.threeSize = 258;
    PrinterSettings.waitForPrinterMinutes = 10;
    jobWaitTiming() = JobWaitTiming{50, 100, 3000};
    store.printerWait().clock = [this] { return now; };
    ASSERT_TRUE(writeTestJpeg(picture, 40, 60));
  }
  void TearDown() override {
    PrinterSettings = PrinterSettingsRecord{};
    jobWaitTiming() = JobWaitTiming{};
    tidy();
  }
  // The queue as it was: running, accepting, holding nothing, no fault left from a backend.
  void tidy() {
    sh("lpadmin -p kps-script -o job-hold-until-default=no-hold; cancel -a kps-script; cupsenable kps-script; "
       "cupsaccept kps-script");
    // A backend's printer-state-reasons outlive its job: the next job's backend clears them.
    cups->setScriptMode("ok");
    sh("lp -d kps-script " + dir.write("clear.txt", "page\n"));
    waitUntil([] { return output("lpstat -o kps-script").empty(); }, 20s);
  }
  // One run of the print worker, a step of the run's clock after the last.
  void run(std::chrono::seconds later) {
    now += later;
    store.printPendingOrders();
  }
  std::string order() { return file.order("T"); }
  int lastJob() { return newestCupsJob(); }

  TempDir dir;
  const std::string picture = dir.file("photo.jpg");
  Database store{dir.file("PrintData.db")};
  SqliteFile file{dir.file("PrintData.db")};
  std::chrono::steady_clock::time_point now{};
};

TEST_F(PrinterNeedsAPerson, WhatComesOutIsWhatTheBackendIsTold) {
  const auto shell = [](const std::string& command) { return [command] { ASSERT_EQ(sh(command), 0); }; };
  const auto refill = [](int) { cups->setScriptMode("ok"); };
  struct Row {
    const char* situation;
    const char* mode;               // the backend as the copy's job reaches it
    std::function<void()> before;   // the printer before the copy
    bool waits;                     // the first run leaves the copy waiting
    std::function<void(int job)> person;  // someone comes; none: the wait runs out
    std::string told;               // the order at the end
    bool comesOut;
    const char* line = "";          // a line the wait logs
    std::function<bool()> settled = nullptr;  // where the spooler moves on by itself: the state the wait runs out in
  };
  const Row rows[] = {
      {"Paper out, the job kept processing, refilled", "media-empty", nullptr, true, refill, "2|1|-", true,
       "] printer needs a person: out of paper (media-empty)\n"},
      {"Paper out, the driver stops its queue, refilled", "media-empty-stop", nullptr, true, refill, "2|1|-", true,
       "] printer needs a person: out of paper (media-empty), stopped by its driver (stopped)\n"},
      {"Paper out, the driver holds the job, refilled", "media-empty-hold", nullptr, true, refill, "2|1|-", true},
      {"Printer switched off during the job, back", "offline", nullptr, true, refill, "2|1|-", true,
       "] printer needs a person: offline (offline)\n"},
      {"Printer stopped by an operator before a copy, resumed", "ok", shell("cupsdisable kps-script"), true,
       [](int) { sh("cupsenable kps-script"); }, "2|1|-", true, "] printer needs a person: paused by an operator (paused)\n"},
      {"A queue refusing jobs before a copy, accepting again", "ok", shell("cupsreject kps-script"), true,
       [](int) { sh("cupsaccept kps-script"); }, "2|1|-", true},
      {"A job held, released", "ok", shell("lpadmin -p kps-script -o job-hold-until-default=indefinite"), true,
       [](int job) { sh("lpadmin -p kps-script -o job-hold-until-default=no-hold; lp -i kps-script-" + std::to_string(job) + " -H resume"); },
       "2|1|-", true},
      // Nobody comes: after the minutes the copy fails as it would have without waiting, and
      // nothing of it comes out afterwards.
      {"Paper out, the job kept processing, the wait runs out", "media-empty", nullptr, true, nullptr,
       "4|-|IPP_JOB_HELD", false, "] printer needed a person too long, its job cancelled: Print Image T 1/1\n"},
      {"Paper out, the driver stops its queue, the wait runs out", "media-empty-stop", nullptr, true, nullptr,
       "4|-|IPP_JOB_FILE_NOT_EXIST", false, "", [] { return output("lpstat -p kps-script").find("disabled") != std::string::npos; }},
      {"Paper out, the driver holds the job, the wait runs out", "media-empty-hold", nullptr, true, nullptr,
       "4|-|IPP_JOB_HELD", false},
      {"Printer switched off during the job, the wait runs out", "offline", nullptr, true, nullptr,
       "4|-|IPP_JOB_FILE_NOT_EXIST", false},
      {"Printer stopped by an operator, the wait runs out", "ok", shell("cupsdisable kps-script"), true, nullptr,
       "4|-|IPP_JOB_HELD_NOT_PRINTER", false},
      {"A job held, the wait runs out", "ok", shell("lpadmin -p kps-script -o job-hold-until-default=indefinite"), true,
       nullptr, "4|-|IPP_TIME_OUT", false},
      // A printer that stalls without a word is nothing a person is waited for: its minute ends
      // the copy, and the job is cancelled so that it never prints later.
      {"Paper out mid-job, refilled after the time-out", "hang", nullptr, false, nullptr, "4|-|IPP_TIME_OUT", false},
      {"A job still waiting behind another after a second", "ok", shell("lp -d kps-script " + dir.write("ahead.txt", "x\n")),
       false, nullptr, "2|1|-", true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.situation);
    ASSERT_TRUE(file.exec("DELETE FROM local; DELETE FROM jobs;"));
    store.printerWait().back();  // the last row's printer was seen printing again
    ASSERT_TRUE(store.insertOrder("local", "O", "T", picture, 0, 1, "postcards"));
    cups->setScriptMode(row.mode);
    // Where someone comes, the wait never runs out before the real time this test allows them.
    PrinterSettings.waitForPrinterMinutes = row.person ? 100000 : 10;
    if (row.before) row.before();
    const int last = lastJob();
    OutputWatcher log;
    // The first run: the copy waits (its job at the spooler, or none while the queue is stopped).
    run(0s);
    EXPECT_EQ(store.waitingForPrinter(), row.waits) << order();
    if (row.waits) {
      EXPECT_EQ(order(), "0|-|-");
      if (row.person) {
        row.person(lastJob() > last ? lastJob() : 0);
        // The worker looks again every few seconds; a stopped queue is given back to its
        // driver once a minute.
        EXPECT_TRUE(waitUntil([&] { return run(61s), !store.waitingForPrinter(); }, 60s)) << order();
      } else {
        if (row.settled) {
          ASSERT_TRUE(waitUntil(row.settled, 20s));
        }
        run(11min);
      }
    }
    EXPECT_EQ(order(), row.told);
    EXPECT_FALSE(store.waitingForPrinter());
    EXPECT_NE(log.text().find(row.line), std::string::npos) << log.text();
    const int job = lastJob() > last ? lastJob() : 0;
    ASSERT_TRUE(waitUntil([&] { return job == 0 || output("lpstat -o").find("-" + std::to_string(job) + " ") == std::string::npos; }, 30s));
    // The person comes after all: what was failed stays out.
    cups->setScriptMode("ok");
    sh("cupsenable kps-script; cupsaccept kps-script");
    const std::string pages = "\n" + cups->pages();
    EXPECT_EQ(job > 0 && pages.find("\n" + std::to_string(job) + "\n") != std::string::npos, row.comesOut) << pages;
    tidy();
  }
}

}  // namespace
}  // namespace kps
