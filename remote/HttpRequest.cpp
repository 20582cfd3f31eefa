#include "remote/HttpRequest.h"

#include <cctype>
#include <cstring>
#include <iostream>
#include <memory>

#include "Deployment.h"
#include "remote/Curl.h"

namespace kps {

CURLcode lastTaskListResult = CURLE_OK;
long lastTaskListStatus = 0;

HttpSettings& httpSettings() {
  static HttpSettings settings{30000, 0, deployment::kCaBundle, 3600};
  return settings;
}

std::size_t WriteResponse(void* data, std::size_t size, std::size_t count, void* target) {
  static_cast<std::string*>(target)->append(static_cast<const char*>(data), size * count);
  return size * count;
}

namespace {

std::size_t keepDate(char* data, std::size_t size, std::size_t count, void* target) {
  const std::string line(data, size * count);
  std::string name = line.substr(0, 5);
  for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (line.size() > 5 && name == "date:") {
    const auto begin = line.find_first_not_of(" \t", 5), end = line.find_last_not_of(" \t\r\n");
    if (begin != std::string::npos && end >= begin)
      static_cast<HttpExchange*>(target)->date = line.substr(begin, end - begin + 1);
  }
  return size * count;
}

// quiet: the failure goes unsaid and lastTaskListResult unchanged; exchange, when given, gets
// what the answer showed.
int performRequest(const std::string& url, const std::string& params, const char* method,
                   std::string& response, bool quiet, HttpExchange* exchange = nullptr) {
  const CurlEasy curl = newTransfer();
  if (!curl) {
    std::cerr << "libcurl init error" << std::endl;
    return -1;
  }
  const auto is = [method](const char* name) { return method && std::strcmp(method, name) == 0; };
  const bool get = is("GET") || is("get");
  const bool post = is("POST") || is("post");
  std::string requestUrl = url;
  CurlHeaders headers;
  if (get) {
    if (!params.empty()) requestUrl += "?" + params;
    curl_easy_setopt(curl.get(), CURLOPT_URL, requestUrl.c_str());
    addHeader(headers, "Accept: application/json");
  } else if (post) {
    curl_easy_setopt(curl.get(), CURLOPT_URL, requestUrl.c_str());
    addHeader(headers, "Content-Type: application/json");
    curl_easy_setopt(curl.get(), CURLOPT_POST, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, params.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(params.size()));
  } else {
    return -1;
  }

  std::string body;
  curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT_MS,
                   exchange && exchange->timeoutMs > 0 ? exchange->timeoutMs : httpSettings().timeoutMs);
  if (exchange) {
    curl_easy_setopt(curl.get(), CURLOPT_HEADERFUNCTION, keepDate);
    curl_easy_setopt(curl.get(), CURLOPT_HEADERDATA, exchange);
  }
  curl_easy_setopt(curl.get(), CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(curl.get(), CURLOPT_DNS_CACHE_TIMEOUT, httpSettings().dnsCacheSeconds);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, WriteResponse);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &body);

  const CURLcode result = curl_easy_perform(curl.get());
  if (!quiet) {
    lastTaskListResult = result;
    lastTaskListStatus = 0;
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &lastTaskListStatus);
  }
  if (exchange) {
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &exchange->status);
    if (result != CURLE_OK) exchange->error = curl_easy_strerror(result);
  }
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

int HttpRequestDetailed(std::string url, std::string params, const char* method,
                        std::string& response, HttpExchange& exchange) {
  return performRequest(url, params, method, response, true, &exchange);
}

int HttpRequestQuiet(std::string url, std::string params, const char* method,
                     std::string& response) {
  return performRequest(url, params, method, response, true);
}

}  // namespace kps
