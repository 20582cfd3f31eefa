// The backend's task-list body, read into tasks. Kept apart from the intake's side effects so
// that it can be fuzzed on its own.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kps {

struct TaskListEntry {
  bool wellFormed = false;  // false: skip it, with a line naming `taskId`
  std::string taskId;       // "?" when the element's taskId is not a string
  std::string pic;
  std::string orderNo;
  std::int32_t number = 0;
  std::string type;
};

// Empty when the body is not accepted: not a JSON object, or "code" is not the string "100",
// or "msg" not the string "success". Elements lacking "taskId" or "pic" are left out; elements
// whose members have other types come back not well-formed.
std::optional<std::vector<TaskListEntry>> parseTaskList(const std::string& body);

// True for an object key that may become a path under the working directory: not empty,
// relative (no leading separator, no drive letter), no ".." segment, no NUL.
bool isSafePictureKey(const std::string& key);

}  // namespace kps
