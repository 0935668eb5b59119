// Code words as the standards print them, and the tables made of them while compiling.
#include "formats/ccitt/ccitt_codes.h"

#include <string_view>

namespace tq::formats {
namespace {

// clang-format off
// ITU-T T.4, tables 2 and 3a: runs of 0 .. 63 pixels, then of 64, 128 .. 1728.
constexpr std::array<std::string_view, 91> kWhite = {
    "00110101", "000111", "0111", "1000", "1011", "1100", "1110", "1111",
    "10011", "10100", "00111", "01000", "001000", "000011", "110100", "110101",
    "101010", "101011", "0100111", "0001100", "0001000", "0010111", "0000011", "0000100",
    "0101000", "0101011", "0010011", "0100100", "0011000", "00000010", "00000011", "00011010",
    "00011011", "00010010", "00010011", "00010100", "00010101", "00010110", "00010111", "00101000",
    "00101001", "00101010", "00101011", "00101100", "00101101", "00000100", "00000101", "00001010",
    "00001011", "01010010", "01010011", "01010100", "01010101", "00100100", "00100101", "01011000",
    "01011001", "01011010", "01011011", "01001010", "01001011", "00110010", "00110011", "00110100",
    "11011", "10010", "010111", "0110111", "00110110", "00110111", "01100100", "01100101",
    "01101000", "01100111", "011001100", "011001101", "011010010", "011010011", "011010100", "011010101",
    "011010110", "011010111", "011011000", "011011001", "011011010", "011011011", "010011000", "010011001",
    "010011010", "011000", "010011011",
};
constexpr std::array<std::string_view, 91> kBlack = {
    "0000110111", "010", "11", "10", "011", "0011", "0010",
    "00011", "000101", "000100", "0000100", "0000101", "0000111", "00000100",
    "00000111", "000011000", "0000010111", "0000011000", "0000001000", "00001100111", "00001101000",
    "00001101100", "00000110111", "00000101000", "00000010111", "00000011000", "000011001010", "000011001011",
    "000011001100", "000011001101", "000001101000", "000001101001", "000001101010", "000001101011", "000011010010",
    "000011010011", "000011010100", "000011010101", "000011010110", "000011010111", "000001101100", "000001101101",
    "000011011010", "000011011011", "000001010100", "000001010101", "000001010110", "000001010111", "000001100100",
    "000001100101", "000001010010", "000001010011", "000000100100", "000000110111", "000000111000", "000000100111",
    "000000101000", "000001011000", "000001011001", "000000101011", "000000101100", "000001011010", "000001100110",
    "000001100111", "0000001111", "000011001000", "000011001001", "000001011011", "000000110011", "000000110100",
    "000000110101", "0000001101100", "0000001101101", "0000001001010", "0000001001011", "0000001001100", "0000001001101",
    "0000001110010", "0000001110011", "0000001110100", "0000001110101", "0000001110110", "0000001110111", "0000001010010",
    "0000001010011", "0000001010100", "0000001010101", "0000001011010", "0000001011011", "0000001100100", "0000001100101",
};
// ITU-T T.4, table 3b: 1792 .. 2560 pixels, either colour.
constexpr std::array<std::string_view, 13> kLong = {
    "00000001000", "00000001100", "00000001101", "000000010010", "000000010011", "000000010100", "000000010101",
    "000000010110", "000000010111", "000000011100", "000000011101", "000000011110", "000000011111",
};
// clang-format on

constexpr CcittCode parse(std::string_view word) {
  CcittCode code{0, static_cast<std::uint8_t>(word.size())};
  for (const char bit : word) code.bits = static_cast<std::uint16_t>(code.bits << 1 | (bit - '0'));
  return code;
}

constexpr std::array<CcittCode, kRunCodes> run_codes(
    const std::array<std::string_view, 91>& words) {
  std::array<CcittCode, kRunCodes> codes{};
  for (std::size_t i = 0; i < words.size(); ++i) codes[i] = parse(words[i]);
  for (std::size_t i = 0; i < kLong.size(); ++i) codes[words.size() + i] = parse(kLong[i]);
  return codes;
}

constexpr int run_of(int index) {
  return index < 64 ? index : (index - 63) * 64;
}

constexpr RunTable run_table(const std::array<CcittCode, kRunCodes>& codes) {
  RunTable table{};
  for (int i = 0; i < kRunCodes; ++i) {
    const CcittCode code = codes[static_cast<std::size_t>(i)];
    const int open_bits = kLongestRunCode - code.length;
    for (int rest = 0; rest < 1 << open_bits; ++rest) {
      table[static_cast<std::size_t>(code.bits << open_bits | rest)] =
          static_cast<std::uint16_t>(run_of(i) << 4 | code.length);
    }
  }
  return table;
}

constexpr void enter(ModeTable& table, CcittCode code, CcittMode mode, int distance) {
  const int open_bits = kLongestModeCode - code.length;
  for (int rest = 0; rest < 1 << open_bits; ++rest) {
    table[static_cast<std::size_t>(code.bits << open_bits | rest)] = {
        mode, code.length, static_cast<std::int8_t>(distance)};
  }
}

constexpr ModeTable mode_table() {
  ModeTable table{};
  enter(table, kPass, CcittMode::pass, 0);
  enter(table, kHorizontal, CcittMode::horizontal, 0);
  for (int distance = -3; distance <= 3; ++distance) {
    enter(table, kVertical[distance + 3], CcittMode::vertical, distance);
  }
  return table;
}

}  // namespace

constexpr std::array<std::array<CcittCode, kRunCodes>, 2> kRunCode = {run_codes(kWhite),
                                                                      run_codes(kBlack)};
constexpr std::array<RunTable, 2> kRunTable = {run_table(kRunCode[0]), run_table(kRunCode[1])};
constexpr ModeTable kModeTable = mode_table();

}  // namespace tq::formats
