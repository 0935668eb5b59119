// C4 drawings as no program here writes them: tiles in any order, plain, missing or spoilt.
#include "core/numbers.h"
#include "formats/simple/simple.h"
#include "io/endian.h"
#include "tests/support/codec_runs.h"
#include "tests/support/fax_page.h"
#include "tests/support/shown_rows.h"

namespace tq::test {
namespace {

using simple::decode_jed;

constexpr std::size_t kPlain = 32768;

struct Tile {
  int number;
  Bytes data;
  int claimed = -1;  // bytes
};

// Black where the first bits of the tile's first row are.
Tile plain(int number, Bytes first) {
  first.resize(kPlain);
  return {number, first};
}

Bytes drawing(int width_bytes, int height, int count, int format, const std::vector<Tile>& tiles) {
  Bytes file(128);
  file[0] = 128;
  store_le16(&file[4], word(height));
  store_le16(&file[6], word(width_bytes));
  store_be32(&file[8], static_cast<std::uint32_t>(128 + 4 * tiles.size()));
  file[12] = byte(count);
  file[36] = byte(format);
  for (const Tile& tile : tiles) {
    const auto bytes = tile.claimed < 0 ? tile.data.size() : static_cast<std::size_t>(tile.claimed);
    file.insert(file.end(), {byte(tile.number), byte(tile.data.size() == kPlain), byte(bytes),
                             byte(bytes >> 8)});
  }
  for (const Tile& tile : tiles) file.insert(file.end(), tile.data.begin(), tile.data.end());
  return file;
}

TEST(Jed, TilesInAnyOrderOrMissing) {
  const Bytes halves = {0b00100110, 0b10100101, 0b00101111};  // 4 white, 508 black
  const std::string white(512, '.'), black(508, '#');
  const auto rows = [](const Bytes& file) { return art_of(decoded(decode_jed, file)); };
  const auto expect = [&](const Art& art, const std::string& first, const std::string& below) {
    ASSERT_EQ(art.size(), 513u);
    EXPECT_EQ(art[0], first);
    EXPECT_EQ(art[512], below);
  };
  const std::string left = "#.#" + std::string(509, '.'), right = "##......",
                    under = ".#" + std::string(510, '.');
  const std::vector<Tile> tiles = {plain(0, {0xA0}), plain(1, {0xC0}), plain(2, {0x40}),
                                   plain(3, {0x80})};
  expect(rows(drawing(65, 513, 4, 4, tiles)), left + right, under + "#.......");
  expect(rows(drawing(65, 513, 0, 6, tiles)), left + right, under + "#.......");
  expect(rows(drawing(65, 513, 4, 4, {tiles[3], tiles[1], tiles[0], tiles[2]})), left + right,
         under + "#.......");
  expect(rows(drawing(65, 513, 4, 4, {tiles[1], {9, {1, 2, 3}}, {2, {}, 60000}, tiles[0]})),
         white + right, white + "........");
  expect(rows(drawing(65, 513, 4, 4, {})), white + "........", white + "........");
}

TEST(Jed, RefusesWhatCannotBe) {
  decoded(decode_jed, Bytes(127, 0), -12);
  decoded(decode_jed, drawing(0, 1, 0, 4, {}), -3);
  decoded(decode_jed, drawing(1, 0, 0, 4, {}), -3);
  decoded(decode_jed, drawing(1, 1, 2, 4, {}), -3);
  decoded(decode_jed, drawing(0xFFFF, 0xFFFF, 0, 6, {}), -1);
}

// Noise is stored plain; above 252 tiles they have no numbers.
TEST(Jed, WhatIsSavedIsReadBack) {
  const struct {
    int width, height, run;
    int format;
  } cases[] = {{1, 1, 1, 4}, {513, 700, 20, 4}, {1000, 513, 1, 4}, {130000, 3, 900, 6}};
  for (const auto& c : cases) {
    const Page page = printed_page(c.width, c.height, c.run, 5);
    const HeaderBlock image = grey_image(c.width, c.height, 1);
    const Bytes file = encoded(simple::encode_jed, image, bits_of(page));
    EXPECT_EQ(file[36], c.format);
    const Art art = art_of(decoded(decode_jed, file));
    ASSERT_EQ(art.size(), page.size());
    for (std::size_t y = 0; y < page.size(); ++y) {
      std::string row((page[y].size() + 7) / 8 * 8, '.');
      for (std::size_t x = 0; x < page[y].size(); ++x) row[x] = page[y][x] ? '#' : '.';
      ASSERT_EQ(art[y], row) << y;
    }
  }
  HeaderBlock image = grey_image(8, 65536, 1);
  EXPECT_EQ(simple::can_encode_jed({.stream{}, .image = &image, .rows{}}).raw(), -7);
  image = grey_image(8, 8, 8);
  EXPECT_EQ(simple::can_encode_jed({.stream{}, .image = &image, .rows{}}).raw(), -21);
}

}  // namespace
}  // namespace tq::test
