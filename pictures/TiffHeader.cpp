#include "pictures/HeaderReaders.h"

#include <algorithm>

namespace kps {

// The first image file directory's width and length, as a decoder reads the first page.
void readTiffHeader(HeaderBytes& in, PictureHeader& header, bool bigEndian) {
  std::uint32_t directory = 0, entries = 0;
  if (!in.number(4, 4, bigEndian, directory) || directory > 0x7FFFFFF0u ||
      !in.number(static_cast<long>(directory), 2, bigEndian, entries))
    return;
  std::uint32_t width = 0, height = 0;
  for (std::uint32_t i = 0; i < std::min<std::uint32_t>(entries, 4096); ++i) {
    const long entry = static_cast<long>(directory) + 2 + 12 * static_cast<long>(i);
    std::uint32_t tag = 0, type = 0, value = 0;
    if (!in.number(entry, 2, bigEndian, tag) || !in.number(entry + 2, 2, bigEndian, type)) return;
    if (tag != 256 && tag != 257) continue;
    if (type != 3 && type != 4) return;  // SHORT or LONG
    if (!in.number(entry + 8, type == 3 ? 2 : 4, bigEndian, value)) return;
    // Decoders differ on which of two values they take: neither is trusted.
    std::uint32_t& size = tag == 256 ? width : height;
    if (size != 0) return;
    size = value;
  }
  header.width = width, header.height = height;
}

}  // namespace kps
