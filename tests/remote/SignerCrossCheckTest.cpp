// Our V4 signer against the official JavaScript SDK's, over awkward object keys.
#include <gtest/gtest.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdio>
#include <memory>

#include "remote/OssSigner.h"
#include "tests/support/TempDir.h"

namespace kps {
namespace {

TEST(SignerCrossCheck, AgreesWithTheIndependentSigner) {
  const std::time_t when = 1794000000;
  const std::vector<std::string> keys = {
      "a.jpg", "pics/2026/11/a b.jpg", "x+y=z.png", "tilde~name.jpg", "100%.jpg",
      "(copy) [1].jpg", "\xE7\x85\xA7\xE7\x89\x87/\xE5\x9B\xBE.jpg", "deep/er/and/deeper/k.jpg",
      "semi;colon,comma&amp.jpg", "quote'\"`.jpg"};
  std::vector<OssRequestToSign> requests;
  rapidjson::StringBuffer json;
  rapidjson::Writer<rapidjson::StringBuffer> writer(json);
  writer.StartArray();
  for (const auto& key : keys) {
    OssRequestToSign request{"GET", "qzlp", key, "cn-beijing",
                             {{"x-oss-date", ossDateTime(when)},
                              {"x-oss-content-sha256", "UNSIGNED-PAYLOAD"}},
                             {}};
    requests.push_back(request);
    writer.StartObject();
    for (const auto& [name, value] :
         std::vector<std::pair<const char*, std::string>>{{"ak", "test-ak-id"},
                                                          {"sk", "secret with spaces+/="},
                                                          {"region", "cn-beijing"},
                                                          {"method", "GET"},
                                                          {"bucket", "qzlp"},
                                                          {"key", key}}) {
      writer.Key(name);
      writer.String(value.c_str(), static_cast<rapidjson::SizeType>(value.size()));
    }
    writer.Key("headers");
    writer.StartObject();
    for (const auto& [name, value] : request.headers) {
      writer.Key(name.c_str());
      writer.String(value.c_str());
    }
    writer.EndObject();
    writer.EndObject();
  }
  writer.EndArray();

  TempDir dir;
  const std::string input = dir.write("requests.json", json.GetString());
  const std::string command = "node " + std::string(KPS_SOURCE_DIR) +
                              "/tests/remote/signer/sign-v4.js < " + input;
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
  ASSERT_TRUE(pipe);
  char line[1024];
  for (std::size_t i = 0; i < requests.size(); ++i) {
    ASSERT_TRUE(std::fgets(line, sizeof line, pipe.get())) << "node gave fewer answers";
    std::string theirs(line);
    theirs.pop_back();
    EXPECT_EQ(ossAuthorizationV4("test-ak-id", "secret with spaces+/=", requests[i], when), theirs)
        << keys[i];
  }
}

}  // namespace
}  // namespace kps
