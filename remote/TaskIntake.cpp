// Task list intake: the backend's tasks become pictures on disk and orders in table local.
#include <filesystem>
#include <iostream>

#include "base/FilePath.h"
#include "base/Health.h"
#include "base/Log.h"
#include "config/ServiceFiles.h"
#include "remote/HttpRequest.h"
#include "remote/RemoteOrderIdManger.h"
#include "remote/TaskList.h"
#include "store/Runtime.h"

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

// Makes the folder of a picture path. Returns why the key cannot have it (a file where a folder
// should be, a name too long), or "" with `machine` set when this machine could not make it
// now (a full disk, a folder it may not write): one bad key must not take the kiosk down, nor
// a passing condition lose an order.
std::string createFolderFor(const std::string& path, std::error_code& machine) {
  const std::string folder = folderOf(path);
  if (folder.empty()) return "";
  std::error_code error;
  const auto status = std::filesystem::status(toPath(folder), error);
  if (std::filesystem::is_directory(status)) return "";
  if (std::filesystem::exists(status)) return "its folder is a file";
  const bool created = std::filesystem::create_directories(toPath(folder), error);
  if (error) {
    if (isNameProblem(error)) return error.message();
    machine = error;
    return "";
  }
  if (created)
    std::cout << "dir create success: " << quoted(folder) << std::endl;
  else
    std::cerr << "dir create fail!" << std::endl;
  return "";
}

}  // namespace

void RemoteOrderIdManger::failPictureMissing(const std::string& uuid) {
  // Counted only where a pending order became failed: a row in any other state keeps it.
  if (updateFailStatus(uuid, 4, kPictureMissing)) Health::instance().noteOrderEnded(OrderEnd::Failed, kPictureMissing);
  updateTime(uuid);
}

void RemoteOrderIdManger::GetTaskList(std::string screenNumber, std::string url) {
  const std::string parameters = taskListQuery(screenNumber);
  std::string body;
  if (HttpRequest(url, parameters, "GET", body) != 0) {
    Health::instance().notePoll(std::string("transfer error: ") + curl_easy_strerror(lastTaskListResult), false);
    return;
  }
  logLine(KPS_TAG_REMOTE, __LINE__, "response :", body);
  const bool accepted = ReceiveBackupData(body);
  Health::instance().notePoll("HTTP " + std::to_string(lastTaskListStatus) + ", " + lastListOutcome_, accepted);
}

RemoteOrderIdManger::Picture RemoteOrderIdManger::ensurePicture(const std::string& pic,
                                                                 const std::string& path,
                                                                 const OwnFiles& own,
                                                                 int& retries) {
  const char* problem = pictureKeyProblem(pic);
  if (!problem) problem = own.keyProblem(pic);
  std::error_code machine;
  std::string why = problem ? problem : createFolderFor(path, machine);
  // Every file and folder of a key was made by that very spelling, or is refused: on Windows
  // "Pics/a.jpg" would otherwise be kept in the folder "pics", where "pics/a.jpg" finds it.
  if (why.empty() && !machine && !spelledAsOnDisk(folderOf(path.substr(0, path.size() - pic.size())), pic))
    why = "names an existing file or folder by another spelling";
  if (why.empty() && !machine) {
    std::error_code error;
    const auto status = std::filesystem::status(toPath(path), error);
    if (std::filesystem::is_directory(status)) why = "does not name a file";
    else if (error && error != std::errc::no_such_file_or_directory && isNameProblem(error))
      why = error.message();
    else if (error && error != std::errc::no_such_file_or_directory)
      machine = error;
    // A file that is there is never fetched again, whatever it holds; but only a regular one:
    // a FIFO or a device is no picture.
    else if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
      why = "does not name a regular file";
    else if (std::filesystem::exists(status))
      return Picture::Present;
  }
  const auto refused = [&](const std::string& reason) {
    logLine(KPS_TAG_REMOTE, __LINE__, "refused picture key: ", pic + " (" + reason + ")");
    return Picture::Missing;
  };
  const auto deferred = [&] {
    // Recording the order as failed would lose it: the backend lists it again once there is
    // room, and until then the pass's other downloads would meet the same condition.
    storageFailed_ = true;
    logLine(KPS_TAG_REMOTE, __LINE__, "task left for a later poll, its picture cannot be stored here: ", pic);
    return Picture::Deferred;
  };
  if (!why.empty()) return refused(why);
  if (machine || storageFailed_) return deferred();
  // The retry budget belongs to the whole body: three extra attempts shared by all tasks.
  while (GetobjectToFile(pic, path) != 0) {
    // The store answered; this machine could not keep the bytes.
    if (lastLocalFailure_ == LocalFailure::Key) return refused("cannot be stored here: " + lastLocalMessage_);
    if (lastLocalFailure_ == LocalFailure::Refused) return refused(lastLocalMessage_);
    if (lastLocalFailure_ == LocalFailure::Machine) return deferred();
    if (++retries > 3) return Picture::Missing;
  }
  return Picture::Present;
}

bool RemoteOrderIdManger::ReceiveBackupData(const std::string& body) {
  std::lock_guard<std::mutex> intakePass(databaseMutex);
  std::string refusal;
  const auto tasks = parseTaskList(body, &refusal);
  if (!refusal.empty()) logLine(KPS_TAG_REMOTE, __LINE__, "task list refused: ", refusal);
  lastListOutcome_ = tasks ? "code \"100\", " + std::to_string(tasks->size()) + " task(s)"
                           : "not accepted" + (refusal.empty() ? std::string() : ": " + refusal);
  if (!tasks) return false;

  int newOrders = 0;
  int retries = 0;
  storageFailed_ = false;
  const std::string base = workingDirectory() + kPathSeparator;
  const OwnFiles own = serviceOwnFiles();
  for (const auto& entry : *tasks) {
    if (!entry.wellFormed) {
      logLine(KPS_TAG_REMOTE, __LINE__, "task skipped, malformed member: ", entry.taskId);
      continue;
    }
    const std::string path = base + entry.pic;
    // A task the backend still lists is already an order: nothing of it is fetched again (a
    // refused picture would otherwise be downloaded on every poll, a large one for minutes).
    // A pending one whose picture is gone fails as one whose picture cannot be fetched.
    if (const auto stored = storedStatus(entry.taskId)) {
      std::error_code ignored;
      if (*stored == 0 && !std::filesystem::is_regular_file(toPath(path), ignored)) {
        logLine(KPS_TAG_REMOTE, __LINE__, " insertOrder fail ");
        failPictureMissing(entry.taskId);
      }
      continue;
    }
    Picture picture = Picture::Missing;
    // A copy count no kiosk prints would hold the print run, and the intake with it, for years.
    if (entry.number > kMostCopies)
      logLine(KPS_TAG_REMOTE, __LINE__, "task refused, more copies than 999: ",
              entry.taskId + " (" + std::to_string(entry.number) + ")");
    else
      picture = ensurePicture(entry.pic, path, own, retries);
    if (picture == Picture::Deferred) continue;
    if (picture == Picture::Present) {
      if (insertOrder("local", entry.orderNo, entry.taskId, path, 0, entry.number, entry.type))
        ++newOrders;
    } else if (insertOrder("local", entry.orderNo, entry.taskId, path, 4, entry.number,
                           entry.type)) {
      std::cout << " insertOrder success " << std::endl;
      Health::instance().noteOrderEnded(OrderEnd::Failed);
    } else {
      logLine(KPS_TAG_REMOTE, __LINE__, " insertOrder fail ");
      failPictureMissing(entry.taskId);
    }
  }

  if (newOrders != 0)
    announceNewOrders([&] {
      logLine(KPS_TAG_REMOTE, __LINE__, "receive backup data :", body);
      logLine(KPS_TAG_REMOTE, __LINE__, "----receive backup data to printer---");
    });
  return true;
}

}  // namespace kps
