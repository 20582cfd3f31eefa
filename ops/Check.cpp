// `--check`: what a wrong setting would otherwise show hours later as failed orders, found in
// one run on site. It reads and asks, and writes nothing anywhere.
#include <curl/curl.h>

#include <exception>
#include <string>

#include "base/FilePath.h"
#include "config/IniFile.h"
#include "Deployment.h"
#include "ops/Commands.h"
#include "remote/Endpoints.h"
#include "upkeep/ScheduledFile.h"

namespace kps::ops {

namespace {

std::string shown(const ConfigSetting& setting, const PrinterConfigValues& values) {
  const std::string section = setting.section;
  if (setting.text && setting.optional && (values.*setting.text).empty()) return "not set";
  if (setting.text) {
    const std::string& value = values.*setting.text;
    if (section != "TimedOutJobs") return "\"" + value + "\"";
    return "\"" + value + "\"" +
           (value == "cancel" ? " (a job that times out is cancelled)"
                              : " (not \"cancel\": a job that times out stays queued)");
  }
  const std::int32_t value = values.*setting.number;
  std::string text = std::to_string(value);
  if (section == "PictureRetentionDays")
    return value > 0 ? text + " (a final, reported order's picture is deleted after that many days)"
                     : text + " (pictures are never deleted)";
  if (section == "Paperffder1") return text + " (read, not used)";
  if (section == "LogFile") return value > 0 ? text + " days" : "14 days (the default)";
  if (section == "environment") return text + (value == 0 ? " (the test backend)" : " (production)");
  if (section == "MediaLow")
    return value > 0 ? text + " (media is low at that many prints left)" : text + " (the driver's own low mark)";
  if (section == "WaitForPrinter")
    return value > 0 ? text + " (a copy waits that long for a printer that needs a person)"
                     : text + " (a printer that needs a person fails its copies)";
  return text;
}

// What the service would make of a value it takes: "" when it serves.
std::string settingProblem(const ConfigSetting& setting, const PrinterConfigValues& values) {
  if (setting.drawnFactor > 0 &&
      static_cast<std::int32_t>(static_cast<double>(values.*setting.number) * setting.drawnFactor) <= 0)
    return "draws nothing: every copy of the product types it sizes fails";
  if (std::string(setting.section) == "StatusFile" && !values.StatusFilePath.empty()) {
    const std::string problem = writtenFileProblem(values.StatusFilePath, values.LogFolder);
    if (!problem.empty()) return problem + ": the service writes no status file";
  }
  if (std::string(setting.section) == "MetricsFile" && !values.MetricsFilePath.empty()) {
    const std::string problem = writtenFileProblem(values.MetricsFilePath, values.LogFolder, values.StatusFilePath);
    if (!problem.empty()) return problem + ": the service writes no metrics file";
  }
  return "";
}

// What the service takes but a monitoring tool would not: "" when nothing.
std::string settingWarning(const ConfigSetting& setting, const PrinterConfigValues& values) {
  const std::string& metrics = values.MetricsFilePath;
  const std::string suffix = ".prom";
  if (std::string(setting.section) == "MetricsFile" && !metrics.empty() &&
      (metrics.size() < suffix.size() || metrics.compare(metrics.size() - suffix.size(), suffix.size(), suffix) != 0))
    return "the collectors read only files whose names end in .prom";
  return "";
}

}  // namespace

std::optional<PrinterConfigValues> checkConfiguration(CheckReport& report) {
  IniFile ini;
  if (!ini.load("./config.ini")) {
    report.fail("config.ini", "cannot be read in " + workingDirectory());
    return std::nullopt;
  }
  PrinterConfigValues values;
  bool complete = true;
  for (const ConfigSetting& setting : configSettings()) {
    const std::string what = std::string("config.ini [") + setting.section + "] " + setting.key;
    const std::string text = ini.get(setting.section, setting.key);
    if (text.empty() && !setting.optional) {
      report.fail(what, setting.text ? "missing or empty"
                                     : "missing; the service would end with \"invalid stoi argument\"");
      complete = false;
      continue;
    }
    try {
      applySetting(setting, text, values);
      const std::string problem = settingProblem(setting, values);
      const std::string warning = settingWarning(setting, values);
      if (!problem.empty())
        report.fail(what, shown(setting, values) + ": " + problem);
      else if (!warning.empty())
        report.warn(what, shown(setting, values) + ": " + warning);
      else
        report.ok(what, shown(setting, values));
    } catch (const std::exception& error) {
      report.fail(what, "\"" + text + "\"; the service would end with \"" + error.what() + "\"");
      complete = false;
    }
  }
  if (!complete) return std::nullopt;
  return values;
}

int runCheck(std::ostream& out) {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  CheckReport report(out);
  report.ok("version", std::string("kiosk-print-service ") + deployment::kVersion);
  report.ok("build", "backend " + backendBase(0) + " (environment 0), " + backendBase(1) +
                         " (any other); object store " + deployment::kOssEndpoint + ", bucket " +
                         deployment::kOssBucket + "; TLS trust: " + deployment::kTrust);
  const auto config = checkConfiguration(report);
  if (config) {
    checkPrinter(report, *config);
    checkBackend(report, *config);
  } else {
    report.warn("printer and backend", "not checked until config.ini is right");
  }
  checkObjectStore(report);
  checkWorkingDirectory(report);
  return report.failed() ? 1 : 0;
}

}  // namespace kps::ops
