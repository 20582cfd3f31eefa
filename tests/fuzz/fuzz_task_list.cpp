// The intake's reading of a task-list body, and the key check every picture key goes through.
#include <cstdint>
#include <string>

#include "remote/TaskList.h"

namespace {

// An independent statement of the rule: no leading separator, no drive, no NUL, and every
// segment a name other than "." and "..".
bool refused(const std::string& key) {
  if (key.empty() || key[0] == '/' || key[0] == '\\' || (key.size() > 1 && key[1] == ':')) return true;
  if (key.find('\0') != std::string::npos) return true;
  std::string segment;
  for (const char c : key + "/") {
    if (c == '/' || c == '\\') {
      if (segment.empty() || segment == "." || segment == "..") return true;
      segment.clear();
    } else {
      segment += c;
    }
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string body(reinterpret_cast<const char*>(data), size);
  if (const auto tasks = kps::parseTaskList(body)) {
    for (const auto& task : *tasks) {
      if (!task.wellFormed) continue;
      if ((kps::pictureKeyProblem(task.pic) != nullptr) != refused(task.pic))
        __builtin_trap();  // a key that leaves the working directory must never reach the disk
    }
  }
  if ((kps::pictureKeyProblem(body) != nullptr) != refused(body)) __builtin_trap();
  return 0;
}
