// Uncompressed BMP rows, delivered from where they lie unless a row has to be changed; rows with
// their length in front; and the choice of the row reader.
#include <algorithm>

#include "core/memory.h"
#include "formats/bmp/bmp.h"
#include "formats/bmp/header.h"
#include "formats/fax.h"
#include "formats/jpeg/jpeg.h"
#include "formats/png/png.h"
#include "io/chunk_reader.h"
#include "io/endian.h"
#include "pixels/rows.h"

namespace tq::bmp {
namespace {

using pixels::Bytes;

// The rows of a file one after the other; what a cut-off file lacks is 0.
class StoredRows {
 public:
  StoredRows() = default;
  StoredRows(const StoredRows&) = delete;
  StoredRows& operator=(const StoredRows&) = delete;
  ~StoredRows() { input_.skip(lent_); }

  // From a line on.
  Status open(const DecodeRequest& request, const File& file, std::int32_t line = 0) {
    there_ = row_bytes_ = static_cast<std::size_t>(file.line_bytes);
    lines_left_ = (file.end - file.pixels_at) / std::max<std::int64_t>(file.line_bytes, 1) - line;
    File from = file;
    if (line > 0) from.pixels_at = stream_position(file.pixels_at + file.line_bytes * line);
    return open_pixels(request, from, read_chunk_bytes(file.line_bytes), input_);
  }

  // Valid until the next call.
  Status next(Bytes& row) {
    input_.skip(lent_);
    lent_ = 0;
    if (ended_) {  // not asked again: a file may claim any number of rows
      std::fill_n(padded_.data(), there_, std::uint8_t{0});
      there_ = 0;
    } else {
      row = lines_left_-- > 0 ? Bytes(input_.peek(row_bytes_)) : Bytes{};
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
  std::int64_t lines_left_ = 0;
  bool ended_ = false;
};

// Writers that know no alpha leave it 0 everywhere.
Status drop_empty_alpha(const DecodeRequest& request, File& file) {
  StoredRows rows;
  TQ_TRY(rows.open(request, file));
  for (std::int32_t i = 0; i < file.image.header.biHeight && rows.missing() == 0; ++i) {
    Bytes row;
    TQ_TRY(rows.next(row));
    if (file.masks.any_alpha(row, file.image.header.biWidth)) return kOk;
  }
  file.masks.drop_alpha();
  return kOk;
}

// Those before it are rows below the wanted ones, or above them; what a cut-off file lacks of them is not
// told.
std::int32_t first_wanted_line(const formats::RowSink& sink, const File& file) {
  // Of 1 bit it makes a difference whether a row is lacking or was never there.
  const bool seeks = file.image.header.biBitCount != 1 && file.pixels_at >= 0;
  if (sink.wanted == nullptr || !seeks) return 0;
  const std::int32_t height = file.image.header.biHeight;
  const std::int32_t line =
      file.top_down ? sink.wanted->top : height - std::min(sink.wanted->bottom, height);
  const bool is_position = stream_position(file.pixels_at + file.line_bytes * line) >= 0;
  return line < height && is_position ? line : 0;
}

// `change(row, changed)` fills a row of its own with what a row of the file becomes.
template <class Change>
Status deliver_plain_rows(const DecodeRequest& request, const File& file, bool changes,
                          Change&& change) {
  const BitmapInfoHeader& header = file.image.header;
  const std::int32_t first = first_wanted_line(request.sink, file);
  StoredRows rows;
  TQ_TRY(rows.open(request, file, first));
  RowBuffer<std::uint8_t> changed;
  if (changes) TQ_TRY(changed.allocate(row_bytes(header.biWidth, header.biBitCount)));
  std::uint64_t missing = 0;
  for (std::int32_t i = first; i < header.biHeight; ++i) {
    Bytes row;
    TQ_TRY(rows.next(row));
    if (rows.missing() != 0) request.sink.damaged(StatusCode::read_failed);
    if (rows.missing() != 0) missing += std::max(rows.missing(), kRowCost);
    if (missing > kMostMissing) return kOk;
    const std::int32_t y = file.top_down ? i : header.biHeight - 1 - i;
    if (changes) {
      change(row, changed.pixels());
      row = changed.pixels();
    }
    TQ_TRY(request.sink.row(row, y));
    if (file.top_down ? request.sink.ends_at(y) : request.sink.ends_up_at(y)) return kOk;
  }
  return kOk;
}

Status decode_plain_rows(const DecodeRequest& request, File& file) {
  const std::int32_t width = file.image.header.biWidth;
  if (file.masked) {
    TQ_TRY(drop_empty_alpha(request, file));
    return deliver_plain_rows(request, file, true, [&](Bytes row, pixels::Row changed) {
      file.masks.unpack(row, width, changed);
    });
  }
  if (file.layout != nullptr) {
    return deliver_plain_rows(request, file, true, [&](Bytes row, pixels::Row changed) {
      pixels::unpack(*file.layout, row, width, changed);
    });
  }
  return deliver_plain_rows(request, file, file.inverted,
                            [](Bytes row, pixels::Row changed) { pixels::invert(row, changed); });
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

// Rows of T.4 codes, in which white is index 0.
class FaxRows {
 public:
  FaxRows(const DecodeRequest& request, const File& file) : sink_(request.sink), file_(file) {}

  Status decode(const DecodeRequest& request) {
    const BitmapInfoHeader& header = file_.image.header;
    TQ_TRY(row_.allocate(row_bytes(header.biWidth, header.biBitCount)));
    ChunkReader input;
    TQ_TRY(open_pixels(request, file_, formats::kFaxChunk, input));
    ReaderPieces pieces(input);
    formats::FaxDecoder decoder;
    TQ_TRY(decoder.open({.scheme = ccitt::Scheme::group3_1d}, header.biWidth,
                        formats::FaxRows::bits, true));
    formats::DecodeNotes notes{.whole = sink_.notes};
    const Status rows = decoder.decode(coding::PieceSource::of(pieces), 0, header.biHeight,
                                       {.on_row = take_row, .context = this, .notes = &notes});
    return rows.failed() ? rows : kOk;
  }

 private:
  static std::int32_t IMG_CB_C take_row(void* row, void* context, std::int32_t y,
                                        std::int32_t bytes) {
    auto& self = *static_cast<FaxRows*>(context);
    const BitmapInfoHeader& header = self.file_.image.header;
    pixels::unpack(*self.file_.layout, std::span(static_cast<const std::uint8_t*>(row), bytes),
                   header.biWidth, self.row_.pixels());
    return self.sink_.row(self.row_.pixels(), self.file_.top_down ? y : header.biHeight - 1 - y)
        .raw();
  }

  const RowSink& sink_;
  const File& file_;
  RowBuffer<std::uint8_t> row_;
};

Status decode_rows(const DecodeRequest& request, File& file) {
  switch (file.rows) {
    case Rows::rle4:
    case Rows::rle8:
    case Rows::rle24:
      return decode_rle_rows(request, file);
    case Rows::fax:
      return FaxRows(request, file).decode(request);
    case Rows::length_prefixed:
      return decode_length_prefixed_rows(request, file);
    default:
      return decode_plain_rows(request, file);
  }
}

// A file of another kind in place of the pixels: size, depth, palette and resolution are its own.
Status decode_embedded(const DecodeRequest& request, const File& file) {
  if (file.pixels_at < 0) return StatusCode::read_failed;
  DecodeRequest inner = request;
  inner.offset = file.pixels_at;
  inner.page = -1;
  return file.rows == Rows::jpeg ? jpeg::decode_jpeg(inner) : png::decode_png(inner);
}

Status decode_file(const DecodeRequest& request, File& file) {
  if (file.rows == Rows::jpeg || file.rows == Rows::png) return decode_embedded(request, file);
  request.sink.resolution(file.resolution);
  TQ_TRY(request.sink.header(file.image));
  TQ_TRY(decode_rows(request, file));
  return kOk;
}

}  // namespace

Status decode(const DecodeRequest& request) {
  File file;
  const bool shown = request.options.get(IMG_OPTION_READING) == 1;
  TQ_TRY(shown ? read_shown_header(request, file) : read_header(request, file));
  return decode_file(request, file);
}

Status decode_part(const DecodeRequest& request, std::int64_t end) {
  File file;
  TQ_TRY(read_shown_header(request, file));
  file.end = end;
  return decode_file(request, file);
}

}  // namespace tq::bmp
