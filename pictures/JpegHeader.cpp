#include "pictures/HeaderReaders.h"

#include <algorithm>

namespace kps {

namespace {

// Where a JPEG's frame header may lie: past this, a file is not one a camera makes.
constexpr long kJpegHeaderLimit = 16L << 20;

bool byteAt(HeaderBytes& in, long& at, unsigned char& byte) {
  return at < kJpegHeaderLimit && in.at(at++, &byte, 1);
}

// The next marker from `at`, found as libjpeg finds it: bytes other than FF are passed over, FF
// fill is swallowed, and FF 00 (a stuffed zero) is passed over too. `at` is left past it.
bool nextMarker(HeaderBytes& in, long& at, int& marker) {
  unsigned char byte = 0;
  do {
    do {
      if (!byteAt(in, at, byte)) return false;
    } while (byte != 0xFF);
    do {
      if (!byteAt(in, at, byte)) return false;
    } while (byte == 0xFF);
  } while (byte == 0);
  marker = byte;
  return true;
}

bool isFrame(int m) { return m >= 0xC0 && m <= 0xCF && m != 0xC4 && m != 0xC8 && m != 0xCC; }

// Markers libjpeg skips by their length, or reads whole by it (tables, restart interval).
bool isSegment(int m) { return m == 0xC4 || m == 0xCC || (m >= 0xDB && m <= 0xDD) || (m >= 0xE0 && m <= 0xEF) || m == 0xFE; }

// The frame header whose length field is at `at`.
bool readFrame(HeaderBytes& in, long at, int marker, PictureHeader& header) {
  std::uint32_t precision = 0, height = 0, width = 0, components = 0;
  if (!in.number(at + 2, 1, true, precision) || !in.number(at + 3, 2, true, height) ||
      !in.number(at + 5, 2, true, width) || !in.number(at + 7, 1, true, components))
    return false;
  JpegLayout& layout = header.jpeg;
  layout.progressive = marker == 0xC2 || marker == 0xCA;
  layout.components = static_cast<std::uint8_t>(components);
  for (std::uint32_t i = 0; i < components && i < layout.sampling.size(); ++i)
    if (!in.at(at + 9 + 3 * static_cast<long>(i), &layout.sampling[i], 1)) return false;
  header.width = width, header.height = height;
  header.plainJpeg = (marker == 0xC0 || marker == 0xC1 || marker == 0xC2) && precision == 8 &&
                     (components == 1 || components == 3);
  return true;
}

}  // namespace

// The markers walked from the start of image to the first scan as libjpeg walks them, so that
// the frame read here is the one it decodes: a frame-shaped run of bytes inside a segment, or
// behind bytes it passes over, is not taken for one. Where libjpeg stops with an error before
// the first scan (a second frame or start of image, a marker it does not know) the file has no
// size; a frame it does not decode (lossless, 12-bit) keeps its size.
void readJpegHeader(HeaderBytes& in, PictureHeader& header) {
  long at = 2;  // past the start-of-image marker
  bool framed = false;
  for (int marker = 0; nextMarker(in, at, marker);) {
    if ((marker >= 0xD0 && marker <= 0xD7) || marker == 0x01) continue;  // no segment
    if (marker == 0xDA && framed) {  // the first scan: which components it holds
      std::uint32_t components = 0;
      if (in.number(at + 2, 1, true, components)) header.jpeg.firstScanComponents = static_cast<std::uint8_t>(components);
      return;
    }
    if (marker == 0xD9 || marker == 0xDA) return;  // the image ends, or a scan comes before any frame
    const bool frame = isFrame(marker);
    if ((frame && framed) || !(frame || isSegment(marker))) {
      header.width = header.height = 0, header.plainJpeg = false, header.jpeg = JpegLayout{};
      return;
    }
    std::uint32_t length = 0;
    if (!in.number(at, 2, true, length)) return;
    if (frame) {
      if (!readFrame(in, at, marker, header)) return;
      framed = true;
      if (marker != 0xC0 && marker != 0xC1 && marker != 0xC2 && marker != 0xC9 && marker != 0xCA) return;
    }
    at += std::max<long>(length, 2);
  }
}

}  // namespace kps
