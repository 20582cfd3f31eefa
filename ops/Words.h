// How the operator's commands name an order's status and an age.
#pragma once

#include <charconv>
#include <chrono>
#include <cstdint>
#include <string>
#include <system_error>
#include <vector>

namespace kps::ops {

inline std::string statusName(std::int32_t status) {
  static const char* const names[] = {"pending", "withdrawn", "printed", "deleted", "failed", "partly printed"};
  return status >= 0 && status <= 5 ? names[status] : "status " + std::to_string(status);
}

// Rows of (status, count) as "2 printed, 1 failed", or "none". A status that is no number (a
// table of another shape) is named as it stands.
inline std::string ordersText(const std::vector<std::vector<std::string>>& rows) {
  std::string text;
  for (const auto& row : rows) {
    std::int32_t status = 0;
    const char* end = row[0].data() + row[0].size();
    const auto [stop, error] = std::from_chars(row[0].data(), end, status);
    const bool number = !row[0].empty() && error == std::errc() && stop == end;
    text += (text.empty() ? "" : ", ") + row[1] + " " + (number ? statusName(status) : "of status \"" + row[0] + "\"");
  }
  return text.empty() ? "none" : text;
}

inline std::string ageText(std::int64_t seconds) {
  if (seconds < 120) return std::to_string(seconds) + " s";
  if (seconds < 7200) return std::to_string(seconds / 60) + " min";
  if (seconds < 172800) return std::to_string(seconds / 3600) + " h";
  return std::to_string(seconds / 86400) + " days";
}

}  // namespace kps::ops
