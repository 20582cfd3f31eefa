// Picture files as the CUPS layer decodes them: what GDI+ prints must print here too, at no more
// pixels than the page needs; what is not a whole picture, not a format the service prints, or
// beyond the budget must not, and must never end the process.
#include "pictures/Picture.h"
#include "printer/cups/Page.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <tuple>

#include "tests/support/ChildProcess.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/Shell.h"
#include "tests/support/TempDir.h"
#include "tests/pictures/JpegBytes.h"

namespace kps {
namespace {

constexpr PixelSize kWhole{100000, 100000};

std::optional<Picture> load(const std::string& path, const PixelSize& most = kWhole) {
  PictureHeader header;
  const FilePtr file = openPicture(path, header);
  if (!file) return std::nullopt;
  return decodePicture(file.get(), header, most, path);
}

std::uint32_t at(const Picture& picture, int x, int y) {
  const unsigned char* data = cairo_image_surface_get_data(picture.surface.get());
  return reinterpret_cast<const std::uint32_t*>(data + y * cairo_image_surface_get_stride(picture.surface.get()))[x] & 0xFFFFFF;
}
bool near(std::uint32_t a, std::uint32_t b) {
  for (int shift : {0, 8, 16})
    if (std::abs(int((a >> shift) & 0xFF) - int((b >> shift) & 0xFF)) > 12) return false;
  return true;
}

// Each case makes p.* from good.jpg (40 x 60, red left, blue right) with a shell command run in
// its folder, and names the file to load, the colours it must show left and right, or the
// refusal its line gives.
TEST(BadInput, PictureFiles) {
  const std::string cut = "head -c $(( $(stat -c %s good.jpg) ";
  const std::string bomb = "node " KPS_SOURCE_DIR "/sandbox/picture-bomb.js ";
  const char* const kOther = "not a JPEG, PNG, BMP, GIF or TIFF picture";
  constexpr std::uint32_t kRed = 0xFF0000, kBlue = 0x0000FF;
  // Files put together from good.jpg: `crafted` and what it is named below.
  TempDir crafted;
  ASSERT_TRUE(writeTestJpeg(crafted.file("good.jpg"), 40, 60) && writeTestJpeg(crafted.file("thumb.jpg"), 16, 12));
  ASSERT_EQ(sh("convert " + crafted.file("good.jpg") + " -interlace JPEG -sampling-factor 1x1 " + crafted.file("444.jpg")), 0);
  const std::string good = crafted.read("good.jpg"), huge = withFrameSize(good, 24000, 12000);
  const auto from = [&](const char* name, const std::string& bytes) { return "cp " + crafted.write(name, bytes) + " p.jpg"; };
  const std::tuple<const char*, std::string, std::string, std::uint32_t, std::uint32_t, const char*> cases[] = {
      {"good JPEG", "true", "good.jpg", kRed, kBlue, ""},
      {"progressive JPEG", "convert good.jpg -interlace JPEG p.jpg", "p.jpg", kRed, kBlue, ""},
      {"CMYK JPEG", "convert good.jpg -colorspace CMYK p.jpg", "p.jpg", kRed, kBlue, ""},
      {"grey JPEG", "convert good.jpg -colorspace Gray p.jpg", "p.jpg", 0x363636, 0x121212, ""},
      {"PNG named .jpg", "convert good.jpg png:p.jpg", "p.jpg", kRed, kBlue, ""},
      {"PNG half transparent, on white", "convert good.jpg -alpha set -channel A -evaluate set 50% p.png", "p.png",
       0xFF7F7F, 0x7F7FFF, ""},
      {"16-bit PNG", "convert good.jpg -depth 16 p.png", "p.png", kRed, kBlue, ""},
      {"BMP", "convert good.jpg p.bmp", "p.bmp", kRed, kBlue, ""},
      {"GIF", "convert good.jpg p.gif", "p.gif", kRed, kBlue, ""},
      {"TIFF", "convert good.jpg p.tiff", "p.tiff", kRed, kBlue, ""},
      {"JPEG with stray bytes before its end marker",
       cut + "- 2 )) good.jpg > p.jpg && head -c 3 /dev/zero >> p.jpg && tail -c 2 good.jpg >> p.jpg", "p.jpg", kRed, kBlue, ""},
      {"JPEG without its end marker", cut + "- 2 )) good.jpg > p.jpg", "p.jpg", kRed, kBlue, ""},
      {"truncated JPEG", cut + "/ 2 )) good.jpg > p.jpg", "p.jpg", 0, 0, ""},
      {"progressive JPEG cut before its last scan",
       "convert good.jpg -interlace JPEG x.jpg && head -c $(( $(stat -c %s x.jpg) * 3 / 4 )) x.jpg > p.jpg", "p.jpg", 0, 0, ""},
      {"JPEG header only", "head -c 20 good.jpg > p.jpg", "p.jpg", 0, 0, "its size cannot be read from its header"},
      {"JPEG with stray bytes and a stuffed FF 00 before its first segment",
       from("stray.jpg", kSoi + std::string("\0\x12\xFF\0", 4) + good.substr(2)), "p.jpg", kRed, kBlue, ""},
      {"JPEG with an EXIF thumbnail", from("thumbnail.jpg", kSoi + segment(0xE1, "Exif" + std::string(2, '\0') + crafted.read("thumb.jpg")) +
       good.substr(2)), "p.jpg", kRed, kBlue, ""},
      {"JPEG behind a segment holding a frame of 100 x 100", from("behind.jpg", behindAFakeFrame(good, 100, 100)), "p.jpg", kRed,
       kBlue, ""},
      {"JPEG of 24000 x 12000 behind a segment holding a frame of 100 x 100",
       from("huge-behind.jpg", behindAFakeFrame(huge, 100, 100)), "p.jpg", 0, 0, "24000 x 12000 pixels, more than the 100 MP"},
      {"JPEG of 24000 x 12000 behind a segment holding a photo's frame",
       from("huge-behind-photo.jpg", behindAFakeFrame(huge, 4000, 3000)), "p.jpg", 0, 0, "24000 x 12000 pixels, more than the 100 MP"},
      {"progressive JPEG of 12000 x 8000 at 4:4:4", from("progressive-444.jpg", withFrameSize(crafted.read("444.jpg"), 12000, 8000)),
       "p.jpg", 0, 0, "12000 x 8000 pixels held whole while decoded (550 MiB), more than the 160 MiB a picture may take"},
      {"truncated PNG", "convert good.jpg x.png && head -c 40 x.png > p.png", "p.png", 0, 0, ""},
      {"PNG bomb", bomb + "png 30000 30000 p.png", "p.png", 0, 0, "30000 x 30000 pixels, more than the 100 MP"},
      {"PNG of 100 MP and one row", bomb + "png 10000 10001 p.png", "p.png", 0, 0, "10000 x 10001 pixels, more than"},
      {"SVG bomb", bomb + "svg 32000 32000 p.svg", "p.svg", 0, 0, kOther},
      {"SVG named .jpg", "echo '<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"40\" height=\"60\"/>' > p.jpg", "p.jpg", 0, 0,
       kOther},
      {"XPM", "convert good.jpg p.xpm", "p.xpm", 0, 0, kOther},
      {"TGA", "convert good.jpg p.tga", "p.tga", 0, 0, kOther},
      {"PNM", "convert good.jpg p.ppm", "p.ppm", 0, 0, kOther},
      {"ICO", "convert good.jpg p.ico", "p.ico", 0, 0, kOther},
      {"zero bytes", ": > p.jpg", "p.jpg", 0, 0, kOther},
      {"text named .jpg", "echo not a picture at all > p.jpg", "p.jpg", 0, 0, kOther},
      {"a folder", "mkdir p.jpg", "p.jpg", 0, 0, ""},
      {"missing", "true", "none.jpg", 0, 0, ""},
  };
  for (const auto& [name, make, file, left, right, refusal] : cases) {
    SCOPED_TRACE(name);
    TempDir dir;
    ASSERT_TRUE(writeTestJpeg(dir.file("good.jpg"), 40, 60));
    ASSERT_EQ(sh("cd " + dir.path() + " && (" + make + ")"), 0);
    OutputWatcher log;
    const auto picture = load(dir.file(file));
    const bool loads = left || right;
    EXPECT_EQ(picture.has_value(), loads);
    const std::string said = log.text();
    if (*refusal) {
      EXPECT_NE(said.find(std::string("] picture refused, ") + refusal), std::string::npos) << said;
    }
    EXPECT_EQ(said.find(": " + dir.file(file) + "\n") != std::string::npos, *refusal != '\0') << said;
    if (!picture || !loads) continue;
    EXPECT_EQ(cairo_image_surface_get_width(picture->surface.get()), 40);
    EXPECT_EQ(cairo_image_surface_get_height(picture->surface.get()), 60);
    EXPECT_TRUE(near(at(*picture, 0, 0), left)) << std::hex << at(*picture, 0, 0);
    EXPECT_TRUE(near(at(*picture, 39, 59), right)) << std::hex << at(*picture, 39, 59);
  }
}

// The size that counts is the one libjpeg reads: a file written over in place after its header
// was read (the same file, still open) is refused from what libjpeg reads of it, before a row
// is decoded, with the header's own line.
TEST(BadInput, AJpegChangedAfterItsHeaderIsJudgedByWhatLibjpegReads) {
  TempDir dir;
  ASSERT_TRUE(writeTestJpeg(dir.file("good.jpg"), 40, 60) && writeTestJpeg(dir.file("larger.jpg"), 80, 120));
  ASSERT_EQ(sh("convert " + dir.file("good.jpg") + " -interlace JPEG -sampling-factor 1x1 " + dir.file("444.jpg")), 0);
  const std::string good = dir.read("good.jpg");
  const std::pair<std::string, const char*> rows[] = {
      {withFrameSize(good, 24000, 12000), "24000 x 12000 pixels, more than the 100 MP or 20000 pixels a side a print takes"},
      {withFrameSize(dir.read("444.jpg"), 12000, 8000),
       "12000 x 8000 pixels held whole while decoded (550 MiB), more than the 160 MiB a picture may take"},
      {dir.read("larger.jpg"), "its decoder reads 80 x 120 pixels, more than the 40 x 60 of its header"},
  };
  for (const auto& [bytes, refusal] : rows) {
    SCOPED_TRACE(refusal);
    const std::string path = dir.write("p.jpg", good);
    PictureHeader header;
    const FilePtr file = openPicture(path, header);
    ASSERT_TRUE(file);
    std::ofstream(path, std::ios::binary | std::ios::in) << bytes;  // the same file, not a new one
    OutputWatcher log;
    EXPECT_FALSE(decodePicture(file.get(), header, kWhole, path));
    EXPECT_NE(log.text().find(std::string("] picture refused, ") + refusal + ": " + path + "\n"), std::string::npos) << log.text();
  }
}

// Scaled while it is decoded (by libjpeg in eighths, then area averaged; gdk-pixbuf's PNG area
// averaged), a real photo matches the same photo scaled by ImageMagick. A JPEG that needs no
// scaling is carried as its own file.
TEST(Picture, ScaledDecodeMatchesAReferenceOnARealPhoto) {
  TempDir dir;
  const std::string png = dir.file("photo.png");
  ASSERT_EQ(sh(std::string("convert ") + kRealPhoto + " " + png), 0) << kRealPhoto << " (scripts/install-deps)";
  const std::tuple<std::string, PixelSize, bool> cases[] = {
      {kRealPhoto, {640, 400}, false},    // a quarter, by the decoder alone
      {kRealPhoto, {700, 500}, false},    // three eighths, then averaged
      {kRealPhoto, {1110, 1710}, false},  // a 4 x 6 postcard at 300 dpi: narrower, never taller
      {kRealPhoto, {4000, 4000}, true},   // nothing to scale: the file itself
      {png, {700, 500}, false},
  };
  for (const auto& [file, most, asIs] : cases) {
    SCOPED_TRACE(file + " at " + std::to_string(most.width) + " x " + std::to_string(most.height));
    const auto picture = load(file, most);
    ASSERT_TRUE(picture);
    const int width = std::min(2560, int(most.width)), height = std::min(1600, int(most.height));
    EXPECT_EQ(cairo_image_surface_get_width(picture->surface.get()), width);
    EXPECT_EQ(cairo_image_surface_get_height(picture->surface.get()), height);
    EXPECT_EQ(picture->jpeg.empty(), !asIs);
    if (asIs) {
      std::ifstream photo(kRealPhoto, std::ios::binary);
      EXPECT_TRUE(picture->jpeg == std::string(std::istreambuf_iterator<char>(photo), {})) << "not the file itself";
    }
    ASSERT_EQ(cairo_surface_write_to_png(picture->surface.get(), dir.file("decoded.png").c_str()), CAIRO_STATUS_SUCCESS);
    const std::string size = std::to_string(width) + "x" + std::to_string(height) + "!";
    ASSERT_EQ(sh(std::string("convert ") + kRealPhoto + " -resize " + size + " " + dir.file("reference.png")), 0);
    EXPECT_GE(psnr(dir.file("decoded.png"), dir.file("reference.png")), 38.0);
  }
}

// The page carries a JPEG: the picture's own file where it fits, else its pixels encoded, a
// fraction of their size. A picture cairo cannot draw (wider than its 32767 pixels) gives no
// page at all, so no job is made: -10 without a sheet, where Windows ends the page and may
// feed a blank one.
TEST(Picture, APageCarriesAJpeg) {
  TempDir dir;
  const cups_size_t media{"na_index-4x6_4x6in", 10160, 15240, 0, 0, 0, 0};
  const auto small = load(kRealPhoto, {4000, 4000});
  const auto scaled = load(kRealPhoto, {1110, 1710});
  ASSERT_TRUE(small && scaled);
  std::int32_t code = 0;
  const std::string asIs = renderPage(*small, media, PictureSize{370, 570}, code);
  EXPECT_EQ(code, 0);
  EXPECT_NE(asIs.find(small->jpeg), std::string::npos);
  const std::string encoded = renderPage(*scaled, media, PictureSize{370, 570}, code);
  EXPECT_EQ(code, 0);
  EXPECT_NE(encoded.find("/DCTDecode"), std::string::npos);
  EXPECT_LT(encoded.size(), 1110u * 1600 * 3 / 4);

  Picture wide;
  wide.surface.reset(cairo_image_surface_create(CAIRO_FORMAT_RGB24, 40000, 60));
  EXPECT_EQ(renderPage(wide, media, PictureSize{370, 570}, code), "");
  EXPECT_EQ(code, -10);
}

// Memory that runs out while a picture is decoded fails that picture: the process goes on. A
// child process whose address space has 48 MiB to spare decodes pictures that need more (a
// 64 MP PNG, a progressive 48 MP JPEG holding all its coefficients, 138 MiB) and reports what
// it got.
TEST(BadInput, MemoryRunningOutFailsThePictureNotTheProcess) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer's shadow memory does not fit under an address-space limit";
#else
  TempDir dir;
  ASSERT_EQ(sh("cd " + dir.path() + " && convert -size 8000x8000 gradient:red-blue -write big.png -crop 8000x6000+0+0 "
               "-interlace JPEG -sampling-factor 2x2 big.jpg"), 0);
  for (const char* name : {"big.png", "big.jpg"}) {
    SCOPED_TRACE(name);
    const std::string path = dir.file(name);
    const int status = runWithSpareMemory(48 << 20, [&] { return load(path, {1110, 1710}) ? 1 : 0; });
    EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0) << "decoded although memory ran short";
    EXPECT_TRUE(load(path, {1110, 1710})) << "the picture itself is whole";
  }
#endif
}

}  // namespace
}  // namespace kps
