// Image objects as no program here writes them: fields, codings, tiles and documents byte by byte.
#include "formats/ica/ica.h"

#include "core/numbers.h"
#include "formats/jpeg/jpeg.h"
#include "tests/support/codec_runs.h"
#include "tests/support/fax_page.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/shown_rows.h"

namespace tq::test {
namespace {

using ica::decode_ica;
using ica::decode_mca;

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

Bytes field(int code, const Bytes& data) {
  const bool is_long = code < 0x100;
  const Bytes head =
      is_long ? Bytes{byte(code), byte(data.size())}
              : Bytes{byte(code >> 8), byte(code), byte(data.size() >> 8), byte(data.size())};
  return head + data;
}

Bytes size_field(int width, int height, int unit = 0, int x = 3000, int y = 2000) {
  Bytes data = {byte(unit)};
  for (const int value : {x, y, width, height}) data = data + Bytes{byte(value >> 8), byte(value)};
  return field(0x94, data);
}

Bytes content(const Bytes& fields) {
  return Bytes{0x91, 1, 0xFF} + fields + Bytes{0x93, 0};
}
Bytes segment(const Bytes& contents) {
  return Bytes{0x70, 0} + contents + Bytes{0x71, 0};
}
Bytes picture(int width, int height, const Bytes& fields, const Bytes& data) {
  return segment(content(size_field(width, height) + fields + field(0xFE92, data)));
}

// From the top bit on; blanks do not count.
Bytes bits(std::string_view text) {
  Bytes bytes;
  int count = 0;
  for (const char c : text) {
    if (c == ' ') continue;
    if (count++ % 8 == 0) bytes.push_back(0);
    bytes.back() |= byte((c - '0') << (7 - (count - 1) % 8));
  }
  return bytes;
}

const Art kHalves = {"....####", "....####"};

TEST(Ica, BlackAndWhiteOfEveryCoding) {
  const Art columns = {"#.#", "##.", "..#"};
  const std::string row = "1011 011 ", eol = "000000000001 ";  // a row of halves by itself
  const struct {
    const char* name;
    int width, height;
    Bytes fields, data;
    Art shown;
  } cases[] = {
      {"plain", 3, 3, {}, {0xA0, 0xDF, 0x20}, columns},
      {"lowest bit first", 3, 3, field(0x95, {3, 1, 1}), {5, 3, 4}, columns},
      {"from the bottom", 3, 3, field(0x95, {3, 3}), {0x20, 0xC0, 0xA0}, columns},
      {"without padding", 3, 3, field(0x95, {3, 4}), bits("101 110 001"), columns},
      {"runs of bytes end with rows",
       16,
       2,
       field(0x95, {0x0C, 1}),
       {0xFD, 0xF0, 0, 0x0F, 0, 0xF0},
       {"####....####....", "....########...."}},
      {"Group 4", 8, 2, field(0x95, {0x82, 1}), bits("001 1011 011 1 1"), kHalves},
      {"Group 4 by another name",
       8,
       2,
       field(0x95, {0x82, 0xFE, 1}),
       {0b01101100, 0b00111111},
       kHalves},
      {"Group 3", 8, 2, field(0x95, {0x80, 1}), bits(eol + row + eol + row), kHalves},
      {"Group 3 both ways", 8, 2, field(0x95, {0x81, 1}), bits(eol + "1" + row + eol + "0 1 1"),
       kHalves},
      {"runs from bytes on", 8, 2, field(0x95, {9, 1}), bits(row + "0" + row), kHalves},
      {"the first row by itself", 8, 2, field(0x95, {1, 1}), bits(row + eol + "11" + eol + eol),
       kHalves},
      {"a bit behind its end",
       8,
       2,
       field(0x95, {1, 1}),
       bits(row + eol + "0 0001 1011 11"),
       {"....####", "........"}},
      {"no first row", 8, 2, field(0x95, {1, 1}), bits("001 1011 011 1 1"), kHalves},
      {"runs",
       8,
       3,
       field(0x95, {6, 1}),
       {0, 0, 0, 2, 0x33, 0xFF, 0, 2, 0, 2, 0xFE, 0x77},
       {"....####", "........", "########"}},
      {"runs from line 1 on",
       8,
       2,
       field(0x95, {6, 1}),
       {0, 1, 0, 1, 0x33, 0, 2, 0, 1, 0x33},
       kHalves},
      {"no height", 8, 0, field(0x95, {0x82, 1}), bits("001 1011 011 1 1 " + eol + eol), kHalves},
      {"one band", 8, 1, field(0x98, {1, 1}) + field(0xFE9C, {1, 0, 0, 0x0F}), {}, {"....####"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const CollectingSink sink = decoded(decode_ica, picture(c.width, c.height, c.fields, c.data));
    EXPECT_EQ(art_of(sink), c.shown);
    EXPECT_EQ(sink.header.header.biXPelsPerMeter, 300);
    EXPECT_EQ(sink.header.header.biYPelsPerMeter, 200);
  }
  // In runs of all lengths.
  const Bytes runs = bits("10111111 110 111111111 1110 111111111111 11110 000000000000000");
  Bytes lines = {0, 0, 0, byte(runs.size())};
  const Art wide = art_of(decoded(decode_ica, picture(9999, 1, field(0x95, {6, 1}), lines + runs)));
  EXPECT_EQ(wide.at(0), std::string(72, '.') + std::string(584, '#') + std::string(4680, '.') +
                            std::string(4663, '#'));
}

TEST(Ica, GreyAndColours) {
  const auto structure = [](int flags, int model, const Bytes& each) {
    return field(0x9B, Bytes{byte(flags), byte(model), 0, 0, 0} + each);
  };
  const Bytes rgb = structure(0, 1, {8, 8, 8}), inks = structure(0x80, 4, {8, 8, 8, 8});
  const struct {
    const char* name;
    Bytes fields, data;
    int bits;
    Bytes row;
    Rgb first;
  } cases[] = {
      {"2 bits", field(0x96, {2}), {0x1B, 0x40}, 4, {0x01, 0x23, 0x10, 0}, {0, 0, 0, 0}},
      {"3 bits",
       field(0x96, {3}),
       bits("111 000 001 010 101"),
       4,
       {0x70, 0x12, 0x50, 0},
       {0, 0, 0, 0}},
      {"inverted",
       field(0x96, {4}) + structure(0x80, 2, {4}),
       {0x12, 0x34, 0x50},
       4,
       {0x12, 0x34, 0x50, 0},
       {255, 255, 255, 0}},
      {"8 bits",
       field(0x96, {8}) + structure(0, 0x12, {8, 0, 0}),
       {1, 2, 3, 4, 5},
       8,
       {1, 2, 3, 4, 5, 0, 0, 0},
       {0, 0, 0, 0}},
      {"RGB",
       field(0x96, {24}) + rgb,
       {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15},
       24,
       {3, 2, 1, 6, 5, 4, 9, 8, 7, 12, 11, 10, 15, 14, 13, 0},
       {}},
      {"Cr before Cb",
       field(0x96, {24}) + structure(0, 2, {8, 8, 8}),
       {76, 255, 85, 76, 255, 85, 76, 255, 85, 76, 255, 85, 76, 255, 85},
       24,
       {0, 0, 254, 0, 0, 254, 0, 0, 254, 0, 0, 254, 0, 0, 254, 0},
       {}},
      {"Cb before Cr",
       field(0x96, {24}) + structure(0, 0x12, {8, 8, 8}) + field(0x95, {0x0C, 1}),
       {14, 76, 85, 255, 76, 85, 255, 76, 85, 255, 76, 85, 255, 76, 85, 255},
       24,
       {0, 0, 254, 0, 0, 254, 0, 0, 254, 0, 0, 254, 0, 0, 254, 0},
       {}},
      {"inks in bands",
       field(0x98, {4, 8, 8, 8, 8}) + inks + field(0xFE9C, {1, 0, 0, 10, 11, 12}) +
           field(0xFE9C, {3, 0, 0, 30, 31, 32, 33, 34}) + field(0xFE9C, {1, 0, 0, 13, 14}) +
           field(0xFE9C, {2, 0, 0, 20, 21, 22, 23, 24}) +
           field(0xFE9C, {4, 0, 0, 40, 41, 42, 43, 44}),
       {},
       32,
       {10, 20, 30, 40, 11, 21, 31, 41, 12, 22, 32, 42, 13, 23, 33, 43, 14, 24, 34, 44},
       {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const CollectingSink sink = decoded(decode_ica, picture(5, 1, c.fields, c.data));
    EXPECT_EQ(sink.header.header.biBitCount, c.bits);
    EXPECT_EQ(sink.header.palette[0], c.first);
    EXPECT_EQ(sink.rows.at(0).bytes, c.row);
  }
  const Bytes jpeg = file_content("corpus/jpeg/grey.jpg");
  Bytes parts;
  for (std::size_t at = 0; at < jpeg.size(); at += 100) {
    const auto end = jpeg.begin() + std::min(at + 100, jpeg.size());
    parts = parts + field(0xFE92, Bytes(jpeg.begin() + at, end));
  }
  const CollectingSink alone = decoded(jpeg::decode_jpeg, jpeg);
  const CollectingSink inside =
      decoded(decode_ica, picture(1, 1, field(0x95, {0x83, 1}) + parts, {}));
  EXPECT_EQ(inside.rows, alone.rows);
  EXPECT_EQ(inside.header.header.biXPelsPerMeter, 300);
}

Bytes tile(int x, int y, int width, int height, const Bytes& fields) {
  const auto pair = [](int first, int second) {
    return Bytes{0, 0, byte(first >> 8), byte(first), 0, 0, byte(second >> 8), byte(second)};
  };
  return Bytes{0x8C, 0} + field(0xB5, pair(x, y)) + field(0xB6, pair(width, height)) + fields +
         Bytes{0x8D, 0};
}

TEST(Ica, TilesLieAnyhow) {
  const auto plain = [](const Bytes& data) { return field(0xFE92, data); };
  const Bytes black = field(0x95, {0x20, 1});
  const auto shown = [](const Bytes& tiles) {
    return art_of(decoded(decode_ica, segment(content(field(0xFEBB, {0}) + tiles))));
  };
  const Bytes left = tile(0, 0, 3, 2, plain({0xA0, 0x40})), right = tile(3, 0, 2, 2, black),
              below = tile(1, 2, 3, 1, plain({0xE0}));
  const Art whole = {"#.###", ".#.##", ".###."};
  EXPECT_EQ(shown(left + right + below), whole);
  EXPECT_EQ(shown(below + right + left), whole);
  EXPECT_EQ(shown(right + left + tile(1, 1, 3, 1, plain({0x40}))), (Art{"#.###", "..#.#"}))
      << "over";
  Bytes half = {0, 0, 0, 2, 0, 0, 0, 1, 2};
  EXPECT_EQ(shown(tile(0, 0, 5, 1, black) + tile(1, 0, 2, 1, field(0xB6, half) + plain({0x40}))),
            (Art{"#..##", "...##"}))
      << "doubled";
  EXPECT_EQ(shown(left + tile(0, 5, 3, 2, plain({0xE0}))),
            (Art{"#.#", ".#.", "...", "...", "...", "###", "..."}))
      << "gaps, and what is missing";
}

TEST(Ica, RefusesWhatCannotBe) {
  const auto status = [](const Bytes& file, int expected) { decoded(decode_ica, file, expected); };
  const Bytes size = size_field(8, 1), data = field(0xFE92, {0});
  const auto with = [&](const Bytes& fields) { return segment(content(size + fields + data)); };
  status({'0', '0', '0', '0', '0'}, -3);
  status({'p', 'r', 'i', 'n', 't'}, -3);
  status(segment({}), -3);
  status(segment(content({})), -3);
  status(segment(content(data)), -3);
  status(segment(content(size)), -3);
  status(segment(content(size_field(0, 1) + data)), -3);
  status(segment(content(size_field(8, 0x8000) + data)), -3);
  status(picture(8, 0, field(0x95, {0x0C, 1}), {0, 0}), -3);
  status(picture(8, 0, field(0x95, {0x82, 1}), {}), -3);
  status(with({0xA0, 1, 9}), 0);  // unknown
  status(with({'!', 0}), -3);
  for (const int coding : {2, 0x84, 0x21}) status(with(field(0x95, {byte(coding), 1})), -7);
  status(with(field(0x95, {8, 1})), -1);
  status(with(field(0x95, {0x0D, 1})), -23);
  status(with(field(0x95, {3, 2})), -7);
  status(with(field(0x96, {16})), -7);
  status(with(field(0x9B, {0x40, 2, 0, 0, 0, 1})), -7);
  status(with(field(0x98, {3, 8, 8})), -3);
  status(with(field(0x98, {9, 8, 8, 8, 8, 8, 8, 8, 8, 8})), -7);
  status(with(field(0xFEB8, {})), -7);
  status(segment(content(tile(0xFFFF, 0, 1, 1, data))), -3);
  status(segment(content(tile(0, 0, 1, 1, field(0x96, {8}) + data))), -7);
  Bytes cut = with({});
  cut.resize(10);
  status(cut, -12);
  cut = picture(8, 3, {}, {1, 2, 3});
  cut.resize(cut.size() - 6);
  EXPECT_EQ(decoded(decode_ica, cut).rows.size(), 1u);
}

// --- Documents ---

Bytes structured(std::uint32_t code, const Bytes& data, int flags = 0) {
  const std::size_t length = 8 + data.size();
  return Bytes{byte(length >> 8),
               byte(length),
               byte(code >> 16),
               byte(code >> 8),
               byte(code),
               byte(flags),
               0,
               0} +
         data;
}

std::int32_t pages(Status (*count)(StreamHandle), Bytes file) {
  open_memory_stream(file.data(), file.size());
  return count(kMemoryStream).raw();
}

TEST(Mca, ObjectsArePagesHoweverTheyAreCut) {
  const Bytes first = picture(8, 2, {}, {0x0F, 0x0F}),
              second = segment(content(size_field(3, 1, 2) + field(0xFE92, {0xA0})));
  const Bytes begin = structured(0xD3A8FB, Bytes(8)), end = structured(0xD3A9FB, Bytes(8));
  const Bytes descriptor = structured(0xD3A6FB, {1, 3, 232, 7, 208, 0, 3, 0, 1});
  for (std::size_t piece = 1; piece < first.size(); ++piece) {
    Bytes file = structured(0xD3A8A8, {}) + begin;
    for (std::size_t at = 0; at < first.size(); at += piece) {
      const Bytes part(first.begin() + at, first.begin() + std::min(at + piece, first.size()));
      const Bytes ways[] = {structured(0xD3EEFB, part),
                            structured(0xD3EEFB, Bytes{3, 9, 9} + part, 0x80),
                            structured(0xD3EEFB, part + Bytes{0, 2}, 8),
                            structured(0xD3EEFB, part + Bytes{9, 0, 4, 0}, 8),
                            Bytes{0x5A} + structured(0xD3EEFB, part),
                            structured(0xD3EEEE, part) + structured(0xD3EEFB, part)};
      file = file + ways[at / piece % 6];
    }
    file = file + end + begin + descriptor + structured(0xD3EEFB, second) + end;
    EXPECT_EQ(art_of(decoded(decode_mca, file)), kHalves) << piece;
    EXPECT_EQ(pages(ica::count_mca_pages, file), 2);
    CollectingSink sink;
    open_memory_stream(file.data(), file.size());
    EXPECT_EQ(decode_mca({.stream = kMemoryStream, .sink = sink.sink(), .page = 1}), kOk);
    EXPECT_EQ(art_of(sink), Art{"#.#"});
    EXPECT_EQ(sink.header.header.biXPelsPerMeter, 254);
    EXPECT_EQ(sink.header.header.biYPelsPerMeter, 508);
    open_memory_stream(file.data(), file.size());
    EXPECT_EQ(decode_mca({.stream = kMemoryStream, .sink = sink.sink(), .page = 2}).raw(), -31);
  }
  const Bytes bare = descriptor + structured(0xD3EEFB, first);
  EXPECT_EQ(art_of(decoded(decode_mca, bare)), kHalves);
  EXPECT_EQ(pages(ica::count_mca_pages, bare + structured(0xD3EEFB, first)), 1);
  decoded(decode_mca, structured(0xD3A8A8, {}) + structured(0xD3A87B, {}), -7);
  decoded(decode_mca, structured(0xD3A8A8, {}) + Bytes{0, 7, 0xD3, 0xA8, 0xFB, 0, 0, 0}, -3);
  decoded(decode_mca, begin + end, -3);
  EXPECT_EQ(pages(ica::count_ica_pages, segment(content({}) + content({})) + segment(content({}))),
            3);
}

TEST(Mca, WhatIsSavedIsReadBack) {
  const Page page = printed_page(1001, 300, 20, 3);
  HeaderBlock image = grey_image(1001, 300, 1);
  image.header.biXPelsPerMeter = 204;
  for (const bool lists : {false, true}) {
    const struct {
      formats::Encoder encode;
      formats::Decoder decode;
    } ways[] = {{ica::encode_ica, decode_ica}, {ica::encode_mca, decode_mca}};
    for (const auto& [encode, decode] : ways) {
      PageSupplier rows(page, lists);
      const MemoryFile file;
      ASSERT_EQ(encode({MemoryFile::kHandle, &image, rows.supplier()}), kOk);
      const CollectingSink sink = decoded(decode, file.bytes);
      EXPECT_EQ(sink.header.header.biXPelsPerMeter, 204);
      EXPECT_EQ(sink.header.header.biYPelsPerMeter, 200);
      const Art art = art_of(sink);
      for (std::size_t y = 0; y < page.size(); ++y) {
        for (std::size_t x = 0; x < page[y].size(); ++x)
          ASSERT_EQ(art.at(y).at(x) == '#', page[y][x]);
      }
    }
  }
  image = grey_image(32768, 1, 1);
  EXPECT_EQ(ica::can_encode_ica({.stream{}, .image = &image, .rows{}}).raw(), -7);
  image = grey_image(1, 1, 4);
  EXPECT_EQ(ica::can_encode_ica({.stream{}, .image = &image, .rows{}}).raw(), -21);
}

// A page that cannot be written leaves the document as it was, whichever call fails.
TEST(Mca, PagesAreAddedOrNothingChanges) {
  HeaderBlock image = grey_image(16, 2, 1);
  const Page page = printed_page(16, 2, 3, 1);
  MemoryFile file;
  const auto add = [&](int failed_row = -1) {
    PageSupplier rows(page, true);
    rows.failed_row = failed_row;
    file.position = 0;
    return ica::encode_mca({MemoryFile::kHandle, &image, rows.supplier()}).raw();
  };
  EXPECT_EQ(add(), 0);
  const Bytes one = file.bytes;
  EXPECT_EQ(add(1), -777);
  EXPECT_EQ(file.bytes, one);
  for (const Bytes& spoilt : {one + Bytes{0}, Bytes(one.begin(), one.end() - 1), Bytes{1, 2, 3}}) {
    file.bytes = spoilt;
    EXPECT_EQ(add(), -3);
    EXPECT_EQ(file.bytes, spoilt);
  }
  for (int call = 0;; ++call) {
    file.bytes = one;
    file.calls = 0;
    file.failing_call = call;
    const std::int32_t added = add();
    file.failing_call = -1;
    if (added == 0) break;
    file.bytes.resize(std::min(file.bytes.size(), one.size()));  // a caller's own file is not cut
    EXPECT_EQ(file.bytes, one) << call;
  }
  for (int pages = 2;; ++pages) {
    file.position = 0;
    EXPECT_EQ(ica::count_mca_pages(MemoryFile::kHandle).raw(), pages);
    if (pages == 100) break;
    EXPECT_EQ(add(), 0);
  }
}

}  // namespace
}  // namespace tq::test
