#include "remote/ObjectStore.h"

#include <curl/curl.h>


#include <cctype>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <thread>

#include "Deployment.h"
#include "remote/HttpRequest.h"
#include "remote/OssSigner.h"

namespace kps {

OssSettings& ossSettings() {
  static OssSettings settings{deployment::kOssEndpoint, deployment::kOssBucket,
                              deployment::kOssAccessKeyId, deployment::kOssAccessKeySecret};
  return settings;
}

namespace {

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
struct CurlDeleter {
  void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
};
struct SlistDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

bool startsWithNoCase(const std::string& text, const std::string& prefix) {
  if (text.size() < prefix.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(text[i])) != std::tolower(static_cast<unsigned char>(prefix[i])))
      return false;
  return true;
}

bool isIpAddress(const std::string& host) {
  if (!host.empty() && host.front() == '[') return true;  // IPv6 literal
  const std::string name = host.substr(0, host.find(':'));
  return !name.empty() && name.find_first_not_of("0123456789.") == std::string::npos;
}

// One attempt's receiving end.
struct Transfer {
  CURL* curl = nullptr;
  const std::string* path = nullptr;
  std::unique_ptr<std::FILE, FileCloser> file;
  bool fileFailed = false;
  std::string errorBody;
  std::string requestIdHeader;

  static std::size_t onBody(char* data, std::size_t size, std::size_t count, void* self) {
    auto& t = *static_cast<Transfer*>(self);
    const std::size_t bytes = size * count;
    long status = 0;
    curl_easy_getinfo(t.curl, CURLINFO_RESPONSE_CODE, &status);
    if (status < 200 || status >= 300) {
      t.errorBody.append(data, bytes);
      return bytes;
    }
    if (!t.file) {
      t.file.reset(std::fopen(t.path->c_str(), "w+b"));
      if (!t.file) {
        t.fileFailed = true;
        return 0;  // abort the transfer: nowhere to put the bytes
      }
    }
    return std::fwrite(data, 1, bytes, t.file.get());
  }

  static std::size_t onHeader(char* data, std::size_t size, std::size_t count, void* self) {
    auto& t = *static_cast<Transfer*>(self);
    const std::string line(data, size * count);
    const std::string name = "x-oss-request-id:";
    if (line.size() > name.size() && startsWithNoCase(line, name)) {
      const auto start = line.find_first_not_of(" \t", name.size());
      const auto end = line.find_last_not_of(" \t\r\n");
      if (start != std::string::npos && end >= start)
        t.requestIdHeader = line.substr(start, end - start + 1);
    }
    return size * count;
  }
};

}  // namespace

std::string ossObjectUrl(const OssSettings& settings, const std::string& key) {
  const auto schemeEnd = settings.endpoint.find("://");
  const std::string scheme =
      schemeEnd == std::string::npos ? "https" : settings.endpoint.substr(0, schemeEnd);
  std::string host =
      schemeEnd == std::string::npos ? settings.endpoint : settings.endpoint.substr(schemeEnd + 3);
  while (!host.empty() && host.back() == '/') host.pop_back();
  const std::string path = "/" + ossUriEncode(key, true);
  if (isIpAddress(host)) return scheme + "://" + host + "/" + settings.bucket + path;
  return scheme + "://" + settings.bucket + "." + host + path;
}

bool fetchObjectToFile(const OssSettings& settings, const std::string& key,
                       const std::string& filePath, OssError& error) {
  const std::string url = ossObjectUrl(settings, key);
  for (std::size_t attempt = 0;; ++attempt) {
    std::unique_ptr<CURL, CurlDeleter> curl(curl_easy_init());
    if (!curl) {
      error = {"ClientError:" + std::to_string(200000 + CURLE_FAILED_INIT),
               curl_easy_strerror(CURLE_FAILED_INIT), ""};
      return false;
    }
    const std::time_t now = std::time(nullptr);
    OssRequestToSign request{"GET", settings.bucket, key, settings.region,
                             {{"x-oss-date", ossDateTime(now)},
                              {"x-oss-content-sha256", "UNSIGNED-PAYLOAD"}},
                             {}};
    std::unique_ptr<curl_slist, SlistDeleter> headers;
    for (const auto& [name, value] : request.headers)
      headers.reset(curl_slist_append(headers.release(), (name + ": " + value).c_str()));
    const std::string authorization =
        "Authorization: " +
        ossAuthorizationV4(settings.accessKeyId, settings.accessKeySecret, request, now);
    headers.reset(curl_slist_append(headers.release(), authorization.c_str()));

    Transfer transfer;
    transfer.curl = curl.get();
    transfer.path = &filePath;
    curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(curl.get(), CURLOPT_CONNECTTIMEOUT_MS, settings.connectTimeoutMs);
    curl_easy_setopt(curl.get(), CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_LOW_SPEED_TIME, settings.stallSeconds);
    curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, Transfer::onBody);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(curl.get(), CURLOPT_HEADERFUNCTION, Transfer::onHeader);
    curl_easy_setopt(curl.get(), CURLOPT_HEADERDATA, &transfer);
    if (!httpSettings().caBundle.empty())
      curl_easy_setopt(curl.get(), CURLOPT_CAINFO, httpSettings().caBundle.c_str());

    const CURLcode result = curl_easy_perform(curl.get());
    long status = 0;
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
    if (result == CURLE_OK && status >= 200 && status < 300) {
      // An empty object still gets its (empty) file.
      if (!transfer.file) transfer.file.reset(std::fopen(filePath.c_str(), "w+b"));
      if (transfer.file && std::fflush(transfer.file.get()) == 0) return true;
      error = {"ClientError:" + std::to_string(200000 + CURLE_WRITE_ERROR),
               "cannot write " + filePath, ""};
      return false;
    }
    if (result != CURLE_OK) {
      error = {"ClientError:" + std::to_string(200000 + result), curl_easy_strerror(result),
               transfer.requestIdHeader};
      if (transfer.fileFailed) error.message = "cannot write " + filePath;
    } else {
      error = parseOssError(transfer.errorBody);
      if (error.requestId.empty()) error.requestId = transfer.requestIdHeader;
    }
    const bool retryable = (result != CURLE_OK && !transfer.fileFailed) || status >= 500;
    if (!retryable || attempt >= settings.retryDelaysMs.size()) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(settings.retryDelaysMs[attempt]));
  }
}

}  // namespace kps
