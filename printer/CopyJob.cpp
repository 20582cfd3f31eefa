#include "printer/CopyJob.h"

namespace kps {

std::string copyJobPrefix(const std::string& uuid, std::int32_t copies) {
  constexpr std::size_t kMostName = 255;
  const std::string head = "Print Image ";
  const std::size_t longestTail = 2 + 2 * std::to_string(copies).size();  // " 12/12"
  std::string id = uuid;
  const std::size_t room = kMostName - head.size() - longestTail;
  if (id.size() > room) {
    id.resize(room);
    while (!id.empty() && (static_cast<unsigned char>(id.back()) & 0xC0) == 0x80) id.pop_back();  // a character's tail
    if (!id.empty() && static_cast<unsigned char>(id.back()) >= 0xC0) id.pop_back();               // its lead
  }
  return head + id;
}

std::string copyJobName(const std::string& uuid, std::int32_t copy, std::int32_t copies) {
  return copyJobPrefix(uuid, copies) + " " + std::to_string(copy) + "/" + std::to_string(copies);
}

}  // namespace kps
