// The intake's store object: a Database with the task intake and the picture download.
#pragma once

#include <string>

#include "base/OwnFiles.h"
#include "store/Database.h"

namespace kps {

class RemoteOrderIdManger : public Database {
 public:
  using Database::Database;

  // Asks the backend for this screen's tasks and takes in what comes back.
  void GetTaskList(std::string screenNumber, std::string url);
  // Records the tasks of one task-list body; wakes the print worker when it stored any. False
  // when the body is not accepted.
  bool ReceiveBackupData(const std::string& body);
  // 0 when the object was fetched into filePath, 1 when it was not.
  virtual int GetobjectToFile(const std::string& objectKey, const std::string& filePath);

 private:
  enum class Picture { Present, Missing, Deferred };
  // Fetches a task's picture to path unless the file exists. Missing: stored as failed;
  // Deferred: this machine could not store it (a full disk), so the task waits for a later poll.
  Picture ensurePicture(const std::string& pic, const std::string& path, const OwnFiles& own,
                        int& retries);
  // A pending order whose picture is not there (any more) fails.
  void failPictureMissing(const std::string& uuid);

  // Where the last download failed on this machine's side, if it did.
  // Refused: the object is no picture (too large, too slow); lastLocalMessage_ says why.
  enum class LocalFailure { None, Machine, Key, Refused };
  LocalFailure lastLocalFailure_ = LocalFailure::None;
  std::string lastLocalMessage_;
  std::string lastListOutcome_;  // what the last body was to the intake, for the status file
  bool storageFailed_ = false;  // a picture of this pass could not be stored
};

}  // namespace kps
