#include "printer/MediaReport.h"

#include <algorithm>
#include <cstdlib>
#include <regex>

namespace kps {

std::optional<MediaReport> mediaFromMarkers(const std::vector<std::string>& names, const std::vector<int>& levels,
                                            const std::vector<int>& lowLevels, const std::vector<int>& highLevels,
                                            const std::string& message) {
  if (names.empty() && levels.empty() && message.empty()) return std::nullopt;
  MediaReport media;
  if (!names.empty()) media.name = names.front();
  // IPP's marker-levels are percent of marker-high-levels (100 when absent); -1, -2 and -3 say
  // the printer cannot tell. A driver that counts prints gives the count there, with the full
  // count as its high level, or alone past any percent; its low level is a count too.
  const int high = !highLevels.empty() && highLevels.front() > 0 ? highLevels.front() : 100;
  const int level = levels.empty() ? -1 : levels.front();
  if (level >= 0 && high > 100) {
    media.remainingPrints = level;
    media.levelPercent = static_cast<std::int32_t>(std::min<long long>(100, level * 100LL / high));
  } else if (level > 100) {
    media.remainingPrints = level;
  } else if (level >= 0) {
    media.levelPercent = level;
  }
  // "37 native prints remaining on 4x6 media": the count, and the media by the driver's name.
  static const std::regex remaining(R"((\d{1,9})\s+(?:\w+\s+)*?prints?\s+remaining(?:\s+on\s+(.+?)\s+media)?)",
                                    std::regex::icase);
  std::smatch found;
  if (std::regex_search(message, found, remaining)) {
    media.remainingPrints = static_cast<std::int32_t>(std::strtol(found[1].str().c_str(), nullptr, 10));
    if (found[2].matched) media.name = found[2].str();
  }
  if (media.levelPercent && !lowLevels.empty() && lowLevels.front() > 0) media.low = level <= lowLevels.front();
  return media;
}

}  // namespace kps
