// The print run's row outcomes over a real store file, with a scripted printer.
#include <gtest/gtest.h>

#include <functional>

#include "base/Utf8.h"
#include "printer/PrinterManager.h"
#include "printer/PrinterSettings.h"
#include "store/Database.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/TempDir.h"

namespace kps {
namespace {

// Called for every copy in place of a spooler layer, which this program does not link.
std::function<std::int32_t(const std::wstring& printer, const std::wstring& path, const std::string& type)>
    scriptedPrintImage;

}  // namespace

std::int32_t PrinterManager::PrintImage(const std::wstring& printer, const std::wstring& path, const std::string& type) {
  return scriptedPrintImage(printer, path, type);
}

namespace {

class PrintRunTest : public ::testing::Test {
 protected:
  void SetUp() override { PrinterSettings.printerName = "Studio Printer"; }
  void TearDown() override { scriptedPrintImage = nullptr; }
  TempDir dir;
  Database store{dir.file("PrintData.db")};
  SqliteFile file{dir.file("PrintData.db")};
};

TEST_F(PrintRunTest, RowOutcomesCopyByCopy) {
  struct Case {
    const char* name;
    int copies;
    std::vector<int> codes;   // one per copy, in order
    std::string row;          // status|completedNumber|failReason after the run
    const char* closingLine;  // the run's last line for the order, or nullptr
    bool stamped;             // every change a copy made was followed by updateTime
  };
  const Case cases[] = {
      {"all_printed", 3, {0, 0, 0}, "2|3|-", "Print success ", true},
      {"one_copy_failed", 1, {-7}, "4|-|IPP_TIME_OUT", nullptr, true},
      {"all_failed", 2, {-3, -6}, "4|-|IPP_JOB_HELD", nullptr, true},
      {"stopped", 1, {-4}, "4|-|IPP_JOB_STOPPED", nullptr, true},
      {"cancelled", 1, {-5}, "4|-|IPP_JOB_CANCELED", nullptr, true},
      {"aborted", 1, {-6}, "4|-|IPP_JOB_ABORTED", nullptr, true},
      {"first_failed_then_printed", 3, {-1, 0, 0}, "5|2|IPP_JOB_HELD_NOT_PRINTER", "Print faild PARTIAL_COMPLETED ", true},
      {"first_printed_then_failed", 2, {0, -4}, "5|1|-", "Print faild PARTIAL_COMPLETED ", true},
      {"zero_copies", 0, {}, "2|0|-", "Print success ", false},  // no copy, no stamp
      {"negative_copies", -2, {}, "0|-|-", nullptr, false},
      {"unnamed_failure", 1, {-9}, "4|-|", nullptr, true},
      {"unnamed_code_8", 1, {-8}, "4|-|", nullptr, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_TRUE(store.insertOrder("local", "O", c.name, "/pics/a.jpg", 0, c.copies, "frames"));
    std::size_t next = 0;
    scriptedPrintImage = [&](const std::wstring& printer, const std::wstring& path, const std::string& type) {
      EXPECT_EQ(printer + L"|" + path + L"|" + utf8ToWide(type), L"Studio Printer|/pics/a.jpg|frames");
      return next < c.codes.size() ? c.codes[next++] : 999;
    };
    OutputWatcher log;
    store.printPendingOrders();
    EXPECT_EQ(next, c.codes.size());
    EXPECT_EQ(file.order(c.name), c.row);
    EXPECT_EQ(file.scalar("SELECT updateTime IS NOT NULL FROM local WHERE uuid='" + std::string(c.name) + "'"),
              c.stamped ? "1" : "0");
    const std::string out = log.text();
    EXPECT_EQ(out.find("Print success ") != std::string::npos || out.find("PARTIAL_COMPLETED") != std::string::npos,
              c.closingLine != nullptr) << out;
    if (c.closingLine) {
      EXPECT_NE(out.find(std::string("] ") + c.closingLine + "\n"), std::string::npos) << out;
    }
    ASSERT_TRUE(file.exec("DELETE FROM local"));  // the next case's run sees only its own order
  }
}

TEST_F(PrintRunTest, StateAfterTheSecondOfThreeCopiesAndTheLines) {
  ASSERT_TRUE(store.insertOrder("local", "O", "T", "p.jpg", 0, 3, "postcards"));
  int copy = 0;
  std::string beforeThird;
  scriptedPrintImage = [&](const std::wstring&, const std::wstring&, const std::string&) {
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
  scriptedPrintImage = [&](const std::wstring& printer, const std::wstring&, const std::string&) {
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

}  // namespace
}  // namespace kps
