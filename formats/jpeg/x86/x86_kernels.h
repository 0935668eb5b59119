// Variants of the kernels for x86, compiled for their instruction sets.
#pragma once

namespace tq::formats {

struct JpegKernels;

namespace x86 {

void add_ssse3_kernels(JpegKernels& kernels);
void add_avx2_kernels(JpegKernels& kernels);

}  // namespace x86
}  // namespace tq::formats
