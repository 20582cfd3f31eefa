// A picture's format and size read from its first bytes, before anything decodes it: the same
// reading on Linux and, under Wine, on Windows.
#include "pictures/PictureHeader.h"
#include "pictures/PictureSize.h"
#include "tests/pictures/JpegBytes.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#ifndef _WIN32
#include <sys/stat.h>

#include "tests/support/TempDir.h"
#endif

namespace kps {
namespace {

std::string le16(unsigned v) { return {char(v), char(v >> 8)}; }
std::string be32(unsigned v) { return be16(v >> 16) + be16(v & 0xFFFF); }
std::string le32(unsigned v) { return le16(v & 0xFFFF) + le16(v >> 16); }

const std::string kExif = segment(0xE1, "Exif" + std::string(40000, 'x'));  // a camera's 40 KB of metadata

std::string png(unsigned width, unsigned height) {
  return std::string("\x89PNG\r\n\x1a\n", 8) + be32(13) + "IHDR" + be32(width) + be32(height) + std::string("\x08\x02\0\0\0", 5);
}
std::string bmp(unsigned headerSize, unsigned width, unsigned height) {
  const std::string sizes = headerSize == 12 ? le16(width) + le16(height) : le32(width) + le32(height);
  return "BM" + std::string(12, '\0') + le32(headerSize) + sizes + std::string(40, '\0');
}
// A screen, then images at (left, top) of (width, height), each with one empty data block.
std::string gif(unsigned width, unsigned height, std::initializer_list<std::array<unsigned, 4>> images) {
  std::string out = "GIF89a" + le16(width) + le16(height) + std::string("\x80\0\0", 3) + std::string(6, '\0');
  out += std::string("\x21\xF9\x04\0\0\0\0\0", 8);  // a graphic control extension
  for (const auto& i : images)
    out += "\x2C" + le16(i[0]) + le16(i[1]) + le16(i[2]) + le16(i[3]) + std::string("\0\x02\x02\x4C\x01\0", 6);
  return out + "\x3B";
}
// A first directory of these (tag, value) entries, SHORT or LONG values.
std::string tiff(bool bigEndian, std::vector<std::pair<unsigned, unsigned>> entries, bool longs) {
  const auto n16 = bigEndian ? be16 : le16;
  const auto n32 = bigEndian ? be32 : le32;
  std::string out = (bigEndian ? std::string("MM\0*", 4) : std::string("II*\0", 4)) + n32(8) + n16(static_cast<unsigned>(entries.size()));
  for (const auto& [tag, value] : entries)
    out += n16(tag) + n16(longs ? 4 : 3) + n32(1) + (longs ? n32(value) : n16(value) + n16(0));
  return out + n32(0);
}
std::string tiff(bool bigEndian, unsigned width, unsigned height, bool longs) {
  return tiff(bigEndian, {{254, 0}, {256, width}, {257, height}}, longs);
}

TEST(PictureHeader, FormatAndSizeFromTheFirstBytesAndWhatIsRefused) {
  struct Row {
    const char* name;
    std::string bytes;
    PictureFormat format;
    unsigned width, height;
    bool plainJpeg;
    const char* refusal;  // "" when it may be decoded
  };
  const char* const kOther = "not a JPEG, PNG, BMP, GIF or TIFF picture";
  const char* const kNoSize = "its size cannot be read from its header";
  const Row rows[] = {
      {"baseline JPEG after its metadata", kSoi + kApp0 + kExif + frame(0xC0, 8, 4000, 3000, k444), PictureFormat::Jpeg, 4000, 3000, true, ""},
      {"progressive JPEG, fill bytes before a marker", kSoi + "\xFF\xFF" + kApp0 + frame(0xC2, 8, 8000, 6000, k420) + scan(3), PictureFormat::Jpeg, 8000, 6000, true, ""},
      {"grey JPEG", kSoi + frame(0xC0, 8, 640, 480, kGrey), PictureFormat::Jpeg, 640, 480, true, ""},
      {"CMYK JPEG", kSoi + kApp0 + frame(0xC0, 8, 640, 480, kCmyk), PictureFormat::Jpeg, 640, 480, false, ""},
      {"12-bit JPEG", kSoi + frame(0xC1, 12, 640, 480, k444), PictureFormat::Jpeg, 640, 480, false, ""},
      {"lossless JPEG", kSoi + frame(0xC3, 8, 640, 480, k444), PictureFormat::Jpeg, 640, 480, false, ""},
      {"JPEG of 10000 x 10000: the budget itself", kSoi + frame(0xC0, 8, 10000, 10000, k444) + scan(3), PictureFormat::Jpeg, 10000, 10000, true, ""},
      {"JPEG of 10000 x 10001", kSoi + frame(0xC0, 8, 10000, 10001, k444), PictureFormat::Jpeg, 10000, 10001, true,
       "10000 x 10001 pixels, more than the 100 MP or 20000 pixels a side a print takes"},
      {"JPEG 20001 pixels wide", kSoi + frame(0xC0, 8, 20001, 100, k444), PictureFormat::Jpeg, 20001, 100, true, "20001 x 100 pixels"},
      // What the decoder holds: every coefficient of a progressive picture, or of one whose first
      // scan lacks a component, until its last scan; a single scan is decoded a row at a time.
      {"progressive JPEG of 48 MP at 4:2:0", kSoi + frame(0xC2, 8, 8000, 6000, k420) + scan(3), PictureFormat::Jpeg, 8000, 6000, true, ""},
      {"progressive JPEG of 48 MP at 4:4:4", kSoi + frame(0xC2, 8, 8000, 6000, k444) + scan(3), PictureFormat::Jpeg, 8000, 6000, true,
       "8000 x 6000 pixels held whole while decoded (275 MiB), more than the 160 MiB a picture may take"},
      {"progressive JPEG of 12000 x 8000 at 4:4:4", kSoi + frame(0xCA, 8, 12000, 8000, k444) + scan(3), PictureFormat::Jpeg, 12000, 8000,
       false, "12000 x 8000 pixels held whole while decoded (550 MiB)"},
      {"baseline JPEG of 48 MP at 4:4:4", kSoi + frame(0xC0, 8, 8000, 6000, k444) + scan(3), PictureFormat::Jpeg, 8000, 6000, true, ""},
      {"baseline JPEG of 48 MP at 4:4:4, its first scan of one component", kSoi + frame(0xC0, 8, 8000, 6000, k444) + scan(1),
       PictureFormat::Jpeg, 8000, 6000, true, "8000 x 6000 pixels held whole while decoded (275 MiB)"},
      {"baseline JPEG of 48 MP at 4:4:4, no scan", kSoi + frame(0xC0, 8, 8000, 6000, k444), PictureFormat::Jpeg, 8000, 6000, true,
       "8000 x 6000 pixels held whole while decoded (275 MiB)"},
      {"progressive grey JPEG of 9144 x 9152: what the decoder may hold", kSoi + frame(0xC2, 8, 9144, 9152, kGrey) + scan(1),
       PictureFormat::Jpeg, 9144, 9152, true, ""},
      {"progressive grey JPEG of 9144 x 9153", kSoi + frame(0xC2, 8, 9144, 9153, kGrey) + scan(1), PictureFormat::Jpeg, 9144, 9153, true,
       "9144 x 9153 pixels held whole while decoded (160 MiB), more than the 160 MiB"},
      {"JPEG whose data starts before a frame header", kSoi + kApp0 + segment(0xDA, "\1\1\0\0\x3F\0") + frame(0xC0, 8, 9, 9, k444),
       PictureFormat::Jpeg, 0, 0, false, kNoSize},
      {"JPEG header only", kSoi + kApp0, PictureFormat::Jpeg, 0, 0, false, kNoSize},
      // Walked as libjpeg walks it: what lies between segments skipped, segments skipped by
      // their length, whatever they hold.
      {"JPEG of several APPn and COM segments", kSoi + kApp0 + kExif + segment(0xE2, "ICC_PROFILE" + std::string(3000, '\xFF')) +
       segment(0xFE, "\xFF\xC0 a comment") + segment(0xED, "Photoshop 3.0") + frame(0xC0, 8, 4000, 3000, k420) + scan(3),
       PictureFormat::Jpeg, 4000, 3000, true, ""},
      {"JPEG of a restart interval", kSoi + segment(0xDB, std::string(65, '\1')) + segment(0xDD, be16(64)) + "\xFF\xFF\xFF" +
       frame(0xC0, 8, 4000, 3000, k420) + scan(3), PictureFormat::Jpeg, 4000, 3000, true, ""},
      {"JPEG with an EXIF thumbnail", kSoi + segment(0xE1, std::string("Exif\0\0", 6) + kSoi + frame(0xC0, 8, 160, 120, k420) + scan(3) +
       "\x12\x34\xFF\xD9") + frame(0xC0, 8, 4000, 3000, k420) + scan(3), PictureFormat::Jpeg, 4000, 3000, true, ""},
      {"JPEG with stray bytes and a stuffed FF 00 between segments", kSoi + kApp0 + std::string("\0\x12\xFF\0", 4) +
       frame(0xC0, 8, 640, 480, k420) + scan(3), PictureFormat::Jpeg, 640, 480, true, ""},
      {"JPEG of 24000 x 12000 behind a segment holding a frame of 100 x 100",
       behindAFakeFrame(kSoi + frame(0xC0, 8, 24000, 12000, k420) + scan(3), 100, 100), PictureFormat::Jpeg, 24000, 12000, true,
       "24000 x 12000 pixels"},
      {"JPEG of 24000 x 12000 behind a segment holding a photo's frame",
       behindAFakeFrame(kSoi + frame(0xC2, 8, 24000, 12000, k420) + scan(1), 4000, 3000), PictureFormat::Jpeg, 24000, 12000, true,
       "24000 x 12000 pixels"},
      // What libjpeg stops at: the file is no picture.
      {"JPEG of two frame headers", kSoi + frame(0xC0, 8, 100, 100, k420) + frame(0xC0, 8, 24000, 12000, k420) + scan(3),
       PictureFormat::Jpeg, 0, 0, false, kNoSize},
      {"JPEG of a marker libjpeg does not know", kSoi + segment(0xF0, "xx") + frame(0xC0, 8, 640, 480, k420) + scan(3),
       PictureFormat::Jpeg, 0, 0, false, kNoSize},
      {"JPEG of a second start of image", kSoi + kApp0 + kSoi + frame(0xC0, 8, 640, 480, k420) + scan(3), PictureFormat::Jpeg, 0, 0,
       false, kNoSize},
      {"JPEG with a height to come later", kSoi + frame(0xC0, 8, 640, 0, k444), PictureFormat::Jpeg, 640, 0, true, kNoSize},
      {"PNG", png(1200, 1800), PictureFormat::Png, 1200, 1800, false, ""},
      {"PNG bomb", png(30000, 30000), PictureFormat::Png, 30000, 30000, false, "30000 x 30000 pixels"},
      {"PNG cut in its header", png(1200, 1800).substr(0, 20), PictureFormat::Png, 0, 0, false, kNoSize},
      {"BMP", bmp(40, 600, 400), PictureFormat::Bmp, 600, 400, false, ""},
      {"BMP stored top-down", bmp(40, 600, 0u - 400u), PictureFormat::Bmp, 600, 400, false, ""},
      {"OS/2 BMP", bmp(12, 64, 32), PictureFormat::Bmp, 64, 32, false, ""},
      {"BMP of negative width", bmp(40, 0u - 600u, 400), PictureFormat::Bmp, 0, 0, false, kNoSize},
      {"GIF", gif(320, 200, {{0, 0, 320, 200}}), PictureFormat::Gif, 320, 200, false, ""},
      {"GIF whose second frame reaches far beyond its screen", gif(100, 100, {{0, 0, 100, 100}, {10, 0, 30000, 10}}),
       PictureFormat::Gif, 30010, 100, false, "30010 x 100 pixels"},
      {"little-endian TIFF", tiff(false, 3000, 2000, false), PictureFormat::Tiff, 3000, 2000, false, ""},
      {"big-endian TIFF of long sizes", tiff(true, 50000, 20, true), PictureFormat::Tiff, 50000, 20, false, "50000 x 20 pixels"},
      {"TIFF naming its width twice", tiff(false, {{256, 30000}, {257, 10}, {256, 10}}, false), PictureFormat::Tiff, 0, 0, false, kNoSize},
      {"GIF of a million empty extensions", "GIF89a" + le16(10) + le16(10) + std::string(3, '\0') + [] {
         std::string blocks;
         for (int i = 0; i < (1 << 20) + 1; ++i) blocks += std::string("\x21\x01\0", 3);
         return blocks + "\x2C" + le16(0) + le16(0) + le16(30000) + le16(30000) + std::string("\0\x02\0\x3B", 4);
       }(), PictureFormat::Gif, 0, 0, false, kNoSize},
      {"SVG", "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"32000\" height=\"32000\"/>", PictureFormat::Other, 0, 0, false, kOther},
      {"XPM", "/* XPM */\nstatic char *x[] = {\"1 1 1 1\", \"a c #FF0000\", \"a\"};\n", PictureFormat::Other, 0, 0, false, kOther},
      {"ICO", std::string("\0\0\1\0\1\0", 6) + std::string(40, '\0'), PictureFormat::Other, 0, 0, false, kOther},
      {"one byte", "\xFF", PictureFormat::Other, 0, 0, false, kOther},
      {"empty", "", PictureFormat::Other, 0, 0, false, kOther},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(std::fwrite(row.bytes.data(), 1, row.bytes.size(), file), row.bytes.size());
    const PictureHeader header = readPictureHeader(file);
    std::fclose(file);
    EXPECT_EQ(header.format, row.format);
    EXPECT_EQ(header.width, row.width);
    EXPECT_EQ(header.height, row.height);
    EXPECT_EQ(header.plainJpeg, row.plainJpeg);
    const std::string refusal = pictureRefusal(header);
    EXPECT_EQ(refusal.rfind(row.refusal, 0), 0u) << refusal;
    EXPECT_EQ(refusal.empty(), *row.refusal == '\0') << refusal;
  }
}

// The pixels worth decoding: the drawn size at the printer's resolution, never more than the
// picture has, at least one.
TEST(PictureHeader, PixelsToDecode) {
  PictureHeader photo;
  photo.width = 8000, photo.height = 6000;
  const std::tuple<PictureSize, double, double, unsigned, unsigned> rows[] = {
      {{370, 570}, 300, 300, 1110, 1710},  // 4 x 6 postcard at 300 dpi
      {{370, 570}, 600, 600, 2220, 3420},
      {{370, 570}, 1440, 720, 5328, 4104},
      {{370, 570}, 2400, 2400, 8000, 6000},  // never more than the picture
      {{371, 1}, 300, 300, 1113, 3},         // a part of a pixel is a pixel
      {{0, -5}, 300, 300, 3, 3},             // a size that draws nothing asks for next to nothing
  };
  for (const auto& [size, dpiX, dpiY, width, height] : rows) {
    const PixelSize pixels = pixelsToDecode(photo, size, dpiX, dpiY);
    EXPECT_EQ(pixels.width, width) << size.width << " at " << dpiX;
    EXPECT_EQ(pixels.height, height) << size.height << " at " << dpiY;
  }
}

// Only a regular file is a picture: a FIFO would hold the print run until someone wrote to it,
// a device (Windows) would be read for ever.
TEST(PictureHeader, OnlyARegularFileIsOpened) {
  PictureHeader header;
#ifdef _WIN32
  for (const char* device : {"NUL", "CON"}) EXPECT_EQ(openPicture(device, header), nullptr) << device;
#else
  TempDir dir;
  ASSERT_EQ(::mkfifo(dir.file("fifo.jpg").c_str(), 0600), 0);
  EXPECT_EQ(openPicture(dir.file("fifo.jpg"), header), nullptr);
  EXPECT_EQ(openPicture(dir.path(), header), nullptr);
  EXPECT_EQ(openPicture("/dev/zero", header), nullptr);
#endif
}

}  // namespace
}  // namespace kps
