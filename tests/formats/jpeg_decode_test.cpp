// JPEG streams made bit by bit, files of other programs with something changed, damaged ones. What
// whole files look like is compared with other programs where the corpus is.
#include <gmock/gmock.h>

#include <bit>
#include <bitset>
#include <set>

#include "core/memory.h"
#include "core/numbers.h"
#include "formats/bmp/bmp.h"
#include "formats/jpeg/jpeg.h"
#include "tests/support/codec_runs.h"
#include "tests/support/guarded_block.h"
#include "tests/support/library_test.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

using jpeg::decode_jpeg;
using testing::Each;

// A segment with its marker and length.
Bytes segment(int marker, const Bytes& content) {
  const std::size_t length = content.size() + 2;
  return joined({{0xFF, byte(marker), byte(length >> 8), byte(length)}, content});
}

// Entropy-coded data of these zeros and ones.
Bytes coded(std::string bits) {
  bits.resize((bits.size() + 7) / 8 * 8, '1');
  Bytes bytes;
  for (std::size_t i = 0; i < bits.size(); i += 8) {
    bytes.push_back(byte(std::bitset<8>(bits, i, 8).to_ulong()));
    if (bytes.back() == 0xFF) bytes.push_back(0);
  }
  return bytes;
}

std::string binary(int value, int bits) {
  return std::bitset<16>(value).to_string().substr(16 - bits);
}

// A block for each component that has only its first coefficient.
struct FlatFile {
  std::vector<int> dc{};
  int step = 8;  // of the quantiser
  int width = 8;
  int precision = 8;
  Bytes extra{};  // segments behind SOI
};

Bytes flat_file(const FlatFile& flat) {
  const std::size_t count = flat.dc.size();
  Bytes table{0},
      frame{byte(flat.precision), 0, 1, byte(flat.width >> 8), byte(flat.width), byte(count)};
  for (int i = 0; i < 64; ++i) table.push_back(byte(flat.step));
  if (flat.precision == 12) {  // 16 bits wide, and with an entry that needs them
    table.assign(129, 0);
    table[0] = 0x10;
    for (int i = 0; i < 63; ++i) table[2 + 2 * i] = byte(flat.step);
    table[127] = 1;
  }
  Bytes scan{byte(count)};
  for (std::size_t i = 0; i < count; ++i) {
    frame = joined({frame, {byte(i + 1), 0x11, 0}});
    scan = joined({scan, {byte(i + 1), 0}});
  }
  // Sizes have codes of four bits, the end of a block has one of one bit.
  const Bytes dc_codes{0, 0, 0, 0, 14, 0, 0, 0, 0, 0, 0, 0,  0,  0,  0, 0,
                       0, 0, 1, 2, 3,  4, 5, 6, 7, 8, 9, 10, 11, 12, 13};
  const Bytes ac_codes{0x10, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  std::string data;
  for (const int level : flat.dc) {
    const int size = std::bit_width(static_cast<unsigned>(std::abs(level)));
    data += binary(size, 4) + binary(level - (level < 0), size) + '0';
  }
  return joined({{0xFF, 0xD8},
                 flat.extra,
                 segment(0xDB, table),
                 segment(0xC1, frame),
                 segment(0xC4, dc_codes),
                 segment(0xC4, ac_codes),
                 segment(0xDA, joined({scan, {0, 63, 0}})),
                 coded(data),
                 {0xFF, 0xD9}});
}

struct Decoded {
  CollectingSink sink;
  formats::DecodeNotes notes;
  Status status = kOk;
};
Decoded decode(const Bytes& file, std::int32_t offset = 0, const Options& options = {}) {
  Decoded decoded;
  const GuardedBlock block(file);
  open_memory_stream(block.data(), block.size());
  formats::RowSink sink = decoded.sink.sink();
  sink.notes = &decoded.notes;
  decoded.status =
      decode_jpeg({.stream = kMemoryStream, .offset = offset, .sink = sink, .options = options});
  EXPECT_EQ(memory_probe::tracked_blocks(), 0);
  return decoded;
}

Bytes corpus_file(const std::string& name) {
  return file_content("corpus/jpeg/" + name + ".jpg");
}
// The first place of these bytes.
auto find(Bytes& file, const Bytes& bytes) {
  const auto found = std::search(file.begin(), file.end(), bytes.begin(), bytes.end());
  EXPECT_NE(found, file.end());
  return found;
}

// As other programs show files.
Options usual() {
  Options options;
  options.set(IMG_OPTION_READING, 1);
  return options;
}

TEST(JpegDecode, FarTooBrightSamplesCountAsDark) {
  const int cases[][2] = {{-8 * 500, 0},      {-8 * 128, 0},    {8 * 127, 255}, {8 * 128, 255},
                          {8 * 383 + 3, 255}, {8 * 383 + 4, 0}, {8 * 1000, 0}};
  for (const auto& [dc, grey] : cases) {
    const Bytes file = flat_file({.dc = {dc}, .step = 1});
    EXPECT_THAT(decode(file).sink.image(), Each(Each(grey))) << dc;
    EXPECT_THAT(decode(file, 0, usual()).sink.image(), Each(Each(dc > 8 * 127 ? 255 : grey))) << dc;
  }
}

TEST(JpegDecode, TwelveBitGreyFillsTheUpperBits) {
  const int cases[][2] = {
      {-8 * 2048, 0}, {-8 * 2047, 0}, {0, 2047 << 4}, {8 * 1000, 3047 << 4}, {8 * 2048, 4095 << 4}};
  for (const auto& [dc, grey] : cases) {
    const Decoded decoded =
        decode(flat_file({.dc = {dc / 4}, .step = 4, .width = 3, .precision = 12}));
    const std::uint8_t low = byte(grey), high = byte(grey >> 8);
    EXPECT_EQ(decoded.sink.image(), (std::vector<Bytes>{{low, high, low, high, low, high, 0, 0}}));
    EXPECT_EQ(decoded.sink.header.header.biBitCount, 16);
    EXPECT_EQ(decoded.sink.header.palette[200].green, 200);
  }
}

TEST(JpegDecode, AdobeSegmentSaysWhatTheComponentsAre) {
  const auto pixel = [](std::size_t components, const Bytes& extra) {
    std::vector<int> levels = {-28, 50, -60, 100};  // around 128
    levels.resize(components);
    return decode(flat_file({.dc = levels, .width = 1, .extra = extra})).sink.image().at(0);
  };
  const auto adobe = [](std::uint8_t transform, std::uint8_t initial = 'A') {
    return segment(0xEE, {initial, 'd', 'o', 'b', 'e', 0, 100, 0, 0, 0, 0, transform});
  };
  const Bytes converted = {188, 125, 16, 0};  // blue, green, red
  EXPECT_EQ(pixel(3, {}), converted);
  EXPECT_EQ(pixel(3, adobe(1)), converted);
  EXPECT_EQ(pixel(3, adobe(0)), (Bytes{68, 178, 100, 0}));
  EXPECT_EQ(pixel(4, {}), (Bytes{100, 178, 68, 228}));
  EXPECT_EQ(pixel(4, adobe(0)), (Bytes{155, 77, 187, 27}));
  EXPECT_EQ(pixel(4, adobe(1)), (Bytes{100, 178, 68, 228}));
  EXPECT_EQ(pixel(4, adobe(2)), (Bytes{16, 125, 188, 27}));
  EXPECT_EQ(pixel(4, adobe(2, 'a')), (Bytes{100, 178, 68, 228}));
}

// Components are told apart by JFIF, then by Adobe's segment, then by their ids.
TEST(JpegReading, ColoursAreWhatTheFileSays) {
  const Bytes jfif = segment(0xE0, {'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0});
  const auto adobe = [](std::uint8_t transform) {
    return segment(0xEE, {'A', 'd', 'o', 'b', 'e', 0, 100, 0, 0, 0, 0, transform});
  };
  const auto pixel = [](std::size_t components, const Bytes& extra, const std::string& ids = {}) {
    std::vector<int> levels = {-28, 50, -60, 100};
    levels.resize(components);
    Bytes file = flat_file({.dc = levels, .width = 1, .extra = extra});
    for (std::size_t i = 0; i < ids.size(); ++i) {
      find(file, {0xFF, 0xC1, 0})[10 + 3 * static_cast<long>(i)] = byte(ids[i]);
      find(file, {0xFF, 0xDA, 0})[5 + 2 * static_cast<long>(i)] = byte(ids[i]);
    }
    return decode(file, 0, usual()).sink.image().at(0);
  };
  const Bytes converted = {189, 126, 16, 0}, plain = {68, 178, 100, 0};
  EXPECT_EQ(pixel(3, {}), converted);
  EXPECT_EQ(pixel(3, adobe(0)), plain);
  EXPECT_EQ(pixel(3, joined({jfif, adobe(0)})), converted);
  EXPECT_EQ(pixel(3, {}, "RGB"), plain);
  EXPECT_EQ(pixel(3, jfif, "RGB"), converted);
  EXPECT_EQ(pixel(3, adobe(1), "RGB"), converted);
  EXPECT_EQ(pixel(4, {}), (Bytes{155, 77, 187, 27}));
  EXPECT_EQ(pixel(4, adobe(0)), (Bytes{155, 77, 187, 27}));
  EXPECT_EQ(pixel(4, adobe(2)), (Bytes{16, 126, 189, 27}));
}

TEST(JpegReading, ResolutionAndOrientationComeFromExifToo) {
  const auto jfif = [](int unit) {
    return segment(0xE0, {'J', 'F', 'I', 'F', 0, 1, 1, byte(unit), 0, 118, 0, 118, 0, 0});
  };
  // Big-endian: orientation 6, 120.5 by 60 dots in units of `unit`; its values behind the directory.
  const auto exif = [](int unit, int values_at = 62) {
    const Bytes entries = {1, 18, 0, 3, 0, 0, 0, 1, 0, 6,          0, 0,                    //
                           1, 26, 0, 5, 0, 0, 0, 1, 0, 0,          0, byte(values_at),      //
                           1, 27, 0, 5, 0, 0, 0, 1, 0, 0,          0, byte(values_at + 8),  //
                           1, 40, 0, 3, 0, 0, 0, 1, 0, byte(unit), 0, 0,
                           0, 0,  0, 0};
    return segment(0xE1, joined({{'E', 'x', 'i', 'f', 0, 0, 'M', 'M', 0, 42, 0, 0, 0, 8, 0, 4},
                                 entries,
                                 {0, 0, 0, 241, 0, 0, 0, 2, 0, 0, 0, 60, 0, 0, 0, 1}}));
  };
  const struct {
    Bytes extra;
    int x, y, orientation;
  } cases[] = {
      {{}, 0, 0, 1},
      {jfif(0), 0, 0, 1},
      {jfif(1), 118, 118, 1},
      {jfif(2), 300, 300, 1},
      {exif(2), 121, 60, 6},
      {exif(3), 306, 152, 6},
      {exif(1), 0, 0, 6},
      {exif(2, 200), 0, 0, 6},
      {joined({jfif(0), exif(2)}), 121, 60, 6},
      {joined({jfif(2), exif(2)}), 300, 300, 6},
      {segment(0xE1, {'E', 'x', 'i', 'f', 0, 0, 'M', 'M', 0, 42, 0xFF, 0, 0, 8}), 0, 0, 1}};
  for (const auto& c : cases) {
    const Bytes file = flat_file({.dc = {0}, .width = 1, .extra = c.extra});
    Options options = usual();
    options.set(IMG_OPTION_ORIENTATION, 1);
    const Decoded decoded = decode(file, 0, options);
    EXPECT_EQ(decoded.notes.orientation, c.orientation);
    const BitmapInfoHeader header = decoded.sink.header.header;
    EXPECT_EQ(std::pair(header.biXPelsPerMeter, header.biYPelsPerMeter), std::pair(c.x, c.y));
    const MemoryFile stream(file);
    EXPECT_EQ(jpeg::find_jpeg_orientation(MemoryFile::kHandle, usual()).raw(), c.orientation);
    EXPECT_EQ(jpeg::find_jpeg_orientation(MemoryFile::kHandle, {}).raw(), IMG_UNSUPPORTED);
  }
}

TEST(JpegDecode, EndOfBandRunsOfManyBlocks) {
  const Bytes dc_codes{0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  // Of two bits: the longest run there is, a coefficient, the end of one block.
  const Bytes ac_codes{0x10, 0, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xE0, 0x01, 0x00};
  // The data between restart markers.
  const auto scan = [](int band, int bit, const std::vector<std::string>& intervals) {
    Bytes bytes = segment(0xDA, {1, 1, 0, byte(band), byte(band), byte(bit)});
    for (std::size_t i = 0; i < intervals.size(); ++i) {
      const Bytes marker = i == 0 ? Bytes() : Bytes{0xFF, byte(0xCF + i)};
      bytes = joined({bytes, marker, coded(intervals[i])});
    }
    return bytes;
  };
  const auto picture = [&](int columns, int rows, const std::vector<Bytes>& scans) {
    const int width = 8 * columns;
    const Bytes frame{8, 0, byte(8 * rows), byte(width >> 8), byte(width), 1, 1, 0x11, 0};
    return joined({{0xFF, 0xD8},
                   segment(0xDB, joined({{0}, Bytes(64, 20)})),
                   segment(0xC2, frame),
                   segment(0xC4, dc_codes),
                   segment(0xC4, ac_codes),
                   joined(scans)});
  };
  // Of all blocks only the last one has a coefficient: 2, which becomes 3.
  const std::string run = "00" + binary(4 * 8190 - 1 - (1 << 14), 14);
  const auto alone =
      decode(picture(1, 1, {scan(0, 0, {"0"}), scan(5, 0x01, {"011"}), scan(5, 0x10, {"101"})}))
          .sink.image();
  const Bytes long_runs =
      picture(8190, 4,
              {scan(0, 0, {std::string(4 * 8190, '0')}),
               segment(0xDB, Bytes(65)),  // the quantisation table of the first scan holds
               scan(5, 0x01, {run + "011"}), scan(5, 0x10, {run + "101"})});
  const auto wide = decode(long_runs).sink.image();
  ASSERT_EQ(wide.size(), 32u);
  EXPECT_NE(alone[0], Bytes(8, 128));
  for (std::size_t y = 0; y < 32; ++y) {
    const auto end = wide[y].end() - 8;
    EXPECT_EQ(std::count(wide[y].begin(), end, 128), 8 * 8189) << y;
    EXPECT_EQ(Bytes(end, wide[y].end()), y < 24 ? Bytes(8, 128) : alone[y - 24]) << y;
  }
  // A run that is too long ends with its interval.
  const auto restarted = decode(picture(2, 1,
                                        {segment(0xDD, {0, 1}), scan(0, 0, {"0", "0"}),
                                         scan(5, 0x01, {run, "011"}), scan(5, 0x10, {run, "101"})}))
                             .sink.image();
  for (std::size_t y = 0; y < 8; ++y) {
    EXPECT_EQ(restarted[y], joined({Bytes(8, 128), alone[y]})) << y;
  }
  // Three scans of nearly 2^21 pixels each, which deliver no row: the caller may end them.
  static int reports, most;
  struct Caller {
    static std::int32_t IMG_CB_STD report(std::intptr_t /*context*/, std::int32_t value) {
      EXPECT_EQ(value, 32);
      return ++reports < most ? 0 : -4711;
    }
  };
  context().settings.progress = {.call = Caller::report, .on = true};
  Options limited;
  limited.set(IMG_OPTION_MAX_SCANS, 4);
  const auto reports_with = [&](const Options& options, int stop_at, int status) {
    reports = 0, most = stop_at;
    EXPECT_EQ(decode(long_runs, 0, options).status.raw(), status);
    return reports;
  };
  EXPECT_EQ(reports_with({}, 1, IMG_OK), 0);
  EXPECT_EQ(reports_with(usual(), 9, IMG_OK), 5);
  EXPECT_EQ(reports_with(limited, 2, -4711), 2);
  context().settings.progress = {};
}

TEST(JpegHeader, GarbageAndFillBytesAreSkipped) {
  const Bytes file = corpus_file("grey");
  const auto expected = decode(file).sink.image();
  for (const int garbage : {1, 4999, 5000, 5001}) {
    const Bytes shifted = joined({Bytes(garbage, 0xFF), file});
    const Decoded decoded = decode(shifted);
    EXPECT_EQ(decoded.status.raw(), garbage <= 5000 ? 0 : IMG_BAD_IMAGE);
    if (decoded.sink.headers != 0) {
      EXPECT_EQ(decoded.sink.image(), expected);
    }
    EXPECT_EQ(decode(shifted, garbage).sink.image(), expected);
  }
  Bytes filled = file;
  filled.insert(filled.begin() + 2, {0x12, 0x34, 0xFF, 0x01, 0xFF, 0xD3, 0xFF, 0xFF});
  EXPECT_EQ(decode(filled).sink.image(), expected);
  EXPECT_EQ(decode({}).status.raw(), IMG_READ_FAILED);
  EXPECT_EQ(decode({0xFF}).status.raw(), IMG_BAD_IMAGE);
  EXPECT_EQ(decode(file, static_cast<std::int32_t>(file.size())).status.raw(), IMG_READ_FAILED);
}

TEST(JpegHeader, DensityIsTakenAsItStands) {
  for (const int units : {0, 1, 2}) {
    const Bytes app0 =
        segment(0xE0, {'J', 'F', 'I', 'F', 0, 1, 1, byte(units), 1, 44, 0, 118, 0, 0});
    const Decoded decoded = decode(flat_file({.dc = {0}, .width = 1, .extra = app0}));
    const BitmapInfoHeader& header = decoded.sink.header.header;
    EXPECT_EQ(header.biXPelsPerMeter, units == 0 ? 0 : 300);
    EXPECT_EQ(header.biYPelsPerMeter, units == 0 ? 0 : 118);
    EXPECT_EQ(header.biSizeImage, 4u);
  }
}

TEST(JpegHeader, SlotsThatDoNotExistReuseTheOneChosenLast) {
  const Bytes plain = corpus_file("grey");
  Bytes renumbered = plain;
  find(renumbered, {0xFF, 0xDB, 0, 67, 0})[4] = 0x09;
  find(renumbered, {0xFF, 0xC4, 0, 0x1F, 0x00})[4] = 0x23;
  EXPECT_EQ(decode(renumbered).sink.image(), decode(plain).sink.image());
}

TEST(JpegHeader, WhatCannotBeIsRefused) {
  struct Case {
    const char* name;
    std::int32_t answer;
    Bytes place, changed;  // what stands behind the place becomes this
    const char* file = "grey";
  };
  const Bytes sof = {0xFF, 0xC0, 0, 11}, sos = {0xFF, 0xDA, 0, 8};
  const Case cases[] = {
      {"precision 12 is fine", IMG_OK, sof, {12}},
      {"precision 9", IMG_UNSUPPORTED, sof, {9}},
      {"no height", IMG_BAD_IMAGE, sof, {8, 0, 0}},
      {"no width", IMG_BAD_IMAGE, sof, {8, 0, 20, 0, 0}},
      {"two components", IMG_UNSUPPORTED, sof, {8, 0, 20, 0, 20, 2}},
      {"five components", IMG_UNSUPPORTED, sof, {8, 0, 20, 0, 20, 5}},
      {"factor 0", IMG_BAD_IMAGE, sof, {8, 0, 20, 0, 20, 1, 1, 0x01}},
      {"quantisation table 4", IMG_BAD_IMAGE, sof, {8, 0, 20, 0, 20, 1, 1, 0x11, 4}},
      {"too large for any block", IMG_OUT_OF_MEMORY, sof, {8, 0xFF, 0xFF, 0xFF, 0xFF, 1}},
      {"unknown component", IMG_BAD_IMAGE, sos, {1, 9}},
      {"no component", IMG_BAD_IMAGE, sos, {0}},
      {"Huffman table 3", IMG_BAD_IMAGE, sos, {1, 1, 0x30}},
      {"table that was not defined", IMG_BAD_IMAGE, sos, {1, 1, 0x01}},
      {"shift by 14", IMG_BAD_IMAGE, sos, {1, 1, 0, 0, 0, 0x0E}, "grey-progressive"},
      {"band that ends too soon", IMG_BAD_IMAGE, sos, {1, 1, 0, 2, 1, 0}, "grey-progressive"},
      {"band behind the block", IMG_BAD_IMAGE, sos, {1, 1, 0, 0, 64, 0}, "grey-progressive"},
      {"table of 24 bits", IMG_BAD_IMAGE, {0xFF, 0xDB, 0, 67}, {0x20}},
      {"more than 256 codes",
       IMG_BAD_IMAGE,
       {0xFF, 0xC4, 0, 0xB5, 0x10},
       {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 255, 255}},
      {"more codes than fit", IMG_BAD_IMAGE, {0xFF, 0xC4, 0, 0x1F, 0}, {3}},
      {"length below 2", IMG_BAD_IMAGE, {0xFF, 0xDB}, {0, 1}},
  };
  for (const Case& c : cases) {
    Bytes file = corpus_file(c.file);
    const auto place = find(file, c.place);
    std::ranges::copy(c.changed, place + std::ssize(c.place));
    EXPECT_EQ(decode(file).status.raw(), c.answer) << c.name;
  }
  Bytes lossless = corpus_file("grey");
  find(lossless, sof)[1] = 0xC3;  // skipped, so that there is no frame
  EXPECT_EQ(decode(lossless).status.raw(), IMG_BAD_IMAGE);
}

TEST(JpegDamage, CutFilesHaveTheirFirstRows) {
  for (const char* name : {"grey-restart", "422"}) {
    const Bytes file = corpus_file(name);
    const auto whole = decode(file).sink.image();
    for (std::ptrdiff_t size = 0; size < std::ssize(file); ++size) {
      const Decoded decoded = decode(Bytes(file.begin(), file.begin() + size));
      EXPECT_EQ(decoded.status.failed(), decoded.sink.headers == 0) << name << " " << size;
      for (const CollectedRow& row : decoded.sink.rows) {
        ASSERT_EQ(row.bytes, whole[row.y]) << name << " " << size;
      }
    }
  }
}

TEST(JpegDamage, RestartMarkersAreFoundBehindGarbage) {
  Bytes file = corpus_file("grey-restart");
  const auto expected = decode(file).sink.image();
  const auto marker = find(file, {0xFF, 0xD0});
  for (const int garbage : {0, 1, 50, 51}) {
    const Bytes damaged = joined({Bytes(file.begin(), marker),
                                  Bytes(garbage, 0x55),
                                  {0xFF, 0xD6},  // any number will do
                                  Bytes(marker + 2, file.end())});
    const Decoded decoded = decode(damaged);
    EXPECT_EQ(decoded.status, kOk);
    EXPECT_EQ(decoded.sink.image(), garbage <= 50 ? expected : std::vector<Bytes>(37)) << garbage;
    EXPECT_EQ(decoded.notes.damage, StatusCode::bad_image);  // the number is not its own
  }
}

// Every interval is a block of the picture: a damaged one keeps its level, missing ones are grey, the
// others are as they were.
TEST(JpegReading, DamageEndsAtARestartMarker) {
  for (const char* name : {"grey-restart", "420-restart"}) {
    const Bytes file = corpus_file(name);
    const auto whole = decode(file, 0, usual()).sink.image();
    const auto rows_like = [&](const Bytes& damaged, StatusCode damage = StatusCode::bad_image) {
      const Decoded decoded = decode(damaged, 0, usual());
      EXPECT_EQ(decoded.status, kOk) << name;
      EXPECT_EQ(decoded.notes.damage, damage) << name;
      const auto rows = decoded.sink.image();
      std::size_t same = 0;
      for (std::size_t y = 0; y < rows.size(); ++y) {
        EXPECT_FALSE(rows[y].empty()) << name << " row " << y;
        same += rows[y] == whole[y];
      }
      return same;
    };
    Bytes copy = file;
    const auto first = find(copy, {0xFF, 0xD0});
    const auto second = find(copy, {0xFF, 0xD1});
    const Bytes front(copy.begin(), first), back(second, copy.end());
    const Bytes interval(first + 2, second);
    // Any distance; a marker that comes twice; an interval that is missing; one that means nothing.
    const Bytes far = joined({front, Bytes(500, 0x55), {0xFF, 0xD0}, interval, back});
    EXPECT_EQ(rows_like(far, StatusCode::ok), whole.size());
    EXPECT_EQ(rows_like(joined({front, {0xFF, 0xD0}, interval, {0xFF, 0xD7}, interval, back})),
              whole.size());
    EXPECT_LT(rows_like(joined({front, back})), whole.size());
    EXPECT_GT(rows_like(joined({front, back})), whole.size() / 4);
    EXPECT_GT(rows_like(joined({front, {0xFF, 0xD0}, Bytes(20, 0xFE), back})), whole.size() / 4);
  }
}

// What the triangle filter makes of samples does not depend on where rows of MCUs end, and a scan more
// than the limit is not read.
TEST(JpegReading, EndsAndLimits) {
  const Bytes scans = corpus_file("420-progressive");
  Options few = usual();
  few.set(IMG_OPTION_MAX_SCANS, 1);
  const Decoded first = decode(scans, 0, few), whole = decode(scans, 0, usual());
  EXPECT_EQ(first.status, kOk);
  EXPECT_NE(first.sink.image(), whole.sink.image());
  EXPECT_EQ(first.notes.damage, StatusCode::bad_image);
  EXPECT_EQ(whole.notes.damage, StatusCode::ok);
  // A file that is cut, or has a code that does not exist, has the rows above, and of the last MCUs
  // what came before. The last row has nothing below, the last column nothing on its right.
  const Bytes file = corpus_file("420");
  const auto rows = decode(file, 0, usual()).sink.image();
  constexpr std::ptrdiff_t kMcu = 16;
  std::set<std::size_t> heights;
  for (std::ptrdiff_t size = 700; size < std::ssize(file) - 30; size += 97) {
    const Bytes cut(file.begin(), file.begin() + size);
    const Bytes spoiled = joined({cut, {0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 7}});
    for (const Bytes& damaged : {cut, spoiled}) {
      const Decoded decoded = decode(damaged, 0, usual());
      const std::vector<CollectedRow>& found = decoded.sink.rows;
      heights.insert(found.size());
      const StatusCode reason = damaged == cut ? StatusCode::read_failed : StatusCode::bad_image;
      EXPECT_EQ(decoded.notes.damage, reason);
      EXPECT_GE(decoded.notes.rows, std::ssize(found) - kMcu - 1);
      for (const CollectedRow& row : found) {
        const Bytes& expected = rows[row.y];
        const auto same = std::ranges::mismatch(row.bytes, expected).in1 - row.bytes.begin();
        const std::ptrdiff_t below = std::ssize(found) - 1 - row.y;
        if (row.y < decoded.notes.rows) {
          ASSERT_EQ(same, std::ssize(expected)) << size;
        } else if (below > 0) {
          ASSERT_GE(same, 3 * (kMcu - 2)) << size;
        }
      }
    }
  }
  EXPECT_EQ(heights, (std::set<std::size_t>{16, 32, rows.size()}));
}

TEST(JpegDecode, InsideABitmapItIsTheSamePicture) {
  const Bytes jpeg = corpus_file("grey");
  BmpFields fields{.width = 5, .height = 5, .bits = 24, .compression = 0x4745504A};
  fields.pixels = jpeg;
  const CollectingSink sink = decoded(bmp::decode, bmp_file(fields));
  EXPECT_EQ(sink.headers, 1);
  EXPECT_EQ(sink.image(), decode(jpeg).sink.image());
}

}  // namespace
}  // namespace tq::test
