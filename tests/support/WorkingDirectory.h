// Makes a directory the process's working directory for the life of the object.
#pragma once

#include <unistd.h>

#include <string>

namespace kps {

class WorkingDirectory {
 public:
  explicit WorkingDirectory(const std::string& path) {
    char buffer[4096];
    if (::getcwd(buffer, sizeof buffer)) previous_ = buffer;
    if (::chdir(path.c_str()) != 0) previous_.clear();
  }
  ~WorkingDirectory() {
    if (!previous_.empty() && ::chdir(previous_.c_str()) != 0) {
    }
  }
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;

 private:
  std::string previous_;
};

}  // namespace kps
