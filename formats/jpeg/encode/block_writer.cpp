// Huffman codes of quantised blocks, and their way to the stream.
#include <algorithm>
#include <bit>
#include <cstring>

#include "formats/jpeg/encode/encoder.h"

namespace tq::jpeg {
namespace {

// The code of every symbol.
struct EncodeTable {
  std::array<std::uint16_t, 256> code;
  std::array<std::uint8_t, 256> length;
};
constexpr EncodeTable encode_table(const HuffmanSpec& spec) {
  EncodeTable table{};
  int code = 0, index = 0;
  for (int length = 1; length <= 16; ++length, code <<= 1) {
    for (int i = 0; i < spec.counts[length - 1]; ++i, ++index, ++code) {
      table.code[spec.values[index]] = word(code);
      table.length[spec.values[index]] = byte(length);
    }
  }
  return table;
}

struct Code {
  std::uint32_t bits;
  int length;
};

// The code of a run of up to 15 zeros and the size of the value behind it, then the value's bits.
constexpr Code code_of(const EncodeTable& table, int run, std::int32_t value) {
  const std::uint32_t magnitude = value < 0 ? -value : value;
  const int size = std::bit_width(magnitude);
  const std::uint32_t bits = (value - (value < 0 ? 1 : 0)) & ((1 << size) - 1);
  const int symbol = run << 4 | size;
  return {std::uint32_t{table.code[symbol]} << size | bits, table.length[symbol] + size};
}

// The largest values that have codes; at quality 100 others can come up.
constexpr std::int32_t kMostDifference = 2047, kMostCoefficient = 1023;

constexpr int kZeroRun = 0xF0, kEndOfBlock = 0;  // symbols

// Values of at least -kSmall and below kSmall have code and bits in one entry: bits << 8 | length.
constexpr int kSmall = 32;
constexpr int small_index(int run, std::int32_t value) {
  return run * 2 * kSmall + value + kSmall;
}

}  // namespace

struct BlockCodes {
  EncodeTable dc, ac;
  std::array<std::uint32_t, 16 * 2 * kSmall> small;
};

namespace {

constexpr BlockCodes block_codes(const HuffmanSpec& dc, const HuffmanSpec& ac) {
  BlockCodes codes{encode_table(dc), encode_table(ac), {}};
  for (int run = 0; run < 16; ++run) {
    for (std::int32_t value = -kSmall; value < kSmall; ++value) {
      if (value == 0) continue;
      const Code code = code_of(codes.ac, run, value);
      codes.small[small_index(run, value)] = code.bits << 8 | code.length;
    }
  }
  return codes;
}

// Any value behind any run. By value, so that callers keep theirs in registers.
BitWriter put_value(BitWriter out, int run, std::int32_t value, const EncodeTable& ac) {
  for (; run > 15; run -= 16) out.put(ac.code[kZeroRun], ac.length[kZeroRun]);
  const Code code = code_of(ac, run, std::clamp(value, -kMostCoefficient, kMostCoefficient));
  out.put(code.bits, code.length);
  return out;
}

}  // namespace

constexpr BlockCodes kLuminanceCodes = block_codes(kDcLuminance, kAcLuminance);
constexpr BlockCodes kChrominanceCodes = block_codes(kDcChrominance, kAcChrominance);

void code_block(const QuantisedBlock& block, const BlockCodes& codes, std::int32_t& predictor,
                BitWriter& writer) {
  BitWriter out = writer;
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
    const std::int32_t value = block.values[kZigzag[place]];
    if (run > 15 || value < -kSmall || value >= kSmall) [[unlikely]] {
      out = put_value(out, run, value, codes.ac);
      continue;
    }
    const std::uint32_t entry = codes.small[small_index(run, value)];
    out.put(entry >> 8, byte(entry));
  }
  if (last != kBlock - 1) out.put(codes.ac.code[kEndOfBlock], codes.ac.length[kEndOfBlock]);
  writer = out;
}

Status CodeWriter::open(StreamHandle stream) {
  TQ_TRY(codes_.allocate(kCodeBytes));
  bits_.move_to(codes_.data());
  return out_.open(stream, kPiece);
}

Status CodeWriter::write_header(const EncodedFrame& frame) {
  put_header(out_, frame);
  return out_.flush();
}

Status CodeWriter::end_blocks() {
  constexpr std::uint8_t kStuffed[] = {0};
  const std::uint8_t* from = codes_.data();
  const std::uint8_t* const end = bits_.end();
  odd_ ^= (end - from) % 2 != 0;
  while (from != end) {
    const void* const ff = std::memchr(from, 0xFF, end - from);
    const std::uint8_t* const piece_end =
        ff == nullptr ? end : static_cast<const std::uint8_t*>(ff) + 1;
    out_.put(std::span(from, piece_end));
    if (ff != nullptr) out_.put(kStuffed);
    from = piece_end;
  }
  bits_.move_to(codes_.data());
  return out_.status();
}

Status CodeWriter::finish() {
  bits_.align();
  const bool odd = (bits_.end() - codes_.data()) % 2 != 0;
  if (odd != odd_) bits_.put(0, 8);
  TQ_TRY(end_blocks());
  TQ_TRY(out_.flush());
  out_.put_be16(0xFFD9);
  return out_.flush();
}

}  // namespace tq::jpeg
