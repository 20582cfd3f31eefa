// File-system paths from the service's UTF-8 text. On Windows a path reaches the system as
// UTF-16, converted here and nowhere else; elsewhere a backslash separates folders as '/' does,
// so a key written either way lands in the same place.
#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

namespace kps {

std::filesystem::path toPath(const std::string& utf8);
std::string fromPath(const std::filesystem::path& path);

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

// fopen of a UTF-8 path.
std::FILE* openFile(const std::string& utf8, const char* mode);

// A new file at a UTF-8 path, opened for writing ("wb"); null when anything is there already
// (it is never truncated) or it cannot be made.
std::FILE* createNewFile(const std::string& utf8);

// The file at a UTF-8 path opened for reading ("rb") only when it is a regular file: never a
// folder, a FIFO that would block the reader, or a device (CON, AUX, ... on Windows). Null else.
std::FILE* openRegularFile(const std::string& utf8);

// Everything before the last separator ('\' or '/'), the run of separators at the cut dropped;
// a root or drive alone is kept ("C:\", "/"). Empty when there is no separator.
std::string folderOf(const std::string& path);

// Whether a file-system error says that the path itself cannot exist here (a name too long or
// not allowed, a file where a folder should be), rather than a condition of the machine (a full
// disk, a folder it may not write, a read-only or failing disk).
bool isNameProblem(const std::error_code& error);

// Replaces the file at `path` with `text` in one step: written to `path` + ".tmp", then renamed
// over it, so that a reader sees the old file or the new one, never a part. False with `error`.
bool replaceFile(const std::string& path, const std::string& text, std::error_code& error);

// Whether each part of `relative` that exists under `folder` is named there exactly as spelled:
// on Windows "Photo.JPG" and "photo.jpg" are one file, and its name on disk is the first's.
// Always true where names keep their letter case.
bool spelledAsOnDisk(const std::string& folder, const std::string& relative);

// The process's working directory as UTF-8, or "" when it cannot be read.
std::string workingDirectory();

// The separator the service joins the working directory and a picture key with.
#ifdef _WIN32
inline constexpr char kPathSeparator = '\\';
#else
inline constexpr char kPathSeparator = '/';
#endif

}  // namespace kps
