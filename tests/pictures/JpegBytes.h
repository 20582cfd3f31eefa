// JPEG files put together byte by byte for the picture tests: segments, frame and scan
// headers, and files whose segments lie about the frame.
#pragma once

#include <string>

namespace kps {

inline std::string be16(unsigned v) { return {char(v >> 8), char(v)}; }

inline std::string segment(unsigned char marker, const std::string& payload) {
  return std::string("\xFF") + char(marker) + be16(static_cast<unsigned>(payload.size()) + 2) + payload;
}

// Each component's sampling factors as a byte (0x22: twice across and down), one a component.
inline const std::string k420 = "\x22\x11\x11", k422 = "\x21\x11\x11", k444 = "\x11\x11\x11";
inline const std::string kGrey = "\x11", kCmyk = "\x11\x11\x11\x11";

// A frame header of these components, numbered from 1, all on quantisation table 0.
inline std::string frame(unsigned char marker, int precision, unsigned width, unsigned height,
                         const std::string& sampling) {
  std::string payload = std::string(1, char(precision)) + be16(height) + be16(width) + char(sampling.size());
  for (std::size_t i = 0; i < sampling.size(); ++i) payload += std::string{char(i + 1), sampling[i], '\0'};
  return segment(marker, payload);
}

// A scan header of the first `components` components, all coefficients.
inline std::string scan(int components) {
  std::string payload(1, char(components));
  for (int i = 1; i <= components; ++i) payload += std::string{char(i), '\0'};
  return segment(0xDA, payload + std::string("\0\x3F\0", 3));
}

inline const std::string kSoi = "\xFF\xD8";
inline const std::string kApp0 = segment(0xE0, std::string("JFIF\0\1\1\0\0\1\0\1\0\0", 14));

// `jpeg` (a whole file) behind a stuffed FF 00 and an APP1 segment of the longest length that
// holds, at file offset 65509, a frame header of fakeWidth x fakeHeight: where a reader lands
// that takes FF 00 for a marker and the next two bytes (FF E1) for its length.
inline std::string behindAFakeFrame(const std::string& jpeg, unsigned fakeWidth, unsigned fakeHeight) {
  std::string payload(65533, '\0');
  payload.replace(65501, 19, frame(0xC0, 8, fakeWidth, fakeHeight, k420));
  return kSoi + std::string("\xFF\x00", 2) + segment(0xE1, payload) + jpeg.substr(2);
}

// The file with its first frame header saying width x height instead.
inline std::string withFrameSize(std::string jpeg, unsigned width, unsigned height) {
  for (std::size_t at = 2; at + 9 < jpeg.size(); ++at)
    if (jpeg[at] == '\xFF' && (jpeg[at + 1] == '\xC0' || jpeg[at + 1] == '\xC2')) {
      jpeg.replace(at + 5, 4, be16(height) + be16(width));
      break;
    }
  return jpeg;
}

}  // namespace kps
