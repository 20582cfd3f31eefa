#include "pictures/HeaderReaders.h"

namespace kps {

namespace {

// Where a JPEG's frame header may lie: past this, a file is not one a camera makes.
constexpr long kJpegHeaderLimit = 16L << 20;
}  // namespace

void readJpegHeader(HeaderBytes& in, PictureHeader& header) {
  long at = 2;  // past the start-of-image marker
  unsigned char marker[2];
  while (at < kJpegHeaderLimit && in.at(at, marker, 2)) {
    if (marker[0] != 0xFF) return;
    if (marker[1] == 0xFF) {  // fill byte
      ++at;
      continue;
    }
    const int m = marker[1];
    if (m == 0xD8 || m == 0x01 || (m >= 0xD0 && m <= 0xD7)) {  // markers without a segment
      at += 2;
      continue;
    }
    if (m == 0xD9 || m == 0xDA) return;  // the image ends or its data starts: no frame header
    std::uint32_t length = 0;
    if (!in.number(at + 2, 2, true, length) || length < 2) return;
    const bool frame = m >= 0xC0 && m <= 0xCF && m != 0xC4 && m != 0xC8 && m != 0xCC;
    if (frame) {
      std::uint32_t precision = 0, height = 0, width = 0, components = 0;
      if (!in.number(at + 4, 1, true, precision) || !in.number(at + 5, 2, true, height) ||
          !in.number(at + 7, 2, true, width) || !in.number(at + 9, 1, true, components))
        return;
      header.width = width, header.height = height;
      header.plainJpeg = (m == 0xC0 || m == 0xC1 || m == 0xC2) && precision == 8 &&
                         (components == 1 || components == 3);
      return;
    }
    at += 2 + static_cast<long>(length);
  }
}

}  // namespace kps
