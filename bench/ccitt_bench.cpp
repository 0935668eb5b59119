// Group 4 from and to run storage, beside libtiff and leptonica, which codes through libtiff, on
// the same page: the P4 file that TQ_BENCH_PAGE names, or a made one of A4 size at 300 dots per
// inch.
#include <benchmark/benchmark.h>
#ifdef TQ_HAVE_LIBTIFF
#include <tiffio.h>
#endif
#if TQ_BENCH_LEPTONICA
#include <leptonica/allheaders.h>
#endif

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "core/dib.h"
#include "core/image_table.h"
#include "dispatch/row_sink.h"
#include "dispatch/row_supplier.h"
#include "formats/fax.h"

namespace tq {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct Page {
  std::int32_t width = 2480, height = 3508;
  Bytes rows;  // packed, 1 is black

  std::size_t stride() const { return static_cast<std::size_t>((width + 7) / 8); }
};

// Letters of strokes with ragged edges, in lines.
void draw(Page& page) {
  page.rows.assign(page.stride() * static_cast<std::size_t>(page.height), 0);
  std::uint32_t random = 1;
  for (std::int32_t y = 0; y < page.height; ++y) {
    const std::int32_t line = y % 60;
    if (line > 42 || y < 300 || y > 3200) continue;
    for (std::int32_t x = 300; x < 2180; ++x) {
      const std::int32_t letter = x / 26 * 131 + y / 60 * 17;
      const std::int32_t column = x % 26;
      random = random * 1664525 + 1013904223;
      const std::int32_t edge = static_cast<std::int32_t>(random >> 30);
      const bool stem = column > 3 && column < 8 + (edge == 0 ? 1 : 0);
      const bool slope = (letter % 3 == 1) && (column - line / 2 > 2) && (column - line / 2 < 7);
      const bool bar = (letter % 5 < 3) && line % 20 < 4 && column < 20;
      if (letter % 6 != 0 && (stem || slope || bar)) {
        page.rows[static_cast<std::size_t>(y) * page.stride() + static_cast<std::size_t>(x / 8)] |=
            static_cast<std::uint8_t>(0x80 >> x % 8);
      }
    }
  }
}

Page load_page() {
  Page page;
  const char* name = std::getenv("TQ_BENCH_PAGE");
  if (name == nullptr) {
    draw(page);
    return page;
  }
  std::ifstream in(name, std::ios::binary);
  std::string magic;
  in >> magic >> page.width >> page.height;
  in.get();
  page.rows.assign(std::istreambuf_iterator<char>(in), {});
  page.rows.resize(page.stride() * static_cast<std::size_t>(page.height));
  return page;
}

const Page& page() {
  static const Page loaded = load_page();
  return loaded;
}

// The page as an image in run lists, kept for the whole run.
ImageHandle page_image() {
  static const ImageHandle kept = [] {
    ImageSlot slot;
    if (slot.allocate().failed()) std::abort();
    dispatch::ImageSink sink(slot.handle(), slot.record());
    const formats::RowSink rows = sink.callbacks();
    HeaderBlock header = dib_header(page().width, page().height, 1);
    header.palette[1] = {255, 255, 255, 0};
    if (rows.header(header).failed()) std::abort();
    Bytes row(static_cast<std::size_t>(row_bytes(page().width, 1)), 0xFF);
    for (std::int32_t y = 0; y < page().height; ++y) {
      const std::uint8_t* from = page().rows.data() + static_cast<std::size_t>(y) * page().stride();
      for (std::size_t i = 0; i < page().stride(); ++i)
        row[i] = static_cast<std::uint8_t>(~from[i]);
      if (rows.row(row, y).failed()) std::abort();
    }
    return ImageHandle{slot.keep().raw()};
  }();
  return kept;
}

Bytes& out() {
  static Bytes bytes(64 << 20);
  return bytes;
}

formats::FaxStrip strip() {
  return {.width = page().width, .rows = page().height};
}

std::int32_t encode_once() {
  dispatch::ImageSupplier supplier(page_image(), image_record(page_image()),
                                   dispatch::Supplier::transitions);
  if (supplier.allocate().failed()) std::abort();
  open_memory_stream(out().data(), out().size());
  StreamWriter encoded;
  if (encoded.open(kMemoryStream, formats::kFaxChunk).failed() ||
      encode_fax_strip(encoded, strip(), supplier.callback()).failed() ||
      encoded.flush().failed()) {
    std::abort();
  }
  return static_cast<std::int32_t>(encoded.count());
}

void per_pixel(benchmark::State& state) {
  state.counters["pixels"] = benchmark::Counter(
      static_cast<double>(page().width) * page().height,
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void group4_encode(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(encode_once());
  per_pixel(state);
}
BENCHMARK(group4_encode)->Unit(benchmark::kMicrosecond);

void group4_decode(benchmark::State& state) {
  const std::int32_t size = encode_once();
  for (auto _ : state) {
    open_memory_stream(out().data(), static_cast<std::size_t>(size));
    ImageSlot slot;
    if (slot.allocate().failed()) std::abort();
    dispatch::ImageSink sink(slot.handle(), slot.record());
    const formats::RowSink rows = sink.callbacks();
    HeaderBlock header = dib_header(page().width, page().height, 1);
    ChunkReader input;
    if (rows.header(header).failed() || input.open(kMemoryStream, formats::kFaxChunk).failed() ||
        decode_fax_strip(input, size, strip(), formats::FaxRows::runs, rows).raw() !=
            page().height) {
      state.SkipWithError("not decoded");
    }
  }
  per_pixel(state);
}
BENCHMARK(group4_decode)->Unit(benchmark::kMicrosecond);

#ifdef TQ_HAVE_LIBTIFF

struct TiffMemory {
  std::vector<std::uint8_t> bytes{};
  std::size_t at = 0, end = 0;

  static tsize_t on_read(thandle_t handle, tdata_t data, tsize_t size) {
    auto& self = *static_cast<TiffMemory*>(handle);
    const std::size_t count =
        std::min(static_cast<std::size_t>(size), self.end - std::min(self.at, self.end));
    std::memcpy(data, self.bytes.data() + self.at, count);
    self.at += count;
    return static_cast<tsize_t>(count);
  }
  static tsize_t on_write(thandle_t handle, tdata_t data, tsize_t size) {
    auto& self = *static_cast<TiffMemory*>(handle);
    std::memcpy(self.bytes.data() + self.at, data, static_cast<std::size_t>(size));
    self.at += static_cast<std::size_t>(size);
    self.end = std::max(self.end, self.at);
    return size;
  }
  static toff_t on_seek(thandle_t handle, toff_t offset, int origin) {
    auto& self = *static_cast<TiffMemory*>(handle);
    if (origin == SEEK_SET) self.at = offset;
    if (origin == SEEK_CUR) self.at += offset;
    if (origin == SEEK_END) self.at = self.end + offset;
    return self.at;
  }
  static int on_close(thandle_t) { return 0; }
  static toff_t on_size(thandle_t handle) { return static_cast<TiffMemory*>(handle)->end; }
  TIFF* open(const char* mode) {
    return TIFFClientOpen("", mode, this, on_read, on_write, on_seek, on_close, on_size, nullptr,
                          nullptr);
  }
};

void write_tiff(TiffMemory& memory) {
  memory.at = memory.end = 0;
  TIFF* tiff = memory.open("wm");
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, page().width);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, page().height);
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, page().height);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 1);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
  auto* rows = const_cast<std::uint8_t*>(page().rows.data());
  TIFFWriteEncodedStrip(tiff, 0, rows, static_cast<tsize_t>(page().rows.size()));
  TIFFClose(tiff);
}

void group4_encode_libtiff(benchmark::State& state) {
  TiffMemory memory{Bytes(64 << 20)};
  for (auto _ : state) write_tiff(memory);
  per_pixel(state);
}
BENCHMARK(group4_encode_libtiff)->Unit(benchmark::kMicrosecond);

void group4_decode_libtiff(benchmark::State& state) {
  TiffMemory memory{Bytes(64 << 20)};
  write_tiff(memory);
  Bytes strip(page().rows.size());
  for (auto _ : state) {
    memory.at = 0;
    TIFF* tiff = memory.open("rm");
    TIFFReadEncodedStrip(tiff, 0, strip.data(), static_cast<tsize_t>(strip.size()));
    TIFFClose(tiff);
  }
  if (strip != page().rows) state.SkipWithError("not the page");
  per_pixel(state);
}
BENCHMARK(group4_decode_libtiff)->Unit(benchmark::kMicrosecond);

#endif

#if TQ_BENCH_LEPTONICA

Pix* page_pix() {
  Pix* pix = pixCreate(page().width, page().height, 1);
  for (std::int32_t y = 0; y < page().height; ++y) {
    const std::uint8_t* row = page().rows.data() + static_cast<std::size_t>(y) * page().stride();
    l_uint32* line = pixGetData(pix) + static_cast<std::ptrdiff_t>(y) * pixGetWpl(pix);
    for (std::size_t i = 0; i < page().stride(); ++i) SET_DATA_BYTE(line, i, row[i]);
  }
  return pix;
}

void group4_encode_leptonica(benchmark::State& state) {
  Pix* pix = page_pix();
  for (auto _ : state) {
    l_uint8* file = nullptr;
    std::size_t size = 0;
    pixWriteMemTiff(&file, &size, pix, IFF_TIFF_G4);
    lept_free(file);
  }
  pixDestroy(&pix);
  per_pixel(state);
}
BENCHMARK(group4_encode_leptonica)->Unit(benchmark::kMicrosecond);

void group4_decode_leptonica(benchmark::State& state) {
  Pix* pix = page_pix();
  l_uint8* file = nullptr;
  std::size_t size = 0;
  pixWriteMemTiff(&file, &size, pix, IFF_TIFF_G4);
  for (auto _ : state) {
    Pix* decoded = pixReadMemTiff(file, size, 0);
    if (decoded == nullptr) state.SkipWithError("not decoded");
    pixDestroy(&decoded);
  }
  lept_free(file);
  pixDestroy(&pix);
  per_pixel(state);
}
BENCHMARK(group4_decode_leptonica)->Unit(benchmark::kMicrosecond);

#endif

}  // namespace
}  // namespace tq
