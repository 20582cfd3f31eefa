#include "remote/Curl.h"

#include "remote/HttpRequest.h"

namespace kps {

namespace {

// One cache per thread: libcurl does not support one pool of connections used by concurrently
// running threads, and the service's threads each talk to the backend on their own (the poll
// loop, which also downloads, and the sync loop). Within a thread, handles come one at a time.
class ThreadCache {
 public:
  ThreadCache() : share_(curl_share_init()) {
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_CONNECT);
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
  }
  ~ThreadCache() { curl_share_cleanup(share_); }
  ThreadCache(const ThreadCache&) = delete;
  ThreadCache& operator=(const ThreadCache&) = delete;
  CURLSH* get() const { return share_; }

 private:
  CURLSH* share_;
};

}  // namespace

void addHeader(CurlHeaders& list, const std::string& line) {
  list.reset(curl_slist_append(list.release(), line.c_str()));
}

CurlEasy newTransfer() {
  thread_local ThreadCache cache;
  CurlEasy curl(curl_easy_init());
  if (!curl) return curl;
  if (cache.get()) curl_easy_setopt(curl.get(), CURLOPT_SHARE, cache.get());
  curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl.get(), CURLOPT_MAXLIFETIME_CONN, httpSettings().connectionLifetimeSeconds);
  // Verification stays on; a configured bundle only replaces the default trust store, which on
  // Windows is the system's own (OpenSSL has none there).
  if (!httpSettings().caBundle.empty())
    curl_easy_setopt(curl.get(), CURLOPT_CAINFO, httpSettings().caBundle.c_str());
#ifdef _WIN32
  else
    curl_easy_setopt(curl.get(), CURLOPT_SSL_OPTIONS, static_cast<long>(CURLSSLOPT_NATIVE_CA));
#endif
  return curl;
}

}  // namespace kps
