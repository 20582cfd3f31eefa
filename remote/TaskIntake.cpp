// Task list intake: the backend's tasks become pictures on disk and orders in table local.
#include <filesystem>
#include <iostream>

#include "remote/HttpRequest.h"
#include "remote/RemoteOrderIdManger.h"
#include "remote/TaskList.h"
#include "src/Log.h"
#include "src/Runtime.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace kps {


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

}  // namespace

void RemoteOrderIdManger::GetTaskList(std::string screenNumber, std::string url) {
  const std::string parameters = "screenNumber=" + screenNumber;
  std::string body;
  if (HttpRequest(url, parameters, "GET", body) != 0) return;
  logLine(KPS_TAG_REMOTE, __LINE__, "response :", body);
  ReceiveBackupData(body);
}

bool RemoteOrderIdManger::ensurePicture(const std::string& pic, const std::string& path,
                                        int& retries) {
  if (!isSafePictureKey(pic)) {
    logLine(KPS_TAG_REMOTE, __LINE__, "refused picture key: ", pic);
    return false;
  }
  createFolderFor(path);
  std::error_code ignored;
  if (std::filesystem::exists(path, ignored)) return true;  // never fetched again, whatever it holds
  // The retry budget belongs to the whole body: three extra attempts shared by all tasks.
  while (GetobjectToFile(pic, path) != 0)
    if (++retries > 3) return false;
  return true;
}

void RemoteOrderIdManger::ReceiveBackupData(const std::string& body) {
  std::lock_guard<std::mutex> intakePass(databaseMutex);
  const auto tasks = parseTaskList(body);
  if (!tasks) return;

  int newOrders = 0;
  int retries = 0;
  const std::string base = workingDirectory() + kSeparator;
  for (const auto& entry : *tasks) {
    if (!entry.wellFormed) {
      logLine(KPS_TAG_REMOTE, __LINE__, "task skipped, malformed member: ", entry.taskId);
      continue;
    }
    const std::string path = base + entry.pic;
    if (ensurePicture(entry.pic, path, retries)) {
      if (insertOrder("local", entry.orderNo, entry.taskId, path, 0, entry.number, entry.type))
        ++newOrders;
    } else if (insertOrder("local", entry.orderNo, entry.taskId, path, 4, entry.number,
                           entry.type)) {
      std::cout << " insertOrder success " << std::endl;
    } else {
      logLine(KPS_TAG_REMOTE, __LINE__, " insertOrder fail ");
      updateFailStatus(entry.taskId, 4, "IPP_JOB_HELD_PIC_PATH_NOT_EXIST");
      updateTime(entry.taskId);
    }
  }

  if (newOrders != 0)
    announceNewOrders([&] {
      logLine(KPS_TAG_REMOTE, __LINE__, "receive backup data :", body);
      logLine(KPS_TAG_REMOTE, __LINE__, "----receive backup data to printer---");
    });
}

}  // namespace kps
