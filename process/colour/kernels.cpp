// The portable row kernels, and the choice.
#include "process/colour/kernels.h"

#include <algorithm>

#include "pixels/colours.h"
#include "pixels/rows.h"

namespace tq::process {
namespace {

void keys_24(const std::uint8_t* bgr, std::uint16_t* keys, int width) {
  for (int x = 0; x < width; ++x, bgr += 3) keys[x] = key_of({bgr[0], bgr[1], bgr[2], 0});
}

void at_least(const std::uint8_t* grey, const LeastWhite& least, std::uint8_t* bits, int width) {
  for (int x = 0; x < width; x += 8) {
    int white = 0;
    for (int i = 0; i < std::min(width - x, 8); ++i) {
      white |= (grey[x + i] >= least.grey[i]) << (7 - i);
    }
    bits[x / 8] = byte(white);
  }
}

// Fixed palette: Burkes kernel, values stay within 0 .. 255

// Each share is truncated toward zero and clamped as it arrives, so their order counts.
void give(Rgb& to, const int (&error)[3], int divisor) {
  const auto add = [&](std::uint8_t& channel, int i) {
    channel = byte(std::clamp(channel + error[i] / divisor, 0, 255));
  };
  add(to.blue, 0);
  add(to.green, 1);
  add(to.red, 2);
}

void diffuse_to_cells(Rgb* current, Rgb* next, CellColours& cells, std::uint8_t* out, int width) {
  for (int x = 0; x < width; ++x) {
    const Rgb colour = current[x];
    const IndexedColour chosen = cells.find(colour);
    out[x] = chosen.index;
    const int error[3] = {colour.blue - chosen.blue, colour.green - chosen.green,
                          colour.red - chosen.red};
    give(current[x + 1], error, 4);
    give(current[x + 2], error, 8);
    give(next[x - 2], error, 16);
    give(next[x - 1], error, 8);
    give(next[x], error, 4);
    give(next[x + 1], error, 8);
    give(next[x + 2], error, 16);
  }
}

// 16 colours: Burkes kernel, values of 32 bits

void widen_channels(const Rgb* colours, WideColour* out, int width) {
  std::transform(colours, colours + width, out, [](Rgb colour) { return WideColour(colour); });
}

// Shares are shifted, which rounds toward minus infinity: in dark areas the errors of a long column
// of rows grow without bound, so that sums wrap as 32-bit integers do.
void give(WideColour& to, const std::int32_t (&error)[3], int shift) {
  for (int i = 0; i < 3; ++i) {
    __builtin_add_overflow(to.channel[i], error[i] >> shift, &to.channel[i]);
  }
}

void diffuse_wide_row(WideColour* current, WideColour* next, std::uint8_t* out, int width) {
  const Rgb* palette = pixels::sixteen_colours().data();
  pixels::pack_nibbles(out, width, [&](int x) {
    const std::int32_t(&value)[4] = current[x].channel;
    const int index = pixels::plain_sixteen(value[2], value[1], value[0]);
    const std::uint8_t chosen[3] = {palette[index].red, palette[index].green, palette[index].blue};
    std::int32_t error[3];
    for (int i = 0; i < 3; ++i) __builtin_sub_overflow(value[i], chosen[i], &error[i]);
    give(current[x + 1], error, 2);
    give(current[x + 2], error, 3);
    give(next[x - 2], error, 4);
    give(next[x - 1], error, 3);
    give(next[x], error, 2);
    give(next[x + 1], error, 3);
    give(next[x + 2], error, 4);
    return index;
  });
}

void diffuse_to_sixteen(const WideRows& rows) {
  for (int i = 0; i < rows.count; ++i) {
    diffuse_wide_row(rows.row[i], rows.row[i + 1], rows.out[i], rows.width);
  }
}

// A palette of the image's own: Floyd-Steinberg kernel

template <int kStep>
void diffuse_to_tree(const TreeRow& row, IndexFinder& finder) {
  const auto share = [](int error, int weight) { return error * weight / 16; };
  int ahead[3] = {}, behind_sum[3] = {}, below_sum[3] = {};
  int x = kStep > 0 ? 0 : row.width - 1;
  for (int left = row.width; left > 0; --left, x += kStep) {
    const Rgb own = row.colours[x];
    const auto value = [&](int i, int channel) {
      return byte(std::clamp(channel + row.received[x].channel[i] + ahead[i], 0, 255));
    };
    const Rgb v{value(0, own.blue), value(1, own.green), value(2, own.red), 0};
    const IndexedColour chosen = finder.find(v);
    row.indices[x] = chosen.index;
    const int error[3] = {v.blue - chosen.blue, v.green - chosen.green, v.red - chosen.red};
    for (int i = 0; i < 3; ++i) {
      ahead[i] = share(error[i], 7);
      row.below[x - kStep].channel[i] =
          static_cast<std::int16_t>(behind_sum[i] + share(error[i], 3));
      behind_sum[i] = below_sum[i] + share(error[i], 5);
      below_sum[i] = share(error[i], 1);
    }
  }
  for (int i = 0; i < 3; ++i) {
    row.below[x - kStep].channel[i] = static_cast<std::int16_t>(behind_sum[i]);
  }
}

// Black and white: Stucki kernel

// By weight: the neighbour's largest share, its half, its quarter, its eighth.
void add_stucki_rows(const std::uint8_t* levels, const std::int8_t* above,
                     const std::int8_t* second_above, std::int16_t* values, int width) {
  for (int x = 0; x < width; ++x) {
    const std::int8_t* a = above + x;
    const std::int8_t* b = second_above + x;
    const int from_above = a[-2] / 4 + a[-1] / 2 + a[0] + a[1] / 2 + a[2] / 4;
    const int from_second = b[-2] / 8 + b[-1] / 4 + b[0] / 2 + b[1] / 4 + b[2] / 8;
    values[x] = static_cast<std::int16_t>(levels[x] + from_above + from_second);
  }
}

}  // namespace

constexpr Kernels kPortableKernels{.keys_24 = keys_24,
                                   .at_least = at_least,
                                   .diffuse_to_cells = diffuse_to_cells,
                                   .widen_channels = widen_channels,
                                   .diffuse_to_sixteen = diffuse_to_sixteen,
                                   .diffuse_to_tree_rightward = diffuse_to_tree<1>,
                                   .diffuse_to_tree_leftward = diffuse_to_tree<-1>,
                                   .add_stucki_rows = add_stucki_rows,
                                   .diffuse_stucki_lanes = nullptr};

Kernels select_kernels([[maybe_unused]] const platform::CpuFeatures& features) {
  Kernels kernels = kPortableKernels;
#if defined(__i386__) || defined(__x86_64__)
  if (features.ssse3) add_ssse3_kernels(kernels);
  if (features.avx2) add_avx2_kernels(kernels);
#endif
  return kernels;
}

}  // namespace tq::process
