#include "printer/cups/Jpeg.h"

// jpeglib.h needs size_t and FILE declared first.
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <csetjmp>

#include <jerror.h>
#include <jpeglib.h>

#include <algorithm>

#include "printer/cups/AreaScaler.h"

namespace kps {

namespace {

// A progressive JPEG holds all its coefficients while it decodes: past this the decoder fails
// the picture instead of asking the system for more.
constexpr long kMostDecoderMemory = 512L << 20;

// libjpeg reports an error by a jump back to the function that set it up. The functions that
// set one up hold nothing with a destructor, so the jump skips no clean-up; the objects they
// work on belong to their callers.
struct ErrorJump {
  jpeg_error_mgr manager;
  std::jmp_buf jump;
};

[[noreturn]] void jumpBack(j_common_ptr info) { std::longjmp(reinterpret_cast<ErrorJump*>(info->err)->jump, 1); }

// Warnings are not printed; data that ends before the last row is an error, as grey would
// otherwise be printed where the rest of the picture was.
void onMessage(j_common_ptr info, int level) {
  if (level < 0 && info->err->msg_code == JWRN_JPEG_EOF) jumpBack(info);
}

struct Decompressor {
  jpeg_decompress_struct info{};
  ErrorJump error{};
  Decompressor() {
    info.err = jpeg_std_error(&error.manager);
    error.manager.error_exit = jumpBack;
    error.manager.emit_message = onMessage;
  }
  ~Decompressor() { jpeg_destroy_decompress(&info); }
  Decompressor(const Decompressor&) = delete;
  Decompressor& operator=(const Decompressor&) = delete;
};

bool start(Decompressor& d, std::FILE* file, const PixelSize& most) {
  if (setjmp(d.error.jump)) return false;
  jpeg_create_decompress(&d.info);
  d.info.mem->max_memory_to_use = kMostDecoderMemory;
  jpeg_stdio_src(&d.info, file);
  jpeg_read_header(&d.info, TRUE);
  const bool cmyk = d.info.jpeg_color_space == JCS_CMYK || d.info.jpeg_color_space == JCS_YCCK;
  d.info.out_color_space = cmyk ? JCS_CMYK : JCS_RGB;
  d.info.scale_denom = 8;
  for (d.info.scale_num = 1; d.info.scale_num < 8; ++d.info.scale_num) {
    jpeg_calc_output_dimensions(&d.info);
    if (d.info.output_width >= most.width && d.info.output_height >= most.height) break;
  }
  jpeg_start_decompress(&d.info);
  return true;
}

// CMYK as Adobe's programs write it (inverted, and marked so) or as the standard says.
void cmykToRgb(const JSAMPLE* in, JSAMPLE* out, JDIMENSION width, bool inverted) {
  for (JDIMENSION x = 0; x < width; ++x, in += 4, out += 3) {
    const unsigned c = in[0], m = in[1], y = in[2], k = in[3];
    if (inverted) {
      out[0] = static_cast<JSAMPLE>(c * k / 255), out[1] = static_cast<JSAMPLE>(m * k / 255);
      out[2] = static_cast<JSAMPLE>(y * k / 255);
    } else {
      out[0] = static_cast<JSAMPLE>((255 - c) * (255 - k) / 255);
      out[1] = static_cast<JSAMPLE>((255 - m) * (255 - k) / 255);
      out[2] = static_cast<JSAMPLE>((255 - y) * (255 - k) / 255);
    }
  }
}

bool readRows(Decompressor& d, AreaScaler& scaler) {
  if (setjmp(d.error.jump)) return false;
  auto* common = reinterpret_cast<j_common_ptr>(&d.info);
  const JDIMENSION width = d.info.output_width;
  const bool cmyk = d.info.out_color_space == JCS_CMYK;
  JSAMPARRAY row = (*d.info.mem->alloc_sarray)(common, JPOOL_IMAGE, width * d.info.output_components, 1);
  JSAMPARRAY rgb = cmyk ? (*d.info.mem->alloc_sarray)(common, JPOOL_IMAGE, width * 3, 1) : row;
  while (d.info.output_scanline < d.info.output_height) {
    if (jpeg_read_scanlines(&d.info, row, 1) != 1) return false;
    if (cmyk) cmykToRgb(row[0], rgb[0], width, d.info.saw_Adobe_marker);
    scaler.addRow(rgb[0]);
  }
  // Every row is in: what follows the picture's data (its end marker, or bytes a camera left)
  // is not read.
  return true;
}

struct Compressor {
  jpeg_compress_struct info{};
  ErrorJump error{};
  unsigned char* buffer = nullptr;  // libjpeg's, grown as it writes
  unsigned long size = 0;
  Compressor() {
    info.err = jpeg_std_error(&error.manager);
    error.manager.error_exit = jumpBack;
    error.manager.emit_message = [](j_common_ptr, int) {};
  }
  ~Compressor() {
    jpeg_destroy_compress(&info);
    std::free(buffer);
  }
  Compressor(const Compressor&) = delete;
  Compressor& operator=(const Compressor&) = delete;
};

bool compress(Compressor& c, cairo_surface_t* surface, int quality) {
  if (setjmp(c.error.jump)) return false;
  jpeg_create_compress(&c.info);
  jpeg_mem_dest(&c.info, &c.buffer, &c.size);
  c.info.image_width = static_cast<JDIMENSION>(cairo_image_surface_get_width(surface));
  c.info.image_height = static_cast<JDIMENSION>(cairo_image_surface_get_height(surface));
  c.info.input_components = 4;
  // cairo's RGB24 is a native-endian 0x00RRGGBB word a pixel.
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  c.info.in_color_space = JCS_EXT_BGRX;
#else
  c.info.in_color_space = JCS_EXT_XRGB;
#endif
  jpeg_set_defaults(&c.info);
  jpeg_set_quality(&c.info, quality, TRUE);
  jpeg_start_compress(&c.info, TRUE);
  unsigned char* data = cairo_image_surface_get_data(surface);
  const int stride = cairo_image_surface_get_stride(surface);
  while (c.info.next_scanline < c.info.image_height) {
    JSAMPROW row = data + static_cast<std::size_t>(c.info.next_scanline) * stride;
    jpeg_write_scanlines(&c.info, &row, 1);
  }
  jpeg_finish_compress(&c.info);
  return true;
}

}  // namespace

CairoSurface decodeJpeg(std::FILE* file, const PixelSize& most) {
  Decompressor d;
  if (!start(d, file, most)) return nullptr;
  AreaScaler scaler(d.info.output_width, d.info.output_height, std::min(most.width, d.info.output_width),
                    std::min(most.height, d.info.output_height));
  if (cairo_surface_status(scaler.surface()) != CAIRO_STATUS_SUCCESS || !readRows(d, scaler) || !scaler.done())
    return nullptr;
  return scaler.take();
}

std::string encodeJpeg(cairo_surface_t* surface, int quality) {
  Compressor c;
  if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS ||
      cairo_image_surface_get_format(surface) != CAIRO_FORMAT_RGB24 || !compress(c, surface, quality))
    return "";
  return std::string(reinterpret_cast<const char*>(c.buffer), c.size);
}

}  // namespace kps
