// Compound files built sector by sector around pictures of few tiles, and around nothing that makes sense.
#include "formats/fpx/fpx.h"

#include <string>

#include "core/numbers.h"
#include "formats/jpeg/jpeg.h"
#include "io/endian.h"
#include "tests/support/codec_runs.h"

namespace tq::test {
namespace {

using fpx::decode_fpx;

constexpr std::uint32_t kNone = 0xFFFFFFFF, kEnd = 0xFFFFFFFE;
constexpr std::size_t kSector = 512, kMiniSector = 64, kLeast = 4096;

void put32(Bytes& bytes, std::size_t at, std::uint32_t value) {
  if (bytes.size() < at + 4) bytes.resize(at + 4);
  store_le32(&bytes[at], value);
}

struct TileData {
  std::uint32_t coding = 0xFFFFFFFF;
  Bytes data{};
  Bytes more{0, 0, 0, 0};
};

struct Picture {
  std::uint32_t width = 2, height = 2;
  std::vector<std::uint32_t> colours = {0x30000, 0x30001, 0x30002};
  std::vector<TileData> tiles;
  Bytes tables{};  // of JPEG, with the number 1
  std::uint32_t side = 64, channels = 0;
};

// "Image Contents": two values, of the resolution 1.
Bytes contents_of(const Picture& picture) {
  Bytes bytes(44);
  put32(bytes, 44, 48);  // of the section
  put32(bytes, 52, 2);
  put32(bytes, 56, 0x02010002);
  put32(bytes, 60, 100);
  put32(bytes, 64, 0x03010001);
  put32(bytes, 68, 200);
  put32(bytes, 148, 65);
  put32(bytes, 152, static_cast<std::uint32_t>(8 + 4 * picture.colours.size()));
  put32(bytes, 160, static_cast<std::uint32_t>(picture.colours.size()));
  for (std::size_t i = 0; i < picture.colours.size(); ++i)
    put32(bytes, 164 + 4 * i, picture.colours[i]);
  put32(bytes, 248, 65);
  put32(bytes, 252, static_cast<std::uint32_t>(picture.tables.size()));
  bytes.insert(bytes.end(), picture.tables.begin(), picture.tables.end());
  return bytes;
}

struct Streams {
  Bytes head, data;
};
Streams streams_of(const Picture& picture) {
  Streams streams{Bytes(28), Bytes(28)};
  const auto channels = static_cast<std::uint32_t>(picture.colours.size());
  const std::uint32_t fields[] = {36,
                                  picture.width,
                                  picture.height,
                                  static_cast<std::uint32_t>(picture.tiles.size()),
                                  picture.side,
                                  picture.side,
                                  picture.channels == 0 ? channels : picture.channels,
                                  36,
                                  16};
  for (const std::uint32_t field : fields) put32(streams.head, streams.head.size(), field);
  for (const TileData& tile : picture.tiles) {
    put32(streams.head, streams.head.size(), static_cast<std::uint32_t>(streams.data.size() - 28));
    put32(streams.head, streams.head.size(), static_cast<std::uint32_t>(tile.data.size()));
    put32(streams.head, streams.head.size(), tile.coding);
    streams.head.insert(streams.head.end(), tile.more.begin(), tile.more.end());
    streams.data.insert(streams.data.end(), tile.data.begin(), tile.data.end());
  }
  return streams;
}

// Sectors: the table of chains, 3 of the directory, the table of short streams, these; then long ones.
constexpr std::size_t kTable = kSector, kDirectory = 2 * kSector, kMiniTable = 5 * kSector;
struct Entry {
  std::string name;
  int type;
  std::uint32_t left = kNone, right = kNone, child = kNone;
  const Bytes* content = nullptr;
};

Bytes compound(const Picture& picture) {
  const Streams streams = streams_of(picture);
  const Bytes contents = contents_of(picture);
  const Entry entries[] = {{"Root Entry", 5, kNone, kNone, 1},
                           {"Data Object Store 000001", 1, kNone, 2, 4},
                           {"\5SummaryInformation", 2},
                           {"Resolution 0000", 1},
                           {"\5Image Contents", 2, 3, 5, kNone, &contents},
                           {"Resolution 0001", 1, kNone, 8, 6},
                           {"Subimage 0000 Header", 2, 7, kNone, kNone, &streams.head},
                           {"Subimage 0000 Data", 2, kNone, kNone, kNone, &streams.data},
                           {"Resolution 001x", 1}};
  const std::uint8_t picture_class[] = {0x00, 0x67, 0x61, 0x56, 0x54, 0xC1, 0xCE, 0x11,
                                        0x85, 0x53, 0x00, 0xAA, 0x00, 0xA1, 0xF9, 0x5B};
  Bytes file = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
  file.resize(kMiniTable + kSector, 0xFF);
  file[30] = 9;
  file[31] = file[33] = 0;
  file[32] = 6;
  for (const auto& [at, value] : std::initializer_list<std::pair<std::size_t, std::uint32_t>>{
           {44, 1}, {48, 1}, {60, 4}, {64, 1}, {68, kEnd}, {76, 0}}) {
    put32(file, at, value);
  }
  const auto chain = [&](std::size_t table, std::size_t first, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      const auto next = static_cast<std::uint32_t>(first + i + 1);
      put32(file, table + 4 * (first + i), i + 1 < count ? next : kEnd);
    }
  };
  chain(kTable, 1, 3);
  chain(kTable, 4, 1);
  Bytes minis;
  std::size_t mini_sectors = 0;
  const auto sectors_of = [](const Bytes& bytes, std::size_t size) {
    return (bytes.size() + size - 1) / size;
  };
  for (const Entry& entry : entries) {
    if (entry.content == nullptr || entry.content->size() >= kLeast) continue;
    minis.insert(minis.end(), entry.content->begin(), entry.content->end());
    mini_sectors += sectors_of(*entry.content, kMiniSector);
    minis.resize(mini_sectors * kMiniSector);
  }
  std::size_t sector = 5, mini = 0;
  chain(kTable, sector, sectors_of(minis, kSector));
  file.insert(file.end(), minis.begin(), minis.end());
  sector += sectors_of(minis, kSector);
  file.resize(kSector * (sector + 1));
  for (std::size_t i = 0; i < std::size(entries); ++i) {
    const Entry& entry = entries[i];
    std::uint8_t* const out = &file[kDirectory + 128 * i];
    std::fill_n(out, 128, std::uint8_t{0});
    for (std::size_t k = 0; k < entry.name.size(); ++k) out[2 * k] = byte(entry.name[k]);
    out[64] = byte(2 * entry.name.size() + 2);
    out[66] = byte(entry.type);
    store_le32(out + 68, entry.left);
    store_le32(out + 72, entry.right);
    store_le32(out + 76, entry.child);
    std::size_t first = 5, size = minis.size();
    if (i == 0) {
      std::ranges::copy(picture_class, out + 80);
    } else if (entry.content != nullptr && entry.content->size() >= kLeast) {
      first = sector;
      size = entry.content->size();
      chain(kTable, sector, sectors_of(*entry.content, kSector));
      sector += sectors_of(*entry.content, kSector);
    } else if (entry.content != nullptr) {
      first = mini;
      size = entry.content->size();
      chain(kMiniTable, mini, sectors_of(*entry.content, kMiniSector));
      mini += sectors_of(*entry.content, kMiniSector);
    } else {
      size = 0;
    }
    store_le32(out + 116, static_cast<std::uint32_t>(first));
    store_le32(out + 120, static_cast<std::uint32_t>(size));
    if (entry.content != nullptr && entry.content->size() >= kLeast) {
      file.insert(file.end(), entry.content->begin(), entry.content->end());
      file.resize(kSector * (sector + 1));
    }
  }
  return file;
}

// Level x + 2 y of each channel, and 10 more from one channel to the next.
TileData plain_tile(int channels) {
  TileData tile{.coding = 0};
  for (int i = 0; i < 64 * 64; ++i) {
    for (int k = 0; k < channels; ++k) tile.data.push_back(byte(i % 64 + 2 * (i / 64) + 10 * k));
  }
  return tile;
}
TileData one_colour(Bytes colour) {
  return {1, {}, std::move(colour)};
}

Bytes start_of(const Bytes& row, int count) {
  return {row.begin(), row.begin() + count};
}

TEST(Fpx, TilesAreOfAnyCodingAndColours) {
  const std::vector<std::uint32_t> grey = {0x10000}, photo = {0x20000, 0x20001, 0x20002},
                                   opacity = {0x38000, 0x38001, 0x38002, 0x37FFE};
  const struct {
    const char* what;
    Picture picture;
    int bits;
    Bytes last_row;  // its first pixels
  } cases[] = {
      {"grey", {.colours = grey, .tiles = {plain_tile(1)}}, 8, {2, 3}},
      {"colours", {.tiles = {plain_tile(3)}}, 24, {22, 12, 2, 23, 13, 3}},
      {"one colour", {.tiles = {one_colour({1, 2, 3, 0})}}, 24, {3, 2, 1, 3, 2, 1}},
      {"luminance",
       {.colours = photo, .tiles = {one_colour({100, 156, 137, 0})}},
       24,
       {136, 136, 136}},
      {"chroma",
       {.colours = photo, .tiles = {one_colour({100, 166, 127, 0})}},
       24,
       {158, 141, 118}},
      {"nothing to see", {.colours = opacity, .tiles = {one_colour({1, 2, 3, 0})}}, 24, {255, 255}},
      {"opaque", {.colours = opacity, .tiles = {one_colour({1, 2, 3, 255})}}, 24, {3, 2, 1}},
      {"no tile", {.tiles = {{}}}, 24, {255, 255, 255}},
      {"no tile of luminance", {.colours = photo, .tiles = {{}}}, 24, {255, 255, 255}},
  };
  for (const auto& [what, picture, bits, last_row] : cases) {
    SCOPED_TRACE(what);
    const CollectingSink sink = decoded(decode_fpx, compound(picture));
    EXPECT_EQ(sink.header.header.biBitCount, bits);
    ASSERT_EQ(sink.image().size(), 2u);
    EXPECT_EQ(start_of(sink.image()[1], static_cast<int>(last_row.size())), last_row);
  }
  // Tiles side by side and below each other; one that makes no sense, one that is not there.
  const Picture four{.width = 66,
                     .height = 65,
                     .colours = grey,
                     .tiles = {plain_tile(1), one_colour({7, 0, 0, 0}), {9, {}, {0, 0, 0, 0}}}};
  const auto rows = decoded(decode_fpx, compound(four)).image();
  ASSERT_EQ(rows.size(), 65u);
  EXPECT_EQ(Bytes(rows[1].begin() + 62, rows[1].end()), (Bytes{64, 65, 7, 7, 0, 0}));
  EXPECT_EQ(Bytes(rows[64].begin() + 62, rows[64].end()), (Bytes{255, 255, 255, 255, 0, 0}));
}

// The stream of a tile with its tables and without; what stands between the marks is the same.
TEST(Fpx, TablesOfTilesStandApartOrWithThem) {
  std::vector<Bytes> rows;
  for (int y = 0; y < 64; ++y) {
    rows.emplace_back();
    for (int x = 0; x < 64; ++x) rows.back().push_back(byte(3 * x + y));
  }
  const Bytes stream = encoded(jpeg::encode_jpeg, grey_image(64, 64, 8), rows);
  Bytes tables = {0xFF, 0xD8}, rest = {0xFF, 0xD8};
  std::size_t at = 2;
  while (stream[at + 1] != 0xDA) {
    const std::size_t bytes = 2 + 256 * std::size_t{stream[at + 2]} + stream[at + 3];
    const bool is_table = stream[at + 1] == 0xDB || stream[at + 1] == 0xC4;
    Bytes& out = is_table ? tables : rest;
    out.insert(out.end(), &stream[at], &stream[at] + bytes);
    at += bytes;
  }
  rest.insert(rest.end(), stream.begin() + static_cast<std::ptrdiff_t>(at), stream.end());
  tables.insert(tables.end(), {0xFF, 0xD9});
  const auto expected = decoded(jpeg::decode_jpeg, stream).image();
  Bytes broken = rest;
  broken.resize(rest.size() / 2);
  const Picture picture{.width = 192,
                        .height = 64,
                        .colours = {0x10000},
                        .tiles = {{2, stream}, {2, rest, {0, 0, 0, 1}}, {2, broken, {0, 0, 0, 1}}},
                        .tables = tables};
  const auto seen = decoded(decode_fpx, compound(picture)).image();
  ASSERT_EQ(seen.size(), expected.size());
  for (std::size_t y = 0; y < seen.size(); ++y) {
    EXPECT_EQ(start_of(seen[y], 64), expected[y]);
    EXPECT_EQ(Bytes(seen[y].begin() + 64, seen[y].begin() + 128), expected[y]);
    EXPECT_EQ(Bytes(seen[y].begin() + 128, seen[y].end()), Bytes(64, 255));
  }
}

TEST(Fpx, WhatCannotBeIsRefusedAndRingsEnd) {
  const Picture whole{.tiles = {plain_tile(3)}};
  const Bytes file = compound(whole);
  const auto changed = [&](std::size_t at, std::uint32_t value, int status) {
    Bytes bytes = file;
    put32(bytes, at, value);
    SCOPED_TRACE(at);
    return decoded(decode_fpx, bytes, status);
  };
  changed(30, 0x0006000A, -3);
  changed(30, 0x00070009, -3);
  changed(kDirectory + 80, 1, -7);
  changed(kDirectory + 76, kNone, -3);
  changed(kDirectory + 128 * 5 + 76, 7, -3);
  decoded(decode_fpx, compound({.colours = {0x10000, 0x7FFE}, .tiles = {{}}}), -7);
  decoded(decode_fpx, compound({.colours = {0x30000, 0x30001, 0x30002, 0x30003}, .tiles = {{}}}),
          -7);
  decoded(decode_fpx, compound({.tiles = {{}}, .side = 32}), -7);
  decoded(decode_fpx, compound({.width = 0, .tiles = {{}}}), -3);
  decoded(decode_fpx, Bytes(file.begin(), file.begin() + 511), -12);
  // Sides that no image can have, in a file of few bytes.
  for (const std::uint32_t side : {0x200000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    CollectingSink sink;
    Bytes huge = compound({.width = side, .height = side, .tiles = {{}}});
    open_memory_stream(huge.data(), huge.size());
    EXPECT_LT(decode_fpx({.stream = kMemoryStream, .sink = sink.sink()}).raw(), 0);
    EXPECT_TRUE(sink.rows.empty());
  }
  // Entries and sectors that lead to each other, tables that are not there.
  const auto image = decoded(decode_fpx, file).image();
  EXPECT_EQ(changed(kDirectory + 128 * 3 + 68, 4, 0).image(), image);
  EXPECT_EQ(changed(kDirectory + 128 * 3 + 76, 1, 0).image(), image);
  EXPECT_EQ(changed(kTable + 4 * 3, 1, 0).image(), image);
  EXPECT_EQ(changed(44, 0xFFFFFFFF, 0).image(), image);
  EXPECT_EQ(changed(kDirectory + 128 * 7 + 120, 0xFFFFFFFF, 0).image(), image);
  changed(kTable + 4, 1, -3);
}

}  // namespace
}  // namespace tq::test
