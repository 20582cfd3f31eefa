// The service's own files in its working directory: config.ini, the store and its companions,
// a download's temporary file, and the files of its log, status and metrics settings. None of them is
// ever a picture: a key naming one is refused, and retention never deletes one, whatever a row
// says. On Windows names compare as the file system compares them (letter case, trailing dots
// and blanks ignored); a file that exists is also recognised by its identity (a short 8.3 name,
// a link).
#pragma once

#include <string>
#include <vector>

namespace kps {

class OwnFiles {
 public:
  // workingDirectory as the intake joins keys to it; logFolder and the files the service writes
  // for monitoring tools (status, metrics) as config.ini gives them (relative to the working
  // directory, or absolute), empty when not set.
  explicit OwnFiles(std::string workingDirectory, std::string logFolder = "",
                    const std::vector<std::string>& writtenFiles = {});

  // Whether the file at `path` (as an order row holds it) is one of the service's own.
  bool owns(const std::string& path) const;
  // Why a picture key may not be taken in as a picture, or nullptr.
  const char* keyProblem(const std::string& key) const;
  // A path as config.ini gives it (relative to the working directory, or absolute), absolute.
  std::string absolute(const std::string& path) const;

 private:

  std::string workingDirectory_;
  std::vector<std::string> files_;  // absolute paths of the fixed own files
  std::string logFolder_;           // absolute, or empty
};

// The download's temporary file for a picture: in the picture's folder, named by as many '~'
// as the picture's name has characters (at most 8), so that it fits wherever the picture fits;
// fewer where a folder has that name.
std::string downloadTemporaryPath(const std::string& picturePath);
bool isDownloadTemporaryName(const std::string& fileName);

// The daily log file's name, "kiosk-print-service-YYYY-MM-DD.log", and whether a name is one.
std::string dailyLogName(int year, int month, int day);
bool isDailyLogName(const std::string& fileName);

}  // namespace kps
