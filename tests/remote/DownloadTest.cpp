// The picture download against the sandbox's object store and against real sockets that stall
// or never accept: what it fails on, what it retries, and what it bounds.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>


#include "tests/remote/IntakeFixture.h"

namespace kps {
namespace {

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
      // A transfer may take its time (1 s here) or, past it, what its size needs at the least rate.
      {"slow but steady past the time", R"({"trickle":100,"chunk":100})", 1, ok, 1, {},
       [](OssSettings& s) { s.mostTransferSeconds = 1, s.leastBytesPerSecond = 500; }},
      {"trickled below the least rate", R"({"trickle":400})", 1,
       fail + "ClientError:200042,message:the transfer was too slow", 1, {},
       [](OssSettings& s) { s.mostTransferSeconds = 1, s.leastBytesPerSecond = 1000; }},
      {"a server error of 1 MB", R"({"status":400,"repeat":1000000})", 1,
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
    const Counted counted;
    const int result = intake.GetobjectToFile(c.key, dir.file("k.jpg"));
    const std::string out = testing::internal::GetCapturedStdout();
    const bool fetched = c.line == ok;
    EXPECT_EQ(result, fetched ? 0 : 1) << c.name;
    EXPECT_EQ(counted.since(), fetched ? "" : "download failed") << c.name;
    EXPECT_EQ(out.substr(0, c.line.size()), c.line) << c.name;
    EXPECT_EQ(store.requests(), c.requests) << c.name;
    EXPECT_EQ(store.pauses(), c.pauses) << c.name;
    // Whole or nothing: the final path never holds a fragment, no temporary is left.
    EXPECT_EQ(filesIn(dir), fetched ? std::vector<std::string>{"k.jpg"} : std::vector<std::string>{}) << c.name;
    EXPECT_EQ(fetched ? dir.read("k.jpg") : "", c.key == "pics/k.jpg" && fetched ? object : "") << c.name;
  }
}

// An object this machine cannot keep (here its folder is a file) is not the store's failure: the
// metrics count no failed download for it.
TEST_F(Intake, ADownloadThisMachineCannotKeepIsNotCountedAsTheStores) {
  store.put("pics/k.jpg", "jpeg");
  dir.write("file", "a file where a folder would be");
  const Counted counted;
  testing::internal::CaptureStdout();
  EXPECT_EQ(intake.GetobjectToFile("pics/k.jpg", dir.file("file/k.jpg")), 1);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("GetObjectToFile fail,code:ClientError:200023,message:cannot write "),
            std::string::npos);
  EXPECT_EQ(store.requests(), 1);
  EXPECT_EQ(counted.since(), "");
}

// An error body is kept only as far as an error document goes, never in memory whole: a child
// process with 48 MiB of address space to spare reads a 128 MB one to its end and fails the
// download as the store's error, where keeping it would end the child.
TEST_F(Intake, AnErrorBodyIsNeverHeldWhole) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer's shadow memory does not fit under an address-space limit";
#else
  store.fail(R"({"status":400,"repeat":128000000})");
  const int status = runWithSpareMemory(48 << 20, [&] {
    OssError error;
    const bool fetched = fetchObjectToFile(store.settings(), "pics/k.jpg", dir.file("k.jpg"), error);
    return !fetched && error.code == "ServerError:400" ? 0 : 1;
  });
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
#endif
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
  EXPECT_EQ(std::make_pair(ossSettings().mostTransferSeconds, ossSettings().leastBytesPerSecond), std::make_pair(600L, 4096L));
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

}  // namespace
}  // namespace kps
