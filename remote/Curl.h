// libcurl handles with their owners, and the one place every request's easy handle is made.
#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>

namespace kps {

struct CurlDeleter {
  void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
};
struct SlistDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using CurlEasy = std::unique_ptr<CURL, CurlDeleter>;
using CurlHeaders = std::unique_ptr<curl_slist, SlistDeleter>;

// Appends one header line to a list (which may be empty).
void addHeader(CurlHeaders& list, const std::string& line);

// A new easy handle for one request: on the calling thread's cache of connections and TLS
// sessions, so that a poll every few seconds reuses one connection instead of a handshake each
// time; with the deployed trust store; without signals. Null when libcurl cannot make one.
CurlEasy newTransfer();

}  // namespace kps
