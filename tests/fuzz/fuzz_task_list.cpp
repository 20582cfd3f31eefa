// The intake's reading of a task-list body, and the key check every picture key goes through.
#include <cstdint>
#include <string>

#include "remote/TaskList.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string body(reinterpret_cast<const char*>(data), size);
  if (const auto tasks = kps::parseTaskList(body)) {
    for (const auto& task : *tasks) {
      if (!task.wellFormed) continue;
      if (kps::isSafePictureKey(task.pic) &&
          (task.pic.front() == '/' || task.pic.find("..") == 0 || task.pic.find('\0') != std::string::npos))
        __builtin_trap();  // such a key must never reach the file system
    }
  }
  kps::isSafePictureKey(body);
  return 0;
}
