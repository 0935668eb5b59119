// Pixels of views against a renderer that knows no shortcut: fractions of whole numbers, pixel by
// pixel.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <tuple>

#include "core/context.h"
#include "core/numbers.h"
#include "platform/cpu.h"
#include "tests/support/digest.h"
#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"

namespace tq::test {
namespace {

struct Colour {
  std::int64_t channel[3] = {};  // blue, green, red
  bool opaque = true;
};

// What an image looks like, from the top.
struct Picture {
  std::int32_t width = 0, height = 0;
  std::vector<Colour> pixels;
  const Colour& at(std::int64_t x, std::int64_t y) const {
    return pixels[static_cast<std::size_t>(y * width + x)];
  }
};

Picture picture_of(const Image& image) {
  const ImageRecord& record = image.record();
  Picture picture{record.width, record.height, {}};
  const bool inks = record.bits == 32 && header_of_image(image).biCompression != kRgb32;
  for (const Bytes& row : rows_of_image(image)) {
    for (std::uint32_t value : unpack(row, record.width, record.bits)) {
      Colour colour;
      for (int i = 0; i < 3; ++i) {
        const std::int64_t level = value >> 8 * i & 255;
        colour.channel[inks ? 2 - i : i] =
            inks ? ((255 - level) * (255 - (value >> 24)) + 127) / 255 : level;
      }
      if (record.bits == 2) {
        colour = {};  // that nobody can show
      } else if (record.bits <= 16) {
        if (record.bits == 16) value >>= 8;
        const Rgb entry = palette_of(record)[value];
        colour = {{entry.blue, entry.green, entry.red}};
        const std::uint32_t hidden = record.transparent_colour & 255;
        colour.opaque = record.bits == 16 || !record.has_transparent || value != hidden;
      }
      picture.pixels.push_back(colour);
    }
  }
  return picture;
}

// The pixels of an axis that a shown one is made of, with weights over a common divisor.
struct Tap {
  std::int32_t pixel;
  std::int64_t weight;
};

std::vector<Tap> taps(std::int64_t d, std::int64_t r, std::int64_t v, bool linear) {
  const Settings& settings = context().settings;
  const std::int64_t nearest = (2 * d + 1) * r / (2 * v);
  const auto at = [](std::int64_t pixel) { return static_cast<std::int32_t>(pixel); };
  if (settings.alias == 0 || v == r || (v > r && !linear)) return {{at(nearest), 1}};
  if (v > r) {
    const std::int64_t place = std::clamp<std::int64_t>((2 * d + 1) * r - v, 0, 2 * v * (r - 1));
    const std::int64_t pixel = place / (2 * v), part = place % (2 * v);
    if (part == 0) return {{at(pixel), 1}};
    return {{at(pixel), 2 * v - part}, {at(pixel + 1), part}};
  }
  std::vector<Tap> found;
  std::int64_t begin = d * r, end = (d + 1) * r;
  if (settings.alias_quality == 0) {
    begin = begin / v * v;
    end = std::max(begin + v, end / v * v);
  }
  for (std::int64_t pixel = begin / v; pixel * v < end; ++pixel) {
    found.push_back({at(pixel), std::min(end, (pixel + 1) * v) - std::max(begin, pixel * v)});
  }
  return found;
}

struct Window {
  std::int32_t width, height;
  Bytes pixels;  // BGRX
  std::uint8_t* at(std::int32_t x, std::int32_t y) {
    return pixels.data() + 4 * (std::ptrdiff_t{y} * width + x);
  }
};

// `window` holds what is there before.
void render_by_definition(const Image& image, const Picture& picture, const img_view& view,
                          Window& window) {
  img_layout layout{};
  ASSERT_EQ(IMG_view_layout(image, &view, &layout), IMG_OK);
  Rect source{view.source_x, view.source_y, view.source_width, view.source_height};
  if (source.width == 0) source = image.record().crop;
  const std::int32_t angle = (view.angle + image.record().display_angle) % 360;
  const bool sideways = angle % 180 != 0;
  const std::int32_t rw = sideways ? source.height : source.width;
  const std::int32_t rh = sideways ? source.width : source.height;
  const bool linear = context().settings.alias_quality == 2 && image.record().bits != 1;
  const bool background = (view.flags & IMG_VIEW_BACKGROUND) != 0;
  for (std::int32_t y = 0; y < window.height; ++y) {
    for (std::int32_t x = 0; x < window.width; ++x) {
      std::uint8_t* const out = window.at(x, y);
      const std::int32_t dx = x - layout.x, dy = y - layout.y;
      const auto byte_of = [&](int i) { return byte(view.background >> 8 * (2 - i)); };
      if (background) {
        for (int i = 0; i < 3; ++i) out[i] = byte_of(i);
        out[3] = 255;
      }
      if (dx < 0 || dy < 0 || dx >= layout.width || dy >= layout.height) continue;
      std::int64_t sum[3] = {}, opaque = 0, all = 0;
      const std::vector<Tap> columns = taps(dx, rw, layout.width, linear);
      for (const Tap& row : taps(dy, rh, layout.height, linear)) {
        for (const Tap& column : columns) {
          std::int32_t sx = column.pixel, sy = row.pixel;
          if (angle == 90) std::tie(sx, sy) = std::pair(row.pixel, rw - 1 - column.pixel);
          if (angle == 180) std::tie(sx, sy) = std::pair(rw - 1 - sx, rh - 1 - sy);
          if (angle == 270) std::tie(sx, sy) = std::pair(rh - 1 - row.pixel, column.pixel);
          const Colour& colour = picture.at(source.x + sx, source.y + sy);
          const std::int64_t weight = row.weight * column.weight;
          all += weight;
          if (!colour.opaque) continue;
          opaque += weight;
          for (int i = 0; i < 3; ++i) sum[i] += weight * colour.channel[i];
        }
      }
      if (opaque == 0) continue;
      const std::int64_t share = (2 * 255 * opaque + all) / (2 * all);
      for (int i = 0; i < 3; ++i) {
        const std::int64_t mean = (2 * sum[i] + opaque) / (2 * opaque);
        out[i] = byte((mean * share + out[i] * (255 - share) + 127) / 255);
      }
      out[3] = 255;
    }
  }
}

struct Kind {
  const char* name;
  int bits;
  bool in_runs = false, inks = false, transparent = false;
};
constexpr Kind kKinds[] = {{"1", 1},
                           {"1, runs", 1, true},
                           {"1, runs, transparent", 1, true, false, true},
                           {"2", 2},
                           {"4", 4},
                           {"4, transparent", 4, false, false, true},
                           {"8", 8},
                           {"8, transparent", 8, false, false, true},
                           {"16", 16},
                           {"24", 24},
                           {"32", 32},
                           {"inks", 32, false, true}};

Image random_image(Random& random, const Kind& kind, std::int32_t width, std::int32_t height) {
  Rows rows;
  for (std::int32_t y = 0; y < height; ++y) {
    const bool dots = random.chance(30);  // rows that are kept as bits among lists
    rows.push_back(kind.bits == 1 ? random.bit_row(width, dots ? 60 : 5)
                                  : pack(random.pixels(width, kind.bits), kind.bits));
  }
  Image image = make_image(width, kind.bits, rows, kind.in_runs);
  if (kind.bits == 32 && !kind.inks) {
    BitmapInfoHeader header = header_of_image(image);
    header.biCompression = kRgb32;
    set_header(image.record(), header);
  }
  const bool grey = random.chance(40);
  std::vector<Rgb> palette(256);
  for (Rgb& colour : palette) {
    const Bytes bytes = random.bytes(4);
    colour = {bytes[0], bytes[grey ? 0 : 1], bytes[grey ? 0 : 2], bytes[3]};
  }
  IMGLOW_put_palette(image, palette.data());
  if (kind.transparent) IMGLOW_set_transp_color(image, random.between(0, (1 << kind.bits) - 1));
  if (random.chance(50)) IMG_set_resolution(image, 204000, 98000);
  IMG_set_display_angle(image, 90 * random.between(0, 3));
  return image;
}

img_view random_view(Random& random, const Image& image, const Window& window) {
  img_view view{};
  view.bytes = sizeof view;
  view.width = window.width;
  view.height = window.height;
  view.fit = random.between(IMG_FIT_NONE, IMG_FIT_SIZE);
  view.zoom = random.chance(50) ? random.between(10, 1000) : random.between(1000, 16000);
  view.device_dpi_x = random.between(20, 300);
  view.device_dpi_y = random.between(20, 300);
  view.angle = 90 * random.between(0, 3);
  view.scroll_x = random.between(0, 100);
  view.scroll_y = random.between(0, 100);
  if (random.chance(60)) view.flags |= IMG_VIEW_BACKGROUND;
  if (random.chance(20)) view.flags |= IMG_VIEW_TOP_LEFT;
  if (random.chance(20)) view.flags |= IMG_VIEW_SQUARE;
  view.background = 0x00345678;
  if (random.chance(40)) {
    const ImageRecord& record = image.record();
    view.source_x = random.between(0, record.width - 1);
    view.source_y = random.between(0, record.height - 1);
    view.source_width = random.between(1, record.width - view.source_x);
    view.source_height = random.between(1, record.height - view.source_y);
  }
  return view;
}

Bytes render(const Image& image, const img_view& view, Bytes before, std::int32_t band) {
  for (std::int32_t y = 0; y < view.height; y += band) {
    const std::int32_t rows = std::min(band, view.height - y);
    EXPECT_EQ(IMGLOW_render_view(image, &view, IMG_PIXELS_BGRX,
                                 before.data() + 4 * std::ptrdiff_t{view.width} * y, 4 * view.width,
                                 y, rows),
              IMG_OK);
  }
  return before;
}

using Rendering = LibraryTest;

TEST_F(Rendering, AgreesWithTheDefinition) {
  for (const Kind& kind : kKinds) {
    Random random(7);
    int reduced = 0;
    for (int i = 0; i < 200; ++i) {
      SCOPED_TRACE(testing::Message() << kind.name << " bits, view " << i);
      context().settings.alias = random.chance(85) ? 1 : 0;
      context().settings.alias_quality = random.between(0, 2);
      const std::int32_t most = random.chance(20) ? 300 : 40;
      const Image image =
          random_image(random, kind, random.between(1, most), random.between(1, 40));
      Window window{random.between(1, 24), random.between(1, 20), {}};
      const img_view view = random_view(random, image, window);
      img_layout layout{};
      ASSERT_EQ(IMG_view_layout(image, &view, &layout), IMG_OK);
      reduced += layout.zoom_x < 1000 || layout.zoom_y < 1000;
      window.pixels = random.bytes(4 * static_cast<std::size_t>(window.width * window.height));
      const Bytes before = window.pixels;
      const Bytes got = render(image, view, before, window.height);
      render_by_definition(image, picture_of(image), view, window);
      const int most_off = kind.transparent ? 2 : 1;  // share and colour are rounded by themselves
      for (std::size_t at = 0; at < got.size(); ++at) {
        ASSERT_LE(std::abs(got[at] - window.pixels[at]), most_off)
            << at / 4 << " of " << window.width;
      }
      ASSERT_EQ(render(image, view, before, 1), got);
      ASSERT_EQ(render(image, view, before, 7), got);
      if (kind.in_runs) {
        ASSERT_EQ(IMG_runs_to_dib(image), IMG_OK);
        ASSERT_EQ(render(image, view, before, window.height), got);
      }
    }
    EXPECT_GT(reduced, 60);
  }
}

TEST_F(Rendering, ScrolledIsShifted) {
  Random random(3);
  const Image image = random_image(random, {"24", 24}, 90, 70);
  img_view whole{};
  whole.bytes = sizeof whole;
  whole.fit = IMG_FIT_NONE;
  for (const std::int32_t zoom : {450, 1000, 1700}) {
    whole.zoom = zoom;
    whole.scroll_x = whole.scroll_y = 0;
    whole.width = whole.height = 1;
    img_layout layout{};
    ASSERT_EQ(IMG_view_layout(image, &whole, &layout), IMG_OK);
    whole.width = layout.width;
    whole.height = layout.height;
    const Bytes all = render(image, whole, Bytes(4 * std::size_t(layout.width * layout.height)), 9);
    img_view part = whole;
    part.width = 20;
    part.height = 10;
    part.scroll_x = 5;
    part.scroll_y = 3;
    const Bytes seen = render(image, part, Bytes(4 * 20 * 10), 10);
    for (int y = 0; y < 10; ++y) {
      const auto from = all.begin() + 4 * ((y + 3) * layout.width + 5);
      EXPECT_TRUE(std::equal(from, from + 80, seen.begin() + 80 * y)) << zoom;
    }
  }
}

TEST_F(Rendering, EveryOperationWithoutPattern) {
  const Image image = make_image(2, 8, {{0x0F, 0x33, 0, 0}});
  std::array<Rgb, 256> ramp{};
  for (int i = 0; i < 256; ++i) ramp[std::size_t(i)] = {byte(i), byte(i), byte(i), 0};
  IMGLOW_put_palette(image, ramp.data());
  IMGLOW_set_transp_color(image, 0x33);  // is ignored
  img_view view{};
  view.bytes = sizeof view;
  view.width = 2;
  view.height = 1;
  for (std::int32_t table = 0; table < 16; ++table) {
    IMGLOW_set_rop(image, (table << 4 | table) << 16 | 0x1234);
    Bytes pixels = {0x55, 0x66};
    ASSERT_EQ(IMGLOW_render_view(image, &view, IMG_PIXELS_GREY, pixels.data(), 2, 0, 1), IMG_OK);
    for (int i = 0; i < 2; ++i) {
      const int source = i == 0 ? 0x0F : 0x33, there = i == 0 ? 0x55 : 0x66;
      for (int bit = 0; bit < 8; ++bit) {
        const int place = 2 * (source >> bit & 1) + (there >> bit & 1);
        EXPECT_EQ(pixels[std::size_t(i)] >> bit & 1, table >> place & 1) << table;
      }
    }
  }
  IMGLOW_set_rop(image, 0x00F00021);  // the pattern alone
  Bytes pixels(2);
  EXPECT_EQ(IMGLOW_render_view(image, &view, IMG_PIXELS_GREY, pixels.data(), 2, 0, 1),
            IMG_UNSUPPORTED);
}

TEST_F(Rendering, FormatsAgreeAndRowsMayGoUp) {
  Random random(5);
  for (const Kind& kind : kKinds) {
    const Image image = random_image(random, kind, 33, 21);
    IMG_set_gamma(image, 60);
    img_view view{};
    view.bytes = sizeof view;
    view.width = 17;
    view.height = 11;
    view.fit = IMG_FIT_STRETCH;
    view.flags = IMG_VIEW_BACKGROUND;
    const Bytes bgrx = render(image, view, Bytes(4 * 17 * 11), 11);
    Bytes bgr(3 * 17 * 11, 1), grey(20 * 11, 2);
    ASSERT_EQ(IMGLOW_render_view(image, &view, IMG_PIXELS_BGR, &bgr[3 * 17 * 10], -3 * 17, 0, 11),
              IMG_OK);
    ASSERT_EQ(IMGLOW_render_view(image, &view, IMG_PIXELS_GREY, grey.data(), 20, 0, 11), IMG_OK);
    for (std::size_t i = 0; i < 17 * 11; ++i) {
      const std::size_t x = i % 17, y = i / 17;
      const std::uint8_t* const pixel = &bgrx[4 * i];
      EXPECT_EQ(pixel[3], 255);
      EXPECT_TRUE(std::equal(pixel, pixel + 3, &bgr[3 * (17 * (10 - y) + x)]));
      const int level = (77 * pixel[2] + 151 * pixel[1] + 28 * pixel[0] + 128) >> 8;
      EXPECT_NEAR(grey[20 * y + x], level, kind.transparent ? 1 : 0) << kind.name;
      EXPECT_EQ(grey[20 * y + 17], 2);
    }
  }
}

TEST_F(Rendering, RefusesBandsThatAreNone) {
  const Image image = make_image(2, 8, {{1, 2, 0, 0}});
  img_view view{};
  view.bytes = sizeof view;
  view.width = 4;
  view.height = 4;
  Bytes room(64);
  const auto status = [&](std::int32_t format, void* at, std::intptr_t stride, std::int32_t first,
                          std::int32_t rows) {
    return IMGLOW_render_view(image, &view, format, at, stride, first, rows);
  };
  EXPECT_EQ(status(32, room.data(), 16, 0, 4), IMG_OK);
  EXPECT_EQ(status(16, room.data(), 16, 0, 4), IMG_UNSUPPORTED);
  EXPECT_EQ(status(32, nullptr, 16, 0, 4), IMG_UNSUPPORTED);
  EXPECT_EQ(status(32, room.data(), 15, 0, 4), IMG_UNSUPPORTED);
  EXPECT_EQ(status(32, room.data(), 16, 1, 4), IMG_UNSUPPORTED);
  EXPECT_EQ(status(32, room.data(), 16, -1, 1), IMG_UNSUPPORTED);
  EXPECT_EQ(status(32, room.data(), 16, INT32_MAX, INT32_MAX), IMG_UNSUPPORTED);
  EXPECT_EQ(status(32, room.data(), 16, 0, -1), IMG_UNSUPPORTED);
}

// Also of an image whose rows are more than are weighed in one sum.
TEST_F(Rendering, EveryProcessorMakesTheSameBytes) {
  const auto digest = [] {
    Digest sum;
    Random random(11);
    for (const Kind& kind : kKinds) {
      for (const std::int32_t width : {1, 15, 16, 17, 301, 5000}) {
        const Image image = random_image(random, kind, width, 23);
        img_view view{};
        view.bytes = sizeof view;
        view.width = 13;
        view.height = 7;
        view.fit = IMG_FIT_STRETCH;
        sum.add(render(image, view, Bytes(4 * 13 * 7), 7));
      }
    }
    const Image high = random_image(random, {"8", 8}, 3, 20000);
    IMG_set_display_angle(high, 0);
    img_view view{};
    view.bytes = sizeof view;
    view.width = view.height = 1;
    view.fit = IMG_FIT_STRETCH;
    Window window{1, 1, Bytes(4)};
    const Bytes got = render(high, view, window.pixels, 1);
    render_by_definition(high, picture_of(high), view, window);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(got[i], window.pixels[i], 1);
    sum.add(got);
    return sum.value();
  };
  const std::uint64_t fastest = digest();
  platform::mask_cpu_features({});
  EXPECT_EQ(digest(), fastest);
  platform::mask_cpu_features({true, true, true, true, true});
  EXPECT_EQ(fastest, 6171506062325801604u);
}

}  // namespace
}  // namespace tq::test
