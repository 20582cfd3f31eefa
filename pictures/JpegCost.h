// What libjpeg holds while it decodes a JPEG, counted from what the file's frame and first scan
// headers say: the same count whether they were read by the service's header reader, before any
// decoder runs, or by libjpeg itself.
#pragma once

#include <array>
#include <cstdint>

namespace kps {

// libjpeg decodes no more components than this.
inline constexpr int kMostJpegComponents = 10;

struct JpegLayout {
  bool progressive = false;
  std::uint8_t components = 0;  // the frame's
  // Each component's sampling factors as the frame gives them: across in the high four bits,
  // down in the low four.
  std::array<std::uint8_t, kMostJpegComponents> sampling{};
  std::uint8_t firstScanComponents = 0;  // 0: no scan was read

  bool operator==(const JpegLayout& other) const {
    return progressive == other.progressive && components == other.components && sampling == other.sampling &&
           firstScanComponents == other.firstScanComponents;
  }
};

// The bytes libjpeg holds to decode a width x height JPEG of this layout, at any scale: its tables
// and a few rows of each component, and, where the picture comes in more than one scan (a
// progressive file, or a first scan without every component), every coefficient of it: 2 bytes a
// sample, each component's blocks rounded up to its sampling factors. A layout without a scan
// read counts as one that needs them all.
std::uint64_t jpegDecoderBytes(std::uint32_t width, std::uint32_t height, const JpegLayout& layout);

}  // namespace kps
