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

PrinterConfigValues PrinterConfig::load() {
  if (!path_.empty()) {
    ini_.load(path_);
    // Looked up in this order, each stored as soon as it is read.
    values_.PrinterName = ini_.get("PrinterName", "name");
    values_.ScreenId = ini_.get("ScreenId", "id");
    values_.FourWidth = toPictureSize(ini_.get("FourWidth", "width"), 3.7, "FourWidth");
    values_.FourHeight = toPictureSize(ini_.get("FourHeight", "height"), 3.8, "FourHeight");
    values_.ThreeWidth = toPictureSize(ini_.get("ThreeWidth", "width"), 3.7, "ThreeWidth");
    values_.ThreeHeight = toPictureSize(ini_.get("ThreeHeight", "height"), 3.8, "ThreeHeight");
    values_.Rearfeeder = toInt32(ini_.get("Rearfeeder", "value"));
    values_.Paperffder1 = toInt32(ini_.get("Paperffder1", "value"));
    values_.FourSize = toInt32(ini_.get("FourSize", "value"));
    values_.ThreeSize = toInt32(ini_.get("ThreeSize", "value"));
    values_.environment = toInt32(ini_.get("environment", "value"));
    // Opt-in and read last, so that a config.ini without it behaves as it always has: absent or
    // empty is 0 (never delete); a value that is there converts like every other number.
    const std::string retention = ini_.get("PictureRetentionDays", "value");
    values_.PictureRetentionDays = retention.empty() ? 0 : toInt32(retention);
  }
  return values_;
}

}  // namespace kps
