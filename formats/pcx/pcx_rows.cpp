// Runs to bytes: literal bytes eight at a time up to the next run.
#include "formats/pcx/pcx_rows.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "core/settings.h"
#include "io/endian.h"

namespace tq::formats {
namespace {

constexpr int kRun = 0xC0;  // both top bits: a run
constexpr int kLongest = 0x3F;
constexpr int kStep = 8;
constexpr int kRoom =
    kLongest + 2 * kStep;  // behind two lines: one run, and what is copied too far

std::uint64_t load_word(const std::uint8_t* p) {
  return load_le32(p) | std::uint64_t{load_le32(p + 4)} << 32;
}

// The top bit of every byte that begins a run.
std::uint64_t runs_in(std::uint64_t word) {
  return word & (word << 1) & 0x8080808080808080;
}

void put_run(std::uint8_t* to, std::uint8_t value, int count) {
  const std::uint64_t word = value * std::uint64_t{0x0101010101010101};
  for (int i = 0; i < count; i += kStep) std::memcpy(to + i, &word, kStep);
}

struct Cursor {
  const std::uint8_t* from;
  const std::uint8_t* end;
  std::uint8_t* to;
  std::uint8_t* full;  // the line is complete here

  bool byte_by_byte() {  // false when the input does not suffice
    if (from == end) return false;
    const std::uint8_t code = *from;
    if (code < kRun) {
      *to++ = code;
      ++from;
      return true;
    }
    if (end - from < 2) return false;
    put_run(to, from[1], code & kLongest);
    to += code & kLongest;
    from += 2;
    return true;
  }

  // While there is room to look ahead on both sides.
  void fast() {
    while (end - from >= kStep + 2 && full - to >= kStep) {
      const std::uint64_t word = load_word(from);
      const std::uint64_t runs = runs_in(word);
      std::memcpy(to, from, kStep);
      if (runs == 0) {
        from += kStep;
        to += kStep;
        continue;
      }
      const int literals = std::countr_zero(runs) / 8;
      from += literals;
      to += literals;
      put_run(to, from[1], from[0] & kLongest);
      to += from[0] & kLongest;
      from += 2;
    }
  }
};

std::int64_t chunk_bytes(std::int64_t line_bytes) {
  const std::int64_t budget = settings().read_budget;
  return line_bytes > budget ? 4 * line_bytes : budget;
}

}  // namespace

Status PcxLines::open(StreamHandle stream, const PcxHeader& file) {
  line_bytes_ = file.line_bytes();
  TQ_TRY(buffer_.allocate(2 * line_bytes_ + kRoom));
  return input_.open(stream, chunk_bytes(line_bytes_));
}

Status PcxLines::gather() {
  Cursor cursor{nullptr, nullptr, buffer_.data() + held_, buffer_.data() + line_bytes_};
  while (cursor.to < cursor.full) {
    const std::span<const std::uint8_t> input = input_.peek_all(2);
    if (input.empty() && !started_) return StatusCode::read_failed;
    started_ = true;
    cursor.from = input.data();
    cursor.end = input.data() + input.size();
    cursor.fast();
    while (cursor.to < cursor.full && cursor.byte_by_byte()) {
    }
    const auto taken = static_cast<std::size_t>(cursor.from - input.data());
    input_.skip(taken);
    held_ = cursor.to - buffer_.data();
    if (held_ > 2 * line_bytes_) return StatusCode::bad_image;
    ended_ = taken == 0;
    if (ended_) break;
  }
  return kOk;
}

Status PcxLines::next(std::span<const std::uint8_t>& line, bool& more) {
  if (lent_) {
    held_ = std::max<std::ptrdiff_t>(held_ - line_bytes_, 0);
    std::copy_n(buffer_.data() + line_bytes_, held_, buffer_.data());
    lent_ = false;
  }
  if (held_ < line_bytes_ && !ended_) TQ_TRY(gather());
  more = held_ > 0;
  if (held_ < line_bytes_)
    std::fill(buffer_.data() + held_, buffer_.data() + line_bytes_, std::uint8_t{0});
  lent_ = more;
  line = buffer_.pixels().first(static_cast<std::size_t>(line_bytes_));
  return kOk;
}

Status skip_pcx_rows(StreamHandle stream, const PcxHeader& file) {
  PcxLines lines;
  TQ_TRY(lines.open(stream, file));
  for (std::int32_t y = 0; y < file.height; ++y) {
    std::span<const std::uint8_t> line;
    bool more = false;
    TQ_TRY(lines.next(line, more));
    if (!more) return StatusCode::bad_image;
  }
  return kOk;
}

}  // namespace tq::formats
