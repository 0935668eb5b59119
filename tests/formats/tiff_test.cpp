// TIFF pages of every kind against a plain reader of samples; what writers get wrong, what nobody
// writes on purpose, and what is written here. Files of other programs are in the corpus.
#include <gmock/gmock.h>

#include <cmath>
#include <optional>

#include "coding/ccitt/ccitt.h"
#include "core/numbers.h"
#include "tests/support/bmp_file.h"
#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"
#include "tests/support/memory_file.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/tiff_file.h"

namespace tq::test {
namespace {

class Tiff : public LibraryTest {};

constexpr int kFax1d = 2, kGroup3 = 3, kGroup4 = 4, kLzw = 5, kDeflate = 8, kPackBits = 32773;

struct Look {
  std::int32_t status = 0;
  int bits = 0, width = 0, height = 0, x_dpi = 0, y_dpi = 0;
  Pixels pixels{};   // row by row
  Pixels colours{};  // those of pixels that are indices, red above green above blue
  friend bool operator==(const Look&, const Look&) = default;
};

void PrintTo(const Look& look, std::ostream* out) {
  *out << "status " << look.status << ", " << look.bits << " bits, " << look.width << " x "
       << look.height << std::hex;
  for (const std::uint32_t pixel : look.pixels) *out << ' ' << pixel;
}

Look look_at(const Image& image) {
  Look look{.status = image};
  if (image < 0) return look;
  const BitmapInfoHeader header = header_of_image(image);
  look = {.bits = header.biBitCount,
          .width = header.biWidth,
          .height = header.biHeight,
          .x_dpi = header.biXPelsPerMeter,
          .y_dpi = header.biYPelsPerMeter};
  std::array<Rgb, 256> palette{};
  IMG_get_bitmap_palette(image, palette.data());
  for (const Bytes& row : rows_of_image(image)) {
    for (const std::uint32_t pixel : unpack(row, look.width, look.bits)) {
      look.pixels.push_back(pixel);
      if (look.bits > 8) continue;
      const Rgb& colour = palette[pixel];
      look.colours.push_back(colour.red << 16 | colour.green << 8 | colour.blue);
    }
  }
  return look;
}

Look decode(const Bytes& file, std::int32_t page = 0) {
  return look_at(Image(IMG_decompress_bitmap_block(file.data(), file.size(), page)));
}

// ---- The reader to compare with ----

// From 0 .. from to 0 .. to, rounded.
std::uint32_t scaled(std::uint64_t value, std::uint64_t from, std::uint64_t to) {
  return static_cast<std::uint32_t>((2 * to * value + from) / (2 * from));
}

struct Kind {
  int bits, samples, photometric;
  std::optional<int> extra{};  // what the first sample that is no colour is
};

std::vector<std::uint64_t> color_map(int bits) {
  std::vector<std::uint64_t> map(3 << bits);
  for (std::size_t i = 0; i < map.size(); ++i) map[i] = (i * 40503 + 7777) % 65536;
  return map;
}

// One pixel: its value in the image, and the colour if it is an index.
void add_pixel(const Kind& kind, const std::uint32_t* samples, Look& look) {
  const std::uint64_t top = (std::uint64_t{1} << kind.bits) - 1;
  const int alpha = kind.extra.value_or(0);
  const bool inks = kind.photometric == 5;
  const int colours = kind.photometric == 2 ? 3 : inks ? 4 : 1;
  const auto on_white = [&](std::uint32_t c) {
    const std::uint32_t a = alpha == 0 ? 255 : scaled(samples[colours], top, 255);
    return alpha == 1 ? std::min(c + 255 - a, 255u) : (c * a + 255 * (255 - a) + 127) / 255;
  };
  const auto of_map = [&](int channel) {
    return std::uint32_t(color_map(kind.bits)[(channel << kind.bits) + samples[0]] + 128) / 257;
  };
  if (kind.photometric == 3) {
    const std::uint32_t colour =
        on_white(of_map(0)) << 16 | on_white(of_map(1)) << 8 | on_white(of_map(2));
    look.bits = alpha != 0 ? 24 : kind.bits <= 4 ? 4 : 8;
    look.pixels.push_back(alpha != 0 ? colour : samples[0]);
    if (alpha == 0) look.colours.push_back(colour);
  } else if (colours == 1) {
    const std::uint64_t level = kind.photometric == 0 ? top - samples[0] : samples[0];
    const std::uint32_t shade = on_white(scaled(level, top, 255));
    if (alpha != 0) {
      look.bits = 8;
    } else {
      look.bits = kind.bits == 1 ? 1 : kind.bits <= 4 ? 4 : kind.bits <= 8 ? 8 : 16;
    }
    const bool as_is = look.bits < 8;
    look.pixels.push_back(as_is             ? std::uint32_t(level)
                          : look.bits == 16 ? scaled(level, top, 65535)
                                            : shade);
    if (look.bits <= 8) look.colours.push_back(shade * 0x10101);
  } else {
    std::uint32_t pixel = 0;
    for (int i = 0; i < colours; ++i) {
      const std::uint32_t level = scaled(samples[i], top, 255);
      pixel |= inks ? level << 8 * i : on_white(level) << 8 * (2 - i);
    }
    look.bits = inks ? 32 : 24;
    look.pixels.push_back(pixel);
  }
}

TiffPicture picture_of(const Kind& kind, unsigned seed = 5) {
  TiffPicture picture{.bits = kind.bits, .samples = kind.samples, .photometric = kind.photometric};
  Random random(seed);
  const auto top = static_cast<std::uint32_t>((std::uint64_t{1} << kind.bits) - 1);
  picture.values.resize(picture.width * picture.height * kind.samples);
  for (std::uint32_t& value : picture.values) {
    value = random.chance(30)   ? top
            : random.chance(30) ? 0
                                : std::uint32_t(random.engine()()) & top;
  }
  if (kind.photometric == 3) picture.more.push_back({320, 3, color_map(kind.bits)});
  if (kind.extra) picture.more.push_back({338, 3, {std::uint64_t(*kind.extra)}});
  return picture;
}

Look expected_of(const Kind& kind, const TiffPicture& picture) {
  Look look{.width = picture.width, .height = picture.height};
  for (std::size_t i = 0; i < picture.values.size(); i += kind.samples) {
    add_pixel(kind, &picture.values[i], look);
  }
  return look;
}

Bytes file_of(const TiffPicture& picture, const TiffOrder& order = {}) {
  return tiff_file(order, {tiff_page(picture, order)});
}

// Rows of strips and sides of tiles; a strip of 0 rows is all of them.
struct Cut {
  int rows, tile_width, tile_height;
};
constexpr Cut kCuts[] = {{0, 0, 0}, {3, 0, 0}, {0, 16, 16}, {0, 5, 4}, {0, 32, 2}};

TEST_F(Tiff, EveryKindOfPageIsWhatItsSamplesSay) {
  std::vector<Kind> kinds;
  for (const int bits : {1, 2, 3, 4, 5, 6, 7, 8, 10, 12, 14, 16, 24, 32}) {
    for (const int photometric : {0, 1}) {
      kinds.push_back({bits, 1, photometric});
      for (const int extra : {0, 1, 2}) kinds.push_back({bits, 2, photometric, extra});
    }
    if (bits <= 8) {
      kinds.push_back({bits, 1, 3});
      kinds.push_back({bits, 2, 3, 2});
      kinds.push_back({bits, 3, 3, 0});
    }
    if (bits < 17 || bits % 8 == 0) kinds.push_back({bits, 3, 2});
    for (const int extra : {0, 1, 2}) kinds.push_back({std::min(bits, 16), 4, 2, extra});
    kinds.push_back({std::min(bits, 16), 6, 2});
    kinds.push_back({bits, 4, 5});
    kinds.push_back({bits, 5, 5});
  }
  kinds.push_back({1, 1, 4});
  const int codings[] = {1, kPackBits, kLzw, kDeflate, 32946};
  for (const Kind& kind : kinds) {
    TiffPicture picture = picture_of(kind);
    const Look expected = expected_of(kind, picture);
    const auto number = static_cast<int>(&kind - kinds.data());
    for (int arrangement = 0; arrangement < 10 * 2; ++arrangement) {
      const Cut& cut = kCuts[arrangement % 5];
      picture.rows_per_strip = cut.rows;
      picture.tile_width = cut.tile_width;
      picture.tile_height = cut.tile_height;
      picture.apart = arrangement / 5 % 2 != 0;
      const TiffOrder order{arrangement >= 10, (arrangement + number) % 3 == 0};
      if (picture.apart && picture.samples == 1) continue;
      // Codings by turns, so that each meets each arrangement.
      picture.coding = codings[(arrangement + arrangement / 5 + number) % 5];
      picture.differences = picture.coding != 1 && picture.coding != kPackBits &&
                            kind.bits % 8 == 0 && kind.bits != 24 && number % 4 != 0;
      ASSERT_EQ(decode(file_of(picture, order)), expected)
          << kind.bits << " bits, " << kind.samples << " samples, photometric " << kind.photometric
          << ", extra " << kind.extra.value_or(-1) << ", cut " << arrangement % 5
          << (picture.apart ? " apart" : "") << ", coding " << picture.coding
          << (picture.differences ? " differences" : "") << (order.big_endian ? " MM" : " II");
    }
  }
}

// ---- Colours that are computed ----

// Blocks of luma of h x v pixels, then blue and red, which are those of the block's first pixel.
TEST_F(Tiff, ChrominanceCountsForItsBlockOfPixels) {
  for (const int h : {1, 2, 4}) {
    for (const int v : {1, 2, 4}) {
      for (const int rows : {1, 3, 4, 7}) {  // of a strip: those of its last blocks are cut off
        TiffPicture picture{.width = 9, .height = 7, .samples = 3, .photometric = 6};
        picture.rows_per_strip = rows;
        picture.more = {{530, 3, {std::uint64_t(h), std::uint64_t(v)}}};
        Look expected{.bits = 24, .width = 9, .height = 7};
        for (int y = 0; y < 7; ++y) {
          for (int x = 0; x < 9; ++x) {
            const int luma = 40 + 16 * y + x, blue = x / h * h, red = y % rows % v - y;
            for (const int sample : {luma, 128 + blue, 128 + red}) {
              picture.values.push_back(std::uint32_t(sample));
            }
            const double r = luma + 1.402 * red, b = luma + 1.772 * blue;
            const double g = (luma - 0.299 * r - 0.114 * b) / 0.587;
            const auto level = [](double value) {
              return std::uint32_t(std::clamp(value, 0.0, 255.0) + 0.5);
            };
            expected.pixels.push_back(level(r) << 16 | level(g) << 8 | level(b));
          }
        }
        picture.encode = [=](std::vector<Bytes> lines, int width) {
          Bytes strip;
          const int height = static_cast<int>(std::ssize(lines));
          for (int top = 0; top < height; top += v) {
            for (int left = 0; left < width; left += h) {
              for (int i = 0; i < h * v; ++i) {
                const int y = std::min(top + i / h, height - 1);
                strip.push_back(lines[y][3 * std::min(left + i % h, width - 1)]);
              }
              strip.push_back(lines[top][3 * left + 1]);
              strip.push_back(lines[top][3 * left + 2]);
            }
          }
          return strip;
        };
        EXPECT_EQ(decode(file_of(picture)), expected) << h << 'x' << v << ", " << rows;
      }
    }
  }
}

TEST_F(Tiff, LabBecomesTheColoursOfAScreen) {
  TiffPicture picture{.width = 5, .height = 1, .samples = 3, .photometric = 8};
  // White, black, and the red, green and blue of sRGB as CIE 1976 has them under D65.
  picture.values = {255, 0, 0, 0, 0, 0, 136, 80, 67, 224, 170, 83, 82, 79, 148};
  const Look look = decode(file_of(picture));
  const std::uint32_t expected[] = {0xFFFFFF, 0, 0xFF0000, 0x00FF00, 0x0000FF};
  ASSERT_EQ(look.pixels.size(), 5u);
  for (int i = 0; i < 5; ++i) {
    for (const int shift : {0, 8, 16}) {
      const int ours = look.pixels[i] >> shift & 255, right = expected[i] >> shift & 255;
      EXPECT_NEAR(ours, right, i < 2 ? 0 : 12) << i << ' ' << shift;
    }
  }
}

// ---- Facsimiles ----

// What the coder here is told, and the options of the page; tests/peers holds it to others.
struct FaxForm {
  int coding;
  ccitt::Coding form;
  std::uint64_t t4_options = 0;
};
const FaxForm kFaxForms[] = {
    {kFax1d, {.scheme = ccitt::Scheme::huffman}},
    {kGroup3, {.scheme = ccitt::Scheme::group3_1d}},
    {kGroup3, {.scheme = ccitt::Scheme::group3_1d, .end_of_block = true}},
    {kGroup3, {.scheme = ccitt::Scheme::group3_1d, .byte_aligned = true}},
    {kGroup3, {.scheme = ccitt::Scheme::group3_1d, .byte_aligned = true, .end_of_block = true}, 4},
    {kGroup3, {.scheme = ccitt::Scheme::group3_1d, .end_of_line = false}},
    {kGroup3, {.scheme = ccitt::Scheme::group3_2d}, 1},
    {kGroup3, {.scheme = ccitt::Scheme::group3_2d, .byte_aligned = true, .end_of_block = true}, 5},
    {kGroup4, {.scheme = ccitt::Scheme::group4}},
    {kGroup4, {.scheme = ccitt::Scheme::group4, .end_of_block = true}},
};

// A bit of 0 in a row is what facsimiles call white.
TiffPicture fax_picture(const FaxForm& fax, int width, int height) {
  TiffPicture picture{.width = width, .height = height, .bits = 1, .photometric = 0};
  picture.coding = fax.coding;
  Random random(static_cast<std::uint32_t>(width * 100 + height));
  for (int y = 0; y < height; ++y) {
    const Pixels row = unpack(random.bit_row(width, 12), width, 1);
    picture.values.insert(picture.values.end(), row.begin(), row.end());
  }
  picture.encode = [form = fax.form](const std::vector<Bytes>& rows, int row_width) {
    ccitt::Encoder encoder;
    EXPECT_EQ(encoder.open(form, row_width), kOk);
    encoder.start();
    Bytes out(static_cast<std::size_t>(std::int64_t(rows.size()) * encoder.most_bytes() +
                                       ccitt::Encoder::kMostBytesAtEnd));
    std::uint8_t* end = out.data();
    for (Bytes row : rows) {
      for (std::uint8_t& bits : row) bits = byte(~bits);
      row.resize(stride(row_width, 1));
      encoder.take_bits(row);
      end = encoder.put_row(end);
    }
    out.resize(encoder.finish(end) - out.data());
    return out;
  };
  picture.more = {{292, 4, {fax.t4_options}}};
  return picture;
}

TEST_F(Tiff, FacsimilesOfEveryScheme) {
  for (const FaxForm& fax : kFaxForms) {
    for (const int width : {1, 8, 43, 70}) {
      TiffPicture picture = fax_picture(fax, width, 13);
      for (int variant = 0; variant < 16; ++variant) {
        picture.photometric = variant & 1;
        picture.low_bit_first = (variant & 2) != 0;
        picture.rows_per_strip = variant / 4 == 1 ? 5 : variant / 4 == 2 ? 1 : 0;
        picture.tile_width = variant / 4 == 3 ? 16 : 0;
        picture.tile_height = 8;
        EXPECT_EQ(decode(file_of(picture)), expected_of({1, 1, picture.photometric}, picture))
            << "coding " << fax.coding << ", options " << fax.t4_options << ", width " << width
            << ", variant " << variant;
      }
    }
  }
}

TEST_F(Tiff, ABadBitOfAFacsimileNeverLosesTheNextStrip) {
  for (const FaxForm& fax : kFaxForms) {
    TiffPicture picture = fax_picture(fax, 40, 8);
    picture.rows_per_strip = 4;
    const Look good = expected_of({1, 1, 0}, picture);
    const TiffPage page = tiff_page(picture, {});
    const std::size_t bits = 8 * page.chunks[0].size();
    for (std::size_t bit = 0; bit < bits; ++bit) {
      TiffPage bad = page;
      bad.chunks[0][bit / 8] ^= byte(1 << bit % 8);
      const Look look = decode(tiff_file({}, {bad}));
      ASSERT_EQ(look.status, 0);
      ASSERT_TRUE(
          std::equal(good.pixels.begin() + 4 * 40, good.pixels.end(), look.pixels.begin() + 4 * 40))
          << "coding " << fax.coding << ", bit " << bit;
    }
  }
}

// ---- LZW ----

// Noise fills the table soonest, one value makes each code the next free one.
TEST_F(Tiff, LzwPassesEveryWidthAndAFullTable) {
  for (const bool old : {false, true}) {
    for (const int noise : {0, 1, 8}) {
      TiffPicture picture{.width = 131, .height = 90};
      Random random(3);
      for (int i = 0; i < 131 * 90; ++i) {
        picture.values.push_back(static_cast<std::uint32_t>(random.engine()()) &
                                 ((1 << noise) - 1));
      }
      picture.coding = kLzw;
      picture.rows_per_strip = 40;
      picture.old_lzw = old;
      const Look expected = expected_of({8, 1, 1}, picture);
      EXPECT_EQ(decode(file_of(picture)), expected) << old << ' ' << noise;
      if (old) continue;
      picture.low_bit_first = true;
      EXPECT_EQ(decode(file_of(picture)), expected) << noise;
    }
  }
}

TEST_F(Tiff, BadLzwKeepsTheRowsBefore) {
  TiffPicture picture{.width = 4, .height = 3, .values = {1, 2, 3, 4, 5, 6, 7, 8, 9, 1, 2, 3}};
  picture.coding = kLzw;
  TiffPage page = tiff_page(picture, {});
  const auto codes = [&](const Pixels& values) {
    const int count = static_cast<int>(std::ssize(values));
    page.chunks = tiff_page({.width = count, .height = 1, .bits = 9, .values = values}, {}).chunks;
    return decode(tiff_file({}, {page})).pixels;
  };
  const Pixels rows = {1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0, 0};
  EXPECT_EQ(codes({1, 2, 3, 4, 5, 6, 7, 8}), rows) << "no clear code, no end";
  EXPECT_EQ(codes({256, 1, 2, 3, 4, 5, 6, 7, 8, 300, 1, 2, 3}), rows) << "beyond the table";
  EXPECT_EQ(codes({256, 256, 1, 2, 3, 4, 5, 6, 7, 8, 257, 1}), rows);
  EXPECT_EQ(codes({300}), Pixels(12));
  const Pixels gone_on = {1, 2, 0, 0, 1, 2, 2, 1, 3, 0, 0, 0};
  EXPECT_EQ(codes({256, 1, 2, 300, 258, 259, 3}), gone_on) << "nothing is learnt from it";
}

// ---- Repairs ----

// With these fields in place of those of their tags; one without values goes.
Bytes changed(TiffPage page, const std::vector<TiffField>& changes, const TiffOrder& order = {}) {
  for (const TiffField& change : changes) {
    if (change.tag == 273) page.offsets = 0;
    if (change.tag == 279) page.counts = 0;
    std::erase_if(page.fields, [&](const TiffField& field) { return field.tag == change.tag; });
    if (!change.values.empty()) page.fields.push_back(change);
  }
  return tiff_file(order, {page});
}

TEST_F(Tiff, WhatWritersGetWrongIsTheSamePicture) {
  using Changes = std::vector<TiffField>;
  const std::pair<const char*, Changes> one_strip[] = {
      {"no rows per strip", {{278}}},
      {"0 rows per strip", {{278, 3, {0}}}},
      {"2^32 - 1 rows per strip", {{278, 4, {0xFFFFFFFF}}}},
      {"a strip that is too short", {{279, 4, {7}}}},
      {"no photometric", {{262}}},
      {"no number of samples", {{277}}},
      {"no compression", {{259}}},
      {"signed words", {{256, 8, {21}}}},
      {"another arrangement of planes", {{284, 3, {3}}}},
  };
  const std::pair<const char*, Changes> any[] = {
      {"no counts", {{279}}},
      {"counts of 0", {{279, 4, {0, 0, 0, 0}}}},
      {"width as a byte", {{256, 1, {21}}}},
      {"unknown tags and types", {{40000, 99, {1, 2, 3}}}},
      {"a predictor that does not count", {{317, 3, {2}}}},
      {"an orientation that does not turn rows", {{274, 3, {6}}}},
  };
  TiffPicture picture = picture_of({8, 1, 1});
  const Look expected = expected_of({8, 1, 1}, picture);
  for (const TiffOrder order : {TiffOrder{}, TiffOrder{true, false}, TiffOrder{false, true}}) {
    picture.rows_per_strip = picture.tile_width = picture.tile_height = 0;
    for (const auto& [name, changes] : one_strip) {
      EXPECT_EQ(decode(changed(tiff_page(picture, order), changes, order)), expected) << name;
    }
    picture.rows_per_strip = 3;
    for (const int tile : {0, 16}) {
      picture.tile_width = picture.tile_height = tile;
      TiffPage page = tiff_page(picture, order);
      for (const auto& [name, changes] : any) {
        EXPECT_EQ(decode(changed(page, changes, order)), expected) << name << ", tiles " << tile;
      }
      page.fields.push_back({257, 3, {3}});
      EXPECT_EQ(decode(tiff_file(order, {page})), expected) << "a tag twice";
      page.fields.pop_back();
      std::ranges::reverse(page.fields);
      page.offset_type = 3;
      EXPECT_EQ(decode(tiff_file(order, {page})), expected) << "out of order, short offsets";
      page.offsets = 273;
      page.counts = 279;
      EXPECT_EQ(decode(tiff_file(order, {page})), expected) << "tags of strips, tiles " << tile;
    }
  }

  const TiffPicture colours = picture_of({8, 1, 3});
  std::vector<std::uint64_t> bytes = color_map(8);
  for (std::uint64_t& level : bytes) level = (level + 128) / 257;
  EXPECT_EQ(decode(changed(tiff_page(colours, {}), {{320, 3, bytes}})),
            expected_of({8, 1, 3}, colours))
      << "a map of bytes";
  const TiffPicture rgb = picture_of({8, 3, 2});
  EXPECT_EQ(decode(changed(tiff_page(rgb, {}), {{258, 3, {8}}, {262}})),
            expected_of({8, 3, 2}, rgb))
      << "one number of bits";
}

TEST_F(Tiff, MissingStripsAndTilesAreMissingPixels) {
  for (const int bits : {1, 8}) {
    TiffPicture picture = picture_of({bits, 1, 0});
    Look expected = expected_of({bits, 1, 0}, picture);
    picture.rows_per_strip = 3;
    const TiffPage page = tiff_page(picture, {});
    const auto decoded = [&](const std::vector<std::uint64_t>& offsets) {
      return decode(changed(page, {{273, 4, offsets}}));
    };
    // The chunks lie at the beginning, each at an even place.
    const std::uint64_t step = (page.chunks[0].size() + 1) / 2 * 2;
    EXPECT_EQ(decoded({8, 8 + step, 8 + 2 * step, 8 + 3 * step}), expected);
    const std::uint32_t blank = bits == 1 ? 1 : 0;
    std::fill_n(expected.pixels.begin() + 3 * 21, 3 * 21, blank);
    std::fill_n(expected.colours.begin() + 3 * 21, 3 * 21, blank * 0xFFFFFF);
    EXPECT_EQ(decoded({8, 0, 8 + 2 * step, 8 + 3 * step}), expected);
    EXPECT_EQ(decoded({8, 0x80000000, 8 + 2 * step, 8 + 3 * step}), expected);
    EXPECT_EQ(decoded({8}).pixels[4 * 21], blank);
  }
  for (const FaxForm& fax : {kFaxForms[0], kFaxForms[8]}) {
    TiffPicture picture = fax_picture(fax, 20, 8);
    picture.tile_width = 16;
    picture.tile_height = 8;
    TiffPage page = tiff_page(picture, {});
    page.chunks[1].clear();
    for (const std::uint64_t photometric : {0, 1}) {
      const Look look = decode(changed(page, {{262, 3, {photometric}}}));
      EXPECT_EQ(look.pixels[18], 1u) << "photometric " << photometric;
    }
  }
}

TEST_F(Tiff, ResolutionsBecomeDotsPerInch) {
  struct {
    std::vector<TiffField> fields;
    int x, y;
  } const cases[] = {
      {{{282, 5, {300, 1}}, {283, 5, {401, 2}}}, 300, 201},
      {{{282, 5, {300, 1}}, {283, 5, {200, 1}}, {296, 3, {3}}}, 762, 508},
      {{{282, 5, {300, 1}}, {283, 5, {200, 1}}, {296, 3, {1}}}, 0, 0},
      {{{282, 5, {300, 0}}, {283, 5, {1000000, 1}}}, 0, 0},
      {{{282, 3, {96}}, {283, 11, {0x42C00000}}}, 96, 96},
  };
  for (const auto& tested : cases) {
    for (const bool big_endian : {false, true}) {
      TiffPicture picture = picture_of({8, 1, 1});
      picture.more = tested.fields;
      const Look look = decode(file_of(picture, {big_endian}));
      EXPECT_EQ(look.x_dpi, tested.x);
      EXPECT_EQ(look.y_dpi, tested.y);
    }
  }
}

// ---- Pages ----

// What is there when a caller's own stream has taken the image; its status if it was refused.
Bytes saved(const Bytes& before, const Image& image, std::int32_t code, std::int32_t& status) {
  MemoryFile file(before);
  status = IMG_save_bitmap_fd(image, 1, code);
  return file.bytes;
}

TEST_F(Tiff, ChainsOfPagesEndWhereTheyMust) {
  std::vector<TiffPage> pages;
  for (int i = 0; i < 5; ++i) {
    TiffPicture picture = picture_of({8, 1, 1});
    picture.width = 20 + i;
    picture.values.resize(picture.width * picture.height);
    pages.push_back(tiff_page(picture, {}));
  }
  const Bytes file = tiff_file({}, pages);
  const auto at = [](const Bytes& bytes, std::size_t i) {
    return bytes[i] | bytes[i + 1] << 8 | bytes[i + 2] << 16 | bytes[i + 3] << 24;
  };
  std::vector<std::size_t> directories, links = {4};
  for (int i = 0; i < 5; ++i) {
    directories.push_back(at(file, links.back()));
    links.push_back(directories.back() + 2 + 12 * file[directories.back()]);
  }
  // Where the link of the last page leads.
  for (const std::size_t link : {std::size_t{0}, directories[0], directories[3], directories[4],
                                 std::size_t{0x80000000}, file.size(), file.size() - 2}) {
    Bytes spoilt = file;
    for (int i = 0; i < 4; ++i) spoilt[links[5] + i] = byte(link >> 8 * i);
    EXPECT_EQ(IMGLOW_get_pages_block(spoilt.data(), spoilt.size()), 5) << link;
    for (int page = 0; page < 5; ++page) EXPECT_EQ(decode(spoilt, page).width, 20 + page) << link;
    EXPECT_EQ(decode(spoilt, 5).status, IMG_PAGE_PAST_END) << link;
    EXPECT_EQ(decode(spoilt, 1000000).status, IMG_PAGE_PAST_END) << link;
    // A chain that does not end well takes no more pages.
    const Image image(make_image(3, 8, Rows(2, Bytes(4, 9))));
    std::int32_t status = 0;
    const Bytes after = saved(spoilt, image, IMG_TYPE_TIFF_PACKBITS, status);
    EXPECT_EQ(status, link == 0 ? 0 : IMG_BAD_IMAGE);
    EXPECT_EQ(after == spoilt, link != 0);
  }
}

// ---- Hostile files ----

TEST_F(Tiff, HostileFilesCostLittle) {
  const auto with = [](const std::vector<TiffField>& changes,
                       const TiffPicture& picture = picture_of({8, 1, 1})) {
    return changed(tiff_page(picture, {}), changes);
  };
  const std::uint64_t most = 0x7FFFFFFF;
  TiffPicture tiled = picture_of({8, 1, 1}), units{.samples = 3, .photometric = 6},
              thunder = picture_of({4, 1, 1});
  tiled.tile_width = tiled.tile_height = 16;
  units.values.resize(21 * 11 * 3);
  units.tile_width = units.tile_height = 1;
  thunder.coding = 32809;
  thunder.tile_width = thunder.tile_height = 4;
  TiffPicture fax = fax_picture(kFaxForms[8], 20, 4);
  fax.tile_width = fax.tile_height = 16;
  const std::pair<Bytes, std::vector<std::int32_t>> files[] = {
      {with({{256, 4, {most}}, {257, 4, {most}}}), {-1}},
      {with({{256, 4, {0xFFFFFFFF}}}), {-3}},
      {with({{256, 4, {0}}}), {-3}},
      {with({{257, 4, {0}}}), {-3}},
      {with({{256, 4, {100000}}, {257, 4, {1}}, {322, 4, {1}}, {323, 4, {1}}}), {0}},
      {with({{256, 4, {1 << 28}}, {257, 4, {1}}, {258, 3, {1}}, {322, 4, {1}}, {323, 4, {1}}}),
       {0}},
      {with({{277, 3, {65535}}}), {0, -1}},
      {with({{258, 3, {65535}}}), {-7}},
      {with({{258, 3, {0}}}), {-7}},
      {with({{322, 4, {0}}}, tiled), {-3}},
      {with({{322, 4, {most}}}, tiled), {0}},
      {with({{323, 4, {most}}}, tiled), {0}},
      {with({{322, 4, {most}}}, fax), {-1}},
      {with({{530, 3, {4, 4}}}, units), {-7}},
      {with({{530, 3, {2, 2}}}, units), {-7}},
      {with({}, thunder), {-7}},
      {with({{258, 3, {5, 6, 5}}, {277, 3, {3}}}), {-7}},
      {with({{339, 3, {2}}}), {-7}},
      {with({{317, 3, {3}}, {259, 3, {8}}}), {-7}},
      {with({{332, 3, {2}}, {262, 3, {5}}, {277, 3, {4}}}), {-7}},
  };
  memory_probe::refuse_above(40 << 20);
  int number = 0;
  for (const auto& [file, statuses] : files) {
    const Image image(IMG_decompress_bitmap_block(file.data(), file.size(), 0));
    EXPECT_THAT(statuses, testing::Contains(std::int32_t{image})) << number;
    ++number;
  }
  // Counts of 2^30 values that are not there, where offsets should be.
  for (const int tag : {273, 279, 320, 258}) {
    Bytes file = with({});
    const std::size_t directory = file[4] | file[5] << 8;
    for (std::size_t entry = directory + 2; entry < file.size() - 4; entry += 12) {
      if ((file[entry] | file[entry + 1] << 8) == tag) file[entry + 7] = 0x40;
    }
    EXPECT_GE(decode(file).status, -7) << tag;
  }
}

// 40 MB behind a picture of 6 kB: neither memory nor time is spent on it.
TEST_F(Tiff, NoMoreIsDecodedThanThePictureHolds) {
  TiffPicture picture{.width = 77, .height = 77, .values = std::vector<std::uint32_t>(77 * 77, 9)};
  for (const int coding : {kPackBits, kDeflate, kLzw}) {
    picture.coding = coding;
    picture.encode = [coding](const std::vector<Bytes>&, int) {
      const Bytes much(coding == kLzw ? 1 << 16 : 40 << 20, 9);
      if (coding == kLzw) return tiff_lzw(much);
      return coding == kPackBits ? Bytes(much.size() / 64, 0x81) : zlib_stored(much);
    };
    const Bytes file = file_of(picture);
    memory_probe::refuse_above(100000);
    const Look look = decode(file);
    memory_probe::refuse_above(kLargestBlock);
    EXPECT_EQ(look.status, 0) << coding;
    EXPECT_EQ(look.pixels.size(), 77u * 77) << coding;
  }
}

// ---- What is written ----

TEST_F(Tiff, WhatIsWrittenIsReadAgainAlsoBehindOtherPages) {
  const std::int32_t codes[] = {IMG_TYPE_TIFF,     IMG_TYPE_TIFF_HUFFMAN, IMG_TYPE_TIFF_G3,
                                IMG_TYPE_TIFF_LZW, IMG_TYPE_TIFF_G4,      IMG_TYPE_TIFF_PACKBITS};
  const TiffPicture old = picture_of({8, 3, 2});
  for (const int bits : {1, 4, 8, 16, 24, 32}) {
    Random random(static_cast<std::uint32_t>(bits));
    Rows rows;
    for (int y = 0; y < 300; ++y) rows.push_back(pack(random.pixels(119, bits), bits));
    const Image image = make_image(119, bits, rows);
    std::vector<Rgb> palette = grey_palette(bits <= 8 ? 1 << bits : 256);
    if (bits == 8) palette[7] = {1, 2, 3, 0};
    if (bits <= 8) {
      EXPECT_EQ(IMGLOW_put_palette(image, palette.data()), 0);
    }
    const Look expected = look_at(image);
    for (const std::int32_t code : codes) {
      for (const int order : {-1, 0, 1}) {  // nothing, or a page of another writer in either order
        SCOPED_TRACE(testing::Message() << code << ", " << bits << " bits, order " << order);
        const Bytes before = order < 0 ? Bytes() : file_of(old, {order == 1});
        std::int32_t status = 0;
        const Bytes file = saved(before, image, code, status);
        const bool fax =
            code == IMG_TYPE_TIFF_HUFFMAN || code == IMG_TYPE_TIFF_G3 || code == IMG_TYPE_TIFF_G4;
        ASSERT_EQ(status, fax && bits > 1 ? IMG_WRONG_DEPTH : 0);
        if (status != 0) continue;
        const int page = order < 0 ? 0 : 1;
        EXPECT_EQ(IMGLOW_get_pages_block(file.data(), file.size()), page + 1);
        EXPECT_TRUE(decode(file, page) == expected);
        if (page == 1) {
          EXPECT_EQ(decode(file), expected_of({8, 3, 2}, old));
        }
      }
    }
  }
}

TEST_F(Tiff, OnlyTiffFilesTakeMorePages) {
  const Image image(make_image(3, 1, Rows(2, Bytes(4))));
  Bytes version = file_of(picture_of({8, 1, 1}));
  version[2] = 44;
  const Bytes text = {'I', 'I', ' ', 'a', 'm', ' ', 't', 'e', 'x', 't'},
              start = {'I', 'I', 42, 0, 0};
  const ScratchFolder folder;
  for (const Bytes& file : {text, start, version, file_of(picture_of({8, 1, 1}), {false, true})}) {
    const std::string name = folder.file("page.tif");
    write_file(name, file);
    const std::int32_t status = file.size() > 10 && file[2] == 43 ? IMG_UNSUPPORTED : IMG_BAD_IMAGE;
    for (const std::int32_t code : {IMG_TYPE_TIFF_G4, IMG_TYPE_TIFF_LZW}) {
      EXPECT_EQ(IMG_save_bitmap(image, name.c_str(), code), status);
      EXPECT_EQ(file_content(name), file);
    }
  }
}

}  // namespace
}  // namespace tq::test
