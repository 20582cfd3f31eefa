#include "pictures/Jpeg.h"

#include <cstdlib>

#include "pictures/JpegError.h"

namespace kps {

namespace {

struct Compressor {
  jpeg_compress_struct info{};
  JpegErrorJump error{};
  unsigned char* buffer = nullptr;  // libjpeg's, grown as it writes
  unsigned long size = 0;
  Compressor() {
    info.err = jpeg_std_error(&error.manager);
    error.manager.error_exit = jpegJumpBack;
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

std::string encodeJpeg(cairo_surface_t* surface, int quality) {
  Compressor c;
  if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS ||
      cairo_image_surface_get_format(surface) != CAIRO_FORMAT_RGB24 || !compress(c, surface, quality))
    return "";
  return std::string(reinterpret_cast<const char*>(c.buffer), c.size);
}

}  // namespace kps
