// The print run's row outcomes over a real store file, with a scripted spooler: the copies'
// codes, the jobs found again after a stop, and copies that wait for a person at the printer.
#include <gtest/gtest.h>

#include <chrono>
#include <deque>
#include <functional>

#include "base/Utf8.h"
#include "printer/PrinterManager.h"
#include "printer/PrinterSettings.h"
#include "store/Database.h"
#include "store/PrinterWait.h"
#include "tests/support/Counted.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/TempDir.h"

namespace kps {
namespace {

using namespace std::chrono_literals;

// What the scripted spooler answers in place of a spooler layer, which this program does not
// link; each call it gets is noted.
struct Spooler {
  std::function<std::int32_t(const std::wstring& printer, const std::wstring& path, const std::string& type, CopyJob* copy)>
      print;
  std::deque<std::int32_t> jobIds;  // the id each new job gets (0: it fails before the spooler has it)
  std::function<std::int32_t(CopyJob& copy)> follow = [](CopyJob&) { return 0; };
  PrinterState state;  // before a copy
  std::vector<std::string> calls;
};
Spooler spooler;

}  // namespace

std::int32_t PrinterManager::PrintImage(const std::wstring& printer, const std::wstring& path, const std::string& type,
                                        CopyJob* copy) {
  const std::int32_t id = spooler.jobIds.empty() ? 0 : spooler.jobIds.front();
  if (!spooler.jobIds.empty()) spooler.jobIds.pop_front();
  spooler.calls.push_back("print " + (copy ? copy->name : std::string("?")));
  if (copy && id > 0) copy->jobId = id, copy->made(id);
  return spooler.print(printer, path, type, copy);
}
std::int32_t PrinterManager::FollowJob(const std::wstring&, CopyJob& copy) {
  spooler.calls.push_back("follow " + copy.name + " #" + std::to_string(copy.jobId));
  return spooler.follow(copy);
}
PrinterState PrinterManager::ReadPrinterState(const std::wstring&) { return spooler.state; }
std::string PrinterManager::CancelJob(const std::wstring&, std::int32_t jobId) {
  spooler.calls.push_back("cancel #" + std::to_string(jobId));
  return "";
}
bool PrinterManager::ResumePrinter(const std::wstring&) {
  spooler.calls.push_back("resume");
  return true;
}
bool PrinterManager::ReleaseJob(const std::wstring&, std::int32_t jobId) {
  spooler.calls.push_back("release #" + std::to_string(jobId));
  return true;
}

namespace {

class PrintRunTest : public ::testing::Test {
 protected:
  void SetUp() override {
    PrinterSettings.printerName = "Studio Printer";
    spooler = Spooler{};
    store.printerWait().clock = [this] { return now; };
  }
  void TearDown() override { PrinterSettings.waitForPrinterMinutes = 0; }
  // The copies of an order in table jobs: "copy:jobId:result", '-' for NULL.
  std::string copies(const std::string& uuid) {
    return file.scalar("SELECT group_concat(copy||':'||ifnull(jobId,'-')||':'||ifnull(result,'-'), ' ') FROM "
                       "(SELECT * FROM jobs WHERE uuid='" + uuid + "' ORDER BY copy)");
  }
  TempDir dir;
  Database store{dir.file("PrintData.db")};
  SqliteFile file{dir.file("PrintData.db")};
  std::chrono::steady_clock::time_point now{};
};

TEST_F(PrintRunTest, RowOutcomesCopyByCopy) {
  struct Case {
    const char* name;
    int copies;
    std::vector<int> codes;   // one per copy, in order
    std::string row;          // status|completedNumber|failReason after the run
    const char* closingLine;  // the run's last line for the order, or nullptr
    bool stamped;             // every change a copy made was followed by updateTime
    const char* counted;      // what the metrics count of it: once, as its final status says
  };
  const Case cases[] = {
      {"all_printed", 3, {0, 0, 0}, "2|3|-", "Print success ", true, "printed"},
      {"one_copy_failed", 1, {-7}, "4|-|IPP_TIME_OUT", nullptr, true, "failed IPP_TIME_OUT"},
      {"all_failed", 2, {-3, -6}, "4|-|IPP_JOB_HELD", nullptr, true, "failed IPP_JOB_HELD"},
      {"stopped", 1, {-4}, "4|-|IPP_JOB_STOPPED", nullptr, true, "failed IPP_JOB_STOPPED"},
      {"cancelled", 1, {-5}, "4|-|IPP_JOB_CANCELED", nullptr, true, "failed IPP_JOB_CANCELED"},
      {"aborted", 1, {-6}, "4|-|IPP_JOB_ABORTED", nullptr, true, "failed IPP_JOB_ABORTED"},
      {"first_failed_then_printed", 3, {-1, 0, 0}, "5|2|IPP_JOB_HELD_NOT_PRINTER", "Print faild PARTIAL_COMPLETED ", true,
       "partial"},
      {"first_printed_then_failed", 2, {0, -4}, "5|1|-", "Print faild PARTIAL_COMPLETED ", true, "partial"},
      {"zero_copies", 0, {}, "2|0|-", "Print success ", false, "printed"},  // no copy, no stamp
      {"negative_copies", -2, {}, "0|-|-", nullptr, false, ""},  // never final
      {"unnamed_failure", 1, {-9}, "4|-|", nullptr, true, "failed none"},
      {"unnamed_code_8", 1, {-8}, "4|-|", nullptr, true, "failed none"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_TRUE(store.insertOrder("local", "O", c.name, "/pics/a.jpg", 0, c.copies, "frames"));
    std::size_t next = 0;
    spooler.print = [&](const std::wstring& printer, const std::wstring& path, const std::string& type, CopyJob*) {
      EXPECT_EQ(printer + L"|" + path + L"|" + utf8ToWide(type), L"Studio Printer|/pics/a.jpg|frames");
      return next < c.codes.size() ? c.codes[next++] : 999;
    };
    OutputWatcher log;
    const Counted counted;
    store.printPendingOrders();
    EXPECT_EQ(next, c.codes.size());
    EXPECT_EQ(file.order(c.name), c.row);
    EXPECT_EQ(counted.since(), c.counted);
    EXPECT_EQ(file.scalar("SELECT updateTime IS NOT NULL FROM local WHERE uuid='" + std::string(c.name) + "'"),
              c.stamped ? "1" : "0");
    const std::string out = log.text();
    EXPECT_EQ(out.find("Print success ") != std::string::npos || out.find("PARTIAL_COMPLETED") != std::string::npos,
              c.closingLine != nullptr) << out;
    if (c.closingLine) {
      EXPECT_NE(out.find(std::string("] ") + c.closingLine + "\n"), std::string::npos) << out;
    }
    // Every copy made is recorded with its end: none is left for a later run.
    EXPECT_EQ(file.scalar("SELECT count(*) FROM jobs WHERE uuid='" + std::string(c.name) + "' AND result IS NULL"), "0");
    ASSERT_TRUE(file.exec("DELETE FROM local"));  // the next case's run sees only its own order
  }
}

TEST_F(PrintRunTest, StateAfterTheSecondOfThreeCopiesAndTheLines) {
  ASSERT_TRUE(store.insertOrder("local", "O", "T", "p.jpg", 0, 3, "postcards"));
  int copy = 0;
  std::string beforeThird;
  spooler.print = [&](const std::wstring&, const std::wstring&, const std::string&, CopyJob*) {
    if (++copy == 3) beforeThird = file.order("T");
    return copy == 1 ? -2 : 0;
  };
  OutputWatcher log;
  store.printPendingOrders();
  EXPECT_EQ(beforeThird, "2|2|IPP_JOB_FILE_NOT_EXIST");  // the ordinal of the copy, not a count
  EXPECT_EQ(file.order("T"), "5|2|IPP_JOB_FILE_NOT_EXIST");
  for (const char* line : {"] uuid : T\n", "] Print faild : IPP_JOB_FILE_NOT_EXIST\n", "] printImage failed \n"})
    EXPECT_NE(log.text().find(line), std::string::npos) << line;
}

TEST_F(PrintRunTest, WithdrawnAndIncompleteRowsAreNeverPrinted) {
  // A table without NOT NULL, as a file written by another program might hold: the run must
  // skip a row whose type is NULL rather than print it.
  ASSERT_TRUE(file.exec("DROP TABLE local; CREATE TABLE local (orderNo TEXT, uuid TEXT, path TEXT, status INTEGER, "
                        "syncTime TEXT, updateTime TEXT, printerName TEXT, failReason TEXT, deleteTime TEXT, createTime "
                        "TEXT, completedNumber INTEGER, realNumber INTEGER, type TEXT)"));
  ASSERT_TRUE(file.exec("INSERT INTO local (orderNo, uuid, path, status, deleteTime, realNumber, printerName, type) "
                        "VALUES ('O', 'withdrawn', 'p.jpg', 0, '2026-01-01', 2, 'Other Printer', 'frames'), "
                        "('O', 'empty-delete', 'p.jpg', 0, '', 1, 'Other Printer', 'frames'), "
                        "('O', 'no-type', 'p.jpg', 0, NULL, 1, NULL, NULL)"));
  std::vector<std::wstring> printed;
  spooler.print = [&](const std::wstring& printer, const std::wstring&, const std::string&, CopyJob*) {
    printed.push_back(printer);
    return 0;
  };
  OutputWatcher log;
  store.printPendingOrders();
  EXPECT_EQ(printed, std::vector<std::wstring>{L"Studio Printer"});  // the configured name, always
  EXPECT_EQ(file.order("withdrawn"), "3|0|-");
  EXPECT_NE(file.scalar("SELECT updateTime FROM local WHERE uuid='withdrawn'"), "NULL");
  EXPECT_EQ(file.order("empty-delete"), "2|1|-");
  EXPECT_EQ(file.order("no-type"), "0|-|-");
  EXPECT_NE(log.text().find("order skipped, NULL uuid, path or type: no-type"), std::string::npos);
}

// The service stopped with copies at the spooler (a power cut): a copy whose job was made is
// followed, not made again; one that was being made is looked for and made when the spooler
// never had it; the copies not made yet are made; those that ended count as they ended. An
// order printed by an older version, which recorded no copies, is left as it is.
TEST_F(PrintRunTest, AStoppedServicesCopiesAreFollowedAndTheRestMade) {
  struct Row {
    const char* name;
    int status, copies;
    std::string copiesBefore;  // "copy,jobId,result" rows of table jobs
    std::int32_t followed;     // what the spooler says of the job followed
    std::string row, calls, copiesAfter;
    std::string counted;  // by this process, which saw the order end
  };
  const Row rows[] = {
      {"one copy at the spooler", 0, 1, "(1, 7, NULL)", 0, "2|1|-", "follow Print Image T 1/1 #7", "1:7:0", "printed"},
      {"the second of three at the spooler", 2, 3, "(1, 5, 0), (2, 6, NULL), (3, NULL, NULL)", 0, "2|3|-",
       "follow Print Image T 2/3 #6, print Print Image T 3/3", "1:5:0 2:6:0 3:9:0", "printed"},
      {"being made, never at the spooler", 0, 1, "(1, 0, NULL)", kPrintNoJob, "2|1|-",
       "follow Print Image T 1/1 #0, print Print Image T 1/1", "1:9:0", "printed"},
      {"its job failed at the spooler", 0, 1, "(1, 7, NULL)", -1, "4|-|IPP_JOB_HELD_NOT_PRINTER", "follow Print Image T 1/1 #7",
       "1:7:-1", "failed IPP_JOB_HELD_NOT_PRINTER"},
      {"the first of two failed before the stop", 4, 2, "(1, NULL, -6), (2, NULL, NULL)", 0, "5|1|IPP_JOB_ABORTED",
       "print Print Image T 2/2", "1:-:-6 2:9:0", "partial"},
      {"printed by an older version", 2, 3, "", 0, "2|1|-", "", "NULL", ""},
  };
  spooler.print = [](const std::wstring&, const std::wstring&, const std::string&, CopyJob*) { return 0; };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    ASSERT_TRUE(file.exec("DELETE FROM local; DELETE FROM jobs;"));
    ASSERT_TRUE(store.insertOrder("local", "O", "T", "p.jpg", row.status, row.copies, "postcards"));
    ASSERT_TRUE(file.exec("UPDATE local SET completedNumber = 1, failReason = " +
                          std::string(row.status == 4 ? "'IPP_JOB_ABORTED'" : "NULL") + " WHERE status != 0"));
    if (!row.copiesBefore.empty()) {
      ASSERT_TRUE(file.exec("INSERT INTO jobs (uuid, copy, jobId, result, name) SELECT 'T', column1, column2, column3, "
                            "'Print Image T ' || column1 || '/" + std::to_string(row.copies) + "' FROM (VALUES " +
                            row.copiesBefore + ")"));
    }
    spooler.calls.clear();
    spooler.jobIds = {9};
    spooler.follow = [&](CopyJob&) { return row.followed; };
    const Counted counted;
    store.printPendingOrders();
    EXPECT_EQ(file.order("T"), row.row);
    EXPECT_EQ(counted.since(), row.counted);
    std::string calls;
    for (const auto& call : spooler.calls) calls += (calls.empty() ? "" : ", ") + call;
    EXPECT_EQ(calls, row.calls);
    EXPECT_EQ(copies("T"), row.copiesAfter);
    EXPECT_FALSE(store.waitingForPrinter());
  }
}

// [WaitForPrinter]: a printer that needs a person gets no new job and the order stays pending,
// said once; a job the printer stops on waits at the spooler, its queue given back to its driver
// at most once a minute; when the printer is back the copy prints once; after the minutes the
// copy fails as it would have without waiting, its job cancelled first.
TEST_F(PrintRunTest, ACopyWaitsForAPersonThenPrintsOnceOrFailsWithNothingLeft) {
  PrinterSettings.waitForPrinterMinutes = 10;
  const auto state = [](std::vector<Condition> conditions) {
    PrinterState s;
    s.known = true;
    for (Condition c : conditions) s.conditions.push_back({c, Severity::Error});
    return s;
  };
  Counted counted;
  const auto run = [&](std::chrono::seconds later) {
    now += later;
    spooler.calls.clear();
    store.printPendingOrders();
    std::string calls;
    for (const auto& call : spooler.calls) calls += (calls.empty() ? "" : ", ") + call;
    return calls;
  };
  std::int32_t printed = 0;
  spooler.print = [&](const std::wstring&, const std::wstring&, const std::string&, CopyJob* copy) {
    if (copy->jobId == 11) {  // the job the printer stops on: paper out, the driver stops its queue
      copy->seen = state({Condition::MediaEmpty, Condition::StoppedByDriver});
      copy->fault = -2;
      return kPrintWaiting;
    }
    if (copy->jobId == 12) return -6;  // a picture refused: a failure of the copy's own
    return ++printed, 0;
  };
  OutputWatcher log;

  // Out of paper before the order: no job, and the order waits.
  ASSERT_TRUE(store.insertOrder("local", "O", "A", "a.jpg", 0, 1, "postcards"));
  spooler.state = state({Condition::MediaEmpty});
  EXPECT_EQ(run(0s), "");
  EXPECT_TRUE(store.waitingForPrinter());
  EXPECT_EQ(run(10s), "");
  EXPECT_EQ(file.order("A"), "0|-|-");
  EXPECT_EQ(count(log.text(), "] printer needs a person: out of paper (media-empty)\n"), 1u);
  EXPECT_EQ(counted.since(), "");  // a waiting order is not final
  spooler.state = state({});
  spooler.jobIds = {10};
  EXPECT_EQ(run(10s), "print Print Image A 1/1");
  EXPECT_EQ(file.order("A"), "2|1|-");
  EXPECT_EQ(counted.since(), "printed");
  EXPECT_FALSE(store.waitingForPrinter());
  EXPECT_EQ(count(log.text(), "] printer is back, printing again\n"), 1u);

  // The paper runs out on the job: it waits at the spooler; the stopped queue is given back to
  // the driver at once and then once a minute; after ten minutes the job is cancelled.
  ASSERT_TRUE(store.insertOrder("local", "O", "B", "b.jpg", 0, 1, "postcards"));
  spooler.jobIds = {11};
  spooler.follow = [&](CopyJob& copy) {
    copy.seen = state({Condition::MediaEmpty, Condition::StoppedByDriver});
    copy.fault = -2;
    return kPrintWaiting;
  };
  EXPECT_EQ(run(0s), "print Print Image B 1/1, resume, release #11");
  EXPECT_EQ(run(10s), "follow Print Image B 1/1 #11");
  EXPECT_EQ(run(51s), "follow Print Image B 1/1 #11, resume, release #11");
  EXPECT_EQ(file.order("B"), "0|-|-");
  EXPECT_EQ(counted.since(), "printed");
  EXPECT_EQ(run(10min), "follow Print Image B 1/1 #11, cancel #11");
  EXPECT_EQ(file.order("B"), "4|-|IPP_JOB_FILE_NOT_EXIST");
  EXPECT_EQ(counted.since(), "printed, failed IPP_JOB_FILE_NOT_EXIST");
  EXPECT_NE(log.text().find("] printer needed a person too long, its job cancelled: Print Image B 1/1\n"), std::string::npos);

  // Still needing a person past the minutes, a copy fails at once, with no job: an operator's
  // pause, which stays paused, is a printer that matches nothing.
  spooler.state = state({Condition::PausedByOperator});
  ASSERT_TRUE(store.insertOrder("local", "O", "C", "c.jpg", 0, 1, "postcards"));
  EXPECT_EQ(run(0s), "");
  EXPECT_EQ(file.order("C"), "4|-|IPP_JOB_HELD_NOT_PRINTER");
  EXPECT_EQ(printed, 1);
  EXPECT_EQ(counted.since(), "printed, failed IPP_JOB_FILE_NOT_EXIST, failed IPP_JOB_HELD_NOT_PRINTER");

  // Seen ready again, though its next copy fails for a reason of its own: the printer's next
  // need is waited for again, not failed at once.
  spooler.state = state({});
  spooler.jobIds = {12};
  ASSERT_TRUE(store.insertOrder("local", "O", "D", "d.jpg", 0, 1, "postcards"));
  EXPECT_EQ(run(0s), "print Print Image D 1/1");
  EXPECT_EQ(file.order("D"), "4|-|IPP_JOB_ABORTED");
  spooler.state = state({Condition::MediaEmpty});
  ASSERT_TRUE(store.insertOrder("local", "O", "E", "e.jpg", 0, 1, "postcards"));
  EXPECT_EQ(run(0s), "");
  EXPECT_TRUE(store.waitingForPrinter());
  EXPECT_EQ(file.order("E"), "0|-|-");
}

}  // namespace
}  // namespace kps
