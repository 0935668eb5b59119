// PCX and PNG pictures in memory, read and written, and the header of a small PCX.
#include <string>

#include "bench/bench_support.h"

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
  Bytes bmp;
};

Bytes saved(std::int32_t image, std::int32_t code) {
  Bytes file(8 * kPixels);
  const std::int32_t bytes = IMG_save_bitmap_block(image, file.data(), file.size(), code);
  file.resize(static_cast<std::size_t>(bytes > 0 ? bytes : 0));
  return file;
}

void read(benchmark::State& state, const Subject& subject) {
  const std::int32_t source = load(subject.bmp);
  const Bytes file = saved(source, subject.code);
  IMG_delete_bitmap(source);
  for (auto _ : state) {
    const std::int32_t image = load(file);
    if (image != 0) state.SkipWithError("not decoded");
    IMG_delete_bitmap(image);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(kPixels) * state.iterations());
}

void write(benchmark::State& state, const Subject& subject) {
  const std::int32_t image = load(subject.bmp);
  Bytes file(8 * kPixels);
  for (auto _ : state) {
    if (IMG_save_bitmap_block(image, file.data(), file.size(), subject.code) <= 0) {
      state.SkipWithError("not saved");
    }
  }
  IMG_delete_bitmap(image);
  state.SetItemsProcessed(static_cast<std::int64_t>(kPixels) * state.iterations());
}

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

const bool registered = [] {
  static const Subject subjects[] = {
      {"pcx_photo_24", IMG_TYPE_PCX, 24, bmp_file(kWidth, kHeight, 24, photo(3 * kPixels))},
      {"pcx_drawing_8", IMG_TYPE_PCX, 8, bmp_file(kWidth, kHeight, 8, runs(kPixels))},
      {"pcx_page_1", IMG_TYPE_PCX, 1, bmp_file(kWidth, kHeight, 1, runs(252 * kHeight))},
      {"png_photo_24", IMG_TYPE_PNG, 24, bmp_file(kWidth, kHeight, 24, photo(3 * kPixels))},
  };
  for (const Subject& subject : subjects) {
    const std::string name = subject.name;
    benchmark::RegisterBenchmark((name + "/read").c_str(), read, subject);
    benchmark::RegisterBenchmark((name + "/write").c_str(), write, subject);
  }
  benchmark::RegisterBenchmark("pcx_header_query", query_header);
  return true;
}();

}  // namespace
}  // namespace tq::bench
