// TIFF pages in memory, decoded and encoded, beside libtiff: a page of text of A4 size at 300 dots
// per inch, a photograph of 12 megapixels. libtiff decodes to samples, in RGBA where the row says
// so. Both in one run:
//
//   --benchmark_filter=tiff --benchmark_enable_random_interleaving=true --benchmark_repetitions=5
//
// LZW needs the module beside the program or on LD_LIBRARY_PATH.
#ifdef TQ_HAVE_LIBTIFF
#include <tiffio.h>

#include <algorithm>
#include <string>

#include "bench/bench_support.h"

namespace tq::bench {
namespace {

// libtiff's file in memory.
struct Memory {
  Bytes bytes;
  std::size_t at = 0;

  static Memory& of(thandle_t handle) { return *static_cast<Memory*>(handle); }
  static tmsize_t read(thandle_t handle, void* to, tmsize_t count) {
    Memory& file = of(handle);
    const std::size_t here =
        std::min<std::size_t>(count, file.bytes.size() - std::min(file.at, file.bytes.size()));
    std::memcpy(to, file.bytes.data() + file.at, here);
    file.at += here;
    return static_cast<tmsize_t>(here);
  }
  static tmsize_t write(thandle_t handle, void* from, tmsize_t count) {
    Memory& file = of(handle);
    const auto bytes = static_cast<std::size_t>(count);
    if (file.bytes.size() < file.at + bytes) file.bytes.resize(file.at + bytes);
    std::memcpy(file.bytes.data() + file.at, from, bytes);
    file.at += bytes;
    return count;
  }
  static toff_t seek(thandle_t handle, toff_t offset, int whence) {
    Memory& file = of(handle);
    const std::size_t from = whence == SEEK_SET   ? 0
                             : whence == SEEK_CUR ? file.at
                                                  : file.bytes.size();
    return file.at = from + offset;
  }
  static int close(thandle_t) { return 0; }
  static toff_t size(thandle_t handle) { return of(handle).bytes.size(); }
  static int map(thandle_t handle, void** base, toff_t* bytes) {
    *base = of(handle).bytes.data();
    *bytes = of(handle).bytes.size();
    return 1;
  }
  static void unmap(thandle_t, void*, toff_t) {}

  TIFF* open(const char* mode) {
    at = 0;
    return TIFFClientOpen("memory", mode, this, read, write, seek, close, size, map, unmap);
  }
};

struct Subject {
  const char* name = nullptr;
  std::int32_t code = -1;  // ours for saving
  std::uint16_t coding = COMPRESSION_NONE;
  std::uint32_t strip_bytes = 0;  // of samples; 0: one strip
  std::uint16_t predictor = 1;
  std::uint32_t t4_options = 0;
  bool photo = false, rgba = false;
  std::int32_t compared = 0;  // an option of ours that saves what libtiff saves, and its value
  std::int32_t value = 0;

  std::int32_t width() const { return photo ? 4000 : 2480; }
  std::int32_t height() const { return photo ? 3000 : 3508; }
  std::size_t row_bytes() const {
    return static_cast<std::size_t>(photo ? 3 * width() : width() / 8);
  }
  std::uint32_t strip_rows() const {
    const auto rows = static_cast<std::uint32_t>(height());
    return strip_bytes == 0 ? rows : strip_bytes / static_cast<std::uint32_t>(row_bytes());
  }
  bool is_fax() const { return coding >= 2 && coding <= 4; }
};

// Words of strokes with ragged edges in lines, 1 being black.
Bytes draw_text(const Subject& page) {
  Bytes rows(page.row_bytes() * static_cast<std::size_t>(page.height()));
  std::uint32_t random = 1;
  for (std::int32_t y = 300; y < 3200; ++y) {
    const std::int32_t line = y % 60, row = y / 60;
    for (std::int32_t x = 300; x < 2180 && line <= 42; ++x) {
      const std::int32_t letter = x / 26 * 131 + row * 17, column = x % 26;
      random = random * 1664525 + 1013904223;
      const bool stem = column > 3 && column < 8 + static_cast<std::int32_t>(random >> 31);
      const bool slope = letter % 3 == 1 && column - line / 2 > 2 && column - line / 2 < 7;
      const bool bar = letter % 5 < 3 && line % 20 < 4 && column < 20;
      if (letter % 6 == 0 || !(stem || slope || bar)) continue;
      rows[page.row_bytes() * static_cast<std::size_t>(y) + static_cast<std::size_t>(x / 8)] |=
          static_cast<std::uint8_t>(0x80 >> x % 8);
    }
  }
  return rows;
}

// Slopes and edges with the noise of a sensor.
Bytes draw_photo(const Subject& photo) {
  Bytes rows(photo.row_bytes() * static_cast<std::size_t>(photo.height()));
  std::uint32_t random = 1;
  std::size_t at = 0;
  for (std::int32_t y = 0; y < photo.height(); ++y) {
    for (std::int32_t x = 0; x < photo.width(); ++x) {
      const bool inside = (x / 250 + y / 180) % 3 == 0;
      for (int channel = 0; channel < 3; ++channel) {
        random = random * 1664525 + 1013904223;
        const std::int32_t noise = static_cast<std::int32_t>(random >> 30) - 1;
        const std::int32_t slope = (x + channel * y) / 40 % 120 + (inside ? 90 : 30) + noise;
        rows[at++] = static_cast<std::uint8_t>(slope);
      }
    }
  }
  return rows;
}

const Bytes& samples(const Subject& subject) {
  static const Bytes text = draw_text({}), photo = draw_photo({.photo = true});
  return subject.photo ? photo : text;
}

void save_with_libtiff(const Subject& subject, Memory& file) {
  TIFF* const tiff = file.open("w");
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, subject.width());
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, subject.height());
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, subject.photo ? 8 : 1);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, subject.photo ? 3 : 1);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, subject.coding);
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, subject.strip_rows());
  int photometric = subject.photo ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISWHITE;
  if (subject.coding == COMPRESSION_JPEG) {
    TIFFSetField(tiff, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
    photometric = PHOTOMETRIC_YCBCR;
  }
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, photometric);
  if (subject.t4_options != 0) TIFFSetField(tiff, TIFFTAG_GROUP3OPTIONS, subject.t4_options);
  if (subject.predictor != 1) TIFFSetField(tiff, TIFFTAG_PREDICTOR, subject.predictor);
  Bytes rows = samples(subject);
  const std::size_t strip_bytes = subject.row_bytes() * subject.strip_rows();
  for (std::size_t at = 0, strip = 0; at < rows.size(); at += strip_bytes, ++strip) {
    TIFFWriteEncodedStrip(tiff, static_cast<std::uint32_t>(strip), rows.data() + at,
                          static_cast<tmsize_t>(std::min(strip_bytes, rows.size() - at)));
  }
  TIFFClose(tiff);
}

void count_pixels(benchmark::State& state, const Subject& subject) {
  state.SetItemsProcessed(state.iterations() * subject.width() * subject.height());
}

void decode(benchmark::State& state, const Subject& subject) {
  Memory file;
  save_with_libtiff(subject, file);
  for (auto _ : state) {
    const std::int32_t image = load(file.bytes);
    if (image < 0) state.SkipWithError("not decoded");
    IMG_delete_bitmap(image);
  }
  count_pixels(state, subject);
}

void decode_with_libtiff(benchmark::State& state, const Subject& subject) {
  Memory file;
  save_with_libtiff(subject, file);
  for (auto _ : state) {
    TIFF* const tiff = file.open("r");
    // As anyone would who wants the picture: into memory that is asked for.
    std::vector<std::uint32_t> rgba;
    Bytes rows;
    if (subject.rgba) {
      rgba.resize(static_cast<std::size_t>(subject.width() * subject.height()));
      TIFFReadRGBAImageOriented(tiff, static_cast<std::uint32_t>(subject.width()),
                                static_cast<std::uint32_t>(subject.height()), rgba.data(),
                                ORIENTATION_TOPLEFT, 1);
    } else {
      rows.resize(subject.row_bytes() * static_cast<std::size_t>(subject.height()));
      const std::size_t strip_bytes = subject.row_bytes() * subject.strip_rows();
      for (std::uint32_t strip = 0; strip < TIFFNumberOfStrips(tiff); ++strip) {
        if (TIFFReadEncodedStrip(tiff, strip, rows.data() + strip * strip_bytes, -1) < 0) {
          state.SkipWithError("not decoded");
        }
      }
    }
    benchmark::DoNotOptimize(rows.data());
    benchmark::DoNotOptimize(rgba.data());
    TIFFClose(tiff);
  }
  count_pixels(state, subject);
}

// The same page as BMP: what any page costs that is no run lists yet.
void decode_bmp(benchmark::State& state, const Subject& subject) {
  Memory tiff;
  save_with_libtiff(subject, tiff);
  const std::int32_t image = load(tiff.bytes);
  Bytes file(2 * samples(subject).size());
  file.resize(static_cast<std::size_t>(
      std::max(0, IMG_save_bitmap_block(image, file.data(), file.size(), IMG_TYPE_BMP))));
  IMG_delete_bitmap(image);
  for (auto _ : state) {
    const std::int32_t copy = load(file);
    if (copy < 0) state.SkipWithError("not decoded");
    IMG_delete_bitmap(copy);
  }
  count_pixels(state, subject);
}

void encode(benchmark::State& state, const Subject& subject) {
  Memory file;
  save_with_libtiff(subject, file);
  const std::int32_t image = load(file.bytes);
  Bytes saved(2 * samples(subject).size());
  if (subject.compared != 0) IMG_set_option(subject.compared, subject.value);
  for (auto _ : state) {
    if (IMG_save_bitmap_block(image, saved.data(), saved.size(), subject.code) <= 0) {
      state.SkipWithError("not saved");
    }
  }
  if (subject.compared != 0) IMG_set_option(subject.compared, 0);
  IMG_delete_bitmap(image);
  count_pixels(state, subject);
}

void encode_with_libtiff(benchmark::State& state, const Subject& subject) {
  Memory file;
  for (auto _ : state) {
    file.bytes.clear();
    save_with_libtiff(subject, file);
  }
  count_pixels(state, subject);
}

constexpr std::uint32_t kStrip = 65536;
constexpr Subject kSubjects[] = {
    {"group4", IMG_TYPE_TIFF_G4, COMPRESSION_CCITTFAX4, 0},
    {"group4_strips", -1, COMPRESSION_CCITTFAX4, kStrip},
    {"group3_1d", IMG_TYPE_TIFF_G3, COMPRESSION_CCITTFAX3, 0},
    {"group3_2d", -1, COMPRESSION_CCITTFAX3, 0, 1, GROUP3OPT_2DENCODING},
    {"huffman", IMG_TYPE_TIFF_HUFFMAN, COMPRESSION_CCITTRLE, 0},
    {"page_packbits", -1, COMPRESSION_PACKBITS, kStrip},
    {"page_lzw", -1, COMPRESSION_LZW, kStrip},
    {.name = "photo_plain",
     .code = -1,
     .coding = COMPRESSION_NONE,
     .strip_bytes = kStrip,
     .photo = true,
     .rgba = true},
    {.name = "photo_lzw",
     .code = IMG_TYPE_TIFF_LZW,
     .coding = COMPRESSION_LZW,
     .strip_bytes = kStrip,
     .photo = true,
     .compared = IMG_OPTION_TIFF_PREDICTOR,
     .value = 1},
    {.name = "photo_lzw_predictor",
     .code = IMG_TYPE_TIFF_LZW,
     .coding = COMPRESSION_LZW,
     .strip_bytes = kStrip,
     .predictor = 2,
     .photo = true},
    {.name = "photo_deflate",
     .code = -1,
     .coding = COMPRESSION_ADOBE_DEFLATE,
     .strip_bytes = kStrip,
     .photo = true},
    {.name = "photo_deflate_predictor",
     .code = -1,
     .coding = COMPRESSION_ADOBE_DEFLATE,
     .strip_bytes = kStrip,
     .predictor = 2,
     .photo = true},
    {.name = "photo_jpeg",
     .code = IMG_TYPE_TIFF_JPEG,
     .coding = COMPRESSION_JPEG,
     .strip_bytes = 16 * 12000,
     .photo = true,
     .rgba = true},
};

const bool registered = [] {
  const auto add = [](const Subject& subject, const char* what, auto function) {
    const std::string name = std::string("tiff/") + subject.name + "/" + what;
    benchmark::RegisterBenchmark(name.c_str(), function, subject);
  };
  for (const Subject& subject : kSubjects) {
    add(subject, "decode/tarnquill", decode);
    add(subject, "decode/libtiff", decode_with_libtiff);
    if (!subject.photo && !subject.is_fax()) add(subject, "decode/tarnquill_bmp", decode_bmp);
    if (subject.code < 0) continue;
    add(subject, "encode/tarnquill", encode);
    add(subject, "encode/libtiff", encode_with_libtiff);
  }
  return true;
}();

}  // namespace
}  // namespace tq::bench
#endif
