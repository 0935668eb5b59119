// Metafiles built record by record: bitmaps in every place and of every kind, lines and shapes, and what
// cannot be.
#include "formats/wmf/wmf.h"
#include "core/numbers.h"
#include "tests/support/codec_runs.h"
#include "tests/support/image_builder.h"

namespace tq::test {
namespace {

using wmf::decode_wmf;
using wmf::encode_wmf;

using Words = std::vector<int>;

void put(Bytes& file, std::int64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) file.push_back(byte(value >> 8 * i));
}

Bytes record(int function, const Words& words, const Bytes& rest = {}) {
  Bytes out;
  put(out, 3 + static_cast<std::int64_t>(words.size() + rest.size() / 2), 4);
  put(out, function, 2);
  for (const int value : words) put(out, value, 2);
  out.insert(out.end(), rest.begin(), rest.end());
  return out;
}

struct Box {
  int left = 0, top = 0, right = 4, bottom = 3, inch = 96;
};

Bytes metafile(const Box& box, const std::vector<Bytes>& records, bool placeable = true) {
  Bytes file;
  if (placeable) {
    put(file, 0x9AC6CDD7, 4);
    for (const int field : {0, box.left, box.top, box.right, box.bottom, box.inch, 0, 0, 0x1234}) {
      put(file, field, 2);
    }
  }
  for (const int field : {1, 9, 0x300, 0, 0, 8, 0, 0, 0}) put(file, field, 2);
  for (const Bytes& one : records) file.insert(file.end(), one.begin(), one.end());
  const Bytes end = record(0, {});
  file.insert(file.end(), end.begin(), end.end());
  return file;
}

// Rows from the bottom, of whole words of 32 bits.
Bytes dib(int width, int height, int bits, const Bytes& colours, const Bytes& rows) {
  Bytes out;
  for (const int field : {40, width, height}) put(out, field, 4);
  put(out, 1, 2);
  put(out, bits, 2);
  for (const int field : {0, 0, 0, 0, static_cast<int>(colours.size()) / 4, 0}) put(out, field, 4);
  out.insert(out.end(), colours.begin(), colours.end());
  out.insert(out.end(), rows.begin(), rows.end());
  return out;
}

const Bytes kColours = {0, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0,
                        0, 0, 4, 0, 0, 0, 5, 0, 0, 0, 6, 0, 0, 0};
// 1 2 above 3 4.
const Bytes kFour = dib(2, 2, 8, kColours, {3, 4, 0, 0, 1, 2, 0, 0});

constexpr int kCopy[] = {0x0020, 0x00CC}, kXor[] = {0x0046, 0x0066};

Words stretch(const int (&operation)[2], const Words& source, const Words& destination) {
  Words words = {operation[0], operation[1], 0};
  words.insert(words.end(), source.begin(), source.end());
  words.insert(words.end(), destination.begin(), destination.end());
  return words;
}

std::vector<Pixels> dots(const CollectingSink& sink) {
  std::vector<Pixels> rows;
  for (const Bytes& row : sink.image()) {
    rows.push_back(unpack(row, sink.header.header.biWidth, sink.header.header.biBitCount));
  }
  return rows;
}

constexpr std::uint32_t W = 0xFFFFFF;

// The one bitmap of a picture is that picture, with its own depth and resolution.
TEST(Wmf, ABitmapThatIsAllOfThePictureArrivesAsItIs) {
  const Bytes mono = dib(9, 1, 1, {255, 255, 255, 0, 0, 0, 0, 0}, {0x0F, 0x80, 0, 0});
  const Bytes rgb = dib(1, 1, 24, {}, {1, 2, 3, 0});
  const Words nine = stretch(kCopy, {1, 9, 0, 0}, {10, 90, 0, 0});
  const struct {
    Box box;
    Bytes drawing;
    int bits, x_dpi, y_dpi;
    Bytes row;
  } cases[] = {
      {{0, 0, 90, 10, 20}, record(0x0F43, nine, mono), 1, 2, 2, {0xF0, 0x00, 0, 0}},
      {{0, 0, 90, 11, 20}, record(0x0F43, nine, mono), 1, 2, 2, {0xF0, 0x00, 0, 0}},
      {{0, 0, 2, 2, 300},
       record(0x0B41, {0x20, 0xCC, 2, 2, 0, 0, 2, 2, 0, 0}, kFour),
       8,
       300,
       300,
       {1, 2, 0, 0}},
      {{0, 0, 2, 2, 300},
       record(0x0940, {0x20, 0xCC, 0, 0, 2, 2, 0, 0}, kFour),
       8,
       300,
       300,
       {1, 2, 0, 0}},
      {{5, 6, 7, 8, 100},
       record(0x0D33, {0, 2, 0, 0, 0, 2, 2, 6, 5}, kFour),
       8,
       100,
       100,
       {1, 2, 0, 0}},
      {{0, 0, 1, 1, 72},
       record(0x0F43, stretch(kCopy, {1, 1, 0, 0}, {1, 1, 0, 0}), rgb),
       24,
       72,
       72,
       {1, 2, 3, 0}},
  };
  for (const auto& [box, drawing, bits, x_dpi, y_dpi, row] : cases) {
    const CollectingSink sink = decoded(decode_wmf, metafile(box, {drawing}));
    EXPECT_EQ(sink.header.header.biBitCount, bits);
    EXPECT_EQ(sink.header.header.biXPelsPerMeter, x_dpi);
    EXPECT_EQ(sink.header.header.biYPelsPerMeter, y_dpi);
    EXPECT_EQ(sink.image().at(0), row);
  }
}

// In a picture of 4 x 3 dots.
TEST(Wmf, OtherBitmapsAreDrawnOnWhite) {
  const Bytes old = {0, 0, 9, 0, 2, 0, 2, 0, 1, 1, 0x80, 0x00, 0x7F, 0x80};
  const auto drawn = [](const Words& source, const Words& destination,
                        const int(&operation)[2] = kCopy) {
    return record(0x0F43, stretch(operation, source, destination), kFour);
  };
  const Bytes anisotropic = record(0x0103, {8});
  const struct {
    const char* what;
    std::vector<Bytes> records;
    std::vector<Pixels> rows;
  } cases[] = {
      {"beyond the edge",
       {drawn({2, 2, 0, 0}, {2, 2, -1, 3})},
       {{W, W, W, 3}, {W, W, W, W}, {W, W, W, W}}},
      {"twice as wide",
       {drawn({2, 2, 0, 0}, {2, 4, 1, 0})},
       {{W, W, W, W}, {1, 1, 2, 2}, {3, 3, 4, 4}}},
      {"a part", {drawn({1, 1, 0, 1}, {2, 2, 0, 0})}, {{4, 4, W, W}, {4, 4, W, W}, {W, W, W, W}}},
      {"a part from the bottom",
       {drawn({1, 2, 1, 0}, {1, 2, 0, 0})},
       {{1, 2, W, W}, {W, W, W, W}, {W, W, W, W}}},
      {"mirrored",
       {drawn({2, 2, 0, 0}, {-2, -2, 2, 2})},
       {{4, 3, W, W}, {2, 1, W, W}, {W, W, W, W}}},
      {"more than there is",
       {drawn({2, 3, 0, 1}, {2, 3, 0, 0})},
       {{2, W, W, W}, {4, W, W, W}, {W, W, W, W}}},
      {"mixed",
       {drawn({2, 2, 0, 0}, {2, 2, 0, 0}), drawn({2, 2, 0, 0}, {2, 2, 0, 1}, kXor)},
       {{1, 3, 0xFFFFFD, W}, {3, 7, 0xFFFFFB, W}, {W, W, W, W}}},
      {"window",
       {anisotropic, record(0x020B, {-10, -10}), record(0x020C, {30, 40}),
        drawn({2, 2, 0, 0}, {20, 20, 0, 0})},
       {{W, W, W, W}, {W, 1, 2, W}, {W, 3, 4, W}}},
      {"upwards",
       {anisotropic, record(0x020B, {3, 0}), record(0x020C, {-3, 4}),
        drawn({2, 2, 0, 0}, {-2, 2, 3, 0})},
       {{1, 2, W, W}, {3, 4, W, W}, {W, W, W, W}}},
      {"saved",
       {record(0x001E, {}), record(0x020C, {1, 1}), record(0x0211, {0, 0}), record(0x0127, {-1}),
        drawn({2, 2, 0, 0}, {2, 2, 1, 2})},
       {{W, W, W, W}, {W, W, 1, 2}, {W, W, 3, 4}}},
      {"scaled",
       {anisotropic, record(0x0410, {1, 2, 1, 2}), record(0x0211, {1, 0}),
        drawn({2, 2, 0, 0}, {4, 4, 0, 0})},
       {{W, W, W, W}, {1, 2, W, W}, {3, 4, W, W}}},
      {"twips",
       {record(0x0103, {6}), drawn({2, 2, 0, 0}, {-30, 30, 0, 0})},
       {{1, 2, W, W}, {3, 4, W, W}, {W, W, W, W}}},
      {"rows of a band",
       {record(0x0D33, {0, 1, 1, 0, 0, 2, 2, 0, 0}, kFour)},
       {{3, 4, W, W}, {W, W, W, W}, {W, W, W, W}}},
      {"for a device",
       {record(0x0922, {0x20, 0xCC, 0, 0, 2, 9, 0, 0}, old)},
       {{W, 0, 0, 0}, {0, W, W, W}, {W, W, W, W}}},
      {"nothing", {}, {{W, W, W, W}, {W, W, W, W}, {W, W, W, W}}},
  };
  for (const auto& [what, records, rows] : cases) {
    SCOPED_TRACE(what);
    EXPECT_EQ(dots(decoded(decode_wmf, metafile({}, records))), rows);
  }
}

// In a picture of 8 x 6 dots: # is black, r red, . white.
TEST(Wmf, LinesAndShapesAreDrawnDotByDot) {
  const std::string none = "........", all = "rrrrrrrr";
  const Bytes red = record(0x02FC, {0, 0xFF, 0, 0}), hatched = record(0x02FC, {2, 0xFF, 0, 1});
  const Bytes no_pen = record(0x02FA, {5, 0, 0, 0, 0}), wide = record(0x02FA, {0, 3, 0, 0, 0});
  const Bytes select = record(0x012D, {0}), remove = record(0x01F0, {0});
  const Bytes square = record(0x041B, {6, 8, 0, 0});
  const Bytes nested = record(0x0538, {2, 4, 4, 0, 0, 6, 0, 6, 6, 0, 6, 2, 2, 4, 2, 4, 4, 2, 4});
  const Bytes move = record(0x0214, {1, 1}), line = record(0x0213, {1, 6});
  // A red brush and no pen: what is in use stays so when it is deleted.
  const auto filled = [&](std::vector<Bytes> more) {
    std::vector<Bytes> records = {red, select, remove, no_pen, select};
    records.insert(records.end(), more.begin(), more.end());
    return records;
  };
  const struct {
    const char* what;
    std::vector<Bytes> records;
    std::vector<std::string> rows;
  } cases[] = {
      {"a line without its end", {move, line}, {none, ".#####..", none, none, none, none}},
      {"a line twice inverted",
       {record(0x0104, {6}), move, line, move, line},
       {none, none, none, none, none, none}},
      {"a polyline",
       {record(0x0325, {3, 0, 0, 3, 3, 3, 5})},
       {"#.......", ".#......", "..#.....", "...#....", "...#....", none}},
      {"dots",
       {record(0x02FA, {2, 1, 0, 0, 0}), select, record(0x0214, {0, 0}), record(0x0213, {0, 8})},
       {"###...##", none, none, none, none, none}},
      {"a wide line",
       {wide, select, record(0x0214, {3, 2}), record(0x0213, {3, 5})},
       {none, none, ".######.", ".######.", ".######.", none}},
      {"a rectangle",
       {red, select, record(0x041B, {4, 6, 1, 1})},
       {none, ".#####..", ".#rrr#..", ".#####..", none, none}},
      {"a polygon",
       filled({record(0x0324, {4, 0, 0, 4, 0, 4, 3, 0, 3})}),
       {"rrrr....", "rrrr....", "rrrr....", none, none, none}},
      {"a hole",
       filled({nested}),
       {"rrrrrr..", "rrrrrr..", "rr..rr..", "rr..rr..", "rrrrrr..", "rrrrrr.."}},
      {"no hole", filled({record(0x0106, {2}), nested}), std::vector<std::string>(6, "rrrrrr..")},
      {"an ellipse",
       filled({record(0x0418, {6, 8, 0, 0})}),
       {"..rrrr..", ".rrrrrr.", all, all, ".rrrrrr.", "..rrrr.."}},
      {"corners",
       filled({record(0x061C, {4, 4, 6, 8, 0, 0})}),
       {".rrrrrr.", all, all, all, all, ".rrrrrr."}},
      {"hatches",
       {hatched, select, remove, no_pen, select, square},
       std::vector<std::string>(6, "r.......")},
      {"a pattern",
       filled({record(0x061D, {0x21, 0xF0, 2, 3, 1, 2})}),
       {none, "..rrr...", "..rrr...", none, none, none}},
      {"blackness",
       {record(0x0940, {0x42, 0, 0, 0, 0, 1, 2, 5, 6})},
       {none, none, none, none, none, "......##"}},
      {"a wide line upwards",
       {wide, select, record(0x0214, {4, 3}), record(0x0213, {2, 3})},
       {none, "..###...", "..###...", "..###...", "..###...", "..###..."}},
      {"a pie",
       filled({record(0x081A, {0, 4, 4, 8, 8, 8, 0, 0})}),
       {"....rr..", "....rrr.", "....rrrr", "....rrrr", none, none}},
      {"a chord",
       filled({record(0x0830, {0, 4, 4, 8, 8, 8, 0, 0})}),
       {"....rr..", ".....rr.", "......rr", ".......r", none, none}},
      {"an arc without its end",
       {record(0x0817, {0, 4, 4, 8, 8, 8, 0, 0})},
       {".....#..", ".....##.", "......##", ".......#", ".......#", none}},
      {"a wide arc paints no dot twice",
       {wide, select, record(0x0104, {6}), record(0x0817, {3, 8, 3, 8, 6, 8, 0, 0})},
       {"########", "########", "##....##", "##....##", "########", "########"}},
      {"within, but for two areas",
       filled({record(0x0416, {5, 7, 1, 0}), record(0x0416, {6, 8, 0, 1}),
               record(0x0415, {3, 4, 0, 2}), record(0x0415, {9, 6, 4, 5}), square}),
       {none, ".r..rrr.", ".r..rrr.", ".rrrrrr.", ".rrrr.r.", none}},
      {"what is left out moves, until it is restored",
       filled({record(0x0416, {2, 2, 0, 0}), record(0x001E, {}), record(0x0415, {1, 1, 0, 0}),
               record(0x0220, {3, 5}), square, record(0x0127, {-1}), square}),
       {"rr......", "rr......", none, "......r.", ".....rr.", none}},
      {"in the box of a region",
       filled({record(0x06FF, {0, 6, 0, 0, 0, 0, 0, 2, 1, 5, 4}), record(0x012C, {1}), square,
               record(0x012C, {0}), record(0x041B, {6, 8, 5, 7})}),
       {none, "..rrr...", "..rrr...", "..rrr...", none, ".......r"}},
      {"a pattern of dots",
       {record(0x0142, {5, 0},
               dib(2, 2, 8, {0, 0, 255, 0, 255, 255, 255, 0}, {0, 0, 0, 0, 0, 1, 0, 0})),
        select, no_pen, record(0x012D, {1}), record(0x041B, {4, 7, 1, 1})},
       {none, ".rrrrrr.", "..r.r.r.", ".rrrrrr.", none, none}},
      {"a pattern for a device",
       {record(0x01F9, {},
               [] {
                 Bytes pattern(36);
                 const Bytes head = {0, 0, 2, 0, 2, 0, 2, 0, 1, 1};
                 std::ranges::copy(head, pattern.begin());
                 pattern[32] = 0x80;
                 pattern[34] = 0x40;
                 return pattern;
               }()),
        select, no_pen, record(0x012D, {1}), record(0x041B, {3, 5, 0, 1})},
       {".#.#....", "..#.#...", ".#.#....", none, none, none}},
      {"a dot", {record(0x041F, {0xFF, 0, 2, 3})}, {none, none, "...r....", none, none, none}},
  };
  for (const auto& [what, records, rows] : cases) {
    std::vector<std::string> seen;
    for (const Pixels& row : dots(decoded(decode_wmf, metafile({0, 0, 8, 6, 96}, records)))) {
      seen.emplace_back();
      for (const std::uint32_t dot : row) {
        seen.back() += dot == W ? '.' : dot == 0 ? '#' : dot == 0xFF0000 ? 'r' : '?';
      }
    }
    EXPECT_EQ(seen, rows) << what;
  }
}

struct Box4 {
  int left, top, right, bottom;
  bool operator==(const Box4&) const = default;
};

// Around the dots of a colour.
Box4 box_of(const std::vector<Pixels>& rows, std::uint32_t colour) {
  Box4 box{1 << 20, 1 << 20, -1, -1};
  for (int y = 0; y < std::ssize(rows); ++y) {
    for (int x = 0; x < std::ssize(rows[y]); ++x) {
      if (rows[y][x] != colour) continue;
      box = {std::min(box.left, x), std::min(box.top, y), std::max(box.right, x + 1),
             std::max(box.bottom, y + 1)};
    }
  }
  return box;
}

// Of a cell of 58 dots: a capital is 36 high and stands 13 above the cell's end, letters are 25 apart,
// strokes are 4 wide.
TEST(Wmf, LettersStandWhereTheirAlignmentSays) {
  const auto font = [](int height, int angle, int weight, Bytes flags) {
    flags.resize(42);
    return record(0x02FB, {height, 0, angle, angle, weight}, flags);
  };
  const Bytes plain = font(58, 0, 400, {}), select = record(0x012D, {0});
  const Bytes clear = record(0x0102, {1}), move = record(0x0214, {100, 100});
  const auto align = [](int how) { return record(0x012E, {how}); };
  const Bytes text = record(0x0521, {2}, {'H', 'H', 100, 0, 100, 0});
  const auto far = [&](int options, const Words& more) {
    Words words = {100, 100, 2, options};
    words.insert(words.end(), more.begin(), more.end());
    return record(0x0A32, words);
  };
  const int hh = 'H' | 'H' << 8;
  const struct {
    const char* what;
    std::vector<Bytes> records;
    Box4 box;
  } cases[] = {
      {"from the left and the top", {plain, select, clear, text}, {101, 107, 149, 147}},
      {"to the right", {plain, select, clear, align(2), text}, {51, 107, 99, 147}},
      {"around", {plain, select, clear, align(6), text}, {76, 107, 124, 147}},
      {"above", {plain, select, clear, align(8), text}, {101, 49, 149, 89}},
      {"on it", {plain, select, clear, align(24), text}, {101, 62, 149, 102}},
      {"one behind the other",
       {plain, select, clear, align(1), move, text, text},
       {101, 107, 199, 147}},
      {"as high as its letters",
       {font(-50, 0, 400, {}), select, clear, text},
       {101, 107, 149, 147}},
      {"upwards", {font(58, 900, 400, {}), select, clear, text}, {107, 51, 147, 99}},
      {"upside down", {font(58, -1800, 400, {}), select, clear, text}, {51, 53, 99, 93}},
      {"bold", {font(58, 0, 700, {}), select, clear, text}, {100, 106, 150, 148}},
      {"slanted", {font(58, 0, 400, {1}), select, clear, text}, {101, 107, 156, 147}},
      {"underlined", {font(58, 0, 400, {0, 1}), select, clear, text}, {98, 107, 152, 153}},
      {"struck", {font(58, 0, 400, {0, 0, 1}), select, clear, text}, {98, 107, 152, 147}},
      {"with widths", {plain, select, clear, far(0, {hh, 50, 25})}, {103, 107, 174, 147}},
      {"in an area", {plain, select, clear, far(4, {110, 0, 140, 130, hh})}, {110, 107, 140, 130}},
  };
  for (const auto& [what, records, box] : cases) {
    const Box4 seen = box_of(dots(decoded(decode_wmf, metafile({0, 0, 220, 220, 96}, records))), 0);
    EXPECT_EQ(seen, box) << what << ": " << seen.left << ' ' << seen.top << ' ' << seen.right << ' '
                         << seen.bottom;
  }
  const Bytes red = record(0x0201, {255, 0}), blue = record(0x0209, {0, 255});
  const auto rows =
      dots(decoded(decode_wmf, metafile({0, 0, 220, 220, 96}, {plain, select, red, blue, text})));
  EXPECT_EQ(box_of(rows, 0xFF0000), (Box4{100, 100, 150, 158}));
  EXPECT_EQ(box_of(rows, 0x0000FF), (Box4{101, 107, 149, 147}));
  const auto filled =
      dots(decoded(decode_wmf, metafile({0, 0, 220, 220, 96}, {red, far(2, {1, 2, 200, 210})})));
  EXPECT_EQ(box_of(filled, 0xFF0000), (Box4{1, 2, 200, 210}));
}

TEST(Wmf, SizesComeFromTheBoxOrTheWindow) {
  const auto size = [](const Bytes& file) {
    const BitmapInfoHeader header = decoded(decode_wmf, file).header.header;
    return std::vector<int>{header.biWidth, header.biHeight, header.biXPelsPerMeter};
  };
  EXPECT_EQ(size(metafile({10, 20, 1450, 740, 1440}, {})), (std::vector{96, 48, 96}));
  EXPECT_EQ(size(metafile({1, 0, 0, 1, 1000}, {})), (std::vector{1, 1, 1000}));
  EXPECT_EQ(size(metafile({-32768, 0, 32767, 10, 1}, {})), (std::vector{4096, 1, 0}));
  EXPECT_EQ(size(metafile({}, {record(0x020B, {5, 5}), record(0x020C, {-30, 40})}, false)),
            (std::vector{40, 30, 96}));
  Bytes part = metafile({}, {record(0x020C, {300, 400})}, false);
  CollectingSink sink;
  open_memory_stream(part.data(), part.size());
  EXPECT_EQ(wmf::decode_part({.stream = kMemoryStream, .sink = sink.sink()},
                             {.width = 5080, .height = 2540}),
            kOk);
  EXPECT_EQ(sink.header.header.biWidth, 192);
  EXPECT_EQ(sink.header.header.biHeight, 96);
}

TEST(Wmf, RefusesWhatCannotBe) {
  for (const Box& box : {Box{.right = 0}, Box{.bottom = 0}, Box{.inch = 0}})
    decoded(decode_wmf, metafile(box, {}), -3);
  decoded(decode_wmf, metafile({}, {}, false), -3);
  for (const std::size_t bytes : {3u, 21u, 39u}) {
    Bytes file = metafile({}, {});
    file.resize(bytes);
    decoded(decode_wmf, file, -12);
  }
  Bytes file = metafile({}, {});
  file[24] = 8;  // words of the header
  decoded(decode_wmf, file, -3);
  const Bytes huge = dib(0x7FFFFFF, 0x7FFFFFF, 1, {}, {});
  const Bytes record_of_huge = record(0x0F43, stretch(kCopy, {2, 2, 0, 0}, {2, 2, 0, 0}), huge);
  EXPECT_EQ(decoded(decode_wmf, metafile({}, {record_of_huge, record_of_huge})).rows.size(), 3u);
}

TEST(Wmf, SavesWhatItReads) {
  for (const int bits : {1, 4, 8, 24, 32}) {
    HeaderBlock image = grey_image(5, 2, bits);
    image.header.biXPelsPerMeter = image.header.biYPelsPerMeter = 200;
    const std::vector<Bytes> rows = {pack({1, 1, 0, 0, 1}, bits), pack({1, 0, 1, 1, 0}, bits)};
    const CollectingSink back = decoded(decode_wmf, encoded(encode_wmf, image, rows));
    EXPECT_EQ(back.header.header.biBitCount, bits == 32 ? 24 : bits);
    EXPECT_EQ(back.header.header.biXPelsPerMeter, 200);
    EXPECT_EQ(dots(back), (std::vector<Pixels>{{1, 1, 0, 0, 1}, {1, 0, 1, 1, 0}}));
  }
  const auto check = [](int width, int bits, bool cmyk) {
    HeaderBlock image = dib_header(width, 1, bits);
    return wmf::can_encode_wmf({.stream{}, .image = &image, .rows{}, .cmyk = cmyk}).raw();
  };
  EXPECT_EQ(check(32767, 24, false), 0);
  EXPECT_EQ(check(32768, 24, false), -7);
  EXPECT_EQ(check(1, 16, false), -21);
  EXPECT_EQ(check(1, 32, true), -21);
}

}  // namespace
}  // namespace tq::test
