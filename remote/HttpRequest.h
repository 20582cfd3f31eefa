// The HTTP JSON client: one blocking request per call, nothing kept between calls.
#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <string>

namespace kps {

// Transport settings shared by every request; from the deployment, adjustable by tests.
struct HttpSettings {
  long timeoutMs = 30000;    // the whole backend request, connection included
  long dnsCacheSeconds = 0;  // every backend request resolves its host afresh
  std::string caBundle;      // empty: the TLS library's default trust store
  // A kept connection is closed after this long, however busy, so that a changed address of
  // the backend or the store is followed within it.
  long connectionLifetimeSeconds = 3600;
};
HttpSettings& httpSettings();

// The result of the last task-list transfer and its HTTP status (written by HttpRequest only).
extern CURLcode lastTaskListResult;
extern long lastTaskListStatus;

// Appends size * count bytes to the std::string at target.
std::size_t WriteResponse(void* data, std::size_t size, std::size_t count, void* target);

// GET (params as query string, "?" only when non-empty) or POST (params as JSON body). method
// must be exactly "GET", "get", "POST" or "post". 0 with the body in response; -1 otherwise.
// A failed transfer is reported on standard error and kept in lastTaskListResult.
int HttpRequest(std::string url, std::string params, const char* method, std::string& response);

// What an operator's check learns of one exchange besides the body.
struct HttpExchange {
  long timeoutMs = 0;  // the whole request; 0: the service's own
  long status = 0;     // the HTTP status, 0 without an answer
  std::string date;    // the answer's Date header
  std::string error;   // libcurl's text of a failed transfer
};

// The same request, quiet, with what the exchange showed.
int HttpRequestDetailed(std::string url, std::string params, const char* method,
                        std::string& response, HttpExchange& exchange);

// The same request for the status sync: a failed transfer says nothing and leaves
// lastTaskListResult alone.
int HttpRequestQuiet(std::string url, std::string params, const char* method,
                     std::string& response);

}  // namespace kps
