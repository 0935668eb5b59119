// Kernels for some instruction sets of x86. Those that return a number have done that many pixels,
// a multiple of 4 and, where bits come out, of 8; the rest is the caller's.
#pragma once

#include <cstdint>

namespace tq::process::x86 {

std::int32_t keys_24(const std::uint8_t* bgr, std::uint16_t* keys, std::int32_t width);
std::int32_t at_least(const std::uint8_t* grey, const std::uint8_t* least, std::uint8_t* bits,
                      std::int32_t width);
// See stucki.h; the shares have two more at either end.
std::int32_t add_stucki_rows(const std::uint8_t* levels, const std::int8_t* above,
                             const std::int8_t* second_above, std::int16_t* values,
                             std::int32_t width);

}  // namespace tq::process::x86
