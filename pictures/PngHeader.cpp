#include "pictures/HeaderReaders.h"

namespace kps {

void readPngHeader(HeaderBytes& in, PictureHeader& header) {
  unsigned char chunk[4];
  if (!in.at(12, chunk, 4) || std::memcmp(chunk, "IHDR", 4) != 0) return;
  std::uint32_t width = 0, height = 0;
  if (in.number(16, 4, true, width) && in.number(20, 4, true, height)) header.width = width, header.height = height;
}

}  // namespace kps
