// `--check`, the two services this build talks to: the backend answers this screen's task
// list, and the object store accepts this build's keys and the kiosk's clock. Both through the
// service's own request code; nothing is taken in and nothing is downloaded.
#include <curl/curl.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <random>
#include <string>

#include "base/FilePath.h"
#include "Deployment.h"
#include "ops/Commands.h"
#include "remote/Endpoints.h"
#include "remote/HttpRequest.h"
#include "remote/ObjectStore.h"
#include "remote/TaskList.h"

namespace kps::ops {

namespace {

constexpr long kBackendTimeoutMs = 10000;
constexpr long kMostClockSkewSeconds = 300;

std::string shortened(const std::string& text) {
  std::string line = text.substr(0, 200);
  for (char& c : line)
    if (c == '\n' || c == '\r') c = ' ';
  return line + (text.size() > 200 ? "..." : "");
}

std::string randomName() {
  std::random_device device;
  std::mt19937_64 generator(device());
  char text[17];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(generator()));
  return text;
}

}  // namespace

void checkBackend(CheckReport& report, const PrinterConfigValues& config) {
  const std::string url = taskListUrl(config.environment);
  const std::string what = "backend " + url;
  HttpExchange exchange;
  exchange.timeoutMs = kBackendTimeoutMs;
  std::string body;
  if (HttpRequestDetailed(url, taskListQuery(config.ScreenId), "GET", body, exchange) != 0) {
    report.fail(what, "no answer: " + exchange.error);
    return;
  }
  const auto tasks = parseTaskList(body);
  if (exchange.status != 200 || !tasks) {
    report.fail(what, "HTTP " + std::to_string(exchange.status) + ", not code \"100\": " + shortened(body));
    return;
  }
  report.ok(what, "code \"100\" for screen " + config.ScreenId + ", " + std::to_string(tasks->size()) +
                      " task(s) listed (none taken in)");
  const std::time_t backendNow = curl_getdate(exchange.date.c_str(), nullptr);
  if (exchange.date.empty() || backendNow < 0) {
    report.warn("kiosk clock", "the backend sent no Date to compare with");
    return;
  }
  const long long skew = static_cast<long long>(std::time(nullptr)) - backendNow;
  const std::string by = std::to_string(std::llabs(skew)) + " s " + (skew < 0 ? "behind" : "ahead of");
  if (std::llabs(skew) > kMostClockSkewSeconds)
    report.warn("kiosk clock", by + " the backend's (more than 5 minutes)");
  else
    report.ok("kiosk clock", by + " the backend's");
}

void checkObjectStore(CheckReport& report) {
  // One signed request, asked once, signed with the kiosk's own clock: the answer is about this
  // build's keys and this PC's time, not about what the service would recover from.
  OssSettings settings = ossSettings();
  settings.retryDelaysMs.clear();
  settings.correctClock = false;
  const std::string key = "kiosk-print-service-check/" + randomName() + ".absent";
  std::error_code ignored;
  const std::filesystem::path file = std::filesystem::temp_directory_path(ignored) / ("kps-check-" + randomName());
  const std::string what = std::string("object store ") + deployment::kOssEndpoint + " bucket " +
                           deployment::kOssBucket;
  OssError error;
  if (fetchObjectToFile(settings, key, fromPath(file), error)) {
    std::filesystem::remove(file, ignored);
    report.ok(what, "keys and clock accepted (a key that should not exist was found: " + key + ")");
  } else if (error.code == "NoSuchKey") {
    report.ok(what, "this build's keys and the kiosk's clock are accepted (NoSuchKey for a key that cannot exist)");
  } else {
    report.fail(what, error.code + ": " + shortened(error.message));
  }
}

}  // namespace kps::ops
