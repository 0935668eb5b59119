// What becomes of a decoder's rows: decode size, decode rectangle, reduction, rows that come in any
// order, twice, too short or never. Compared with pictures of plain numbers.
#include "dispatch/row_sink.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <numeric>
#include <optional>

#include "core/context.h"
#include "pixels/colours.h"
#include "tests/support/fed_sink.h"
#include "tests/support/library_test.h"

namespace tq::test {
namespace {

class RowSink : public LibraryTest {};

using Picture = std::vector<Pixels>;  // from the top

struct Colour {
  int red, green, blue;
};

struct Source {
  HeaderBlock block;
  Picture picture;
  std::int32_t width() const { return block.header.biWidth; }
  std::int32_t height() const { return block.header.biHeight; }
  int bits() const { return block.header.biBitCount; }

  Colour colour(std::uint32_t pixel) const {
    if (bits() <= 16) {
      const Rgb c = block.palette[bits() == 16 ? pixel >> 8 : pixel];
      return {c.red, c.green, c.blue};
    }
    const int low = static_cast<int>(pixel & 255), middle = static_cast<int>(pixel >> 8 & 255),
              high = static_cast<int>(pixel >> 16 & 255), top = static_cast<int>(pixel >> 24);
    if (bits() == 24 || block.header.biCompression != 0) return {high, middle, low};
    // Cyan, magenta, yellow, black.
    return {std::max(255 - low - top, 0), std::max(255 - middle - top, 0),
            std::max(255 - high - top, 0)};
  }
};

// Bayer's matrix by its rule: the bits of x and x ^ y, interleaved from the lowest; times 4, not 0.
int threshold(std::int32_t x, std::int32_t y) {
  int order = 0;
  for (int bit = 0; bit < 3; ++bit) {
    const int xb = x >> bit & 1, yb = y >> bit & 1;
    order = order * 4 + 2 * (xb ^ yb) + xb;
  }
  return std::max(4 * order, 4);
}

int lowered_bits(int setting, int source) {
  if (setting == 8 && source >= 24) return 8;
  if (setting == 4 && source >= 8) return 4;
  if (setting == 1 && source >= 4) return 1;
  return source;
}

std::uint32_t lowered(const Colour& c, int bits, std::int32_t x, std::int32_t y) {
  const bool plain = context().settings.dither_mode == 2;
  const int t = threshold(x, y);
  if (bits == 1) {
    return (30 * c.red + 59 * c.green + 11 * c.blue) / 100 > (plain ? 127 : t) ? 1 : 0;
  }
  if (bits == 4) {
    const int limit = plain ? 180 : t;
    int grey = (75 * c.green + 38 * c.red + 14 * c.blue) / 128;
    grey = grey > 40 ? grey - 40 : 0;
    const bool full = plain ? c.red > 220 || c.green > 220 || c.blue > 220 : grey > t + 40;
    return (full ? 8u : 0u) + (c.blue > limit ? 4u : 0u) + (c.green > limit ? 2u : 0u) +
           (c.red > limit ? 1u : 0u);
  }
  if (!plain) {
    return static_cast<std::uint32_t>((c.red * 7 + t) / 255 * 32 + (c.green * 7 + t) / 255 * 4 +
                                      (c.blue * 3 + t) / 255);
  }
  const auto half = [](int a, int b) { return (a / 2 - b / 2) * (a / 2 - b / 2); };
  std::uint32_t best = 0;
  int least = INT_MAX;
  for (std::uint32_t i = 0; i < 256; ++i) {
    const Rgb p = pixels::fixed_palette(2)[i];
    const int distance = half(c.red, p.red) + half(c.green, p.green) + half(c.blue, p.blue);
    if (distance < least) {
      least = distance;
      best = i;
    }
  }
  return best;
}

struct Expected {
  std::int32_t width, height;
  int bits;
  bool in_runs;
  Picture picture;
};

// The picture that results from rows delivered in this order.
Expected expected_image(const Source& source, const std::vector<std::int32_t>& order) {
  const Size size = context().settings.decomp_size;
  const Rect rect = context().settings.decomp_rect;
  Expected e{source.width(), source.height(), 0, source.bits() == 1, {}};
  e.bits = lowered_bits(context().settings.decomp_reduction, source.bits());
  const bool sized = size.width > 0 && size.height > 0;
  const bool scaled = sized && source.width() > size.width && source.height() > size.height;
  std::int32_t left = 0, top = 0;
  if (scaled) {
    e.width = size.width;
    e.height = size.height;
  } else if (!sized && (rect.x | rect.y | rect.width | rect.height) != 0) {
    if (std::int64_t{rect.width} - rect.x < source.width()) {
      e.width = rect.width;
      left = rect.x;
    }
    if (std::int64_t{rect.height} - rect.y < source.height()) {
      e.height = rect.height;
      top = rect.y;
    }
  }
  const std::uint32_t white = e.bits == 1 ? 1 : 0;
  // Rows that never come are 0, in run lists white; what the source does not have is white or 0.
  e.picture.assign(static_cast<std::size_t>(e.height),
                   Pixels(static_cast<std::size_t>(e.width), e.in_runs ? 1 : 0));
  for (std::int32_t j = std::max(source.height() - top, 0); j < e.height; ++j) {
    std::fill(e.picture[static_cast<std::size_t>(j)].begin(),
              e.picture[static_cast<std::size_t>(j)].end(), white);
  }
  std::int64_t last = -1;
  for (const std::int32_t y : order) {
    std::int64_t to = std::int64_t{y} - top;
    if (scaled) {
      to = std::int64_t{y} * e.height / source.height();
      if (to == last) continue;
      last = to;
    }
    if (to < 0 || to >= e.height) continue;
    for (std::int32_t i = 0; i < e.width; ++i) {
      const std::int64_t step = (std::int64_t{source.width()} << 16) / e.width;
      const std::int64_t x = scaled ? i * step >> 16 : std::int64_t{left} + i;
      std::uint32_t pixel = white;
      if (x < source.width()) {
        pixel = source.picture[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)];
        if (e.bits != source.bits()) {
          pixel = lowered(source.colour(pixel), e.bits, static_cast<std::int32_t>(x), y);
        }
      }
      e.picture[static_cast<std::size_t>(to)][static_cast<std::size_t>(i)] = pixel;
    }
  }
  return e;
}

Picture picture_of(std::int32_t image) {
  const BitmapInfoHeader header = header_of_image(image);
  Picture picture;
  for (const Bytes& row : rows_of_image(image)) {
    picture.push_back(unpack(row, header.biWidth, header.biBitCount));
  }
  return picture;
}

Source random_source(Random& random, std::int32_t width, std::int32_t height, int bits) {
  Source source{dib_header(width, height, bits), {}};
  for (Rgb& entry : source.block.palette) {
    const Bytes b = random.bytes(4);
    entry = {b[0], b[1], b[2], b[3]};
  }
  source.block.header.biCompression = bits == 32 && random.chance(50) ? 200 : 0;
  source.block.header.biXPelsPerMeter = random.between(0, 600);
  source.block.header.biClrUsed = random.pick<std::uint32_t>({0, 0x1009});
  for (std::int32_t y = 0; y < height; ++y) {
    Pixels row = random.pixels(width, bits);
    // Few colours and long runs as well as noise.
    if (random.chance(50)) {
      for (std::size_t x = 1; x < row.size(); ++x) row[x] = random.chance(80) ? row[x - 1] : row[x];
    } else if (bits >= 24) {  // greys, where thresholds are
      for (std::uint32_t& pixel : row) pixel = (pixel & 0xFF) * 0x010101;
    }
    source.picture.push_back(row);
  }
  return source;
}

Bytes run_list(const Pixels& row, int closers = 6) {
  std::vector<std::uint32_t> words = {0};
  std::uint32_t before = 1;
  for (std::size_t x = 0; x < row.size(); ++x) {
    if (row[x] != before) words.push_back(static_cast<std::uint32_t>(x));
    before = row[x];
  }
  for (int i = 0; i < closers; ++i) {
    words.push_back(static_cast<std::uint32_t>(row.size() + (i < 3 ? 0 : 2)));
  }
  if (2 * words.size() == stride(static_cast<std::int64_t>(row.size()), 1)) {
    words.push_back(words.back());  // must not look like a row of bits
  }
  words[0] = static_cast<std::uint32_t>(2 * words.size());
  Bytes list = pack(words, 16);
  list.resize(2 * words.size());
  return list;
}

Bytes delivered_row(Random& random, const Source& source, std::int32_t y) {
  const Pixels& row = source.picture[static_cast<std::size_t>(y)];
  if (source.bits() == 1 && random.chance(50)) return run_list(row, random.pick<int>({0, 3, 6}));
  return pack(row, source.bits(), random.pick<std::uint8_t>({0, 0xFF, 0x5A}));
}

std::vector<std::int32_t> delivery_order(Random& random, std::int32_t height) {
  std::vector<std::int32_t> order(static_cast<std::size_t>(height));
  std::iota(order.begin(), order.end(), 0);
  const int kind = random.between(0, 4);
  if (kind % 2 == 1) std::reverse(order.begin(), order.end());
  if (kind == 4) std::shuffle(order.begin(), order.end(), random.engine());
  if (random.chance(30)) {  // some never come, some come twice
    std::erase_if(order, [&](std::int32_t) { return random.chance(30); });
    const std::vector<std::int32_t> again = order;
    for (const std::int32_t y : again) {
      if (random.chance(20)) order.push_back(y);
    }
  }
  return order;
}

// With a callback that may turn the image into run lists and back.
void expect_decodes_as_modelled(Random& random, const Source& source, bool converted) {
  const std::vector<std::int32_t> order = delivery_order(random, source.height());
  const Expected expected = expected_image(source, order);
  FedSink sink;
  // Without one, rows that never come are cleared at the end.
  std::optional<OnProgress> progress;
  const auto convert = [&](std::int32_t) {
    if (expected.bits != 1 || random.chance(50)) return 0;
    return random.chance(50) ? IMG_runs_to_dib(sink.handle()) : IMG_dib_to_runs(sink.handle());
  };
  if (converted) progress.emplace(convert);
  ASSERT_EQ(sink.header(source.block), 0);
  for (const std::int32_t y : order) ASSERT_EQ(sink.row(delivered_row(random, source, y), y), 0);
  const Image image(sink.finish());
  ASSERT_GE(image, 0);
  ASSERT_EQ(picture_of(image), expected.picture);
  if (converted) return;

  const BitmapInfoHeader header = header_of_image(image);
  ASSERT_EQ(header.biWidth, expected.width);
  ASSERT_EQ(header.biHeight, expected.height);
  ASSERT_EQ(header.biBitCount, expected.bits);
  const bool is_reduced = expected.bits != source.bits();
  EXPECT_EQ(header.biCompression, expected.in_runs ? 99
                                  : is_reduced     ? 0
                                                   : source.block.header.biCompression);
  EXPECT_EQ(header.biXPelsPerMeter, source.block.header.biXPelsPerMeter);
  EXPECT_EQ(header.biClrUsed, 0u);
  EXPECT_EQ(IMGLOW_get_transp_color(image), source.block.header.biClrUsed == 0 ? -26 : 9);
  EXPECT_EQ(header.biSizeImage,
            stride(expected.width, expected.bits) * static_cast<std::size_t>(expected.height));
  if (expected.bits <= 8) {
    std::vector<Rgb> palette(256);
    const std::int32_t entries = IMG_get_bitmap_palette(image, palette.data());
    palette.resize(static_cast<std::size_t>(entries));
    const Rgb* from = source.block.palette.data();
    if (is_reduced) {
      from = expected.bits == 8   ? pixels::fixed_palette(context().settings.dither_mode).data()
             : expected.bits == 4 ? pixels::sixteen_colours().data()
                                  : pixels::black_and_white().data();
    }
    EXPECT_EQ(palette, std::vector<Rgb>(from, from + entries));
  }
}

TEST_F(RowSink, GivesThePictureThatTheSettingsAskFor) {
  Random random(11);
  const std::vector<int> depths = {1, 1, 4, 8, 16, 24, 32};
  for (int round = 0; round < 3000; ++round) {
    context().settings = Settings{};
    const std::int32_t width = random.between(1, 70), height = random.between(1, 24);
    const Source source = random_source(random, width, height, random.pick(depths));
    if (random.chance(50)) {
      IMGLOW_set_decompsize(random.between(-1, width + 2), random.between(-1, height + 2));
    }
    if (random.chance(60)) {
      IMGLOW_set_decomp_rect(random.between(0, width), random.between(0, height),
                             random.between(1, 2 * width), random.between(1, 2 * height));
    }
    if (random.chance(60)) {
      IMGLOW_set_decomp_reduction(random.pick<int>({8, 4, 1, 2, 24, -1}));
      IMGLOW_set_dithermode(random.pick<int>({1, 2, 0}));
    }
    SCOPED_TRACE(round);
    expect_decodes_as_modelled(random, source, round % 5 == 0);
    if (HasFatalFailure()) return;
  }
}

TEST_F(RowSink, ImpossibleGeometryRefusesTheHeader) {
  const auto header_answer = [](std::int32_t width, std::int32_t height, int bits) {
    return FedSink().header(dib_header(width, height, bits));
  };
  EXPECT_EQ(header_answer(1, INT_MIN, 8), -3);
  EXPECT_EQ(header_answer(1, 1, 33), -3);
  EXPECT_EQ(header_answer(1 << 30, 2, 24), -1);
  for (const auto& [rect, status] : std::vector<std::pair<Rect, std::int32_t>>{
           {{0, 0, 0, 5}, -3},
           {{0, 0, 5, 0}, -3},
           {{0, 0, -1, 5}, -3},
           {{0, 0, INT_MIN, INT_MIN}, -3},
           {{INT_MAX, INT_MAX, INT_MIN, 5}, -3},
           {{INT_MAX, INT_MAX, INT_MAX, INT_MAX}, -1},
           {{0, 0, INT_MAX, INT_MAX}, 0},  // not below the source
           {{INT_MAX, INT_MAX, 3, 3}, 0}}) {
    IMGLOW_set_decomp_rect(rect.x, rect.y, rect.width, rect.height);
    for (const int bits : {1, 24}) EXPECT_EQ(header_answer(20, 20, bits), status) << rect.width;
  }
}

TEST_F(RowSink, RowsThatAreTooLongTooShortOrNowhereDoNoHarm) {
  FedSink sink;
  const Bytes row = {1, 2, 3, 4, 5, 0, 0, 0};
  EXPECT_EQ(sink.row(row, 0), -3) << "there is no image yet";
  ASSERT_EQ(sink.header(dib_header(5, 6, 8)), 0);
  for (const std::int32_t y : {-1, 6, INT_MIN, INT_MAX}) EXPECT_EQ(sink.row(row, y), 0);
  EXPECT_EQ(sink.row(Bytes(100, 7), 0), 0);
  EXPECT_EQ(sink.row({9, 9}, 2), 0);
  EXPECT_EQ(sink.row({}, 3), 0);
  EXPECT_EQ(sink.row(row, 5), 0);
  const Image image(sink.finish());
  EXPECT_EQ(
      rows_of_image(image),
      (Rows{Bytes(8, 7), Bytes(8, 0), {9, 9, 0, 0, 0, 0, 0, 0}, Bytes(8, 0), Bytes(8, 0), row}));
}

TEST_F(RowSink, RunListsFromOutsideAreTakenAsFarAsTheyMakeSense) {
  const auto words = [](const char* letters) {
    Bytes list = {0xFF, 0xFF};  // the length says nothing that the byte count does not
    for (; *letters != '\0'; ++letters) {
      list.push_back(static_cast<std::uint8_t>(*letters - 'a'));
      list.push_back(*letters == '{' ? 1 : 0);  // '{': far beyond the row
    }
    return list;
  };
  // The words of the list behind its length, in letters: a = 0; 26 pixels, black being #.
  for (const auto& [letters, expected] : std::vector<std::pair<const char*, const char*>>{
           {"", ".........................."},
           {"a", "##########################"},
           {"ce", "..##......................"},
           {"ce{z", "..##......................"},  // ends where it leaves the row
           {"ceeg", "..##......................"},  // ends where it does not ascend
           {"cecg", "..##......................"},
           {"ceg{{{|||", "..##..####################"},
       }) {
    FedSink sink;
    ASSERT_EQ(sink.header(dib_header(26, 1, 1)), 0);
    Bytes list = words(letters);
    if (list.size() == 4) list.push_back(0xEE);  // a length of its own, and half a word
    ASSERT_EQ(sink.row(list, 0), 0);
    const Image image(sink.finish());
    std::string row;
    const Picture drawn = picture_of(image);
    for (const std::uint32_t pixel : drawn[0]) row += pixel != 0 ? '.' : '#';
    EXPECT_EQ(row, expected) << letters;
  }
  // A list of exactly a row's length is a row.
  FedSink sink;
  ASSERT_EQ(sink.header(dib_header(26, 1, 1)), 0);
  ASSERT_EQ(sink.row({0xF0, 0x0F, 0xAA, 0x55}, 0), 0);
  const Image image(sink.finish());
  EXPECT_EQ(rows_of_image(image).at(0), (Bytes{0xF0, 0x0F, 0xAA, 0x7F}));
}

TEST_F(RowSink, OneBitImagesWhoseSidesDoNotSuitRunListsArePlainAndSaySo) {
  for (const auto& [width, height, scaled_width, compression] :
       std::vector<std::array<std::uint32_t, 4>>{{65533, 2, 0, 99},
                                                 {65534, 2, 0, 0},
                                                 {70000, 2, 65533, 99},
                                                 {32, 65536, 0, 0},
                                                 {33, 65536, 0, 99}}) {
    IMGLOW_set_decompsize(scaled_width, 1);
    HeaderBlock header = dib_header(width, height, 1);
    header.header.biCompression = 99;  // as the file had it
    FedSink sink;
    ASSERT_EQ(sink.header(header), 0);
    EXPECT_EQ(header_of_image(Image(sink.finish())).biCompression, compression) << width;
  }
}

TEST_F(RowSink, SecondHeaderStartsAnew) {
  FedSink sink;
  ASSERT_EQ(sink.header(dib_header(40, 30, 24)), 0);
  ASSERT_EQ(sink.row(Bytes(120, 3), 0), 0);
  // Beside the sink's own buffers.
  const auto image_blocks = [&] { return blocks() - memory_probe::tracked_blocks(); };
  const std::int64_t first = image_blocks();
  EXPECT_EQ(sink.header(dib_header(0, 30, 24)), -3);
  ASSERT_EQ(sink.header(dib_header(9, 2, 1)), 0);
  ASSERT_EQ(sink.header(dib_header(5, 2, 8)), 0);
  EXPECT_EQ(image_blocks(), first);
  ASSERT_EQ(sink.row(Bytes(8, 5), 1), 0);
  const Image image(sink.finish());
  EXPECT_EQ(rows_of_image(image), (Rows{Bytes(8, 0), Bytes(8, 5)}));
  // Nor does a scaled row of the first stand for one of the second.
  IMGLOW_set_decompsize(4, 1);
  FedSink scaled;
  for (const std::uint8_t value : Bytes{1, 2}) {
    ASSERT_EQ(scaled.header(dib_header(9, 3, 8)), 0);
    ASSERT_EQ(scaled.row(Bytes(12, value), 0), 0);
  }
  EXPECT_EQ(rows_of_image(Image(scaled.finish())), Rows{Bytes(4, 2)});
  FedSink without_header;
  EXPECT_EQ(without_header.finish(), -3);
}

TEST_F(RowSink, ProgressNamesTheSourcesHeightAndMayEndTheDecode) {
  IMGLOW_set_decompsize(2, 2);
  std::vector<std::int32_t> values;
  std::int32_t answer = 1;
  const OnProgress progress([&](std::int32_t value) {
    values.push_back(value);
    return answer;
  });
  FedSink sink;
  ASSERT_EQ(sink.header(dib_header(9, 70000, 8)), 0);
  EXPECT_TRUE(values.empty());
  EXPECT_EQ(sink.row(Bytes(12), 0), 0);
  EXPECT_EQ(sink.row(Bytes(12), 1), 0) << "dropped, and counted";
  answer = -123;
  EXPECT_EQ(sink.row(Bytes(12), 2), -123);
  EXPECT_EQ(values, std::vector<std::int32_t>(3, 70000));
}

TEST_F(RowSink, CallerNeverSeesWhatMemoryHeldBefore) {
  for (const int bits : {1, 8, 24}) {
    FedSink sink;
    int looks = 0;
    const OnProgress progress([&](std::int32_t) {
      ++looks;
      const Rows rows = rows_of_image(sink.handle());
      const Bytes untouched(rows[0].size(), bits == 1 ? 0xFF : 0);
      EXPECT_EQ(rows[3], untouched);
      EXPECT_EQ(rows[0], looks < 2 ? untouched : rows[0]);
      return 0;
    });
    ASSERT_EQ(sink.header(dib_header(9, 4, bits)), 0);
    for (const std::int32_t y : {2, 0, 1}) ASSERT_EQ(sink.row(Bytes(stride(9, bits), 0x3C), y), 0);
    EXPECT_EQ(looks, 3);
    const Image image(sink.finish());
    EXPECT_EQ(rows_of_image(image)[3], Bytes(stride(9, bits), bits == 1 ? 0xFF : 0));
  }
}

TEST_F(RowSink, ImageDeletedByACallbackEndsTheDecode) {
  for (const bool reused : {false, true}) {
    FedSink sink;
    const HeaderBlock header = dib_header(9, 4, 8);
    ASSERT_EQ(sink.header(header), 0);
    EXPECT_EQ(IMG_delete_bitmap(sink.handle()), 0);
    const Image other(reused ? IMG_create_handle_shell(&header) : -1);
    EXPECT_EQ(other, reused ? sink.handle() : -1) << "the same number, another image";
    EXPECT_EQ(sink.row(Bytes(12, 1), 1), -13);
    EXPECT_EQ(sink.header(header), -13);
    EXPECT_EQ(sink.finish(), -13);
    if (reused) {
      EXPECT_EQ(rows_of_image(other), Rows(4, Bytes(12, 0)));
    }
  }
}

}  // namespace
}  // namespace tq::test
