// Opening the store, its schema and the order records, on real files.
#include "src/Database.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/SqliteFile.h"
#include "tests/support/TempDir.h"

namespace kps {
namespace {

const std::string kCreateLocal =
    "CREATE TABLE local (orderNo TEXT NOT NULL, uuid TEXT PRIMARY KEY NOT NULL, path TEXT NOT "
    "NULL, status INTEGER NOT NULL, syncTime TEXT, updateTime TEXT, printerName TEXT DEFAULT "
    "'EPSON L8160 Series', failReason TEXT, deleteTime TEXT, createTime TEXT, completedNumber "
    "INTEGER, realNumber INTEGER DEFAULT 1, type TEXT NOT NULL)";

TEST(DatabaseOpen, FreshFileGetsBothTablesInWalMode) {
  TempDir dir;
  const std::string path = dir.file("PrintData.db");
  { Database store(path); }
  SqliteFile file(path);
  EXPECT_EQ(file.scalar("SELECT sql FROM sqlite_master WHERE name='local'"), kCreateLocal);
  std::string remote = kCreateLocal;
  remote.replace(remote.find("local"), 5, "remote");
  EXPECT_EQ(file.scalar("SELECT sql FROM sqlite_master WHERE name='remote'"), remote);
  EXPECT_EQ(file.scalar("PRAGMA journal_mode"), "wal");
}

TEST(DatabaseOpen, SecondOpenKeepsExistingTablesAndRows) {
  TempDir dir;
  const std::string path = dir.file("PrintData.db");
  {
    SqliteFile file(path);
    ASSERT_TRUE(file.exec("CREATE TABLE local (other TEXT); INSERT INTO local VALUES ('kept');"));
  }
  { Database store(path); }
  { Database again(path); }
  SqliteFile file(path);
  EXPECT_EQ(file.scalar("SELECT sql FROM sqlite_master WHERE name='local'"),
            "CREATE TABLE local (other TEXT)");
  EXPECT_EQ(file.scalar("SELECT other FROM local"), "kept");
  EXPECT_EQ(file.scalar("SELECT count(*) FROM sqlite_master WHERE type='table'"), "2");
}

TEST(DatabaseOpen, CreatesMissingFoldersWithEitherSeparator) {
  const std::pair<const char*, const char*> cases[] = {{"/a/b/PrintData.db", "/a/b/PrintData.db"},
                                                       {"\\c\\d\\PrintData.db", "/c/d/PrintData.db"},
                                                       {"/e\\f//x.db", "/e/f/x.db"}};
  for (const auto& [given, onDisk] : cases) {
    TempDir dir;
    { Database store(dir.path() + given); }
    EXPECT_TRUE(std::filesystem::is_regular_file(dir.path() + onDisk)) << given;
  }
}

TEST(DatabaseOpen, FailuresThrowWithTheirMessages) {
  TempDir dir;
  dir.write("blocker", "a file where a folder should be");
  testing::internal::CaptureStderr();
  try {
    Database store(dir.file("blocker/sub/PrintData.db"));
    ADD_FAILURE() << "no error";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "Failed to create directory for database");
  }
  EXPECT_NE(testing::internal::GetCapturedStderr().find("Error creating directory: "),
            std::string::npos);

  testing::internal::CaptureStderr();
  try {
    Database store(dir.path());  // a folder is not a database file
    ADD_FAILURE() << "no error";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "Failed to open or create database");
  }
  EXPECT_NE(testing::internal::GetCapturedStderr().find("Can't open or create database: "),
            std::string::npos);
}

TEST(DatabaseOpen, FailedWalPragmaNeverTouchesTheClosedHandle) {
  TempDir dir;
  const std::string garbage(8192, 'x');
  const std::string path = dir.write("PrintData.db", garbage);
  testing::internal::CaptureStderr();
  try {
    Database store(path);
    ADD_FAILURE() << "no error";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "Failed to execute SQL");
  }
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("Failed to enable WAL mode: file is not a database"), std::string::npos) << err;
  EXPECT_NE(err.find("Failed to prepare query: the database connection is closed"),
            std::string::npos) << err;
  EXPECT_NE(err.find("Failed to prepare SQL statement: the database connection is closed"),
            std::string::npos) << err;
  EXPECT_EQ(dir.read("PrintData.db"), garbage);  // nothing stored is lost
}

class OrderRecords : public ::testing::Test {
 protected:
  TempDir dir;
  Database store{dir.file("PrintData.db")};
  SqliteFile file{dir.file("PrintData.db")};
};

TEST_F(OrderRecords, InsertReadsBackDefaults) {
  ASSERT_TRUE(store.insertOrder("local", "O-1", "T-1", "/p/a.jpg", 0, 2, "postcards"));
  EXPECT_EQ(file.scalar("SELECT orderNo||'|'||path||'|'||status||'|'||realNumber||'|'||type||'|'"
                        "||printerName FROM local WHERE uuid='T-1'"),
            "O-1|/p/a.jpg|0|2|postcards|EPSON L8160 Series");
  for (const char* column :
       {"completedNumber", "syncTime", "updateTime", "failReason", "deleteTime", "createTime"})
    EXPECT_EQ(file.scalar(std::string("SELECT ") + column + " FROM local"), "NULL") << column;
  ASSERT_TRUE(file.exec("INSERT INTO local (orderNo, uuid, path, status, type) "
                        "VALUES ('O', 'T-2', 'p', 0, 't')"));
  EXPECT_EQ(file.scalar("SELECT realNumber FROM local WHERE uuid='T-2'"), "1");
}

TEST_F(OrderRecords, DuplicateUuidIsRefusedAndTheFirstRowKept) {
  ASSERT_TRUE(store.insertOrder("local", "O-1", "T-1", "a.jpg", 0, 1, "frames"));
  store.updateStatus("T-1", 2, 1);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(store.insertOrder("local", "O-9", "T-1", "b.jpg", 4, 3, "cardsets"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Execution failed: UNIQUE constraint failed: local.uuid\n");
  EXPECT_EQ(file.scalar("SELECT orderNo||path||status||realNumber||type FROM local"),
            "O-1a.jpg21frames");
}

TEST_F(OrderRecords, UnknownTableFailsToPrepare) {
  testing::internal::CaptureStderr();
  EXPECT_FALSE(store.insertOrder("nosuch", "O", "T", "p", 0, 1, "t"));
  EXPECT_FALSE(store.deleteOrder("nosuch", "O"));
  std::vector<OrderStatusRecord> list;
  store.getOrdersByOrderNo("nosuch", "O", list);
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Failed to prepare statement: no such table: nosuch\n"
                "Failed to prepare statement: no such table: nosuch\n"
                "Failed to prepare statement: no such table: nosuch\n");
}

TEST_F(OrderRecords, RowsSharingAnOrderNumber) {
  ASSERT_TRUE(store.insertOrder("local", "O-1", "T-1", "a", 0, 1, "frames"));
  ASSERT_TRUE(store.insertOrder("local", "O-1", "T-2", "b", 0, 1, "frames"));
  ASSERT_TRUE(store.insertOrder("local", "O-2", "T-3", "c", 0, 1, "frames"));
  store.updateStatus("T-2", 5, 3);

  std::vector<OrderStatusRecord> list{{9, 9, "already there"}};
  store.getOrdersByOrderNo("local", "O-1", list);
  ASSERT_EQ(list.size(), 3u);  // appended, not cleared
  EXPECT_EQ(list[1].uuid, "T-1");
  EXPECT_EQ(list[1].completedNumber, 0);  // NULL reads as 0
  EXPECT_EQ(list[2].uuid, "T-2");
  EXPECT_EQ(list[2].status, 5);
  EXPECT_EQ(list[2].completedNumber, 3);

  testing::internal::CaptureStderr();
  std::vector<OrderStatusRecord> none;
  store.getOrdersByOrderNo("local", "O-404", none);
  EXPECT_TRUE(none.empty());
  EXPECT_TRUE(store.deleteOrder("local", "O-404"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

  EXPECT_TRUE(store.deleteOrder("local", "O-1"));
  EXPECT_EQ(file.scalar("SELECT group_concat(uuid) FROM local"), "T-3");
}

}  // namespace
}  // namespace kps

namespace kps {
namespace {

TEST(DatabaseIndexes, SyncAndPrintQueriesUseThePartialIndexes) {
  TempDir dir;
  Database store(dir.file("PrintData.db"));
  SqliteFile file(dir.file("PrintData.db"));
  const auto plan = [&](const std::string& query) {
    sqlite3_stmt* stmt = nullptr;
    std::string details;
    sqlite3_prepare_v2(file.handle(), ("EXPLAIN QUERY PLAN " + query).c_str(), -1, &stmt, nullptr);
    while (sqlite3_step(stmt) == SQLITE_ROW)
      details += reinterpret_cast<const char*>(sqlite3_column_text(stmt, 3)) + std::string(";");
    sqlite3_finalize(stmt);
    return details;
  };
  EXPECT_EQ(plan("SELECT uuid, status, failReason, syncTime, updateTime, completedNumber FROM local "
                 "WHERE (syncTime IS NULL OR updateTime > syncTime) AND status != 0;"),
            "SCAN local USING INDEX local_unreported;");
  EXPECT_EQ(plan("SELECT uuid, path, status, deleteTime, realNumber, printerName,type FROM local "
                 "WHERE status = 0;"),
            "SEARCH local USING INDEX local_pending (status=?);");
}

TEST(DatabaseIndexes, ForeignLocalTableOpensWithoutThem) {
  TempDir dir;
  {
    SqliteFile file(dir.file("PrintData.db"));
    ASSERT_TRUE(file.exec("CREATE TABLE local (other TEXT)"));
  }
  testing::internal::CaptureStderr();
  Database store(dir.file("PrintData.db"));
  EXPECT_NE(testing::internal::GetCapturedStderr().find("Failed to create index: "),
            std::string::npos);
}

}  // namespace
}  // namespace kps
