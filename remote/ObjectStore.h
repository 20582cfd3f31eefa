// One object fetched from the object store into a file: a signed HTTPS GET with the official
// client's default behaviour: verification on, 5 s to connect, a transfer stalled for 10 s
// fails, 3 retries with back-off on server errors and transient transfer errors, the clock
// corrected once from a RequestTimeTooSkewed answer, the CRC-64 checked.
#pragma once

#include <curl/curl.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
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
  bool correctClock = true;  // sign with the store's clock after a RequestTimeTooSkewed answer
  // Bounds no real picture reaches (a 48 MP phone photo is about 20 MB): an object larger, or a
  // transfer slower, fails its task at once, never retried, instead of filling the disk or
  // holding the intake on every poll. A transfer may take mostTransferSeconds, or longer as long
  // as its size at leastBytesPerSecond needs: 18 MB on a 200 kbit/s line takes 12 minutes.
  std::uint64_t mostObjectBytes = 256ull << 20;
  long mostTransferSeconds = 600;
  long leastBytesPerSecond = 4096;
  // How a back-off waits; tests record the pauses instead of taking them.
  std::function<void(std::chrono::milliseconds)> pause = [](std::chrono::milliseconds ms) {
    std::this_thread::sleep_for(ms);
  };
};
// From the deployment; tests point it at their own server.
OssSettings& ossSettings();

// The transfer errors the official client retries: could not connect, partial file, write
// error, timeout, empty reply, send error, receive error, rewind error.
bool isTransientTransferError(CURLcode code);

// Seconds added to this machine's clock when signing, learnt from the store's answer when
// the two disagree too much. Kept for the life of the process.
std::atomic<std::int64_t>& ossClockOffsetSeconds();

// The URL of an object: path-style for an IP endpoint, virtual-hosted otherwise.
std::string ossObjectUrl(const OssSettings& settings, const std::string& key);

// Fetches key into filePath. The bytes go to a temporary file beside it, renamed into place
// when whole and matching the store's CRC-64: filePath never holds a fragment, and a failed
// attempt leaves nothing behind. True on success; otherwise `error` says why.
bool fetchObjectToFile(const OssSettings& settings, const std::string& key,
                       const std::string& filePath, OssError& error);

}  // namespace kps
