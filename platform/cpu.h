// Which instruction sets this processor has, for the choice of faster kernels.
#pragma once

namespace tq::platform {

struct CpuFeatures {
  bool sse2 = false, ssse3 = false, sse41 = false, avx2 = false, bmi2 = false;
};

CpuFeatures cpu_features();

// Leaves only what `allowed` names; tests and benchmarks force each variant with it.
void mask_cpu_features(CpuFeatures allowed);

}  // namespace tq::platform
