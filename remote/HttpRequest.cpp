#include "remote/HttpRequest.h"

#include <cstring>
#include <iostream>
#include <memory>

#include "Deployment.h"

namespace kps {

CURLcode lastTaskListResult = CURLE_OK;

HttpSettings& httpSettings() {
  static HttpSettings settings{30000, deployment::kCaBundle};
  return settings;
}

std::size_t WriteResponse(void* data, std::size_t size, std::size_t count, void* target) {
  static_cast<std::string*>(target)->append(static_cast<const char*>(data), size * count);
  return size * count;
}

namespace {

struct CurlDeleter {
  void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
};
struct SlistDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

int performRequest(const std::string& url, const std::string& params, const char* method,
                   std::string& response, bool quiet) {
  std::unique_ptr<CURL, CurlDeleter> curl(curl_easy_init());
  if (!curl) {
    std::cerr << "libcurl init error" << std::endl;
    return -1;
  }
  const auto is = [method](const char* name) { return method && std::strcmp(method, name) == 0; };
  const bool get = is("GET") || is("get");
  const bool post = is("POST") || is("post");
  std::string requestUrl = url;
  std::unique_ptr<curl_slist, SlistDeleter> headers;
  if (get) {
    if (!params.empty()) requestUrl += "?" + params;
    curl_easy_setopt(curl.get(), CURLOPT_URL, requestUrl.c_str());
    headers.reset(curl_slist_append(nullptr, "Accept: application/json"));
  } else if (post) {
    curl_easy_setopt(curl.get(), CURLOPT_URL, requestUrl.c_str());
    headers.reset(curl_slist_append(nullptr, "Content-Type: application/json"));
    curl_easy_setopt(curl.get(), CURLOPT_POST, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, params.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(params.size()));
  } else {
    return -1;
  }

  std::string body;
  curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT_MS, httpSettings().timeoutMs);
  curl_easy_setopt(curl.get(), CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(curl.get(), CURLOPT_DNS_CACHE_TIMEOUT, 0L);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, WriteResponse);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &body);
  // Verification stays on; a configured bundle only replaces the default trust store.
  if (!httpSettings().caBundle.empty())
    curl_easy_setopt(curl.get(), CURLOPT_CAINFO, httpSettings().caBundle.c_str());

  const CURLcode result = curl_easy_perform(curl.get());
  if (!quiet) lastTaskListResult = result;
  if (result == CURLE_OK) {
    response = body;
    return 0;
  }
  if (!quiet) std::cerr << "curl_easy_perform() failed: " << curl_easy_strerror(result) << std::endl;
  return -1;
}

}  // namespace

int HttpRequest(std::string url, std::string params, const char* method, std::string& response) {
  return performRequest(url, params, method, response, false);
}

int HttpRequestQuiet(std::string url, std::string params, const char* method,
                     std::string& response) {
  return performRequest(url, params, method, response, true);
}

}  // namespace kps
