// Commands for tests: their status, their output, test pictures, and what a printed page shows.
#pragma once

#include <cstdio>
#include <algorithm>
#include <cstdlib>
#include <regex>
#include <string>

namespace kps {

inline int sh(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()); }

inline std::string output(const std::string& command) {
  std::string text;
  if (FILE* pipe = ::popen(command.c_str(), "r")) {
    char buffer[512];
    while (std::fgets(buffer, sizeof buffer, pipe)) text += buffer;
    ::pclose(pipe);
  }
  return text;
}

// The newest job id a CUPS scheduler gave (`prefix` names it, e.g. "CUPS_SERVER=... "); 0 for none.
inline int newestCupsJob(const std::string& prefix = "") {
  const std::string all = output(prefix + "lpstat -W all -o");
  static const std::regex id(R"(-(\d+) )");
  int last = 0;
  for (std::sregex_iterator it(all.begin(), all.end(), id), end; it != end; ++it)
    last = std::max(last, std::stoi((*it)[1].str()));
  return last;
}

// A JPEG of width x height, its left half red and its right half blue, so that placement,
// stretching and colour show in what is printed.
inline bool writeTestJpeg(const std::string& path, int width, int height) {
  const std::string half = std::to_string(width / 2) + "x" + std::to_string(height);
  return sh("convert -size " + half + " xc:red -size " + half + " xc:blue +append -quality 95 '" + path + "'") == 0;
}

// The first page of a printed document (PDF or PostScript) at 100 dpi, one pixel a hundredth
// of an inch, as PNG; the box of what is not white on it ("370x570+0+0"), and the red, green
// and blue of a pixel ("255,0,0"; 8 bits each).
inline std::string renderPage(const std::string& document, const std::string& png) {
  sh("gs -q -dSAFER -dBATCH -dNOPAUSE -dLastPage=1 -sDEVICE=png16m -r100 -o " + png + " " + document);
  return output("convert " + png + " -fuzz 10% -trim -format '%wx%h%X%Y' info:");
}
inline std::string pixel(const std::string& png, int x, int y) {
  return output("convert " + png + "'[1x1+" + std::to_string(x) + "+" + std::to_string(y) +
                "]' -depth 8 -format '%[fx:int(255*r)],%[fx:int(255*g)],%[fx:int(255*b)]' info:");
}

// The peak signal-to-noise ratio of two pictures of one size, in dB (ImageMagick's compare); 0
// when they cannot be compared, 1000 when they are the same.
inline double psnr(const std::string& a, const std::string& b) {
  const std::string said = output("compare -metric PSNR '" + a + "' '" + b + "' null: 2>&1");
  if (said.rfind("inf", 0) == 0) return 1000;
  return std::atof(said.c_str());
}

// A file declaring a huge picture, as a hostile customer would send one: "png" (whole and valid,
// about 110 KB for 30000 x 30000) or "svg".
inline bool writePictureBomb(const std::string& kind, int width, int height, const std::string& path) {
  return sh("node " KPS_SOURCE_DIR "/sandbox/picture-bomb.js " + kind + " " + std::to_string(width) + " " +
            std::to_string(height) + " '" + path + "'") == 0;
}

// A real photograph (a Debian package of desktop backgrounds, installed by scripts/install-deps):
// 2560 x 1600, a ladybird on a stem among flowers.
inline const char* const kRealPhoto = "/usr/share/backgrounds/mate/nature/LadyBird.jpg";

}  // namespace kps
