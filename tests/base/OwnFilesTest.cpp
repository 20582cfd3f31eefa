// The service's own files, told apart from pictures as each platform's file system tells names
// apart: this program runs natively and, cross-compiled, under Wine.
#include "base/OwnFiles.h"

#include <gtest/gtest.h>

#include <thread>

#include <iterator>

#include <atomic>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "base/FilePath.h"
#include "base/Utf8.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace kps {
namespace {

#ifdef _WIN32
constexpr bool kWindows = true;
#else
constexpr bool kWindows = false;
#endif

TEST(OwnFiles, KeysNamingTheServicesFiles) {
  const std::string work = std::string(kWindows ? "C:\\Kiosk" : "/srv/kiosk");
  const OwnFiles own(work, "logs", {"health/status.json", "", "metrics.prom"});
  struct Case {
    std::string key;
    bool onLinux, onWindows;  // whether the key names one of the service's own files
  };
  const Case cases[] = {
      {"config.ini", true, true},
      {"PrintData.db", true, true},
      {"PrintData.db-wal", true, true},
      {"PrintData.db-shm", true, true},
      {"PrintData.db-journal", true, true},
      {"CONFIG.INI", false, true},  // one file on Windows
      {"printdata.DB-Wal", false, true},
      {"config.ini.", false, true},  // trailing dots and blanks are dropped there
      {"config.ini . ", false, true},
      {"pics/../config.ini", true, true},
      {"pics\\..\\PrintData.db", true, true},
      {"pics/config.ini", false, false},
      {"config.ini.jpg", false, false},
      {"~", true, true},  // a download's temporary file, in any folder
      {"pics/~~~~~~~~", true, true},
      {"pics/x~.jpg", false, false},
      {"logs/kiosk-print-service-2026-11-23.log", true, true},
      {"LOGS/Kiosk-Print-Service-2026-11-23.LOG", false, true},
      {"logs/kiosk-print-service-2026-11-23.log.bak", false, false},
      {"logs/kiosk-print-service-2026-1-23.log", false, false},
      {"kiosk-print-service-2026-11-23.log", false, false},  // not in the log folder
      {"health/status.json", true, true},
      {"health/status.json.tmp", true, true},
      {"status.json", false, false},
      {"metrics.prom", true, true},
      {"metrics.prom.tmp", true, true},
      {"health/metrics.prom", false, false},
      {"pics/photo.jpg", false, false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(own.keyProblem(c.key) != nullptr, kWindows ? c.onWindows : c.onLinux) << c.key;
    EXPECT_EQ(own.owns(work + kPathSeparator + c.key), kWindows ? c.onWindows : c.onLinux) << c.key;
  }
  // Without the log, status and metrics settings, those names are pictures like any other.
  const OwnFiles plain(work);
  EXPECT_EQ(plain.keyProblem("logs/kiosk-print-service-2026-11-23.log"), nullptr);
  EXPECT_EQ(plain.keyProblem("health/status.json"), nullptr);
  EXPECT_EQ(plain.keyProblem("metrics.prom"), nullptr);
  // An absolute log folder inside the working directory.
  const OwnFiles absolute(work, work + kPathSeparator + "var");
  EXPECT_NE(absolute.keyProblem("var/kiosk-print-service-2026-01-01.log"), nullptr);
}

// A file that exists is recognised by what it is, whatever name reaches it.
TEST(OwnFiles, AnotherNameForAnOwnFile) {
  namespace fs = std::filesystem;
  const fs::path dir = fs::temp_directory_path() / ("kps-own-" + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()));
  fs::create_directories(dir / "pics");
  std::ofstream(dir / "PrintData.db") << "store";
  std::error_code error;
  fs::create_hard_link(dir / "PrintData.db", dir / "pics" / "link.jpg", error);
  const std::string work = fromPath(dir);
  const OwnFiles own(work);
  if (!error) {
    EXPECT_TRUE(own.owns(work + kPathSeparator + "pics" + kPathSeparator + "link.jpg"));
  }
#ifdef _WIN32
  wchar_t shortName[MAX_PATH];
  if (GetShortPathNameW((dir / "PrintData.db").c_str(), shortName, MAX_PATH) != 0) {
    EXPECT_TRUE(own.owns(wideToUtf8(shortName))) << wideToUtf8(shortName);
  }
#endif
  std::ofstream(dir / "pics" / "photo.jpg") << "jpeg";
  EXPECT_FALSE(own.owns(work + kPathSeparator + "pics" + kPathSeparator + "photo.jpg"));
  fs::remove_all(dir, error);
}

TEST(DownloadTemporary, ANameNoLongerThanThePictures) {
  const std::pair<std::string, std::string> cases[] = {
      {"/w/pics/photo.jpg", "/w/pics/~~~~~~~~"},
      {"/w/a/x", "/w/a/~"},
      {"C:\\w\\a\\b.png", "C:\\w\\a\\~~~~~"},
      {"/w/\xE7\x85\xA7\xE7\x89\x87/\xE7\x8C\xAB\xE5\x92\xAA 1.jpg", "/w/\xE7\x85\xA7\xE7\x89\x87/~~~~~~~~"},
      {"/w/\xE7\x8C\xAB.jpg", "/w/~~~~~"},  // characters, not bytes
      {"/w/" + std::string(255, 'n'), "/w/~~~~~~~~"},
  };
  for (const auto& [picture, temporary] : cases) EXPECT_EQ(downloadTemporaryPath(picture), temporary) << picture;
}

// What a failed file operation says about the path: the key's own (never worth another try),
// or the machine's (worth waiting out).
TEST(FileErrors, TheNameOrTheMachine) {
  const std::pair<std::errc, bool> cases[] = {
      {std::errc::filename_too_long, true},  {std::errc::not_a_directory, true},
      {std::errc::is_a_directory, true},     {std::errc::invalid_argument, true},
      {std::errc::no_space_on_device, false}, {std::errc::permission_denied, false},
      {std::errc::read_only_file_system, false}, {std::errc::io_error, false},
      {std::errc::no_such_file_or_directory, kWindows},  // the C run-time's word for a name too long there
  };
  for (const auto& [code, name] : cases) EXPECT_EQ(isNameProblem(std::make_error_code(code)), name) << static_cast<int>(code);
#ifdef _WIN32
  for (const DWORD code : {ERROR_FILENAME_EXCED_RANGE, ERROR_INVALID_NAME, ERROR_DIRECTORY})
    EXPECT_TRUE(isNameProblem(std::error_code(static_cast<int>(code), std::system_category()))) << code;
  for (const DWORD code : {ERROR_DISK_FULL, ERROR_ACCESS_DENIED, ERROR_WRITE_PROTECT})
    EXPECT_FALSE(isNameProblem(std::error_code(static_cast<int>(code), std::system_category()))) << code;
#endif
}

// A file replaced while another thread reads it: every read sees one whole version. (On Windows
// a replacement meeting an open reader fails, and is tried again at the next write.)
TEST(FileReplacement, AReaderSeesTheOldFileOrTheNewNeverAPart) {
  namespace fs = std::filesystem;
  const fs::path dir = fs::temp_directory_path() / ("kps-replace-" + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()));
  fs::create_directories(dir);
  const std::string path = fromPath(dir / "status.json");
  const std::string versions[] = {std::string(200000, 'a') + "\n", std::string(100000, 'b') + "\n"};
  std::error_code error;
  ASSERT_TRUE(replaceFile(path, versions[0], error)) << error.message();
  std::atomic<bool> done{false};
  std::atomic<int> replaced{0}, started{0}, finished{0};
  std::thread writer([&] {
    for (int i = 1; i <= 300; ++i) {
      std::error_code ignored;
      ++started;
      replaced += replaceFile(path, versions[i % 2], ignored) ? 1 : 0;
      ++finished;
    }
    done = true;
  });
  int reads = 0;
  while (!done) {
    {
      std::ifstream in(toPath(path), std::ios::binary);
      if (!in) continue;
      const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      EXPECT_TRUE(text == versions[0] || text == versions[1]) << text.size();
      ++reads;
    }
    // One whole attempt while no reader holds the file, so that Windows lets some land.
    const int mark = started;
    while (!done && finished <= mark) std::this_thread::yield();
  }
  writer.join();
  EXPECT_GT(reads, 0);
#ifndef _WIN32
  EXPECT_EQ(replaced, 300);
#endif
  EXPECT_GT(replaced, 0);
  EXPECT_FALSE(fs::exists(toPath(path + ".tmp")));
  fs::remove_all(dir);
}

}  // namespace
}  // namespace kps
