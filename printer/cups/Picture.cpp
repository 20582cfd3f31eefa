#include "printer/cups/Picture.h"

#include <jpeglib.h>

#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <vector>

namespace kps {

namespace {

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

struct JpegError {
  jpeg_error_mgr manager;
  std::jmp_buf jump;
};

void onJpegError(j_common_ptr info) {
  std::longjmp(reinterpret_cast<JpegError*>(info->err)->jump, 1);
}

// Everything the decoder allocates lives outside the setjmp frame, so a longjmp out of
// libjpeg leaves nothing that needs a destructor.
CairoSurface loadJpeg(std::FILE* file) {
  jpeg_decompress_struct info;
  JpegError error;
  info.err = jpeg_std_error(&error.manager);
  error.manager.error_exit = onJpegError;
  error.manager.output_message = [](j_common_ptr) {};
  cairo_surface_t* volatile surface = nullptr;
  std::vector<unsigned char> row;
  if (setjmp(error.jump)) {
    jpeg_destroy_decompress(&info);
    if (surface) cairo_surface_destroy(surface);
    return nullptr;
  }
  jpeg_create_decompress(&info);
  jpeg_stdio_src(&info, file);
  jpeg_read_header(&info, TRUE);
  info.out_color_space = JCS_RGB;
  jpeg_start_decompress(&info);
  surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(info.output_width),
                                       static_cast<int>(info.output_height));
  if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) std::longjmp(error.jump, 1);
  row.resize(static_cast<std::size_t>(info.output_width) * 3);
  unsigned char* pixels = cairo_image_surface_get_data(surface);
  const int stride = cairo_image_surface_get_stride(surface);
  while (info.output_scanline < info.output_height) {
    JSAMPROW rows[1] = {row.data()};
    const unsigned line = info.output_scanline;
    jpeg_read_scanlines(&info, rows, 1);
    auto* out = reinterpret_cast<std::uint32_t*>(pixels + static_cast<std::size_t>(line) * stride);
    for (unsigned x = 0; x < info.output_width; ++x)
      out[x] = (static_cast<std::uint32_t>(row[3 * x]) << 16) | (row[3 * x + 1] << 8) | row[3 * x + 2];
  }
  // A truncated file decodes with a warning and grey filler: refuse it rather than print it.
  const bool truncated = info.err->num_warnings > 0;
  jpeg_finish_decompress(&info);
  jpeg_destroy_decompress(&info);
  cairo_surface_mark_dirty(surface);
  if (truncated) {
    cairo_surface_destroy(surface);
    return nullptr;
  }
  return CairoSurface(surface);
}

}  // namespace

CairoSurface loadPicture(const std::string& path) {
  std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
  if (!file) return nullptr;
  unsigned char magic[8] = {};
  const std::size_t read = std::fread(magic, 1, sizeof magic, file.get());
  if (read >= 3 && magic[0] == 0xFF && magic[1] == 0xD8 && magic[2] == 0xFF) {
    std::rewind(file.get());
    return loadJpeg(file.get());
  }
  static const unsigned char png[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  if (read == 8 && std::memcmp(magic, png, 8) == 0) {
    file.reset();
    CairoSurface surface(cairo_image_surface_create_from_png(path.c_str()));
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) return nullptr;
    return surface;
  }
  return nullptr;
}

}  // namespace kps
