// The backend's task-list body, read into tasks. Kept apart from the intake's side effects so
// that it can be fuzzed on its own.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kps {

// The most copies one task may ask for.
inline constexpr std::int32_t kMostCopies = 999;

// The task list's query for a screen.
std::string taskListQuery(const std::string& screenNumber);

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
// whose members have other types come back not well-formed. A body refused only because it is
// not UTF-8 gets `refusal` set to why.
std::optional<std::vector<TaskListEntry>> parseTaskList(const std::string& body,
                                                       std::string* refusal = nullptr);

// Why an object key may not become a file path under the working directory, or nullptr when
// it may: it must be relative (no leading separator, no drive), without ".." (leaving), "." or
// empty segments (naming a folder), without NUL, and every segment a name Windows can hold (none
// of <>:"|?* or control characters, no trailing dot or blank, no device name as AUX or COM1).
const char* pictureKeyProblem(const std::string& key);

}  // namespace kps
