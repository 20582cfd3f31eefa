// Task list intake: the backend's tasks become pictures on disk and orders in table local.
#include <filesystem>
#include <iostream>

#include "remote/HttpRequest.h"
#include "remote/RemoteOrderIdManger.h"
#include "remote/TaskList.h"
#include "src/FilePath.h"
#include "src/Log.h"
#include "src/Runtime.h"

namespace kps {

namespace {

// The folder in double quotes, each backslash and double quote escaped by a backslash.
std::string quoted(const std::string& folder) {
  std::string text = "\"";
  for (const char c : folder) {
    if (c == '\\' || c == '"') text += '\\';
    text += c;
  }
  return text + "\"";
}

// Makes the folder of a picture path; why it could not, or "". An error ends only this task,
// not the intake: one bad key must not take the kiosk down while the backend lists it on every
// poll. `noSpace` tells a full disk (worth another try later) from a key that cannot work.
std::string createFolderFor(const std::string& path, bool& noSpace) {
  const std::string folder = folderOf(path);
  if (folder.empty()) return "";
  std::error_code error;
  const auto status = std::filesystem::status(toPath(folder), error);
  if (std::filesystem::is_directory(status)) return "";
  if (std::filesystem::exists(status)) return "its folder is a file";
  const bool created = std::filesystem::create_directories(toPath(folder), error);
  if (error) {
    noSpace = error == std::errc::no_space_on_device;
    return error.message();
  }
  if (created)
    std::cout << "dir create success: " << quoted(folder) << std::endl;
  else
    std::cerr << "dir create fail!" << std::endl;
  return "";
}

}  // namespace

void RemoteOrderIdManger::GetTaskList(std::string screenNumber, std::string url) {
  const std::string parameters = "screenNumber=" + screenNumber;
  std::string body;
  if (HttpRequest(url, parameters, "GET", body) != 0) return;
  logLine(KPS_TAG_REMOTE, __LINE__, "response :", body);
  ReceiveBackupData(body);
}

RemoteOrderIdManger::Picture RemoteOrderIdManger::ensurePicture(const std::string& pic,
                                                                 const std::string& path,
                                                                 int& retries) {
  const char* problem = pictureKeyProblem(pic);
  bool noSpace = false;
  std::string why = problem ? problem : createFolderFor(path, noSpace);
  if (why.empty()) {
    std::error_code error;
    const auto status = std::filesystem::status(toPath(path), error);
    if (std::filesystem::is_directory(status)) why = "does not name a file";
    else if (error && error != std::errc::no_such_file_or_directory) why = error.message();
    // A file that is there is never fetched again, whatever it holds.
    else if (std::filesystem::exists(status)) return Picture::Present;
  }
  const auto deferred = [&] {
    logLine(KPS_TAG_REMOTE, __LINE__, "task left for a later poll, its picture cannot be stored here: ", pic);
    return Picture::Deferred;
  };
  if (noSpace || (why.empty() && storageFailed_)) return deferred();
  if (!why.empty()) {
    logLine(KPS_TAG_REMOTE, __LINE__, "refused picture key: ", pic + " (" + why + ")");
    return Picture::Missing;
  }
  // The retry budget belongs to the whole body: three extra attempts shared by all tasks.
  while (GetobjectToFile(pic, path) != 0) {
    if (lastDownloadLocal_) {
      // The store answered; this machine could not keep the bytes. Recording the order as
      // failed would lose it: the backend lists it again once there is room.
      storageFailed_ = true;
      return deferred();
    }
    if (++retries > 3) return Picture::Missing;
  }
  return Picture::Present;
}

void RemoteOrderIdManger::ReceiveBackupData(const std::string& body) {
  std::lock_guard<std::mutex> intakePass(databaseMutex);
  std::string refusal;
  const auto tasks = parseTaskList(body, &refusal);
  if (!refusal.empty()) logLine(KPS_TAG_REMOTE, __LINE__, "task list refused: ", refusal);
  if (!tasks) return;

  int newOrders = 0;
  int retries = 0;
  storageFailed_ = false;
  const std::string base = workingDirectory() + kPathSeparator;
  for (const auto& entry : *tasks) {
    if (!entry.wellFormed) {
      logLine(KPS_TAG_REMOTE, __LINE__, "task skipped, malformed member: ", entry.taskId);
      continue;
    }
    const std::string path = base + entry.pic;
    const Picture picture = ensurePicture(entry.pic, path, retries);
    if (picture == Picture::Deferred) continue;
    if (picture == Picture::Present) {
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
