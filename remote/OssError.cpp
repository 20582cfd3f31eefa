#include "remote/OssError.h"

namespace kps {

namespace {

std::string element(const std::string& body, const std::string& name) {
  const std::string open = "<" + name + ">", close = "</" + name + ">";
  const auto start = body.find(open);
  if (start == std::string::npos) return "";
  const auto from = start + open.size();
  const auto end = body.find(close, from);
  if (end == std::string::npos) return "";
  return body.substr(from, end - from);
}

}  // namespace

OssError parseOssError(const std::string& body) {
  OssError error;
  error.code = element(body, "Code");
  error.message = element(body, "Message");
  error.requestId = element(body, "RequestId");
  error.serverTime = element(body, "ServerTime");
  return error;
}

}  // namespace kps
