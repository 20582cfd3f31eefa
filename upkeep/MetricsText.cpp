#include "upkeep/MetricsText.h"

#include "base/Utf8.h"

namespace kps {

std::string escapedLabelValue(const std::string& value) {
  // A printer's name in config.ini may be in the kiosk's code page rather than UTF-8.
  const std::string text = isValidUtf8(value) ? value : wideToUtf8(utf8ToWide(value));
  std::string escaped;
  for (const char c : text) {
    if (c == '\\' || c == '"') escaped += '\\';
    escaped += c == '\n' ? std::string("\\n") : std::string(1, c);
  }
  return escaped;
}

void MetricsText::family(const char* name, const char* type, const char* help) {
  name_ = name, type_ = type, help_ = help;
  started_ = false;
}

void MetricsText::sample(const Labels& labels, std::int64_t value) {
  std::string series = name_;
  if (!labels.empty()) {
    series += '{';
    for (std::size_t i = 0; i < labels.size(); ++i)
      series += (i ? "," : "") + std::string(labels[i].first) + "=\"" + escapedLabelValue(labels[i].second) + '"';
    series += '}';
  }
  if (!series_.insert(series).second) return;
  if (!started_) {
    text_ += std::string("# HELP ") + name_ + ' ' + help_ + "\n# TYPE " + name_ + ' ' + type_ + '\n';
    started_ = true;
  }
  text_ += series + ' ' + std::to_string(value) + '\n';
}

}  // namespace kps
