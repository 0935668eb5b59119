// Error diffusion to the 16 fixed colours: Burkes kernel, always from left to right.
#include <utility>

#include "core/display_cache.h"
#include "pixels/colours.h"
#include "pixels/rows.h"
#include "process/kernels.h"
#include "process/process.h"
#include "process/rebuild.h"
#include "process/wide_rows.h"

namespace tq::process {
namespace {

// Shares are shifted, which rounds toward minus infinity: in dark areas the errors of a long column
// of rows grow without bound, so that sums wrap as 32-bit integers do.
void give(WideColour& to, const std::int32_t (&error)[3], int shift) {
  for (int i = 0; i < 3; ++i) {
    to.channel[i] = static_cast<std::int32_t>(static_cast<std::uint32_t>(to.channel[i]) +
                                              static_cast<std::uint32_t>(error[i] >> shift));
  }
}

void diffuse_row(WideColour* current, WideColour* next, std::uint8_t* out, std::int32_t width) {
  const Rgb* palette = pixels::sixteen_colours().data();
  pixels::pack_nibbles(out, width, [&](std::int32_t x) {
    const std::int32_t(&value)[4] = current[x].channel;
    const int index = pixels::plain_sixteen(value[2], value[1], value[0]);
    const Rgb chosen = palette[index];
    const auto minus = [](std::int32_t a, std::uint8_t b) {
      return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - b);
    };
    const std::int32_t error[3] = {minus(value[0], chosen.red), minus(value[1], chosen.green),
                                   minus(value[2], chosen.blue)};
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

}  // namespace

void diffuse_to_sixteen(const WideRows& rows) {
  for (int i = 0; i < rows.count; ++i) {
    diffuse_row(rows.row[i], rows.row[i + 1], rows.out[i], rows.width);
  }
}

Status diffusion_color(ImageSource& image) {
  release_display_cache(image.record());
  if (!image.is_deep()) return StatusCode::unsupported;
  RowBuffer<Rgb> colours;
  TQ_TRY(colours.allocate(image.width()));
  RowBuffer<WideColour, 2> buffers[WideRows::kMost + 1];
  WideRows rows{.width = image.width(), .count = 0, .row = {}, .out = {}};
  for (int i = 0; i <= WideRows::kMost; ++i) {
    TQ_TRY(buffers[i].allocate(image.width()));
    rows.row[i] = buffers[i].data();
  }
  const auto load = [&](std::int32_t y, WideColour* row) {
    image.read_colours(y, colours.pixels());
    kernels().widen_channels(colours.data(), row, image.width());
  };
  return replace_rows(image, {4, pixels::sixteen_colours(), marker_below_32(image)},
                      [&](std::int32_t y, std::span<std::uint8_t> row) {
                        const bool last = y + 1 == image.height();
                        if (y == 0) load(0, rows.row[0]);
                        rows.out[rows.count++] = row.data();
                        load(last ? y : y + 1, rows.row[rows.count]);
                        if (rows.count < WideRows::kMost && !last) return;
                        kernels().diffuse_to_sixteen(rows);
                        std::swap(rows.row[0], rows.row[rows.count]);
                        rows.count = 0;
                      });
}

}  // namespace tq::process
