// Task list intake: the backend's tasks become pictures on disk and orders in table local.
#include <rapidjson/document.h>

#include <filesystem>
#include <iostream>

#include "remote/HttpRequest.h"
#include "remote/RemoteOrderIdManger.h"
#include "src/Log.h"
#include "src/Runtime.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace kps {

struct RemoteOrderIdManger::Task {
  std::string taskId;
  std::string pic;
  std::string orderNo;
  std::int32_t number = 0;
  std::string type;
  std::string path;
};

namespace {

#ifdef _WIN32
constexpr char kSeparator = '\\';
std::string workingDirectory() {
  wchar_t buffer[MAX_PATH + 1] = {};
  const DWORD size = GetCurrentDirectoryW(MAX_PATH, buffer);
  if (size == 0 || size > MAX_PATH) return "";
  const int bytes = WideCharToMultiByte(CP_UTF8, 0, buffer, -1, nullptr, 0, nullptr, nullptr);
  std::string narrow(bytes > 0 ? bytes - 1 : 0, '\0');
  if (bytes > 0) WideCharToMultiByte(CP_UTF8, 0, buffer, -1, narrow.data(), bytes, nullptr, nullptr);
  return narrow;
}
#else
constexpr char kSeparator = '/';
std::string workingDirectory() {
  char buffer[4096];
  return ::getcwd(buffer, sizeof buffer) ? buffer : "";
}
#endif

// Everything before the last separator, trailing separators removed.
std::string folderOf(const std::string& path) {
  const auto cut = path.find_last_of("\\/");
  if (cut == std::string::npos) return "";
  const auto end = path.find_last_not_of("\\/", cut);
  return end == std::string::npos ? path.substr(0, 1) : path.substr(0, end + 1);
}

void createFolderFor(const std::string& path) {
  const std::string folder = folderOf(path);
  std::error_code missing;
  if (folder.empty() || std::filesystem::exists(folder, missing)) return;
  // A file-system error here is raised out of the intake, as "create_directories".
  if (std::filesystem::create_directories(folder))
    std::cout << "dir create success: " << std::filesystem::path(folder) << std::endl;
  else
    std::cerr << "dir create fail!" << std::endl;
}

bool isString(const rapidjson::Value& object, const char* name) {
  const auto member = object.FindMember(name);
  return member != object.MemberEnd() && member->value.IsString();
}

std::string stringOf(const rapidjson::Value& value) {
  return std::string(value.GetString(), value.GetStringLength());
}

}  // namespace

bool isSafePictureKey(const std::string& key) {
  if (key.empty() || key.find('\0') != std::string::npos) return false;
  if (key.front() == '/' || key.front() == '\\') return false;
  if (key.size() >= 2 && key[1] == ':') return false;  // a drive letter
  std::size_t start = 0;
  for (;;) {
    const auto end = key.find_first_of("\\/", start);
    if (key.substr(start, end - start) == "..") return false;
    if (end == std::string::npos) return true;
    start = end + 1;
  }
}

void RemoteOrderIdManger::GetTaskList(std::string screenNumber, std::string url) {
  const std::string parameters = "screenNumber=" + screenNumber;
  std::string body;
  if (HttpRequest(url, parameters, "GET", body) != 0) return;
  logLine(KPS_TAG_REMOTE, __LINE__, "response :", body);
  ReceiveBackupData(body);
}

bool RemoteOrderIdManger::ensurePicture(const Task& task, int& retries) {
  if (!isSafePictureKey(task.pic)) {
    logLine(KPS_TAG_REMOTE, __LINE__, "refused picture key: ", task.pic);
    return false;
  }
  createFolderFor(task.path);
  std::error_code ignored;
  if (std::filesystem::exists(task.path, ignored)) return true;  // never fetched again, whatever it holds
  // The retry budget belongs to the whole body: three extra attempts shared by all tasks.
  while (GetobjectToFile(task.pic, task.path) != 0)
    if (++retries > 3) return false;
  return true;
}

void RemoteOrderIdManger::ReceiveBackupData(const std::string& body) {
  std::lock_guard<std::mutex> intakePass(databaseMutex);
  rapidjson::Document document;
  document.Parse(body.c_str(), body.size());
  if (document.HasParseError() || !document.IsObject()) return;
  if (!isString(document, "code") || !isString(document, "msg")) return;
  if (stringOf(document["code"]) != "100" || stringOf(document["msg"]) != "success") return;

  int newOrders = 0;
  int retries = 0;
  const auto data = document.FindMember("data");
  if (data != document.MemberEnd() && data->value.IsArray()) {
    const std::string base = workingDirectory() + kSeparator;
    for (const auto& element : data->value.GetArray()) {
      if (!element.IsObject() || !element.HasMember("taskId") || !element.HasMember("pic")) continue;
      const auto number = element.FindMember("number");
      if (!isString(element, "taskId") || !isString(element, "pic") ||
          !isString(element, "businessOrderId") || !isString(element, "type") ||
          number == element.MemberEnd() || !number->value.IsInt()) {
        const std::string name =
            isString(element, "taskId") ? stringOf(element["taskId"]) : std::string("?");
        logLine(KPS_TAG_REMOTE, __LINE__, "task skipped, malformed member: ", name);
        continue;
      }
      Task task{stringOf(element["taskId"]), stringOf(element["pic"]),
                stringOf(element["businessOrderId"]), number->value.GetInt(),
                stringOf(element["type"]), ""};
      task.path = base + task.pic;

      if (ensurePicture(task, retries)) {
        if (insertOrder("local", task.orderNo, task.taskId, task.path, 0, task.number, task.type))
          ++newOrders;
      } else if (insertOrder("local", task.orderNo, task.taskId, task.path, 4, task.number,
                             task.type)) {
        std::cout << " insertOrder success " << std::endl;
      } else {
        logLine(KPS_TAG_REMOTE, __LINE__, " insertOrder fail ");
        updateFailStatus(task.taskId, 4, "IPP_JOB_HELD_PIC_PATH_NOT_EXIST");
        updateTime(task.taskId);
      }
    }
  }

  if (newOrders != 0)
    announceNewOrders([&] {
      logLine(KPS_TAG_REMOTE, __LINE__, "receive backup data :", body);
      logLine(KPS_TAG_REMOTE, __LINE__, "----receive backup data to printer---");
    });
}

}  // namespace kps
