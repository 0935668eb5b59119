// tarnquill sheet: every operation on one picture, side by side, each labelled by its call.
#include <algorithm>
#include <array>
#include <cstring>

#include "command.h"
#include "dib_header.h"
#include "errors.h"
#include "input.h"
#include "letters.h"
#include "output.h"

namespace tool {
namespace {

constexpr int kTileWidth = 280;
constexpr int kTileHeight = 210;
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

class Sheet {
 public:
  Sheet(int width, int height)
      : width_(width), height_(height), pixels_(static_cast<std::size_t>(width) * height) {
    std::fill(pixels_.begin(), pixels_.end(), Pixel{236, 236, 236});
  }

  // The pixels as they are; tiles show dots, so nothing is scaled here.
  void draw(std::int32_t image, int left, int top) {
    std::int32_t width = 0, height = 0, bits = 0;
    IMG_bitmap_info(image, &width, &height, &bits);
    std::array<std::uint8_t, 1024> palette{};
    IMG_get_bitmap_palette(image, palette.data());
    std::vector<std::uint8_t> row(static_cast<std::size_t>(row_bytes(width, bits)));
    for (std::int32_t y = 0; y < std::min(height, kTileHeight); ++y) {
      IMGLOW_get_raster(image, row.data(), y, 0);
      for (std::int32_t x = 0; x < std::min(width, kTileWidth); ++x) {
        const std::uint8_t* colour = &row[static_cast<std::size_t>(x) * bits / 8];
        if (bits <= 8) {
          const int shift = 8 - bits - x * bits % 8;
          colour = &palette[4 * (*colour >> shift & ((1 << bits) - 1))];
        }
        at(left + x, top + y) = {colour[0], colour[1], colour[2]};
      }
    }
  }

  void caption(const char* text, int left, int top) {
    letters::draw(text, [&](int x, int y) {
      if (left + x < width_) at(left + x, top + y) = {40, 40, 40};
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

  int width_, height_;
  std::vector<Pixel> pixels_;
};

// A tile's worth of the picture in 24 bits, which every operation takes.
std::int32_t load(const Input& input) {
  const ImageFacts facts = input.facts(0);
  const double shrink = std::max({1.0, static_cast<double>(facts.width) / kTileWidth,
                                  static_cast<double>(facts.height) / kTileHeight});
  if (shrink > 1.0) {
    IMGLOW_set_decompsize(std::max(1, static_cast<int>(facts.width / shrink)),
                          std::max(1, static_cast<int>(facts.height / shrink)));
  }
  const std::int32_t image = input.decode(0);
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
  constexpr int kStep = kTileHeight + kCaption + kGap;
  Sheet sheet(kColumns * (kTileWidth + kGap) + kGap,
              (kTileCount + kColumns - 1) / kColumns * kStep + kGap);
  for (int i = 0; i < kTileCount; ++i) {
    const std::int32_t image = load(input);
    check(input.label(), kTiles[i].run(image));
    const int left = kGap + i % kColumns * (kTileWidth + kGap);
    const int top = kGap + i / kColumns * kStep;
    sheet.draw(image, left, top);
    sheet.caption(kTiles[i].caption, left, top + kTileHeight + 4);
    IMG_delete_bitmap(image);
  }
  Output output(names[1], false);
  check(output.label(), IMG_save_bitmap_fd(sheet.image(), output.stream(), IMG_TYPE_BMP));
  output.commit();
  return kExitOk;
}

}  // namespace

const Command kSheet = {
    "sheet",
    "IN OUT.bmp",
    "Draws a contact sheet of all operations on one picture.",
    "The picture is scaled down to a tile's size first, so that every dot of a dither is seen.\n",
    kOptions,
    run_sheet,
};

}  // namespace tool
