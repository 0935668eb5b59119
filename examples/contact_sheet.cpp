// Draws small copies of images side by side, with their names, and saves the sheet as a BMP file.
// Shows how to read the pixels of an image of any depth, and how to make an image of one's own.
//
//   contact_sheet [--cell WxH] [--large] OUT.bmp IN...
//
//   --cell    how large a copy is at most, 200x150 without it
//   --large   the first copy stands on the left, as high as all others together
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "letters.h"
#include "tarnquill.h"

namespace {

constexpr int kGap = 12;
constexpr int kCaption = 14;
constexpr int kColumns = 4, kColumnsBesideLarge = 2;

struct Cell {
  int left, top, width, height;  // without the caption
};

using Pixel = std::array<std::uint8_t, 3>;  // blue, green, red

// The pixels of an image, row by row, in colour.
class Reader {
 public:
  explicit Reader(std::int32_t image) : image_(image) {
    IMG_bitmap_info(image, &width_, &height_, &bits_);
    IMG_get_bitmap_palette(image, palette_.data());
    std::array<std::int32_t, IMG_HEADER_BLOCK_BYTES / 4> header = {};
    IMGLOW_get_bitmap_header(image, header.data());
    constexpr int kCompression = 4;  // of BITMAPINFOHEADER, in numbers of 32 bits
    inks_ = bits_ == 32 && header[kCompression] == 0;
    row_.resize((static_cast<std::size_t>(width_) * bits_ + 31) / 32 * 4);
  }
  int width() const { return width_; }
  int height() const { return height_; }
  int bits() const { return bits_; }

  void read(int y) { IMGLOW_get_raster(image_, row_.data(), y, 0); }
  Pixel pixel(int x) const {
    const std::uint8_t* const at = row_.data() + static_cast<std::size_t>(x) * (bits_ / 8);
    if (inks_) {  // cyan, magenta, yellow, black
      const auto light = [at](int ink) {
        return static_cast<std::uint8_t>((255 - at[ink]) * (255 - at[3]) / 255);
      };
      return {light(2), light(1), light(0)};
    }
    if (bits_ >= 24) return {at[0], at[1], at[2]};
    if (bits_ == 16) return {at[1], at[1], at[1]};
    const int shift = 8 - bits_ - x * bits_ % 8;
    const int index = row_[static_cast<std::size_t>(x) * bits_ / 8] >> shift & ((1 << bits_) - 1);
    return {palette_[4 * index], palette_[4 * index + 1], palette_[4 * index + 2]};
  }

 private:
  std::int32_t image_, width_ = 0, height_ = 0, bits_ = 0;
  bool inks_ = false;
  std::array<std::uint8_t, 1024> palette_ = {};
  std::vector<std::uint8_t> row_;
};

class Sheet {
 public:
  Sheet(int width, int height)
      : width_(width), height_(height), pixels_(static_cast<std::size_t>(width) * height) {
    std::fill(pixels_.begin(), pixels_.end(), Pixel{244, 244, 244});
  }

  // Draws the image into the cell, each pixel the mean of those that fall on it. Small images keep
  // their size.
  void draw(Reader& image, const Cell& cell) {
    const double shrink = std::max({1.0, static_cast<double>(image.width()) / cell.width,
                                    static_cast<double>(image.height()) / cell.height});
    const int width = std::max(1, static_cast<int>(image.width() / shrink));
    const int height = std::max(1, static_cast<int>(image.height() / shrink));
    const int left = cell.left + (cell.width - width) / 2;
    const int top = cell.top + (cell.height - height) / 2;
    std::vector<std::array<std::int64_t, 4>> sums(static_cast<std::size_t>(width) * height);
    for (int y = 0; y < image.height(); ++y) {
      image.read(y);
      const std::int64_t row = std::int64_t{y} * height / image.height() * width;
      for (int x = 0; x < image.width(); ++x) {
        const Pixel pixel = image.pixel(x);
        auto& sum = sums[static_cast<std::size_t>(row + std::int64_t{x} * width / image.width())];
        for (int i = 0; i < 3; ++i) sum[i] += pixel[i];
        ++sum[3];
      }
    }
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const auto& sum = sums[static_cast<std::size_t>(y) * width + x];
        for (int i = 0; i < 3; ++i) {
          at(left + x, top + y)[i] = static_cast<std::uint8_t>(sum[i] / sum[3]);
        }
      }
    }
  }

  void caption(const std::string& text, const Cell& cell) {
    const int left = cell.left + std::max(0, (cell.width - static_cast<int>(text.size()) * 6) / 2);
    const int top = cell.top + cell.height + 4;
    letters::draw(text.c_str(), [&](int x, int y) {
      if (left + x < width_) at(left + x, top + y) = {60, 60, 60};
    });
  }

  std::int32_t save(const char* name) const {
    // A BITMAPINFOHEADER: 24 bits, no palette.
    std::array<std::uint8_t, 40> header = {40};
    const auto put32 = [&](int offset, std::int32_t value) {
      std::memcpy(header.data() + offset, &value, sizeof value);
    };
    put32(4, width_);
    put32(8, height_);
    header[12] = 1;
    header[14] = 24;
    const std::int32_t image = IMG_create_handle_shell(header.data());
    if (image < 0) return image;
    std::int32_t status = IMG_OK;
    for (int y = 0; y < height_ && status >= 0; ++y) {
      status = IMGLOW_put_raster(image, pixels_[static_cast<std::size_t>(y) * width_].data(), y,
                                 3 * width_);
    }
    if (status >= 0) status = IMG_save_bitmap(image, name, IMG_TYPE_BMP);
    IMG_delete_bitmap(image);
    return status;
  }

 private:
  Pixel& at(int x, int y) { return pixels_[static_cast<std::size_t>(y) * width_ + x]; }

  int width_, height_;
  std::vector<Pixel> pixels_;
};

std::string stem(const std::string& name) {
  const std::size_t slash = name.find_last_of("/\\");
  const std::string base = slash == std::string::npos ? name : name.substr(slash + 1);
  return base.substr(0, base.rfind('.'));
}

// Where the copies stand, and how large the sheet is.
struct Layout {
  Layout(int count, int cell_width, int cell_height, bool large) {
    const int small = count - (large ? 1 : 0);
    const int columns = std::max(1, std::min(small, large ? kColumnsBesideLarge : kColumns));
    const int rows = std::max(1, (small + columns - 1) / columns);
    const int step = cell_height + kCaption + kGap;
    int left = kGap;
    if (large) {
      const int high = rows * step - kCaption - kGap;
      cells.push_back({left, kGap, high * 5 / 7, high});  // a page of paper
      left += high * 5 / 7 + kGap;
    }
    for (int i = 0; i < small; ++i) {
      cells.push_back({left + i % columns * (cell_width + kGap), kGap + i / columns * step,
                       cell_width, cell_height});
    }
    width = left + columns * (cell_width + kGap);
    height = rows * step + kGap;
  }
  std::vector<Cell> cells;
  int width, height;
};

int usage(const char* program) {
  std::fprintf(stderr, "usage: %s [--cell WxH] [--large] OUT.bmp IN...\n", program);
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  int cell_width = 200, cell_height = 150, first = 1;
  bool large = false;
  for (; first < argc && argv[first][0] == '-'; ++first) {
    const std::string option = argv[first];
    if (option == "--large") {
      large = true;
    } else if (option != "--cell" || ++first == argc ||
               std::sscanf(argv[first], "%4dx%4d", &cell_width, &cell_height) != 2 ||
               cell_width < 1 || cell_height < 1) {
      return usage(argv[0]);
    }
  }
  const int count = argc - first - 1;
  if (count < 1) return usage(argv[0]);
  const Layout layout(count, cell_width, cell_height, large);
  Sheet sheet(layout.width, layout.height);
  for (int i = 0; i < count; ++i) {
    const char* const name = argv[first + 1 + i];
    const std::int32_t image = IMG_decompress_bitmap(name);
    if (image < 0) {
      std::fprintf(stderr, "%s: status %d\n", name, static_cast<int>(image));
      return 1;
    }
    Reader reader(image);
    if (reader.bits() == 16) {
      std::fprintf(stderr, "%s: 16-bit images are not drawn\n", name);
      return 1;
    }
    sheet.draw(reader, layout.cells[i]);
    sheet.caption(stem(name), layout.cells[i]);
    IMG_delete_bitmap(image);
  }
  const char* const out = argv[first];
  const std::int32_t status = sheet.save(out);
  if (status < 0) std::fprintf(stderr, "%s: status %d\n", out, static_cast<int>(status));
  return status < 0 ? 1 : 0;
}
