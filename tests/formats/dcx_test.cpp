// Containers: choosing a page, adding one, and what must not be touched.
#include <gmock/gmock.h>

#include "formats/pcx/pcx.h"
#include "tests/support/collecting_sink.h"
#include "tests/support/guarded_block.h"
#include "tests/support/memory_file.h"
#include "tests/support/pcx_file.h"

namespace tq::test {
namespace {

using pcx::count_dcx_pages;
using pcx::decode_dcx;
using pcx::encode_dcx;

Status can_append() {
  formats::AppendPlace place;
  return pcx::can_append_dcx(MemoryFile::kHandle, place);
}

// One 8-bit pixel, and a palette whose entry 0 has the same red value.
Bytes page(std::uint8_t pixel) {
  return pcx_file({.size = {1, 1, 8, 1, 1}, .data = {pixel}, .tail = pcx_palette(pixel)});
}

struct Decoded {
  std::int32_t status;
  int pixel = -1, red = -1;
  friend bool operator==(const Decoded&, const Decoded&) = default;
};

// Page -1: the first of the file at `offset`.
Decoded decode(StreamHandle stream, std::int32_t page, std::int32_t offset = 0) {
  CollectingSink sink;
  Decoded decoded{decode_dcx({stream, offset, sink.sink(), page}).raw()};
  if (!sink.rows.empty()) {
    decoded.pixel = sink.rows[0].bytes[0];
    decoded.red = sink.header.palette[0].red;
  }
  return decoded;
}

Decoded decode(const Bytes& file, std::int32_t page) {
  MemoryFile stream(file);
  return decode(MemoryFile::kHandle, page);
}

TEST(DcxDecode, EveryPageHasItsOwnPixelsAndPalette) {
  const Bytes file = dcx_file({page(10), page(20), page(30)});
  const Decoded ten{1, 10, 10}, thirty{1, 30, 30};
  EXPECT_EQ(decode(file, 0), ten);
  EXPECT_EQ(decode(file, 1), (Decoded{1, 20, 20}));
  EXPECT_EQ(decode(file, 2), thirty);
  EXPECT_EQ(decode(file, 0x12340002), thirty) << "only 16 bits count";
  EXPECT_EQ(decode(file, 3).status, -11);
  EXPECT_EQ(decode(file, 0x7FFFFFFD).status, -11);
  EXPECT_EQ(decode(file, -1), ten) << "an offset means page 0";
  Bytes swapped = file;
  std::swap_ranges(&swapped[4], &swapped[8], &swapped[8]);
  EXPECT_EQ(decode(swapped, 1), ten) << "pages in any order";

  // In memory that does not say where it ends, the last palette is found behind its pixels.
  const GuardedBlock block(file);
  open_memory_stream(block.data());
  EXPECT_EQ(decode(kMemoryStream, 2), thirty);
  open_memory_stream(block.data());
  EXPECT_EQ(decode(kMemoryStream, 0), ten);
}

TEST(DcxDecode, TablesThatLie) {
  Bytes file = dcx_file({page(10), page(20)});
  for (const std::uint32_t offset : {0x7FFFFFFFu, 0xFFFFFFFFu}) {
    store_le32(&file[4], offset);
    EXPECT_EQ(decode(file, 0).status, -2);
    EXPECT_EQ(decode(file, 1), (Decoded{1, 20, 20})) << "no page begins there";
  }
  EXPECT_EQ(decode(Bytes{0xB1, 0x68, 0xDE}, 0).status, -3);
  EXPECT_EQ(decode(Bytes(70000, 1), 0).status, -3);
}

// A table that is full ends where the first page begins, one of too many entries at 1024.
TEST(DcxPages, AreCountedUpToTheFirstFreeEntry) {
  Bytes endless(4 + 4 * 3000, 1);
  store_le32(&endless[0], 987654321);
  const struct {
    Bytes content;
    int pages;
  } cases[] = {{dcx_file({}), 0},
               {dcx_file({page(1), page(2)}), 2},
               {dcx_file({page(1), page(2)}, 2), 2},
               {endless, 1024},
               {{endless.begin(), endless.begin() + 4 + 4 * 5 + 3}, 5}};
  for (const auto& c : cases) {
    MemoryFile file(c.content);
    EXPECT_EQ(count_dcx_pages(MemoryFile::kHandle).raw(), c.pages);
    EXPECT_EQ(decode(MemoryFile::kHandle, c.pages).status, -11);
  }
}

std::int32_t append(std::uint8_t pixel, std::int32_t at = 0,
                    StreamHandle stream = MemoryFile::kHandle) {
  HeaderBlock header = dib_header(1, 1, 8);
  header.palette.fill({1, 1, pixel, 0});
  GivenRows rows({{pixel, 0, 0, 0}});
  seek(stream, at, Origin::start);
  return encode_dcx({stream, &header, rows.supplier()}).raw();
}

TEST(DcxEncode, AddsPagesUntilTheTableIsFull) {
  MemoryFile file;
  for (int i = 0; i < 100; ++i) {
    const std::size_t before = file.bytes.size();
    EXPECT_EQ(can_append().raw(), 0);
    ASSERT_EQ(append(static_cast<std::uint8_t>(i)), 0) << i;
    EXPECT_EQ(load_le32(&file.bytes[4 + 4 * i]), i == 0 ? 404 : before);
  }
  const Bytes full = file.bytes;
  EXPECT_EQ(append(200), -7);
  EXPECT_EQ(file.bytes, full);
  file.position = 0;
  EXPECT_EQ(can_append().raw(), -7);
  EXPECT_EQ(file.position, 0);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(decode(MemoryFile::kHandle, i), (Decoded{1, i, i}));
  EXPECT_EQ(decode(MemoryFile::kHandle, 100).status, -11);
}

// Entry 0 is that of the only page, behind a table of so many entries.
TEST(DcxEncode, TablesOfOtherWritersMustHaveRoomForAZeroBehindTheEntry) {
  Bytes beside_others = dcx_file({page(1)}, 4);
  beside_others[12] = 99;  // behind the zero
  Bytes zero_behind_ours = dcx_file(std::vector<Bytes>(99, page(1)), 150);
  store_le32(&zero_behind_ours[404], 5000);  // entry 100
  Bytes lost = dcx_file({page(1), page(2)});
  lost.resize(load_le32(&lost[8]) - 1);
  Bytes cut = dcx_file({}, 40);
  store_le32(&cut[4], 404);
  cut.resize(14);
  const struct {
    const char* what;
    Bytes file;
    std::int32_t by_name, status;
  } cases[] = {{"nothing", {}, 0, 0},
               {"no container", {1, 2, 3}, -3, 0},
               {"another magic", Bytes(500, 7), -3, 0},
               {"one entry", dcx_file({page(1)}, 1), -7, -7},
               {"a zero", dcx_file({page(1)}, 2), -7, -7},
               {"room for a page", dcx_file({page(1)}, 3), 0, 0},
               {"a long table", dcx_file({page(1)}, 1024), 0, 0},
               {"a long table, its entry 100 in use", zero_behind_ours, -7, -7},
               {"pages behind the end", lost, -3, -3},
               {"an entry behind the end", beside_others, -7, -7},
               {"a table that is cut off", cut, -3, -3},
               {"all entries in use", dcx_file(std::vector<Bytes>(101, page(1)), 101), -7, -7}};
  for (const auto& [what, before, by_name, status] : cases) {
    MemoryFile file(before);
    EXPECT_EQ(can_append().raw(), by_name) << what;
    EXPECT_EQ(append(9), status) << what;
    if (status != 0) {
      EXPECT_EQ(file.bytes, before) << what;
    } else if (by_name == 0 && !before.empty()) {
      EXPECT_EQ(decode(MemoryFile::kHandle, 0).pixel, 1) << what;
      EXPECT_EQ(decode(MemoryFile::kHandle, 1).pixel, 9) << what;
    }
  }
}

TEST(DcxEncode, BeginsAtThePosition) {
  MemoryFile file(Bytes(1000, 0x77));
  EXPECT_EQ(append(5, 300), 0);
  EXPECT_EQ(append(6, 300), 0);
  EXPECT_EQ(file.bytes[299], 0x77);
  EXPECT_EQ(load_le32(&file.bytes[304]), 704u);
  EXPECT_EQ(load_le32(&file.bytes[308]), 704u + 128 + 1 + 769);
  EXPECT_EQ(decode(MemoryFile::kHandle, -1, 300), (Decoded{1, 5, 5}));
  EXPECT_EQ(append(7, INT32_MAX - 400), -9) << "no room for a table";
}

TEST(DcxEncode, MemoryAlwaysHoldsANewContainer) {
  Bytes block = dcx_file({page(1)});
  block.resize(3000);
  open_memory_stream(block.data(), block.size());
  EXPECT_EQ(append(9, 0, kMemoryStream), 0);
  EXPECT_EQ(load_le32(&block[8]), 0u);
  EXPECT_EQ(decode(block, -1).pixel, 9);
}

TEST(DcxEncode, LeavesTheContainerAloneWhenThePageFails) {
  const Bytes before = dcx_file({page(1)});
  MemoryFile file(before);
  HeaderBlock header = dib_header(1, 1, 8);
  GivenRows rows({{1, 0, 0, 0}});
  rows.failed_row = 0;
  rows.failure = -55;
  EXPECT_EQ(encode_dcx({MemoryFile::kHandle, &header, rows.supplier()}).raw(), -55);
  header.header.biBitCount = 32;
  EXPECT_EQ(encode_dcx({MemoryFile::kHandle, &header, rows.supplier()}).raw(), -21);
  EXPECT_EQ(file.bytes, before);
}

}  // namespace
}  // namespace tq::test
