#include "pictures/Jpeg.h"

#include <algorithm>

#include "pictures/AreaScaler.h"
#include "pictures/JpegError.h"
#include "pictures/LibjpegLayout.h"

namespace kps {

namespace {

// Warnings are not printed. Data that ends before the picture does is an error, as grey would
// otherwise be printed where the rest was: a scan cut short, or a progressive file ending
// before its last scan. A baseline file that lacks only its end marker is whole.
void onMessage(j_common_ptr info, int level) {
  if (level >= 0) return;
  const int code = info->err->msg_code;
  const bool progressive = info->is_decompressor && reinterpret_cast<j_decompress_ptr>(info)->progressive_mode;
  if (code == JWRN_HIT_MARKER || (code == JWRN_JPEG_EOF && progressive)) jpegJumpBack(info);
}

struct Decompressor {
  jpeg_decompress_struct info{};
  JpegErrorJump error{};
  Decompressor() {
    info.err = jpeg_std_error(&error.manager);
    error.manager.error_exit = jpegJumpBack;
    error.manager.emit_message = onMessage;
  }
  ~Decompressor() { jpeg_destroy_decompress(&info); }
  Decompressor(const Decompressor&) = delete;
  Decompressor& operator=(const Decompressor&) = delete;
};

// libjpeg's reading of the picture, as the header reader gives it.
PictureHeader headerOf(const jpeg_decompress_struct& info) {
  PictureHeader read;
  read.format = PictureFormat::Jpeg;
  read.width = info.image_width, read.height = info.image_height;
  read.jpeg = layoutOf(info);
  return read;
}

// Judged as the header was: the header may have been read from other bytes than these (the
// file written over in place since).
std::string refusalOf(const PictureHeader& read, const PictureHeader& header) {
  const std::string refusal = pictureRefusal(read);
  return refusal.empty() ? decodedSizeRefusal(header, read.width, read.height) : refusal;
}

// False when the picture cannot be decoded; `refusal` says why when it may not be.
bool start(Decompressor& d, std::FILE* file, const PictureHeader& header, const PixelSize& most, std::string& refusal) {
  if (setjmp(d.error.jump)) return false;
  jpeg_create_decompress(&d.info);
  jpeg_stdio_src(&d.info, file);
  jpeg_read_header(&d.info, TRUE);
  // Checked here, before jpeg_start_decompress, which reads every scan of a progressive file.
  const PictureHeader read = headerOf(d.info);
  refusal = refusalOf(read, header);
  if (!refusal.empty()) return false;
  // Its whole-picture buffers held to what was counted: asked for more, it fails the picture.
  d.info.mem->max_memory_to_use = static_cast<long>(jpegDecoderBytes(read.width, read.height, read.jpeg));
  const bool cmyk = d.info.jpeg_color_space == JCS_CMYK || d.info.jpeg_color_space == JCS_YCCK;
  d.info.out_color_space = cmyk ? JCS_CMYK : JCS_RGB;
  d.info.scale_denom = 8;
  for (d.info.scale_num = 1; d.info.scale_num < 8; ++d.info.scale_num) {
    jpeg_calc_output_dimensions(&d.info);
    if (d.info.output_width >= most.width && d.info.output_height >= most.height) break;
  }
  jpeg_start_decompress(&d.info);
  refusal = decodedSizeRefusal(header, d.info.output_width, d.info.output_height);
  return refusal.empty();
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

}  // namespace

CairoSurface decodeJpeg(std::FILE* file, const PictureHeader& header, const PixelSize& most, std::string& refusal) {
  Decompressor d;
  if (!start(d, file, header, most, refusal)) return nullptr;
  AreaScaler scaler(d.info.output_width, d.info.output_height, std::min(most.width, d.info.output_width),
                    std::min(most.height, d.info.output_height));
  if (cairo_surface_status(scaler.surface()) != CAIRO_STATUS_SUCCESS || !readRows(d, scaler) || !scaler.done())
    return nullptr;
  return scaler.take();
}

}  // namespace kps
