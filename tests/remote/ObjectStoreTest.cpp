// The picture download against an object-store double that checks every signature.
#include "remote/ObjectStore.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "remote/HttpRequest.h"
#include "remote/RemoteOrderIdManger.h"
#include "tests/support/ObjectStoreDouble.h"
#include "tests/support/TestTransport.h"

namespace kps {
namespace {

class ObjectStoreTest : public ::testing::Test {
 protected:
  void SetUp() override { ossSettings() = store.settings(); }
  int download(const std::string& key, const std::string& path) {
    return intake.GetobjectToFile(key, path);
  }

  TestTransport transport;
  ObjectStoreDouble store{"qzlp", "test-key-id", "test-key-secret"};
  TempDir dir;
  RemoteOrderIdManger intake{dir.file("PrintData.db")};
};

TEST_F(ObjectStoreTest, SuccessWritesTheBytes) {
  const std::string bytes = std::string("\xFF\xD8\xFF\0jpeg", 8) + std::string(100000, 'p');
  store.put("pics/2026/a b+(1)~%.jpg", bytes);
  testing::internal::CaptureStdout();
  EXPECT_EQ(download("pics/2026/a b+(1)~%.jpg", dir.file("a.jpg")), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "RemoteOrderIdManger::GetobjectToFile success\n");
  EXPECT_EQ(dir.read("a.jpg"), bytes);
}

TEST_F(ObjectStoreTest, MissingKeyPrintsTheErrorAndLeavesNoFile) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(download("no/such.jpg", dir.file("n.jpg")), 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "GetObjectToFile fail,code:NoSuchKey,message:The specified key does not exist."
            ",requestId:REQ-1\n");
  EXPECT_FALSE(std::filesystem::exists(dir.file("n.jpg")));
  EXPECT_EQ(store.requests(), 1);  // a 404 is not retried
}

TEST_F(ObjectStoreTest, WrongSecretIsRefusedBySignature) {
  store.put("k.jpg", "data");
  ossSettings().accessKeySecret = "not-the-secret";
  testing::internal::CaptureStdout();
  EXPECT_EQ(download("k.jpg", dir.file("k.jpg")), 1);
  EXPECT_NE(testing::internal::GetCapturedStdout().find(",code:SignatureDoesNotMatch,"),
            std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(dir.file("k.jpg")));
}

TEST_F(ObjectStoreTest, ServerErrorIsRetriedWithinTheBudget) {
  store.put("k.jpg", "picture");
  store.fail(ObjectStoreDouble::Fault::ServerError);
  testing::internal::CaptureStdout();
  EXPECT_EQ(download("k.jpg", dir.file("k.jpg")), 0);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(store.requests(), 2);
  EXPECT_EQ(dir.read("k.jpg"), "picture");

  store.fail(ObjectStoreDouble::Fault::ServerError, 4);
  testing::internal::CaptureStdout();
  EXPECT_EQ(download("k.jpg", dir.file("k2.jpg")), 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "GetObjectToFile fail,code:InternalError,message:We encountered an internal error. "
            "Please try again.,requestId:REQ-6\n");
  EXPECT_EQ(store.requests(), 6);  // 1 + 3 retries
}

TEST_F(ObjectStoreTest, ConnectionCutMidBodyLeavesThePartialFile) {
  store.put("k.jpg", std::string(2000, 'z'));
  store.fail(ObjectStoreDouble::Fault::CutMidBody, 4);
  testing::internal::CaptureStdout();
  EXPECT_EQ(download("k.jpg", dir.file("k.jpg")), 1);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out.rfind("GetObjectToFile fail,code:ClientError:2000", 0), 0u) << out;
  EXPECT_EQ(dir.read("k.jpg"), std::string(1000, 'z'));  // truncated on each retry, not appended
}

TEST_F(ObjectStoreTest, UnreachableEndpointGivesAClientError) {
  ossSettings().endpoint = "https://127.0.0.1:1";
  testing::internal::CaptureStdout();
  EXPECT_EQ(download("k.jpg", dir.file("k.jpg")), 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "GetObjectToFile fail,code:ClientError:200007,message:Couldn't connect to server"
            ",requestId:\n");
}

TEST(ObjectUrl, PathStyleForAddressesVirtualHostedForNames) {
  OssSettings s{"https://127.0.0.1:9000", "qzlp", "", ""};
  EXPECT_EQ(ossObjectUrl(s, "a/b c.jpg"), "https://127.0.0.1:9000/qzlp/a/b%20c.jpg");
  s.endpoint = "https://oss-cn-beijing.example.com/";
  EXPECT_EQ(ossObjectUrl(s, "a/b.jpg"), "https://qzlp.oss-cn-beijing.example.com/a/b.jpg");
}

}  // namespace
}  // namespace kps
