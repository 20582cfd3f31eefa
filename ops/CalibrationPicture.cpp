#include "ops/CalibrationPicture.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <vector>

#include "base/FilePath.h"

namespace kps::ops {

namespace {

// 5 x 7 glyphs, one row a byte, the leftmost pixel the highest of five bits.
struct Glyph {
  char c;
  unsigned char rows[7];
};
constexpr Glyph kGlyphs[] = {
    {'0', {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}}, {'1', {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'2', {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}}, {'3', {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E}},
    {'4', {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}}, {'5', {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E}},
    {'6', {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}}, {'7', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08}},
    {'8', {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}}, {'9', {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C}},
    {'x', {0x00, 0x00, 0x11, 0x0A, 0x04, 0x0A, 0x11}}, {'m', {0x00, 0x00, 0x1A, 0x15, 0x15, 0x11, 0x11}},
    {'-', {0x00, 0x00, 0x00, 0x1F, 0x00, 0x00, 0x00}},
};

constexpr int kPixelsPerUnit = 4;
constexpr int kMostPixels = 8000;  // a mistyped size still makes a picture of sane size

struct Canvas {
  int width, height;
  std::vector<unsigned char> rgb;
  Canvas(int w, int h) : width(w), height(h), rgb(static_cast<std::size_t>(w) * h * 3, 255) {}
  void set(int x, int y, unsigned char r, unsigned char g, unsigned char b) {
    if (x < 0 || y < 0 || x >= width || y >= height) return;
    unsigned char* p = &rgb[(static_cast<std::size_t>(y) * width + x) * 3];
    p[0] = r, p[1] = g, p[2] = b;
  }
};

void drawText(Canvas& canvas, const std::string& text) {
  const int scale = std::max(1, std::min(canvas.width / (6 * static_cast<int>(text.size()) + 2), canvas.height / 20));
  const int left = (canvas.width - 6 * scale * static_cast<int>(text.size())) / 2;
  const int top = (canvas.height - 7 * scale) / 2;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const Glyph* glyph = std::find_if(std::begin(kGlyphs), std::end(kGlyphs), [&](const Glyph& g) { return g.c == text[i]; });
    if (glyph == std::end(kGlyphs)) continue;  // a blank
    for (int row = 0; row < 7; ++row)
      for (int col = 0; col < 5; ++col)
        if (glyph->rows[row] & (0x10 >> col))
          for (int dy = 0; dy < scale; ++dy)
            for (int dx = 0; dx < scale; ++dx)
              canvas.set(left + (static_cast<int>(i) * 6 + col) * scale + dx, top + row * scale + dy, 0, 0, 0);
  }
}

void put16(std::vector<unsigned char>& out, std::uint32_t v) { out.push_back(v & 0xFF), out.push_back((v >> 8) & 0xFF); }
void put32(std::vector<unsigned char>& out, std::uint32_t v) { put16(out, v & 0xFFFF), put16(out, v >> 16); }

}  // namespace

bool writeCalibrationPicture(const std::string& path, std::int32_t width, std::int32_t height,
                             const std::string& label) {
  const auto pixels = [](std::int32_t units) {
    return static_cast<int>(std::clamp<std::int64_t>(std::int64_t{units} * kPixelsPerUnit, 8, kMostPixels));
  };
  const int w = pixels(width), h = pixels(height);
  Canvas canvas(w, h);
  const int edge = std::max(2, std::min(w, h) / 50);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      if (x < edge || y < edge || x >= w - edge || y >= h - edge) canvas.set(x, y, 0, 0, 0);
  // The arrow: a head in the corner inside the frame, its shaft along the diagonal.
  const int head = std::max(4, std::min(w, h) / 6);
  for (int y = 0; y < 2 * head; ++y)
    for (int x = 0; x < 2 * head; ++x)
      if (x + y < head || (std::abs(x - y) <= head / 8 && x + y < 4 * head))
        canvas.set(edge + x, edge + y, 220, 0, 0);
  drawText(canvas, label);

  const std::uint32_t rowBytes = (static_cast<std::uint32_t>(w) * 3 + 3) & ~3u;
  std::vector<unsigned char> file;
  file.reserve(54 + rowBytes * h);
  file.push_back('B'), file.push_back('M');
  put32(file, 54 + rowBytes * h), put32(file, 0), put32(file, 54);
  put32(file, 40), put32(file, w), put32(file, h), put16(file, 1), put16(file, 24);
  put32(file, 0), put32(file, rowBytes * h), put32(file, 3780), put32(file, 3780), put32(file, 0), put32(file, 0);
  for (int y = h - 1; y >= 0; --y) {  // bottom-up, blue first
    for (int x = 0; x < w; ++x) {
      const unsigned char* p = &canvas.rgb[(static_cast<std::size_t>(y) * w + x) * 3];
      file.push_back(p[2]), file.push_back(p[1]), file.push_back(p[0]);
    }
    file.resize(file.size() + (rowBytes - w * 3), 0);
  }
  std::ofstream out(toPath(path), std::ios::binary);
  out.write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
  return static_cast<bool>(out.flush());
}

}  // namespace kps::ops
