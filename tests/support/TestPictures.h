// Pictures for print tests: written as real JPEG and PNG files.
#pragma once

#include <cairo.h>
#include <jpeglib.h>

#include <cstdio>
#include <string>
#include <vector>

namespace kps {

// width x height, left half red, right half blue: placement and stretching show in the output.
inline bool writeTestJpeg(const std::string& path, int width, int height) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) return false;
  jpeg_compress_struct info;
  jpeg_error_mgr error;
  info.err = jpeg_std_error(&error);
  jpeg_create_compress(&info);
  jpeg_stdio_dest(&info, file);
  info.image_width = static_cast<JDIMENSION>(width);
  info.image_height = static_cast<JDIMENSION>(height);
  info.input_components = 3;
  info.in_color_space = JCS_RGB;
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, 95, TRUE);
  jpeg_start_compress(&info, TRUE);
  std::vector<unsigned char> row(static_cast<std::size_t>(width) * 3);
  for (int x = 0; x < width; ++x) {
    const bool left = x < width / 2;
    row[3 * x] = left ? 255 : 0;
    row[3 * x + 1] = 0;
    row[3 * x + 2] = left ? 0 : 255;
  }
  while (info.next_scanline < info.image_height) {
    JSAMPROW rows[1] = {row.data()};
    jpeg_write_scanlines(&info, rows, 1);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  std::fclose(file);
  return true;
}

inline bool writeTestPng(const std::string& path, int width, int height) {
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
  cairo_t* cr = cairo_create(surface);
  cairo_set_source_rgb(cr, 0, 0.6, 0);
  cairo_paint(cr);
  cairo_destroy(cr);
  const bool ok = cairo_surface_write_to_png(surface, path.c_str()) == CAIRO_STATUS_SUCCESS;
  cairo_surface_destroy(surface);
  return ok;
}

}  // namespace kps
