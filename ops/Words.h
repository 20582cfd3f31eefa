// How the operator's commands name an order's status and an age.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace kps::ops {

inline std::string statusName(std::int32_t status) {
  static const char* const names[] = {"pending", "withdrawn", "printed", "deleted", "failed", "partly printed"};
  return status >= 0 && status <= 5 ? names[status] : "status " + std::to_string(status);
}

inline std::string ageText(std::int64_t seconds) {
  if (seconds < 120) return std::to_string(seconds) + " s";
  if (seconds < 7200) return std::to_string(seconds / 60) + " min";
  if (seconds < 172800) return std::to_string(seconds / 3600) + " h";
  return std::to_string(seconds / 86400) + " days";
}

}  // namespace kps::ops
