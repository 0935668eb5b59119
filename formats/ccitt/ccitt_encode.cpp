// From transitions to code words.
#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "core/run_storage.h"
#include "formats/ccitt/bit_source.h"
#include "formats/ccitt/ccitt.h"
#include "formats/ccitt/ccitt_codes.h"

namespace tq::formats {
namespace {

constexpr int kListWords = 16;  // of a supplier's list, beside the transitions
constexpr int kClosers = 4;     // entries behind the last transition that are the width
constexpr std::uint64_t kOutBytes = 64 * 1024;

// Puts codes at the end of a buffer; at most 56 bits at a time. Eight bytes behind the last one are
// written as well.
class BitWriter {
 public:
  // Where the next complete byte goes. Bits that are not in one yet come along.
  void move_to(std::uint8_t* at) { next_ = at; }

  void put(std::uint64_t code, int length) {
    bits_ = bits_ << length | code;
    count_ += length;
    const std::uint64_t ahead = __builtin_bswap64(bits_ << (64 - count_));
    std::memcpy(next_, &ahead, sizeof ahead);
    next_ += count_ >> 3;
    count_ &= 7;
  }
  void put(CcittCode code) { put(code.bits, code.length); }
  // Zeros, until `bits` bits are missing to a whole byte.
  void align(int bits = 0) {
    if (const int missing = (16 - bits - count_) & 7; missing != 0) put(0, missing);
  }
  std::uint8_t* end() const { return next_; }  // of complete bytes

 private:
  std::uint8_t* next_ = nullptr;
  std::uint64_t bits_ = 0;
  int count_ = 0;  // of the low bits of bits_ that are not in a complete byte
};

void put_run(BitWriter& out, int colour, std::int32_t run) {
  const auto& codes = kRunCode[colour];
  while (run >= kLongestMakeUp + 64) {
    out.put(codes[63 + kLongestMakeUp / 64]);
    run -= kLongestMakeUp;
  }
  if (run >= 64) out.put(codes[63 + run / 64]);
  out.put(codes[run % 64]);
}

// The most bytes that a row takes: per transition at most two runs' make-up and terminating codes.
std::int64_t most_bytes(std::int64_t count, std::int64_t before, std::int64_t width) {
  return 8 * (count + 4) + (before + 4) + width / 1024 + 64;
}

void put_runs(BitWriter& out, const std::int32_t* row, std::int32_t width) {
  std::int32_t x = 0;
  for (int i = 0; x < width; ++i) {
    put_run(out, i & 1, row[i] - x);
    x = row[i];
  }
}

// A row by its differences from `reference`; the standard's names. Both end with the width.
void put_modes(BitWriter& caller_out, const std::int32_t* row, const std::int32_t* reference,
               std::int32_t width) {
  BitWriter out = caller_out;
  const std::int32_t* a1 = row;
  const std::int32_t* b1 = reference;
  std::int32_t a0 = 0;
  while (true) {
    int same = 0;
    while (*a1 == *b1 && *a1 < width && same < 32) {
      ++a1;
      ++b1;
      ++same;
    }
    if (same != 0) {
      out.put((std::uint64_t{1} << same) - 1, same);
      a0 = a1[-1];
      continue;
    }
    const std::int32_t distance = *a1 - *b1;
    if (distance > 1 && b1[1] < *a1) {
      out.put(kPass);
      a0 = b1[1];
      b1 += 2;
      continue;
    }
    if (distance >= -3 && distance <= 3) {
      out.put(kVertical[distance + 3]);
      a0 = *a1++;
      b1 += distance < 0 && b1 != reference ? -1 : 1;
    } else {
      const int colour = static_cast<int>(a1 - row) & 1;
      out.put(kHorizontal);
      put_run(out, colour, a1[0] - a0);
      put_run(out, 1 - colour, a1[1] - a1[0]);
      a0 = a1[1];
      a1 += 2;
    }
    if (a0 >= width) break;
    while (*b1 <= a0) b1 += 2;
  }
  caller_out = out;
}

// Keeps the transitions that ascend, from the front of a list that a supplier has filled: a pair at
// one place is a run of length 0. Returns how many, and closes the row.
std::int32_t tidy_list(std::int32_t* row, std::int32_t given, std::int32_t width) {
  std::int32_t count = 0;
  for (std::int32_t i = 0; i < given; ++i) {
    const std::int32_t position = row[i];
    const std::int32_t last = count > 0 ? row[count - 1] : 0;
    if (position >= width || position < last) break;
    if (count > 0 && position == last)
      --count;
    else
      row[count++] = position;
  }
  std::fill_n(row + count, kClosers, width);
  return count;
}

bool is_group3(const CcittCoding& coding) {
  return coding.scheme == CcittScheme::group3_1d || coding.scheme == CcittScheme::group3_2d;
}

bool ends_at_byte(const CcittCoding& coding) {
  if (coding.scheme == CcittScheme::huffman) return true;
  return coding.byte_aligned && !(is_group3(coding) && coding.end_of_line);
}

// The end-of-line code, at the end of a byte if those are aligned.
void put_eol(const CcittCoding& coding, BitWriter& out) {
  if (coding.byte_aligned) out.align(kEol.length);
  out.put(kEol);
}

// What stands before row i; whether the row stands for itself.
bool start_row(const CcittCoding& coding, std::int32_t i, BitWriter& out) {
  const bool tagged = coding.scheme == CcittScheme::group3_2d;
  const bool by_runs =
      tagged ? i % std::max(coding.k, 1) == 0 : coding.scheme != CcittScheme::group4;
  if (is_group3(coding) && coding.end_of_line) put_eol(coding, out);
  if (tagged) out.put(by_runs ? 1 : 0, 1);
  return by_runs;
}

void put_end_of_block(const CcittCoding& coding, BitWriter& out) {
  if (coding.scheme == CcittScheme::huffman) return;
  const int eols = coding.scheme == CcittScheme::group4 ? 2 : 6;
  for (int i = 0; i < eols; ++i) {
    out.put(kEol);
    if (coding.scheme == CcittScheme::group3_2d) out.put(1, 1);
  }
}

}  // namespace

Status CcittEncoder::open(const CcittCoding& coding, std::int32_t width) {
  coding_ = coding;
  width_ = width;
  gets_bits_ = false;
  TQ_TRY(row_.allocate(std::int64_t{width} + kListWords));
  TQ_TRY(reference_.allocate(std::int64_t{width} + kListWords));
  return out_.allocate(kOutBytes);
}

// The supplier's next row, as transitions behind the first word of `row_`.
Status CcittEncoder::take_row(const RowSupplier& rows, std::int32_t y, std::int32_t& count) {
  auto* bytes = reinterpret_cast<std::uint8_t*>(row_.data());
  const auto bits_size = static_cast<std::size_t>(row_bytes(width_, 1));
  const std::size_t whole = row_.size() * sizeof(std::int32_t);
  // A supplier fills all that it is given, so once it has chosen bits it is asked for no more.
  const std::span<std::uint8_t> room{bytes, gets_bits_ ? bits_size : whole};
  const Status got = rows.row(room, y);
  TQ_TRY(got);
  gets_bits_ = got.raw() == 0;
  if (!gets_bits_) {
    const auto words = static_cast<std::int32_t>(
        std::min<std::size_t>(static_cast<std::size_t>(got.raw()), room.size()) / 4);
    count = tidy_list(row_.data() + 1, words - 1, width_);
    return kOk;
  }
  if (from_bits_.size() == 0) TQ_TRY(from_bits_.allocate(std::int64_t{width_} + kListWords));
  count = bits_to_transitions({bytes, bits_size}, width_, from_bits_.pixels().subspan(1));
  std::fill_n(from_bits_.data() + 1 + count, kClosers, width_);
  std::swap(row_, from_bits_);
  return kOk;
}

Status CcittEncoder::flush(StreamHandle stream) {
  const std::span<std::uint8_t> complete = out_.bytes().first(used_);
  if (coding_.lsb_first) {
    for (std::uint8_t& byte : complete) byte = static_cast<std::uint8_t>(reverse_each_byte(byte));
  }
  if (write(stream, complete) != static_cast<std::int32_t>(used_)) return StatusCode::write_failed;
  written_ += static_cast<std::int64_t>(used_);
  used_ = 0;
  return kOk;
}

Status CcittEncoder::make_room(StreamHandle stream, std::int64_t bytes) {
  const auto needed = static_cast<std::uint64_t>(bytes);
  if (out_.size() - used_ >= needed) return kOk;
  TQ_TRY(flush(stream));
  return out_.size() >= needed ? kOk : out_.allocate(needed);
}

Status CcittEncoder::encode(StreamHandle stream, const RowSupplier& rows, CcittStrip strip) {
  used_ = 0;
  written_ = 0;
  std::int32_t before = 0;  // transitions in the row before; the first refers to a white one
  std::fill_n(reference_.data() + 1, kClosers, width_);
  BitWriter out;
  for (std::int32_t i = 0; i < strip.rows; ++i) {
    std::int32_t count = 0;
    TQ_TRY(take_row(rows, strip.first_row + i, count));
    TQ_TRY(make_room(stream, most_bytes(count, before, width_)));
    out.move_to(out_.data() + used_);
    const bool by_runs = start_row(coding_, i, out);
    if (by_runs)
      put_runs(out, row_.data() + 1, width_);
    else
      put_modes(out, row_.data() + 1, reference_.data() + 1, width_);
    if (ends_at_byte(coding_)) out.align();
    used_ = static_cast<std::size_t>(out.end() - out_.data());
    std::swap(row_, reference_);
    before = count;
  }
  TQ_TRY(make_room(stream, most_bytes(0, 0, 0)));
  out.move_to(out_.data() + used_);
  if (coding_.end_of_block) put_end_of_block(coding_, out);
  out.align();
  used_ = static_cast<std::size_t>(out.end() - out_.data());
  TQ_TRY(flush(stream));
  return written_ <= INT32_MAX ? Status::from_raw(static_cast<std::int32_t>(written_))
                               : StatusCode::write_failed;
}

}  // namespace tq::formats
