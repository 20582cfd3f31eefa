#include "remote/OssSigner.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/sha.h>

#include <algorithm>
#include <cctype>

namespace kps {

namespace {

std::string hex(const unsigned char* data, std::size_t size) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  for (std::size_t i = 0; i < size; ++i) {
    out += digits[data[i] >> 4];
    out += digits[data[i] & 0xF];
  }
  return out;
}

std::string hmacSha256(const std::string& key, const std::string& data) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
       reinterpret_cast<const unsigned char*>(data.data()), data.size(), digest, &size);
  return std::string(reinterpret_cast<const char*>(digest), size);
}

std::string sha256Hex(const std::string& data) {
  unsigned char digest[SHA256_DIGEST_LENGTH];
  SHA256(reinterpret_cast<const unsigned char*>(data.data()), data.size(), digest);
  return hex(digest, sizeof digest);
}

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

std::string trim(const std::string& text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool isSigned(const std::string& name) {
  return name == "content-type" || name == "content-md5" || name.rfind("x-oss-", 0) == 0;
}

}  // namespace

std::string ossUriEncode(const std::string& text, bool keepSlash) {
  static const char digits[] = "0123456789ABCDEF";
  std::string out;
  for (const unsigned char c : text) {
    if (std::isalnum(c) || c == '-' || c == '_' || c == '.' || c == '~' || (keepSlash && c == '/')) {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += digits[c >> 4];
      out += digits[c & 0xF];
    }
  }
  return out;
}

std::string ossDateTime(std::time_t when) {
  std::tm utc{};
#ifdef _WIN32
  gmtime_s(&utc, &when);
#else
  gmtime_r(&when, &utc);
#endif
  char buffer[32];
  std::strftime(buffer, sizeof buffer, "%Y%m%dT%H%M%SZ", &utc);
  return buffer;
}

std::string ossAuthorizationV4(const std::string& accessKeyId, const std::string& accessKeySecret,
                               const OssRequestToSign& request, std::time_t when) {
  const std::string dateTime = ossDateTime(when);
  const std::string date = dateTime.substr(0, 8);
  const std::string scope = date + "/" + request.region + "/oss/aliyun_v4_request";

  std::string uri = "/";
  if (!request.bucket.empty()) uri += request.bucket + "/";
  uri += ossUriEncode(request.key, true);

  std::vector<std::pair<std::string, std::string>> query;
  for (const auto& [name, value] : request.query)
    query.emplace_back(ossUriEncode(name, false),
                       value ? "=" + ossUriEncode(*value, false) : std::string());
  std::sort(query.begin(), query.end());
  std::string canonicalQuery;
  for (const auto& [name, value] : query)
    canonicalQuery += (canonicalQuery.empty() ? "" : "&") + name + value;

  std::vector<std::pair<std::string, std::string>> headers;
  for (const auto& [name, value] : request.headers)
    if (isSigned(lower(name))) headers.emplace_back(lower(name), trim(value));
  std::sort(headers.begin(), headers.end());
  std::string canonicalHeaders;
  for (const auto& [name, value] : headers) canonicalHeaders += name + ":" + value + "\n";

  const std::string canonicalRequest = request.method + "\n" + uri + "\n" + canonicalQuery + "\n" +
                                       canonicalHeaders + "\n" + "" + "\n" + "UNSIGNED-PAYLOAD";
  const std::string stringToSign = "OSS4-HMAC-SHA256\n" + dateTime + "\n" + scope + "\n" +
                                   sha256Hex(canonicalRequest);

  std::string key = hmacSha256("aliyun_v4" + accessKeySecret, date);
  key = hmacSha256(key, request.region);
  key = hmacSha256(key, "oss");
  key = hmacSha256(key, "aliyun_v4_request");
  const std::string signature = hmacSha256(key, stringToSign);

  return "OSS4-HMAC-SHA256 Credential=" + accessKeyId + "/" + scope + ",Signature=" +
         hex(reinterpret_cast<const unsigned char*>(signature.data()), signature.size());
}

}  // namespace kps
