// Writes PCX images: rows from the top, plane by plane, each plane of a row coded on its own.
#include "formats/pcx/pcx_encode.h"

#include <algorithm>

#include "formats/pcx/pcx.h"
#include "formats/pcx/pcx_header.h"
#include "formats/pcx/pcx_planes.h"
#include "formats/pcx/pcx_runs.h"

namespace tq::formats {
namespace {

constexpr std::int32_t kLargestSide = 0xFFFF;

class LineWriter {
 public:
  Status allocate(std::int32_t bytes_per_line) {
    TQ_TRY(line_.allocate(bytes_per_line + kPcxReadAhead));
    bytes_ = static_cast<std::size_t>(bytes_per_line);
    return coded_.allocate(2 * std::int64_t{bytes_per_line} + kPcxReadAhead);
  }
  std::span<std::uint8_t> line() const { return line_.pixels().first(bytes_); }
  Status write(const PcxOutput& output) {
    PcxBytes bytes{line_.data(), line_.data() + bytes_, coded_.data()};
    code_runs(bytes);
    return output.write({coded_.data(), bytes.to});
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

Status can_encode_pcx(const EncodeRequest& request) {
  const BitmapInfoHeader& header = request.image->header;
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
  TQ_TRY(can_encode_pcx(request));
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
