#include "pictures/PictureHeader.h"

#include <cstring>

#include "base/Log.h"
#include "pictures/HeaderReaders.h"

namespace kps {

PictureHeader readPictureHeader(std::FILE* file) {
  HeaderBytes in(file);
  PictureHeader header;
  unsigned char magic[8] = {};
  if (!in.at(0, magic, 2)) return header;
  in.at(0, magic, 8);  // a shorter file keeps zeros beyond its end
  if (magic[0] == 0xFF && magic[1] == 0xD8) {
    header.format = PictureFormat::Jpeg;
    readJpegHeader(in, header);
  } else if (std::memcmp(magic, "\x89PNG\r\n\x1a\n", 8) == 0) {
    header.format = PictureFormat::Png;
    readPngHeader(in, header);
  } else if (magic[0] == 'B' && magic[1] == 'M') {
    header.format = PictureFormat::Bmp;
    readBmpHeader(in, header);
  } else if (std::memcmp(magic, "GIF87a", 6) == 0 || std::memcmp(magic, "GIF89a", 6) == 0) {
    header.format = PictureFormat::Gif;
    readGifHeader(in, header);
  } else if (std::memcmp(magic, "II*\0", 4) == 0 || std::memcmp(magic, "MM\0*", 4) == 0) {
    header.format = PictureFormat::Tiff;
    readTiffHeader(in, header, magic[0] == 'M');
  }
  return header;
}

bool withinPixelBudget(std::uint64_t width, std::uint64_t height) {
  return width * height <= kMostPicturePixels && width <= kMostPictureEdge && height <= kMostPictureEdge;
}

namespace {

std::string sizeText(std::uint32_t width, std::uint32_t height) {
  return std::to_string(width) + " x " + std::to_string(height);
}

}  // namespace

std::string pictureRefusal(const PictureHeader& header) {
  if (header.format == PictureFormat::Other) return "not a JPEG, PNG, BMP, GIF or TIFF picture";
  if (header.width == 0 || header.height == 0) return "its size cannot be read from its header";
  if (!withinPixelBudget(header.width, header.height))
    return sizeText(header.width, header.height) + " pixels, more than the 100 MP or 20000 pixels a side a print takes";
  if (header.format != PictureFormat::Jpeg) return "";
  const std::uint64_t held = jpegDecoderBytes(header.width, header.height, header.jpeg);
  if (held > kMostDecoderBytes)
    return sizeText(header.width, header.height) + " pixels held whole while decoded (" +
           std::to_string((held + (1 << 19)) >> 20) + " MiB), more than the " + std::to_string(kMostDecoderBytes >> 20) +
           " MiB a picture may take";
  return "";
}

std::string decodedSizeRefusal(const PictureHeader& header, std::uint32_t width, std::uint32_t height) {
  if (width <= header.width && height <= header.height) return "";
  return "its decoder reads " + sizeText(width, height) + " pixels, more than the " + sizeText(header.width, header.height) +
         " of its header";
}

void logPictureRefusal(const std::string& why, const std::string& path) {
  logLine(KPS_TAG_PRINTER, __LINE__, ("picture refused, " + why + ": ").c_str(), path);
}

FilePtr openPicture(const std::string& path, PictureHeader& header) {
  FilePtr file(openRegularFile(path));
  if (!file) return nullptr;
  header = readPictureHeader(file.get());
  const std::string refusal = pictureRefusal(header);
  if (!refusal.empty()) {
    logPictureRefusal(refusal, path);
    return nullptr;
  }
  std::rewind(file.get());
  return file;
}

}  // namespace kps
