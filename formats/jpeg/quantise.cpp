#include "formats/jpeg/quantise.h"

#include <bit>

#include "formats/jpeg/transform.h"

namespace tq::formats {

QuantiseTable quantise_table(const std::array<std::uint8_t, kBlock>& steps) {
  QuantiseTable table;
  for (std::size_t i = 0; i < kBlock; ++i) {
    const std::uint32_t step = steps[i];
    const std::uint32_t divisor = 4 * step;
    // The error of the rounded-up reciprocal stays below one as divisor <= 2 << shift.
    auto shift = static_cast<std::uint32_t>(std::bit_width(divisor)) - 1;
    if (std::has_single_bit(divisor)) --shift;  // else the reciprocal would be 65536
    table.bias[i] = static_cast<std::uint16_t>(step == 1 ? 0 : 2 * step);
    table.reciprocal[i] =
        static_cast<std::uint16_t>(((std::uint32_t{1} << (16 + shift)) + divisor - 1) / divisor);
    table.scale[i] = static_cast<std::uint16_t>(1u << (16 - shift));
  }
  return table;
}

void quantise(const std::int16_t* coefficients, const QuantiseTable& table, QuantisedBlock& out) {
  out.present = 0;
  for (std::size_t i = 0; i < kBlock; ++i) {
    const std::size_t at = kZigzag[i];
    const std::int32_t value = coefficients[at];
    const auto amount = static_cast<std::uint32_t>(value < 0 ? -value : value);
    const std::uint32_t quotient =
        ((amount + table.bias[at]) * table.reciprocal[at] >> 16) * table.scale[at] >> 16;
    const auto result = static_cast<std::int32_t>(quotient);
    out.values[at] = static_cast<std::int16_t>(value < 0 ? -result : result);
    out.present |= static_cast<std::uint64_t>(quotient != 0) << i;
  }
}

void forward_blocks(const std::int16_t* samples, std::ptrdiff_t stride, int count,
                    const QuantiseTable& table, QuantisedBlock* out) {
  for (int i = 0; i < count; ++i) {
    std::int16_t coefficients[kBlock];
    forward_transform(samples + 8 * i, stride, coefficients);
    quantise(coefficients, table, out[i]);
  }
}

}  // namespace tq::formats
