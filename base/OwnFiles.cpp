#include "base/OwnFiles.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>

#include "base/FilePath.h"

namespace kps {

namespace {

constexpr const char* kOwnNames[] = {"config.ini", "PrintData.db", "PrintData.db-wal",
                                     "PrintData.db-shm", "PrintData.db-journal"};

// A name as the file system tells names apart: on Windows without letter case and without
// trailing dots and blanks ("CONFIG.INI." opens config.ini there).
std::string folded(std::string name) {
#ifdef _WIN32
  while (!name.empty() && (name.back() == '.' || name.back() == ' ')) name.pop_back();
  for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
#endif
  return name;
}

// The segments of a path with "." and empty ones dropped and ".." taken back, each folded.
std::vector<std::string> segments(const std::string& path) {
  std::vector<std::string> out;
  std::size_t start = 0;
  for (;;) {
    const auto end = path.find_first_of("\\/", start);
    const std::string segment = path.substr(start, end - start);
    if (segment == "..") {
      if (!out.empty()) out.pop_back();
    } else if (!segment.empty() && segment != ".") {
      out.push_back(folded(segment));
    }
    if (end == std::string::npos) return out;
    start = end + 1;
  }
}

bool isAbsolute(const std::string& path) {
  return (!path.empty() && (path.front() == '/' || path.front() == '\\')) ||
         (path.size() >= 2 && path[1] == ':');
}

bool sameFile(const std::string& a, const std::string& b) {
  std::error_code error;
  return std::filesystem::equivalent(toPath(a), toPath(b), error) && !error;
}

std::string nameOf(const std::string& path) {
  const auto cut = path.find_last_of("\\/");
  return cut == std::string::npos ? path : path.substr(cut + 1);
}

}  // namespace

OwnFiles::OwnFiles(std::string workingDirectory, std::string logFolder, const std::vector<std::string>& writtenFiles)
    : workingDirectory_(std::move(workingDirectory)) {
  for (const char* name : kOwnNames) files_.push_back(absolute(name));
  for (const std::string& file : writtenFiles) {
    if (file.empty()) continue;
    files_.push_back(absolute(file));
    files_.push_back(absolute(file) + ".tmp");  // its writer's temporary file
  }
  if (!logFolder.empty()) logFolder_ = absolute(logFolder);
}

std::string OwnFiles::absolute(const std::string& path) const {
  return isAbsolute(path) ? path : workingDirectory_ + kPathSeparator + path;
}

bool OwnFiles::owns(const std::string& path) const {
  const std::vector<std::string> parts = segments(path);
  if (parts.empty()) return false;
  if (isDownloadTemporaryName(parts.back())) return true;
  for (const auto& file : files_)
    if (parts == segments(file) || sameFile(path, file)) return true;
  if (logFolder_.empty() || !isDailyLogName(parts.back())) return false;
  const std::vector<std::string> folder(parts.begin(), parts.end() - 1);
  return folder == segments(logFolder_) || sameFile(folderOf(path), logFolder_);
}

const char* OwnFiles::keyProblem(const std::string& key) const {
  // A folder of a download's temporary name would be where the next download in its folder
  // writes: every picture there would fail.
  const std::vector<std::string> parts = segments(key);
  const bool temporary = std::any_of(parts.begin(), parts.end(), isDownloadTemporaryName);
  return temporary || owns(workingDirectory_ + kPathSeparator + key) ? "names one of the service's own files"
                                                                      : nullptr;
}

std::string downloadTemporaryPath(const std::string& picturePath) {
  std::size_t characters = 0;  // UTF-8 lead bytes: never more than the name's UTF-16 units
  for (const char c : nameOf(picturePath))
    if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) ++characters;
  const std::string folder = picturePath.substr(0, picturePath.size() - nameOf(picturePath).size());
  // Never a folder that is there (made by hand, or by a version that took such keys): shorter
  // names are tried, and a folder at every length fails the download as the key's.
  const std::size_t longest = std::min<std::size_t>(std::max<std::size_t>(characters, 1), 8);
  for (std::size_t length = longest; length > 0; --length) {
    std::error_code error;
    if (!std::filesystem::is_directory(toPath(folder + std::string(length, '~')), error))
      return folder + std::string(length, '~');
  }
  return folder + std::string(longest, '~');
}

bool isDownloadTemporaryName(const std::string& fileName) {
  return !fileName.empty() && fileName.find_first_not_of('~') == std::string::npos;
}

std::string dailyLogName(int year, int month, int day) {
  char name[48];
  std::snprintf(name, sizeof name, "kiosk-print-service-%04d-%02d-%02d.log", year, month, day);
  return name;
}

bool isDailyLogName(const std::string& fileName) {
  const std::string name = folded(fileName);
  const std::string pattern = "kiosk-print-service-0000-00-00.log";
  if (name.size() != pattern.size()) return false;
  for (std::size_t i = 0; i < name.size(); ++i)
    if (pattern[i] == '0' ? !std::isdigit(static_cast<unsigned char>(name[i])) : name[i] != pattern[i])
      return false;
  return true;
}

}  // namespace kps
