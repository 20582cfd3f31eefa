#include "base/Utf8.h"

#include <cstdint>

namespace kps {

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

// What the conversion repairs does not come back as it went.
bool isValidUtf8(const std::string& text) { return wideToUtf8(utf8ToWide(text)) == text; }

}  // namespace kps
