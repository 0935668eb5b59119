// CPUID, read once; no instruction set elsewhere than on x86.
#include "platform/cpu.h"

#include <atomic>

#if defined(__i386__) || defined(__x86_64__)
#include <cpuid.h>
#endif

namespace tq::platform {
namespace {

constexpr CpuFeatures kAll{true, true, true, true, true};

#if defined(__i386__) || defined(__x86_64__)

// Whether the system saves the 256-bit registers.
bool saves_wide_registers() {
  unsigned low = 0, high = 0;
  __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return (low & 6) == 6;
}

CpuFeatures detect() {
  CpuFeatures found;
  unsigned a = 0, b = 0, c = 0, d = 0;
  if (__get_cpuid(1, &a, &b, &c, &d) == 0) return found;
  found.sse2 = (d & bit_SSE2) != 0;
  found.ssse3 = (c & bit_SSSE3) != 0;
  found.sse41 = (c & bit_SSE4_1) != 0;
  const bool wide = (c & bit_OSXSAVE) != 0 && saves_wide_registers();
  if (__get_cpuid_count(7, 0, &a, &b, &c, &d) == 0) return found;
  found.avx2 = wide && (b & bit_AVX2) != 0;
  found.bmi2 = (b & bit_BMI2) != 0;
  return found;
}

#else

CpuFeatures detect() {
  return {};
}

#endif

// Bits for the features, and one that says that they are known.
constexpr int kKnown = 1 << 5;

constexpr int bits_of(const CpuFeatures& f) {
  return f.sse2 | f.ssse3 << 1 | f.sse41 << 2 | f.avx2 << 3 | f.bmi2 << 4;
}
CpuFeatures features_of(int bits) {
  const auto has = [bits](int bit) { return (bits >> bit & 1) != 0; };
  return {has(0), has(1), has(2), has(3), has(4)};
}

constinit std::atomic<int> found = 0, mask = bits_of(kAll);

}  // namespace

CpuFeatures cpu_features() {
  int bits = found.load(std::memory_order_relaxed);
  if (bits == 0) {  // threads that come here together find the same
    bits = kKnown | bits_of(detect());
    found.store(bits, std::memory_order_relaxed);
  }
  return features_of(bits & mask.load(std::memory_order_relaxed));
}

void mask_cpu_features(CpuFeatures allowed) {
  mask = bits_of(allowed);
}

}  // namespace tq::platform
