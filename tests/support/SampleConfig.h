// A complete config.ini for tests, with chosen settings replaced or (value "") left out; a
// setting beyond the usual ones (an opt-in) is added as its section's "value".
#pragma once

#include <map>
#include <string>

namespace kps {

inline std::string sampleConfig(std::map<std::string, std::string> overrides) {
  const char* const settings[][3] = {
      {"PrinterName", "name", "EPSON L8160 Series"}, {"ScreenId", "id", "SCREEN-001"}, {"FourWidth", "width", "100"},
      {"FourHeight", "height", "150"}, {"ThreeWidth", "width", "80"}, {"ThreeHeight", "height", "80"},
      {"Rearfeeder", "value", "15"}, {"Paperffder1", "value", "7"}, {"FourSize", "value", "11"},
      {"ThreeSize", "value", "12"}, {"environment", "value", "0"}};
  std::string text;
  for (const auto& [section, key, value] : settings) {
    const auto given = overrides.find(section);
    const std::string chosen = given == overrides.end() ? value : given->second;
    if (given != overrides.end()) overrides.erase(given);
    if (!chosen.empty()) text += "[" + std::string(section) + "]\n" + key + "=" + chosen + "\n\n";
  }
  for (const auto& [section, value] : overrides)
    if (!value.empty()) text += "[" + section + "]\nvalue=" + value + "\n\n";
  return text;
}

}  // namespace kps
