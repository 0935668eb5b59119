// Facsimile codes against a plain model of the standards, and what is left of damaged pages.
#include <gmock/gmock.h>

#include "core/memory.h"
#include "core/run_storage.h"
#include "formats/ccitt/ccitt.h"
#include "io/endian.h"
#include "tests/support/ccitt_model.h"
#include "tests/support/collecting_sink.h"
#include "tests/support/memory_file.h"

namespace tq::test {
namespace {

using formats::CcittCoding;
using formats::CcittDecoder;
using formats::CcittEncoder;
using formats::CcittRows;
using formats::CcittScheme;

// Supplies a page as transition lists where they fit, like the library's own supplier, or as bits.
class PageSupplier {
 public:
  PageSupplier(const Page& page, bool lists) : page_(page), lists_(lists) {}
  formats::RowSupplier supplier() { return {on_row, this}; }
  std::int32_t failed_row = -1;

 private:
  static std::int32_t IMG_CB_C on_row(void* context, void* dest, std::int32_t y,
                                      std::int32_t bytes) {
    const auto& self = *static_cast<const PageSupplier*>(context);
    if (y == self.failed_row) return -777;
    const Pixels& row = self.page_.at(static_cast<std::size_t>(y));
    auto* out = static_cast<std::uint8_t*>(dest);
    if (self.lists_) {
      std::vector<std::uint32_t> words = {0};
      bool black = false;
      for (std::size_t x = 0; x < row.size(); ++x) {
        if (row[x] != black) words.push_back(static_cast<std::uint32_t>(x));
        black = row[x];
      }
      words.insert(words.end(), 3, static_cast<std::uint32_t>(row.size()));
      words.insert(words.end(), 3, static_cast<std::uint32_t>(row.size() + 2));
      if (4 * words.size() <= static_cast<std::size_t>(bytes)) {
        for (std::size_t i = 0; i < words.size(); ++i) store_le32(out + 4 * i, words[i]);
        return static_cast<std::int32_t>(4 * words.size());
      }
    }
    const Bytes bits = row_bits(row);
    std::fill_n(out, bytes, std::uint8_t{0xFF});
    std::copy(bits.begin(), bits.end(), out);
    return 0;
  }

  const Page& page_;
  bool lists_;
};

std::int32_t rows_of(const Page& page) {
  return static_cast<std::int32_t>(page.size());
}
std::int32_t width_of(const Page& page) {
  return static_cast<std::int32_t>(page[0].size());
}

Bytes encoded(const CcittCoding& coding, const Page& page, bool lists) {
  PageSupplier rows(page, lists);
  const MemoryFile file;
  CcittEncoder encoder;
  EXPECT_EQ(encoder.open(coding, width_of(page)), kOk);
  const Status written = encoder.encode(MemoryFile::kHandle, rows.supplier(), {0, rows_of(page)});
  EXPECT_EQ(written.raw(), static_cast<std::int32_t>(file.bytes.size()));
  return file.bytes;
}

// The rows that come out, as bits; run lists are checked to be what sinks expect.
std::vector<Bytes> decoded(const CcittCoding& coding, const Bytes& data, std::int32_t width,
                           std::int32_t rows, CcittRows delivery = CcittRows::bits) {
  open_memory_stream(const_cast<std::uint8_t*>(data.data()), data.size());
  ChunkReader input;
  EXPECT_EQ(input.open(kMemoryStream, 1), kOk);
  CcittDecoder decoder;
  EXPECT_EQ(decoder.open(coding, width, delivery), kOk);
  CollectingSink sink;
  const Status status =
      decoder.decode(input, static_cast<std::int64_t>(data.size()), {0, rows}, sink.sink());
  EXPECT_EQ(status.raw(), static_cast<std::int32_t>(sink.rows.size()));
  std::vector<Bytes> image;
  const auto bits_size = static_cast<std::size_t>(row_bytes(width, 1));
  for (const CollectedRow& row : sink.rows) {
    EXPECT_EQ(row.y, static_cast<std::int32_t>(image.size()));
    if (row.bytes.size() == bits_size) {
      image.push_back(row.bytes);
      continue;
    }
    EXPECT_EQ(load_le16(row.bytes.data()), row.bytes.size());
    std::vector<std::uint16_t> positions(static_cast<std::size_t>(width));
    const auto count = static_cast<std::size_t>(read_run_list(row.bytes, width, positions));
    EXPECT_GE(row.bytes.size(), 2 * (count + 7));
    for (std::size_t i = 0; i < row.bytes.size() / 2 - count - 1; ++i) {
      EXPECT_EQ(load_le16(row.bytes.data() + 2 * (1 + count + i)), width + (i < 3 ? 0 : 2));
    }
    Bytes bits(bits_size);
    transitions_to_bits(Transitions(positions).first(count), width, bits);
    image.push_back(bits);
  }
  return image;
}

std::vector<Bytes> bits_of(const Page& page) {
  std::vector<Bytes> rows;
  for (const Pixels& row : page) rows.push_back(row_bits(row));
  return rows;
}

std::vector<CcittCoding> all_codings() {
  std::vector<CcittCoding> codings;
  for (const bool aligned : {false, true}) {
    codings.push_back({CcittScheme::group4, false, aligned, false, aligned});
    for (const bool eol : {false, true}) {
      codings.push_back({CcittScheme::group3_1d, false, aligned, eol, !aligned});
      codings.push_back({CcittScheme::group3_2d, false, aligned, eol, aligned, 4});
    }
  }
  for (const CcittScheme scheme : {CcittScheme::huffman, CcittScheme::group4}) {
    codings.push_back({scheme, scheme == CcittScheme::group4});
  }
  codings.push_back({CcittScheme::group3_2d, true, false, true, true, 2});
  return codings;
}

std::vector<Page> all_pages() {
  std::vector<Page> pages;
  unsigned seed = 1;
  for (const int width : {1, 2, 7, 8, 31, 32, 33, 64, 113, 1000, 1728, 2623, 2624, 5300}) {
    for (const int run : {1, 12, 300}) pages.push_back(printed_page(width, 12, run, seed++));
    pages.push_back(Page(3, Pixels(static_cast<std::size_t>(width), true)));
    pages.push_back(Page(3, Pixels(static_cast<std::size_t>(width), false)));
  }
  Page every_run;  // of both colours
  for (int run = 0; run < 5300; run += run < 70 || run > 2555 ? (run > 2640 ? 640 : 1) : 37) {
    Pixels row(8000);
    std::fill_n(row.begin() + (every_run.size() % 2 == 0 ? 0 : 5300 - run), run, true);
    every_run.push_back(row);
  }
  pages.push_back(every_run);
  return pages;
}

TEST(Ccitt, CodesAreThoseOfThePlainModelAndReadBack) {
  for (const Page& page : all_pages()) {
    for (const CcittCoding& coding : all_codings()) {
      const Bytes expected = ccitt_by_model(coding, page);
      ASSERT_EQ(encoded(coding, page, true), expected)
          << width_of(page) << " wide, scheme " << static_cast<int>(coding.scheme);
      ASSERT_EQ(encoded(coding, page, false), expected) << width_of(page);
      for (const CcittRows delivery : {CcittRows::runs, CcittRows::bits}) {
        ASSERT_EQ(decoded(coding, expected, width_of(page), rows_of(page), delivery), bits_of(page))
            << width_of(page) << " wide, scheme " << static_cast<int>(coding.scheme);
      }
    }
  }
}

TEST(Ccitt, VeryWideRowsAreDeliveredAsBits) {
  for (const int width : {65000, 65533, 65534, 70001}) {
    const Page page = printed_page(width, 3, 300, 7);
    const Bytes data = ccitt_by_model({}, page);
    EXPECT_EQ(encoded({}, page, width <= 65533), data);
    EXPECT_EQ(decoded({}, data, width, 3, CcittRows::runs), bits_of(page));
  }
}

// A crop rectangle that begins in a black run which ends right there gives a list with two
// transitions at 0.
TEST(Ccitt, RunsOfLengthZeroInAListAreJoined) {
  const auto supply = [](void*, void* dest, std::int32_t, std::int32_t) -> std::int32_t {
    const std::uint32_t words[] = {0, 0, 0, 3, 5, 8, 8, 8, 10, 10, 10};
    std::memcpy(dest, words, sizeof words);
    return sizeof words;
  };
  const MemoryFile file;
  CcittEncoder encoder;
  ASSERT_EQ(encoder.open({}, 8), kOk);
  EXPECT_EQ(encoder.encode(MemoryFile::kHandle, {+supply, nullptr}, {0, 1}).raw(), 2);
  EXPECT_EQ(file.bytes,
            ccitt_by_model({}, {{false, false, false, true, true, false, false, false}}));
}

// The standard allows more than an encoder of today writes.
TEST(Ccitt, UnusualCodesAreRead) {
  const Bytes white_then_3_black = {0x8F};  // of 8 pixels: 1 0001111
  struct Case {
    const char* what;
    CcittCoding coding;
    const char* bits;
    std::vector<Bytes> rows;
  } const cases[] = {
      {"horizontal mode with a run of 0 in the middle of a row",
       {},
       // white 2, black 0, white 2, black 1, then the end of the row as it was
       "001"
       "0111"
       "0000110111"
       "001"
       "0111"
       "010"
       "1",
       {{0xF7, 0xFF, 0xFF, 0xFF}}},
      {"make-up code and terminating code 0 in place of nothing",
       {CcittScheme::group3_1d},
       "10110000110111"
       "0000110111",
       {}},
      {"fill in front of the end of a line, no end of the page",
       {CcittScheme::group3_1d},
       "000000000001"
       "10011"
       "0000000000000000000000000001"
       "00110101"
       "000101"
       "000000000001",
       {{0xFF, 0xFF, 0xFF, 0xFF}, {0x00, 0xFF, 0xFF, 0xFF}}},
      {"two-dimensional rows without ends of lines",
       {CcittScheme::group3_2d},
       "1"
       "1011"
       "011"
       "0"
       "1"
       "1",
       {{0xF0, 0xFF, 0xFF, 0xFF}, {0xF0, 0xFF, 0xFF, 0xFF}}},
      {"uncompressed mode is refused",
       {},
       "1"
       "0000001111"
       "1",
       {{0xFF, 0xFF, 0xFF, 0xFF}}},
      {"the end of the block ends the page",
       {},
       "1"
       "000000000001000000000001"
       "11111111",
       {{0xFF, 0xFF, 0xFF, 0xFF}}},
      {"a transition to the left of the one before it",
       {},
       "1"
       "001"
       "0111"
       "11"
       "0000010"
       "0000010",
       {{0xFF, 0xFF, 0xFF, 0xFF}}},
      {"a transition behind the end of the row", {}, "011", {}},
  };
  for (const Case& given : cases) {
    EXPECT_EQ(decoded(given.coding, packed(given.bits), 8, static_cast<int>(given.rows.size()) + 3),
              given.rows)
        << given.what;
  }
}

TEST(CcittDamage, CutDataGiveTheRowsThatAreThere) {
  const Page page = printed_page(300, 30, 12, 5);
  const auto expected = bits_of(page);
  for (const CcittScheme scheme : {CcittScheme::huffman, CcittScheme::group3_1d,
                                   CcittScheme::group3_2d, CcittScheme::group4}) {
    const CcittCoding coding{scheme};
    const Bytes data = ccitt_by_model(coding, page);
    std::size_t last = 0;
    for (std::size_t size = 0; size <= data.size(); ++size) {
      const auto rows = decoded(coding, Bytes(data.begin(), data.begin() + size), 300, 30);
      ASSERT_GE(rows.size(), last) << size;
      last = rows.size();
      ASSERT_TRUE(std::equal(rows.begin(), rows.end(), expected.begin())) << size;
    }
    EXPECT_EQ(last, 30u);
  }
}

// The most rows that both have in the same order.
std::size_t in_common(const std::vector<Bytes>& a, const std::vector<Bytes>& b) {
  std::vector<std::size_t> best(b.size() + 1);
  for (const Bytes& row : a) {
    std::size_t diagonal = 0;
    for (std::size_t i = 0; i < b.size(); ++i) {
      const std::size_t above = best[i + 1];
      best[i + 1] = row == b[i] ? diagonal + 1 : std::max(above, best[i]);
      diagonal = above;
    }
  }
  return best.back();
}

// With ends of lines, one wrong bit costs the row it is in, the rows that refer to that one, and
// maybe an end of line.
TEST(CcittDamage, AFlippedBitLeavesTheOtherRows) {
  const Page page = printed_page(120, 24, 9, 11);
  const auto expected = bits_of(page);
  for (const bool lsb : {false, true}) {
    for (const CcittScheme scheme : {CcittScheme::group3_1d, CcittScheme::group3_2d}) {
      const CcittCoding coding{scheme, lsb, false, true, true, 4};
      const Bytes data = ccitt_by_model(coding, page);
      const std::size_t most_lost = scheme == CcittScheme::group3_1d ? 3 : 6;
      for (std::size_t bit = 0; bit < 8 * data.size(); ++bit) {
        Bytes damaged = data;
        damaged[bit / 8] ^= static_cast<std::uint8_t>(1 << bit % 8);
        const auto rows = decoded(coding, damaged, 120, 24, CcittRows::runs);
        ASSERT_GE(rows.size() + 1, expected.size()) << bit;
        ASSERT_GE(in_common(rows, expected) + most_lost, expected.size()) << "bit " << bit;
      }
    }
  }
}

TEST(CcittDamage, AFlippedBitOfOtherSchemesLeavesTheRowsBefore) {
  const Page page = printed_page(120, 16, 9, 12);
  const auto expected = bits_of(page);
  for (const CcittScheme scheme : {CcittScheme::group4, CcittScheme::huffman}) {
    const CcittCoding coding{scheme};
    const Bytes data = ccitt_by_model(coding, page);
    for (std::size_t bit = 0; bit < 8 * data.size(); ++bit) {
      const std::size_t intact =
          decoded(coding, Bytes(data.begin(), data.begin() + bit / 8), 120, 16).size();
      Bytes damaged = data;
      damaged[bit / 8] ^= static_cast<std::uint8_t>(0x80 >> bit % 8);
      const auto rows = decoded(coding, damaged, 120, 16);
      ASSERT_GE(rows.size(), intact);
      ASSERT_TRUE(std::equal(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(intact),
                             expected.begin()));
    }
  }
}

TEST(Ccitt, FailuresOfTheOtherSidePassThroughAndNothingLeaks) {
  const Page page = printed_page(200, 600, 2, 3);  // more than one buffer
  const Bytes data = ccitt_by_model({}, page);
  Bytes block(data.size());
  PageSupplier rows(page, true);
  const auto encode = [&](std::size_t room) {
    open_memory_stream(block.data(), room);
    CcittEncoder encoder;
    TQ_TRY(encoder.open({}, 200));
    return encoder.encode(kMemoryStream, rows.supplier(), {0, 600});
  };
  EXPECT_EQ(encode(block.size()).raw(), static_cast<std::int32_t>(data.size()));
  for (std::size_t room = 0; room < block.size(); room += 97) EXPECT_EQ(encode(room).raw(), -9);
  rows.failed_row = 599;
  EXPECT_EQ(encode(block.size()).raw(), -777);
  rows.failed_row = -1;

  const auto decode = [&](CollectingSink& sink) {
    open_memory_stream(const_cast<std::uint8_t*>(data.data()), data.size());
    ChunkReader input;
    TQ_TRY(input.open(kMemoryStream, 1));
    CcittDecoder decoder;
    TQ_TRY(decoder.open({}, 200, CcittRows::runs));
    return decoder.decode(input, INT32_MAX, {0, 600}, sink.sink());
  };
  CollectingSink stopping;
  stopping.answered_row = 10;
  stopping.row_answer = -55;
  EXPECT_EQ(decode(stopping).raw(), -55);

  for (const bool encoding : {false, true}) {
    bool refused = true;
    for (int count = 0; refused; ++count) {
      CollectingSink sink;
      memory_probe::refuse_after(count);
      const Status status = encoding ? encode(block.size()) : decode(sink);
      refused = memory_probe::refused();
      memory_probe::refuse_after(-1);
      EXPECT_EQ(status.failed(), refused);
      EXPECT_TRUE(!refused || status == StatusCode::out_of_memory);
      EXPECT_EQ(memory_probe::tracked_blocks(), 0);
    }
  }
}

}  // namespace
}  // namespace tq::test
