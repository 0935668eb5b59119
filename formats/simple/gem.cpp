// GEM images of one plane: rows in runs, patterns and bytes, a row maybe for several.
#include <array>

#include "formats/rows.h"
#include "formats/simple/simple.h"
#include "io/chunk_reader.h"
#include "io/endian.h"
#include "pixels/colours.h"

namespace tq::simple {
namespace {

constexpr int kHeaderBytes = 16;  // of the part that all have
constexpr int kLongestPattern = 8;
constexpr int kMicrometresPerInch = 25400;

std::int32_t dpi_of(int pixel_micrometres) {
  if (pixel_micrometres == 0) return 0;
  return (kMicrometresPerInch + pixel_micrometres / 2) / pixel_micrometres;
}

class CodedRows {
 public:
  CodedRows(ChunkReader& input, int pattern_bytes)
      : input_(&input), pattern_bytes_(pattern_bytes) {}

  // The bytes that there were; `line` still holds the row before when that stands for this one.
  std::ptrdiff_t read(pixels::Row line) {
    if (repeats_ > 0) {
      --repeats_;
      return std::ssize(line);
    }
    std::ptrdiff_t filled = 0;
    while (filled < std::ssize(line)) {
      const std::ptrdiff_t more = put_code(line.subspan(filled));
      if (more < 0) break;
      filled += more;
    }
    return filled;
  }

 private:
  static constexpr int kSolid = 0x80, kLiteral = 0x80, kRepeatedRow = 0xFF;

  // How much a code puts, cut at the row's end; -1 where the data end.
  std::ptrdiff_t put_code(pixels::Row to) {
    const int code = input_->next();
    if (code < 0) return -1;
    if (code == kLiteral) {
      const int count = input_->next();
      return count < 0 ? -1 : put_literal(to, count);
    }
    if (code == 0) return put_pattern(to);
    const std::ptrdiff_t count = std::min<std::ptrdiff_t>(code & 0x7F, std::ssize(to));
    std::fill_n(to.begin(), count, byte((code & kSolid) != 0 ? 0xFF : 0));
    return count;
  }

  std::ptrdiff_t put_literal(pixels::Row to, std::ptrdiff_t count) {
    const std::ptrdiff_t fitting = std::min(count, std::ssize(to));
    const auto there = static_cast<std::ptrdiff_t>(input_->read(to.first(fitting)));
    for (std::ptrdiff_t i = fitting; i < count; ++i) (void)input_->next();
    return there == 0 && fitting > 0 ? -1 : there;
  }

  std::ptrdiff_t put_pattern(pixels::Row to) {
    const int times = input_->next();
    if (times < 0) return -1;
    if (times == 0 && input_->peek(1).empty()) return -1;
    if (times == 0 && input_->peek(1)[0] == kRepeatedRow) {
      (void)input_->next();
      repeats_ = std::max(input_->next() - 1, 0);
      return 0;
    }
    std::array<std::uint8_t, kLongestPattern> pattern{};
    if (input_->read(std::span(pattern).first(pattern_bytes_)) == 0) return -1;
    const std::ptrdiff_t count =
        std::min<std::ptrdiff_t>(std::ptrdiff_t{times} * pattern_bytes_, std::ssize(to));
    for (std::ptrdiff_t i = 0; i < count; ++i) to[i] = pattern[i % pattern_bytes_];
    return count;
  }

  ChunkReader* input_;
  int pattern_bytes_;
  int repeats_ = 0;  // rows that are like the one before
};

}  // namespace

Status decode_gem(const formats::DecodeRequest& request) {
  TQ_TRY(request.seek_to_start());
  const std::int64_t start = request.start();
  std::array<std::uint8_t, kHeaderBytes> bytes;
  if (read_fully(request.stream, bytes) < kHeaderBytes) return StatusCode::read_failed;
  const auto field = [&](int i) { return load_be16(&bytes[2 * i]); };
  const int header_bytes = 2 * field(1), planes = field(2), pattern_bytes = field(3);
  if (header_bytes < kHeaderBytes || planes == 0) return StatusCode::bad_image;
  if (pattern_bytes < 1 || pattern_bytes > kLongestPattern) return StatusCode::bad_image;
  if (planes > 1) return StatusCode::unsupported;  // their colours are not in the file

  HeaderBlock image = dib_header(field(6), field(7), 1);
  image.header.biXPelsPerMeter = dpi_of(field(4));
  image.header.biYPelsPerMeter = dpi_of(field(5));
  image.palette = pixels::grey_levels(1);
  TQ_TRY(seek_to(request.stream, start + header_bytes));
  TQ_TRY(request.sink.header(image));
  const pixels::RowLayout* const layout = pixels::find_layout(pixels::Layout::bits_1_black, 1);
  const formats::StoredRows rows{layout, stored_bytes(*layout, image.header.biWidth)};
  ChunkReader input;
  TQ_TRY(input.open(request.stream, read_chunk_bytes(rows.line_bytes)));
  CodedRows coded(input, pattern_bytes);
  return formats::deliver_rows(rows, image.header, request.sink,
                               [&](pixels::Row line) { return coded.read(line); });
}

}  // namespace tq::simple
