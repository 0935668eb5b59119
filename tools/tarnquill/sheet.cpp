// tarnquill sheet: every operation on one picture, side by side, each labelled by its call.
#include <algorithm>
#include <array>
#include <string_view>

#include "command.h"
#include "dib_header.h"
#include "errors.h"
#include "input.h"
#include "letters.h"
#include "library_options.h"
#include "output.h"

namespace tool {
namespace {

constexpr int kMostWidth = 280;  // of the picture
constexpr int kMostHeight = 210;
constexpr int kCaption = 14;
constexpr int kGap = 10;
constexpr int kColumns = 4;

struct Tile {
  const char* caption;
  std::int32_t (*run)(std::int32_t image);
};

// An export as a plain function: on Windows the two are called differently.
template <auto kExport>
std::int32_t call(std::int32_t image) {
  return kExport(image);
}

// Palettes of the system's colours need the setting for one call.
std::int32_t system_colours(std::int32_t image) {
  IMGLOW_set_dithermode(2);
  const std::int32_t status = IMG_mediancut_color(image);
  IMGLOW_set_dithermode(1);
  return status;
}

std::int32_t octree(std::int32_t image, std::int32_t bits, std::int32_t colors) {
  return IMG_octree_color(image, bits, nullptr, colors);
}

// More bits of what was reduced before.
std::int32_t promoted(std::int32_t reduced, std::int32_t(IMG_CALL* promote)(std::int32_t),
                      std::int32_t image) {
  return reduced < 0 ? reduced : promote(image);
}

using Image = std::int32_t;

constexpr Tile kTiles[] = {
    {"the picture", [](Image) { return IMG_OK + 0; }},
    {"color gray", call<IMG_color_gray>},
    {"mediancut color", call<IMG_mediancut_color>},
    {"mediancut color mode 2", system_colours},
    {"octree color 8 256", [](Image i) { return octree(i, 8, 256); }},
    {"octree color 8 32", [](Image i) { return octree(i, 8, 32); }},
    {"octree color 4 16", [](Image i) { return octree(i, 4, 16); }},
    {"popularity color", call<IMG_popularity_color>},
    {"bayer mono", call<IMG_bayer_mono>},
    {"halftone mono", call<IMG_halftone_mono>},
    {"diffusion mono", call<IMG_diffusion_mono>},
    {"thresh mono 128", [](Image i) { return IMG_thresh_mono(i, 128); }},
    {"thresh mono -1", [](Image i) { return IMG_thresh_mono(i, -1); }},
    {"bayer color", call<IMG_bayer_color>},
    {"diffusion color", call<IMG_diffusion_color>},
    {"diffusion mono - promote 8",
     [](Image i) { return promoted(IMG_diffusion_mono(i), IMG_promote_8, i); }},
    {"octree color 8 32 - promote 24",
     [](Image i) { return promoted(octree(i, 8, 32), IMG_promote_24, i); }},
    {"diffusion color - promote 24",
     [](Image i) { return promoted(IMG_diffusion_color(i), IMG_promote_24, i); }},
    {"diffusion color - promote 32",
     [](Image i) { return promoted(IMG_diffusion_color(i), IMG_promote_32, i); }},
    {"bayer mono - promote 24",
     [](Image i) { return promoted(IMG_bayer_mono(i), IMG_promote_24, i); }},
};
constexpr int kTileCount = static_cast<int>(std::size(kTiles));

constexpr int kCaptionWidth = [] {
  std::size_t most = 0;
  for (const Tile& tile : kTiles) most = std::max(most, std::string_view(tile.caption).size());
  return static_cast<int>(most) * (letters::kWidth + 1);
}();

// Tiles as large as `picture` and its caption below it.
class Sheet {
 public:
  explicit Sheet(std::int32_t picture) {
    IMG_bitmap_info(picture, &picture_width_, &picture_height_, nullptr);
    tile_width_ = std::max(picture_width_, kCaptionWidth) + kGap;
    tile_height_ = picture_height_ + kCaption + kGap;
    width_ = kColumns * tile_width_ + kGap;
    height_ = (kTileCount + kColumns - 1) / kColumns * tile_height_ + kGap;
    pixels_.assign(static_cast<std::size_t>(width_) * height_, Pixel{236, 236, 236});
  }

  // The pixels as they are; tiles show dots, so nothing is scaled here. A file may change between
  // one tile and the next.
  void draw(int tile, std::int32_t image) {
    const int left = kGap + tile % kColumns * tile_width_;
    const int top = kGap + tile / kColumns * tile_height_;
    std::int32_t width = 0, height = 0, bits = 0;
    IMG_bitmap_info(image, &width, &height, &bits);
    std::array<std::uint8_t, 1024> palette{};
    IMG_get_bitmap_palette(image, palette.data());
    std::vector<std::uint8_t> row(static_cast<std::size_t>(row_bytes(width, bits)));
    for (std::int32_t y = 0; y < std::min(height, picture_height_); ++y) {
      IMGLOW_get_raster(image, row.data(), y, 0);
      for (std::int32_t x = 0; x < std::min(width, picture_width_); ++x) {
        const std::uint8_t* colour = &row[static_cast<std::size_t>(x) * bits / 8];
        if (bits <= 8) {
          const int shift = 8 - bits - x * bits % 8;
          colour = &palette[4 * (*colour >> shift & ((1 << bits) - 1))];
        }
        at(left + x, top + y) = {colour[0], colour[1], colour[2]};
      }
    }
    letters::draw(kTiles[tile].caption, [&](int x, int y) {
      at(left + x, top + picture_height_ + 4 + y) = {40, 40, 40};
    });
  }

  std::int32_t image() const {
    DibHeader header{};
    header.biSize = sizeof header;
    header.biWidth = width_;
    header.biHeight = height_;
    header.biPlanes = 1;
    header.biBitCount = 24;
    const std::int32_t made = check("sheet", IMG_create_handle_shell(&header));
    for (int y = 0; y < height_; ++y) {
      IMGLOW_put_raster(made, pixels_[static_cast<std::size_t>(y) * width_].data(), y, 3 * width_);
    }
    return made;
  }

 private:
  using Pixel = std::array<std::uint8_t, 3>;  // blue, green, red
  Pixel& at(int x, int y) { return pixels_[static_cast<std::size_t>(y) * width_ + x]; }

  std::int32_t picture_width_ = 0, picture_height_ = 0;
  int tile_width_ = 0, tile_height_ = 0;  // with the gap behind them
  int width_ = 0, height_ = 0;
  std::vector<Pixel> pixels_;
};

// A tile's worth of the picture in 24 bits, which every operation takes.
std::int32_t load(const Input& input) {
  const ImageFacts facts = input.facts(0);
  const double shrink = std::max({1.0, static_cast<double>(facts.width) / kMostWidth,
                                  static_cast<double>(facts.height) / kMostHeight});
  if (shrink > 1.0) {
    IMGLOW_set_decompsize(std::max(1, static_cast<int>(facts.width / shrink)),
                          std::max(1, static_cast<int>(facts.height / shrink)));
  }
  const std::int32_t image = input.decode(0);
  report_damage(image, input.label());
  std::int32_t bits = 0;
  IMG_bitmap_info(image, nullptr, nullptr, &bits);
  if (bits < 24) check(input.label(), IMG_promote_24(image));
  return image;
}

constexpr Option kOptions[] = {{"help", 'h', nullptr, "this text"}};

int run_sheet(const Arguments& arguments) {
  const std::vector<std::string>& names = arguments.operands();
  if (names.size() != 2) throw UsageError("a picture and the name of the sheet are needed");
  const Input input(names[0]);
  std::int32_t image = load(input);
  Sheet sheet(image);
  for (int i = 0; i < kTileCount; ++i) {
    if (i != 0) image = load(input);
    check(input.label(), kTiles[i].run(image));
    sheet.draw(i, image);
    IMG_delete_bitmap(image);
  }
  Output output(names[1]);
  output.save(
      [&](std::int32_t stream) { return IMG_save_bitmap_fd(sheet.image(), stream, IMG_TYPE_BMP); });
  return output.commit() ? kExitOk : kExitError;
}

}  // namespace

Command sheet_command() {
  return {
      "sheet",
      "IN OUT.bmp",
      "Draws a contact sheet of all operations on one picture.",
      "The picture is scaled down to a tile's size first, so that every dot of a dither is seen.\n",
      "photo.jpg sheet.bmp",
      {std::begin(kOptions), std::end(kOptions)},
      run_sheet,
  };
}

}  // namespace tool
