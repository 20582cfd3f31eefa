// The client's transport settings pointed at the test CA for the life of the object, and put
// back as they were afterwards (also when an assertion ends the test early).
#pragma once

#include "remote/HttpRequest.h"
#include "remote/ObjectStore.h"
#include "tests/support/HttpsServer.h"

namespace kps {

class TestTransport {
 public:
  TestTransport() : http_(httpSettings()), oss_(ossSettings()), offset_(ossClockOffsetSeconds()) {
    httpSettings().caBundle = TestCertificates::get().caFile();
  }
  ~TestTransport() {
    httpSettings() = http_;
    ossSettings() = oss_;
    ossClockOffsetSeconds() = offset_;
  }
  TestTransport(const TestTransport&) = delete;
  TestTransport& operator=(const TestTransport&) = delete;

 private:
  HttpSettings http_;
  OssSettings oss_;
  std::int64_t offset_;
};

}  // namespace kps
