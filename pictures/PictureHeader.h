// What a picture file says of itself before a pixel of it is decoded: its format, told by its
// first bytes, and its size in pixels, read from its header. The same reading on both
// platforms decides whether a copy's picture is decoded at all.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "base/FilePath.h"
#include "pictures/JpegCost.h"

namespace kps {

// The formats the service prints: those GDI+ reads as bitmaps.
enum class PictureFormat { Other, Jpeg, Png, Bmp, Gif, Tiff };

struct PictureHeader {
  PictureFormat format = PictureFormat::Other;
  // The pixels the decoder will make; 0 when the header does not say. A GIF's are the box that
  // holds its screen and every frame on it.
  std::uint32_t width = 0, height = 0;
  // A JPEG a PDF reader shows as it is: baseline or progressive, 8 bits, grey or colour.
  bool plainJpeg = false;
  // What a JPEG's decoder will hold for it.
  JpegLayout jpeg;
};

// No real product needs more: a 4 x 6 in print at 1200 dpi is 35 MP.
inline constexpr std::uint64_t kMostPicturePixels = 100'000'000;
inline constexpr std::uint32_t kMostPictureEdge = 20000;
// What a JPEG's decoder may hold (jpegDecoderBytes): the process stays within 256 MiB with the
// service's own 25 MiB and the page it decodes into (a postcard at 600 dpi, 30 MiB) beside it.
// A progressive 48 MP photo at 4:2:0 holds 138 MiB.
inline constexpr std::uint64_t kMostDecoderBytes = 160 << 20;

// Reads the header from the file's start; the file's position is left anywhere.
PictureHeader readPictureHeader(std::FILE* file);

// Whether width x height pixels are within both bounds above.
bool withinPixelBudget(std::uint64_t width, std::uint64_t height);

// Why a picture with this header is not decoded, or "" when it may be.
std::string pictureRefusal(const PictureHeader& header);

// Why a picture whose decoder reads width x height is not decoded, or "" when it may be: the
// decoder's reading counts, and what the header allowed bounds it.
std::string decodedSizeRefusal(const PictureHeader& header, std::uint32_t width, std::uint32_t height);

// The one line of a refused picture: "picture refused, WHY: PATH".
void logPictureRefusal(const std::string& why, const std::string& path);

// The copy's picture, opened for decoding: a regular file whose header names a format the
// service prints, within the budget. Null when the file cannot be opened, and then also with
// one log line naming the file when it is refused.
FilePtr openPicture(const std::string& path, PictureHeader& header);

}  // namespace kps
