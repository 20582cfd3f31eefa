// The print run's row outcomes over a real store file, with a scripted printer.
#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "printer/PrinterSettings.h"
#include "src/Database.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/ScriptedPrinterManager.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/TempDir.h"

namespace kps {
namespace {

struct OutcomeCase {
  const char* name;
  int copies;
  std::vector<int> codes;  // one per copy, in order
  std::string row;         // status|completedNumber|failReason after the run
  const char* closingLine; // the run's last line for the order, or nullptr
  bool stamped;            // every change a copy made was followed by updateTime
};

class PrintRunTest : public ::testing::Test {
 protected:
  void SetUp() override { PrinterSettings.printerName = "Studio Printer"; }
  void TearDown() override { scriptedPrintImage = nullptr; }
  std::string row(const std::string& uuid) {
    return file.scalar("SELECT status||'|'||ifnull(completedNumber,'-')||'|'||"
                       "ifnull(failReason,'-') FROM local WHERE uuid='" + uuid + "'");
  }
  TempDir dir;
  Database store{dir.file("PrintData.db")};
  SqliteFile file{dir.file("PrintData.db")};
};

TEST_F(PrintRunTest, RowOutcomesCopyByCopy) {
  const OutcomeCase cases[] = {
      {"all_printed", 3, {0, 0, 0}, "2|3|-", "Print success ", true},
      {"one_copy_failed", 1, {-7}, "4|-|IPP_TIME_OUT", nullptr, true},
      {"all_failed", 2, {-3, -6}, "4|-|IPP_JOB_HELD", nullptr, true},
      {"first_failed_then_printed", 3, {-1, 0, 0}, "5|2|IPP_JOB_HELD_NOT_PRINTER",
       "Print faild PARTIAL_COMPLETED ", true},
      {"first_printed_then_failed", 2, {0, -4}, "5|1|-", "Print faild PARTIAL_COMPLETED ", true},
      {"zero_copies", 0, {}, "2|0|-", "Print success ", false},  // no copy, no stamp
      {"negative_copies", -2, {}, "0|-|-", nullptr, false},
      {"unnamed_failure", 1, {-9}, "4|-|", nullptr, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_TRUE(store.insertOrder("local", "O", c.name, "/pics/a.jpg", 0, c.copies, "frames"));
    std::size_t next = 0;
    scriptedPrintImage = [&](const std::wstring& printer, const std::wstring& path,
                             const std::string& type) {
      EXPECT_EQ(printer, L"Studio Printer");
      EXPECT_EQ(path, L"/pics/a.jpg");
      EXPECT_EQ(type, "frames");
      return next < c.codes.size() ? c.codes[next++] : 999;
    };
    OutputWatcher log;
    store.printPendingOrders();
    EXPECT_EQ(next, c.codes.size());
    EXPECT_EQ(row(c.name), c.row);
    EXPECT_EQ(file.scalar("SELECT updateTime IS NOT NULL FROM local WHERE uuid='" + std::string(c.name) + "'"),
              c.stamped ? "1" : "0");
    const std::string out = log.text();
    if (c.closingLine) {
      EXPECT_NE(out.find(std::string("] ") + c.closingLine + "\n"), std::string::npos) << out;
    } else {
      EXPECT_EQ(out.find("Print success "), std::string::npos) << out;
      EXPECT_EQ(out.find("PARTIAL_COMPLETED"), std::string::npos) << out;
    }
    // Clear the row so the next case's run sees only its own order.
    ASSERT_TRUE(file.exec("DELETE FROM local WHERE uuid='" + std::string(c.name) + "'"));
  }
}

TEST_F(PrintRunTest, StateAfterTheSecondOfThreeCopies) {
  ASSERT_TRUE(store.insertOrder("local", "O", "T", "p.jpg", 0, 3, "postcards"));
  int copy = 0;
  std::string beforeThird;
  scriptedPrintImage = [&](const std::wstring&, const std::wstring&, const std::string&) {
    if (++copy == 3) beforeThird = row("T");
    return copy == 1 ? -2 : 0;
  };
  OutputWatcher log;
  store.printPendingOrders();
  EXPECT_EQ(beforeThird, "2|2|IPP_JOB_FILE_NOT_EXIST");  // the ordinal of the copy, not a count
  EXPECT_EQ(row("T"), "5|2|IPP_JOB_FILE_NOT_EXIST");
  EXPECT_NE(log.text().find("] uuid : T\n"), std::string::npos);
  EXPECT_NE(log.text().find("] Print faild : IPP_JOB_FILE_NOT_EXIST\n"), std::string::npos);
  EXPECT_NE(log.text().find("] printImage failed \n"), std::string::npos);
}

TEST_F(PrintRunTest, WithdrawnAndIncompleteRowsAreNeverPrinted) {
  // A table without NOT NULL, as a file written by another program might hold: the run must
  // skip a row whose type is NULL rather than print it.
  ASSERT_TRUE(file.exec("DROP TABLE local; CREATE TABLE local (orderNo TEXT, uuid TEXT, path TEXT, "
                        "status INTEGER, syncTime TEXT, updateTime TEXT, printerName TEXT, "
                        "failReason TEXT, deleteTime TEXT, createTime TEXT, completedNumber "
                        "INTEGER, realNumber INTEGER, type TEXT)"));
  ASSERT_TRUE(file.exec("INSERT INTO local (orderNo, uuid, path, status, deleteTime, realNumber, "
                        "printerName, type) VALUES "
                        "('O', 'withdrawn', 'p.jpg', 0, '2026-01-01', 2, 'Other Printer', 'frames'), "
                        "('O', 'empty-delete', 'p.jpg', 0, '', 1, 'Other Printer', 'frames'), "
                        "('O', 'no-type', 'p.jpg', 0, NULL, 1, NULL, NULL)"));
  std::vector<std::string> printed;
  scriptedPrintImage = [&](const std::wstring& printer, const std::wstring&, const std::string&) {
    printed.push_back(std::string(printer.begin(), printer.end()));
    return 0;
  };
  OutputWatcher log;
  store.printPendingOrders();
  EXPECT_EQ(printed, std::vector<std::string>{"Studio Printer"});  // the configured name always
  EXPECT_EQ(row("withdrawn"), "3|0|-");
  EXPECT_NE(file.scalar("SELECT updateTime FROM local WHERE uuid='withdrawn'"), "NULL");
  EXPECT_EQ(row("empty-delete"), "2|1|-");
  EXPECT_EQ(row("no-type"), "0|-|-");
  EXPECT_NE(log.text().find("order skipped, NULL uuid, path or type: no-type"), std::string::npos);
}

TEST(PrintResultName, OnlyMinusSevenToMinusOneHaveNames) {
  const std::map<int, std::string> names = {
      {-1, "IPP_JOB_HELD_NOT_PRINTER"}, {-2, "IPP_JOB_FILE_NOT_EXIST"}, {-3, "IPP_JOB_HELD"},
      {-4, "IPP_JOB_STOPPED"}, {-5, "IPP_JOB_CANCELED"}, {-6, "IPP_JOB_ABORTED"},
      {-7, "IPP_TIME_OUT"}};
  for (int code = -12; code <= 2; ++code) {
    const auto found = names.find(code);
    EXPECT_EQ(Database::printResultName(code), found == names.end() ? "" : found->second) << code;
  }
}

}  // namespace
}  // namespace kps
