// CPUID, read once; no instruction set elsewhere than on x86.
#include "platform/cpu.h"

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

struct CpuState {
  bool known = false;
  CpuFeatures mask = kAll;
  CpuFeatures features;
};
constinit CpuState state;

}  // namespace

const CpuFeatures& cpu_features() {
  if (!state.known) {
    const CpuFeatures found = detect();
    const CpuFeatures& mask = state.mask;
    state.features = {found.sse2 && mask.sse2, found.ssse3 && mask.ssse3, found.sse41 && mask.sse41,
                      found.avx2 && mask.avx2, found.bmi2 && mask.bmi2};
    state.known = true;
  }
  return state.features;
}

void mask_cpu_features(CpuFeatures allowed) {
  state.mask = allowed;
  state.known = false;
}

}  // namespace tq::platform
