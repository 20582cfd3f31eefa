// What libjpeg holds while it decodes a JPEG, as the budget counts it from the frame and first
// scan headers: counted by hand for odd sizes and the photos phones make, and held against
// libjpeg itself on files it wrote.
#include "pictures/JpegCost.h"

#include <gtest/gtest.h>

#include <string>

#include "pictures/JpegError.h"
#include "pictures/LibjpegLayout.h"
#include "pictures/PictureHeader.h"
#include "tests/support/TempDir.h"

namespace kps {
namespace {

JpegLayout layout(bool progressive, std::initializer_list<std::uint8_t> sampling, int firstScan) {
  JpegLayout out;
  out.progressive = progressive;
  out.components = static_cast<std::uint8_t>(sampling.size());
  std::copy(sampling.begin(), sampling.end(), out.sampling.begin());
  out.firstScanComponents = static_cast<std::uint8_t>(firstScan);
  return out;
}

TEST(JpegCost, CountedFromTheLayout) {
  constexpr std::uint64_t kFixed = 64 << 10;
  // 17 x 9 at 4:2:0: luma blocks 3 x 2 rounded up to its factors, 4 x 2; each chroma 2 x 1.
  // Rows: three row groups of each component, 32 x 16 and twice 16 x 8 samples.
  constexpr std::uint64_t kRows = 3 * (32 * 16 + 2 * 16 * 8), kCoefficients = (4 * 2 + 2 * 2) * 128;
  const struct {
    const char* name;
    std::uint32_t width, height;
    JpegLayout layout;
    std::uint64_t bytes;
  } rows[] = {
      {"progressive, odd sizes", 17, 9, layout(true, {0x22, 0x11, 0x11}, 3), kFixed + kRows + kCoefficients},
      {"one scan of every component: a row at a time", 17, 9, layout(false, {0x22, 0x11, 0x11}, 3), kFixed + kRows},
      {"a first scan of one component", 17, 9, layout(false, {0x22, 0x11, 0x11}, 1), kFixed + kRows + kCoefficients},
      {"no scan read", 17, 9, layout(false, {0x22, 0x11, 0x11}, 0), kFixed + kRows + kCoefficients},
      {"factors libjpeg refuses count as 1", 8, 8, layout(true, {0x00}, 1), kFixed + 3 * 64 + 128},
      // 2 bytes a sample: 3 bytes a pixel at 4:2:0, 6 at 4:4:4.
      {"progressive 48 MP phone photo", 8000, 6000, layout(true, {0x22, 0x11, 0x11}, 3),
       kFixed + 3 * (8000 * 16 + 2 * 4000 * 8) + 8000ull * 6000 * 3},
      {"progressive 12000 x 8000 at 4:4:4", 12000, 8000, layout(true, {0x11, 0x11, 0x11}, 3),
       kFixed + 3 * 3 * 12000 * 8 + 12000ull * 8000 * 6},
  };
  for (const auto& row : rows) EXPECT_EQ(jpegDecoderBytes(row.width, row.height, row.layout), row.bytes) << row.name;
}

// A JPEG written by libjpeg: `sampling` one byte a component (1 grey, 3 colour, 4 CMYK),
// progressive or not, its scans each of one component or not.
bool writeJpeg(const std::string& path, unsigned width, unsigned height, const std::string& sampling, bool progressive,
               bool scanPerComponent) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) return false;
  jpeg_compress_struct info{};
  JpegErrorJump error{};
  info.err = jpeg_std_error(&error.manager);
  error.manager.error_exit = jpegJumpBack;
  jpeg_scan_info scans[4] = {};
  if (setjmp(error.jump)) {
    jpeg_destroy_compress(&info);
    std::fclose(file);
    return false;
  }
  jpeg_create_compress(&info);
  jpeg_stdio_dest(&info, file);
  info.image_width = width, info.image_height = height;
  info.input_components = static_cast<int>(sampling.size());
  info.in_color_space = sampling.size() == 1 ? JCS_GRAYSCALE : sampling.size() == 4 ? JCS_CMYK : JCS_RGB;
  jpeg_set_defaults(&info);
  for (int i = 0; i < info.num_components; ++i)
    info.comp_info[i].h_samp_factor = sampling[i] >> 4, info.comp_info[i].v_samp_factor = sampling[i] & 15;
  if (progressive) jpeg_simple_progression(&info);
  if (scanPerComponent) {
    for (int i = 0; i < info.num_components; ++i) scans[i] = {1, {i}, 0, 63, 0, 0};
    info.scan_info = scans, info.num_scans = info.num_components;
  }
  jpeg_start_compress(&info, TRUE);
  const JDIMENSION across = width * static_cast<JDIMENSION>(sampling.size());
  JSAMPARRAY row = (*info.mem->alloc_sarray)(reinterpret_cast<j_common_ptr>(&info), JPOOL_IMAGE, across, 1);
  while (info.next_scanline < height) {
    for (JDIMENSION x = 0; x < across; ++x) row[0][x] = static_cast<JSAMPLE>(x * 7 + info.next_scanline * 3);
    jpeg_write_scanlines(&info, row, 1);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  return std::fclose(file) == 0;
}

// libjpeg's own reading of the file's header, and whether it decodes every row at scale/8 with
// its whole-picture buffers held to `cap` bytes (0: its header only).
struct Libjpeg {
  jpeg_decompress_struct info{};
  JpegErrorJump error{};
  Libjpeg() {
    info.err = jpeg_std_error(&error.manager);
    error.manager.error_exit = jpegJumpBack;
    error.manager.emit_message = [](j_common_ptr, int) {};
  }
  ~Libjpeg() { jpeg_destroy_decompress(&info); }
};
bool libjpegDecodes(Libjpeg& jpeg, std::FILE* file, long cap, unsigned scale) {
  if (setjmp(jpeg.error.jump)) return false;
  jpeg_create_decompress(&jpeg.info);
  jpeg_stdio_src(&jpeg.info, file);
  jpeg_read_header(&jpeg.info, TRUE);
  if (cap == 0) return true;
  jpeg.info.mem->max_memory_to_use = cap;
  jpeg.info.scale_num = scale, jpeg.info.scale_denom = 8;
  jpeg_start_decompress(&jpeg.info);
  JSAMPARRAY row = (*jpeg.info.mem->alloc_sarray)(reinterpret_cast<j_common_ptr>(&jpeg.info), JPOOL_IMAGE,
                                                  jpeg.info.output_width * jpeg.info.output_components, 1);
  while (jpeg.info.output_scanline < jpeg.info.output_height) jpeg_read_scanlines(&jpeg.info, row, 1);
  return jpeg_finish_decompress(&jpeg.info);
}
bool libjpegDecodes(const std::string& path, long cap, unsigned scale = 8) {
  const FilePtr file(std::fopen(path.c_str(), "rb"));
  Libjpeg jpeg;
  return file && libjpegDecodes(jpeg, file.get(), cap, scale);
}

// The header reader reads what libjpeg reads, and libjpeg decodes within the count, at full
// size and at an eighth; where it keeps every coefficient, not within 95 % of it.
TEST(JpegCost, WhatLibjpegHolds) {
  TempDir dir;
  const struct {
    const char* name;
    std::string sampling;
    bool progressive, scanPerComponent, everyCoefficient;
  } rows[] = {
      {"baseline 4:2:0", "\x22\x11\x11", false, false, false},
      {"progressive 4:2:0", "\x22\x11\x11", true, false, true},
      {"progressive 4:4:4", "\x11\x11\x11", true, false, true},
      {"progressive 4:2:2", "\x21\x11\x11", true, false, true},
      {"progressive 4:4:0", "\x12\x11\x11", true, false, true},
      {"progressive, luma 1 x 1 and chroma 2 x 2", "\x11\x22\x22", true, false, true},
      {"progressive grey", "\x11", true, false, true},
      {"progressive CMYK", "\x11\x11\x11\x11", true, false, true},
      {"sequential, a scan for each component", "\x22\x11\x11", false, true, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string path = dir.file("p.jpg");
    ASSERT_TRUE(writeJpeg(path, 1001, 777, row.sampling, row.progressive, row.scanPerComponent));
    PictureHeader header;
    const FilePtr file = openPicture(path, header);
    ASSERT_TRUE(file);
    Libjpeg jpeg;
    ASSERT_TRUE(libjpegDecodes(jpeg, file.get(), 0, 8));
    EXPECT_EQ(header.width, jpeg.info.image_width);
    EXPECT_EQ(header.height, jpeg.info.image_height);
    EXPECT_TRUE(header.jpeg == layoutOf(jpeg.info));
    const std::uint64_t count = jpegDecoderBytes(header.width, header.height, header.jpeg);
    EXPECT_TRUE(libjpegDecodes(path, static_cast<long>(count)));
    EXPECT_TRUE(libjpegDecodes(path, static_cast<long>(count), 1));
    EXPECT_EQ(libjpegDecodes(path, static_cast<long>(count * 95 / 100)), !row.everyCoefficient);
  }
}

}  // namespace
}  // namespace kps
