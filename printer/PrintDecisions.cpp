#include "printer/PrintDecisions.h"

#include <chrono>
#include <iostream>
#include <thread>

#ifdef _WIN32
#include <windows.h>
#endif

#include "src/Log.h"

namespace kps {

const std::wstring kCopyNameMarker = {L'\x0028', L'\x9353', L'\xE21B', L'\x6E70', L'\x0029'};

std::wstring matchPrinter(const std::vector<std::wstring>& names, const std::wstring& target) {
  const std::wstring* remembered = nullptr;
  for (const auto& name : names) {
    if (name.find(target) == std::wstring::npos) continue;
    if (name.find(kCopyNameMarker) == std::wstring::npos) return name;
    if (!remembered) remembered = &name;
  }
  return remembered ? *remembered : std::wstring();
}

std::optional<std::int32_t> paperSizeFor(const std::string& type,
                                         const PrinterSettingsRecord& settings) {
  if (type == "postcards" || type == "frames") return settings.fourSize;
  if (type == "fridgemagnets" || type == "cardsets") return settings.threeSize;
  return std::nullopt;
}

std::optional<PictureSize> pictureSizeFor(const std::string& type,
                                          const PrinterSettingsRecord& settings) {
  std::int32_t width, height;
  if (type == "postcards" || type == "frames" || type == "cardsets") {
    width = settings.fourWidth;
    height = settings.fourHeight;
  } else if (type == "fridgemagnets") {
    width = settings.threeWidth;
    height = settings.threeHeight;
  } else {
    return std::nullopt;
  }
  return PictureSize{static_cast<std::int32_t>(static_cast<double>(width) * 3.7),
                     static_cast<std::int32_t>(static_cast<double>(height) * 3.8)};
}

std::optional<std::int32_t> resultForJobStatus(std::uint32_t status) {
  constexpr std::uint32_t kError = 0x2, kDeleting = 0x4, kOffline = 0x20, kPaperOut = 0x40,
                          kPrinted = 0x80, kDeleted = 0x100, kUserIntervention = 0x400;
  if ((status & kPrinted) || status == 0) return 0;
  if (status & (kDeleted | kDeleting | kError)) return -1;
  if (status & kOffline) return -2;
  if (status & kPaperOut) return -3;
  if (status & kUserIntervention) return -4;
  return std::nullopt;
}

JobWaitTiming& jobWaitTiming() {
  static JobWaitTiming timing;
  return timing;
}

std::int32_t waitForJob(const std::function<std::optional<std::int32_t>()>& queryOnce,
                        const JobWaitClock& clock, const JobWaitTiming& timing) {
  const std::uint32_t start = clock.ticks();
  for (;;) {
    if (static_cast<std::uint32_t>(clock.ticks() - start) >= timing.limitMs) break;
    if (const auto code = queryOnce()) return *code;
    clock.sleep(timing.pollMs);
    if (static_cast<std::uint32_t>(clock.ticks() - start) >= timing.limitMs) break;
  }
  logLine(KPS_TAG_PRINTER, __LINE__, "WaitForJobCompletion timed out.");
  return -7;
}

JobWaitClock systemJobWaitClock() {
#ifdef _WIN32
  return JobWaitClock{[] { return static_cast<std::uint32_t>(GetTickCount()); },
                      [](std::uint32_t ms) { Sleep(ms); }};
#else
  return JobWaitClock{
      [] {
        using namespace std::chrono;
        return static_cast<std::uint32_t>(
            duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
      },
      [](std::uint32_t ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }};
#endif
}

std::wstring utf8ToWide(const std::string& text) {
  std::wstring out;
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t size = text.size();
  for (std::size_t i = 0; i < size;) {
    const unsigned char lead = bytes[i];
    std::uint32_t cp;
    std::size_t extra;
    if (lead < 0x80) { cp = lead; extra = 0; }
    else if ((lead & 0xE0) == 0xC0) { cp = lead & 0x1F; extra = 1; }
    else if ((lead & 0xF0) == 0xE0) { cp = lead & 0x0F; extra = 2; }
    else if ((lead & 0xF8) == 0xF0) { cp = lead & 0x07; extra = 3; }
    else { out += L'\xFFFD'; ++i; continue; }
    std::size_t k = 1;
    for (; k <= extra && i + k < size && (bytes[i + k] & 0xC0) == 0x80; ++k)
      cp = (cp << 6) | (bytes[i + k] & 0x3F);
    const bool overlong = (extra == 1 && cp < 0x80) || (extra == 2 && cp < 0x800) ||
                          (extra == 3 && cp < 0x10000);
    if (k <= extra || overlong || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
      out += L'\xFFFD';
      i += k;  // skip the broken sequence, resume at the next possible lead byte
      continue;
    }
    i += k;
    if (sizeof(wchar_t) == 2 && cp >= 0x10000) {
      cp -= 0x10000;
      out += static_cast<wchar_t>(0xD800 + (cp >> 10));
      out += static_cast<wchar_t>(0xDC00 + (cp & 0x3FF));
    } else {
      out += static_cast<wchar_t>(cp);
    }
  }
  return out;
}

std::string wideToUtf8(const std::wstring& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::uint32_t cp = static_cast<std::uint32_t>(text[i]);
    if (sizeof(wchar_t) == 2) cp &= 0xFFFF;
    if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < text.size()) {
      const std::uint32_t low = static_cast<std::uint32_t>(text[i + 1]) & 0xFFFF;
      if (low >= 0xDC00 && low <= 0xDFFF) {
        cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
        ++i;
      }
    }
    if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) cp = 0xFFFD;
    if (cp < 0x80) {
      out += static_cast<char>(cp);
    } else if (cp < 0x800) {
      out += static_cast<char>(0xC0 | (cp >> 6));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
      out += static_cast<char>(0xE0 | (cp >> 12));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (cp >> 18));
      out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    }
  }
  return out;
}

#ifdef _WIN32
void wideOut(const std::wstring& line) { std::wcout << line << std::endl; }
void wideErr(const std::wstring& line) { std::wcerr << line << std::endl; }
#else
void wideOut(const std::wstring& line) { std::cout << wideToUtf8(line) << std::endl; }
void wideErr(const std::wstring& line) { std::cerr << wideToUtf8(line) << std::endl; }
#endif

}  // namespace kps
