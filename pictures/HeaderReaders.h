// The header readers of the five formats, one file each, behind readPictureHeader: each reads
// its format's size into the header through one window on the file.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "pictures/PictureHeader.h"

namespace kps {

// Reads the file by offset through a window of its own, so that the many small reads of a
// header walk cost a copy each, not a seek and a read of the system; every read past the end
// (or past kMostScanned) gives false, never a partial value.
class HeaderBytes {
 public:
  explicit HeaderBytes(std::FILE* file) : file_(file) {}
  bool at(long offset, unsigned char* out, std::size_t count) {
    if (offset < 0 || offset + static_cast<long>(count) > kMostScanned) return false;
    if (offset < start_ || offset + static_cast<long>(count) > start_ + static_cast<long>(filled_)) {
      start_ = offset;
      filled_ = std::fseek(file_, offset, SEEK_SET) == 0 ? std::fread(window_, 1, sizeof window_, file_) : 0;
      if (count > filled_) return false;
    }
    std::memcpy(out, window_ + (offset - start_), count);
    return true;
  }
  // Unsigned integers of 1, 2 or 4 bytes, big- or little-endian.
  bool number(long offset, int size, bool bigEndian, std::uint32_t& out) {
    unsigned char b[4];
    if (!at(offset, b, static_cast<std::size_t>(size))) return false;
    out = 0;
    for (int i = 0; i < size; ++i) out |= std::uint32_t{b[bigEndian ? i : size - 1 - i]} << (8 * (size - 1 - i));
    return true;
  }

  // A header lies near a file's start; a GIF's frames are walked to its end. Past this no
  // picture the service takes reaches (a download stops at 256 MiB).
  static constexpr long kMostScanned = 256L << 20;

 private:
  std::FILE* file_;
  unsigned char window_[1 << 16];
  long start_ = 0;
  std::size_t filled_ = 0;
};

void readJpegHeader(HeaderBytes& in, PictureHeader& header);
void readPngHeader(HeaderBytes& in, PictureHeader& header);
void readBmpHeader(HeaderBytes& in, PictureHeader& header);
void readGifHeader(HeaderBytes& in, PictureHeader& header);
void readTiffHeader(HeaderBytes& in, PictureHeader& header, bool bigEndian);

}  // namespace kps
