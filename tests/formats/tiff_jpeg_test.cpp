// JPEG in TIFF as other programs do not write it here: the older layouts, planes, damage. What they
// write is in the corpus.
#include <cmath>
#include <map>

#include "core/context.h"
#include "formats/jpeg/jpeg.h"
#include "formats/tiff/page.h"
#include "formats/tiff/tiff.h"
#include "tests/support/codec_runs.h"

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

// A stream of a part of the picture: its first sample, or three, or four; what lies outside is the
// nearest pixel's.
Bytes stream_of(const Picture& picture, int samples, int left, int top, int width, int height,
                int plane = 0) {
  std::vector<Bytes> rows;
  for (int y = top; y < top + height; ++y) {
    Bytes row;
    for (int x = left; x < left + width; ++x) {
      const auto& pixel = picture[std::min(y, kHeight - 1)][std::min(x, kWidth - 1)];
      for (int i = 0; i < samples; ++i) {
        row.push_back(byte(pixel[samples == 1 ? plane : samples == 3 ? 2 - i : i]));
      }
    }
    rows.push_back(row);
  }
  return encoded(jpeg::encode_jpeg, grey_image(width, height, 8 * samples), rows);
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

// A little-endian file of one page, whose values of more than four bytes lie before its directory.
class TiffFile {
 public:
  TiffFile(Coding coding, Photometric photometric, int samples) {
    set(kImageWidth, {kWidth});
    set(kImageLength, {kHeight});
    set(kCompression, {coding});
    set(kPhotometric, {static_cast<std::uint32_t>(photometric)});
    set(kBitsPerSample, {8});
    set(kSamplesPerPixel, {static_cast<std::uint32_t>(samples)});
  }
  void set(Tag tag, std::vector<std::uint32_t> values) { longs_[tag] = std::move(values); }
  std::uint32_t add(const Bytes& bytes) {
    const auto offset = static_cast<std::uint32_t>(file_.size());
    file_.insert(file_.end(), bytes.begin(), bytes.end());
    return offset;
  }
  void add_bytes(Tag tag, const Bytes& bytes) {
    bytes_[tag] = {add(bytes), static_cast<std::uint32_t>(bytes.size())};
  }
  void add_chunks(const std::vector<Bytes>& chunks) {
    std::vector<std::uint32_t> offsets, counts;
    for (const Bytes& chunk : chunks) {
      offsets.push_back(chunk.empty() ? 0 : add(chunk));
      counts.push_back(static_cast<std::uint32_t>(chunk.size()));
    }
    set(kStripOffsets, offsets);
    set(kStripByteCounts, counts);
  }

  Bytes finish() const {
    Bytes file = file_, directory;
    const auto put = [](Bytes& to, std::size_t value, int bytes) {
      for (int i = 0; i < bytes; ++i) to.push_back(byte(static_cast<int>(value >> 8 * i & 0xFF)));
    };
    const auto put_entry = [&](Tag tag, Type type, std::size_t count, std::size_t value) {
      put(directory, tag, 2);
      put(directory, type, 2);
      put(directory, count, 4);
      put(directory, value, 4);
    };
    for (const auto& [tag, values] : longs_) {
      put_entry(tag, kLong, values.size(), values.size() == 1 ? values[0] : file.size());
      if (values.size() == 1) continue;
      for (const std::uint32_t value : values) put(file, value, 4);
    }
    for (const auto& [tag, place] : bytes_) put_entry(tag, kUndefined, place.second, place.first);
    Bytes start;
    put(start, file.size(), 4);
    std::ranges::copy(start, file.begin() + 4);
    put(file, longs_.size() + bytes_.size(), 2);
    file.insert(file.end(), directory.begin(), directory.end());
    put(file, 0, 4);
    return file;
  }

 private:
  Bytes file_ = {'I', 'I', 42, 0, 0, 0, 0, 0};
  std::map<Tag, std::vector<std::uint32_t>> longs_;
  std::map<Tag, std::pair<std::uint32_t, std::uint32_t>> bytes_;
};

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
      TiffFile file(kJpeg, kind.photometric, kind.samples);
      if (width < kWidth) {
        file.set(kTileWidth, {static_cast<std::uint32_t>(width)});
        file.set(kTileLength, {static_cast<std::uint32_t>(height)});
      } else {
        file.set(kRowsPerStrip, {static_cast<std::uint32_t>(height)});
      }
      if (apart != 0) file.set(kPlanarConfiguration, {2});
      std::vector<Bytes> chunks;
      Bytes tables;
      for (int plane = 0; plane < (apart != 0 ? kind.samples : 1); ++plane) {
        for (int y = 0; y < kHeight; y += height) {
          for (int x = 0; x < kWidth; x += width) {
            const Bytes stream =
                stream_of(picture_, apart != 0 ? 1 : kind.samples, x, y, width, height, plane);
            const Segments parts = segments_of(stream);
            tables = joined({kSoi, parts.quantisation, parts.huffman, kEoi});
            chunks.push_back(joined({kSoi, parts.frame, parts.scan, parts.data, kEoi}));
          }
        }
      }
      file.add_bytes(kJpegTables, tables);
      file.add_chunks(chunks);
      expect_rows(decoded(decode_tiff, file.finish()),
                  kind.converted && apart == 0 ? as_ycc(picture_) : picture_, kind.samples);
    }
  }
}

TEST_F(TiffJpeg, OldLayoutsShowThePicture) {
  constexpr int kRows = 24;
  for (const int samples : {1, 3}) {
    const auto photometric = samples == 1 ? Photometric::black_is_zero : Photometric::ycbcr;
    const Bytes whole = stream_of(picture_, samples, 0, 0, kWidth, kHeight);
    const Segments parts = segments_of(whole);
    const Bytes tables = joined({kSoi, parts.quantisation, parts.huffman});
    std::vector<Bytes> streams, data;  // of strips, and without their headers
    for (int y = 0; y < kHeight; y += kRows) {
      streams.push_back(stream_of(picture_, samples, 0, y, kWidth, std::min(kRows, kHeight - y)));
      data.push_back(segments_of(streams.back()).data);
    }
    const std::vector<Bytes> thirds = {{whole.begin(), whole.begin() + 400},
                                       {whole.begin() + 400, whole.begin() + 900},
                                       {whole.begin() + 900, whole.end()}};
    const auto expect_picture = [&](const char* layout, const std::vector<Bytes>& chunks,
                                    auto&& describe) {
      SCOPED_TRACE(testing::Message() << layout << ", samples " << samples);
      TiffFile file(kOldJpeg, photometric, samples);
      file.set(kRowsPerStrip, {kRows});
      describe(file);
      file.add_chunks(chunks);
      expect_rows(decoded(decode_tiff, file.finish()), picture_, samples);
    };
    const auto nothing = [](TiffFile&) {};
    const auto at_513 = [](const Bytes& stream) {
      return [stream](TiffFile& file) {
        file.set(kJpegInterchangeFormat, {file.add(stream)});
        file.set(kJpegInterchangeFormatLength, {static_cast<std::uint32_t>(stream.size())});
      };
    };
    expect_picture("a stream in each strip", streams, nothing);
    expect_picture("a stream in all strips", thirds, nothing);
    expect_picture("a stream of its own", {Bytes(9, 1), Bytes(9, 2), Bytes(9, 3)}, at_513(whole));
    expect_picture("a header of its own", data, at_513(joined({tables, parts.frame, parts.scan})));
    expect_picture("one without a scan", data, at_513(joined({tables, parts.frame, kEoi})));
    expect_picture("tables by tags", data, [&](TiffFile& file) {
      // The encoder's own order: luminance, then chrominance.
      std::vector<std::uint32_t> steps, dc, ac;
      const std::uint32_t all = file.add(parts.quantisation) + 5, codes = file.add(parts.huffman);
      const std::uint32_t ac_0 = codes + 4 + 29, dc_1 = ac_0 + 4 + 179, ac_1 = dc_1 + 4 + 29;
      for (int i = 0; i < samples; ++i) {
        steps.push_back(i == 0 ? all : all + 65);
        dc.push_back((i == 0 ? codes : dc_1) + 5);
        ac.push_back((i == 0 ? ac_0 : ac_1) + 5);
      }
      file.set(kJpegQTables, steps);
      file.set(kJpegDcTables, dc);
      file.set(kJpegAcTables, ac);
      file.set(kYCbCrSubSampling, {1, 1});
      file.set(kJpegInterchangeFormat, {0x10000000});  // nowhere
    });
  }
}

TEST_F(TiffJpeg, DamageStaysInItsStrip) {
  constexpr int kRows = 16;
  std::vector<Bytes> strips;
  for (int y = 0; y < kHeight; y += kRows) {
    strips.push_back(stream_of(picture_, 3, 0, y, kWidth, std::min(kRows, kHeight - y)));
  }
  const auto page = [&](const Bytes& first, const Bytes& second) {
    TiffFile file(kJpeg, Photometric::ycbcr, 3);
    file.set(kRowsPerStrip, {kRows});
    std::vector<Bytes> chunks = strips;
    chunks[0] = first;
    chunks[1] = second;
    file.add_chunks(chunks);
    return file.finish();
  };
  Bytes huge = strips[0];
  const Bytes frame = segments_of(huge).frame;
  const auto at = std::search(huge.begin(), huge.end(), frame.begin(), frame.end());
  std::fill_n(at + 5, 4, std::uint8_t{0xFF});
  *(at + 1) = 0xC2;  // progressive, whose coefficients would all be kept
  memory_probe::refuse_above(1 << 20);
  for (const Bytes& first : {Bytes(), Bytes{1, 2, 3}, huge, stream_of(picture_, 1, 0, 0, 70, 16),
                             Bytes(strips[0].begin(), strips[0].begin() + 300)}) {
    expect_rows(decoded(decode_tiff, page(first, strips[1])), picture_, 3, kRows);
  }
  memory_probe::refuse_above(kLargestBlock);

  // Frames that are longer and shorter than their strips.
  expect_rows(decoded(decode_tiff, page(stream_of(picture_, 3, 0, 0, kWidth, 40), strips[1])),
              picture_, 3);
  const CollectingSink lacking =
      decoded(decode_tiff, page(stream_of(picture_, 3, 0, 0, kWidth, 8), strips[1]));
  EXPECT_EQ(lacking.rows.size(), kHeight - 8u);
  EXPECT_EQ(lacking.rows[8].y, kRows);
  const CollectingSink narrow = decoded(
      decode_tiff,
      page(stream_of(picture_, 3, 0, 0, 60, kRows), stream_of(picture_, 3, 0, kRows, 40, kRows)));
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
