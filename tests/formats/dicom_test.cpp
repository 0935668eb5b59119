// DICOM files byte by byte: every way of writing elements and pixels, values to levels, frames,
// sequences, damage. Files of other programs are in the corpus.
#include "formats/dicom/dicom.h"
#include "core/numbers.h"
#include "formats/jpeg/jpeg.h"
#include "tests/support/codec_runs.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

using Texts = std::vector<std::pair<std::uint32_t, std::string>>;

// Elements in one of the ways to write them.
struct DataSet {
  bool explicit_types = true, big_endian = false;
  Bytes bytes{};

  void number(std::uint32_t value, int size) {
    for (int i = 0; i < size; ++i) {
      bytes.push_back(byte(value >> 8 * (big_endian ? size - 1 - i : i)));
    }
  }
  void header(std::uint32_t tag, std::string_view type, std::uint32_t length) {
    number(tag >> 16, 2);
    number(tag & 0xFFFF, 2);
    if (!explicit_types || tag >> 16 == 0xFFFE) return number(length, 4);
    bytes.insert(bytes.end(), type.begin(), type.end());
    const bool is_long = type[0] == 'O' || type == "SQ" || type == "UN";
    if (is_long) number(0, 2);
    number(length, is_long ? 4 : 2);
  }
  void text(std::uint32_t tag, std::string value) {
    if (value.size() % 2 != 0) value += ' ';
    header(tag, "DS", static_cast<std::uint32_t>(value.size()));
    bytes.insert(bytes.end(), value.begin(), value.end());
  }
  void words(std::uint32_t tag, const std::vector<int>& values) {
    header(tag, "US", static_cast<std::uint32_t>(2 * values.size()));
    for (const int value : values) number(static_cast<std::uint32_t>(value), 2);
  }
  void append(const Bytes& more) { bytes.insert(bytes.end(), more.begin(), more.end()); }
};

struct Picture {
  int rows = 1, columns = 4, allocated = 8, stored = 8, high_bit = 7;
  std::string photometric = "MONOCHROME2";
  bool is_signed = false, planes = false;
  Texts texts{};                           // frames, window, slope …
  std::vector<std::vector<int>> tables{};  // of a palette: a descriptor and words, three times
};

constexpr std::uint32_t kFrames = 0x00280008, kCentre = 0x00281050, kWidth = 0x00281051,
                        kIntercept = 0x00281052, kSlope = 0x00281053;

void put_picture(DataSet& set, const Picture& picture) {
  const bool colours = picture.photometric[0] == 'R' || picture.photometric[0] == 'Y';
  set.words(0x00280002, {colours ? 3 : 1});
  set.text(0x00280004, picture.photometric);
  set.words(0x00280006, {picture.planes});
  set.words(0x00280010, {picture.rows});
  set.words(0x00280011, {picture.columns});
  set.words(0x00280100, {picture.allocated});
  set.words(0x00280101, {picture.stored});
  set.words(0x00280102, {picture.high_bit});
  set.words(0x00280103, {picture.is_signed});
  for (const auto& [tag, text] : picture.texts) set.text(tag, text);
  for (std::uint32_t i = 0; i < picture.tables.size(); ++i) {
    set.words((i % 2 == 0 ? 0x00281101 : 0x00281201) + i / 2, picture.tables[i]);
  }
}

const std::string kRoot = "1.2.840.10008.1.2";

Bytes begin_file(const std::string& syntax) {
  DataSet meta;
  meta.bytes.resize(128);
  meta.append({'D', 'I', 'C', 'M'});
  meta.text(0x00020010, kRoot + syntax);
  return meta.bytes;
}

// Values of one size, as the data set writes numbers.
void put_pixels(DataSet& set, const std::vector<int>& values, int size) {
  set.header(0x7FE00010, "OW", static_cast<std::uint32_t>(size * std::ssize(values)));
  for (const int value : values) set.number(static_cast<std::uint32_t>(value), size);
}

Bytes plain_file(const Picture& picture, const std::vector<int>& values) {
  DataSet set{.bytes = begin_file(".1")};
  put_picture(set, picture);
  put_pixels(set, values, std::max(picture.allocated / 8, 1));
  return set.bytes;
}

Bytes coded_file(const std::string& syntax, const Picture& picture, const std::vector<int>& offsets,
                 const std::vector<Bytes>& fragments) {
  DataSet set{.bytes = begin_file(syntax)};
  put_picture(set, picture);
  set.header(0x7FE00010, "OB", 0xFFFFFFFF);
  set.header(0xFFFEE000, "", static_cast<std::uint32_t>(4 * offsets.size()));
  for (const int offset : offsets) set.number(static_cast<std::uint32_t>(offset), 4);
  for (const Bytes& fragment : fragments) {
    set.header(0xFFFEE000, "", static_cast<std::uint32_t>(fragment.size()));
    set.append(fragment);
  }
  set.header(0xFFFEE0DD, "", 0);
  return set.bytes;
}

// Segments of one value each: a run as long as it has to be.
Bytes rle_frame(const std::vector<int>& values) {
  DataSet frame;
  frame.number(static_cast<std::uint32_t>(values.size()), 4);
  for (std::uint32_t i = 0; i < 15; ++i) frame.number(i < values.size() ? 64 + 2 * i : 0, 4);
  for (const int value : values) frame.append({0x81, byte(value)});
  return frame.bytes;
}

CollectingSink decode(Bytes file, std::int32_t page = -1, std::int32_t status = 0) {
  CollectingSink sink;
  open_memory_stream(file.data(), file.size());
  EXPECT_EQ(dicom::decode_dicom({.stream = kMemoryStream, .sink = sink.sink(), .page = page}).raw(),
            status);
  return sink;
}

Bytes row(const Bytes& file, std::int32_t page = -1) {
  const CollectingSink sink = decode(file, page);
  return sink.rows.empty() ? Bytes{} : sink.rows[0].bytes;
}

const Picture kDeep{.allocated = 16,
                    .stored = 12,
                    .high_bit = 11,
                    .texts = {{kCentre, "0100.5\\9"}, {kWidth, "+1.56E2 "}, {kSlope, ".5"}}};
const std::vector<int> kDeepValues = {0xF000 | 46, 202, 0xF000 | 356, 4000};
const Bytes kDeepLevels = {1, 129, 255, 255};

TEST(Dicom, EveryTransferSyntaxGivesTheSamePicture) {
  const auto elements = [](bool explicit_types, bool big_endian) {
    DataSet set{explicit_types, big_endian};
    put_picture(set, kDeep);
    put_pixels(set, kDeepValues, 2);
    return set.bytes;
  };
  const auto file = [&](const std::string& syntax, const Bytes& data) {
    return joined({begin_file(syntax), data});
  };
  const Bytes plain = elements(true, false);
  Bytes deflated = {1, byte(plain.size()), byte(plain.size() >> 8), byte(~plain.size()),
                    byte(~plain.size() >> 8)};
  EXPECT_EQ(row(file("", elements(false, false))), kDeepLevels);
  EXPECT_EQ(row(file(".1", plain)), kDeepLevels);
  EXPECT_EQ(row(file(".2", elements(true, true))), kDeepLevels);
  EXPECT_EQ(row(file(".1.99", joined({deflated, plain}))), kDeepLevels);
  // Not as the file says.
  EXPECT_EQ(row(file("", plain)), kDeepLevels);
  EXPECT_EQ(row(file(".1", elements(false, false))), kDeepLevels);
  // Without the mark, or with nothing before it.
  EXPECT_EQ(row(elements(false, false)), kDeepLevels);
  EXPECT_EQ(row(plain), kDeepLevels);
  EXPECT_EQ(row(joined({{'D', 'I', 'C', 'M'}, plain})), kDeepLevels);
  for (const bool explicit_types : {false, true}) {
    DataSet big{explicit_types, true};
    big.text(0x00080060, "CT");
    EXPECT_EQ(row(joined({big.bytes, elements(explicit_types, true)})), kDeepLevels);
  }
  DataSet turned{.big_endian = true, .bytes = begin_file(".2")};
  put_picture(turned, {.rows = 2, .columns = 3});
  put_pixels(turned, {2, 1, 4, 3, 6, 5}, 1);
  EXPECT_EQ(decode(turned.bytes).image(), (std::vector<Bytes>{{1, 2, 3, 0}, {4, 5, 6, 0}}));
  for (const std::string syntax : {".4.57", ".4.70", ".4.80", ".4.90", ".6", "0", ".1.9"}) {
    decode(file(syntax, plain), -1, -7);
  }
}

TEST(Dicom, ValuesBecomeLevelsByWindowsOrByTheirRange) {
  const auto levels = [](Picture picture, const std::vector<int>& values) {
    const Bytes bytes = row(plain_file(picture, values));
    return Bytes(bytes.begin(), bytes.begin() + 4);
  };
  EXPECT_EQ(levels({}, {7, 0, 255, 200}), (Bytes{7, 0, 255, 200}));
  EXPECT_EQ(levels({.photometric = "MONOCHROME1"}, {7, 0, 255, 200}), (Bytes{248, 255, 0, 55}));
  // The bits above and below are something else.
  EXPECT_EQ(levels({.stored = 4, .high_bit = 5}, {0xC4 + 3, 0x10, 0x3C, 0x20}),
            (Bytes{0, 55, 255, 128}));
  EXPECT_EQ(levels({.is_signed = true}, {0x80, 0x7F, 0, 0xFF}), (Bytes{0, 255, 128, 127}));
  EXPECT_EQ(levels({.texts = {{kSlope, "-2"}, {kIntercept, "5e1"}}}, {1, 5, 2, 3}),
            (Bytes{255, 0, 191, 128}));
  EXPECT_EQ(levels({.texts = {{kCentre, "5"}, {kWidth, "1"}}}, {4, 5, 6, 0}),
            (Bytes{0, 255, 255, 0}));
  EXPECT_EQ(levels({.texts = {{kCentre, "none"}, {kWidth, "1e999"}}}, {4, 5, 6, 0}),
            (Bytes{4, 5, 6, 0}));
  EXPECT_EQ(levels({.allocated = 16, .stored = 16, .high_bit = 15}, {9, 9, 9, 9}),
            (Bytes{0, 0, 0, 0}));
  const int most = INT32_MAX, least = INT32_MIN;
  EXPECT_EQ(levels({.allocated = 32, .stored = 32, .high_bit = 31, .is_signed = true},
                   {least, -1, most, 0}),
            (Bytes{0, 127, 255, 128}));
  EXPECT_EQ(levels({.columns = 2, .texts = {{0x00182010, ".0847\\.1"}}}, {1, 2}),
            (Bytes{1, 2, 0, 0}));
  const CollectingSink sized =
      decode(plain_file({.texts = {{0x00182010, ".0847\\.1"}}}, {1, 2, 3, 4}));
  EXPECT_EQ(sized.header.header.biYPelsPerMeter, 300);
  EXPECT_EQ(sized.header.header.biXPelsPerMeter, 254);
}

TEST(Dicom, ColoursTogetherApartAndInPalettes) {
  const std::vector<int> six = {10, 20, 30, 40, 50, 60};
  EXPECT_EQ(row(plain_file({.columns = 2, .photometric = "RGB"}, six)),
            (Bytes{30, 20, 10, 60, 50, 40, 0, 0}));
  EXPECT_EQ(row(plain_file({.columns = 2, .photometric = "RGB", .planes = true}, six)),
            (Bytes{50, 30, 10, 60, 40, 20, 0, 0}));
  EXPECT_EQ(row(plain_file(
                {.columns = 1, .allocated = 16, .stored = 12, .high_bit = 11, .photometric = "RGB"},
                {4095, 2048, 8})),
            (Bytes{0, 128, 255, 0}));
  EXPECT_EQ(row(plain_file({.columns = 1, .photometric = "YBR_FULL"}, {100, 228, 28})),
            (Bytes{255, 137, 0, 0}));
  EXPECT_EQ(row(plain_file({.columns = 3, .photometric = "YBR_FULL_422"},
                           {9, 90, 128, 128, 50, 0, 138, 128})),
            (Bytes{9, 9, 9, 90, 90, 90, 68, 47, 50, 0, 0, 0}));
  Picture palette{.photometric = "PALETTE COLOR",
                  .tables = {{2, 5, 16},
                             {0x1234, 0xFF00},
                             {2, 5, 16},
                             {0x2000, 0x00FF},
                             {2, 5, 16},
                             {0x3000, 0x8000}}};
  const CollectingSink small = decode(plain_file(palette, {5, 6, 0, 9}));
  EXPECT_EQ(small.rows.at(0).bytes, (Bytes{0, 1, 0, 1}));  // those beyond have the nearest
  EXPECT_EQ(small.header.palette[0], (Rgb{0x30, 0x20, 0x12, 0}));
  EXPECT_EQ(small.header.palette[1], (Rgb{0x80, 0, 0xFF, 0}));
  palette.tables = {{300, 0, 16}, {256, 512}, {300, 0, 16}, {768, 1024}, {300, 0, 16}, {1280}};
  palette.columns = 3;
  EXPECT_EQ(row(plain_file(palette, {0, 1, 2})), (Bytes{5, 3, 1, 0, 4, 2, 0, 0, 0, 0, 0, 0}));
  palette.tables.resize(4);
  decode(plain_file(palette, {0, 1, 2}), -1, -3);
}

TEST(Dicom, FramesArePages) {
  const Texts three = {{kFrames, "3 "}};
  const Bytes file = plain_file({.columns = 2, .texts = three}, {1, 2, 3, 4, 5});
  EXPECT_EQ(row(file), (Bytes{1, 2, 0, 0}));
  EXPECT_EQ(row(file, 1), (Bytes{3, 4, 0, 0}));
  EXPECT_EQ(row(file, 2), (Bytes{5, 0, 0, 0}));  // cut off
  decode(file, 3, -31);
  // Bits go on across rows and frames, the lowest first.
  const Bytes bits = plain_file(
      {.columns = 3, .allocated = 1, .stored = 1, .high_bit = 0, .texts = three}, {0b10001010, 1});
  EXPECT_EQ(row(bits), (Bytes{0, 255, 0, 0}));
  EXPECT_EQ(row(bits, 1), (Bytes{255, 0, 0, 0}));
  EXPECT_EQ(row(bits, 2), (Bytes{0, 255, 255, 0}));

  const Picture coded{.columns = 2,
                      .allocated = 16,
                      .stored = 16,
                      .high_bit = 15,
                      .texts = {{kFrames, "2"}, {kCentre, "700"}, {kWidth, "2"}}};
  const Bytes first = rle_frame({2, 0}), second = rle_frame({3, 0});
  const Bytes black = {0, 0, 0, 0}, white = {255, 255, 0, 0};
  const auto both = [&](const std::vector<int>& offsets, const std::vector<Bytes>& fragments) {
    const Bytes frames = coded_file(".5", coded, offsets, fragments);
    EXPECT_EQ(row(frames, 0), black);
    EXPECT_EQ(row(frames, 1), white);
  };
  both({}, {first, second});
  const Bytes head(second.begin(), second.begin() + 66), tail(second.begin() + 66, second.end());
  both({0, 76}, {first, head, tail});
  decode(coded_file(".5", coded, {}, {first, head, tail}), 1, -3);
  EXPECT_TRUE(decode(coded_file(".5", coded, {}, {first}), 1).rows.empty());
  Picture one = coded;
  one.texts[0].second = "1";
  EXPECT_EQ(row(coded_file(".5", one, {}, {head, tail})), white);
  decode(coded_file(".5", one, {}, {rle_frame({1, 2, 3})}), -1, -3);
  one = {.columns = 2, .photometric = "RGB"};
  EXPECT_EQ(row(coded_file(".5", one, {}, {rle_frame({1, 2, 3})})),
            (Bytes{3, 2, 1, 3, 2, 1, 0, 0}));
}

// JPEG streams as the decoder sees them by itself, in pieces and behind a window.
TEST(Dicom, JpegStreamsAreBelieved) {
  const auto frame = [](const Picture& picture, const Bytes& stream) {
    const auto middle = stream.begin() + 300;
    return coded_file(".4.50", picture, {}, {{stream.begin(), middle}, {middle, stream.end()}});
  };
  const Bytes grey = file_content("corpus/jpeg/grey.jpg");
  const auto shown = decoded(jpeg::decode_jpeg, grey).image();
  EXPECT_EQ(decode(frame({}, grey)).image(), shown);
  std::vector<Bytes> seen =
      decode(frame({.texts = {{kCentre, "128"}, {kWidth, "1"}}}, grey)).image();
  for (std::size_t x = 0; x < 48; ++x) EXPECT_EQ(seen[9][x], shown[9][x] > 127 ? 255 : 0);
  seen = decode(frame({.texts = {{kSlope, "-1"}}}, grey)).image();
  const auto [least, most] = std::ranges::minmax(seen[9]);
  EXPECT_LT(least + 100, most);

  // Without the segment that says so, only the names of the components tell what they are.
  Bytes named = file_content("corpus/jpeg/rgb.jpg");
  const auto colours = decoded(jpeg::decode_jpeg, named).image();
  const Bytes marker = {0xFF, 0xEE};
  const auto segment = std::search(named.begin(), named.end(), marker.begin(), marker.end());
  named.erase(segment, segment + 16);
  EXPECT_EQ(decode(frame({.photometric = "RGB"}, named)).image(), colours);
  EXPECT_NE(decode(frame({.photometric = "YBR_FULL"}, named)).image(), colours);
}

TEST(Dicom, SequencesArePassedOver) {
  const auto with = [](auto put, std::int32_t status = 0) {
    DataSet set{.bytes = begin_file(".1")};
    put(set);
    put_picture(set, {});
    put_pixels(set, {1, 2, 3, 4}, 1);
    return decode(set.bytes, -1, status).rows.size();
  };
  const std::uint32_t open = 0xFFFFFFFF, item = 0xFFFEE000, item_end = 0xFFFEE00D, end = 0xFFFEE0DD;
  EXPECT_EQ(with([&](DataSet& set) {
              set.header(0x00081111, "SQ", open);
              set.header(item, "", open);
              set.words(0x00280010, {77});
              set.header(0x00880200, "SQ", open);
              set.header(item, "", 10);
              set.words(0x7FE00010, {9});
              set.header(end, "", 0);
              set.header(item_end, "", 0);
              set.header(end, "", 0);
              set.header(0x00091010, "UN", open);  // holds no types
              set.header(item, "", open);
              set.explicit_types = false;
              set.words(0x00280010, {77});
              set.explicit_types = true;
              set.header(item_end, "", 0);
              set.header(end, "", 0);
            }),
            1u);
  with(
      [&](DataSet& set) {
        for (int i = 0; i < 17; ++i) {
          set.header(0x00081111, "SQ", open);
          set.header(item, "", open);
        }
      },
      -3);
  with([&](DataSet& set) { set.header(0x00081111, "UN", 0xFFFFFFFE); }, -12);
  with(
      [&](DataSet& set) {
        set.text(0x00080005, "IR");  // tells which form the elements have
        set.bytes.insert(set.bytes.end(), {8, 0, 8, 0, 1, 2, 0, 0});
      },
      -3);
}

TEST(Dicom, RefusesWhatCannotBe) {
  const auto status = [](const Picture& picture, int expected) {
    EXPECT_TRUE(decode(plain_file(picture, {1, 2}), -1, expected).rows.empty());
  };
  status({.rows = 0}, -3);
  status({.columns = 0}, -3);
  status({.allocated = 0}, -3);
  status({.allocated = 12}, -7);
  status({.stored = 9}, -3);
  status({.high_bit = 8}, -3);
  status({.high_bit = 6}, -3);
  status({.photometric = "ARGB"}, -7);
  status({.photometric = "CMYK"}, -7);
  status({.allocated = 32, .photometric = "RGB"}, -7);
  status({.rows = 65535, .columns = 65535, .photometric = "RGB"}, -1);
  // Rows that are there are kept; frames that nobody could count are not.
  EXPECT_EQ(decode(plain_file({.rows = 9, .columns = 2}, {1, 2, 3})).rows.size(), 2u);
  EXPECT_TRUE(
      decode(plain_file({.texts = {{kFrames, "2147483647"}}}, {1}), 2147483646).rows.empty());
  decode(Bytes(9), -1, -12);
  decode(begin_file(".1"), -1, -12);
  decode(coded_file(".1", {}, {}, {{1, 2, 3, 4}}), -1, -3);
  decode(coded_file(".4.50", {}, {}, {}), -1, -12);
}

}  // namespace
}  // namespace tq::test
