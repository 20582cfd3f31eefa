#include "base/FilePath.h"

#include <cerrno>
#include <memory>

#include "base/Utf8.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace kps {

#ifdef _WIN32

namespace {

struct HandleCloser {
  void operator()(HANDLE handle) const {
    if (handle != INVALID_HANDLE_VALUE) CloseHandle(handle);
  }
};
using Handle = std::unique_ptr<void, HandleCloser>;
struct SearchCloser {
  void operator()(HANDLE search) const {
    if (search != INVALID_HANDLE_VALUE) FindClose(search);
  }
};

// A C stream over a file the system opened; the handle is the stream's from then on.
std::FILE* streamOf(Handle handle, int flags, const char* mode) {
  if (handle.get() == INVALID_HANDLE_VALUE) return nullptr;
  const int descriptor = _open_osfhandle(reinterpret_cast<intptr_t>(handle.get()), flags);
  if (descriptor < 0) return nullptr;
  handle.release();
  std::FILE* file = _fdopen(descriptor, mode);
  if (!file) _close(descriptor);
  return file;
}

}  // namespace

std::filesystem::path toPath(const std::string& utf8) { return std::filesystem::path(utf8ToWide(utf8)); }

std::string fromPath(const std::filesystem::path& path) { return wideToUtf8(path.native()); }

std::FILE* openFile(const std::string& utf8, const char* mode) {
  return _wfopen(utf8ToWide(utf8).c_str(), utf8ToWide(mode).c_str());
}

std::FILE* createNewFile(const std::string& utf8) {
  return streamOf(Handle(CreateFileW(utf8ToWide(utf8).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                     FILE_ATTRIBUTE_NORMAL, nullptr)),
                  _O_WRONLY | _O_BINARY, "wb");
}

std::FILE* openRegularFile(const std::string& utf8) {
  // CreateFileW opens a folder only when asked to; a device name opens the device.
  Handle handle(CreateFileW(utf8ToWide(utf8).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                            nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (handle.get() == INVALID_HANDLE_VALUE || GetFileType(handle.get()) != FILE_TYPE_DISK) return nullptr;
  return streamOf(std::move(handle), _O_RDONLY | _O_BINARY, "rb");
}

bool spelledAsOnDisk(const std::string& folder, const std::string& relative) {
  std::string path = folder;
  for (std::size_t start = 0;;) {
    const auto end = relative.find_first_of("\\/", start);
    const std::string part = relative.substr(start, end - start);
    path += "\\" + part;
    WIN32_FIND_DATAW found;
    const std::unique_ptr<void, SearchCloser> search(FindFirstFileW(utf8ToWide(path).c_str(), &found));
    if (search.get() == INVALID_HANDLE_VALUE) {
      // Not there: nothing to compare, and nothing further down either. Unreadable: not taken.
      const DWORD error = GetLastError();
      return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    }
    if (wideToUtf8(found.cFileName) != part) return false;
    if (end == std::string::npos) return true;
    start = end + 1;
  }
}

std::string workingDirectory() {
  wchar_t buffer[MAX_PATH + 1] = {};
  const DWORD size = GetCurrentDirectoryW(MAX_PATH, buffer);
  if (size == 0 || size > MAX_PATH) return "";
  return wideToUtf8(buffer);
}

#else

std::filesystem::path toPath(const std::string& utf8) {
  std::string native = utf8;
  for (char& c : native)
    if (c == '\\') c = '/';
  return std::filesystem::path(native);
}

std::string fromPath(const std::filesystem::path& path) { return path.native(); }

std::FILE* openFile(const std::string& utf8, const char* mode) {
  return std::fopen(toPath(utf8).c_str(), mode);
}

std::FILE* createNewFile(const std::string& utf8) {
  const int descriptor = ::open(toPath(utf8).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (descriptor < 0) return nullptr;
  std::FILE* file = ::fdopen(descriptor, "wb");
  if (!file) ::close(descriptor);
  return file;
}

std::FILE* openRegularFile(const std::string& utf8) {
  // Without O_NONBLOCK the open of a FIFO would wait for a writer.
  const int descriptor = ::open(toPath(utf8).c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (descriptor < 0) return nullptr;
  struct stat info {};
  if (::fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode) ||
      ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) & ~O_NONBLOCK) != 0) {
    ::close(descriptor);
    return nullptr;
  }
  std::FILE* file = ::fdopen(descriptor, "rb");
  if (!file) ::close(descriptor);
  return file;
}

bool spelledAsOnDisk(const std::string&, const std::string&) { return true; }

std::string workingDirectory() {
  char buffer[4096];
  return ::getcwd(buffer, sizeof buffer) ? buffer : "";
}

#endif

bool isNameProblem(const std::error_code& error) {
#ifdef _WIN32
  if (error.category() == std::system_category()) {
    switch (error.value()) {
      case ERROR_FILENAME_EXCED_RANGE:
      case ERROR_INVALID_NAME:
      case ERROR_BAD_PATHNAME:
      case ERROR_DIRECTORY:
      case ERROR_PATH_NOT_FOUND:
        return true;
      default:
        return false;
    }
  }
  // The C run-time reports a name too long for the system as "no such file".
  if (error == std::errc::no_such_file_or_directory) return true;
#endif
  return error == std::errc::filename_too_long || error == std::errc::not_a_directory ||
         error == std::errc::is_a_directory || error == std::errc::invalid_argument ||
         error == std::errc::illegal_byte_sequence;
}

std::string folderOf(const std::string& path) {
  const auto cut = path.find_last_of("\\/");
  if (cut == std::string::npos) return "";
  const auto end = path.find_last_not_of("\\/", cut);
  if (end == std::string::npos) return path.substr(0, 1);
  if (path[end] == ':') return path.substr(0, end + 2);
  return path.substr(0, end + 1);
}

bool replaceFile(const std::string& path, const std::string& text, std::error_code& error) {
  const std::string temporary = path + ".tmp";
  error.clear();
  std::FILE* file = openFile(temporary, "wb");
  if (!file) {
    error = std::error_code(errno, std::generic_category());
    return false;
  }
  const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
  if (!written) error = std::error_code(errno, std::generic_category());
  if (std::fclose(file) != 0 && written) error = std::error_code(errno, std::generic_category());
  if (error) {
    std::error_code ignored;
    std::filesystem::remove(toPath(temporary), ignored);
    return false;
  }
#ifdef _WIN32
  // std::filesystem::rename does not replace an existing file here.
  if (!MoveFileExW(toPath(temporary).c_str(), toPath(path).c_str(), MOVEFILE_REPLACE_EXISTING))
    error = std::error_code(static_cast<int>(GetLastError()), std::system_category());
#else
  std::filesystem::rename(toPath(temporary), toPath(path), error);
#endif
  std::error_code ignored;
  if (error) std::filesystem::remove(toPath(temporary), ignored);  // nothing left of a failed write
  return !error;
}

}  // namespace kps
