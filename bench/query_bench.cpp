// What browsing a folder costs: the type and the header of a small BMP in memory.
#include "bench/bench_support.h"

namespace tq::bench {
namespace {

const Bytes& small_file() {
  static const Bytes file = bmp_file(64, 64, 8, runs(64 * 64));
  return file;
}

std::int32_t IMG_CB_C note_width(void* header, void* context) {
  std::memcpy(context, static_cast<const std::uint8_t*>(header) + 4, sizeof(std::int32_t));
  return IMG_STOP_AFTER_HEADER;
}
std::int32_t IMG_CB_C no_row(void*, void*, std::int32_t, std::int32_t) {
  return -1;
}

void query_header(benchmark::State& state) {
  Bytes file = small_file();
  std::int32_t width = 0;
  for (auto _ : state) {
    if (IMGLOW_decompress_bitmap_mem(file.data(), 0, no_row, &width, note_width) !=
        IMG_STOP_AFTER_HEADER) {
      state.SkipWithError("not stopped");
    }
  }
  if (width != 64) state.SkipWithError("not read");
}

void query_type(benchmark::State& state) {
  const Bytes& file = small_file();
  for (auto _ : state)
    benchmark::DoNotOptimize(IMGLOW_get_filetype_block(file.data(), file.size()));
}

void memcpy_small(benchmark::State& state) {
  const Bytes& file = small_file();
  Bytes to(file.size());
  for (auto _ : state) {
    std::memcpy(to.data(), file.data(), to.size());
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
}

// The whole image, as a thumbnail.
void decode_small(benchmark::State& state) {
  const Bytes& file = small_file();
  for (auto _ : state) IMG_delete_bitmap(load(file));
}

BENCHMARK(query_header);
BENCHMARK(query_type);
BENCHMARK(decode_small);
BENCHMARK(memcpy_small);

}  // namespace
}  // namespace tq::bench
