// Faster kernels against the portable ones: by themselves, and inside whole operations.
#include "process/colour/kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>
#include <utility>
#include <vector>

#include "core/numbers.h"
#include "include/tarnquill.h"
#include "pixels/kernels.h"
#include "platform/cpu.h"
#include "process/cleanup/kernels.h"
#include "process/geometry/kernels.h"
#include "tests/process/generated_image.h"
#include "tests/support/guarded_block.h"

namespace tq::process {
namespace {

using test::Bytes;

template <class Run>
auto with_features(bool all, Run&& run) {
  platform::mask_cpu_features({all, all, all, all, all});
  auto result = run();
  platform::mask_cpu_features({true, true, true, true, true});
  return result;
}

TEST(RowKernels, EqualThePortableOnesAtEveryWidth) {
  std::uint32_t state = 1;
  for (int width = 0; width <= 200; ++width) {
    Bytes colours(static_cast<std::size_t>(3 * width));
    for (auto& byte : colours) {
      state = state * 1664525 + 1013904223;
      byte = width % 5 == 0 ? 255 : static_cast<std::uint8_t>(state >> 24);
    }
    const auto run_all = [&] {
      const test::GuardedBlock block(colours);
      const std::uint8_t* in = block.data();
      const int room = 4 * width + 32;  // for a row, and what must not be written to
      Bytes out(static_cast<std::size_t>(13 * room), 0xA5);
      std::uint8_t* const row = out.data();
      const pixels::Kernels& k = pixels::kernels();
      k.brightness_24(in, row, width);
      k.luma_24(in, row + room, width);
      k.widen_24_reversed(in, row + 2 * room, width);
      k.widen_24(in, reinterpret_cast<Rgb*>(row + 3 * room), width);
      kernels().keys_24(in, reinterpret_cast<std::uint16_t*>(row + 4 * room), width);
      k.swap_24(in, row + 6 * room, width);
      k.mirror_24(in, row + 7 * room, width);
      const int gap = width % 8;  // of the bytes' bits
      if (width > 0) k.mirror_part_bytes(in, 24 * width - gap, 1, row + 11 * room);
      if (width > 0) k.mirror_part_bytes(in, 6 * width - gap % 2, 4, row + 12 * room);
      // Of one byte per pixel: the end of the others.
      kernels().at_least(in + 2 * width, {{5, 129, 33, 161, 9, 253, 0, 169}}, row + 5 * room,
                         width);
      const pixels::OrderedLimits limits = pixels::ordered_limits(width % 8, width % 3 * 20);
      const int part = 3 * width / 4;  // of four bytes
      const std::vector<Rgb> four(reinterpret_cast<const Rgb*>(in),
                                  reinterpret_cast<const Rgb*>(in) + part);
      k.order_to_8(four.data(), limits, row + 8 * room, part);
      k.order_to_4(four.data(), limits, row + 9 * room, part);
      k.order_to_1(four.data(), limits, row + 10 * room, part);
      return out;
    };
    EXPECT_EQ(with_features(true, run_all), with_features(false, run_all)) << width;
  }
}

// Rows of noise; what kernels read behind them is there.
TEST(GeometryKernels, EqualThePortableOnesAtEveryWidth) {
  std::uint32_t state = 1;
  const auto noise = [&state] {
    return static_cast<std::uint8_t>((state = state * 1664525 + 1013904223) >> 24);
  };
  constexpr int kMost = 200, kUsed = 13, kStride = 16, kDown = 7;
  Bytes rows(2 * 4 * (2 * kMost + kStride) + 32);
  std::ranges::generate(rows, noise);
  std::vector<std::int16_t> weights((kMost + 1) * kStride), levels(kDown * 4 * kMost);
  for (std::size_t i = 0; i < weights.size(); ++i) {
    weights[i] = i % kStride < kUsed ? static_cast<std::int16_t>((noise() - 100) * 16) : 0;
  }
  for (auto& level : levels) level = static_cast<std::int16_t>(noise() * 80 - 2000);
  const std::int16_t* down[kDown];
  for (int k = 0; k < kDown; ++k) down[k] = levels.data() + std::ptrdiff_t{k} * 4 * kMost;
  std::vector<std::int32_t> first(kMost);
  for (int x = 0; x < kMost; ++x)
    first[static_cast<std::size_t>(x)] = (x * 7 + noise() % 5) % (2 * kMost);
  for (const int size : {1, 3, 4}) {
    for (int width = 0; width <= kMost; ++width) {
      const auto run_all = [&] {
        const GeometryKernels k = geometry_kernels();
        const int samples = width * size;
        const std::uint8_t *in = rows.data(), *below = in + rows.size() / 2 - 16;
        std::vector<std::uint16_t> sums(static_cast<std::size_t>(samples) + 1, 60000);
        std::vector<std::uint64_t> shares(static_cast<std::size_t>(samples) + 1, 1);
        const std::uint8_t* const both[] = {in, below};
        k.add_rows(both, 2, sums.data(), samples);
        k.add_shares(below, 3000000000, shares.data(), samples);
        k.add_shares_16(sums.data(), 77, shares.data(), samples);
        Bytes out(4 * static_cast<std::size_t>(samples) + 1, 0xA5);
        k.halve(in, below, size, out.data(), width);
        k.copy_past(in, out.data() + 3 * samples, samples, byte(width % 2 * 255));
        const std::uint8_t* turned[8];
        for (int i = 0; i < 8; ++i) turned[i] = in + 100 * i;
        Bytes columns(static_cast<std::size_t>(24 * width + samples));
        k.turn_24(turned, width, width + width % 3, columns.data(), 24);
        k.weigh_down(down, weights.data(), width % kDown + 1, out.data() + samples, samples);
        // Both ways along rows that lie upwards.
        const std::ptrdiff_t stride = -4 * 20;
        const std::int64_t step = width % 2 == 0 ? 5000000000 : -5000000000;
        const std::int64_t x = width % 2 == 0 ? 12345678901 : width * 5000000001;
        const Walk walk{in + 40 * 80, stride, x / 20, 98765432101, step / 20, 300000000};
        k.blend(walk, size, out.data() + 2 * samples, width);
        // From pixel to pixel, for some pixels in one row.
        const std::int64_t about_one = (std::int64_t{1} << 32) - width % 3 * 20000000;
        const Walk along_rows{in + 40 * 80, stride,    x / 20,
                              98765432101,  about_one, walk.y_step / 2};
        k.blend(along_rows, size, columns.data() + 24 * width, width);
        std::vector<std::int16_t> along(static_cast<std::size_t>(samples) + 8);
        k.weigh_along(in, size, {first.data(), weights.data(), kUsed, kStride}, along.data(),
                      width);
        along.resize(static_cast<std::size_t>(samples));
        return std::tuple(sums, shares, out, columns, along);
      };
      EXPECT_EQ(with_features(true, run_all), with_features(false, run_all))
          << size << " " << width;
    }
  }
}

TEST(GeometryKernels, TransposeBits) {
  std::uint64_t rows[64], state = 1;
  for (auto& row : rows) row = state = state * 6364136223846793005 + 1442695040888963407;
  std::uint64_t columns[64] = {};
  for (int i = 0; i < 64 * 64; ++i)
    columns[i % 64] |= (rows[i / 64] >> (63 - i % 64) & 1) << (63 - i / 64);
  for (const bool all : {false, true}) {
    const auto made = with_features(all, [&] {
      std::vector<std::uint64_t> square(rows, rows + 64);
      geometry_kernels().transpose_square(square.data());
      return square;
    });
    EXPECT_TRUE(std::ranges::equal(made, columns)) << all;
  }
}

TEST(GeometryKernels, CellsOfBitsEqualThePortableOnes) {
  std::uint32_t state = 1;
  const auto noise = [&state] { return byte((state = state * 1664525 + 1013904223) >> 24); };
  constexpr int kRows = 31, kMost = 140;
  Bytes bits(kRows * kMost);
  std::ranges::generate(bits, noise);
  const std::uint8_t* rows[kRows];
  for (int k = 0; k < kRows; ++k) rows[k] = bits.data() + k * kMost;
  for (int width = 4; width <= kMost; width += 4) {
    for (const auto [wide, high, shift] :
         {std::array{2, 31, 0}, {4, 8, 5}, {8, 16, 7}, {4, 7, 0}}) {
      const std::int64_t area = width % 8 == 0 ? std::int64_t{1} << (33 + width % 16) : 1001;
      std::vector<std::int64_t> more(static_cast<std::size_t>(width - 1));
      std::int64_t black = 0;
      for (auto& change : more) {
        const std::int64_t now = noise() % 3 == 0 ? black : area * noise() / 255;
        change = now - std::exchange(black, now);
      }
      const auto run = [&, wide = wide, high = high, shift = shift] {
        const GeometryKernels k = geometry_kernels();
        Bytes out(static_cast<std::size_t>(5 * width + 32));
        k.count_cells({rows, high, wide, shift}, width, out.data());
        std::fill(out.begin() + 8 * width / wide, out.end(), std::uint8_t{0});
        k.levels_of_black(more.data(), area, out.data() + 4 * width, width - 1);
        return out;
      };
      EXPECT_EQ(with_features(true, run), with_features(false, run)) << width << " " << wide;
    }
  }
}

// Of noise around levels that rise, so that some windows have nothing in them and some all there is; down
// to where variances are at the edge of flat, and windows so large that sums have 32 bits.
TEST(CleanupKernels, EqualThePortableOnesAtEveryWidth) {
  std::uint32_t state = 1;
  const auto noise = [&state] { return (state = state * 1664525 + 1013904223) >> 24; };
  for (int width = 0; width <= 300; ++width) {
    const auto count = static_cast<std::size_t>(width);
    const int reach[] = {0, 8, 20, 60, 255}, spread = reach[width % 5] + 1;
    Bytes levels(count + 256), other(count);
    std::vector<std::uint16_t> background(count + 1);
    for (std::size_t x = 0; x < levels.size(); ++x) {
      levels[x] = byte(std::min<std::size_t>(255, x * width / 300 + noise() % spread));
    }
    for (auto& level : other) level = byte(noise() % spread + 200 % spread);
    for (auto& paper : background) paper = word(16 + noise() * 16 * (width % 3) / 2 % 4065);
    Bytes cells(64 + 10 * 30 + 100 + 64);
    for (auto& cell : cells) cell = byte(noise() % 9);
    const int columns = std::min(width, width % 4 == 0 ? 255 : 3 + width % 30);
    const int rows = width % 4 == 0 ? 255 : 2 + width % 23;
    const auto run_all = [&] {
      const CleanupKernels k = cleanup_kernels();
      Bytes out(4 * count + 4, 0xA5);
      std::uint8_t* to = out.data();
      std::vector<std::int64_t> found{k.bright_level(levels.data(), 16, 256),
                                      k.bright_level(levels.data() + width, 3, width)};
      std::vector<std::int32_t> corners(static_cast<std::size_t>(width) / 16 + 1);
      for (std::size_t i = 0; i < corners.size(); ++i) corners[i] = background[5 * i] * 32;
      std::vector<std::uint16_t> line(count);
      k.connect(corners.data(), line.data(), width / 16);
      for (const int paper : line) found.push_back(paper);
      k.even_out(levels.data(), background.data(), to, width);
      k.mark_dark(levels.data(), background.data(), width - 1 - 46 * (width / 254), to + count,
                  width);
      std::vector<MovedColumn> moved;
      for (int i = 0; i < 30; ++i) {  // of which some lie behind the rows, and some before
        moved.push_back({cells.data() + 64 + 10 * i, i * (width - 150) / 10});
      }
      Bytes added(64);
      k.add_columns(moved.data(), 30, 100, width % 90 - 10, added.data());
      out.insert(out.end(), added.begin(), added.end());
      to = out.data();
      std::vector<std::uint32_t> sums(2 * count + 2);
      const WindowSums all{sums.data(), sums.data() + count + 1};
      for (int y = 0; y < rows; ++y) {
        k.move_windows((y % 2 == 0 ? other : levels).data(), Bytes(count).data(), all, width);
      }
      k.move_windows(levels.data(), other.data(), all, width);
      if (columns == 0) return std::tuple(out, found, sums);
      const WindowRow windows{all.sums_before, all.squares_before, columns,
                              1.0 / (double{1} * columns * rows)};
      const std::int64_t largest = k.largest_variance(windows, 0, width - columns + 1);
      found.push_back(largest);
      for (const int percent : {34, 100}) {
        const WindowRule rule{width % 129, percent, 4096 + 28672 * (width % 3) / 2};
        k.mark_by_windows(levels.data() + columns / 2, windows, rule, to + 2 * count,
                          width - columns + 1);
        k.mark_by_windows(other.data(), windows, rule, to + 3 * count, width - columns + 1);
      }
      return std::tuple(out, found, sums);
    };
    EXPECT_EQ(with_features(true, run_all), with_features(false, run_all)) << width;
  }
}

// Each narrow width with one pattern, some wide ones with all: wide rows are cut into pieces. On
// even colours the pieces do not find each other's state, and noise fills the octree.
TEST(EveryWidth, OperationsEqualThePortableOnes) {
  constexpr int kWide[] = {511, 512, 1023, 1024, 1281, 2480, 4001};
  for (int i = 0; i < 204 + 6 * 7; ++i) {
    const int width = i < 204 ? i + 1 : kWide[i / 6 - 34];
    const int pattern = (i + i / 6) % 6;
    for (const test::NamedOperation& operation : test::all_operations()) {
      const auto run = [&] {
        const int bits = pattern % 2 == 0 ? 24 : 8;
        Bytes dib = test::generate_dib({bits}, width, 7, pattern);
        if (pattern > 3) std::fill_n(dib.rbegin(), 7 * row_bytes(width, bits), 0x6D);
        const test::KeptImage image(std::move(dib));
        operation.run(image.handle());
        return test::snapshot(image.handle()).rows;
      };
      EXPECT_EQ(with_features(true, run), with_features(false, run))
          << operation.name << " " << width << " " << pattern;
    }
  }
  IMGLOW_set_dithermode(1);
}

}  // namespace
}  // namespace tq::process
