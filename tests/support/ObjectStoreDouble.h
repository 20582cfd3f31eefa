// The object store as tests need it: objects of one bucket served over HTTPS on loopback, the
// V4 signature and the clock checked on every request, OSS error documents, the CRC-64 header,
// and scripted failures.
#pragma once

#include <atomic>
#include <chrono>
#include <ctime>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "remote/ObjectStore.h"
#include "remote/OssSigner.h"
#include "tests/support/HttpsServer.h"

namespace kps {

// CRC-64/XZ bit by bit: the store's checksum, written apart from the service's table.
inline std::string storeCrc64(const std::string& bytes) {
  std::uint64_t crc = ~0ull;
  for (const unsigned char c : bytes) {
    crc ^= c;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? (crc >> 1) ^ 0xC96C5795D7870F42ull : crc >> 1;
  }
  return std::to_string(~crc);
}

class ObjectStoreDouble {
 public:
  struct Fault {
    enum Kind { ServerError, CutAt, StallAfterHeaders, WrongCrc } kind;
    std::size_t at = 0;  // CutAt: bytes sent before the connection drops
  };

  ObjectStoreDouble(std::string bucket, std::string keyId, std::string secret)
      : bucket_(std::move(bucket)), keyId_(std::move(keyId)), secret_(std::move(secret)) {
    server_.routes().Get(R"(/([^/]+)/(.+))", [this](const httplib::Request& req,
                                                      httplib::Response& res) { serve(req, res); });
    origin_ = server_.start();
  }
  ~ObjectStoreDouble() {
    stalling_ = false;
    server_.stop();
  }

  // Settings for the client under test: this server, this bucket, these keys; back-offs are
  // recorded in pauses() instead of taken.
  OssSettings settings() {
    OssSettings s{origin_, bucket_, keyId_, secret_};
    s.pause = [this](std::chrono::milliseconds ms) { pauses_.push_back(ms.count()); };
    return s;
  }

  void put(const std::string& key, const std::string& bytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    objects_[key] = bytes;
  }
  // Faults answered, in order, before objects are served normally again.
  void fail(Fault fault, int times = 1) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (int i = 0; i < times; ++i) faults_.push_back(fault);
  }
  // The store's clock runs this far ahead of the machine's; it refuses requests signed more
  // than 15 minutes away from it. Its skew answer carries ServerTime, or only a Date header.
  void skewClock(std::int64_t seconds, bool serverTimeInBody = true) {
    skew_ = seconds;
    serverTimeInBody_ = serverTimeInBody;
  }
  int requests() const { return requests_; }
  const std::vector<long>& pauses() const { return pauses_; }

 private:
  static std::string utcText(std::time_t when, const char* format) {
    std::tm utc{};
    gmtime_r(&when, &utc);
    char text[64];
    std::strftime(text, sizeof text, format, &utc);
    return text;
  }

  void serve(const httplib::Request& req, httplib::Response& res) {
    ++requests_;
    const std::string bucket = req.matches[1], key = req.matches[2];
    std::tm when{};
    const std::string date = req.get_header_value("x-oss-date");
    ::strptime(date.c_str(), "%Y%m%dT%H%M%SZ", &when);
    const std::time_t signedAt = ::timegm(&when);
    OssRequestToSign signed_{"GET", bucket, key, "cn-beijing",
                             {{"x-oss-date", date},
                              {"x-oss-content-sha256", req.get_header_value("x-oss-content-sha256")}},
                             {}};
    res.set_header("x-oss-request-id", "REQ-" + std::to_string(requests_.load()));
    if (bucket != bucket_ ||
        req.get_header_value("Authorization") != ossAuthorizationV4(keyId_, secret_, signed_, signedAt)) {
      error(res, 403, "SignatureDoesNotMatch",
            "The request signature we calculated does not match the signature you provided.");
      return;
    }
    const std::time_t now = std::time(nullptr) + skew_;
    if (signedAt < now - 900 || signedAt > now + 900) {
      res.set_header("Date", utcText(now, "%a, %d %b %Y %H:%M:%S GMT"));
      error(res, 403, "RequestTimeTooSkewed",
            "The difference between the request time and the current time is too large.",
            serverTimeInBody_ ? "<ServerTime>" + utcText(now, "%Y-%m-%dT%H:%M:%S.000Z") + "</ServerTime>" : "");
      return;
    }
    std::unique_lock<std::mutex> lock(mutex_);
    const auto found = objects_.find(key);
    if (found == objects_.end() && faults_.empty()) {
      error(res, 404, "NoSuchKey", "The specified key does not exist.");
      return;
    }
    const std::string bytes = found != objects_.end() ? found->second : std::string(1000, 'x');
    res.set_header("x-oss-hash-crc64ecma", storeCrc64(bytes));
    if (faults_.empty()) {
      res.set_content(bytes, "image/jpeg");
      return;
    }
    const Fault fault = faults_.front();
    faults_.pop_front();
    lock.unlock();
    switch (fault.kind) {
      case Fault::ServerError:
        error(res, 500, "InternalError", "We encountered an internal error. Please try again.");
        return;
      case Fault::WrongCrc:
        res.set_header("x-oss-hash-crc64ecma", "12345");
        res.set_content(bytes, "image/jpeg");
        return;
      case Fault::CutAt:
      case Fault::StallAfterHeaders:
        res.set_content_provider(
            bytes.size(), "image/jpeg",
            [this, bytes, fault](std::size_t offset, std::size_t, httplib::DataSink& sink) {
              if (fault.kind == Fault::StallAfterHeaders) {
                while (stalling_) std::this_thread::sleep_for(std::chrono::milliseconds(20));
                return false;
              }
              if (offset > 0) return false;  // drop the connection
              if (fault.at > 0) sink.write(bytes.data(), fault.at);
              return fault.at > 0;
            });
        return;
    }
  }

  void error(httplib::Response& res, int status, const std::string& code,
             const std::string& message, const std::string& extra = "") {
    res.status = status;
    res.set_content("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Error>\n  <Code>" + code +
                        "</Code>\n  <Message>" + message + "</Message>\n  <RequestId>REQ-" +
                        std::to_string(requests_.load()) + "</RequestId>\n  <HostId>127.0.0.1</HostId>\n" +
                        extra + "</Error>\n",
                    "application/xml");
  }

  std::string bucket_, keyId_, secret_, origin_;
  HttpsServer server_;
  std::mutex mutex_;
  std::map<std::string, std::string> objects_;
  std::deque<Fault> faults_;
  std::atomic<int> requests_{0};
  std::atomic<bool> stalling_{true};
  std::int64_t skew_ = 0;
  bool serverTimeInBody_ = true;
  std::vector<long> pauses_;
};

}  // namespace kps
