#include "config/PrinterConfig.h"

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <stdexcept>

namespace kps {

std::int32_t toInt32(const std::string& text) {
  const char* begin = text.c_str();
  char* end = nullptr;
  errno = 0;
  const long long value = std::strtoll(begin, &end, 10);
  if (end == begin) throw std::invalid_argument("invalid stoi argument");
  if (errno == ERANGE || value < std::numeric_limits<std::int32_t>::min() ||
      value > std::numeric_limits<std::int32_t>::max())
    throw std::out_of_range("stoi argument out of range");
  return static_cast<std::int32_t>(value);
}

namespace {

// A picture size is drawn at `factor` times its value as a 32-bit integer: a value that would
// leave that range is refused at start, like one that is not a number.
std::int32_t toPictureSize(const std::string& text, double factor, const char* setting) {
  const std::int32_t value = toInt32(text);
  const double drawn = static_cast<double>(value) * factor;
  if (drawn >= 2147483648.0 || drawn <= -2147483649.0)
    throw std::out_of_range(std::string(setting) + " " + std::to_string(value) + " cannot be drawn: " +
                            (factor == 3.7 ? "3.7" : "3.8") + " times it leaves the 32-bit range");
  return value;
}

}  // namespace

PrinterConfig& PrinterConfig::instance() {
  static PrinterConfig config("./config.ini");  // thread-safe first use
  return config;
}

const std::vector<ConfigSetting>& configSettings() {
  using V = PrinterConfigValues;
  // Looked up in this order, each stored as soon as it is read. The opt-in settings are read
  // last, so that a config.ini without them behaves as it always has.
  static const std::vector<ConfigSetting> settings = {
      {"PrinterName", "name", &V::PrinterName, nullptr, 0, false},
      {"ScreenId", "id", &V::ScreenId, nullptr, 0, false},
      {"FourWidth", "width", nullptr, &V::FourWidth, 3.7, false},
      {"FourHeight", "height", nullptr, &V::FourHeight, 3.8, false},
      {"ThreeWidth", "width", nullptr, &V::ThreeWidth, 3.7, false},
      {"ThreeHeight", "height", nullptr, &V::ThreeHeight, 3.8, false},
      {"Rearfeeder", "value", nullptr, &V::Rearfeeder, 0, false},
      {"Paperffder1", "value", nullptr, &V::Paperffder1, 0, false},
      {"FourSize", "value", nullptr, &V::FourSize, 0, false},
      {"ThreeSize", "value", nullptr, &V::ThreeSize, 0, false},
      {"environment", "value", nullptr, &V::environment, 0, false},
      {"PictureRetentionDays", "value", nullptr, &V::PictureRetentionDays, 0, true},
      {"LogFile", "folder", &V::LogFolder, nullptr, 0, true},
      {"LogFile", "keepDays", nullptr, &V::LogKeepDays, 0, true},
      {"StatusFile", "path", &V::StatusFilePath, nullptr, 0, true},
      {"TimedOutJobs", "value", &V::TimedOutJobs, nullptr, 0, true},
      {"WaitForPrinter", "minutes", nullptr, &V::WaitForPrinterMinutes, 0, true},
      {"MediaLow", "prints", nullptr, &V::MediaLowPrints, 0, true},
      {"MetricsFile", "path", &V::MetricsFilePath, nullptr, 0, true},
  };
  return settings;
}

void applySetting(const ConfigSetting& setting, const std::string& text, PrinterConfigValues& values) {
  if (setting.text)
    values.*setting.text = text;
  else if (setting.optional && text.empty())
    values.*setting.number = 0;
  else if (setting.drawnFactor > 0)
    values.*setting.number = toPictureSize(text, setting.drawnFactor, setting.section);
  else
    values.*setting.number = toInt32(text);
}

PrinterConfigValues readOptionalSettings(const std::string& path) {
  IniFile ini;
  PrinterConfigValues values;
  if (!ini.load(path)) return values;
  for (const ConfigSetting& setting : configSettings()) {
    if (!setting.optional && !setting.text) continue;
    try {
      applySetting(setting, ini.get(setting.section, setting.key), values);
    } catch (const std::exception&) {
    }
  }
  return values;
}

PrinterConfigValues PrinterConfig::load() {
  if (!path_.empty()) {
    ini_.load(path_);
    for (const ConfigSetting& setting : configSettings())
      applySetting(setting, ini_.get(setting.section, setting.key), values_);
  }
  return values_;
}

}  // namespace kps
