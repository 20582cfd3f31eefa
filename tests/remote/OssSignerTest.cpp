#include "remote/OssSigner.h"

#include <gtest/gtest.h>

namespace kps {
namespace {

TEST(OssSigner, PublishedKnownAnswer) {
  OssRequestToSign request;
  request.method = "PUT";
  request.bucket = "bucket";
  request.key = "1234+-/123/1.txt";
  request.region = "cn-hangzhou";
  request.headers = {{"x-oss-head1", "value"}, {"abc", "value"}, {"ZAbc", "value"},
                     {"XYZ", "value"}, {"content-type", "text/plain"},
                     {"x-oss-content-sha256", "UNSIGNED-PAYLOAD"},
                     {"x-oss-date", "20231216T162057Z"}};  // the signer's own date header
  request.query = {{"param1", "value1"}, {"|param1", "value4"}, {"+param1", "value3"},
                   {"+param2", std::nullopt}, {"|param2", std::nullopt}, {"param2", std::nullopt}};
  EXPECT_EQ(ossAuthorizationV4("ak", "sk", request, 1702743657),
            "OSS4-HMAC-SHA256 Credential=ak/20231216/cn-hangzhou/oss/aliyun_v4_request,"
            "Signature=e21d18daa82167720f9b1047ae7e7f1ce7cb77a31e8203a7d5f4624fa0284afe");
}

TEST(OssSigner, DateAndEncoding) {
  EXPECT_EQ(ossDateTime(1702743657), "20231216T162057Z");
  EXPECT_EQ(ossUriEncode("a b+c/~%()\xC3\xA9", true), "a%20b%2Bc/~%25%28%29%C3%A9");
  EXPECT_EQ(ossUriEncode("a/b", false), "a%2Fb");
}

}  // namespace
}  // namespace kps
