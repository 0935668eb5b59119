// Makes of a clean page what a scanner makes of its paper: turned a little, unevenly lit, folded once,
// worn, with dust and a dark bed around. The same page gives the same scan.
//
//   make_scan PAGE OUT.bmp
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "scene.h"
#include "tarnquill.h"

namespace {

constexpr int kWidth = 1740, kHeight = 2420;  // of the bed, at 200 dots per inch
constexpr double kDotsPerInch = 200, kTurn = 2.1 * 3.14159265358979 / 180;
constexpr int kSpecks = 650, kHairs = 9;

using Colour = std::array<double, 3>;  // blue, green, red, 0 to 255

struct Page {
  int width = 0, height = 0;
  std::vector<std::uint8_t> pixels;  // blue, green, red; rows from the top, not padded

  bool load(const char* name) {
    const std::int32_t image = IMG_decompress_bitmap(name);
    if (image < 0 || IMG_promote_24(image) < 0) return false;
    std::int32_t bits = 0;
    IMG_bitmap_info(image, &width, &height, &bits);
    // A pixel of the scan is the mean of what the lens sees.
    width = width * 2 / 3, height = height * 2 / 3;
    if (IMG_resize_bitmap(image, width, height, 1) < 0) return false;
    std::vector<std::uint8_t> row((static_cast<std::size_t>(width) * 24 + 31) / 32 * 4);
    for (std::int32_t y = 0; y < height; ++y) {
      IMGLOW_get_raster(image, row.data(), y, 0);
      pixels.insert(pixels.end(), row.begin(), row.begin() + std::ptrdiff_t{3} * width);
    }
    return IMG_delete_bitmap(image) == 0;
  }

  // Between four pixels; false beside the page.
  bool at(double x, double y, Colour& colour) const {
    if (x < 0 || y < 0 || x >= width - 1 || y >= height - 1) return false;
    const int left = static_cast<int>(x), top = static_cast<int>(y);
    const double right = x - left, low = y - top;
    const std::uint8_t* const p = &pixels[3 * (static_cast<std::size_t>(top) * width + left)];
    const std::uint8_t* const q = p + std::ptrdiff_t{3} * width;
    for (int i = 0; i < 3; ++i) {
      colour[i] = (p[i] * (1 - right) + p[i + 3] * right) * (1 - low) +
                  (q[i] * (1 - right) + q[i + 3] * right) * low;
    }
    return true;
  }
};

double smooth_noise(double x, double y) {
  const double left = std::floor(x), top = std::floor(y);
  const auto ease = [](double t) { return t * t * (3 - 2 * t); };
  const double right = ease(x - left), low = ease(y - top);
  const auto corner = [&](int dx, int dy) {
    return scene::noise(static_cast<int>(left) + dx, static_cast<int>(top) + dy);
  };
  return (corner(0, 0) * (1 - right) + corner(1, 0) * right) * (1 - low) +
         (corner(0, 1) * (1 - right) + corner(1, 1) * right) * low;
}

// What the paper itself looks like, 1 where it is clean.
double wear(const Page& page, double x, double y) {
  const double stains = 0.05 * smooth_noise(x / 260, y / 260) + 0.03 * smooth_noise(x / 60, y / 60);
  double light = 1.01 - stains - 0.012 * scene::noise(static_cast<int>(x), static_cast<int>(y));
  const double edge = std::min({x, y, page.width - x, page.height - y});
  light -= 0.10 * std::exp(-edge / 26);  // browned and thumbed
  for (const double fold : {page.height / 3.0, page.height * 2 / 3.0}) {
    const double distance = y - fold - 3 * smooth_noise(x / 90, fold);
    light += 0.045 * std::exp(-distance * distance / 18) * (distance < 0 ? 1 : -1.6);
    light -= 0.02 * std::exp(-std::abs(distance) / 60);
  }
  // The lid did not close: light falls off to the right and the bottom.
  const double fall = std::max(0.0, (x / page.width + 0.6 * y / page.height) / 1.6 - 0.45);
  return light - 0.42 * fall * fall;
}

class Scan {
 public:
  explicit Scan(const Page& page) : pixels_(std::size_t{kWidth} * kHeight) {
    const double cosine = std::cos(kTurn), sine = std::sin(kTurn);
    const double left = (kWidth - page.width) / 2.0 + 6, top = (kHeight - page.height) / 2.0 - 8;
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        const double dx = x - kWidth / 2.0, dy = y - kHeight / 2.0;
        const double px = dx * cosine + dy * sine + kWidth / 2.0 - left;
        const double py = dy * cosine - dx * sine + kHeight / 2.0 - top;
        at(x, y) = page_or_bed(page, px, py, scene::noise(x + 31, y + 17) - 0.5);
      }
    }
    dirt();
  }

  bool save(const char* name) const {
    std::FILE* const file = std::fopen(name, "wb");
    if (file == nullptr) return false;
    constexpr std::uint32_t kRow = (kWidth * 3 + 3) / 4 * 4, kSize = kRow * kHeight;
    constexpr auto kMetre = static_cast<std::uint32_t>(kDotsPerInch / 0.0254 + 0.5);
    const std::array<std::uint32_t, 13> fields = {
        54 + kSize, 0, 54, 40, kWidth, kHeight, 1 | 24 << 16, 0, kSize, kMetre, kMetre, 0, 0};
    bool good = std::fwrite("BM", 1, 2, file) == 2 && std::fwrite(fields.data(), 52, 1, file) == 1;
    std::vector<std::uint8_t> row(kRow);
    for (int y = kHeight - 1; y >= 0; --y) {
      for (int x = 0; x < kWidth; ++x) {
        for (int i = 0; i < 3; ++i) {
          const double value = pixels_[std::size_t{kWidth} * y + x][i];
          row[3 * static_cast<std::size_t>(x) + i] =
              static_cast<std::uint8_t>(std::clamp(value, 0.0, 255.0));
        }
      }
      good = std::fwrite(row.data(), kRow, 1, file) == 1 && good;
    }
    return std::fclose(file) == 0 && good;
  }

 private:
  Colour& at(int x, int y) { return pixels_[std::size_t{kWidth} * y + x]; }

  static Colour page_or_bed(const Page& page, double x, double y, double grain) {
    Colour ink{};
    if (!page.at(x, y, ink)) {
      // The bed, and on it the shadow of the sheet.
      const double beside = std::max({-x, -y, x - page.width, y - page.height});
      const double bed = 74 - 34 * std::exp(-beside / 9) + 7 * grain;
      return {bed, bed, bed - 2};
    }
    constexpr Colour kPaper = {212, 230, 238};
    const double light = wear(page, x, y);
    Colour seen{};
    for (int i = 0; i < 3; ++i) {
      const double share = ink[i] / 255;  // ink never is quite black, nor quite even
      const double printed =
          30 + (kPaper[i] - 30) * share + 16 * (1 - share) * smooth_noise(x / 3, y / 3);
      seen[i] = printed * light + 9 * grain;
    }
    return seen;
  }

  // Specks, and hairs on the glass.
  void dirt() {
    int number = 0;
    const auto chosen = [&number](double most) {
      ++number;
      return scene::noise(4099 + 7 * number, 97 * number) * most;
    };
    const auto spot = [&](double x, double y, double radius, double dark) {
      for (int py = static_cast<int>(y - radius); py <= y + radius; ++py) {
        for (int px = static_cast<int>(x - radius); px <= x + radius; ++px) {
          if (px < 0 || py < 0 || px >= kWidth || py >= kHeight) continue;
          if (std::hypot(px - x, py - y) > radius) continue;
          for (double& value : at(px, py)) value *= dark;
        }
      }
    };
    for (int i = 0; i < kSpecks; ++i) {
      const double x = chosen(kWidth), y = chosen(kHeight), size = chosen(1);
      spot(x, y, 0.6 + 1.3 * size * size * size, 0.25 + chosen(0.3));
    }
    for (int i = 0; i < kHairs; ++i) {
      double x = chosen(kWidth), y = chosen(kHeight), heading = chosen(6.28);
      const double bend = chosen(0.06) - 0.03;
      for (int step = 0; step < 90; ++step, heading += bend) {
        x += std::cos(heading), y += std::sin(heading);
        spot(x, y, 0.8, 0.8);
      }
    }
  }

  std::vector<Colour> pixels_;
};

}  // namespace

int main(int count, char** words) {
  Page page;
  if (count != 3 || !page.load(words[1]) || !Scan(page).save(words[2])) {
    std::fprintf(stderr, "usage: make_scan PAGE OUT.bmp: the page is read, the scan written\n");
    return 1;
  }
  return 0;
}
