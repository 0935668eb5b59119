// Uncompressed BMP rows, delivered from where they lie unless a row has to be changed; rows with
// their length in front; and the choice of the row reader.
#include <algorithm>

#include "core/memory.h"
#include "formats/bmp/bmp.h"
#include "formats/bmp/header.h"
#include "formats/jpeg/jpeg.h"
#include "io/chunk_reader.h"
#include "io/endian.h"
#include "pixels/rows.h"

namespace tq::bmp {
namespace {

using pixels::Bytes;

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

  Status open(const DecodeRequest& request, const File& file) {
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
      TQ_TRY(padded_.allocate(row_bytes_));
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

// null: rows lie in the file as they are delivered.
const pixels::RowLayout* layout_of(const File& file) {
  if (file.rows == Rows::rgb555) return pixels::find_layout(pixels::Layout::rgb555, 24);
  if (file.rows == Rows::rgb565) return pixels::find_layout(pixels::Layout::rgb565, 24);
  return nullptr;
}

Status decode_plain_rows(const DecodeRequest& request, const File& file) {
  const BitmapInfoHeader& header = file.image.header;
  StoredRows rows;
  TQ_TRY(rows.open(request, file));
  const pixels::RowLayout* const layout = layout_of(file);
  RowBuffer<std::uint8_t> changed;
  if (layout != nullptr || file.inverted) {
    TQ_TRY(changed.allocate(row_bytes(header.biWidth, header.biBitCount)));
  }
  std::uint64_t missing = 0;
  for (std::int32_t i = 0; i < header.biHeight; ++i) {
    Bytes row;
    TQ_TRY(rows.next(row));
    if (rows.missing() != 0) request.sink.damaged(StatusCode::read_failed);
    if (rows.missing() != 0) missing += std::max(rows.missing(), kRowCost);
    if (missing > kMostMissing) return kOk;
    const std::int32_t y = file.top_down ? i : header.biHeight - 1 - i;
    if (layout != nullptr) pixels::unpack(*layout, row, header.biWidth, changed.pixels());
    if (file.inverted) pixels::invert(row, changed.pixels());
    if (changed.size() != 0) row = changed.pixels();
    TQ_TRY(request.sink.row(row, y));
  }
  return kOk;
}

// Rows from the top, each behind a 16-bit count of bytes that includes itself and is delivered with
// the row. A file that is cut off, or a count that cannot be, ends the rows.
Status decode_length_prefixed_rows(const DecodeRequest& request, const File& file) {
  const BitmapInfoHeader& header = file.image.header;
  const std::int64_t longest = 4 * std::int64_t{header.biWidth} + 200;
  RowBuffer<std::uint8_t> row;
  TQ_TRY(row.allocate(longest + 2));
  ChunkReader input;
  TQ_TRY(open_pixels(request, file, read_chunk_bytes(longest), input));

  for (std::int32_t y = 0; y < header.biHeight; ++y) {
    if (input.read(row.pixels().first(2)) < 2) return kOk;
    int length = load_le16(row.data());
    if (length < 2 || length > longest) {
      request.sink.damaged(StatusCode::bad_image);
      return kOk;
    }
    const std::span<std::uint8_t> rest = row.pixels().subspan(2, length - 2);
    if (input.read(rest) < rest.size()) return kOk;
    if (header.biBitCount == 1 && length == row_bytes(header.biWidth, 1)) {
      // A run list of this length would be taken for a row of bits.
      store_le16(row.data() + length, word(header.biWidth + 2));
      length += 2;
      store_le16(row.data(), word(length));
    }
    TQ_TRY(request.sink.row(row.pixels().first(length), y));
  }
  return kOk;
}

Status decode_rows(const DecodeRequest& request, const File& file) {
  switch (file.rows) {
    case Rows::rle4:
    case Rows::rle8:
      return decode_rle_rows(request, file);
    case Rows::length_prefixed:
      return decode_length_prefixed_rows(request, file);
    default:
      return decode_plain_rows(request, file);
  }
}

// A JPEG file in place of the pixels: size, depth, palette and resolution are its own.
Status decode_embedded_jpeg(const DecodeRequest& request, const File& file) {
  if (file.pixels_at < 0) return StatusCode::read_failed;
  return jpeg::decode_jpeg({.stream = request.stream,
                            .offset = file.pixels_at,
                            .sink = request.sink,
                            .options = request.options});
}

}  // namespace

Status decode(const DecodeRequest& request) {
  File file;
  TQ_TRY(read_header(request, file));
  if (file.rows == Rows::jpeg) return decode_embedded_jpeg(request, file);
  TQ_TRY(request.sink.header(file.image));
  TQ_TRY(decode_rows(request, file));
  return kOk;
}

}  // namespace tq::bmp
