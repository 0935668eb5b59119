// The portable row kernels.
#include "process/kernels.h"

#include "platform/cpu.h"
#include "process/wide_rows.h"
#include "process/x86/diffuse_sse2.h"
#include "process/x86/kernels_x86.h"

namespace tq::process {
namespace {

void keys_24(const std::uint8_t* bgr, std::uint16_t* keys, std::int32_t width) {
  for (std::int32_t x = 0; x < width; ++x, bgr += 3) keys[x] = key_of({bgr[0], bgr[1], bgr[2], 0});
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

void widen_channels(const Rgb* colours, WideColour* out, std::int32_t width) {
  for (std::int32_t x = 0; x < width; ++x) out[x] = WideColour(colours[x]);
}

constexpr Kernels kPortable{keys_24, at_least, diffuse_to_cells, widen_channels,
                            diffuse_to_sixteen};

#if defined(__SSE2__)

// The faster kernels, with the rest of the row done by the portable ones.
namespace with_ssse3 {

void keys_24(const std::uint8_t* bgr, std::uint16_t* keys, std::int32_t width) {
  const std::int32_t done = x86::keys_24(bgr, keys, width);
  process::keys_24(bgr + 3 * done, keys + done, width - done);
}

void at_least(const std::uint8_t* grey, const LeastWhite& least, std::uint8_t* bits,
              std::int32_t width) {
  const std::int32_t done = x86::at_least(grey, least.grey, bits, width);
  process::at_least(grey + done, least, bits + done / 8, width - done);
}

}  // namespace with_ssse3

constexpr Kernels kSsse3{with_ssse3::keys_24, with_ssse3::at_least, x86::diffuse_to_cells,
                         x86::widen_channels, x86::diffuse_to_sixteen};

#endif

}  // namespace

const Kernels& kernels() {
#if defined(__SSE2__)
  if (platform::cpu_features().ssse3) return kSsse3;
#endif
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
