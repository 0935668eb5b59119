// Image packs built sector by sector: plain sizes, and rows of differences in any order.
#include "core/numbers.h"
#include "formats/simple/simple.h"
#include "tests/support/codec_runs.h"

namespace tq::test {
namespace {

using simple::count_photo_cd_pages;
using simple::decode_photo_cd;

constexpr std::size_t kSector = 2048;
constexpr int kSectorOf768 = 96, kSectorOf1536 = 388;

// Brightness 7 x + 5 y and one colour, of the three plain sizes.
Bytes image_pack(int first = 156, int second = 137, int turns = 0) {
  Bytes file(kSector * kSectorOf768, 0xFF);
  const std::string name = "PCD_IPI";
  std::copy(name.begin(), name.end(), file.begin() + kSector);
  file[kSector + 1538] = byte(0x80 | turns);
  for (const auto& [width, sector] : {std::pair{192, 4}, {384, 23}, {768, kSectorOf768}}) {
    file.resize(std::max(file.size(), kSector * sector + static_cast<std::size_t>(width * width)));
    std::uint8_t* out = &file[kSector * static_cast<std::size_t>(sector)];
    for (int y = 0; y < width / 3 * 2; ++y) {
      for (int x = 0; x < width; ++x) *out++ = byte(7 * x + 5 * y);
      if (y % 2 == 0) continue;
      out = std::fill_n(out, width / 2, byte(first));
      out = std::fill_n(out, width / 2, byte(second));
    }
  }
  return file;
}

class Bits {
 public:
  void put(std::uint32_t value, int count) {
    while (count-- > 0) {
      if (used_++ % 8 == 0) bytes.push_back(0);
      bytes.back() |= byte((value >> count & 1) << (7 - (used_ - 1) % 8));
    }
  }
  void mark(int plane, int row) {
    put(0xFFFFFE, 24);
    put(static_cast<std::uint32_t>(plane << 14 | row << 1), 16);
  }
  Bytes bytes;

 private:
  int used_ = 0;
};

// 0: the same; 10: 50 more; 110: 20 less.
const Bytes kTable = {2, 0, 0, 0, 0, 1, 0x80, 0, 50, 2, 0xC0, 0, 236};

void append(Bytes& file, std::size_t sector, int tables, const Bits& rows) {
  file.resize(sector * kSector);
  for (int i = 0; i < tables; ++i) file.insert(file.end(), kTable.begin(), kTable.end());
  file.insert(file.end(), 5, 0);
  file.insert(file.end(), rows.bytes.begin(), rows.bytes.end());
}

int grey(int luminance) {
  return std::clamp((89024 * luminance + 32768) >> 16, 0, 255);
}
int plain(int x, int y) {
  return (7 * x + 5 * y) & 255;
}
// Of a picture doubled by means.
int doubled(int x, int y, int width, int height) {
  const int left = x / 2, right = std::min((x + 1) / 2, width - 1), upper = y / 2,
            lower = std::min((y + 1) / 2, height - 1);
  return (plain(left, upper) + plain(right, upper) + plain(left, lower) + plain(right, lower) + 2) /
         4;
}

CollectingSink page_of(Bytes& file, int page, int status = 0) {
  CollectingSink sink;
  open_memory_stream(file.data(), file.size());
  EXPECT_EQ(decode_photo_cd({.stream = kMemoryStream, .sink = sink.sink(), .page = page}).raw(),
            status);
  return sink;
}

int pages_of(Bytes& file) {
  open_memory_stream(file.data(), file.size());
  return count_photo_cd_pages(kMemoryStream).raw();
}

TEST(PhotoCd, PlainSizesArePagesTheLargestFirst) {
  Bytes file = image_pack(156, 137, 1);
  EXPECT_EQ(pages_of(file), 3);
  for (int page = 0; page < 3; ++page) {
    const int width = 768 >> page, height = 512 >> page;
    const CollectingSink sink = page_of(file, page);
    ASSERT_EQ(sink.header.header.biWidth, width);
    ASSERT_EQ(sink.rows.size(), static_cast<std::size_t>(height));
    for (int y = 0; y < height; y += 37) {
      for (int x = 0; x < 3 * width; ++x)
        EXPECT_EQ(sink.rows[static_cast<std::size_t>(y)].bytes[static_cast<std::size_t>(x)],
                  grey(plain(x / 3, y)));
    }
  }
  page_of(file, 3, -31);
  open_memory_stream(file.data(), file.size());
  EXPECT_EQ(simple::find_photo_cd_orientation(kMemoryStream, {}).raw(), 8);
  // Brightness 0 and colours: what the formula makes of them, and cut off at 0.
  file = image_pack(156 + 40, 137 + 30);
  const Bytes row = page_of(file, 2).rows[0].bytes;
  EXPECT_EQ(Bytes(row.begin(), row.begin() + 3), (Bytes{89, 0, 55}));
}

TEST(PhotoCd, LargerSizesAreDifferencesFromTheDoubledOne) {
  Bytes file = image_pack();
  Bits rows;
  rows.mark(0, 9);  // out of order, and not all of them
  for (int x = 0; x < 1536; ++x)
    rows.put(x == 3 ? 2 : x == 1535 ? 6 : 0, x == 3 ? 2 : x == 1535 ? 3 : 1);
  rows.put(0, 19);
  rows.mark(0, 1);
  rows.put(2, 2);
  rows.put(7, 3);  // no code: the rest of the row stays
  rows.put(0, 9);
  rows.mark(2, 2);  // there are no colours in this size
  rows.mark(0, 1024);
  append(file, kSectorOf1536, 1, rows);
  ASSERT_EQ(pages_of(file), 4);
  const CollectingSink sink = page_of(file, 0);
  ASSERT_EQ(sink.header.header.biWidth, 1536);
  ASSERT_EQ(sink.rows.size(), 1024u);
  for (const int y : {0, 1, 9, 10, 511, 1023}) {
    for (int x = 0; x < 1536; ++x) {
      int level = doubled(x, y, 768, 512);
      if ((y == 9 && x == 3) || (y == 1 && x == 0)) level = std::min(level + 50, 255);
      if (y == 9 && x == 1535) level = std::max(level - 20, 0);
      ASSERT_EQ(sink.rows[static_cast<std::size_t>(y)].bytes[static_cast<std::size_t>(3 * x)],
                grey(level))
          << x << ", " << y;
    }
  }

  // The end of these rows tells where the largest size begins.
  const std::size_t last = (file.size() - 1) / kSector;
  Bits largest;
  largest.mark(2, 2);
  largest.put(2, 2);  // of the colours at (0, 1)
  largest.mark(0, 2047);
  largest.mark(1, 0);
  append(file, last + 13, 3, largest);
  ASSERT_EQ(pages_of(file), 5);
  const CollectingSink all = page_of(file, 0);
  ASSERT_EQ(all.header.header.biWidth, 3072);
  ASSERT_EQ(all.rows.size(), 2048u);
  const Bytes& second = all.rows[2].bytes;
  const int level = second[3 * 8];
  EXPECT_EQ(grey(plain(0, 0)), all.rows[0].bytes[0]);
  EXPECT_GT(second[0], level);  // blue by 50 of the first colour
  EXPECT_EQ(page_of(file, 1).image(), sink.image());
}

TEST(PhotoCd, DamageAndOtherFiles) {
  Bytes file = image_pack();
  file[kSector] = 'X';
  decoded(decode_photo_cd, file, -3);
  file.resize(2000);
  decoded(decode_photo_cd, file, -12);
  // Codes of 17 bits, or no mark: the size is not there.
  for (const bool long_codes : {true, false}) {
    Bytes larger = image_pack();
    Bits rows;
    if (long_codes) rows.mark(0, 1024);
    append(larger, kSectorOf1536, 1, rows);
    if (long_codes) larger[kSectorOf1536 * kSector + 1] = 16;
    EXPECT_EQ(pages_of(larger), 3);
  }
  Bytes cut = image_pack();
  cut.resize(kSector * kSectorOf768 + 768 * 3 * 10 + 5);
  EXPECT_EQ(page_of(cut, 0).rows.size(), 20u);
}

}  // namespace
}  // namespace tq::test
