// PCX and PNG pictures in memory, read and written, beside other libraries if they are there; the
// header of a small PCX; pages added to a container. To compare, run the lines of one picture with
//
//   --benchmark_enable_random_interleaving=true --benchmark_repetitions=9
#include <ctime>
#include <filesystem>
#include <string>

#include "bench/bench_support.h"
#if TQ_BENCH_FREEIMAGE
#include <FreeImage.h>
#endif
#if TQ_BENCH_LIBPNG
#include <png.h>
#endif

namespace tq::bench {
namespace {

constexpr std::int32_t kWidth = 2000, kHeight = 1500;
constexpr std::size_t kPixels = std::size_t{kWidth} * kHeight;

// Neighbours that differ a little, as in photos: an event of the run-length coding every few bytes.
Bytes photo(std::size_t count) {
  Bytes bytes = noise(count);
  int level = 128;
  for (std::size_t i = 0; i < count; ++i) {
    level = (level + bytes[i] % 7 - 3) & 0xFF;
    bytes[i] = static_cast<std::uint8_t>(level);
  }
  return bytes;
}

struct Subject {
  const char* name;
  std::int32_t code;
  int bits;
  Bytes rows;

  Bytes bmp() const { return bmp_file(kWidth, kHeight, bits, rows); }
};

Bytes saved(std::int32_t image, std::int32_t code) {
  Bytes file(8 * kPixels);
  const std::int32_t bytes = IMG_save_bitmap_block(image, file.data(), file.size(), code);
  file.resize(static_cast<std::size_t>(bytes > 0 ? bytes : 0));
  return file;
}

Bytes file_of(const Subject& subject) {
  const std::int32_t image = load(subject.bmp());
  Bytes file = saved(image, subject.code);
  IMG_delete_bitmap(image);
  return file;
}

void count_pixels(benchmark::State& state) {
  state.SetItemsProcessed(static_cast<std::int64_t>(kPixels) * state.iterations());
}

void read(benchmark::State& state, const Subject& subject) {
  const Bytes file = file_of(subject);
  for (auto _ : state) {
    const std::int32_t image = load(file);
    if (image < 0) state.SkipWithError("not decoded");
    IMG_delete_bitmap(image);
  }
  count_pixels(state);
}

void write(benchmark::State& state, const Subject& subject) {
  const std::int32_t image = load(subject.bmp());
  Bytes file(8 * kPixels);
  for (auto _ : state) {
    if (IMG_save_bitmap_block(image, file.data(), file.size(), subject.code) <= 0) {
      state.SkipWithError("not saved");
    }
  }
  IMG_delete_bitmap(image);
  count_pixels(state);
}

#if TQ_BENCH_FREEIMAGE
void read_freeimage(benchmark::State& state, const Subject& subject) {
  Bytes file = file_of(subject);
  const FREE_IMAGE_FORMAT format = subject.code == IMG_TYPE_PCX ? FIF_PCX : FIF_PNG;
  for (auto _ : state) {
    FIMEMORY* stream = FreeImage_OpenMemory(file.data(), static_cast<DWORD>(file.size()));
    FIBITMAP* image = FreeImage_LoadFromMemory(format, stream, 0);
    if (image == nullptr) state.SkipWithError("not decoded");
    FreeImage_Unload(image);
    FreeImage_CloseMemory(stream);
  }
  count_pixels(state);
}
#endif

#if TQ_BENCH_LIBPNG
// Where libpng reads or writes: memory, from a position on.
struct Place {
  std::uint8_t* bytes;
  std::size_t position = 0;
};
void take(png_structp png, png_bytep to, std::size_t count) {
  auto& from = *static_cast<Place*>(png_get_io_ptr(png));
  std::memcpy(to, from.bytes + from.position, count);
  from.position += count;
}
void give(png_structp png, png_bytep from, std::size_t count) {
  auto& to = *static_cast<Place*>(png_get_io_ptr(png));
  std::memcpy(to.bytes + to.position, from, count);
  to.position += count;
}

// Both with libpng's own settings, but for the level, as ours have them.
void read_libpng(benchmark::State& state, const Subject& subject) {
  Bytes file = file_of(subject);
  for (auto _ : state) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    Place place{file.data()};
    png_set_read_fn(png, &place, take);
    png_read_info(png, info);
    png_set_bgr(png);
    png_read_update_info(png, info);
    const std::size_t row_bytes = png_get_rowbytes(png, info);
    auto* pixels = static_cast<std::uint8_t*>(std::malloc(row_bytes * kHeight));
    for (std::size_t y = 0; y < kHeight; ++y) {
      png_read_row(png, pixels + (kHeight - 1 - y) * row_bytes, nullptr);
    }
    benchmark::DoNotOptimize(pixels);
    std::free(pixels);
    png_destroy_read_struct(&png, &info, nullptr);
  }
  count_pixels(state);
}

void write_libpng(benchmark::State& state, const Subject& subject) {
  Bytes file(8 * kPixels);
  const std::size_t row_bytes = subject.rows.size() / kHeight;
  for (auto _ : state) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    Place place{file.data()};
    png_set_write_fn(png, &place, give, [](png_structp) {});
    png_set_IHDR(png, info, kWidth, kHeight, 8,
                 subject.bits == 24 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(png, 4);
    png_write_info(png, info);
    png_set_bgr(png);
    for (std::size_t y = 0; y < kHeight; ++y) {
      png_write_row(png, subject.rows.data() + (kHeight - 1 - y) * row_bytes);
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
  }
  count_pixels(state);
}
#endif

std::int32_t IMG_CB_C stop(void*, void*) {
  return IMG_STOP_AFTER_HEADER;
}

void query_header(benchmark::State& state) {
  const std::int32_t image = load(bmp_file(64, 64, 8, runs(64 * 64)));
  const Bytes file = saved(image, IMG_TYPE_PCX);
  IMG_delete_bitmap(image);
  for (auto _ : state) {
    if (IMGLOW_decompress_bitmap_block(file.data(), file.size(), 0, nullptr, nullptr, stop) !=
        IMG_STOP_AFTER_HEADER) {
      state.SkipWithError("not stopped");
    }
  }
}

// A container of 100 pages. The counters are microseconds of CPU time per page, pages 2 to 34 and
// 68 to 100: the same when a page costs nothing for those before it.
void append_pages(benchmark::State& state) {
  const std::int32_t image = load(bmp_file(256, 256, 8, runs(256 * 256)));
  const auto name = std::filesystem::temp_directory_path() / "tarnquill_bench.dcx";
  const auto microseconds_per_page = [&](int pages) {
    const std::clock_t start = std::clock();
    for (int i = 0; i < pages; ++i) {
      if (IMG_save_bitmap(image, name.string().c_str(), IMG_TYPE_DCX) != 0) {
        state.SkipWithError("not saved");
      }
    }
    return 1e6 * static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC / pages;
  };
  double early = 0, late = 0;
  for (auto _ : state) {
    std::filesystem::remove(name);
    microseconds_per_page(1);
    early += microseconds_per_page(33);
    microseconds_per_page(33);
    late += microseconds_per_page(33);
  }
  std::filesystem::remove(name);
  IMG_delete_bitmap(image);
  state.counters["early"] = benchmark::Counter(early, benchmark::Counter::kAvgIterations);
  state.counters["late"] = benchmark::Counter(late, benchmark::Counter::kAvgIterations);
}

const bool kRegistered = [] {
  static const Subject subjects[] = {
      {"pcx_photo_24", IMG_TYPE_PCX, 24, photo(3 * kPixels)},
      {"pcx_drawing_8", IMG_TYPE_PCX, 8, runs(kPixels)},
      {"pcx_page_1", IMG_TYPE_PCX, 1, runs(252 * kHeight)},
      {"png_photo_24", IMG_TYPE_PNG, 24, photo(3 * kPixels)},
      {"png_drawing_8", IMG_TYPE_PNG, 8, runs(kPixels)},
  };
  const auto add = [](const Subject& subject, const char* what, auto function) {
    const std::string name = std::string(subject.name) + what;
    benchmark::RegisterBenchmark(name.c_str(), function, subject);
  };
  for (const Subject& subject : subjects) {
    add(subject, "/read", read);
#if TQ_BENCH_FREEIMAGE
    add(subject, "/read_freeimage", read_freeimage);
#endif
    add(subject, "/write", write);
#if TQ_BENCH_LIBPNG
    if (subject.code != IMG_TYPE_PNG) continue;
    add(subject, "/read_libpng", read_libpng);
    add(subject, "/write_libpng", write_libpng);
#endif
  }
  benchmark::RegisterBenchmark("pcx_header_query", query_header);
  benchmark::RegisterBenchmark("dcx_append", append_pages);
  return true;
}();

}  // namespace
}  // namespace tq::bench
