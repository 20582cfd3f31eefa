#include "pictures/HeaderReaders.h"

#include <algorithm>

namespace kps {

namespace {

// The blocks of a GIF walked for its frames: animations have thousands, not millions.
constexpr long kMostGifBlocks = 1L << 20;

}  // namespace

// The logical screen and every image on it: a frame may reach beyond the screen, and a decoder
// holds the frame as it is declared.
void readGifHeader(HeaderBytes& in, PictureHeader& header) {
  std::uint32_t width = 0, height = 0, flags = 0;
  if (!in.number(6, 2, false, width) || !in.number(8, 2, false, height) || !in.number(10, 1, false, flags)) return;
  long at = 13 + ((flags & 0x80) ? 3L << ((flags & 7) + 1) : 0);
  const auto skipSubBlocks = [&](long from) -> long {
    std::uint32_t size = 0;
    while (in.number(from, 1, false, size)) {
      from += 1 + static_cast<long>(size);
      if (size == 0) return from;
    }
    return -1;
  };
  std::uint32_t introducer = 0;
  for (long blocks = 0; at >= 0 && in.number(at, 1, false, introducer); ++blocks) {
    if (blocks == kMostGifBlocks) return;  // no size it can be trusted for
    if (introducer == 0x3B) break;  // trailer
    if (introducer == 0x21) {       // extension: label, then sub-blocks
      at = skipSubBlocks(at + 2);
    } else if (introducer == 0x2C) {
      std::uint32_t left = 0, top = 0, w = 0, h = 0, local = 0;
      if (!in.number(at + 1, 2, false, left) || !in.number(at + 3, 2, false, top) || !in.number(at + 5, 2, false, w) ||
          !in.number(at + 7, 2, false, h) || !in.number(at + 9, 1, false, local))
        break;
      width = std::max(width, left + w), height = std::max(height, top + h);
      at += 10 + ((local & 0x80) ? 3L << ((local & 7) + 1) : 0);
      at = skipSubBlocks(at + 1);  // past the LZW code size
    } else {
      break;  // what follows is not GIF: the decoder stops there too
    }
  }
  header.width = width, header.height = height;
}

}  // namespace kps
