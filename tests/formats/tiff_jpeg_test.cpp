// JPEG in TIFF as other programs do not write it here: the older layouts, planes, damage. What they
// write is in the corpus.
#include <cmath>

#include "core/context.h"
#include "formats/jpeg/jpeg.h"
#include "formats/tiff/page.h"
#include "formats/tiff/tiff.h"
#include "tests/support/codec_runs.h"
#include "tests/support/tiff_file.h"

namespace tq::test {
namespace {

using namespace tiff;  // NOLINT(google-build-using-namespace): the names of its tags

constexpr int kWidth = 70, kHeight = 53;
using Picture = std::vector<std::vector<std::array<int, 4>>>;  // samples in the file's order

// Smooth, so that little is lost.
Picture smooth_picture() {
  Picture picture(kHeight, std::vector<std::array<int, 4>>(kWidth));
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x)
      picture[y][x] = {20 + 3 * x, 225 - 4 * y, 10 + x + 3 * y, 90 + x};
  }
  return picture;
}

// What a stream of these colours has stored, by the equations of JFIF.
Picture as_ycc(Picture picture) {
  for (auto& row : picture) {
    for (auto& [r, g, b, k] : row) {
      const double luma = 0.299 * r + 0.587 * g + 0.114 * b;
      const double cb = (b - luma) / 1.772 + 128, cr = (r - luma) / 1.402 + 128;
      r = static_cast<int>(std::lround(luma));
      g = static_cast<int>(std::lround(cb));
      b = static_cast<int>(std::lround(cr));
      k = 255 - k;
    }
  }
  return picture;
}

// A part of the picture from this row on, each chunk of which becomes a stream.
TiffPicture part_of(const Picture& picture, Photometric photometric, int samples, int top = 0,
                    int width = kWidth, int height = kHeight) {
  TiffPicture part{.width = width, .height = height, .samples = samples};
  part.photometric = static_cast<int>(photometric);
  part.coding = kJpeg;
  for (int y = top; y < top + height; ++y) {
    for (int x = 0; x < width; ++x) {
      for (int i = 0; i < samples; ++i) part.values.push_back(picture[y][x][i]);
    }
  }
  part.encode = [](std::vector<Bytes> rows, int row_width) {
    const auto in_chunk = static_cast<int>(std::ssize(rows[0])) / row_width;
    for (Bytes& row : rows) {
      for (int x = 0; in_chunk == 3 && x < row_width; ++x) std::swap(row[3 * x], row[3 * x + 2]);
    }
    const auto row_count = static_cast<int>(std::ssize(rows));
    return encoded(jpeg::encode_jpeg, grey_image(row_width, row_count, 8 * in_chunk), rows);
  };
  return part;
}

// The stream's parts: its tables, its frame, its scan header, and the data.
struct Segments {
  Bytes quantisation, huffman, frame, scan, data;
};
Segments segments_of(const Bytes& stream) {
  Segments parts;
  std::size_t at = 2;
  for (int marker = 0; marker != 0xDA;) {
    marker = stream[at + 1];
    const std::size_t end = at + 2 + (stream[at + 2] << 8 | stream[at + 3]);
    Bytes* const to = marker == 0xDB   ? &parts.quantisation
                      : marker == 0xC4 ? &parts.huffman
                      : marker == 0xC0 ? &parts.frame
                      : marker == 0xDA ? &parts.scan
                                       : nullptr;
    if (to != nullptr) to->insert(to->end(), stream.begin() + at, stream.begin() + end);
    at = end;
  }
  parts.data.assign(stream.begin() + at, stream.end() - 2);
  return parts;
}

Bytes joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}
const Bytes kSoi = {0xFF, 0xD8}, kEoi = {0xFF, 0xD9};

// Whether rows from `first` to `end` are the picture's, and there are no others.
void expect_rows(const CollectingSink& sink, const Picture& picture, int samples, int first = 0,
                 int end = kHeight, int loss = 6) {
  ASSERT_EQ(sink.header.header.biBitCount, 8 * samples);
  ASSERT_EQ(static_cast<int>(sink.rows.size()), end - first);
  for (int y = first; y < end; ++y) {
    const CollectedRow& row = sink.rows[y - first];
    ASSERT_EQ(row.y, y);
    for (int x = 0; x < kWidth; ++x) {
      for (int i = 0; i < samples; ++i) {
        const int expected = picture[y][x][samples == 3 ? 2 - i : i];
        ASSERT_NEAR(row.bytes[x * samples + i], expected, loss) << x << ' ' << y << ' ' << i;
      }
    }
  }
}

class TiffJpeg : public testing::Test {
 protected:
  TiffJpeg() {
    jpeg::set_jpeg_quality(100);
    jpeg::set_jpeg_sampling(1, 1);
  }
  ~TiffJpeg() override { context().settings.jpeg = before_; }

  const JpegSettings before_ = context().settings.jpeg;
  const Picture picture_ = smooth_picture();
};

TEST_F(TiffJpeg, EveryArrangementShowsThePicture) {
  struct Kind {
    Photometric photometric;
    int samples;
    bool converted;  // the page says what the components are, and no segment of the stream
  };
  for (const Kind kind :
       {Kind{Photometric::black_is_zero, 1, false}, Kind{Photometric::ycbcr, 3, false},
        Kind{Photometric::rgb, 3, true}, Kind{Photometric::separated, 4, true}}) {
    for (const auto& [width, height, apart] : std::vector<std::array<int, 3>>{
             {kWidth, kHeight, 0}, {kWidth, 16, 0}, {48, 24, 0}, {kWidth, 16, 1}, {32, 64, 1}}) {
      if (apart != 0 && kind.photometric == Photometric::ycbcr) continue;
      SCOPED_TRACE(testing::Message() << kind.samples << ' ' << width << 'x' << height << apart);
      TiffPicture picture = part_of(picture_, kind.photometric, kind.samples);
      picture.apart = apart != 0;
      picture.rows_per_strip = height;
      picture.tile_width = width < kWidth ? width : 0;
      picture.tile_height = height;
      TiffPage page = tiff_page(picture, {});
      TiffField tables{kJpegTables, 7, {}};
      for (Bytes& chunk : page.chunks) {
        const Segments parts = segments_of(chunk);
        const Bytes common = joined({kSoi, parts.quantisation, parts.huffman, kEoi});
        tables.values.assign(common.begin(), common.end());
        chunk = joined({kSoi, parts.frame, parts.scan, parts.data, kEoi});
      }
      page.fields.push_back(tables);
      expect_rows(decoded(decode_tiff, tiff_file({}, {page})),
                  kind.converted && apart == 0 ? as_ycc(picture_) : picture_, kind.samples);
    }
  }
}

TEST_F(TiffJpeg, OldLayoutsShowThePicture) {
  for (const int samples : {1, 3}) {
    const auto photometric = samples == 1 ? Photometric::black_is_zero : Photometric::ycbcr;
    TiffPicture picture = part_of(picture_, photometric, samples);
    picture.coding = kOldJpeg;
    const Bytes whole = tiff_page(picture, {}).chunks[0];
    const Segments parts = segments_of(whole);
    const Bytes tables = joined({kSoi, parts.quantisation, parts.huffman});
    picture.rows_per_strip = 24;
    const TiffPage strips = tiff_page(picture, {});
    std::vector<Bytes> data = strips.chunks;  // without headers
    for (Bytes& strip : data) strip = segments_of(strip).data;
    const std::vector<Bytes> thirds = {{whole.begin(), whole.begin() + 400},
                                       {whole.begin() + 400, whole.begin() + 900},
                                       {whole.begin() + 900, whole.end()}};
    const auto expect_picture = [&](const char* layout, const std::vector<Bytes>& chunks,
                                    auto&& describe) {
      SCOPED_TRACE(testing::Message() << layout << ", samples " << samples);
      TiffPage page = strips;
      page.chunks = chunks;
      describe(page);
      expect_rows(decoded(decode_tiff, tiff_file({}, {page})), picture_, samples);
    };
    const auto nothing = [](TiffPage&) {};
    const auto at_513 = [](const Bytes& stream) {
      return [stream](TiffPage& page) {
        page.before = stream;
        page.fields.push_back({kJpegInterchangeFormat, 4, {8}});
        page.fields.push_back({kJpegInterchangeFormatLength, 4, {stream.size()}});
      };
    };
    expect_picture("a stream in each strip", strips.chunks, nothing);
    expect_picture("a stream in all strips", thirds, nothing);
    expect_picture("a stream of its own", {Bytes(9, 1), Bytes(9, 2), Bytes(9, 3)}, at_513(whole));
    expect_picture("a header of its own", data, at_513(joined({tables, parts.frame, parts.scan})));
    expect_picture("one without a scan", data, at_513(joined({tables, parts.frame, kEoi})));
    expect_picture("tables by tags", data, [&](TiffPage& page) {
      // The encoder's own order: luminance, then chrominance.
      page.before = joined({parts.quantisation, parts.huffman});
      const std::uint64_t all = 8 + 5, codes = 8 + parts.quantisation.size();
      const std::uint64_t ac_0 = codes + 4 + 29, dc_1 = ac_0 + 4 + 179, ac_1 = dc_1 + 4 + 29;
      TiffField steps{kJpegQTables, 4, {}}, dc{kJpegDcTables, 4, {}}, ac{kJpegAcTables, 4, {}};
      for (int i = 0; i < samples; ++i) {
        steps.values.push_back(i == 0 ? all : all + 65);
        dc.values.push_back((i == 0 ? codes : dc_1) + 5);
        ac.values.push_back((i == 0 ? ac_0 : ac_1) + 5);
      }
      const TiffField nowhere{kJpegInterchangeFormat, 4, {0x10000000}};
      for (const TiffField& field :
           {steps, dc, ac, TiffField{kYCbCrSubSampling, 3, {1, 1}}, nowhere}) {
        page.fields.push_back(field);
      }
    });
  }
}

TEST_F(TiffJpeg, DamageStaysInItsStrip) {
  constexpr int kRows = 16;
  const auto stream_of = [&](int samples, int top, int width, int height) {
    const TiffPicture part = part_of(picture_, Photometric::ycbcr, samples, top, width, height);
    return tiff_page(part, {}).chunks[0];
  };
  TiffPicture picture = part_of(picture_, Photometric::ycbcr, 3);
  picture.rows_per_strip = kRows;
  TiffPage strips_page = tiff_page(picture, {});
  const std::vector<Bytes> strips = strips_page.chunks;
  const auto page = [&](const Bytes& first, const Bytes& second) {
    strips_page.chunks[0] = first;
    strips_page.chunks[1] = second;
    return tiff_file({}, {strips_page});
  };
  Bytes huge = strips[0];
  const Bytes frame = segments_of(huge).frame;
  const auto at = std::search(huge.begin(), huge.end(), frame.begin(), frame.end());
  std::fill_n(at + 5, 4, std::uint8_t{0xFF});
  *(at + 1) = 0xC2;  // progressive, whose coefficients would all be kept
  memory_probe::refuse_above(1 << 20);
  for (const Bytes& first : {Bytes(), Bytes{1, 2, 3}, huge, stream_of(1, 0, 70, 16),
                             Bytes(strips[0].begin(), strips[0].begin() + 300)}) {
    expect_rows(decoded(decode_tiff, page(first, strips[1])), picture_, 3, kRows);
  }
  memory_probe::refuse_above(kLargestBlock);

  // Frames that are longer and shorter than their strips.
  expect_rows(decoded(decode_tiff, page(stream_of(3, 0, kWidth, 40), strips[1])), picture_, 3);
  const CollectingSink lacking = decoded(decode_tiff, page(stream_of(3, 0, kWidth, 8), strips[1]));
  EXPECT_EQ(lacking.rows.size(), kHeight - 8u);
  EXPECT_EQ(lacking.rows[8].y, kRows);
  const CollectingSink narrow =
      decoded(decode_tiff, page(stream_of(3, 0, 60, kRows), stream_of(3, kRows, 40, kRows)));
  EXPECT_NE(narrow.rows.at(kRows - 1).bytes[3 * 59], 0);
  EXPECT_NE(narrow.rows.at(kRows).bytes[3 * 39], 0);
  for (int i = 3 * 40; i < 3 * kWidth; ++i) EXPECT_EQ(narrow.rows.at(kRows).bytes[i], 0);

  CollectingSink sink;
  sink.row_answer = -77;
  sink.answered_row = 20;
  Bytes file = page(strips[0], strips[1]);
  open_memory_stream(file.data(), file.size());
  EXPECT_EQ(decode_tiff({.stream = kMemoryStream, .sink = sink.sink()}).raw(), -77);
  EXPECT_EQ(sink.rows.size(), 21u);
}

TEST_F(TiffJpeg, WhatIsWrittenCanBeReadAndAppendedTo) {
  jpeg::set_jpeg_sampling(2, 2);
  const auto rows_of = [&](int samples) {
    std::vector<Bytes> rows;
    for (const auto& line : picture_) {
      Bytes row;
      for (const auto& pixel : line) {
        for (int i = 0; i < samples; ++i) row.push_back(byte(pixel[i < 3 ? 2 - i : i]));
      }
      rows.push_back(row);
    }
    return rows;
  };
  Picture red = picture_;
  for (auto& row : red) {
    for (auto& pixel : row) pixel[0] = pixel[2];
  }
  const formats::FileType type{.code = 0, .name = "", .title = "", .variant = kOldJpeg};
  const MemoryFile file;
  const int depths[] = {24, 8, 32};
  for (const int bits : depths) {
    HeaderBlock image = grey_image(kWidth, kHeight, bits);
    GivenRows given(rows_of(bits / 8));
    ASSERT_EQ(seek(MemoryFile::kHandle, 0, Origin::start), 0);
    EXPECT_EQ(encode_tiff({MemoryFile::kHandle, &image, given.supplier(), &type}), kOk);
  }
  for (int page = 0; page < 3; ++page) {
    CollectingSink sink;
    ASSERT_EQ(seek(MemoryFile::kHandle, 0, Origin::start), 0);
    EXPECT_EQ(decode_tiff({.stream = MemoryFile::kHandle, .sink = sink.sink(), .page = page}), kOk);
    expect_rows(sink, page == 1 ? red : picture_, page == 1 ? 1 : 3, 0, kHeight, 12);
  }

  const auto check = [&](int bits, bool cmyk) {
    HeaderBlock image = grey_image(kWidth, kHeight, bits);
    return can_encode_tiff({MemoryFile::kHandle, &image, {}, &type, cmyk});
  };
  for (const int bits : {1, 4, 16}) EXPECT_EQ(check(bits, false), StatusCode::wrong_depth);
  EXPECT_EQ(check(32, true), StatusCode::wrong_depth);
  EXPECT_EQ(check(32, false), kOk);
}

}  // namespace
}  // namespace tq::test
