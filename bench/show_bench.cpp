// Views of large images beside what other libraries do to the same pixels:
//   tarnquill_bench --benchmark_filter=show --benchmark_repetitions=5
//                   --benchmark_enable_random_interleaving=true
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "core/image_table.h"
#include "core/run_storage.h"
#include "include/tarnquill.h"

#if TQ_BENCH_LEPTONICA
#include <leptonica/allheaders.h>
#endif

namespace {

using Bytes = std::vector<std::uint8_t>;
using Runs = std::vector<std::uint16_t>;

constexpr std::int32_t kPlanWidth = 19866, kPlanHeight = 28087;  // A0, 600 dots per inch
constexpr std::int32_t kPageWidth = 2480, kPageHeight = 3508;    // A4, 300
constexpr std::int32_t kWindow[] = {1600, 1200};

std::int32_t make_shell(std::int32_t width, std::int32_t height, int bits) {
  const tq::HeaderBlock header = tq::dib_header(width, height, bits);
  return IMG_create_handle_shell(&header);
}

// Lines, hatched areas and lettering: 180 transitions in a row on average.
void draw_plan_row(std::int32_t y, Runs& row) {
  std::vector<std::pair<std::int32_t, std::int32_t>> runs;
  for (std::int32_t i = 0; i < 45; ++i) {
    const std::int32_t x = (i * 4999 + (i % 7 - 3) * y / 2) % kPlanWidth;
    runs.emplace_back(x < 0 ? x + kPlanWidth : x, 9);
  }
  for (std::int32_t x = 3000; y / 1500 % 3 == 1 && x < 7000; x += 120)
    runs.emplace_back(x + y % 60, 5);
  for (std::int32_t x = 9000; y % 120 < 70 && x < 15000; x += 100) {
    runs.emplace_back(x + (x * 7 + y / 10) % 9, 11);
  }
  std::sort(runs.begin(), runs.end());
  row.clear();
  for (const auto& [x, length] : runs) {
    if (x + length >= kPlanWidth || (!row.empty() && x <= row.back())) continue;
    row.push_back(static_cast<std::uint16_t>(x));
    row.push_back(static_cast<std::uint16_t>(x + length));
  }
}

std::int32_t make_plan() {
  const std::int32_t image = make_shell(kPlanWidth, 1, 1);
  IMG_resize_bitmap(image, kPlanWidth, kPlanHeight, 0);
  IMG_dib_to_runs(image);
  Runs row;
  for (std::int32_t y = 0; y < kPlanHeight; ++y) {
    draw_plan_row(y, row);
    (void)tq::store_transitions(tq::image_record(tq::ImageHandle{image}), y, row);
  }
  return image;
}

std::int32_t make_noise(std::int32_t width, std::int32_t height, int bits) {
  const std::int32_t image = make_shell(width, height, bits);
  Bytes row(static_cast<std::size_t>(tq::row_bytes(width, bits)));
  std::uint32_t state = 1;
  for (std::int32_t y = 0; y < height; ++y) {
    for (std::uint8_t& byte : row) {
      byte = static_cast<std::uint8_t>((state = state * 1664525 + 1013904223) >> 24);
    }
    IMGLOW_put_raster(image, row.data(), y, 0);
  }
  return image;
}

void show(benchmark::State& state, std::int32_t image, std::int32_t fit, int format) {
  img_view view{};
  view.bytes = sizeof view;
  view.width = kWindow[0];
  view.height = kWindow[1];
  view.fit = fit;
  view.scroll_x = view.scroll_y = 500;
  const std::intptr_t stride = format / 8 * kWindow[0];
  Bytes pixels(static_cast<std::size_t>(stride * kWindow[1]));
  for (auto _ : state) {
    if (IMGLOW_render_view(image, &view, format, pixels.data(), stride, 0, kWindow[1]) < 0) {
      state.SkipWithError("refused");
    }
  }
  IMG_delete_bitmap(image);
}

void plan(benchmark::State& state) {
  show(state, make_plan(), IMG_FIT_WINDOW, IMG_PIXELS_GREY);
}
BENCHMARK(plan)->Name("show/plan/ours")->Unit(benchmark::kMillisecond);

// Its bits are noise: every row is kept as bits, also among run lists.
void dots(benchmark::State& state) {
  const std::int32_t image = make_noise(kPageWidth, kPageHeight, 1);
  if (state.range(0) != 0) IMG_dib_to_runs(image);
  show(state, image, IMG_FIT_WINDOW, IMG_PIXELS_GREY);
}
BENCHMARK(dots)
    ->Name("show/dots/ours")
    ->ArgName("runs")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond);

void photo(benchmark::State& state) {
  show(state, make_noise(4000, 3000, 24), static_cast<int>(state.range(0)), IMG_PIXELS_BGRX);
}
BENCHMARK(photo)->Name("show/photo/ours")->Arg(IMG_FIT_WINDOW)->Unit(benchmark::kMillisecond);
BENCHMARK(photo)->Name("show/scrolled/ours")->Arg(IMG_FIT_NONE)->Unit(benchmark::kMillisecond);

void copy_window(benchmark::State& state) {
  const Bytes from(static_cast<std::size_t>(4 * kWindow[0] * kWindow[1]), 1);
  Bytes to(from.size());
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), from.size());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(copy_window)->Name("show/scrolled/memcpy")->Unit(benchmark::kMillisecond);

#if TQ_BENCH_LEPTONICA
// The expanded image, 1 being black there.
Pix* pix_of(std::int32_t image) {
  const tq::ImageRecord& record = tq::image_record(tq::ImageHandle{image});
  Pix* const pix = pixCreate(record.width, record.height, 1);
  Bytes row(static_cast<std::size_t>(record.bytes_per_row));
  for (std::int32_t y = 0; y < record.height; ++y) {
    IMGLOW_get_raster(image, row.data(), y, 0);
    l_uint32* const line = pixGetData(pix) + static_cast<std::ptrdiff_t>(y) * pixGetWpl(pix);
    for (std::int32_t x = 0; x < record.width; ++x) {
      if ((row[static_cast<std::size_t>(x / 8)] >> (7 - x % 8) & 1) == 0) SET_DATA_BIT(line, x);
    }
  }
  IMG_delete_bitmap(image);
  return pix;
}

void scale_to_grey(benchmark::State& state, Pix* source) {
  const auto scale = static_cast<float>(kWindow[1]) / static_cast<float>(pixGetHeight(source));
  for (auto _ : state) {
    Pix* made = pixScaleToGray(source, scale);
    if (made == nullptr) state.SkipWithError("refused");
    pixDestroy(&made);
  }
  pixDestroy(&source);
}

void plan_leptonica(benchmark::State& state) {
  scale_to_grey(state, pix_of(make_plan()));
}
BENCHMARK(plan_leptonica)->Name("show/plan/leptonica")->Unit(benchmark::kMillisecond);

void dots_leptonica(benchmark::State& state) {
  scale_to_grey(state, pix_of(make_noise(kPageWidth, kPageHeight, 1)));
}
BENCHMARK(dots_leptonica)->Name("show/dots/leptonica")->Unit(benchmark::kMillisecond);
#endif

}  // namespace
