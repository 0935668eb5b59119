// The row kernels of tables and filters: plain functions over one row. The portable ones are the
// reference, faster ones for some processors give the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/cpu.h"

namespace tq::process {

struct ToneKernels {
  // Each byte by a table of 256.
  void (*map_bytes)(const std::uint8_t* from, const std::uint8_t* table, std::uint8_t* to,
                    std::ptrdiff_t count);
};

extern const ToneKernels kPortableToneKernels;
void add_avx2_kernels(ToneKernels& kernels);

// The fastest for this processor, less what is masked.
ToneKernels tone_kernels();

}  // namespace tq::process
