// The service's readers of outside input, fuzzed as one target: the first byte picks the reader
// ('i' config.ini, 't' a task-list body and its picture keys, 'o' an object store's error
// document, 'p' a picture's header, anything else UTF-8 text). Each checks a property besides not crashing.
#include <unistd.h>

#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>

#include "base/Utf8.h"
#include "config/IniFile.h"
#include "pictures/JpegError.h"
#include "pictures/LibjpegLayout.h"
#include "pictures/PictureHeader.h"
#include "remote/OssError.h"
#include "remote/TaskList.h"

namespace kps {
std::mutex logMutex;  // the entry point's, for the log writer the picture reader links
}  // namespace kps

namespace {

// The key rule stated apart from the service's: no leading separator, no drive, no NUL, and
// every segment a name other than "." and "..".
bool refused(const std::string& key) {
  if (key.empty() || key[0] == '/' || key[0] == '\\' || (key.size() > 1 && key[1] == ':')) return true;
  if (key.find('\0') != std::string::npos) return true;
  std::string segment;
  for (const char c : key + "/") {
    if (c != '/' && c != '\\') {
      segment += c;
    } else if (segment.empty() || segment == "." || segment == "..") {
      return true;
    } else {
      segment.clear();
    }
  }
  return false;
}

void readIni(const std::string& text) {
  static const std::string path = "/tmp/kps-fuzz-ini-" + std::to_string(::getpid()) + ".ini";
  if (std::FILE* file = std::fopen(path.c_str(), "wb")) {
    std::fwrite(text.data(), 1, text.size(), file);
    std::fclose(file);
  }
  kps::IniFile ini;
  ini.load(path);
  const auto& entries = ini.entries();
  if (entries.size() == 1 && !entries[0].value.empty() && ini.get(entries[0].section, entries[0].key).empty())
    __builtin_trap();  // a lone entry must be found again
}

// A key that leaves the working directory must never reach the disk (the service refuses more:
// names Windows cannot hold), and a well-formed task's text is text.
void readTaskList(const std::string& body) {
  if (const auto tasks = kps::parseTaskList(body))
    for (const auto& task : *tasks) {
      if (!task.wellFormed) continue;
      if (refused(task.pic) && !kps::pictureKeyProblem(task.pic)) __builtin_trap();
      for (const std::string* text : {&task.taskId, &task.orderNo, &task.type})
        if (text->find('\0') != std::string::npos || !kps::isValidUtf8(*text)) __builtin_trap();
    }
  if (refused(body) && !kps::pictureKeyProblem(body)) __builtin_trap();
}

void quiet(j_common_ptr, int) {}

struct LibjpegHeader {
  jpeg_decompress_struct info{};
  kps::JpegErrorJump error{};
  LibjpegHeader() {
    info.err = jpeg_std_error(&error.manager);
    error.manager.error_exit = kps::jpegJumpBack;
    error.manager.emit_message = quiet;
  }
  ~LibjpegHeader() { jpeg_destroy_decompress(&info); }
};

// Whether libjpeg reads a frame in these bytes and would go on to decode it.
bool libjpegReads(LibjpegHeader& jpeg, const std::string& bytes) {
  if (setjmp(jpeg.error.jump)) return false;
  jpeg_create_decompress(&jpeg.info);
  jpeg_mem_src(&jpeg.info, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
  return jpeg_read_header(&jpeg.info, TRUE) == JPEG_HEADER_OK;
}

// The header reader ends on any bytes. A PNG's size is the one its IHDR chunk states, read here
// apart from the service's reader; a JPEG's size, and what its decoder will hold, are the ones
// libjpeg reads, unless the reader refuses the file.
void readPictureHeader(const std::string& bytes) {
  std::FILE* file = ::fmemopen(const_cast<char*>(bytes.data()), bytes.size(), "rb");
  if (!file) return;
  const kps::PictureHeader header = kps::readPictureHeader(file);
  std::fclose(file);
  if (header.format == kps::PictureFormat::Jpeg) {
    LibjpegHeader jpeg;
    if (libjpegReads(jpeg, bytes) && kps::pictureRefusal(header).empty() &&
        (header.width != jpeg.info.image_width || header.height != jpeg.info.image_height ||
         !(header.jpeg == kps::layoutOf(jpeg.info))))
      __builtin_trap();
    return;
  }
  if (header.format != kps::PictureFormat::Png || bytes.size() < 24 || bytes.compare(12, 4, "IHDR") != 0) return;
  const auto word = [&](std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
  };
  if (header.width != word(16) || header.height != word(20)) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string input(reinterpret_cast<const char*>(data) + 1, size - 1);
  if (data[0] == 'i') {
    readIni(input);
  } else if (data[0] == 't') {
    readTaskList(input);
  } else if (data[0] == 'p') {
    readPictureHeader(input);
  } else if (data[0] == 'o') {
    const kps::OssError error = kps::parseOssError(input);
    if (error.code.size() > input.size() || error.message.size() > input.size()) __builtin_trap();
  } else {
    const std::wstring wide = kps::utf8ToWide(input);  // never fails, and its repair is stable
    if (kps::utf8ToWide(kps::wideToUtf8(wide)) != wide) __builtin_trap();
  }
  return 0;
}
