// Prometheus text format 0.0.4 as the textfile collectors of node_exporter and windows_exporter
// take it. They drop a whole file for one bad line, so everything that could make one is
// decided here: HELP and TYPE before a family's samples, label values escaped and valid UTF-8,
// whole numbers only (no locale has a say in their digits), no sample timestamps, "\n" line ends
// with a final one, and no series twice.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace kps {

class MetricsText {
 public:
  using Labels = std::vector<std::pair<const char*, std::string>>;

  // Starts a family; its HELP and TYPE lines are written with its first sample, so that a
  // family without samples leaves nothing.
  void family(const char* name, const char* type, const char* help);
  // A series already written is left as it was.
  void sample(const Labels& labels, std::int64_t value);
  void sample(std::int64_t value) { sample({}, value); }

  const std::string& text() const { return text_; }

 private:
  std::string text_;
  const char* name_ = "";
  const char* type_ = "";
  const char* help_ = "";
  bool started_ = false;
  std::set<std::string> series_;
};

// A label value as the format quotes it: backslash, double quote and line feed escaped, and
// what is not UTF-8 replaced by U+FFFD.
std::string escapedLabelValue(const std::string& value);

}  // namespace kps
