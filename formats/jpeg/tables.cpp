// Fixed tables of the standard (ITU-T T.81 Annex K) and of this encoder.
#include "formats/jpeg/tables.h"

#include "formats/jpeg/typical_tables.h"

namespace tq::formats {

// clang-format off
constinit const std::array<HuffmanSpec, 2> kTypicalDc = {kDcLuminance, kDcChrominance};
constinit const std::array<HuffmanSpec, 2> kTypicalAc = {kAcLuminance, kAcChrominance};

constinit const std::array<std::uint8_t, kBlock> kBaseLuminance = {
    16, 11, 10, 16, 24, 40, 51, 61,
    12, 12, 14, 19, 26, 58, 60, 55,
    14, 13, 16, 24, 40, 57, 69, 56,
    14, 17, 22, 29, 51, 87, 80, 62,
    18, 22, 37, 56, 68, 109, 103, 77,
    24, 35, 55, 64, 81, 104, 113, 92,
    49, 64, 78, 87, 103, 121, 120, 101,
    72, 92, 95, 98, 112, 100, 103, 99};

// Not the chrominance table of Annex K; callers rely on these values.
constinit const std::array<std::uint8_t, kBlock> kBaseChrominance = {
    17, 18, 24, 46, 66, 99, 99, 99,
    18, 21, 26, 66, 99, 99, 99, 99,
    24, 26, 66, 99, 99, 99, 99, 99,
    47, 66, 99, 99, 99, 99, 99, 99,
    66, 99, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99};
// clang-format on

}  // namespace tq::formats
