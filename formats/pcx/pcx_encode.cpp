// Writes PCX images: rows from the top, plane by plane, each plane of a row coded on its own.
#include "formats/pcx/pcx_encode.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "formats/pcx/pcx.h"
#include "formats/pcx/pcx_header.h"
#include "formats/pcx/pcx_planes.h"
#include "io/endian.h"

namespace tq::formats {
namespace {

constexpr int kRun = 0xC0;
constexpr int kLongest = 63;
constexpr int kStep = 8;
constexpr std::int32_t kLargestSide = 0xFFFF;

std::uint64_t load_word(const std::uint8_t* p) {
  return load_le32(p) | std::uint64_t{load_le32(p + 4)} << 32;
}

// The lowest top bit that is set belongs to the first byte that is 0; higher ones may be wrong.
std::uint64_t first_zero_byte(std::uint64_t word) {
  return (word - 0x0101010101010101) & ~word & 0x8080808080808080;
}

// The same for the first byte that cannot stand for itself: it equals the next one, or both of its
// top bits are set.
std::uint64_t first_code(const std::uint8_t* p) {
  const std::uint64_t word = load_word(p);
  return first_zero_byte(word ^ load_word(p + 1)) | (word & (word << 1) & 0x8080808080808080);
}

// How often the first byte repeats, up to `most`.
std::ptrdiff_t run_length(const std::uint8_t* from, std::ptrdiff_t most) {
  const std::uint64_t value = *from * std::uint64_t{0x0101010101010101};
  for (std::ptrdiff_t i = 0; i < most; i += kStep) {
    const std::uint64_t other = load_word(from + i) ^ value;
    if (other != 0) return std::min<std::ptrdiff_t>(i + std::countr_zero(other) / 8, most);
  }
  return most;
}

// Codes `count` bytes of a line; how many bytes that makes. Reads a step beyond the line, and
// writes one beyond the code.
std::ptrdiff_t code_line(const std::uint8_t* from, std::ptrdiff_t count, std::uint8_t* to) {
  const std::uint8_t* const end = from + count;
  const std::uint8_t* const begin = to;
  while (from < end) {
    const std::uint64_t code = first_code(from);
    std::memcpy(to, from, kStep);
    const std::ptrdiff_t literals =
        std::min<std::ptrdiff_t>(code == 0 ? kStep : std::countr_zero(code) / 8, end - from);
    from += literals;
    to += literals;
    if (code == 0 || from == end) continue;
    const std::ptrdiff_t run = run_length(from, std::min<std::ptrdiff_t>(end - from, kLongest));
    if (run > 1 || *from >= kRun) *to++ = static_cast<std::uint8_t>(kRun | run);
    *to++ = *from;
    from += run;
  }
  return to - begin;
}

class LineWriter {
 public:
  Status allocate(std::int32_t bytes_per_line) {
    TQ_TRY(line_.allocate(bytes_per_line + 2 * kStep));
    bytes_ = static_cast<std::size_t>(bytes_per_line);
    return coded_.allocate(2 * std::int64_t{bytes_per_line} + 2 * kStep);
  }
  std::span<std::uint8_t> line() const { return line_.pixels().first(bytes_); }
  Status write(const PcxOutput& output) {
    const std::ptrdiff_t coded =
        code_line(line_.data(), static_cast<std::ptrdiff_t>(bytes_), coded_.data());
    return output.write(coded_.pixels().first(static_cast<std::size_t>(coded)));
  }

 private:
  RowBuffer<std::uint8_t> line_, coded_;
  std::size_t bytes_ = 0;
};

Status write_row(const PcxOutput& output, std::span<const std::uint8_t> row, int bits,
                 LineWriter& writer) {
  if (bits == 4) {
    for (int plane = 0; plane < 4; ++plane) {
      split_bit_plane(row, plane, writer.line());
      TQ_TRY(writer.write(output));
    }
    return kOk;
  }
  if (bits == 24) {
    for (const std::size_t channel : {2, 1, 0}) {  // red first
      pick_channel(row, channel, writer.line());
      TQ_TRY(writer.write(output));
    }
    return kOk;
  }
  std::copy_n(row.begin(), writer.line().size(), writer.line().begin());
  return writer.write(output);
}

Status write_palette(const PcxOutput& output, const HeaderBlock& image) {
  std::array<std::uint8_t, 1> marker{kPcxPaletteMarker};
  TQ_TRY(output.write(marker));
  std::array<std::uint8_t, kPcxPaletteBytes> bytes;
  for (int i = 0; i < 256; ++i) {
    bytes[3 * i] = image.palette[i].red;
    bytes[3 * i + 1] = image.palette[i].green;
    bytes[3 * i + 2] = image.palette[i].blue;
  }
  return output.write(bytes);
}

}  // namespace

Status PcxOutput::write(std::span<std::uint8_t> bytes) const {
  const std::int32_t put = file != nullptr ? file->write(bytes) : tq::write(stream, bytes);
  return put == static_cast<std::int32_t>(bytes.size()) ? StatusCode::ok : StatusCode::write_failed;
}

Status check_pcx_image(const BitmapInfoHeader& header) {
  const int bits = header.biBitCount;
  if (bits != 1 && bits != 4 && bits != 8 && bits != 24) return StatusCode::wrong_depth;
  if (header.biWidth > kLargestSide || header.biHeight > kLargestSide) {
    return StatusCode::unsupported;
  }
  return kOk;
}

Status encode_pcx_to(const PcxOutput& output, const EncodeRequest& request) {
  const BitmapInfoHeader& header = request.image->header;
  const int bits = header.biBitCount;
  TQ_TRY(check_pcx_image(header));
  std::array<std::uint8_t, kPcxHeaderBytes> file_header = pcx_header_for(*request.image);
  TQ_TRY(output.write(file_header));

  RowBuffer<std::uint8_t> row;
  TQ_TRY(row.allocate(row_bytes(header.biWidth, bits)));
  LineWriter writer;
  TQ_TRY(writer.allocate(bits >= 8 ? header.biWidth : (header.biWidth + 7) / 8));
  for (std::int32_t y = 0; y < header.biHeight; ++y) {
    TQ_TRY(request.rows.row(row.pixels(), y));
    TQ_TRY(write_row(output, row.pixels(), bits, writer));
  }
  return bits == 8 ? write_palette(output, *request.image) : kOk;
}

Status encode_pcx(const EncodeRequest& request) {
  return encode_pcx_to({.stream = request.stream}, request);
}

}  // namespace tq::formats
