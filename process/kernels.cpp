// The portable row kernels.
#include "process/kernels.h"

#include "process/grey.h"

namespace tq::process {
namespace {

template <int (*kGrey)(Rgb)>
void weigh_24(const std::uint8_t* bgr, std::uint8_t* grey, std::int32_t width) {
  for (std::int32_t x = 0; x < width; ++x, bgr += 3) {
    grey[x] = static_cast<std::uint8_t>(kGrey({bgr[0], bgr[1], bgr[2], 0}));
  }
}

void widen_24(const std::uint8_t* bgr, Rgb* colours, std::int32_t width) {
  for (std::int32_t x = 0; x < width; ++x, bgr += 3) colours[x] = {bgr[0], bgr[1], bgr[2], 0};
}

void widen_24_reversed(const std::uint8_t* bgr, std::uint8_t* out, std::int32_t width) {
  for (std::int32_t x = 0; x < width; ++x, bgr += 3, out += 4) {
    out[0] = 0;
    out[1] = bgr[2];
    out[2] = bgr[1];
    out[3] = bgr[0];
  }
}

void at_least(const std::uint8_t* grey, const LeastWhite& least, std::uint8_t* bits,
              std::int32_t width) {
  for (std::int32_t x = 0; x < width; x += 8) {
    const std::int32_t count = width - x < 8 ? width - x : 8;
    int byte = 0;
    for (std::int32_t i = 0; i < count; ++i) {
      byte |= static_cast<int>(grey[x + i] >= least.grey[i]) << (7 - i);
    }
    bits[x / 8] = static_cast<std::uint8_t>(byte);
  }
}

// By weight: the neighbour's largest share, its half, its quarter, its eighth.
void add_stucki_rows(const std::uint8_t* levels, const std::int8_t* above,
                     const std::int8_t* second_above, std::int16_t* values, std::int32_t width) {
  for (std::int32_t x = 0; x < width; ++x) {
    const std::int8_t* a = above + x;
    const std::int8_t* b = second_above + x;
    const int from_above = a[-2] / 4 + a[-1] / 2 + a[0] + a[1] / 2 + a[2] / 4;
    const int from_second = b[-2] / 8 + b[-1] / 4 + b[0] / 2 + b[1] / 4 + b[2] / 8;
    values[x] = static_cast<std::int16_t>(levels[x] + from_above + from_second);
  }
}

constexpr Kernels kPortable{weigh_24<brightness>, weigh_24<luma>,    widen_24,
                            widen_24_reversed,    at_least,          add_stucki_rows,
                            diffuse_to_cells,     diffuse_to_sixteen};

}  // namespace

const Kernels& kernels() {
  return kPortable;
}

void count_levels(std::span<const std::uint8_t> levels, std::uint32_t (&counts)[256]) {
  // Equal neighbours are the rule; two tables keep them from waiting for each other.
  std::uint32_t others[256] = {};
  std::size_t x = 0;
  for (; x + 2 <= levels.size(); x += 2) {
    ++counts[levels[x]];
    ++others[levels[x + 1]];
  }
  if (x < levels.size()) ++counts[levels[x]];
  for (int i = 0; i < 256; ++i) counts[i] += others[i];
}

}  // namespace tq::process
