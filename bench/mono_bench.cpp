// A page of A4 at 300 dots per inch in 1 bit: to run lists, and its rows back as bits.
#include "bench/bench_support.h"

namespace tq::bench {
namespace {

constexpr std::int32_t kWidth = 2480, kHeight = 3508;
constexpr std::size_t kStride = (kWidth + 31) / 32 * 4;
constexpr std::size_t kPageBytes = kStride * kHeight;

// Lines of text: 40 rows in which words of 30 to 90 pixels alternate with gaps, then 20 white ones.
Bytes text_rows() {
  Bytes rows(kPageBytes, 0xFF);
  std::uint32_t state = 7;
  for (std::int32_t y = 0; y < kHeight; ++y) {
    if (y % 60 >= 40) continue;
    std::uint8_t* row = &rows[static_cast<std::size_t>(y) * kStride];
    for (std::int32_t x = 200; x < kWidth - 200;) {
      state = state * 1664525 + 1013904223;
      const auto stroke = static_cast<std::int32_t>(state >> 24) % 6 + 2;
      const auto gap = static_cast<std::int32_t>(state >> 16 & 0xFF) % 58 + 3;
      for (std::int32_t i = x; i < x + stroke; ++i) {
        row[i / 8] &= static_cast<std::uint8_t>(~(0x80 >> i % 8));
      }
      x += stroke + gap;
    }
  }
  return rows;
}

const Bytes& page(bool dithered) {
  static const Bytes text = bmp_file(kWidth, kHeight, 1, text_rows());
  static const Bytes photo = bmp_file(kWidth, kHeight, 1, noise(kPageBytes));
  return dithered ? photo : text;
}

void memcpy_page(benchmark::State& state) {
  const Bytes from = page(false);
  Bytes to(kPageBytes, 1);
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), kPageBytes);
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
  report_bytes(state, kPageBytes);
}

void decode_page(benchmark::State& state) {
  const Bytes& file = page(state.range(0) != 0);
  for (auto _ : state) IMG_delete_bitmap(load(file));
  report_bytes(state, kPageBytes);
}

void read_rows(benchmark::State& state) {
  const std::int32_t image = load(page(state.range(0) != 0));
  Bytes row(kStride);
  for (auto _ : state) {
    for (std::int32_t y = 0; y < kHeight; ++y) IMGLOW_get_raster(image, row.data(), y, 0);
    benchmark::DoNotOptimize(row.data());
  }
  IMG_delete_bitmap(image);
  report_bytes(state, kPageBytes);
}

void runs_to_dib_and_back(benchmark::State& state) {
  const std::int32_t image = load(page(state.range(0) != 0));
  for (auto _ : state) {
    IMG_runs_to_dib(image);
    IMG_dib_to_runs(image);
  }
  IMG_delete_bitmap(image);
  report_bytes(state, 2 * kPageBytes);
}

BENCHMARK(memcpy_page)->Unit(benchmark::kMicrosecond);
BENCHMARK(decode_page)->ArgName("dithered")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(read_rows)->ArgName("dithered")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(runs_to_dib_and_back)->ArgName("dithered")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace tq::bench
