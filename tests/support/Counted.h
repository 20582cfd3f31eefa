// What the loops counted in base/Health since a test's look before, in words a table can hold:
// "printed", "failed IPP_TIME_OUT", "failed none x2", "download failed", ... joined by ", ".
#pragma once

#include <cstdint>
#include <string>

#include "base/Health.h"

namespace kps {

class Counted {
 public:
  Counted() : before_(Health::instance().counts()) {}

  std::string since() const {
    const HealthCounts now = Health::instance().counts();
    std::string words;
    const auto add = [&](const std::string& word, std::uint64_t was, std::uint64_t is) {
      if (is == was) return;
      words += (words.empty() ? "" : ", ") + word + (is - was > 1 ? " x" + std::to_string(is - was) : "");
    };
    add("printed", before_.printed, now.printed);
    add("partial", before_.partial, now.partial);
    for (const auto& [reason, count] : now.failedByReason) {
      const auto was = before_.failedByReason.find(reason);
      add("failed " + (reason.empty() ? std::string("none") : reason), was == before_.failedByReason.end() ? 0 : was->second, count);
    }
    add("poll failed", before_.pollsFailed, now.pollsFailed);
    add("sync failed", before_.syncsFailed, now.syncsFailed);
    add("download failed", before_.downloadsFailed, now.downloadsFailed);
    // The failures in all must be those by reason: a difference shows in the words.
    if (now.failed - before_.failed != failedByReason(now) - failedByReason(before_))
      words += ", failed in all " + std::to_string(now.failed - before_.failed);
    return words;
  }

 private:
  static std::uint64_t failedByReason(const HealthCounts& counts) {
    std::uint64_t sum = 0;
    for (const auto& entry : counts.failedByReason) sum += entry.second;
    return sum;
  }
  HealthCounts before_;
};

}  // namespace kps
