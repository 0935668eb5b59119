// Huffman codes of quantised blocks, and their way to the stream.
#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "formats/jpeg/encode/encoder.h"

namespace tq::jpeg {
namespace {

constexpr EncodeTable make_encode_table(const HuffmanSpec& spec) {
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

// Of the DC value, and moves on to it.
std::int32_t next_difference(const QuantisedBlock& block, std::int32_t& predictor) {
  const std::int32_t difference =
      std::clamp<std::int32_t>(block.values[0] - predictor, -kMostDifference, kMostDifference);
  predictor += difference;
  return difference;
}

constexpr int size_of(std::int32_t value) {
  return std::bit_width(static_cast<std::uint32_t>(value < 0 ? -value : value));
}

constexpr int small_index(int run, std::int32_t value) {
  return run * 2 * kSmall + value + kSmall;
}

constexpr BlockCodes make_block_codes(const HuffmanSpec& dc, const HuffmanSpec& ac) {
  BlockCodes codes{make_encode_table(dc), make_encode_table(ac), {}};
  for (int run = 0; run < 16; ++run) {
    for (std::int32_t value = -kSmall; value < kSmall; ++value) {
      if (value == 0) continue;
      const Code code = code_of(codes.ac, run, value);
      codes.small[small_index(run, value)] = code.bits << 8 | code.length;
    }
  }
  return codes;
}

// Calls visit(place) for each bit of a block's AC coefficients, in words that the processor has.
template <class Visit>
inline void each_place(std::uint64_t present, Visit&& visit) {
  using Word = std::size_t;
  constexpr int kBits = 8 * sizeof(Word);
  present &= ~std::uint64_t{1};
  for (int first = 0; first < kBlock; first += kBits) {
    for (auto word = static_cast<Word>(present >> first); word != 0; word &= word - 1) {
      visit(first + std::countr_zero(word));
    }
  }
}

// Any value behind any run. By value, so that callers keep theirs in registers.
BitWriter put_value(BitWriter out, int run, std::int32_t value, const EncodeTable& ac) {
  for (; run > 15; run -= 16) out.put(ac.code[kZeroRun], ac.length[kZeroRun]);
  const Code code = code_of(ac, run, std::clamp(value, -kMostCoefficient, kMostCoefficient));
  out.put(code.bits, code.length);
  return out;
}

}  // namespace

constexpr BlockCodes kLuminanceCodes = make_block_codes(kDcLuminance, kAcLuminance);
constexpr BlockCodes kChrominanceCodes = make_block_codes(kDcChrominance, kAcChrominance);

EncodeTable encode_table(const HuffmanSpec& spec) {
  return make_encode_table(spec);
}

BlockCodes block_codes(const HuffmanSpec& dc, const HuffmanSpec& ac) {
  return make_block_codes(dc, ac);
}

void code_block(const QuantisedBlock& block, const BlockCodes& codes, std::int32_t& predictor,
                BitWriter& writer) {
  BitWriter out = writer;
  const std::int32_t difference = next_difference(block, predictor);
  const Code first = code_of(codes.dc, 0, difference);
  out.put(first.bits, first.length);
  int last = 0;
  each_place(block.present, [&](int place) {
    const int run = place - last - 1;
    last = place;
    const std::int32_t value = block.values[kZigzag[place]];
    if (run > 15 || value < -kSmall || value >= kSmall) [[unlikely]] {
      out = put_value(out, run, value, codes.ac);
      return;
    }
    const std::uint32_t entry = codes.small[small_index(run, value)];
    out.put(entry >> 8, byte(entry));
  });
  if (last != kBlock - 1) out.put(codes.ac.code[kEndOfBlock], codes.ac.length[kEndOfBlock]);
  writer = out;
}

void count_block(const QuantisedBlock& block, std::int32_t& predictor, BlockCounts& counts) {
  ++counts.dc[size_of(next_difference(block, predictor))];
  int last = 0;
  each_place(block.present, [&](int place) {
    int run = place - last - 1;
    last = place;
    for (; run > 15; run -= 16) ++counts.ac[kZeroRun];
    const std::int32_t value = block.values[kZigzag[place]];
    ++counts.ac[run << 4 | size_of(std::clamp(value, -kMostCoefficient, kMostCoefficient))];
  });
  if (last != kBlock - 1) ++counts.ac[kEndOfBlock];
}

HuffmanSpec optimal_codes(SymbolCounts counts) {
  constexpr int kReserved = 256;  // gets the code of ones only, which no symbol may have
  constexpr int kLongest = 16;
  std::array<int, 257> length{}, next;
  next.fill(-1);
  counts[kReserved] = 1;
  for (;;) {
    // The two that are least often.
    int least = -1, second = -1;
    for (int i = 0; i <= kReserved; ++i) {
      if (counts[i] == 0) continue;
      if (least < 0 || counts[i] <= counts[least]) {
        second = std::exchange(least, i);
      } else if (second < 0 || counts[i] <= counts[second]) {
        second = i;
      }
    }
    if (second < 0) break;
    counts[least] += std::exchange(counts[second], 0);
    int end = least;
    for (;; end = next[end]) {
      ++length[end];
      if (next[end] < 0) break;
    }
    next[end] = second;
    for (int i = second; i >= 0; i = next[i]) ++length[i];
  }
  std::array<int, 258> codes{};  // by length
  for (const int bits : length) ++codes[bits];
  codes[0] = 0;
  // Codes that are too long: one of a pair takes the place of their parent, the other goes down with a
  // shorter code.
  for (int bits = kReserved; bits > kLongest; --bits) {
    while (codes[bits] > 0) {
      int shorter = bits - 2;
      while (codes[shorter] == 0) --shorter;
      codes[bits] -= 2;
      ++codes[bits - 1];
      codes[shorter + 1] += 2;
      --codes[shorter];
    }
  }
  int longest = kLongest;
  while (longest > 1 && codes[longest] == 0) --longest;
  --codes[longest];
  HuffmanSpec spec;
  for (int bits = 1; bits <= kLongest; ++bits) spec.counts[bits - 1] = byte(codes[bits]);
  int filled = 0;
  for (int bits = 1; bits <= kReserved; ++bits) {
    for (int symbol = 0; symbol < kReserved; ++symbol) {
      if (length[symbol] == bits) spec.values[filled++] = byte(symbol);
    }
  }
  return spec;
}

Status CodeWriter::open(StreamHandle stream) {
  TQ_TRY(codes_.allocate(kCodeBytes));
  bits_.move_to(codes_.data());
  return out_.open(stream, kPiece);
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

Status CodeWriter::end_scan() {
  bits_.put(0x7F, 7);  // those that are too many stay behind
  TQ_TRY(end_blocks());
  bits_ = {};
  bits_.move_to(codes_.data());
  return kOk;
}

Status CodeWriter::finish_scans() {
  out_.put_be16(0xFFD9);
  return out_.flush();
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
