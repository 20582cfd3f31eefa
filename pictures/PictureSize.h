// Sizes a picture passes through on its way to paper: the rectangle it is drawn in, and the
// pixels a decoder is asked for to fill it.
#pragma once

#include <cstdint>

#include "pictures/PictureHeader.h"

namespace kps {

// The drawn rectangle, in hundredths of an inch.
struct PictureSize {
  std::int32_t width;
  std::int32_t height;
};

// A size in pixels: what a decoder is asked for.
struct PixelSize {
  std::uint32_t width, height;
};

// The pixels worth decoding for a picture drawn at `size` on a printer of this resolution: the
// drawn size at that resolution, never more than the picture has.
PixelSize pixelsToDecode(const PictureHeader& header, const PictureSize& size, double dpiX, double dpiY);

}  // namespace kps
