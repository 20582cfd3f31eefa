// The intake over a real store file and the sandbox's object store (which checks every
// signature): the picture download, its failures against real sockets that stall or never
// accept, and task-list bodies.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <utility>

#include "remote/Crc64.h"
#include "remote/ObjectStore.h"
#include "remote/RemoteOrderIdManger.h"
#include "remote/TaskList.h"
#include "src/Runtime.h"
#include "tests/support/HttpsServer.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/SandboxObjectStore.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/TaskBodies.h"

namespace kps {
namespace {

// Everything in the folder but the store's own files: what a download left behind.
std::vector<std::string> filesIn(const TempDir& dir) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
    if (entry.path().filename().string().rfind("PrintData.db", 0) != 0) names.push_back(entry.path().filename().string());
  return names;
}

// Takes the wake-up flag: true if an intake pass raised it since the last call.
bool takeWakeUp() {
  std::lock_guard<std::mutex> lock(newOrderMutex);
  return std::exchange(newOrderFlag, false);
}

class Intake : public ::testing::Test {
 protected:
  void SetUp() override {
    ossSettings() = store.settings();
    takeWakeUp();
  }
  void TearDown() override { takeWakeUp(); }
  std::string rows() {
    return file.scalar("SELECT group_concat(uuid||':'||status||':'||ifnull(failReason,'-'), ' ') "
                       "FROM (SELECT * FROM local ORDER BY uuid)");
  }

  TestTransport transport;
  SandboxObjectStore store;
  TempDir dir;
  WorkingDirectory cwd{dir.path()};
  RemoteOrderIdManger intake{"PrintData.db"};
  SqliteFile file{dir.file("PrintData.db")};
};

// One download into the folder per case, of "pics/k.jpg" (2000 bytes) unless a case names
// another key ("pics/empty.jpg" holds none).
TEST_F(Intake, WhatADownloadFailsOnAndWhatItRetries) {
  const std::string fail = "GetObjectToFile fail,code:", ok = "RemoteOrderIdManger::GetobjectToFile success\n";
  const std::string object(2000, 'k'), id = ",requestId:SANDBOX0000000";
  const std::vector<long> budget{300, 600, 1200};
  struct Case {
    const char* name;
    std::string fault;  // the store's answer to the first `times` requests
    int times;
    std::string line;   // what GetobjectToFile prints (its start)
    int requests;       // that reached the store
    std::vector<long> pauses;
    std::function<void(OssSettings&)> tweak = [](OssSettings&) {};
    std::string key = "pics/k.jpg";
  };
  const Case cases[] = {
      {"whole object", "", 0, ok, 1, {}},
      {"empty object", "", 0, ok, 1, {}, [](OssSettings&) {}, "pics/empty.jpg"},
      {"missing key", "", 0, fail + "NoSuchKey,message:The specified key does not exist." + id + "1\n", 1, {},
       [](OssSettings&) {}, "pics/none.jpg"},
      {"wrong secret", "", 0, fail + "SignatureDoesNotMatch,message:The request signature we calculated does not match "
                                     "the signature you provided." + id + "1\n", 1, {},
       [](OssSettings& s) { s.accessKeySecret = "not-it"; }},
      {"404 without a document", R"({"status":404})", 1, fail + "ServerError:404,message:" + id + "1\n", 1, {}},
      {"403 with HTML", R"({"status":403,"body":"<html>\n<b>denied</b></html>"})", 1,
       fail + "ServerError:403,message:<html> <b>denied</b></html>" + id + "1\n", 1, {}},
      {"error document cut short", R"({"status":404,"body":"<Error><Code>NoSuchKey</Code><Message>The specif"})", 1,
       fail + "NoSuchKey,message:" + id + "1\n", 1, {}},
      {"redirect not followed", R"({"status":302})", 1, fail + "ServerError:302,message:" + id + "1\n", 1, {}},
      {"server error once", R"({"error":500})", 1, ok, 2, {300}},
      {"server error throughout", R"({"error":500})", 4,
       fail + "InternalError,message:We encountered an internal error. Please try again." + id + "4\n", 4, budget},
      {"cut after the headers", R"({"cut":0})", 4, fail + "ClientError:200018", 4, budget},
      {"cut after one byte", R"({"cut":1})", 4, fail + "ClientError:200018", 4, budget},
      {"cut one byte short", R"({"cut":1999})", 4, fail + "ClientError:200018", 4, budget},
      {"cut once", R"({"cut":1000})", 1, ok, 2, {300}},
      {"wrong CRC-64", R"({"crc":"12345"})", 1, fail + "CrcCheckError,message:CRC-64 of the received object " +
       std::to_string(crc64(0, object.data(), object.size())) + " differs from the store's 12345" + id + "1\n", 1, {}},
      {"nothing listening", "", 0, fail + "ClientError:200007,message:Failed to connect to 127.0.0.1 port 1 after", 0,
       budget, [](OssSettings& s) { s.endpoint = "https://127.0.0.1:1"; }},
      {"name that does not resolve", "", 0, fail + "ClientError:200006,", 0, {},
       [](OssSettings& s) { s.endpoint = "https://kps-test.invalid"; }},
      {"untrusted certificate", "", 0, fail + "ClientError:200060,", 0, {},
       [](OssSettings&) { httpSettings().caBundle = TestCertificates::get().otherCaFile(); }},
      // Bounds no picture reaches, shortened here: not retried, nothing kept.
      {"larger than any picture", "", 0, fail + "ClientError:200023,message:the object is larger than any picture", 1, {},
       [](OssSettings& s) { s.mostObjectBytes = 1999; }},
      {"trickled past the time a transfer may take", R"({"trickle":400})", 1,
       fail + "ClientError:200028,message:the transfer took too long", 1, {}, [](OssSettings& s) { s.mostTransferSeconds = 2; }},
      {"a server error of 64 MB", R"({"status":400,"repeat":64000000})", 1,
       fail + "ServerError:400,message:" + std::string(200, 'x') + id + "1\n", 1, {}},
  };
  for (const auto& c : cases) {
    TestTransport caseTransport;
    store.reset();
    store.put("pics/k.jpg", object);
    store.put("pics/empty.jpg", "");
    if (c.times) store.fail(c.fault, c.times);
    ossSettings() = store.settings();
    c.tweak(ossSettings());
    std::filesystem::remove(dir.file("k.jpg"));
    testing::internal::CaptureStdout();
    rusage before{}, after{};
    getrusage(RUSAGE_SELF, &before);
    const int result = intake.GetobjectToFile(c.key, dir.file("k.jpg"));
    getrusage(RUSAGE_SELF, &after);
    const std::string out = testing::internal::GetCapturedStdout();
    // An error body is kept only as far as an error document goes: never in memory whole.
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 32 << 10) << c.name << ": KiB more at the peak";
    const bool fetched = c.line == ok;
    EXPECT_EQ(result, fetched ? 0 : 1) << c.name;
    EXPECT_EQ(out.substr(0, c.line.size()), c.line) << c.name;
    EXPECT_EQ(store.requests(), c.requests) << c.name;
    EXPECT_EQ(store.pauses(), c.pauses) << c.name;
    // Whole or nothing: the final path never holds a fragment, no temporary is left.
    EXPECT_EQ(filesIn(dir), fetched ? std::vector<std::string>{"k.jpg"} : std::vector<std::string>{}) << c.name;
    EXPECT_EQ(fetched ? dir.read("k.jpg") : "", c.key == "pics/k.jpg" && fetched ? object : "") << c.name;
  }
}

// The store checks every request with the official client's own signer.
TEST_F(Intake, AwkwardKeysAreSignedAsTheOfficialClientSignsThem) {
  for (const std::string key : {"pics/2026/11/a b.jpg", "x+y=z.png", "tilde~name.jpg", "100%.jpg", "(copy) [1].jpg",
                                "\xE7\x85\xA7\xE7\x89\x87/\xE5\x9B\xBE.jpg", "semi;colon,comma&amp.jpg", "quote'\"`.jpg"}) {
    store.put(key, "bytes");
    OssError error;
    EXPECT_TRUE(fetchObjectToFile(store.settings(), key, dir.file("k.jpg"), error)) << key << ": " << error.code;
  }
}

TEST_F(Intake, ASkewedClockIsCorrectedOnceAndKept) {
  for (const bool serverTimeInBody : {true, false}) {
    TestTransport caseTransport;
    store.reset();
    store.skewClock(3600, serverTimeInBody);  // the kiosk runs an hour slow
    store.put("a.jpg", "picture");
    OssError error;
    ASSERT_TRUE(fetchObjectToFile(store.settings(), "a.jpg", dir.file("a.jpg"), error)) << serverTimeInBody << " " << error.code;
    EXPECT_EQ(store.requests(), 2);  // refused once, then signed with the store's time
    EXPECT_NEAR(static_cast<double>(ossClockOffsetSeconds()), 3600, 5);
    ASSERT_TRUE(fetchObjectToFile(store.settings(), "a.jpg", dir.file("b.jpg"), error));
    EXPECT_EQ(store.requests(), 3);  // the offset is kept for later requests
    EXPECT_TRUE(store.pauses().empty());
  }
}

// A listening socket whose backlog is full: the next connection attempt is never answered.
struct UnansweredPort {
  UnansweredPort() : fds{::socket(AF_INET, SOCK_STREAM, 0)} {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ::bind(fds[0], reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::listen(fds[0], 0);
    ::getsockname(fds[0], reinterpret_cast<sockaddr*>(&address), &size);
    port = ntohs(address.sin_port);
    for (int i = 0; i < 4; ++i) {
      fds.push_back(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
      ::connect(fds.back(), reinterpret_cast<sockaddr*>(&address), sizeof address);
    }
  }
  ~UnansweredPort() {
    for (const int fd : fds) ::close(fd);
  }
  std::vector<int> fds;
  int port = 0;
};

// Limits shortened so that the real sockets show what they do without a ten-second wait.
TEST_F(Intake, StalledTransferAndUnansweredConnectFailAgainstRealSockets) {
  store.put("a.jpg", std::string(5000, 'a'));
  store.fail(R"({"stall":true})");
  OssSettings settings = store.settings();
  settings.stallSeconds = 1;
  OssError error;
  EXPECT_TRUE(fetchObjectToFile(settings, "a.jpg", dir.file("a.jpg"), error)) << error.message;
  EXPECT_EQ(store.pauses(), std::vector<long>{300});  // the stall timed out, then a retry
  EXPECT_EQ(dir.read("a.jpg"), std::string(5000, 'a'));

  const UnansweredPort port;
  settings.endpoint = "https://127.0.0.1:" + std::to_string(port.port);
  settings.connectTimeoutMs = 200;
  EXPECT_FALSE(fetchObjectToFile(settings, "a.jpg", dir.file("b.jpg"), error));
  EXPECT_EQ(error.code, "ClientError:200028");
  EXPECT_NE(error.message.find(" ms: Timeout was reached"), std::string::npos) << error.message;
  EXPECT_EQ(store.pauses(), (std::vector<long>{300, 300, 600, 1200}));
}

// What the service runs with, read where it reads them: the cases above shorten copies only.
TEST(Transport, DefaultsTheServiceRunsWith) {
  EXPECT_EQ(std::make_pair(httpSettings().timeoutMs, httpSettings().dnsCacheSeconds), std::make_pair(30000L, 0L));
  EXPECT_EQ(httpSettings().connectionLifetimeSeconds, 3600L);
  EXPECT_EQ(std::make_pair(ossSettings().connectTimeoutMs, ossSettings().stallSeconds), std::make_pair(5000L, 10L));
  EXPECT_EQ(ossSettings().retryDelaysMs, (std::vector<long>{300, 600, 1200}));
  std::vector<int> transient;
  for (int code = 0; code < CURL_LAST; ++code)
    if (isTransientTransferError(static_cast<CURLcode>(code))) transient.push_back(code);
  EXPECT_EQ(transient, (std::vector<int>{7, 18, 23, 28, 52, 55, 56, 65}));
}

// CRC-64/XZ bit by bit: the store's checksum, written apart from the service's.
std::string storeCrc64(const std::string& bytes) {
  std::uint64_t crc = ~0ull;
  for (const unsigned char c : bytes) {
    crc ^= c;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? (crc >> 1) ^ 0xC96C5795D7870F42ull : crc >> 1;
  }
  return std::to_string(~crc);
}

TEST(Transport, Crc64OfTheStore) {
  EXPECT_EQ(crc64(0, "123456789", 9), 11051210869376104954ull);  // the published check value
  std::string bytes(100000, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>((i * 2654435761u) >> 13);
  // Short and long pieces (the long ones take the folding path), in one go or in two.
  for (const std::size_t size : {0, 1, 15, 63, 64, 65, 1000, 99999}) {
    const std::string piece = bytes.substr(0, size);
    EXPECT_EQ(std::to_string(crc64(0, piece.data(), size)), storeCrc64(piece)) << size;
    const std::size_t cut = size / 3;
    EXPECT_EQ(crc64(crc64(0, piece.data(), cut), piece.data() + cut, size - cut),
              crc64(0, piece.data(), size)) << size;
  }
}

TEST(ObjectUrl, PathStyleForAddressesVirtualHostedForNames) {
  OssSettings s{"https://127.0.0.1:9000", "qzlp", "", ""};
  EXPECT_EQ(ossObjectUrl(s, "a/b c.jpg"), "https://127.0.0.1:9000/qzlp/a/b%20c.jpg");
  s.endpoint = "https://oss-cn-beijing.example.com/";
  EXPECT_EQ(ossObjectUrl(s, "a/b.jpg"), "https://qzlp.oss-cn-beijing.example.com/a/b.jpg");
}

TEST_F(Intake, OnlyAnAcceptedBodyIsTakenIn) {
  store.put("a.jpg", "jpeg");
  const std::string tasks = "[" + task("T-1", "a.jpg") + "]";
  const std::string rejected[] = {
      "{\"code\":\"200\",\"msg\":\"success\",\"data\":" + tasks + "}",
      "{\"code\":\"100\",\"msg\":\"Success\",\"data\":" + tasks + "}",
      "{\"code\":100,\"msg\":\"success\",\"data\":" + tasks + "}",
      "{\"code\":\"100\",\"msg\":null,\"data\":" + tasks + "}",
      "{\"msg\":\"success\",\"data\":" + tasks + "}",
      "[{\"code\":\"100\",\"msg\":\"success\"}]",
      "{\"code\":\"100\",\"msg\":\"success\",\"data\":" + tasks,
      "not json at all", "", "  \n ",
      std::string(10000, '[') + std::string(10000, ']'),
      "{\"code\":\"100\",\"msg\":\"success\",\"data\":{\"taskId\":\"X\"}}",
      "{\"code\":\"100\",\"msg\":\"success\",\"data\":[1,2,null,true]}",
      "{\"code\":\"100\",\"msg\":\"success\",\"data\":[]}",
      "{\"code\":\"100\",\"msg\":\"success\"}",
      "{\"code\":\"100\",\"msg\":\"success\",\"data\":[{\"taskId\":\"\xC3\x28\"}]}",
  };
  OutputWatcher log;
  for (const auto& text : rejected) intake.ReceiveBackupData(text);
  // Only the refusal the backend would not expect says why; the others are silent.
  EXPECT_EQ(count(log.text(), "\n"), 1u) << log.text();
  EXPECT_NE(log.text().find("] task list refused: not valid UTF-8 (byte 49)\n"), std::string::npos) << log.text();
  EXPECT_EQ(store.requests(), 0);
  EXPECT_EQ(rows(), "NULL");
  EXPECT_FALSE(takeWakeUp());
}

TEST_F(Intake, TaskListedOnEveryPollIsStoredOnceAndWakesOnce) {
  store.put("pics/a.jpg", "jpeg-a");
  store.put("pics/b.jpg", "jpeg-b");
  const std::string text = taskList({task("T-1", "pics/a.jpg", 2), task("T-2", "pics/b.jpg")});
  OutputWatcher log;
  intake.ReceiveBackupData(text);
  EXPECT_TRUE(takeWakeUp());
  EXPECT_EQ(rows(), "T-1:0:- T-2:0:-");
  EXPECT_EQ(file.scalar("SELECT orderNo||'|'||path||'|'||realNumber||'|'||type FROM local WHERE uuid='T-1'"),
            "O-T-1|" + dir.path() + "/pics/a.jpg|2|postcards");
  EXPECT_EQ(dir.read("pics/a.jpg"), "jpeg-a");
  EXPECT_NE(log.text().find("dir create success: \"" + dir.path() + "/pics\"\n"), std::string::npos);
  EXPECT_EQ(count(log.text(), "] receive backup data :" + text + "\n"), 1u);
  EXPECT_EQ(count(log.text(), "] ----receive backup data to printer---\n"), 1u);  // once per body

  intake.ReceiveBackupData(text);
  intake.ReceiveBackupData(text);
  EXPECT_FALSE(takeWakeUp());
  EXPECT_EQ(count(log.text(), "----receive backup data to printer---"), 1u);
  EXPECT_EQ(store.requests(), 2);  // pictures on disk are never fetched again
  EXPECT_EQ(rows(), "T-1:0:- T-2:0:-");
}

TEST_F(Intake, FailingPicturesShareOneRetryBudgetAndAPendingOrderIsMarked) {
  ASSERT_TRUE(intake.insertOrder("local", "O", "T-1", "gone.jpg", 0, 1, "frames"));
  ASSERT_TRUE(intake.insertOrder("local", "O", "T-2", "gone.jpg", 2, 1, "frames"));
  OutputWatcher log;
  intake.ReceiveBackupData(taskList({task("T-1", "gone.jpg"), task("T-2", "gone.jpg"), task("T-3", "x/3.jpg"),
                                     task("T-4", "x/4.jpg")}));
  EXPECT_EQ(store.requests(), 4 + 3);  // 1 + 3 for the first, 1 each for the rest
  EXPECT_EQ(rows(), "T-1:4:IPP_JOB_HELD_PIC_PATH_NOT_EXIST T-2:2:- T-3:4:- T-4:4:-");
  EXPECT_NE(file.scalar("SELECT updateTime FROM local WHERE uuid='T-1'"), "NULL");
  EXPECT_EQ(count(log.text(), "]  insertOrder fail \n"), 2u);
  EXPECT_EQ(count(log.text(), " insertOrder success \n"), 2u);
  EXPECT_FALSE(takeWakeUp());
}

// Keys that cannot be a picture here, and copy counts no kiosk prints: each task is stored
// failed with one line, and holds back none of the tasks after it.
TEST_F(Intake, BadKeysAndCopyCountsAreStoredFailedWithALineAndThePassGoesOn) {
  dir.write("file", "a file where a folder would be");
  std::filesystem::create_directories(dir.file("folder"));
  store.put("ok.jpg", "jpeg");
  const std::string leaves = "leaves the working directory", noFile = "does not name a file";
  const std::string own = "names one of the service's own files";
  const std::string windows = "holds a character Windows does not allow in a name", device = "names a device on Windows";
  const std::string tooLong(300, 'n');
  ASSERT_EQ(::mkfifo(dir.file("fifo.jpg").c_str(), 0600), 0);
  // A folder of a temporary's name, left by an older version: the next download beside it
  // takes a shorter temporary name.
  std::filesystem::create_directories(dir.file("pics/~~~~~~~~"));
  store.put("pics/beside.jpg", "jpeg");
  const std::pair<std::string, std::string> cases[] = {
      {"../escape.jpg", leaves}, {"a/../../escape.jpg", leaves}, {"/etc/escape.jpg", leaves},
      {"\\\\server\\share.jpg", leaves}, {"C:\\escape.jpg", leaves}, {"c:x.jpg", leaves}, {"..", leaves},
      {"", noFile}, {"x/", noFile}, {".", noFile}, {"a/./b.jpg", noFile}, {"a//b.jpg", noFile},
      {std::string("a\0b", 3), "holds a NUL character"}, {"folder", noFile},
      {"file/x.jpg", "its folder is a file"}, {"file/sub/x.jpg", "Not a directory"},
      {tooLong + "/x.jpg", "File name too long"}, {tooLong + ".jpg", "File name too long"},
      {"config.ini", own}, {"PrintData.db", own}, {"PrintData.db-wal", own}, {"PrintData.db-journal", own},
      {"x/~~~~~~~~", own}, {"pics/~~~~~~~~/x.jpg", own},
      // Names Windows cannot hold: refused on both platforms.
      {"what?.jpg", windows}, {"a<b>.jpg", windows}, {"star*.jpg", windows}, {"pipe|.jpg", windows},
      {"quote\".jpg", windows}, {"a.jpg:stream", windows}, {"tab\t.jpg", windows}, {"photo.jpg.", "ends in a dot or a blank, which Windows drops"},
      {"folder /x.jpg", "ends in a dot or a blank, which Windows drops"}, {"aux.jpg", device}, {"x/CON", device},
      {"Com9.tar.gz", device}, {"lpt1 .jpg", device}, {"nul/x.jpg", device},
      {"fifo.jpg", "does not name a regular file"},
  };
  std::vector<std::string> tasks;
  for (std::size_t i = 0; i < std::size(cases); ++i) tasks.push_back(task("T-" + std::to_string(i), cases[i].first));
  // A name that fits the file system only just: its download's temporary file fits too.
  const std::string longest = "long/" + std::string(251, 'l') + ".jpg";
  store.put(longest, "jpeg");
  tasks.push_back(task("T-longest", longest));
  tasks.push_back(task("T-copies", "ok.jpg", 1000));
  tasks.push_back(task("T-ok", "ok.jpg", 999));
  tasks.push_back(task("T-ok2", "..a/b..c.jpg"));  // dots inside names are names
  store.put("..a/b..c.jpg", "jpeg");
  tasks.push_back(task("T-beside", "pics/beside.jpg"));
  tasks.push_back(task("T-device-like", "console.jpg"));  // a device's name only as a whole
  store.put("console.jpg", "jpeg");
  // An object larger than any picture (the bound shortened here) fails its task the same way.
  ossSettings().mostObjectBytes = 100;
  store.put("huge.jpg", std::string(101, 'h'));
  tasks.push_back(task("T-huge", "huge.jpg"));
  OutputWatcher log;
  intake.ReceiveBackupData(taskList(tasks));
  EXPECT_NE(log.text().find("] refused picture key: huge.jpg (larger than 100 bytes, more than any picture)\n"), std::string::npos);
  for (const auto& [key, why] : cases)
    EXPECT_NE(log.text().find("] refused picture key: " + key + " (" + why + ")\n"), std::string::npos) << key;
  EXPECT_NE(log.text().find("] task refused, more copies than 999: T-copies (1000)\n"), std::string::npos);
  EXPECT_EQ(log.text().find("task left for a later poll"), std::string::npos) << log.text();
  EXPECT_EQ(store.requests(), 6);  // only the good tasks' pictures, and the huge one's once
  EXPECT_EQ(file.scalar("SELECT count(*) FROM local WHERE status = 4"), std::to_string(std::size(cases) + 2));
  EXPECT_EQ(file.scalar("SELECT group_concat(uuid||':'||status||':'||realNumber) FROM (SELECT * FROM local WHERE uuid "
                        "IN ('T-longest', 'T-copies', 'T-ok', 'T-ok2', 'T-beside', 'T-device-like') ORDER BY uuid)"),
            "T-beside:0:1,T-copies:4:1000,T-device-like:0:1,T-longest:0:1,T-ok:0:999,T-ok2:0:1");
  EXPECT_EQ(dir.read("pics/beside.jpg"), "jpeg");
  EXPECT_EQ(dir.read(longest), "jpeg");
  EXPECT_TRUE(takeWakeUp());
  EXPECT_FALSE(std::filesystem::exists(dir.path() + "/../escape.jpg"));
}

TEST_F(Intake, ElementsOfOtherShapesAreSkippedWithALine) {
  store.put("a.jpg", "jpeg");
  OutputWatcher log;
  intake.ReceiveBackupData(taskList({
      "{\"taskId\":\"T-1\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":\"2\",\"type\":\"frames\"}",
      "{\"taskId\":\"T-2\",\"pic\":\"a.jpg\",\"businessOrderId\":7,\"number\":1,\"type\":\"frames\"}",
      "{\"taskId\":\"T-3\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":1}",
      "{\"taskId\":\"T-4\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":1e99,\"type\":\"frames\"}",
      "{\"taskId\":\"T-5\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":9999999999,\"type\":\"frames\"}",
      "{\"taskId\":6,\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":1,\"type\":\"frames\"}",
      // Escapes that make no text: a lone surrogate, a NUL that would cut the id short.
      "{\"taskId\":\"T-\\udc00\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":1,\"type\":\"frames\"}",
      "{\"taskId\":\"T-7\\u0000x\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":1,\"type\":\"frames\"}",
      "{\"taskId\":\"T-8\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\\udfff\",\"number\":1,\"type\":\"frames\"}",
      "{\"taskId\":\"T-9\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":1,\"type\":\"frames\\u0000\"}",
      "{\"pic\":\"a.jpg\"}", "42",
      "{\"taskId\":\"D\",\"taskId\":\"E\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":-3,\"type\":\"frames\","
      "\"pad\":\"" + std::string(8 << 20, 'x') + "\"}",
  }));
  EXPECT_EQ(rows(), "D:0:-");  // the first of two taskIds, its negative copies as sent
  EXPECT_EQ(count(log.text(), "] task skipped, malformed member: ?\n"), 3u);  // 6, the lone surrogate, the NUL
  for (const char* name : {"T-1", "T-2", "T-3", "T-4", "T-5", "?", "T-8", "T-9"})
    EXPECT_NE(log.text().find(std::string("] task skipped, malformed member: ") + name + "\n"), std::string::npos) << name;
  EXPECT_TRUE(takeWakeUp());
}

}  // namespace
}  // namespace kps
