// The portable row kernels, and the choice.
#include "process/tone/kernels.h"

#include "core/numbers.h"

namespace tq::process {
namespace {

void map_bytes(const std::uint8_t* from, const std::uint8_t* table, std::uint8_t* to,
               std::ptrdiff_t count) {
  std::ptrdiff_t i = 0;
  for (; i + 4 <= count; i += 4) {
    for (int k = 0; k < 4; ++k) to[i + k] = table[from[i + k]];
  }
  for (; i < count; ++i) to[i] = table[from[i]];
}

}  // namespace

constexpr ToneKernels kPortableToneKernels{.map_bytes = map_bytes};

ToneKernels tone_kernels() {
  ToneKernels kernels = kPortableToneKernels;
#if defined(__i386__) || defined(__x86_64__)
  if (platform::cpu_features().avx2) add_avx2_kernels(kernels);
#endif
  return kernels;
}

}  // namespace tq::process
