// The object store as tests need it: objects of one bucket served over HTTPS on loopback, the
// V4 signature checked on every request, OSS error documents, and scripted failures.
#pragma once

#include <atomic>
#include <ctime>
#include <deque>
#include <map>
#include <mutex>
#include <string>

#include "remote/ObjectStore.h"
#include "remote/OssSigner.h"
#include "tests/support/HttpsServer.h"

namespace kps {

class ObjectStoreDouble {
 public:
  enum class Fault { ServerError, CutMidBody };

  ObjectStoreDouble(std::string bucket, std::string keyId, std::string secret)
      : bucket_(std::move(bucket)), keyId_(std::move(keyId)), secret_(std::move(secret)) {
    server_.routes().Get(R"(/([^/]+)/(.+))", [this](const httplib::Request& req,
                                                      httplib::Response& res) { serve(req, res); });
    origin_ = server_.start();
  }

  // Settings for the client under test: this server, this bucket, these keys, fast retries.
  OssSettings settings() const {
    OssSettings s{origin_, bucket_, keyId_, secret_};
    s.retryDelaysMs = {1, 1, 1};
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
  int requests() const { return requests_; }

 private:
  void serve(const httplib::Request& req, httplib::Response& res) {
    ++requests_;
    const std::string bucket = req.matches[1], key = req.matches[2];
    std::tm when{};
    const std::string date = req.get_header_value("x-oss-date");
    ::strptime(date.c_str(), "%Y%m%dT%H%M%SZ", &when);
    OssRequestToSign signed_{"GET", bucket, key, "cn-beijing",
                             {{"x-oss-date", date},
                              {"x-oss-content-sha256", req.get_header_value("x-oss-content-sha256")}},
                             {}};
    res.set_header("x-oss-request-id", "REQ-" + std::to_string(requests_.load()));
    if (bucket != bucket_ ||
        req.get_header_value("Authorization") !=
            ossAuthorizationV4(keyId_, secret_, signed_, ::timegm(&when))) {
      error(res, 403, "SignatureDoesNotMatch",
            "The request signature we calculated does not match the signature you provided.");
      return;
    }
    std::unique_lock<std::mutex> lock(mutex_);
    if (!faults_.empty()) {
      const Fault fault = faults_.front();
      faults_.pop_front();
      if (fault == Fault::ServerError) {
        error(res, 500, "InternalError", "We encountered an internal error. Please try again.");
        return;
      }
      const std::string bytes = objects_.count(key) ? objects_[key] : std::string(1000, 'x');
      res.set_content_provider(bytes.size(), "image/jpeg",
                               [bytes](std::size_t offset, std::size_t, httplib::DataSink& sink) {
                                 if (offset > 0) return false;  // drop the connection half-way
                                 sink.write(bytes.data(), bytes.size() / 2);
                                 return true;
                               });
      return;
    }
    const auto found = objects_.find(key);
    if (found == objects_.end()) {
      error(res, 404, "NoSuchKey", "The specified key does not exist.");
      return;
    }
    res.set_content(found->second, "image/jpeg");
  }

  void error(httplib::Response& res, int status, const std::string& code,
             const std::string& message) {
    res.status = status;
    res.set_content("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Error>\n  <Code>" + code +
                        "</Code>\n  <Message>" + message + "</Message>\n  <RequestId>REQ-" +
                        std::to_string(requests_.load()) +
                        "</RequestId>\n  <HostId>127.0.0.1</HostId>\n</Error>\n",
                    "application/xml");
  }

  std::string bucket_, keyId_, secret_, origin_;
  HttpsServer server_;
  std::mutex mutex_;
  std::map<std::string, std::string> objects_;
  std::deque<Fault> faults_;
  std::atomic<int> requests_{0};
};

}  // namespace kps
