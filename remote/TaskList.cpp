#include "remote/TaskList.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include <cctype>

#include "base/Utf8.h"

namespace kps {

std::string taskListQuery(const std::string& screenNumber) { return "screenNumber=" + screenNumber; }

namespace {

const rapidjson::Value* stringMember(const rapidjson::Value& object, const char* name) {
  const auto member = object.FindMember(name);
  return member != object.MemberEnd() && member->value.IsString() ? &member->value : nullptr;
}

std::string text(const rapidjson::Value* value) {
  return std::string(value->GetString(), value->GetStringLength());
}

// A string the body spelled with escapes can still be no text: a lone surrogate ("\udc00")
// decodes to bytes that are not UTF-8, and "\u0000" would cut it short wherever it is stored.
const rapidjson::Value* textMember(const rapidjson::Value& object, const char* name) {
  const rapidjson::Value* value = stringMember(object, name);
  if (!value) return nullptr;
  const std::string bytes = text(value);
  return bytes.find('\0') == std::string::npos && isValidUtf8(bytes) ? value : nullptr;
}

}  // namespace

std::optional<std::vector<TaskListEntry>> parseTaskList(const std::string& body,
                                                       std::string* refusal) {
  rapidjson::Document document;
  // Iterative: deep nesting costs heap, never the stack. Text that is not UTF-8 is refused
  // rather than stored and later reported back to the backend as broken JSON.
  document.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag>(
      body.c_str(), body.size());
  if (document.GetParseError() == rapidjson::kParseErrorStringInvalidEncoding && refusal)
    *refusal = "not valid UTF-8 (byte " + std::to_string(document.GetErrorOffset()) + ")";
  if (document.HasParseError() || !document.IsObject()) return std::nullopt;
  const auto* code = stringMember(document, "code");
  const auto* msg = stringMember(document, "msg");
  if (!code || !msg || text(code) != "100" || text(msg) != "success") return std::nullopt;

  std::vector<TaskListEntry> tasks;
  const auto data = document.FindMember("data");
  if (data == document.MemberEnd() || !data->value.IsArray()) return tasks;
  for (const auto& element : data->value.GetArray()) {
    if (!element.IsObject() || !element.HasMember("taskId") || !element.HasMember("pic")) continue;
    TaskListEntry entry;
    const auto* taskId = textMember(element, "taskId");
    const auto* pic = stringMember(element, "pic");  // its own checks name a NUL in it
    const auto* orderNo = textMember(element, "businessOrderId");
    const auto* type = textMember(element, "type");
    const auto number = element.FindMember("number");
    entry.taskId = taskId ? text(taskId) : "?";
    entry.wellFormed = taskId && pic && orderNo && type && number != element.MemberEnd() &&
                       number->value.IsInt();
    if (entry.wellFormed) {
      entry.pic = text(pic);
      entry.orderNo = text(orderNo);
      entry.number = number->value.GetInt();
      entry.type = text(type);
    }
    tasks.push_back(std::move(entry));
  }
  return tasks;
}

namespace {

// Why Windows could not hold a file or folder of this name, or nullptr. Refused on both
// platforms, so that a store moved between them behaves alike: on Windows such a key fails
// only at the rename, as an input/output error that would hold every later task back.
const char* windowsNameProblem(const std::string& segment) {
  for (const char c : segment)
    if (static_cast<unsigned char>(c) < 32 || std::string("<>:\"|?*").find(c) != std::string::npos)
      return "holds a character Windows does not allow in a name";
  if (segment.back() == '.' || segment.back() == ' ') return "ends in a dot or a blank, which Windows drops";
  // A device's name opens the device, whatever extension follows it.
  std::string base = segment.substr(0, segment.find('.'));
  while (!base.empty() && base.back() == ' ') base.pop_back();
  for (char& c : base) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  static const char* const devices[] = {"con", "prn", "aux", "nul", "conin$", "conout$"};
  for (const char* device : devices)
    if (base == device) return "names a device on Windows";
  const bool numbered = base.size() >= 4 && (base.compare(0, 3, "com") == 0 || base.compare(0, 3, "lpt") == 0);
  const std::string number = numbered ? base.substr(3) : "";
  if (numbered && ((number.size() == 1 && std::isdigit(static_cast<unsigned char>(number[0]))) ||
                   number == "\xC2\xB9" || number == "\xC2\xB2" || number == "\xC2\xB3"))  // COM1, LPT\u00B9, ...
    return "names a device on Windows";
  return nullptr;
}

}  // namespace

const char* pictureKeyProblem(const std::string& key) {
  if (key.find('\0') != std::string::npos) return "holds a NUL character";
  if (!isValidUtf8(key)) return "is not UTF-8 text";  // a lone surrogate its escapes spelled
  if (!key.empty() && (key.front() == '/' || key.front() == '\\' || (key.size() >= 2 && key[1] == ':')))
    return "leaves the working directory";
  std::size_t start = 0;
  for (;;) {
    const auto end = key.find_first_of("\\/", start);
    const std::string segment = key.substr(start, end - start);
    if (segment == "..") return "leaves the working directory";
    // "x/", ".", "a//b": the path would end at, or pass through, a folder's own name.
    if (segment.empty() || segment == ".") return "does not name a file";
    if (const char* problem = windowsNameProblem(segment)) return problem;
    if (end == std::string::npos) return nullptr;
    start = end + 1;
  }
}

}  // namespace kps
