#include "remote/ObjectStore.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>

#include "base/FilePath.h"
#include "base/OwnFiles.h"
#include "Deployment.h"
#include "remote/Crc64.h"
#include "remote/Curl.h"
#include "remote/OssSigner.h"

namespace kps {

OssSettings& ossSettings() {
  static OssSettings settings{deployment::kOssEndpoint, deployment::kOssBucket,
                              deployment::kOssAccessKeyId, deployment::kOssAccessKeySecret};
  return settings;
}

bool isTransientTransferError(CURLcode code) {
  switch (code) {
    case CURLE_COULDNT_CONNECT:
    case CURLE_PARTIAL_FILE:
    case CURLE_WRITE_ERROR:
    case CURLE_OPERATION_TIMEDOUT:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_FAIL_REWIND:
      return true;
    default:
      return false;
  }
}

std::atomic<std::int64_t>& ossClockOffsetSeconds() {
  static std::atomic<std::int64_t> offset{0};
  return offset;
}

namespace {

std::error_code lastErrno() { return std::error_code(errno, std::generic_category()); }

bool startsWithNoCase(const std::string& text, const std::string& prefix) {
  if (text.size() < prefix.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(text[i])) != std::tolower(static_cast<unsigned char>(prefix[i])))
      return false;
  return true;
}

bool isIpAddress(const std::string& host) {
  if (!host.empty() && host.front() == '[') return true;  // IPv6 literal
  const std::string name = host.substr(0, host.find(':'));
  return !name.empty() && name.find_first_not_of("0123456789.") == std::string::npos;
}

// Seconds since 1970 of a UTC date and time, the same on every platform.
std::int64_t utcSeconds(int year, int month, int day, int hour, int minute, int second) {
  year -= month <= 2;
  const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
  const std::int64_t yearOfEra = year - era * 400;
  const std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return (era * 146097 + dayOfEra - 719468) * 86400 + hour * 3600 + minute * 60 + second;
}

// The store's clock: its ServerTime ("2026-11-22T08:53:44.000Z"), else its Date header; 0 when
// neither can be read.
std::int64_t storeClock(const std::string& serverTime, const std::string& date) {
  int y, mo, d, h, mi, s;
  if (std::sscanf(serverTime.c_str(), "%d-%d-%dT%d:%d:%d", &y, &mo, &d, &h, &mi, &s) == 6)
    return utcSeconds(y, mo, d, h, mi, s);
  const std::time_t parsed = date.empty() ? -1 : curl_getdate(date.c_str(), nullptr);
  return parsed > 0 ? parsed : 0;
}

// A body that is not the store's document, as one short line an operator can read.
std::string oneLine(const std::string& body) {
  std::string line;
  for (const char c : body.substr(0, 200)) line += (c == '\n' || c == '\r') ? ' ' : c;
  return line;
}

// An error document is a few hundred bytes: what a body holds past this is not read into memory.
constexpr std::size_t kMostErrorBody = 64 << 10;

// One attempt's receiving end. A 2xx body goes to the temporary file, created at its first
// byte; any other body is kept as the error document. The file is removed unless kept.
struct Transfer {
  Transfer(std::string temporaryPath, std::uint64_t mostBytes)
      : temporary(std::move(temporaryPath)), mostBytes(mostBytes) {}
  ~Transfer() {
    file.reset();
    if (created && !kept) {
      std::error_code ignored;
      std::filesystem::remove(toPath(temporary), ignored);
    }
  }
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  static std::size_t onBody(char* data, std::size_t size, std::size_t count, void* self) {
    auto& t = *static_cast<Transfer*>(self);
    const std::size_t bytes = size * count;
    long status = 0;
    curl_easy_getinfo(t.curl, CURLINFO_RESPONSE_CODE, &status);
    if (status < 200 || status >= 300) {
      t.errorBody.append(data, std::min(bytes, kMostErrorBody - std::min(kMostErrorBody, t.errorBody.size())));
      return bytes;
    }
    // Larger than any picture, by its length or by what came: stopped before the disk fills.
    curl_off_t length = -1;
    curl_easy_getinfo(t.curl, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    t.received += bytes;
    if (t.received > t.mostBytes || (length > 0 && static_cast<std::uint64_t>(length) > t.mostBytes)) {
      t.tooLarge = true;
      return 0;
    }
    if (!t.open()) return 0;  // aborts the transfer: nowhere to put the bytes
    t.crc = crc64(t.crc, data, bytes);
    if (std::fwrite(data, 1, bytes, t.file.get()) != bytes) {
      t.writeError = lastErrno();
      return 0;
    }
    return bytes;
  }

  // Past the time any picture may take, a transfer slower than the least rate its size allows
  // is cut: a body trickled a byte every few seconds would hold the intake for ever.
  static int onProgress(void* self, curl_off_t total, curl_off_t now, curl_off_t, curl_off_t) {
    auto& t = *static_cast<Transfer*>(self);
    const double taken = std::chrono::duration<double>(std::chrono::steady_clock::now() - t.started).count();
    const double size = static_cast<double>(std::max(total, now));
    t.tooSlow = taken > std::max(static_cast<double>(t.mostSeconds), size / static_cast<double>(t.leastRate));
    return t.tooSlow ? 1 : 0;
  }

  static std::size_t onHeader(char* data, std::size_t size, std::size_t count, void* self) {
    auto& t = *static_cast<Transfer*>(self);
    const std::string line(data, size * count);
    for (auto [name, target] : {std::pair{"x-oss-request-id:", &t.requestId},
                                std::pair{"x-oss-hash-crc64ecma:", &t.crcHeader},
                                std::pair{"date:", &t.date}}) {
      const std::string prefix = name;
      if (line.size() <= prefix.size() || !startsWithNoCase(line, prefix)) continue;
      const auto start = line.find_first_not_of(" \t", prefix.size());
      const auto end = line.find_last_not_of(" \t\r\n");
      if (start != std::string::npos && end >= start) *target = line.substr(start, end - start + 1);
    }
    return size * count;
  }

  bool open() {
    if (file) return true;
    file.reset(openFile(temporary, "wb"));
    created = created || file;
    if (!file) writeError = lastErrno();
    return static_cast<bool>(file);
  }

  // Closes the whole body and moves it into place; false with writeError set when it
  // could not be written.
  bool keepAs(const std::string& finalPath) {
    if (!open()) return false;  // an empty object still gets its (empty) file
    const bool flushed = std::fflush(file.get()) == 0;
    if (!flushed) writeError = lastErrno();
    file.reset();
    if (!flushed) return false;
    std::error_code error;
    std::filesystem::rename(toPath(temporary), toPath(finalPath), error);
    if (error) writeError = error;
    kept = !error;
    return kept;
  }

  CURL* curl = nullptr;
  std::string temporary;
  std::uint64_t mostBytes;
  std::uint64_t received = 0;
  bool tooLarge = false;
  std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
  long mostSeconds = 0, leastRate = 1;
  bool tooSlow = false;
  FilePtr file;
  bool created = false;
  bool kept = false;
  std::uint64_t crc = 0;
  std::error_code writeError;  // why the body could not be kept here
  std::string errorBody;
  std::string requestId;
  std::string crcHeader;
  std::string date;
  char detail[CURL_ERROR_SIZE] = {};
};

// One signed GET into `transfer`; its libcurl result and HTTP status.
std::pair<CURLcode, long> perform(const OssSettings& settings, const std::string& url,
                                  const std::string& key, Transfer& transfer) {
  const CurlEasy curl = newTransfer();
  if (!curl) return {CURLE_FAILED_INIT, 0};
  const std::time_t now = std::time(nullptr) + static_cast<std::time_t>(ossClockOffsetSeconds());
  OssRequestToSign request{"GET", settings.bucket, key, settings.region,
                           {{"x-oss-date", ossDateTime(now)},
                            {"x-oss-content-sha256", "UNSIGNED-PAYLOAD"}},
                           {}};
  CurlHeaders headers;
  for (const auto& [name, value] : request.headers) addHeader(headers, name + ": " + value);
  addHeader(headers, "Authorization: " + ossAuthorizationV4(settings.accessKeyId,
                                                            settings.accessKeySecret, request, now));
  transfer.curl = curl.get();
  curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(curl.get(), CURLOPT_CONNECTTIMEOUT_MS, settings.connectTimeoutMs);
  curl_easy_setopt(curl.get(), CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(curl.get(), CURLOPT_LOW_SPEED_TIME, settings.stallSeconds);
  transfer.mostSeconds = settings.mostTransferSeconds;
  transfer.leastRate = std::max(1L, settings.leastBytesPerSecond);
  curl_easy_setopt(curl.get(), CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(curl.get(), CURLOPT_XFERINFOFUNCTION, Transfer::onProgress);
  curl_easy_setopt(curl.get(), CURLOPT_XFERINFODATA, &transfer);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, Transfer::onBody);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &transfer);
  curl_easy_setopt(curl.get(), CURLOPT_HEADERFUNCTION, Transfer::onHeader);
  curl_easy_setopt(curl.get(), CURLOPT_HEADERDATA, &transfer);
  curl_easy_setopt(curl.get(), CURLOPT_ERRORBUFFER, transfer.detail);
  const CURLcode result = curl_easy_perform(curl.get());
  long status = 0;
  curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
  return {result, status};
}

OssError clientError(CURLcode result, const std::string& message, const std::string& requestId) {
  OssError error;
  error.code = "ClientError:" + std::to_string(200000 + result);
  error.message = message;
  error.requestId = requestId;
  return error;
}

}  // namespace

std::string ossObjectUrl(const OssSettings& settings, const std::string& key) {
  const auto schemeEnd = settings.endpoint.find("://");
  const std::string scheme =
      schemeEnd == std::string::npos ? "https" : settings.endpoint.substr(0, schemeEnd);
  std::string host =
      schemeEnd == std::string::npos ? settings.endpoint : settings.endpoint.substr(schemeEnd + 3);
  while (!host.empty() && host.back() == '/') host.pop_back();
  const std::string path = "/" + ossUriEncode(key, true);
  if (isIpAddress(host)) return scheme + "://" + host + "/" + settings.bucket + path;
  return scheme + "://" + settings.bucket + "." + host + path;
}

bool fetchObjectToFile(const OssSettings& settings, const std::string& key,
                       const std::string& filePath, OssError& error) {
  const std::string url = ossObjectUrl(settings, key);
  bool clockCorrected = false;
  for (std::size_t retries = 0;;) {
    Transfer transfer(downloadTemporaryPath(filePath), settings.mostObjectBytes);
    auto [result, status] = perform(settings, url, key, transfer);
    if (transfer.tooLarge || transfer.tooSlow) {
      error = clientError(result, transfer.tooLarge ? "the object is larger than any picture" : "the transfer was too slow",
                          transfer.requestId);
      const std::uint64_t most = settings.mostObjectBytes;
      error.refused = transfer.tooLarge ? "larger than " + (most >= (1u << 20) ? std::to_string(most >> 20) + " MiB"
                                                                               : std::to_string(most) + " bytes") +
                                              ", more than any picture"
                                        : "its download ran past " + std::to_string(settings.mostTransferSeconds) +
                                              " s at under " + std::to_string(settings.leastBytesPerSecond) + " bytes a second";
      return false;
    }
    if (result == CURLE_OK && status >= 200 && status < 300) {
      if (!transfer.crcHeader.empty() && transfer.crcHeader != std::to_string(transfer.crc)) {
        error = OssError{};
        error.code = "CrcCheckError";
        error.message = "CRC-64 of the received object " + std::to_string(transfer.crc) +
                        " differs from the store's " + transfer.crcHeader;
        error.requestId = transfer.requestId;
        return false;
      }
      if (transfer.keepAs(filePath)) return true;
      result = CURLE_WRITE_ERROR;
    }
    if (result != CURLE_OK) {
      const bool local = static_cast<bool>(transfer.writeError);
      error = clientError(result,
                          local ? "cannot write " + transfer.temporary + ": " + transfer.writeError.message()
                          : *transfer.detail ? transfer.detail : curl_easy_strerror(result),
                          transfer.requestId);
      error.localWrite = local;
      // The key's own name: no later attempt can write it either.
      error.keyLocal = local && isNameProblem(transfer.writeError);
      if (error.keyLocal) return false;
    } else {
      error = parseOssError(transfer.errorBody);
      if (error.code.empty()) {  // a proxy's page, an empty answer: not the store's document
        error.code = "ServerError:" + std::to_string(status);
        error.message = oneLine(transfer.errorBody);
      }
      if (error.requestId.empty()) error.requestId = transfer.requestId;
      const std::int64_t storeNow = storeClock(error.serverTime, transfer.date);
      if (error.code == "RequestTimeTooSkewed" && settings.correctClock && !clockCorrected && storeNow > 0) {
        // Kiosk clocks drift: sign with the store's time from now on, and try again at once.
        ossClockOffsetSeconds() = storeNow - static_cast<std::int64_t>(std::time(nullptr));
        clockCorrected = true;
        continue;
      }
    }
    const bool retryable = result != CURLE_OK ? isTransientTransferError(result) : status >= 500;
    if (!retryable || retries >= settings.retryDelaysMs.size()) return false;
    settings.pause(std::chrono::milliseconds(settings.retryDelaysMs[retries++]));
  }
}

}  // namespace kps
