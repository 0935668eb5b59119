// Run-length coded BMP rows. A line is written from left to right over the one before it: pixels
// that no code writes keep that line's values.
#include <algorithm>
#include <cstring>
#include <utility>

#include "core/memory.h"
#include "core/numbers.h"
#include "formats/bmp/header.h"
#include "io/chunk_reader.h"

namespace tq::bmp {
namespace {

constexpr int kLongestRun = 255;            // pixels
constexpr std::int64_t kLongestCode = 258;  // bytes: two, and a literal run padded to an even count
constexpr int kStep = 16;                   // bytes stored at a time

// Runs may start at the end of the row and are stored in whole steps.
constexpr int kSlack = kLongestRun + kStep;

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
class Rle8Line {
 public:
  Rle8Line(std::uint8_t* line, std::uint8_t* before, std::ptrdiff_t row_bytes)
      : line_(line), before_(before), end_(row_bytes) {}

  static int run_bytes(int pixels) { return pixels; }

  void fill(int count, std::uint8_t value) {
    fill_steps(line_ + x_, count, value);
    x_ = std::min(x_ + count, end_);
  }
  void copy(const std::uint8_t* from, int count) {
    copy_exactly(line_ + x_, from, count);
    x_ = std::min(x_ + count, end_);
  }
  void skip(int count) {
    const std::ptrdiff_t x = std::min(x_ + count, end_);
    keep(x);
    x_ = x;
  }
  std::span<const std::uint8_t> complete() {
    keep(end_);
    return std::span(line_, end_);
  }
  void start_next() {
    std::swap(line_, before_);
    x_ = 0;
  }

 private:
  void keep(std::ptrdiff_t end) { std::memcpy(line_ + x_, before_ + x_, end - x_); }

  std::uint8_t* line_;
  std::uint8_t* before_;
  std::ptrdiff_t end_;  // bytes, which are pixels
  std::ptrdiff_t x_ = 0;
};

// The same with two pixels per byte, the left one in the high bits.
class Rle4Line {
 public:
  Rle4Line(std::uint8_t* line, std::uint8_t* before, std::ptrdiff_t row_bytes)
      : line_(line), before_(before), row_bytes_(row_bytes), end_(2 * std::int64_t{row_bytes}) {}

  static int run_bytes(int pixels) { return (pixels + 1) / 2; }

  // `value` holds the two pixels that alternate.
  void fill(int count, std::uint8_t value) {
    std::uint8_t* to = line_ + x_ / 2;
    x_ += count;
    if ((x_ - count) % 2 != 0) {
      *to = join(*to, byte(value >> 4));
      value = byte(value << 4 | value >> 4);
      ++to;
      --count;
    }
    fill_steps(to, run_bytes(count), value);
    x_ = std::min(x_, end_);
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
    x_ = std::min(x_ + count, end_);
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
  void start_next() {
    std::swap(line_, before_);
    x_ = 0;
  }

 private:
  static std::uint8_t join(std::uint8_t left, std::uint8_t right) {
    return byte((left & 0xF0) | (right & 0x0F));
  }
  void keep(std::int64_t end) {
    std::int64_t first = x_ / 2;
    if (x_ % 2 != 0) {
      line_[first] = join(line_[first], before_[first]);
      ++first;
    }
    const std::int64_t last = (end + 1) / 2;
    if (first < last) std::copy(before_ + first, before_ + last, line_ + first);
  }

  std::uint8_t* line_;
  std::uint8_t* before_;
  std::ptrdiff_t row_bytes_;
  std::int64_t end_;  // pixels
  std::int64_t x_ = 0;
};

enum Escape : std::uint8_t { kEndOfLine = 0, kEndOfBitmap = 1, kDelta = 2 };

// The size of the code that starts with these two bytes. The parity of a literal run's own bytes
// decides on the pad byte.
template <class Line>
int code_bytes(const std::uint8_t* code) {
  if (code[0] != 0 || code[1] < kDelta) return 2;
  if (code[1] == kDelta) return 4;
  const int run = Line::run_bytes(code[1]);
  return 2 + run + run % 2;
}

// The complete codes of `bytes`. `y` is the row being written, below 0 after the last; `used` says
// how many bytes were taken.
template <class Line>
Status decode_codes(std::span<const std::uint8_t> bytes, const RowSink& sink, Line& decoded,
                    std::int32_t& y, std::size_t& used) {
  Line line = decoded;  // in registers: the bytes stored could be its members
  const std::uint8_t* code = bytes.data();
  std::ptrdiff_t left = std::ssize(bytes);
  while (left >= 2 && y >= 0) {
    if (code[0] != 0) {
      line.fill(code[0], code[1]);
      code += 2;
      left -= 2;
      continue;
    }
    const int size = code_bytes<Line>(code);
    if (left < size) break;
    switch (code[1]) {
      case kEndOfLine:
        TQ_TRY(sink.row(line.complete(), y--));
        line.start_next();
        break;
      case kEndOfBitmap:
        TQ_TRY(sink.row(line.complete(), y));
        sink.rest_is_blank();
        y = -1;
        break;
      case kDelta:
        for (int rows = code[3]; rows > 0 && y >= 0; --rows) {
          TQ_TRY(sink.row(line.complete(), y--));
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
  std::int32_t y = header.biHeight - 1;
  while (y >= 0) {
    auto bytes = input.peek(look_ahead);
    if (bytes.size() < 2) break;
    bytes = input.peek(std::max<std::size_t>(look_ahead, code_bytes<Line>(bytes.data())));
    std::size_t used = 0;
    TQ_TRY(decode_codes(bytes, request.sink, line, y, used));
    if (used == 0) break;  // cut off within a code; the line it belongs to is dropped
    input.skip(used);
  }
  return kOk;
}

}  // namespace

Status decode_rle_rows(const DecodeRequest& request, const File& file) {
  return file.rows == Rows::rle4 ? decode_rows<Rle4Line>(request, file)
                                 : decode_rows<Rle8Line>(request, file);
}

}  // namespace tq::bmp
