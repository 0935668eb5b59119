// The code words of ITU-T T.4 and T.6, as an encoder and as a decoder wants them.
#pragma once

#include <array>
#include <cstdint>

namespace tq::formats {

struct CcittCode {
  std::uint16_t bits;
  std::uint8_t length;
};

inline constexpr int kLongestRunCode = 13;  // bits
inline constexpr int kLongestModeCode = 7;  // bits
inline constexpr int kLongestMakeUp = 2560;
inline constexpr int kRunCodes = 64 + kLongestMakeUp / 64;  // runs 0 .. 63, then 64, 128, ..

constexpr CcittCode kEol{1, 12};
constexpr CcittCode kPass{1, 4};
constexpr CcittCode kHorizontal{1, 3};
// By the distance a1 - b1 + 3.
constexpr std::array<CcittCode, 7> kVertical = {CcittCode{2, 7}, {2, 6}, {2, 3}, {1, 1},
                                                {3, 3},          {3, 6}, {3, 7}};

// By colour (white, black) and run.
extern const std::array<std::array<CcittCode, kRunCodes>, 2> kRunCode;

// A run looked up by the next 13 bits: its length in pixels, 64 and more being make-up codes, above
// its code's length in the low four bits. 0: no code begins like this.
using RunTable = std::array<std::uint16_t, 1 << kLongestRunCode>;
extern const std::array<RunTable, 2> kRunTable;

enum class CcittMode : std::uint8_t { none, pass, horizontal, vertical };

// A mode looked up by the next 7 bits. `none`: an extension, an end of block, or no code at all.
struct CcittModeEntry {
  CcittMode mode = CcittMode::none;
  std::uint8_t length = 0;
  std::int8_t distance = 0;
};
using ModeTable = std::array<CcittModeEntry, 1 << kLongestModeCode>;
extern const ModeTable kModeTable;

}  // namespace tq::formats
