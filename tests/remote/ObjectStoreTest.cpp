// The picture download against an object-store double that checks every signature, and against
// real sockets that stall or never accept.
#include "remote/ObjectStore.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "remote/Crc64.h"
#include "remote/HttpRequest.h"
#include "remote/RemoteOrderIdManger.h"
#include "tests/support/ObjectStoreDouble.h"
#include "tests/support/TestTransport.h"

namespace kps {
namespace {

using Fault = ObjectStoreDouble::Fault;

// Everything in the folder but the store's own files: what a download left behind.
std::vector<std::string> filesIn(const TempDir& dir) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
    if (entry.path().filename().string().rfind("PrintData.db", 0) != 0)
      names.push_back(entry.path().filename().string());
  return names;
}

struct DownloadCase {
  const char* name;
  std::function<void(ObjectStoreDouble&, OssSettings&)> arrange;
  std::string line;  // what GetobjectToFile prints
  int requests;              // that reached the store's HTTP handler
  std::vector<long> pauses;  // the back-offs taken, in ms
};

// One download of "pics/k.jpg" (2000 bytes) into a fresh folder, per case.
TEST(ObjectStore, WhatFailsAndWhatIsRetried) {
  const std::string fail = "GetObjectToFile fail,code:";
  const auto put = [](ObjectStoreDouble& store, OssSettings&) { store.put("pics/k.jpg", std::string(2000, 'k')); };
  const auto then = [put](Fault fault, int times) {
    return [=](ObjectStoreDouble& store, OssSettings& s) { put(store, s); store.fail(fault, times); };
  };
  const DownloadCase cases[] = {
      {"whole object", put, "RemoteOrderIdManger::GetobjectToFile success\n", 1, {}},
      {"missing key", [](ObjectStoreDouble&, OssSettings&) {},
       fail + "NoSuchKey,message:The specified key does not exist.,requestId:REQ-1\n", 1, {}},
      {"wrong secret", [](ObjectStoreDouble&, OssSettings& s) { s.accessKeySecret = "not-it"; },
       fail + "SignatureDoesNotMatch,message:The request signature we calculated does not match the "
              "signature you provided.,requestId:REQ-1\n", 1, {}},
      {"server error once", then({Fault::ServerError}, 1), "RemoteOrderIdManger::GetobjectToFile success\n", 2, {300}},
      {"server error throughout", then({Fault::ServerError}, 4),
       fail + "InternalError,message:We encountered an internal error. Please try again.,requestId:REQ-4\n",
       4, {300, 600, 1200}},
      {"cut after the headers", then({Fault::CutAt, 0}, 4), fail + "ClientError:200018", 4, {300, 600, 1200}},
      {"cut after one byte", then({Fault::CutAt, 1}, 4), fail + "ClientError:200018", 4, {300, 600, 1200}},
      {"cut one byte short", then({Fault::CutAt, 1999}, 4), fail + "ClientError:200018", 4, {300, 600, 1200}},
      {"cut once", then({Fault::CutAt, 1000}, 1), "RemoteOrderIdManger::GetobjectToFile success\n", 2, {300}},
      {"wrong CRC-64", then({Fault::WrongCrc}, 1),
       fail + "CrcCheckError,message:CRC-64 of the received object " + storeCrc64(std::string(2000, 'k')) +
           " differs from the store's 12345,requestId:REQ-1\n", 1, {}},
      {"nothing listening", [](ObjectStoreDouble&, OssSettings& s) { s.endpoint = "https://127.0.0.1:1"; },
       fail + "ClientError:200007,message:Failed to connect to 127.0.0.1 port 1 after", 0, {300, 600, 1200}},
      {"name that does not resolve", [](ObjectStoreDouble&, OssSettings& s) { s.endpoint = "https://kps-test.invalid"; },
       fail + "ClientError:200006,", 0, {}},
      {"untrusted certificate",
       [](ObjectStoreDouble&, OssSettings&) { httpSettings().caBundle = TestCertificates::get().otherCaFile(); },
       fail + "ClientError:200060,", 0, {}},
  };
  for (const auto& c : cases) {
    TestTransport transport;
    ObjectStoreDouble store("qzlp", "test-key-id", "test-key-secret");
    ossSettings() = store.settings();
    c.arrange(store, ossSettings());
    TempDir dir;
    RemoteOrderIdManger intake(dir.file("PrintData.db"));
    testing::internal::CaptureStdout();
    const int result = intake.GetobjectToFile("pics/k.jpg", dir.file("k.jpg"));
    const std::string out = testing::internal::GetCapturedStdout();
    const bool ok = c.line.rfind("RemoteOrderIdManger", 0) == 0;
    EXPECT_EQ(result, ok ? 0 : 1) << c.name;
    EXPECT_EQ(out.substr(0, c.line.size()), c.line) << c.name;
    EXPECT_EQ(store.requests(), c.requests) << c.name;
    EXPECT_EQ(store.pauses(), c.pauses) << c.name;
    // Whole or nothing: the final path never holds a fragment, no temporary is left.
    EXPECT_EQ(filesIn(dir), ok ? std::vector<std::string>{"k.jpg"} : std::vector<std::string>{}) << c.name;
    if (ok) {
      EXPECT_EQ(dir.read("k.jpg"), std::string(2000, 'k')) << c.name;
    }
  }
}

TEST(ObjectStore, ASkewedClockIsCorrectedOnceAndKept) {
  for (const bool serverTimeInBody : {true, false}) {
    TestTransport transport;
    ObjectStoreDouble store("qzlp", "ak", "sk");
    store.skewClock(3600, serverTimeInBody);  // the kiosk runs an hour slow
    store.put("a.jpg", "picture");
    TempDir dir;
    OssError error;
    ASSERT_TRUE(fetchObjectToFile(store.settings(), "a.jpg", dir.file("a.jpg"), error))
        << serverTimeInBody << " " << error.code;
    EXPECT_EQ(store.requests(), 2);  // refused once, then signed with the store's time
    EXPECT_NEAR(static_cast<double>(ossClockOffsetSeconds()), 3600, 5);
    ASSERT_TRUE(fetchObjectToFile(store.settings(), "a.jpg", dir.file("b.jpg"), error));
    EXPECT_EQ(store.requests(), 3);  // the offset is kept for later requests
    EXPECT_TRUE(store.pauses().empty());
  }
}

// A listening socket whose backlog is full: the next connection attempt is never answered.
class UnansweredPort {
 public:
  UnansweredPort() : listener_(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::listen(listener_, 0);
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
    for (int& client : fillers_) {
      client = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
      ::connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address);
    }
  }
  ~UnansweredPort() {
    for (const int client : fillers_) ::close(client);
    ::close(listener_);
  }
  int port() const { return port_; }

 private:
  int listener_;
  int fillers_[4] = {};
  int port_ = 0;
};

// The limits themselves are the product's (see Transport.Defaults); shortened here so that the
// real sockets show what they do without a ten-second wait.
TEST(ObjectStore, StalledTransferAndUnansweredConnectFailAgainstRealSockets) {
  TestTransport transport;
  ObjectStoreDouble store("qzlp", "ak", "sk");
  store.put("a.jpg", std::string(5000, 'a'));
  store.fail({Fault::StallAfterHeaders});
  OssSettings settings = store.settings();
  settings.stallSeconds = 1;
  TempDir dir;
  OssError error;
  EXPECT_TRUE(fetchObjectToFile(settings, "a.jpg", dir.file("a.jpg"), error)) << error.message;
  EXPECT_EQ(store.pauses(), std::vector<long>{300});  // the stall timed out, then a retry
  EXPECT_EQ(dir.read("a.jpg"), std::string(5000, 'a'));

  const UnansweredPort port;
  settings.endpoint = "https://127.0.0.1:" + std::to_string(port.port());
  settings.connectTimeoutMs = 200;
  EXPECT_FALSE(fetchObjectToFile(settings, "a.jpg", dir.file("b.jpg"), error));
  EXPECT_EQ(error.code, "ClientError:200028");
  EXPECT_NE(error.message.find(" ms: Timeout was reached"), std::string::npos) << error.message;
  EXPECT_EQ(store.pauses(), (std::vector<long>{300, 300, 600, 1200}));
}

// What the service runs with, read from the settings it uses: no test overrides these.
TEST(Transport, Defaults) {
  EXPECT_EQ(httpSettings().timeoutMs, 30000);
  EXPECT_EQ(httpSettings().dnsCacheSeconds, 0);
  EXPECT_EQ(ossSettings().connectTimeoutMs, 5000);
  EXPECT_EQ(ossSettings().stallSeconds, 10);
  EXPECT_EQ(ossSettings().retryDelaysMs, (std::vector<long>{300, 600, 1200}));
  EXPECT_EQ(ossSettings().region, "cn-beijing");
  std::vector<int> transient;
  for (int code = 0; code < CURL_LAST; ++code)
    if (isTransientTransferError(static_cast<CURLcode>(code))) transient.push_back(code);
  EXPECT_EQ(transient, (std::vector<int>{7, 18, 23, 28, 52, 55, 56, 65}));
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
