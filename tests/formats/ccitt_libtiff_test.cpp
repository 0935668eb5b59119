// Facsimile codes against libtiff, in memory: its strips are read, ours are what it writes.
#include <gmock/gmock.h>
#include <tiffio.h>

#include "formats/ccitt/ccitt.h"
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

// What libtiff sees as a file.
struct TiffMemory {
  Bytes bytes{};
  std::size_t at = 0;

  static tsize_t on_read(thandle_t handle, tdata_t data, tsize_t size) {
    auto& self = *static_cast<TiffMemory*>(handle);
    const std::size_t left = self.bytes.size() - std::min(self.at, self.bytes.size());
    const std::size_t count = std::min(static_cast<std::size_t>(size), left);
    std::copy_n(self.bytes.begin() + static_cast<std::ptrdiff_t>(self.at), count,
                static_cast<std::uint8_t*>(data));
    self.at += count;
    return static_cast<tsize_t>(count);
  }
  static tsize_t on_write(thandle_t handle, tdata_t data, tsize_t size) {
    auto& self = *static_cast<TiffMemory*>(handle);
    const auto count = static_cast<std::size_t>(size);
    self.bytes.resize(std::max(self.bytes.size(), self.at + count));
    std::copy_n(static_cast<const std::uint8_t*>(data), count,
                self.bytes.begin() + static_cast<std::ptrdiff_t>(self.at));
    self.at += count;
    return size;
  }
  static toff_t on_seek(thandle_t handle, toff_t offset, int origin) {
    auto& self = *static_cast<TiffMemory*>(handle);
    if (origin == SEEK_SET) self.at = offset;
    if (origin == SEEK_CUR) self.at += offset;
    if (origin == SEEK_END) self.at = self.bytes.size() + offset;
    return self.at;
  }
  static int on_close(thandle_t) { return 0; }
  static toff_t on_size(thandle_t handle) { return static_cast<TiffMemory*>(handle)->bytes.size(); }

  TIFF* open(const char* mode) {
    at = 0;
    return TIFFClientOpen("", mode, this, on_read, on_write, on_seek, on_close, on_size, nullptr,
                          nullptr);
  }
};

struct Variant {
  const char* name;
  CcittCoding coding;
  std::uint16_t compression;
  std::uint32_t options;  // of Group 3
};

constexpr Variant kVariants[] = {
    {"Huffman", {CcittScheme::huffman}, COMPRESSION_CCITTRLE, 0},
    {"Group 3", {CcittScheme::group3_1d}, COMPRESSION_CCITTFAX3, 0},
    {"Group 3 filled", {CcittScheme::group3_1d, false, true}, COMPRESSION_CCITTFAX3, 4},
    {"Group 3 2-D", {CcittScheme::group3_2d}, COMPRESSION_CCITTFAX3, 1},
    {"Group 3 2-D filled", {CcittScheme::group3_2d, false, true}, COMPRESSION_CCITTFAX3, 5},
    {"Group 4", {CcittScheme::group4, false, false, false, true}, COMPRESSION_CCITTFAX4, 0},
    {"Group 4, low bits first",
     {CcittScheme::group4, true, false, false, true},
     COMPRESSION_CCITTFAX4,
     0},
};

void describe(TIFF* tiff, const Variant& variant, int width, int height) {
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, height);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 1);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, variant.compression);
  TIFFSetField(tiff, TIFFTAG_FILLORDER,
               variant.coding.lsb_first ? FILLORDER_LSB2MSB : FILLORDER_MSB2LSB);
  // The distance between rows that stand for themselves follows from the resolution.
  TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
  TIFFSetField(tiff, TIFFTAG_YRESOLUTION, 200.0);
  if (variant.compression == COMPRESSION_CCITTFAX3) {
    TIFFSetField(tiff, TIFFTAG_GROUP3OPTIONS, variant.options);
  }
}

// Rows of packed bits as they lie in a TIFF strip: 1 is black, no padding to 4 bytes.
Bytes strip_of(const Page& page) {
  Bytes strip;
  const std::size_t bytes = (page[0].size() + 7) / 8;
  for (const Pixels& row : page) {
    Bytes bits = row_bits(row);
    bits.resize(bytes);
    for (const std::uint8_t byte : bits) strip.push_back(static_cast<std::uint8_t>(~byte));
  }
  return strip;
}

Bytes coded_by_libtiff(const Variant& variant, const Page& page) {
  TiffMemory memory;
  TIFF* tiff = memory.open("wm");
  describe(tiff, variant, static_cast<int>(page[0].size()), static_cast<int>(page.size()));
  Bytes strip = strip_of(page);
  TIFFWriteEncodedStrip(tiff, 0, strip.data(), static_cast<tsize_t>(strip.size()));
  TIFFClose(tiff);
  tiff = memory.open("rm");
  Bytes coded(static_cast<std::size_t>(TIFFRawStripSize(tiff, 0)));
  TIFFReadRawStrip(tiff, 0, coded.data(), static_cast<tsize_t>(coded.size()));
  TIFFClose(tiff);
  return coded;
}

Bytes read_by_libtiff(const Variant& variant, Bytes coded, int width, int height) {
  TiffMemory memory;
  TIFF* tiff = memory.open("wm");
  describe(tiff, variant, width, height);
  TIFFWriteRawStrip(tiff, 0, coded.data(), static_cast<tsize_t>(coded.size()));
  TIFFClose(tiff);
  tiff = memory.open("rm");
  Bytes strip(static_cast<std::size_t>((width + 7) / 8 * height));
  TIFFReadEncodedStrip(tiff, 0, strip.data(), static_cast<tsize_t>(strip.size()));
  TIFFClose(tiff);
  return strip;
}

Page all_black(int width) {
  return Page(5, Pixels(static_cast<std::size_t>(width), true));
}

std::vector<Page> pages() {
  std::vector<Page> pages;
  unsigned seed = 100;
  for (const int width : {1, 9, 64, 1001, 2480, 65000}) {
    for (const int run : {1, 30, 1500})
      pages.push_back(printed_page(width, width > 10000 ? 5 : 40, run, seed++));
    pages.push_back(all_black(width));
    pages.push_back(Page(5, Pixels(static_cast<std::size_t>(width), false)));
  }
  Page every_run;  // of both colours, so that each code word of the standard occurs
  for (int run = 0; run < 2700; run += run < 70 ? 1 : 32) {
    Pixels row(3000);
    std::fill_n(row.begin() + (every_run.size() % 2 == 0 ? 0 : 2700 - run), run, true);
    every_run.push_back(row);
  }
  pages.push_back(every_run);
  return pages;
}

TEST(CcittWithLibtiff, BothReadWhatTheOtherWrites) {
  for (const Page& page : pages()) {
    const auto width = static_cast<std::int32_t>(page[0].size());
    const auto height = static_cast<std::int32_t>(page.size());
    std::vector<Bytes> rows;
    for (const Pixels& row : page) rows.push_back(row_bits(row));
    for (const Variant& variant : kVariants) {
      // The encoder's codes, through bits and lists, are tested elsewhere to be the model's.
      const Bytes ours = ccitt_by_model(variant.coding, page);
      EXPECT_EQ(read_by_libtiff(variant, ours, width, height), strip_of(page))
          << variant.name << ", " << width << " wide";

      const Bytes theirs = coded_by_libtiff(variant, page);
      if (variant.coding.scheme == CcittScheme::group4) {
        EXPECT_EQ(ours, theirs) << variant.name << ", " << width << " wide";
      }
      open_memory_stream(const_cast<std::uint8_t*>(theirs.data()), theirs.size());
      ChunkReader input;
      CcittDecoder decoder;
      CollectingSink sink;
      sink.header.header.biHeight = height;
      ASSERT_EQ(input.open(kMemoryStream, 1), kOk);
      ASSERT_EQ(decoder.open(variant.coding, width, CcittRows::bits), kOk);
      EXPECT_EQ(
          decoder.decode(input, static_cast<std::int64_t>(theirs.size()), {0, height}, sink.sink())
              .raw(),
          height);
      EXPECT_EQ(sink.image(), rows) << variant.name << ", " << width << " wide";
    }
  }
}

}  // namespace
}  // namespace tq::test
