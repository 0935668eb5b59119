// Pictures of 12 megapixels from BMP files in memory and back, beside memcpy of the same bytes.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/bench_support.h"
#include "core/memory.h"

namespace tq::bench {
namespace {

constexpr std::int32_t kWidth = 4000, kHeight = 3000;
constexpr std::size_t kPixels = std::size_t{kWidth} * kHeight;

const Bytes& colour_file() {
  static const Bytes file = bmp_file(kWidth, kHeight, 24, noise(3 * kPixels));
  return file;
}

// 5-5-5, which become 24 bits.
const Bytes& words_file() {
  static const Bytes file = bmp_file(kWidth, kHeight, 16, noise(2 * kPixels));
  return file;
}

const Bytes& grey_file() {
  static const Bytes file = bmp_file(kWidth, kHeight, 8, runs(kPixels));
  return file;
}

// The same in RLE8, as this library writes it.
const Bytes& coded_file() {
  static const Bytes file = [] {
    Bytes coded(3 * kPixels);
    const std::int32_t image = load(grey_file());
    const std::int32_t bytes =
        IMG_save_bitmap_block(image, coded.data(), coded.size(), IMG_TYPE_BMP_RLE);
    IMG_delete_bitmap(image);
    coded.resize(static_cast<std::size_t>(bytes));
    return coded;
  }();
  return file;
}

void copy(benchmark::State& state, std::size_t bytes) {
  const Bytes from = noise(bytes);
  Bytes to(bytes, 1);
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), bytes);
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
  report_bytes(state, bytes);
}

void decode(benchmark::State& state, const Bytes& file, std::size_t pixel_bytes) {
  for (auto _ : state) {
    const std::int32_t image = load(file);
    if (image < 0) state.SkipWithError("not decoded");
    IMG_delete_bitmap(image);
  }
  report_bytes(state, pixel_bytes);
}

void save(benchmark::State& state, const Bytes& file, std::int32_t code, std::size_t pixel_bytes) {
  const std::int32_t image = load(file);
  Bytes out(3 * kPixels + 2000, 1);
  for (auto _ : state) {
    if (IMG_save_bitmap_block(image, out.data(), out.size(), code) < 0) {
      state.SkipWithError("not saved");
    }
  }
  IMG_delete_bitmap(image);
  report_bytes(state, pixel_bytes);
}

void memcpy_24(benchmark::State& state) {
  copy(state, 3 * kPixels);
}
void decode_24(benchmark::State& state) {
  decode(state, colour_file(), 3 * kPixels);
}
void decode_16(benchmark::State& state) {
  decode(state, words_file(), 3 * kPixels);
}
void save_24(benchmark::State& state) {
  save(state, colour_file(), IMG_TYPE_BMP, 3 * kPixels);
}
void memcpy_8(benchmark::State& state) {
  copy(state, kPixels);
}
void decode_8(benchmark::State& state) {
  decode(state, grey_file(), kPixels);
}
void decode_rle8(benchmark::State& state) {
  decode(state, coded_file(), kPixels);
}
void save_rle8(benchmark::State& state) {
  save(state, grey_file(), IMG_TYPE_BMP_RLE, kPixels);
}

// ---- Memory -----------------------------------------------------------------------------------

// The most memory of a child that runs `work`, in KiB.
template <class Work>
long peak_memory(Work&& work) {
  const pid_t child = fork();
  if (child == 0) {
    work();
    _exit(0);
  }
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  return usage.ru_maxrss;
}

// From a file by name, the input not being in memory: what a decode needs beyond the image.
void peak_memory_24(benchmark::State& state) {
  char name[] = "/tmp/tarnquill-bench-XXXXXX";
  const int file = mkstemp(name);
  if (write(file, colour_file().data(), colour_file().size()) < 0) state.SkipWithError("no file");
  close(file);
  double beyond = 0;
  release_kept_blocks();  // the child shall need its own
  for (auto _ : state) {
    const long idle = peak_memory([] {});
    const long decoding = peak_memory([&] { IMG_decompress_bitmap(name); });
    beyond = static_cast<double>(decoding - idle) - 3 * kPixels / 1024.0;
  }
  unlink(name);
  state.counters["KiB_image"] = 3 * kPixels / 1024.0;
  state.counters["KiB_beyond_image"] = beyond;
}

BENCHMARK(memcpy_24)->Unit(benchmark::kMillisecond);
BENCHMARK(decode_24)->Unit(benchmark::kMillisecond);
BENCHMARK(decode_16)->Unit(benchmark::kMillisecond);
BENCHMARK(save_24)->Unit(benchmark::kMillisecond);
BENCHMARK(memcpy_8)->Unit(benchmark::kMillisecond);
BENCHMARK(decode_8)->Unit(benchmark::kMillisecond);
BENCHMARK(decode_rle8)->Unit(benchmark::kMillisecond);
BENCHMARK(save_rle8)->Unit(benchmark::kMillisecond);
BENCHMARK(peak_memory_24)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tq::bench
