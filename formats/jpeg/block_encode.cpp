#include "formats/jpeg/block_encode.h"

#include <algorithm>
#include <bit>

#include "formats/jpeg/huffman.h"
#include "formats/jpeg/typical_tables.h"

namespace tq::formats {
namespace {

struct Code {
  std::uint32_t bits;
  int length;
};

// The code of a run of up to 15 zeros and the size of the value behind it, then the value's bits.
constexpr Code code_of(const EncodeTable& table, int run, std::int32_t value) {
  const auto amount = static_cast<std::uint32_t>(value < 0 ? -value : value);
  const int size = std::bit_width(amount);
  const auto bits = static_cast<std::uint32_t>(value - (value < 0 ? 1 : 0)) & ((1u << size) - 1);
  const auto symbol = static_cast<std::size_t>(run << 4 | size);
  return {static_cast<std::uint32_t>(table.code[symbol]) << size | bits,
          table.length[symbol] + size};
}

// The largest values that have codes; at quality 100 others can come up.
constexpr std::int32_t kMostDifference = 2047, kMostCoefficient = 1023;

constexpr int kZeroRun = 0xF0, kEndOfBlock = 0;  // symbols

// Values of at least -kSmall and below kSmall have code and bits in one entry: bits << 8 | length.
constexpr int kSmall = 32;
constexpr std::size_t small_index(int run, std::int32_t value) {
  const int index = run * 2 * kSmall + value + kSmall;
  return static_cast<std::size_t>(index);
}

}  // namespace

struct BlockCodes {
  EncodeTable dc, ac;
  std::array<std::uint32_t, std::size_t{16} * 2 * kSmall> small;
};

namespace {

constexpr BlockCodes block_codes(const HuffmanSpec& dc, const HuffmanSpec& ac) {
  BlockCodes codes{encode_table(dc), encode_table(ac), {}};
  for (int run = 0; run < 16; ++run) {
    for (std::int32_t value = -kSmall; value < kSmall; ++value) {
      if (value == 0) continue;
      const Code code = code_of(codes.ac, run, value);
      codes.small[small_index(run, value)] =
          code.bits << 8 | static_cast<std::uint32_t>(code.length);
    }
  }
  return codes;
}

// Any value behind any run. By value, so that callers keep theirs in registers.
BitSink put_value(BitSink out, int run, std::int32_t value, const EncodeTable& ac) {
  for (; run > 15; run -= 16) out.put(ac.code[kZeroRun], ac.length[kZeroRun]);
  const Code code = code_of(ac, run, std::clamp(value, -kMostCoefficient, kMostCoefficient));
  out.put(code.bits, code.length);
  return out;
}

}  // namespace

constexpr BlockCodes kLuminanceCodes = block_codes(kDcLuminance, kAcLuminance);
constexpr BlockCodes kChrominanceCodes = block_codes(kDcChrominance, kAcChrominance);

void code_block(const QuantisedBlock& block, const BlockCodes& codes, std::int32_t& predictor,
                BitSink& sink) {
  BitSink out = sink;
  const std::int32_t difference =
      std::clamp<std::int32_t>(block.values[0] - predictor, -kMostDifference, kMostDifference);
  predictor += difference;
  const Code first = code_of(codes.dc, 0, difference);
  out.put(first.bits, first.length);
  int last = 0;
  for (std::uint64_t present = block.present & ~std::uint64_t{1}; present != 0;
       present &= present - 1) {
    const int place = std::countr_zero(present);
    const int run = place - last - 1;
    last = place;
    const std::int32_t value = block.values[kZigzag[static_cast<std::size_t>(place)]];
    if (run > 15 || value < -kSmall || value >= kSmall) [[unlikely]] {
      out = put_value(out, run, value, codes.ac);
      continue;
    }
    const std::uint32_t entry = codes.small[small_index(run, value)];
    out.put(entry >> 8, static_cast<int>(entry & 0xFF));
  }
  if (last != kBlock - 1) out.put(codes.ac.code[kEndOfBlock], codes.ac.length[kEndOfBlock]);
  sink = out;
}

}  // namespace tq::formats
