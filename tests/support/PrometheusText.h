// Prometheus text read back for comparison: each sample as "name{label="value",...}" with its
// labels in name order (as a collector writes them), and its value as a number, so that a file
// and a collector's rendering of it (labels sorted, 1.7e+09 for 1700000000) compare alike.
// Comments are skipped; a line that is not a sample is kept under "malformed".
#pragma once

#include <cstdlib>
#include <map>
#include <sstream>
#include <string>

namespace kps {

inline std::map<std::string, double> prometheusSamples(const std::string& text) {
  std::map<std::string, double> samples;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] == '#') continue;
    const auto brace = line.find('{');
    const auto space = line.rfind(' ');
    if (space == std::string::npos) {
      samples["malformed: " + line] = 0;
      continue;
    }
    std::string name = line.substr(0, std::min(brace, space));
    std::map<std::string, std::string> labels;
    if (brace != std::string::npos && brace < space) {
      // name="value" pairs; a value runs to its first unescaped quote.
      std::size_t at = brace + 1;
      while (at < space && line[at] != '}') {
        const auto equals = line.find("=\"", at);
        std::string value;
        std::size_t end = equals + 2;
        for (; end < line.size() && line[end] != '"'; ++end) {
          value += line[end];
          if (line[end] == '\\' && end + 1 < line.size()) value += line[++end];  // an escape, kept as written
        }
        labels[line.substr(at, equals - at)] = value;
        at = end + 1;
        if (at < line.size() && line[at] == ',') ++at;
      }
    }
    std::string series = name;
    if (!labels.empty()) {
      series += '{';
      for (const auto& [label, value] : labels) series += (series.back() == '{' ? "" : ",") + label + "=\"" + value + '"';
      series += '}';
    }
    samples[series] = std::strtod(line.c_str() + space + 1, nullptr);
  }
  return samples;
}

}  // namespace kps
