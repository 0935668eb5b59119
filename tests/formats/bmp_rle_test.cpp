// Run-length coded bitmaps against models that are written as plainly as the codes are described:
// one buffer, one pixel at a time.
#include <gmock/gmock.h>

#include <random>

#include "core/context.h"
#include "formats/bmp/bmp.h"
#include "tests/support/codec_runs.h"
#include "tests/support/digest.h"
#include "tests/support/guarded_block.h"

namespace tq::test {
namespace {

struct Shape {
  int width, height, bits;
  std::size_t row_size() const { return static_cast<std::size_t>(row_bytes(width, bits)); }
};

// Pixels land in a buffer that is never cleared, unless lines begin blank; what lies more than 1000 bytes
// behind the row is dropped.
std::vector<CollectedRow> modelled_rows(const Bytes& codes, const Shape& shape,
                                        bool blank = false) {
  const std::size_t per_byte = shape.bits == 4 ? 2 : 1;
  Bytes buffer(shape.row_size() + 1000, 0);
  std::size_t x = 0, at = 0;
  int y = shape.height - 1;
  std::vector<CollectedRow> rows;
  // The pixel that is `i` pixels behind the start of a run of these bytes.
  const auto put = [&](const std::uint8_t* bytes, int i) {
    const int pixel = shape.bits == 8 ? bytes[i]
                      : i % 2 == 0    ? bytes[i / 2] >> 4
                                      : bytes[i / 2] & 15;
    const int shift = shape.bits == 4 && x % 2 == 0 ? 4 : 0;
    const int kept = shape.bits == 8 ? 0 : 0xF0 >> shift;
    if (x / per_byte < buffer.size()) {
      std::uint8_t& byte = buffer[x / per_byte];
      byte = static_cast<std::uint8_t>((byte & kept) | pixel << shift);
    }
    ++x;
  };
  const auto deliver = [&] {
    rows.push_back({y--, Bytes(buffer.data(), buffer.data() + shape.row_size())});
    if (blank) buffer.assign(buffer.size(), 0);
  };
  bool ended = false;
  while (y >= 0 && at + 2 <= codes.size()) {
    const int first = codes[at], second = codes[at + 1];
    const std::uint8_t repeated[] = {codes[at + 1], codes[at + 1]};
    at += 2;
    if (first > 0) {
      for (int i = 0; i < first; ++i) put(repeated, i % 2);
    } else if (second < 2) {
      deliver();
      x = 0;
      ended = second == 1;
      if (ended) break;
    } else if (second == 2) {
      if (at + 2 > codes.size()) break;
      x += codes[at];
      for (int i = 0; i < codes[at + 1] && y >= 0; ++i) deliver();
      at += 2;
    } else {
      const std::size_t bytes = shape.bits == 8 ? second : (second + 1) / 2;
      if (at + bytes > codes.size()) break;
      for (int i = 0; i < second; ++i) put(&codes[at], i);
      at += bytes + bytes % 2;
    }
  }
  if (blank && y >= 0 && x > 0) deliver();
  while (blank && ended && y >= 0) deliver();
  return rows;
}

// Codes of all kinds, mostly within the row, sometimes far behind it.
Bytes random_codes(std::mt19937& random) {
  const auto below = [&](int end) { return static_cast<std::uint8_t>(random() % end); };
  Bytes codes;
  for (int i = 0; i < 40; ++i) {
    const int longest = random() % 8 == 0 ? 255 : 20, kind = below(8);
    Bytes code = {static_cast<std::uint8_t>(1 + below(longest)), below(256)};
    if (kind == 0) code = {0, 0};
    if (kind == 1) code = {0, 2, below(longest), below(random() % 4 == 0 ? 5 : 1)};
    if (kind == 2) {
      code = {0, static_cast<std::uint8_t>(3 + below(longest - 2))};
      for (int k = code[1] + code[1] % 2; k > 0; --k) code.push_back(below(256));
    }
    codes.insert(codes.end(), code.begin(), code.end());
  }
  return joined({codes, {0, 1}});
}

TEST(BmpRleDecode, AgreesWithTheModelOnRandomCutOffAndHostileCodes) {
  std::mt19937 random(20);
  for (int round = 0; round < 6000; ++round) {
    const int largest = round % 50 == 0 ? 2500 : 60;
    const Shape shape{1 + static_cast<int>(random() % largest), 1 + static_cast<int>(random() % 12),
                      random() % 2 == 0 ? 4 : 8};
    Bytes codes = random_codes(random);
    if (round % 3 == 1) codes.resize(random() % codes.size());
    if (round % 3 == 2) {
      for (std::uint8_t& byte : codes)
        byte = static_cast<std::uint8_t>(random() % (round % 2 ? 4 : 256));
    }
    const bool blank = random() % 2 == 0;
    Options options;
    options.set(IMG_OPTION_READING, blank);
    const auto expected = modelled_rows(codes, shape, blank);
    const Bytes file = bmp_file({true, 40, shape.width, shape.height, shape.bits,
                                 shape.bits == 4 ? 2u : 1u, grey_palette(1 << shape.bits), codes});
    CollectingSink from_memory;
    Bytes copy = file;
    open_memory_stream(copy.data(), copy.size());
    ASSERT_EQ(bmp::decode({kMemoryStream, 0, from_memory.sink(), -1, options}), kOk);
    ASSERT_EQ(from_memory.rows, expected) << "round " << round;

    context().settings.read_budget =
        1 + static_cast<int>(random() % 700);  // chunks end within codes
    const MemoryFile stream(file);
    CollectingSink from_caller;
    ASSERT_EQ(bmp::decode({MemoryFile::kHandle, 0, from_caller.sink(), -1, options}), kOk);
    ASSERT_EQ(from_caller.rows, expected) << "round " << round;
  }
}

// Runs of all lengths, disturbed here and there.
std::vector<Bytes> random_rows(std::mt19937& random, const Shape& shape) {
  std::vector<Bytes> rows(static_cast<std::size_t>(shape.height), Bytes(shape.row_size()));
  const int colours = random() % 3 == 0 ? 2 : 256, longest = random() % 2 == 0 ? 3 : 300;
  for (Bytes& row : rows) {
    int left = 0;
    std::uint8_t value = 0;
    for (std::uint8_t& byte : row) {
      if (left == 0 || left % 5 == 4) value = static_cast<std::uint8_t>(random() % colours);
      if (left-- == 0) left = static_cast<int>(random() % longest);
      byte = value;
    }
  }
  return rows;
}

// Where runs and literals begin and end is fixed. The digest is that of a model which codes byte by
// byte.
TEST(BmpRleEncode, WritesTheCodesOfTheModel) {
  std::mt19937 random(21);
  Digest digest;
  for (int round = 0; round < 3000; ++round) {
    const int depths[] = {4, 8, 4, 8, 16, 32};
    const Shape shape{1 + static_cast<int>(random() % (round % 10 == 0 ? 1500 : 40)),
                      1 + static_cast<int>(random() % 4), depths[round % 6]};
    const std::vector<Bytes> rows = random_rows(random, shape);
    const Bytes file = encoded(bmp::encode, dib_header(shape.width, shape.height, shape.bits), rows,
                               bmp::kRunLengths);
    const Bytes codes(file.begin() + 54 + palette_bytes(shape.bits), file.end());
    digest.add(codes);
    if (shape.bits > 8) continue;
    const auto again = modelled_rows(codes, shape);
    ASSERT_EQ(again.size(), rows.size());
    const int whole = shape.width * shape.bits / 8;  // bytes
    for (const CollectedRow& row : again) {
      ASSERT_TRUE(std::equal(row.bytes.begin(), row.bytes.begin() + whole, rows[row.y].begin()));
    }
  }
  EXPECT_EQ(digest.value(), 0xB315C7D8C318F758);
  for (const int width : {254, 255, 256, 510, 511, 1030}) {  // runs of the greatest length
    const std::vector<Bytes> rows = {Bytes(static_cast<std::size_t>(row_bytes(width, 8)), 9)};
    const Bytes file = encoded(bmp::encode, dib_header(width, 1, 8), rows, bmp::kRunLengths);
    const Bytes row = decoded(bmp::decode, file).image()[0];
    EXPECT_EQ(std::count(row.begin(), row.end(), 9), width) << width;
  }
}

// Three colours, and codes behind them that memory without a size may end with.
TEST(BmpRleDecode, PaletteIsReadAtItsFullLengthWhereTheEndIsKnown) {
  BmpFields fields{.width = 4, .height = 2, .bits = 8, .compression = 1, .colours_used = 2};
  fields.palette = {{0, 0, 0, 0}, {10, 20, 30, 0}};
  fields.pixels = {4, 1, 0, 0, 4, 0, 0, 1};
  const Bytes file = bmp_file(fields);
  EXPECT_EQ(decoded(bmp::decode, file).header.palette[2], (Rgb{4, 1, 0, 0}));
  const GuardedBlock block(file);
  open_memory_stream(block.data());
  CollectingSink sink;
  EXPECT_EQ(bmp::decode({kMemoryStream, 0, sink.sink()}), kOk);
  EXPECT_EQ(sink.header.palette[2], (Rgb{0, 0, 0, 0}));
  EXPECT_EQ(sink.image()[0], Bytes(4, 0));
}

}  // namespace
}  // namespace tq::test
