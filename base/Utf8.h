// UTF-8 <-> wide text (UTF-16 on Windows, UTF-32 elsewhere). Invalid UTF-8 sequences become
// U+FFFD; nothing throws.
#pragma once

#include <string>

namespace kps {

std::wstring utf8ToWide(const std::string& text);
std::string wideToUtf8(const std::wstring& text);

// Whether text is well-formed UTF-8 (no stray byte, no surrogate, no overlong form).
bool isValidUtf8(const std::string& text);

}  // namespace kps
