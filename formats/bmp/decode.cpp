// Uncompressed BMP rows, delivered from where they lie unless a row has to be changed; rows with
// their length in front; and the choice of the row reader.
#include <algorithm>
#include <limits>

#include "core/memory.h"
#include "formats/bmp/bmp.h"
#include "formats/bmp/bmp_header.h"
#include "formats/bmp/bmp_rows.h"
#include "formats/jpeg/jpeg.h"
#include "io/chunk_reader.h"
#include "io/endian.h"

namespace tq::formats {
namespace {

using Bytes = std::span<const std::uint8_t>;

// A file that is cut off gives all its rows, but one of a few bytes may claim a thousand million of
// them: what it lacks beyond this is not delivered.
constexpr std::uint64_t kMostMissing = std::uint64_t{64} << 20;  // bytes
constexpr std::size_t kRowCost = 64;                             // what a short row counts

// The rows of a file one after the other; what a cut-off file lacks is 0.
class StoredRows {
 public:
  StoredRows() = default;
  StoredRows(const StoredRows&) = delete;
  StoredRows& operator=(const StoredRows&) = delete;
  ~StoredRows() { input_.skip(lent_); }

  Status open(const DecodeRequest& request, const BmpFile& file) {
    row_bytes_ = static_cast<std::size_t>(stored_row_bytes(file));
    return open_pixels(request, file, read_chunk_bytes(stored_row_bytes(file)), input_);
  }

  // Valid until the next call.
  Status next(Bytes& row) {
    input_.skip(lent_);
    lent_ = 0;
    if (ended_) {  // not asked again: a file may claim any number of rows
      std::fill_n(padded_.data(), there_, std::uint8_t{0});
      there_ = 0;
    } else {
      row = input_.peek(row_bytes_);
      lent_ = there_ = row.size();
      if (there_ == row_bytes_) return kOk;
      ended_ = true;
      TQ_TRY(padded_.allocate(static_cast<std::int64_t>(row_bytes_)));
      std::copy(row.begin(), row.end(), padded_.data());
    }
    row = padded_.pixels();
    return kOk;
  }

  // Bytes of the row that were not in the file.
  std::size_t missing() const { return row_bytes_ - there_; }

 private:
  ChunkReader input_;
  RowBuffer<std::uint8_t> padded_;  // taken when the file turns out to be cut off
  std::size_t row_bytes_ = 0;
  std::size_t lent_ = 0;   // bytes of the input that the caller still looks at
  std::size_t there_ = 0;  // bytes of the row that were in the file
  bool ended_ = false;
};

// A row that is changed before it is delivered.
using ChangedRow = RowBuffer<std::uint8_t>;

struct Rgb555 {
  // The low three bits stay 0, so full intensity is 248 and not 255.
  static constexpr int blue(int pixel) { return pixel << 3 & 0xF8; }
  static constexpr int green(int pixel) { return pixel >> 2 & 0xF8; }
  static constexpr int red(int pixel) { return pixel >> 7 & 0xF8; }
};
struct Rgb565 {
  static constexpr int blue(int pixel) { return pixel << 3 & 0xF8; }
  static constexpr int green(int pixel) { return pixel >> 3 & 0xFC; }
  static constexpr int red(int pixel) { return pixel >> 8 & 0xF8; }
};

template <class Pixel>
void expand(Bytes stored, std::int32_t width, ChangedRow& row) {
  const std::uint8_t* from = stored.data();
  std::uint8_t* to = row.data();
  for (std::int32_t x = 0; x < width; ++x, from += 2, to += 3) {
    const int pixel = load_le16(from);
    to[0] = static_cast<std::uint8_t>(Pixel::blue(pixel));
    to[1] = static_cast<std::uint8_t>(Pixel::green(pixel));
    to[2] = static_cast<std::uint8_t>(Pixel::red(pixel));
  }
}

void invert(Bytes stored, ChangedRow& row) {
  std::transform(stored.begin(), stored.end(), row.data(),
                 [](std::uint8_t byte) { return static_cast<std::uint8_t>(~byte); });
}

// The row as it is delivered: itself, or what it is changed to in `row`.
Bytes delivered(const BmpFile& file, Bytes stored, ChangedRow& row) {
  const std::int32_t width = file.image.header.biWidth;
  if (file.rows == BmpRows::rgb555) {
    expand<Rgb555>(stored, width, row);
  } else if (file.rows == BmpRows::rgb565) {
    expand<Rgb565>(stored, width, row);
  } else if (file.inverted) {
    invert(stored, row);
  } else {
    return stored;
  }
  return row.pixels();
}

Status decode_plain_rows(const DecodeRequest& request, const BmpFile& file) {
  const BitmapInfoHeader& header = file.image.header;
  StoredRows rows;
  TQ_TRY(rows.open(request, file));
  ChangedRow changed;
  if (file.rows != BmpRows::as_delivered || file.inverted) {
    TQ_TRY(changed.allocate(row_bytes(header.biWidth, header.biBitCount)));
  }
  std::uint64_t missing = 0;
  for (std::int32_t i = 0; i < header.biHeight; ++i) {
    Bytes row;
    TQ_TRY(rows.next(row));
    if (rows.missing() != 0) missing += std::max(rows.missing(), kRowCost);
    if (missing > kMostMissing) return kOk;
    const std::int32_t y = file.top_down ? i : header.biHeight - 1 - i;
    TQ_TRY(request.sink.row(delivered(file, row, changed), y));
  }
  return kOk;
}

// Rows from the top, each behind a 16-bit count of bytes that includes itself and is delivered with
// the row. A file that is cut off, or a count that cannot be, ends the rows.
Status decode_length_prefixed_rows(const DecodeRequest& request, const BmpFile& file) {
  const BitmapInfoHeader& header = file.image.header;
  const std::int64_t longest = 4 * std::int64_t{header.biWidth} + 200;
  RowBuffer<std::uint8_t> row;
  TQ_TRY(row.allocate(longest + 2));
  ChunkReader input;
  TQ_TRY(open_pixels(request, file, read_chunk_bytes(longest), input));

  for (std::int32_t y = 0; y < header.biHeight; ++y) {
    if (input.read(row.pixels().first(2)) < 2) return kOk;
    std::size_t length = load_le16(row.data());
    if (length < 2 || static_cast<std::int64_t>(length) > longest) return kOk;
    if (input.read(row.pixels().subspan(2, length - 2)) < length - 2) return kOk;
    if (header.biBitCount == 1 &&
        static_cast<std::int64_t>(length) == row_bytes(header.biWidth, 1)) {
      // A run list of this length would be taken for a row of bits.
      store_le16(row.data() + length, static_cast<std::uint16_t>(header.biWidth + 2));
      length += 2;
      store_le16(row.data(), static_cast<std::uint16_t>(length));
    }
    TQ_TRY(request.sink.row(row.pixels().first(length), y));
  }
  return kOk;
}

Status decode_rows(const DecodeRequest& request, const BmpFile& file) {
  switch (file.rows) {
    case BmpRows::rle4:
    case BmpRows::rle8:
      return decode_rle_rows(request, file);
    case BmpRows::length_prefixed:
      return decode_length_prefixed_rows(request, file);
    default:
      return decode_plain_rows(request, file);
  }
}

// A JPEG file in place of the pixels: size, depth, palette and resolution are its own.
Status decode_embedded_jpeg(const DecodeRequest& request, const BmpFile& file) {
  if (file.pixels_at < 0 || file.pixels_at > std::numeric_limits<std::int32_t>::max()) {
    return StatusCode::read_failed;
  }
  return jpeg::decode_jpeg({.stream = request.stream,
                            .offset = static_cast<std::int32_t>(file.pixels_at),
                            .sink = request.sink});
}

}  // namespace

Status open_pixels(const DecodeRequest& request, const BmpFile& file, std::int64_t chunk_bytes,
                   ChunkReader& input) {
  if (!seek_to(request.stream, file.pixels_at)) return kOk;
  return input.open(request.stream, chunk_bytes);
}

Status decode_bmp(const DecodeRequest& request) {
  BmpFile file;
  TQ_TRY(read_bmp_header(request, file));
  if (file.rows == BmpRows::jpeg) return decode_embedded_jpeg(request, file);
  TQ_TRY(request.sink.header(file.image));
  TQ_TRY(decode_rows(request, file));
  return kOk;
}

}  // namespace tq::formats
