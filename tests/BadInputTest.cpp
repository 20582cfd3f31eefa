// Malformed input from every door the service has: config.ini, task-list bodies, object-store
// answers and picture files. Each gets the outcome the system defines, and nothing stored is
// lost.
#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include "config/PrinterConfig.h"
#include "printer/cups/Picture.h"
#include "remote/HttpRequest.h"
#include "remote/ObjectStore.h"
#include "remote/RemoteOrderIdManger.h"
#include "src/Runtime.h"
#include "tests/support/HttpsServer.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/SampleConfig.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/TestPictures.h"
#include "tests/support/TestTransport.h"
#include "tests/support/WorkingDirectory.h"

namespace kps {
namespace {

struct ConfigCase {
  const char* name;
  std::string text;
  std::string error;  // what() of the error that ends the start, or "" for none
  std::string printerName;
};

TEST(BadInput, ConfigFiles) {
  const ConfigCase cases[] = {
      {"empty file", "", "invalid stoi argument", ""},
      {"binary junk", std::string("\x00\xFF\xFE[\x01=\x02\n", 8), "invalid stoi argument", ""},
      {"number with letters", sampleConfig({{"FourWidth", "12px"}}), "", "EPSON L8160 Series"},
      {"number too wide", sampleConfig({{"ThreeSize", "4294967296"}}), "stoi argument out of range", "EPSON L8160 Series"},
      {"comment hides a value", sampleConfig({{"FourHeight", "150 ; cm"}}), "invalid stoi argument", ""},
      {"name with a hash", sampleConfig({{"PrinterName", "Printer #2"}}), "", ""},
      {"only CR line ends", "[PrinterName]\rname=P\r", "invalid stoi argument", ""},
      {"very long value", sampleConfig({{"PrinterName", std::string(100000, 'p')}}), "", std::string(100000, 'p')},
  };
  for (const auto& c : cases) {
    TempDir dir;
    PrinterConfig config(dir.write("config.ini", c.text));
    try {
      const auto values = config.load();
      EXPECT_EQ(c.error, "") << c.name;
      EXPECT_EQ(values.PrinterName, c.printerName) << c.name;
    } catch (const std::exception& e) {
      EXPECT_EQ(c.error, e.what()) << c.name;
    }
  }
}

struct BodyCase {
  const char* name;
  std::string body;
  int newRows;
};

TEST(BadInput, TaskListBodies) {
  const std::string ok = "{\"code\":\"100\",\"msg\":\"success\",\"data\":";
  const std::string goodTask = "\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":1,\"type\":\"frames\"";
  const BodyCase cases[] = {
      {"empty", "", 0},
      {"whitespace", "  \n ", 0},
      {"array root", "[1,2,3]", 0},
      {"truncated", ok + "[{\"taskId\":\"X\"," + goodTask, 0},
      {"nested ten thousand deep", std::string(10000, '[') + std::string(10000, ']'), 0},
      {"data deeply nested", ok + std::string(5000, '[') + std::string(5000, ']') + "}", 0},
      {"data is an object", ok + "{\"taskId\":\"X\"}}", 0},
      {"data of numbers", ok + "[1,2,null,true]}", 0},
      {"invalid UTF-8 in id", ok + "[{\"taskId\":\"\xC3\x28\"," + goodTask + "}]}", 0},
      {"NUL in the key", ok + "[{\"taskId\":\"N\",\"pic\":\"a\\u0000b.jpg\",\"businessOrderId\":\"O\",\"number\":1,\"type\":\"frames\"}]}", 1},
      {"number overflow", ok + "[{\"taskId\":\"O1\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":1e99,\"type\":\"frames\"}]}", 0},
      {"negative copies", ok + "[{\"taskId\":\"NEG\"," + goodTask.substr(0, goodTask.find("\"number\"")) + "\"number\":-3,\"type\":\"frames\"}]}", 1},
      {"duplicate members", ok + "[{\"taskId\":\"D\",\"taskId\":\"E\"," + goodTask + "}]}", 1},
      {"existing task again", ok + "[{\"taskId\":\"KEEP\"," + goodTask + "}]}", 0},
      {"huge body", ok + "[{\"taskId\":\"H\"," + goodTask + ",\"pad\":\"" + std::string(8 << 20, 'x') + "\"}]}", 1},
  };
  TempDir dir;
  WorkingDirectory cwd(dir.path());
  dir.write("a.jpg", "jpeg");
  RemoteOrderIdManger intake("PrintData.db");
  ASSERT_TRUE(intake.insertOrder("local", "O", "KEEP", "kept.jpg", 2, 1, "frames"));
  SqliteFile file(dir.file("PrintData.db"));
  OutputWatcher log;
  int rows = 1;
  for (const auto& c : cases) {
    intake.ReceiveBackupData(c.body);
    rows += c.newRows;
    EXPECT_EQ(file.scalar("SELECT count(*) FROM local"), std::to_string(rows)) << c.name;
  }
  EXPECT_EQ(file.scalar("SELECT path||status FROM local WHERE uuid='KEEP'"), "kept.jpg2");
  EXPECT_EQ(file.scalar("SELECT status FROM local WHERE uuid='N'"), "4");  // refused key
  std::lock_guard<std::mutex> lock(newOrderMutex);
  newOrderFlag = false;
}

struct AnswerCase {
  const char* name;
  int status;
  std::string body;
  std::string line;  // the service's line for it
  bool fileLeft;
};

TEST(BadInput, ObjectStoreAnswers) {
  const AnswerCase cases[] = {
      {"404 without a document", 404, "", "GetObjectToFile fail,code:ServerError:404,message:,requestId:R-1\n", false},
      {"403 with HTML", 403, "<html>\n<b>denied</b></html>",
       "GetObjectToFile fail,code:ServerError:403,message:<html> <b>denied</b></html>,requestId:R-1\n", false},
      {"error document cut short", 404, "<Error><Code>NoSuchKey</Code><Message>The specif",
       "GetObjectToFile fail,code:NoSuchKey,message:,requestId:R-1\n", false},
      {"empty object", 200, "", "RemoteOrderIdManger::GetobjectToFile success\n", true},
      {"redirect is not followed", 302, "", "GetObjectToFile fail,code:ServerError:302,message:,requestId:R-1\n", false},
  };
  TestTransport transport;
  for (const auto& c : cases) {
    HttpsServer store;
    store.routes().Get(R"(/.*)", [&](const httplib::Request&, httplib::Response& res) {
      res.status = c.status;
      res.set_header("x-oss-request-id", "R-1");
      res.set_content(c.body, "application/xml");
    });
    ossSettings() = OssSettings{store.start(), "qzlp", "ak", "sk"};
    ossSettings().retryDelaysMs = {};
    TempDir dir;
    RemoteOrderIdManger intake(dir.file("PrintData.db"));
    testing::internal::CaptureStdout();
    intake.GetobjectToFile("k.jpg", dir.file("k.jpg"));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), c.line) << c.name;
    EXPECT_EQ(std::filesystem::exists(dir.file("k.jpg")), c.fileLeft) << c.name;
  }
}

struct PictureCase {
  const char* name;
  std::function<std::string(TempDir&)> make;  // from good.jpg, 40 x 60, red left, blue right
  bool loads;
};

// What GDI+ prints must print here too; what is not a whole picture must not.
TEST(BadInput, PictureFiles) {
  const auto converted = [](std::string arguments, std::string out) {
    return [=](TempDir& d) {
      EXPECT_EQ(std::system(("cd " + d.path() + " && convert good.jpg " + arguments + " " + out).c_str()), 0);
      return d.file(out.substr(out.find(':') + 1));
    };
  };
  const auto edited = [](std::function<std::string(const std::string&)> edit) {
    return [=](TempDir& d) { return d.write("p.jpg", edit(d.read("good.jpg"))); };
  };
  const PictureCase cases[] = {
      {"good JPEG", [](TempDir& d) { return d.file("good.jpg"); }, true},
      {"CMYK JPEG", converted("-colorspace CMYK", "p.jpg"), true},
      {"PNG named .jpg", converted("", "png:p.jpg"), true},
      {"BMP", converted("", "p.bmp"), true},
      {"GIF", converted("", "p.gif"), true},
      {"TIFF", converted("", "p.tiff"), true},
      {"JPEG with stray bytes before its end marker",
       edited([](const std::string& b) { return b.substr(0, b.size() - 2) + std::string(3, '\0') + b.substr(b.size() - 2); }),
       true},
      {"truncated JPEG", edited([](const std::string& b) { return b.substr(0, b.size() / 2); }), false},
      {"JPEG header only", edited([](const std::string& b) { return b.substr(0, 20); }), false},
      {"truncated PNG", [&](TempDir& d) { converted("", "x.png")(d); return d.write("p.png", d.read("x.png").substr(0, 40)); }, false},
      {"zero bytes", edited([](const std::string&) { return ""; }), false},
      {"text named .jpg", edited([](const std::string&) { return "not a picture at all"; }), false},
      {"a folder", [](TempDir& d) { std::filesystem::create_directories(d.file("dir.jpg")); return d.file("dir.jpg"); }, false},
      {"missing", [](TempDir& d) { return d.file("none.jpg"); }, false},
  };
  for (const auto& c : cases) {
    TempDir dir;
    ASSERT_TRUE(writeTestJpeg(dir.file("good.jpg"), 40, 60));
    const CairoSurface picture = loadPicture(c.make(dir));
    ASSERT_EQ(static_cast<bool>(picture), c.loads) << c.name;
    if (!picture) continue;
    const auto* row = reinterpret_cast<const std::uint32_t*>(cairo_image_surface_get_data(picture.get()));
    EXPECT_EQ(row[0] & 0xF0F0F0, 0xF00000u) << c.name;   // red on the left
    EXPECT_EQ(row[39] & 0xF0F0F0, 0x0000F0u) << c.name;  // blue on the right
  }
}

}  // namespace
}  // namespace kps
