// The site settings read once from ./config.ini: every setting is its own section.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "config/IniFile.h"

namespace kps {

struct PrinterConfigValues {
  std::int32_t FourWidth = 0;
  std::int32_t FourHeight = 0;
  std::int32_t ThreeWidth = 0;
  std::int32_t ThreeHeight = 0;
  std::int32_t Rearfeeder = 0;
  std::int32_t Paperffder1 = 0;
  std::int32_t unused = 0;  // no key sets it; kept for the record's shape
  std::int32_t FourSize = 0;
  std::int32_t ThreeSize = 0;
  std::string PrinterName;
  std::string ScreenId;
  std::int32_t environment = 0;
  std::int32_t PictureRetentionDays = 0;  // opt-in; 0: pictures are never deleted
  std::string LogFolder;                  // opt-in [LogFile]; empty: the standard streams only
  std::int32_t LogKeepDays = 0;           // 0: the default, 14
  std::string StatusFilePath;             // opt-in [StatusFile]; empty: none
  std::string TimedOutJobs;               // opt-in; "cancel": a timed-out job is cancelled
  std::int32_t WaitForPrinterMinutes = 0;  // opt-in [WaitForPrinter]; 0: copies never wait for a person
  std::int32_t MediaLowPrints = 0;         // opt-in [MediaLow]; 0: the driver's own low mark only
  std::string MetricsFilePath;             // opt-in [MetricsFile]; empty: none
};

// One setting of config.ini: its section and key, and where its value goes.
struct ConfigSetting {
  const char* section;
  const char* key;
  std::string PrinterConfigValues::*text;    // a text setting, or
  std::int32_t PrinterConfigValues::*number;  // a number
  double drawnFactor;                         // a picture size is drawn at this many times it; 0 else
  bool optional;                              // absent or empty is 0
};
// Every setting, in the order the service reads them.
const std::vector<ConfigSetting>& configSettings();
// Stores one setting's text into values as the service does; throws what load() throws.
void applySetting(const ConfigSetting& setting, const std::string& text, PrinterConfigValues& values);

// The opt-in settings of a config.ini and its texts (PrinterName, ScreenId), read without
// ending on a bad required one; a bad opt-in number is left at 0.
PrinterConfigValues readOptionalSettings(const std::string& path);

class PrinterConfig {
 public:
  // The process-wide instance, created on first use with the path "./config.ini".
  static PrinterConfig& instance();

  explicit PrinterConfig(std::string path) : path_(std::move(path)) {}

  // Reads the file and returns a copy of the settings. Throws std::invalid_argument
  // ("invalid stoi argument") or std::out_of_range ("stoi argument out of range") for an
  // integer setting that is missing or does not fit; settings read before it keep their values.
  PrinterConfigValues load();
  // The settings as they stand, also after a load that failed part-way.
  const PrinterConfigValues& values() const { return values_; }

 private:
  std::string path_;
  IniFile ini_;
  PrinterConfigValues values_;
};

// Decimal string to 32-bit integer with the standard library's rules (leading blanks, sign,
// trailing text ignored) and the same error texts on every platform.
std::int32_t toInt32(const std::string& text);

}  // namespace kps
