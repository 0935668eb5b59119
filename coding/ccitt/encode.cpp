// From transitions to code words.
#include <algorithm>
#include <utility>

#include "coding/ccitt/ccitt.h"
#include "coding/ccitt/codes.h"
#include "core/run_storage.h"

namespace tq::ccitt {
namespace {

constexpr int kTerminators = 4;  // entries behind the last transition that are the width

void put(BitWriter& out, Code code) {
  out.put(code.bits, code.length);
}

void put_run(BitWriter& out, int colour, std::int32_t run) {
  const auto& codes = kRunCode[colour];
  while (run >= kLongestMakeUp + 64) {
    put(out, codes[63 + kLongestMakeUp / 64]);
    run -= kLongestMakeUp;
  }
  if (run >= 64) put(out, codes[63 + run / 64]);
  put(out, codes[run % 64]);
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
      put(out, kPass);
      a0 = b1[1];
      b1 += 2;
      continue;
    }
    if (distance >= -3 && distance <= 3) {
      put(out, kVertical[distance + 3]);
      a0 = *a1++;
      b1 += distance < 0 && b1 != reference ? -1 : 1;
    } else {
      const int colour = (a1 - row) & 1;
      put(out, kHorizontal);
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

bool is_group3(const Coding& coding) {
  return coding.scheme == Scheme::group3_1d || coding.scheme == Scheme::group3_2d;
}

bool ends_at_byte(const Coding& coding) {
  if (coding.scheme == Scheme::huffman) return true;
  return coding.byte_aligned && !(is_group3(coding) && coding.end_of_line);
}

}  // namespace

Status Encoder::open(const Coding& coding, std::int32_t width) {
  coding_ = coding;
  width_ = width;
  // Bits are turned into transitions several at a time.
  constexpr int kMore = 16;
  static_assert(kMore >= kTerminators);
  TQ_TRY(row_.allocate(std::int64_t{width} + kMore));
  return reference_.allocate(std::int64_t{width} + kMore);
}

void Encoder::start() {
  writer_ = {};
  rows_ = before_ = 0;
  std::fill_n(reference_.data(), kTerminators, width_);
}

void Encoder::take_transitions(std::span<const std::int32_t> transitions) {
  std::int32_t* const row = row_.data();
  std::int32_t count = 0;
  for (const std::int32_t position : transitions) {
    const std::int32_t last = count > 0 ? row[count - 1] : 0;
    if (position >= width_ || position < last) break;
    if (count > 0 && position == last)
      --count;
    else
      row[count++] = position;
  }
  close_row(count);
}

void Encoder::take_bits(std::span<const std::uint8_t> bits) {
  close_row(bits_to_transitions(bits, width_, row_.pixels()));
}

void Encoder::close_row(std::int32_t count) {
  count_ = count;
  std::fill_n(row_.data() + count, kTerminators, width_);
}

// Per transition at most two runs' make-up and terminating codes.
std::int64_t Encoder::most_bytes() const {
  return 8 * (std::int64_t{count_} + 4) + (std::int64_t{before_} + 4) + width_ / 1024 + 64;
}

// What stands before a row; whether the row stands for itself.
bool Encoder::start_row() {
  const bool tagged = coding_.scheme == Scheme::group3_2d;
  const bool by_runs =
      tagged ? rows_ % std::max(coding_.k, 1) == 0 : coding_.scheme != Scheme::group4;
  if (is_group3(coding_) && coding_.end_of_line) {
    if (coding_.byte_aligned) writer_.align(kEol.length);
    put(writer_, kEol);
  }
  if (tagged) writer_.put(by_runs ? 1 : 0, 1);
  return by_runs;
}

std::uint8_t* Encoder::put_row(std::uint8_t* out) {
  writer_.move_to(out);
  if (start_row())
    put_runs(writer_, row_.data(), width_);
  else
    put_modes(writer_, row_.data(), reference_.data(), width_);
  if (ends_at_byte(coding_)) writer_.align();
  std::swap(row_, reference_);
  before_ = count_;
  ++rows_;
  return writer_.end();
}

std::uint8_t* Encoder::finish(std::uint8_t* out) {
  writer_.move_to(out);
  if (coding_.end_of_block && coding_.scheme != Scheme::huffman) {
    const int eols = is_group3(coding_) ? kEolsAtEnd : 2;
    for (int i = 0; i < eols; ++i) {
      put(writer_, kEol);
      if (coding_.scheme == Scheme::group3_2d) writer_.put(1, 1);
    }
  }
  writer_.align();
  return writer_.end();
}

}  // namespace tq::ccitt
