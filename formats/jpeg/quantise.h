// Blocks of samples to quantised coefficients.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "formats/jpeg/tables.h"

namespace tq::formats {

// Division by 4 times each step, as two multiplications of 16 bits: exact for all amounts below
// 32768.
struct QuantiseTable {
  alignas(16) std::uint16_t bias[kBlock];
  alignas(16) std::uint16_t reciprocal[kBlock];
  alignas(16) std::uint16_t scale[kBlock];
};

// Row by row.
QuantiseTable quantise_table(const std::array<std::uint8_t, kBlock>& steps);

// Quantised coefficients row by row, and which of them are not 0: bit i is place i of the zigzag
// sequence.
struct QuantisedBlock {
  alignas(16) std::int16_t values[kBlock];
  std::uint64_t present;
};

// The sign of c times (|c| + 2 t) / (4 t), cut; for the step 1 |c| / 4 is not rounded: callers rely
// on it.
void quantise(const std::int16_t* coefficients, const QuantiseTable& table, QuantisedBlock& out);

// Forward transform and quantisation of `count` blocks side by side. Variants take two at a time:
// they read 8 samples more than the blocks have, and there is a block more in `out`.
void forward_blocks(const std::int16_t* samples, std::ptrdiff_t stride, int count,
                    const QuantiseTable& table, QuantisedBlock* out);

}  // namespace tq::formats
