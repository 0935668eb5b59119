// Row kernels in registers of 256 bits. They leave the rest of a row to the portable ones.
#if defined(__i386__) || defined(__x86_64__)

#include "platform/x86/simd256.h"
#include "process/tone/kernels.h"

namespace tq::process {
namespace {

using namespace simd;

// A table of 256 bytes as 16 shuffles. Each takes what differs between its 16 bytes and those of the
// one before, for all places from its first on: places below are negative, which gives 0. Places are
// numbers with a sign, so that the table has two halves.
TQ_KERNEL void map_bytes(const std::uint8_t* from, const std::uint8_t* table, std::uint8_t* to,
                         std::ptrdiff_t count) {
  constexpr int kWidth = 16 * kLanes, kParts = 8;  // of a half
  std::uint8_t changes[2 * kParts * 16];
  for (int half = 0; half < 256; half += 128) {
    for (int i = 0; i < 128; ++i) {
      const int before = i < 16 ? 0 : table[half + i - 16];
      changes[half + i] = static_cast<std::uint8_t>(table[half + i] ^ before);
    }
  }
  const auto mapped = [&](Vector x) __attribute__((target("avx2"))) {
    Vector low = x, high = x ^ all8(0x80), result{};
    TQ_UNROLLED
    for (int part = 0; part < kParts; ++part) {
      result ^= shuffle8(load_repeated(changes + 16 * part), low);
      result ^= shuffle8(load_repeated(changes + 128 + 16 * part), high);
      low = subtract_signed8(low, all8(16));
      high = subtract_signed8(high, all8(16));
    }
    return result;
  };
  std::ptrdiff_t i = 0;
  for (; i + kWidth <= count; i += kWidth) store(to + i, mapped(load(from + i)));
  kPortableToneKernels.map_bytes(from + i, table, to + i, count - i);
}

}  // namespace

void add_avx2_kernels(ToneKernels& kernels) {
  kernels = {.map_bytes = map_bytes};
}

}  // namespace tq::process

#endif
