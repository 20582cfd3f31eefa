// Object store request signing, signature version 4 (OSS4-HMAC-SHA256).
#pragma once

#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kps {

struct OssRequestToSign {
  std::string method;
  std::string bucket;
  std::string key;
  std::string region;
  // Every request header; only content-type, content-md5 and x-oss-* are signed.
  std::vector<std::pair<std::string, std::string>> headers;
  // Query parameters; a valueless parameter has no value.
  std::vector<std::pair<std::string, std::optional<std::string>>> query;
};

// "YYYYMMDDTHHMMSSZ" (UTC) for the x-oss-date header.
std::string ossDateTime(std::time_t when);

// The Authorization header value for the request at `when`.
std::string ossAuthorizationV4(const std::string& accessKeyId, const std::string& accessKeySecret,
                               const OssRequestToSign& request, std::time_t when);

// Percent-encoding of everything but A-Z a-z 0-9 - _ . ~ (and '/' when keepSlash).
std::string ossUriEncode(const std::string& text, bool keepSlash);

}  // namespace kps
