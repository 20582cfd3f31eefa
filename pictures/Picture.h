// A copy's picture decoded for its page: JPEG through libjpeg, scaled by the decoder itself;
// PNG, BMP, GIF and TIFF through gdk-pixbuf's loader of that format alone. Told by content,
// never by name, and only after the header was read and allowed (pictures/PictureHeader.h).
#pragma once

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "pictures/CairoHandles.h"
#include "pictures/PictureSize.h"

namespace kps {

struct Picture {
  // The file itself where it is a JPEG that needs no scaling: the page carries it as it is.
  // Empty: the page carries the pixels.
  std::string jpeg;
  // The picture on white (no transparency reaches paper), RGB24, at most the size asked for.
  CairoSurface surface;
};

// Decodes a picture opened by openPicture from `path` to no more than `most` pixels across and
// down (area averaged), and never more than it has. Empty when it is not a whole picture of its
// format, memory ran short, or what its decoder reads is refused (with openPicture's line):
// nothing a picture holds ends the process.
std::optional<Picture> decodePicture(std::FILE* file, const PictureHeader& header, const PixelSize& most,
                                     const std::string& path);

}  // namespace kps
