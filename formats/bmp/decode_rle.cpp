// Run-length coded BMP rows. A line is written from left to right over the one before it: pixels
// that no code writes keep that line's values. Or they are 0, where lines begin blank.
#include <algorithm>
#include <cstring>
#include <utility>

#include "core/memory.h"
#include "core/numbers.h"
#include "formats/bmp/header.h"
#include "io/chunk_reader.h"

namespace tq::bmp {
namespace {

constexpr int kLongestRun = 255;  // pixels
constexpr int kStep = 16;         // bytes stored at a time

enum class Unwritten : bool { kept, blank };

// Stores whole steps, up to kStep - 1 bytes too many.
void fill_steps(std::uint8_t* to, int bytes, std::uint8_t value) {
  for (int i = 0; i < bytes; i += kStep) std::memset(to + i, value, kStep);
}

// Reads exactly `bytes` bytes, because the file may end behind them.
void copy_exactly(std::uint8_t* to, const std::uint8_t* from, int bytes) {
  if (bytes >= 16) {
    for (int i = 0; i + 16 <= bytes; i += 16) std::memcpy(to + i, from + i, 16);
    std::memcpy(to + bytes - 16, from + bytes - 16, 16);
  } else if (bytes >= 8) {
    std::memcpy(to, from, 8);
    std::memcpy(to + bytes - 8, from + bytes - 8, 8);
  } else if (bytes >= 4) {
    std::memcpy(to, from, 4);
    std::memcpy(to + bytes - 4, from + bytes - 4, 4);
  } else {
    for (int i = 0; i < bytes; ++i) to[i] = from[i];
  }
}

// The line being written and the one before it. To the left of x it is complete; to the right it
// may hold anything, as whatever codes skip is taken from the line before. Behind the row x stands
// still: nothing that is written there can be seen.
template <Unwritten kUnwritten, int kPixelBytes = 1>
class ByteLine {
 public:
  static constexpr bool kBlank = kUnwritten == Unwritten::blank;
  static constexpr int kValueBytes = kPixelBytes;  // in the code of a run

  ByteLine(std::uint8_t* line, std::uint8_t* before, std::ptrdiff_t row_bytes)
      : line_(line), before_(before), end_(row_bytes) {}

  static int run_bytes(int pixels) { return pixels * kPixelBytes; }

  void fill(int count, const std::uint8_t* value) {
    if constexpr (kPixelBytes == 1) {
      fill_steps(line_ + x_, count, *value);
    } else {
      for (int i = 0; i < run_bytes(count); ++i) line_[x_ + i] = value[i % kPixelBytes];
    }
    advance(count);
  }
  void copy(const std::uint8_t* from, int count) {
    copy_exactly(line_ + x_, from, run_bytes(count));
    advance(count);
  }
  void skip(int count) {
    const std::ptrdiff_t x = std::min(x_ + run_bytes(count), end_);
    keep(x);
    x_ = x;
  }
  bool begun() const { return x_ > 0; }
  bool reaches(std::int64_t pixels) const { return x_ >= pixels * kPixelBytes; }
  bool overran() const { return overran_; }  // a run went on behind the row
  std::span<const std::uint8_t> complete() {
    keep(end_);
    return std::span(line_, end_);
  }
  // The next line, from its left or from x.
  void start_next() {
    if constexpr (!kBlank) std::swap(line_, before_);
    x_ = 0;
  }
  void start_below() {
    if constexpr (kBlank) std::memset(line_, 0, static_cast<std::size_t>(x_));
  }

 private:
  void advance(int count) {
    x_ += run_bytes(count);
    if constexpr (kBlank) overran_ |= x_ > end_;
    x_ = std::min(x_, end_);
  }
  void keep(std::ptrdiff_t end) {
    if constexpr (kBlank) {
      std::memset(line_ + x_, 0, static_cast<std::size_t>(end - x_));
    } else {
      std::memcpy(line_ + x_, before_ + x_, end - x_);
    }
  }

  std::uint8_t* line_;
  std::uint8_t* before_;
  std::ptrdiff_t end_;  // bytes
  std::ptrdiff_t x_ = 0;
  bool overran_ = false;
};

// The same with two pixels per byte, the left one in the high bits.
template <Unwritten kUnwritten>
class NibbleLine {
 public:
  static constexpr bool kBlank = kUnwritten == Unwritten::blank;
  static constexpr int kValueBytes = 1;

  NibbleLine(std::uint8_t* line, std::uint8_t* before, std::ptrdiff_t row_bytes)
      : line_(line), before_(before), row_bytes_(row_bytes), end_(2 * std::int64_t{row_bytes}) {}

  static int run_bytes(int pixels) { return (pixels + 1) / 2; }

  // The value holds the two pixels that alternate.
  void fill(int count, const std::uint8_t* pair) {
    std::uint8_t value = *pair;
    std::uint8_t* to = line_ + x_ / 2;
    x_ += count;
    if ((x_ - count) % 2 != 0) {
      *to = join(*to, byte(value >> 4));
      value = byte(value << 4 | value >> 4);
      ++to;
      --count;
    }
    fill_steps(to, run_bytes(count), value);
    clamp();
  }
  void copy(const std::uint8_t* from, int count) {
    std::uint8_t* to = line_ + x_ / 2;
    const int bytes = run_bytes(count);
    if (x_ % 2 == 0) {
      copy_exactly(to, from, bytes);
    } else {
      for (int i = 0; i < bytes; ++i) {
        to[i] = join(to[i], byte(from[i] >> 4));
        to[i + 1] = byte(from[i] << 4);
      }
    }
    x_ += count;
    clamp();
  }
  void skip(int count) {
    const std::int64_t x = std::min(x_ + count, end_);
    keep(x);
    x_ = x;
  }
  std::span<const std::uint8_t> complete() {
    keep(end_);
    return std::span(line_, row_bytes_);
  }
  bool begun() const { return x_ > 0; }
  bool reaches(std::int64_t pixels) const { return x_ >= pixels; }
  bool overran() const { return overran_; }  // a run went on behind the row
  void start_next() {
    if constexpr (!kBlank) std::swap(line_, before_);
    x_ = 0;
  }
  void start_below() {
    if constexpr (kBlank) std::memset(line_, 0, static_cast<std::size_t>((x_ + 1) / 2));
  }

 private:
  void clamp() {
    if constexpr (kBlank) overran_ |= x_ > end_;
    x_ = std::min(x_, end_);
  }
  static std::uint8_t join(std::uint8_t left, std::uint8_t right) {
    return byte((left & 0xF0) | (right & 0x0F));
  }
  void keep(std::int64_t end) {
    std::int64_t first = x_ / 2;
    if (x_ % 2 != 0) {
      line_[first] = join(line_[first], kBlank ? std::uint8_t{0} : before_[first]);
      ++first;
    }
    const std::int64_t last = (end + 1) / 2;
    if (first >= last) return;
    if constexpr (kBlank) {
      std::fill(line_ + first, line_ + last, std::uint8_t{0});
    } else {
      std::copy(before_ + first, before_ + last, line_ + first);
    }
  }

  std::uint8_t* line_;
  std::uint8_t* before_;
  std::ptrdiff_t row_bytes_;
  std::int64_t end_;  // pixels
  std::int64_t x_ = 0;
  bool overran_ = false;
};

enum Escape : std::uint8_t { kEndOfLine = 0, kEndOfBitmap = 1, kDelta = 2 };

// The size of the code that starts with these two bytes. The parity of a literal run's own bytes
// decides on the pad byte.
template <class Line>
int code_bytes(const std::uint8_t* code) {
  if (code[0] != 0) return 1 + Line::kValueBytes;
  if (code[1] < kDelta) return 2;
  if (code[1] == kDelta) return 4;
  const int run = Line::run_bytes(code[1]);
  return 2 + run + run % 2;
}

// Rows of a file one after the other.
class Delivery {
 public:
  Delivery(const RowSink& sink, const File& file)
      : sink_(sink),
        left_(file.image.header.biHeight),
        y_(file.top_down ? 0 : left_ - 1),
        step_(file.top_down ? 1 : -1) {}

  bool wants_more() const { return left_ > 0; }
  // The end of the bitmap: what is missing is blank.
  void end() {
    left_ = 0;
    sink_.rest_is_blank();
  }
  void damaged(StatusCode reason) const { sink_.damaged(reason); }
  Status row(std::span<const std::uint8_t> bytes) {
    --left_;
    const std::int32_t y = y_;
    y_ += step_;
    return sink_.row(bytes, y);
  }

 private:
  const RowSink& sink_;
  std::int32_t left_, y_, step_;
};

template <class Line>
Status deliver(Line& line, Delivery& rows) {
  if constexpr (Line::kBlank) {
    if (line.overran()) rows.damaged(StatusCode::bad_image);
  }
  return rows.row(line.complete());
}

// A file of a few bytes may claim a thousand million rows.
template <class Line>
Status deliver_blank_rows(Line& line, Delivery& rows) {
  for (std::uint64_t blank = 0; rows.wants_more() && blank < kMostMissing;) {
    line.start_next();
    const std::span<const std::uint8_t> row = line.complete();
    blank += std::max(row.size(), kRowCost);
    TQ_TRY(rows.row(row));
  }
  return kOk;
}

// The complete codes of `bytes`. `used` says how many bytes were taken.
template <class Line>
Status decode_codes(std::span<const std::uint8_t> bytes, Line& decoded, Delivery& rows,
                    std::size_t& used) {
  Line line = decoded;  // in registers: the bytes stored could be its members
  const std::uint8_t* code = bytes.data();
  std::ptrdiff_t left = std::ssize(bytes);
  while (left >= 2 && rows.wants_more()) {
    if (code[0] != 0) {
      if (Line::kValueBytes > 1 && left < 1 + Line::kValueBytes) break;
      line.fill(code[0], code + 1);
      code += 1 + Line::kValueBytes;
      left -= 1 + Line::kValueBytes;
      continue;
    }
    const int size = code_bytes<Line>(code);
    if (left < size) break;
    switch (code[1]) {
      case kEndOfLine:
        TQ_TRY(deliver(line, rows));
        line.start_next();
        break;
      case kEndOfBitmap:
        TQ_TRY(deliver(line, rows));
        if constexpr (Line::kBlank) TQ_TRY(deliver_blank_rows(line, rows));
        rows.end();
        break;
      case kDelta:
        for (int below = code[3]; below > 0 && rows.wants_more(); --below) {
          TQ_TRY(deliver(line, rows));
          line.start_below();
        }
        line.skip(code[2]);
        break;
      default:
        line.copy(code + 2, code[1]);
        break;
    }
    code += size;
    left -= size;
  }
  decoded = line;
  used = bytes.size() - left;
  return kOk;
}

template <class Line>
Status decode_rows(const DecodeRequest& request, const File& file) {
  // Runs may start at the end of the row and are stored in whole steps.
  constexpr int kSlack = kLongestRun * Line::kValueBytes + kStep;
  // Bytes: two, and a literal run padded to an even count.
  constexpr std::int64_t kLongestCode = 2 + kLongestRun * Line::kValueBytes + 1;
  const BitmapInfoHeader& header = file.image.header;
  const std::int64_t bytes_per_row = row_bytes(header.biWidth, header.biBitCount);
  RowBuffer<std::uint8_t> first, second;
  TQ_TRY(first.allocate(bytes_per_row + kSlack));
  TQ_TRY(second.allocate(bytes_per_row + kSlack));
  const std::int64_t chunk_bytes = std::max(read_chunk_bytes(bytes_per_row), kLongestCode);
  ChunkReader input;
  TQ_TRY(open_pixels(request, file, chunk_bytes, input));

  // Memory that has to be copied may end behind the last code.
  const bool by_code = reads_memory(request.stream) && memory_rest(request.stream).empty();
  const std::size_t look_ahead = by_code ? 2 : static_cast<std::size_t>(chunk_bytes);
  Line line(first.data(), second.data(), std::ssize(first.pixels()) - kSlack);
  Delivery rows(request.sink, file);
  while (rows.wants_more()) {
    auto bytes = input.peek(look_ahead);
    if (bytes.size() < 2) break;
    bytes = input.peek(std::max<std::size_t>(look_ahead, code_bytes<Line>(bytes.data())));
    std::size_t used = 0;
    TQ_TRY(decode_codes(bytes, line, rows, used));
    if (used == 0) break;  // cut off within a code
    input.skip(used);
  }
  // A last line without its end; where unwritten pixels are known to be 0 it can be seen.
  if (!Line::kBlank || !rows.wants_more() || !line.begun()) return kOk;
  if (!line.reaches(header.biWidth)) rows.damaged(StatusCode::read_failed);
  return deliver(line, rows);
}

}  // namespace

Status decode_rle_rows(const DecodeRequest& request, const File& file) {
  using enum Unwritten;
  if (file.rows == Rows::rle24) return decode_rows<ByteLine<blank, 3>>(request, file);
  if (file.rows == Rows::rle4) {
    return file.blank_lines ? decode_rows<NibbleLine<blank>>(request, file)
                            : decode_rows<NibbleLine<kept>>(request, file);
  }
  return file.blank_lines ? decode_rows<ByteLine<blank>>(request, file)
                          : decode_rows<ByteLine<kept>>(request, file);
}

}  // namespace tq::bmp
