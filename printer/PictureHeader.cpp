#include "printer/PictureHeader.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "src/Log.h"

namespace kps {

namespace {

// Reads the file by offset through a window of its own, so that the many small reads of a
// header walk cost a copy each, not a seek and a read of the system; every read past the end
// (or past kMostScanned) gives false, never a partial value.
class Bytes {
 public:
  explicit Bytes(std::FILE* file) : file_(file) {}
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

// Where a JPEG's frame header may lie: past this, a file is not one a camera makes.
constexpr long kJpegHeaderLimit = 16L << 20;
// The blocks of a GIF walked for its frames: animations have thousands, not millions.
constexpr long kMostGifBlocks = 1L << 20;

void readJpeg(Bytes& in, PictureHeader& header) {
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

void readPng(Bytes& in, PictureHeader& header) {
  unsigned char chunk[4];
  if (!in.at(12, chunk, 4) || std::memcmp(chunk, "IHDR", 4) != 0) return;
  std::uint32_t width = 0, height = 0;
  if (in.number(16, 4, true, width) && in.number(20, 4, true, height)) header.width = width, header.height = height;
}

void readBmp(Bytes& in, PictureHeader& header) {
  std::uint32_t size = 0, width = 0, height = 0;
  if (!in.number(14, 4, false, size)) return;
  if (size == 12) {  // OS/2 1.x: 16-bit sizes
    if (in.number(18, 2, false, width) && in.number(20, 2, false, height)) header.width = width, header.height = height;
    return;
  }
  if (size < 16 || size > 124 || !in.number(18, 4, false, width) || !in.number(22, 4, false, height)) return;
  const auto signedWidth = static_cast<std::int32_t>(width), signedHeight = static_cast<std::int32_t>(height);
  if (signedWidth <= 0 || signedHeight == 0 || signedHeight == INT32_MIN) return;
  header.width = width;
  header.height = static_cast<std::uint32_t>(signedHeight < 0 ? -signedHeight : signedHeight);  // top-down rows
}

// The logical screen and every image on it: a frame may reach beyond the screen, and a decoder
// holds the frame as it is declared.
void readGif(Bytes& in, PictureHeader& header) {
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

// The first image file directory's width and length, as a decoder reads the first page.
void readTiff(Bytes& in, PictureHeader& header, bool bigEndian) {
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

}  // namespace

PictureHeader readPictureHeader(std::FILE* file) {
  Bytes in(file);
  PictureHeader header;
  unsigned char magic[8] = {};
  if (!in.at(0, magic, 2)) return header;
  in.at(0, magic, 8);  // a shorter file keeps zeros beyond its end
  if (magic[0] == 0xFF && magic[1] == 0xD8) {
    header.format = PictureFormat::Jpeg;
    readJpeg(in, header);
  } else if (std::memcmp(magic, "\x89PNG\r\n\x1a\n", 8) == 0) {
    header.format = PictureFormat::Png;
    readPng(in, header);
  } else if (magic[0] == 'B' && magic[1] == 'M') {
    header.format = PictureFormat::Bmp;
    readBmp(in, header);
  } else if (std::memcmp(magic, "GIF87a", 6) == 0 || std::memcmp(magic, "GIF89a", 6) == 0) {
    header.format = PictureFormat::Gif;
    readGif(in, header);
  } else if (std::memcmp(magic, "II*\0", 4) == 0 || std::memcmp(magic, "MM\0*", 4) == 0) {
    header.format = PictureFormat::Tiff;
    readTiff(in, header, magic[0] == 'M');
  }
  return header;
}

std::string pictureRefusal(const PictureHeader& header) {
  if (header.format == PictureFormat::Other) return "not a JPEG, PNG, BMP, GIF or TIFF picture";
  if (header.width == 0 || header.height == 0) return "its size cannot be read from its header";
  const std::uint64_t pixels = std::uint64_t{header.width} * header.height;
  if (pixels > kMostPicturePixels || header.width > kMostPictureEdge || header.height > kMostPictureEdge)
    return std::to_string(header.width) + " x " + std::to_string(header.height) +
           " pixels, more than the 100 MP or 20000 pixels a side a print takes";
  return "";
}

FilePtr openPicture(const std::string& path, PictureHeader& header) {
  FilePtr file(openRegularFile(path));
  if (!file) return nullptr;
  header = readPictureHeader(file.get());
  const std::string refusal = pictureRefusal(header);
  if (!refusal.empty()) {
    logLine(KPS_TAG_PRINTER, __LINE__, ("picture refused, " + refusal + ": ").c_str(), path);
    return nullptr;
  }
  std::rewind(file.get());
  return file;
}

PixelSize pixelsToDecode(const PictureHeader& header, const PictureSize& size, double dpiX, double dpiY) {
  const auto fit = [](std::int32_t hundredths, double dpi, std::uint32_t most) {
    const double wanted = std::ceil(std::max(hundredths, 1) * dpi / 100.0);
    return wanted >= most ? most : std::max<std::uint32_t>(1, static_cast<std::uint32_t>(wanted));
  };
  return PixelSize{fit(size.width, dpiX, header.width), fit(size.height, dpiY, header.height)};
}

}  // namespace kps
