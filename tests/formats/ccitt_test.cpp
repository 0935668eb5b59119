// Facsimile codes of many pages, unusual ones, and what is left of damaged pages.
#include <gmock/gmock.h>

#include <algorithm>
#include <string>

#include "formats/fax.h"
#include "tests/support/collecting_sink.h"
#include "tests/support/digest.h"
#include "tests/support/fax_page.h"
#include "tests/support/memory_file.h"

namespace tq::test {
namespace {

using ccitt::Coding;
using ccitt::Scheme;
using formats::FaxRows;
using formats::FaxStrip;

std::int32_t rows_of(const Page& page) {
  return static_cast<std::int32_t>(page.size());
}
std::int32_t width_of(const Page& page) {
  return static_cast<std::int32_t>(page[0].size());
}

Status encode(StreamHandle stream, FaxStrip strip, std::int32_t width, std::int32_t rows,
              const formats::RowSupplier& supplier) {
  StreamWriter out;
  TQ_TRY(out.open(stream, formats::kFaxChunk));
  strip.width = width;
  strip.rows = rows;
  TQ_TRY(encode_fax_strip(out, strip, supplier));
  return out.flush();
}

Bytes encoded(const FaxStrip& strip, const Page& page, bool lists) {
  PageSupplier rows(page, lists);
  const MemoryFile file;
  EXPECT_EQ(encode(MemoryFile::kHandle, strip, width_of(page), rows_of(page), rows.supplier()),
            kOk);
  return file.bytes;
}

std::vector<Bytes> decoded(FaxStrip strip, const Bytes& data, std::int32_t width, std::int32_t rows,
                           FaxRows delivery = FaxRows::bits) {
  open_memory_stream(const_cast<std::uint8_t*>(data.data()), data.size());
  ChunkReader input;
  CollectingSink sink;
  EXPECT_EQ(input.open(kMemoryStream, 1), kOk);
  strip.width = width;
  strip.rows = rows;
  const Status status = decode_fax_strip(input, std::ssize(data), strip, delivery, sink.sink());
  EXPECT_EQ(status.raw(), std::ssize(sink.rows));
  std::vector<Bytes> image;
  for (const CollectedRow& row : sink.rows) {
    EXPECT_EQ(row.y, std::ssize(image));
    image.push_back(row.bytes);
  }
  return image;
}

// Run lists as sinks expect them: their length in bytes, transitions, the width three times, what
// closes them. Rows that are too wide stay bits.
std::vector<Bytes> lists_of(const Page& page) {
  std::vector<Bytes> rows = bits_of(page);
  for (std::size_t y = 0; y < page.size(); ++y) {
    std::vector<std::int32_t> words = transition_words(page[y]);
    if (2 * words.size() == rows[y].size()) words.push_back(words.back());
    words[0] = static_cast<std::int32_t>(2 * words.size());
    if (words.back() > 0xFFFF) continue;
    rows[y].clear();
    for (const std::int32_t word : words) {
      rows[y].push_back(static_cast<std::uint8_t>(word));
      rows[y].push_back(static_cast<std::uint8_t>(word >> 8));
    }
  }
  return rows;
}

// The last has runs of both colours, so that each code word of the standard occurs; the first two
// are as wide as run lists go and wider.
std::vector<Page> all_pages() {
  unsigned seed = 1;
  std::vector<Page> pages = {printed_page(65533, 2, 300, seed), printed_page(65534, 2, 300, seed)};
  for (const int width : {1, 2, 7, 8, 31, 32, 33, 64, 113, 1000, 1728, 2623, 2624, 5300}) {
    for (const int run : {1, 12, 300}) pages.push_back(printed_page(width, 8, run, seed++));
    pages.push_back(Page(3, Pixels(static_cast<std::size_t>(width), true)));
    pages.push_back(Page(3, Pixels(static_cast<std::size_t>(width), false)));
  }
  Page& runs = pages.emplace_back();
  for (int run = 0; run < 5300; run += run < 70 || run > 2555 ? (run > 2640 ? 640 : 1) : 37) {
    Pixels row(8000);
    std::fill_n(row.begin() + (runs.size() % 2 == 0 ? 0 : 5300 - run), run, true);
    runs.push_back(row);
  }
  return pages;
}

// The digests are those of a plain model of the standard. libtiff, Pillow and leptonica read such
// data, and libtiff writes the same for Group 4: tests/peers.
TEST(Ccitt, CodesAreThoseOfTheStandardAndReadBack) {
  const std::pair<FaxStrip, std::uint64_t> strips[] = {
      {{{Scheme::huffman}}, 0x590C162D7C4F87D5},
      {{{Scheme::group4}}, 0x7EEB27AB772703E4},
      {{{Scheme::group4}, true}, 0xDCD7350EC28AD4F5},
      {{{Scheme::group4, true, false, true}}, 0x7BAA5A4CC7B1FB20},
      {{{Scheme::group3_1d, false, false, true}}, 0xF90A025863C6FBC},
      {{{Scheme::group3_1d, false, true, true}}, 0x4AB4F6471C956FA2},
      {{{Scheme::group3_1d, true, false, false}}, 0x590C162D7C4F87D5},
      {{{Scheme::group3_1d, true, true, false}}, 0xD8398BE82C5E67D7},
      {{{Scheme::group3_2d, false, false, false, 4}}, 0xA8849B33A636DAA4},
      {{{Scheme::group3_2d, false, true, false, 4}}, 0x61BB25585058AF33},
      {{{Scheme::group3_2d, true, false, true, 4}}, 0x6C494F0971D8DEEB},
      {{{Scheme::group3_2d, true, true, true, 4}}, 0x582C81E847EE69FF},
      {{{Scheme::group3_2d, false, true, true, 2}, true}, 0x3108A5A80490EDD2},
  };
  const std::vector<Page> pages = all_pages();
  for (const auto& tested : strips) {
    const FaxStrip& strip = tested.first;
    Digest digest;
    for (const Page& page : pages) {
      SCOPED_TRACE(testing::Message()
                   << width_of(page) << " wide, scheme " << static_cast<int>(strip.coding.scheme));
      const Bytes data = encoded(strip, page, false);
      digest.add(data);
      ASSERT_EQ(encoded(strip, page, true), data);
      const auto rows = [&](FaxRows delivery) {
        return decoded(strip, data, width_of(page), rows_of(page), delivery);
      };
      ASSERT_EQ(rows(FaxRows::bits), bits_of(page));
      ASSERT_EQ(rows(FaxRows::runs), lists_of(page));
    }
    EXPECT_EQ(digest.value(), tested.second);
  }
}

// A crop rectangle that begins in a black run which ends right there gives a list with two
// transitions at 0. Nothing before or behind the row is a transition.
TEST(Ccitt, ListsOfSuppliersAreTakenAsFarAsTheyAscend) {
  using Words = std::vector<std::uint32_t>;
  const std::pair<Words, Pixels> cases[] = {
      {{0, 0, 0, 3, 5, 8, 8, 8, 10, 10, 10}, {0, 0, 0, 1, 1, 0, 0, 0}},
      {{0, 2, 4, 3, 6, 8}, {0, 0, 1, 1, 0, 0, 0, 0}},
      {{0, ~0u, ~0u, ~0u, ~0u, ~0u, 4}, Pixels(8)},
      {{0, 2, 9, 3, 8}, {0, 0, 1, 1, 1, 1, 1, 1}},
      {{0, 1, 2, 3, 4, 5, 6, 7, 7, 7, 7, 7, 7}, {0, 1, 0, 1, 0, 1, 0, 0}},
  };
  for (auto [list, row] : cases) {
    const auto supply = [](void* words, void* dest, std::int32_t, std::int32_t) -> std::int32_t {
      std::ranges::copy(*static_cast<Words*>(words), static_cast<std::uint32_t*>(dest));
      return static_cast<std::int32_t>(4 * static_cast<Words*>(words)->size());
    };
    const MemoryFile file;
    EXPECT_EQ(encode(MemoryFile::kHandle, {}, 8, 1, {supply, &list}), kOk);
    EXPECT_EQ(file.bytes, encoded({}, {row}, false)) << testing::PrintToString(list);
  }
}

// Bits one after another apart from the blanks, the last byte filled up with 0.
Bytes packed(std::string bits) {
  std::erase(bits, ' ');
  Bytes bytes((bits.size() + 7) / 8);
  for (std::size_t i = 0; i < bits.size(); ++i) {
    bytes[i / 8] |= static_cast<std::uint8_t>((bits[i] - '0') << (7 - i % 8));
  }
  return bytes;
}

// The standard allows more than an encoder of today writes. Rows of 8 pixels.
TEST(Ccitt, UnusualCodesAreRead) {
  struct Case {
    const char* what;
    Scheme scheme;
    const char* bits;
    Bytes rows;
  };
  constexpr auto kGroup4 = Scheme::group4, k1d = Scheme::group3_1d;
  // clang-format off
  const Case cases[] = {
      {"a run of 0 in the middle: white 2, black 0, white 2, black 1, the end as it was", kGroup4, "001 0111 0000110111 001 0111 010 1", {0xF7}},
      {"a run of 0 in place of the rest", k1d, "10110000110111 0000110111", {}},
      {"fill in front of the end of a line, no end of the page", k1d, "000000000001 10011 0000000000000000000000000001 00110101 000101 000000000001", {0xFF, 0x00}},
      {"two-dimensional rows without ends of lines", Scheme::group3_2d, "1 1011 011 0 1 1", {0xF0, 0xF0}},
      {"a run one pixel longer than the row", k1d, "10100", {}},
      {"data behind the end of the page", k1d, "10011 000000000001 000000000001 000000000001 000000000001 000000000001 000000000001 10011", {0xFF}},
      {"uncompressed mode is refused", kGroup4, "1 0000001111 1", {0xFF}},
      {"the end of the block ends the page", kGroup4, "1 000000000001000000000001 11111111", {0xFF}},
      {"a transition to the left of the one before it", kGroup4, "1 001 0111 11 0000010 0000010", {0xFF}},
      {"a transition behind the end of the row", kGroup4, "011", {}},
  };
  // clang-format on
  for (const Case& given : cases) {
    std::vector<Bytes> rows;
    for (const std::uint8_t row : given.rows) rows.push_back({row, 0xFF, 0xFF, 0xFF});
    EXPECT_EQ(decoded({{given.scheme}}, packed(given.bits), 8, 5), rows) << given.what;
  }
}

// Some writers begin a row with two runs of no length, keep them in the row that the next one
// refers to, and code that one by passing over them.
TEST(Ccitt, RunsOfNoLengthStayInTheReferenceRow) {
  const std::string none = "00110101 0000110111", black = "0001000 0000100";  // 0 and 0, 20 and 10
  const std::string passing = "0001 001" + black + "1", same = "111", white_34 = "00010011";
  const std::pair<Scheme, std::string> cases[] = {
      {Scheme::group4, "001" + none + "001" + black + "1" + passing + same},
      {Scheme::group3_2d, "1" + none + black + white_34 + "0" + passing + "0" + same}};
  Pixels row(64);
  std::fill_n(row.begin() + 20, 10, true);
  for (const auto& [scheme, bits] : cases) {
    for (const FaxRows delivery : {FaxRows::bits, FaxRows::runs}) {
      EXPECT_EQ(decoded({{scheme}}, packed(bits), 64, 5, delivery),
                delivery == FaxRows::bits ? bits_of(Page(3, row)) : lists_of(Page(3, row)));
    }
  }
  std::string too_many;
  for (int i = 0; i < 600; ++i) too_many += "001" + none;
  EXPECT_EQ(decoded({}, packed(too_many + "1"), 8, 5), std::vector<Bytes>());
}

// How many rows at the beginning and at the end are as they should be.
std::size_t intact(const std::vector<Bytes>& rows, const std::vector<Bytes>& expected) {
  std::size_t first = 0, last = 0;
  const std::size_t most = std::min(rows.size(), expected.size());
  while (first < most && rows[first] == expected[first]) ++first;
  while (first + last < most && rows.end()[~last] == expected.end()[~last]) ++last;
  return first + last;
}

// With ends of lines, one wrong bit costs the row it is in, the rows that refer to that one, and
// maybe an end of line, or adds one. Without them it leaves the rows before it. Nothing is made up
// for bytes that are missing.
TEST(Ccitt, DamageLeavesTheOtherRows) {
  const Page page = printed_page(120, 20, 9, 11);
  const auto expected = bits_of(page);
  for (const Scheme scheme :
       {Scheme::huffman, Scheme::group3_1d, Scheme::group3_2d, Scheme::group4}) {
    const bool resumes = scheme == Scheme::group3_1d || scheme == Scheme::group3_2d;
    const FaxStrip strip{{scheme, false, true, resumes, 4}};
    const Bytes data = encoded(strip, page, true);
    const std::size_t most_lost = scheme == Scheme::group3_1d ? 3 : 6;
    for (std::size_t bit = 0; bit < 8 * data.size(); ++bit) {
      SCOPED_TRACE(bit);
      const auto truncated = decoded(strip, Bytes(data.begin(), data.begin() + bit / 8), 120, 20);
      ASSERT_TRUE(std::equal(truncated.begin(), truncated.end(), expected.begin()));
      Bytes damaged = data;
      damaged[bit / 8] ^= static_cast<std::uint8_t>(0x80 >> bit % 8);
      const auto rows = decoded(strip, damaged, 120, 21);
      if (resumes) {
        ASSERT_GE(rows.size() + 1, expected.size());
        ASSERT_GE(intact(rows, expected) + most_lost, expected.size());
      } else {
        ASSERT_GE(intact(rows, expected), truncated.size());
      }
    }
  }
}

TEST(Ccitt, FailuresOfTheEncodersCallersPassThrough) {
  const Page page = printed_page(2000, 600, 2, 3);
  const std::size_t size = encoded({}, page, true).size();
  PageSupplier rows(page, true);
  const auto encode_into = [&](std::size_t room) {
    Bytes block(room);
    open_memory_stream(block.data(), block.size());
    return encode(kMemoryStream, {}, 2000, 600, rows.supplier());
  };
  ASSERT_GT(size, 65537u);  // more than one buffer
  for (const std::size_t room :
       {std::size_t{0}, std::size_t{65536}, std::size_t{65537}, size - 1}) {
    EXPECT_EQ(encode_into(room), StatusCode::write_failed) << room;
  }
  rows.failed_row = 599;
  EXPECT_EQ(encode_into(size).raw(), -777);
}

}  // namespace
}  // namespace tq::test
