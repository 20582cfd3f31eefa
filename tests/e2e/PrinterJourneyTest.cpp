// The service's journeys at the printer, through the real binary against the sandbox's private
// scheduler and its scriptable test queue: paper out, a driver's stop, an operator's pause, the
// wait for a person and its end, a power cut mid-job. What came out is what the backend is told.
#include <gtest/gtest.h>

#include "tests/e2e/Journey.h"
#include "tests/support/PrometheusText.h"

namespace kps {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KPS_REAL_MINUTES_SKIPPED GTEST_SKIP() << "minutes of real waiting: the plain build's journeys take them"
#else
#define KPS_REAL_MINUTES_SKIPPED (void)0
#endif

// The power cut mid-job, for a one-copy order and during the second copy of a three-copy one,
// with and without [WaitForPrinter]: the job already handed over still comes out, and the
// service started again follows it (no new order needed, no job made twice), then makes the
// copies not made yet. What came out is what the backend is told.
TEST_F(ServiceJourney, KilledMidJobAndStartedAgain) {
  for (const bool waits : {false, true}) {
    SCOPED_TRACE(waits ? "with [WaitForPrinter]" : "as always");
    const std::string one = waits ? "T-one-w" : "T-one", three = waits ? "T-three-w" : "T-three";
    writeConfig("kps-script", "256", "258");
    if (waits) addToConfig("[WaitForPrinter]\nminutes=5\n");
    root.write("sandbox/cups/script-mode", "hang");  // each job waits until the test releases it
    for (const std::string& key : {"p/" + one + ".jpg", "p/" + three + ".jpg"}) putPicture(key);
    const auto jobAfter = [&](int job) {
      EXPECT_TRUE(waitUntil([&] { return lastJob() > job; }, 60s));
      return lastJob();
    };
    const auto release = [&](int job) { root.write("sandbox/cups/release-" + std::to_string(job), ""); };
    const std::set<int> before = pagesOut();
    const auto newPages = [&] {
      std::set<int> pages;
      for (int job : pagesOut())
        if (!before.count(job)) pages.insert(job);
      return pages;
    };
    SqliteFile db(root.file("work/PrintData.db"));

    // A one-copy order: the power cut with its job at the printer; the page comes out while the
    // service is down, and the service started again follows that job, makes none.
    setTasks({task(one, "p/" + one + ".jpg")});
    startService();
    const int first = jobAfter(lastJob());
    service->kill();
    release(first);
    startService();
    ASSERT_TRUE(waitUntil([&] { return lastReport(one) == report(one, 2, 1); }, 60s)) << syncLog() << service->out();
    EXPECT_EQ(db.order(one), "2|1|-");

    // A three-copy order: the power cut during the second copy, the first already counted.
    setTasks({task(one, "p/" + one + ".jpg"), task(three, "p/" + three + ".jpg", 3)});
    const int copy1 = jobAfter(first);
    release(copy1);
    const int copy2 = jobAfter(copy1);
    ASSERT_TRUE(waitUntil([&] { return db.order(three) == "2|1|-"; }, 30s)) << db.order(three);
    service->kill();
    release(copy2);
    startService();
    const int copy3 = jobAfter(copy2);
    // The status sync stamps whole seconds, and a row that changes again in the second of its
    // stamp is not reported until it changes once more: the third page comes out after that
    // second, as a real printer's page does.
    const std::string where = " FROM local WHERE uuid='" + three + "'";
    ASSERT_TRUE(waitUntil([&] {
      return db.order(three) == "2|2|-" && db.scalar("SELECT syncTime >= updateTime" + where) == "1" &&
             db.scalar("SELECT datetime('now', 'localtime') > syncTime" + where) == "1";
    }, 30s)) << db.order(three);
    release(copy3);
    ASSERT_TRUE(waitUntil([&] { return lastReport(three) == report(three, 2, 3); }, 60s)) << syncLog() << service->out();
    EXPECT_EQ(db.order(three), "2|3|-");
    // What came out is what the backend was told: one page, then three; no job made twice.
    ASSERT_TRUE(waitUntil([&] { return newPages().size() == 4; }, 30s));
    EXPECT_EQ(newPages(), (std::set<int>{first, copy1, copy2, copy3}));
    EXPECT_EQ(lastJob(), copy3);
    service.reset();
  }
}

// [WaitForPrinter]: paper out before an order (the driver's count at none), refilled five
// minutes later: the order waits pending while the intake goes on storing the next one, then
// both print once and the backend is told printed once each; one line when the printer needed a
// person, one when it was back.
TEST_F(ServiceJourney, PaperOutBeforeAnOrderRefilledAfterFiveMinutes) {
  KPS_REAL_MINUTES_SKIPPED;
  writeConfig("kps-script", "256", "258");
  addToConfig("[WaitForPrinter]\nminutes=10\n");
  setMediaLeft(0);
  for (const char* key : {"p/a.jpg", "p/b.jpg"}) putPicture(key);
  setTasks({task("T-a", "p/a.jpg")});
  startService();
  ASSERT_TRUE(service->waitForOutput("] printer needs a person: out of paper (media-empty)\n", 60s)) << service->out();
  const int job = lastJob();
  setTasks({task("T-a", "p/a.jpg"), task("T-b", "p/b.jpg")});
  SqliteFile db(root.file("work/PrintData.db"));
  ASSERT_TRUE(waitUntil([&] { return db.order("T-b") == "0|-|-"; }, 30s)) << "the intake waited for the printer";
  // Nobody comes for five minutes: all that time the order waits, pending and unreported, with
  // its one job, and no job is made for the next.
  EXPECT_FALSE(waitUntil([&] { return db.order("T-a") != "0|-|-" || !lastReport("T-a").empty() || lastJob() != job; }, 5min))
      << db.order("T-a") << " " << lastReport("T-a") << " " << lastJob();
  setMediaLeft(400);
  ASSERT_TRUE(waitUntil([&] { return lastReport("T-b") == report("T-b", 2, 1); }, 60s)) << syncLog() << service->out();
  EXPECT_EQ(lastReport("T-a"), report("T-a", 2, 1));
  EXPECT_EQ(count(syncLog(), "\"taskId\":\"T-a\""), 1u);
  EXPECT_EQ(pagesOut(), (std::set<int>{job, job + 1}));
  EXPECT_EQ(count(service->out(), "] printer needs a person: "), 1u) << service->out();
  EXPECT_EQ(count(service->out(), "] printer is back, printing again\n"), 1u) << service->out();
}

// [WaitForPrinter] minutes=1 the ways a printer needs a person: paper out mid-job with the job
// kept processing, a driver that stops its queue (resumed by the service once the paper is back),
// an operator's pause (no job is made, nothing is resumed), and the wait running out (the job
// cancelled: the order failed, and nothing comes out after the refill). What came out is what
// the backend was told, every time.
TEST_F(ServiceJourney, APrinterThatNeedsAPersonIsWaitedFor) {
  KPS_REAL_MINUTES_SKIPPED;
  writeConfig("kps-script", "256", "258");
  addToConfig("[WaitForPrinter]\nminutes=1\n");
  std::vector<std::string> tasks;
  const auto order = [&](const std::string& id) {
    putPicture("p/" + id + ".jpg");
    tasks.push_back(task(id, "p/" + id + ".jpg"));
    setTasks(tasks);
  };
  const auto mode = [&](const char* m) { root.write("sandbox/cups/script-mode", std::string(m) + "\n"); };
  startService();
  const auto printedOnce = [&](const std::string& id, int job) {
    EXPECT_TRUE(waitUntil([&] { return lastReport(id) == report(id, 2, 1); }, 90s)) << id << syncLog() << service->out();
    EXPECT_TRUE(waitUntil([&] { return pagesOut().count(job) == 1; }, 10s)) << id;
    EXPECT_EQ(lastJob(), job) << id << ": a job made twice";
  };

  // Paper out mid-job: the job waits at the printer until the paper is back.
  mode("media-empty");
  order("T-mid");
  ASSERT_TRUE(service->waitForOutput("] printer needs a person: out of paper (media-empty)\n", 60s)) << service->out();
  const int mid = lastJob();
  mode("ok");
  printedOnce("T-mid", mid);

  // The driver stops its queue: the service gives it back to the driver once the paper is back.
  mode("media-empty-stop");
  order("T-stop");
  ASSERT_TRUE(waitUntil([] { return output("CUPS_SERVER=localhost:18631 lpstat -p kps-script").find("disabled") != std::string::npos; }, 60s));
  const int stopped = lastJob();
  mode("ok");
  printedOnce("T-stop", stopped);
  EXPECT_GE(count(root.read("sandbox/cups/log/access_log"), "Resume-Printer successful-ok"), 1u);

  // An operator's pause: no job is made while it lasts, and it is not undone.
  ASSERT_EQ(sh("CUPS_SERVER=localhost:18631 cupsdisable kps-script"), 0);
  const int before = lastJob();
  const std::size_t resumed = count(root.read("sandbox/cups/log/access_log"), "Resume-Printer");
  order("T-paused");
  ASSERT_TRUE(service->waitForOutput("] printer needs a person: paused by an operator (paused)\n", 60s)) << service->out();
  EXPECT_EQ(lastJob(), before);
  EXPECT_EQ(count(root.read("sandbox/cups/log/access_log"), "Resume-Printer"), resumed);
  ASSERT_EQ(sh("CUPS_SERVER=localhost:18631 cupsenable kps-script"), 0);
  printedOnce("T-paused", before + 1);

  // Nobody comes: after the minute the job is cancelled and the order fails as it would have.
  mode("media-empty");
  order("T-out");
  ASSERT_TRUE(waitUntil([&] { return lastReport("T-out") == report("T-out", 4, 0, "IPP_JOB_HELD"); }, 150s))
      << syncLog() << service->out();
  const int cancelled = lastJob();
  mode("ok");
  ASSERT_TRUE(waitUntil([] { return output("CUPS_SERVER=localhost:18631 lpstat -o").empty(); }, 30s));
  EXPECT_EQ(pagesOut().count(cancelled), 0u);
}

// Prints left where an operator looks, through the whole service: a queue whose driver reports
// its media after every job (the test backend does it as dye-sub drivers do) shows the prints
// left in the status file and the metrics file going down by one a print, low at [MediaLow], and
// out of media at none; --status needs attention then. The printer is read at most once a minute.
TEST_F(ServiceJourney, PrintsLeftGoDownWhereOperatorsLook) {
  KPS_REAL_MINUTES_SKIPPED;
  writeConfig("kps-script", "256", "258");
  addToConfig("[StatusFile]\npath=status.json\n[MetricsFile]\npath=kiosk.prom\n[MediaLow]\nprints=1\n");
  setMediaLeft(2);
  for (const char* key : {"p/1.jpg", "p/2.jpg"}) putPicture(key);
  // The metrics file says the same: the prints left, and the condition's series.
  const auto metric = [&](const std::string& series, double value) {
    const auto samples = prometheusSamples(root.read(work + "/kiosk.prom"));
    const auto found = samples.find(series);
    return found != samples.end() && found->second == value;
  };
  const std::string prints = "kioskprint_printer_media_remaining_prints{media=\"4x6\",printer=\"kps-script\"}";
  const auto printer = [&](const std::string& object) {
    return waitUntil([&] { return root.read(work + "/status.json").find("\"printer\":{\"name\":\"kps-script\"," + object) != std::string::npos; },
                     150s);
  };
  setTasks({task("T-1", "p/1.jpg")});
  startService();
  ASSERT_TRUE(waitUntil([&] { return lastReport("T-1") == report("T-1", 2, 1); }, 60s)) << syncLog();
  EXPECT_TRUE(printer(R"("ready":true,"conditions":["media-low"],"message":null,"media":"4x6","remainingPrints":1})"))
      << root.read(work + "/status.json");
  EXPECT_TRUE(waitUntil([&] { return metric(prints, 1); }, 40s)) << root.read(work + "/kiosk.prom");
  setTasks({task("T-1", "p/1.jpg"), task("T-2", "p/2.jpg")});
  ASSERT_TRUE(waitUntil([&] { return lastReport("T-2") == report("T-2", 2, 1); }, 60s)) << syncLog();
  EXPECT_TRUE(printer(R"("ready":false,"conditions":["media-empty"],"message":null,"media":"4x6","remainingPrints":0})"))
      << root.read(work + "/status.json");
  EXPECT_TRUE(waitUntil([&] {
    return metric(prints, 0) && metric("kioskprint_printer_condition{condition=\"media-empty\",printer=\"kps-script\"}", 1) &&
           metric("kioskprint_printer_ready{printer=\"kps-script\"}", 0);
  }, 40s)) << root.read(work + "/kiosk.prom");
  EXPECT_NE(service->out().find("] printer condition: media-low\n"), std::string::npos) << service->out();
  EXPECT_NE(service->out().find("] printer condition: media-empty\n"), std::string::npos) << service->out();
  EXPECT_EQ(runCommand({"--status"}), 1) << commandOut;
  EXPECT_NE(commandOut.find("attention: the printer needs a person: out of paper (media-empty)\n"), std::string::npos) << commandOut;
}

}  // namespace
}  // namespace kps
