// One object fetched from the object store into a file: a signed HTTPS GET with the official
// client's default behaviour (verification on, 5 s connect timeout, 10 s stall limit, three
// retries with back-off on server errors and network failures).
#pragma once

#include <string>
#include <vector>

#include "remote/OssError.h"

namespace kps {

struct OssSettings {
  std::string endpoint;  // scheme and host, no path
  std::string bucket;
  std::string accessKeyId;
  std::string accessKeySecret;
  std::string region = "cn-beijing";
  long connectTimeoutMs = 5000;
  long stallSeconds = 10;
  std::vector<long> retryDelaysMs = {300, 600, 1200};
};
// From the deployment; tests point it at their own server.
OssSettings& ossSettings();

// The URL of an object: path-style for an IP endpoint, virtual-hosted otherwise.
std::string ossObjectUrl(const OssSettings& settings, const std::string& key);

// Fetches key into filePath. The file is created (truncated) only when a successful response's
// body starts. True on success; otherwise `error` says why.
bool fetchObjectToFile(const OssSettings& settings, const std::string& key,
                       const std::string& filePath, OssError& error);

}  // namespace kps
