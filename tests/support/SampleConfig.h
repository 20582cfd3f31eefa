// A complete config.ini for tests, with chosen settings replaced or (value "") left out.
#pragma once

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kps {

inline std::string sampleConfig(const std::map<std::string, std::string>& overrides) {
  const std::vector<std::pair<std::string, std::pair<std::string, std::string>>> settings = {
      {"PrinterName", {"name", "EPSON L8160 Series"}},
      {"ScreenId", {"id", "SCREEN-001"}},
      {"FourWidth", {"width", "100"}},
      {"FourHeight", {"height", "150"}},
      {"ThreeWidth", {"width", "80"}},
      {"ThreeHeight", {"height", "80"}},
      {"Rearfeeder", {"value", "15"}},
      {"Paperffder1", {"value", "7"}},
      {"FourSize", {"value", "11"}},
      {"ThreeSize", {"value", "12"}},
      {"environment", {"value", "0"}},
  };
  std::string text;
  for (const auto& [section, entry] : settings) {
    std::string value = entry.second;
    if (auto found = overrides.find(section); found != overrides.end()) {
      if (found->second.empty()) continue;
      value = found->second;
    }
    text += "[" + section + "]\n" + entry.first + "=" + value + "\n\n";
  }
  // Settings beyond the nine of every config.ini (the opt-in ones), each as section/value.
  for (const auto& [section, value] : overrides)
    if (!value.empty() && std::none_of(settings.begin(), settings.end(),
                                       [&](const auto& s) { return s.first == section; }))
      text += "[" + section + "]\nvalue=" + value + "\n\n";
  return text;
}

}  // namespace kps
