// C4 drawings: tiles of 512 x 512 pixels in Group 4, each by itself.
#include <algorithm>
#include <array>

#include "core/run_storage.h"
#include "formats/simple/simple.h"
#include "formats/tile_rows.h"
#include "io/endian.h"
#include "io/stream_window.h"
#include "pixels/colours.h"
#include "pixels/rows.h"

namespace tq::simple {
namespace {

using formats::DecodeRequest;
using formats::EncodeRequest;

constexpr int kHeaderBytes = 128;
constexpr int kIndexField = 0, kRowsField = 4, kRowBytesField = 6, kDataField = 8, kTilesField = 12,
              kFormatField = 36;
constexpr int kNumbered = 4, kInOrder = 6;  // formats
constexpr int kMostNumbered = 252;          // tiles
constexpr std::int32_t kSide = 512;         // of a tile
constexpr std::int32_t kPlainBytes = kSide * kSide / 8;
constexpr int kEntryBytes = 4;
constexpr std::int64_t kMostTiles = 65535;
constexpr std::int32_t kDots = 200;  // where the file would say another number is not known
constexpr std::int64_t kWindow = 64 * 1024;

struct Layout {
  std::int64_t index = 0, data = 0;
  std::int32_t width = 0, height = 0;
  bool numbered = false;

  std::int32_t columns() const { return (width + kSide - 1) / kSide; }
  std::int32_t rows() const { return (height + kSide - 1) / kSide; }
  std::int64_t tiles() const { return std::int64_t{columns()} * rows(); }
};

Status read_layout(StreamWindow& window, std::int64_t start, Layout& layout) {
  const std::span<const std::uint8_t> header = window.at(start, kHeaderBytes);
  if (header.size() < kHeaderBytes) return StatusCode::read_failed;
  layout.index = start + load_le32(&header[kIndexField]);
  layout.data = start + load_be32(&header[kDataField]);
  layout.height = load_le16(&header[kRowsField]);
  layout.width = 8 * load_le16(&header[kRowBytesField]);
  layout.numbered = header[kFormatField] == kNumbered;
  const int tiles = header[kTilesField];
  const bool counted = tiles == 0 || tiles == layout.tiles();
  return layout.width > 0 && layout.height > 0 && counted ? StatusCode::ok : StatusCode::bad_image;
}

// The tiles of a drawing in the order of their index, with where their data are.
class Index {
 public:
  Status open(StreamHandle stream, const Layout& layout) {
    layout_ = layout;
    restart();
    return window_.open(stream, kWindow);
  }
  void restart() {
    next_ = 0;
    data_ = layout_.data;
  }

  struct Entry {
    std::int64_t tile = 0, data = 0;
    std::int32_t bytes = 0;
    bool plain = false;
  };
  // False behind the last, and where the index is cut off.
  bool next(Entry& entry) {
    if (next_ == layout_.tiles()) return false;
    const auto bytes = window_.at(layout_.index + kEntryBytes * next_, kEntryBytes);
    if (std::ssize(bytes) < kEntryBytes) return false;
    entry.plain = bytes[1] != 0;
    entry.bytes = entry.plain ? kPlainBytes : load_le16(&bytes[2]);
    entry.tile = layout_.numbered ? bytes[0] : next_;
    entry.data = data_;
    data_ += entry.bytes;
    ++next_;
    return true;
  }

 private:
  Layout layout_;
  StreamWindow window_;
  std::int64_t next_ = 0, data_ = 0;
};

// Of a tile, through a window.
class TilePieces {
 public:
  TilePieces(StreamWindow& window, std::int64_t at, std::int64_t bytes)
      : window_(window), at_(at), left_(bytes) {}
  std::span<const std::uint8_t> next_piece() {
    const auto piece = window_.at(at_, std::min(left_, kWindow));
    at_ += std::ssize(piece);
    left_ = piece.empty() ? 0 : left_ - std::ssize(piece);
    return piece;
  }

 private:
  StreamWindow& window_;
  std::int64_t at_, left_;
};

class Drawing {
 public:
  Drawing(const DecodeRequest& request, const Layout& layout)
      : request_(request), layout_(layout) {}
  Status decode();

 private:
  Status put_tile(const Index::Entry& entry, std::int32_t first_row);
  Status put_plain(const Index::Entry& entry);
  bool is_in_order(Index& index);

  const DecodeRequest& request_;
  const Layout layout_;
  StreamWindow window_;
  ccitt::Decoder decoder_;
  formats::TileRows rows_;
};

// Whether no tile stands before one of a higher row of tiles.
bool Drawing::is_in_order(Index& index) {
  Index::Entry entry;
  std::int64_t last = 0;
  bool in_order = true;
  while (in_order && index.next(entry)) {
    const std::int64_t row = entry.tile / layout_.columns();
    in_order = row >= last;
    last = row;
  }
  index.restart();
  return in_order;
}

Status Drawing::put_plain(const Index::Entry& entry) {
  constexpr std::int64_t kLineBytes = kSide / 8;
  std::array<std::uint8_t, kLineBytes> line{};
  std::array<std::int32_t, kSide + 1> transitions{};
  for (std::int32_t y = 0; y < kSide; ++y) {
    const auto stored = window_.at(entry.data + kLineBytes * y, kLineBytes);
    if (std::ssize(stored) < kLineBytes) {
      request_.sink.damaged(StatusCode::read_failed);
      break;
    }
    pixels::invert(stored, line);
    const std::int32_t count = bits_to_transitions(line, kSide, transitions);
    TQ_TRY(rows_.put(std::span(transitions).first(static_cast<std::size_t>(count))));
  }
  return kOk;
}

Status Drawing::put_tile(const Index::Entry& entry, std::int32_t first_row) {
  const auto column = static_cast<std::int32_t>(entry.tile % layout_.columns());
  const auto row = static_cast<std::int32_t>(entry.tile / layout_.columns());
  TQ_TRY(rows_.begin(
      {.x = column * kSide, .y = row * kSide - first_row, .width = kSide, .height = kSide}));
  if (entry.plain) return put_plain(entry);
  TilePieces pieces(window_, entry.data, entry.bytes);
  decoder_.start(PieceSource::of(pieces));
  const std::int32_t rows = std::min(kSide, layout_.height - row * kSide);
  for (std::int32_t y = 0; y < rows; ++y) {
    if (!decoder_.next_row()) {
      request_.sink.damaged(decoder_.at_end() ? StatusCode::read_failed : StatusCode::bad_image);
      break;
    }
    TQ_TRY(rows_.put(decoder_.row()));
  }
  return kOk;
}

Status Drawing::decode() {
  TQ_TRY(window_.open(request_.stream, kWindow));
  TQ_TRY(decoder_.open({}, kSide));
  TQ_TRY(rows_.open(layout_.width));
  Index index;
  TQ_TRY(index.open(request_.stream, layout_));
  const bool in_order = is_in_order(index);
  std::int32_t first = 0, end = in_order ? std::min(kSide, layout_.height) : layout_.height;
  const auto deliver = [&] {
    TQ_TRY(rows_.deliver(request_.sink, first, end - first));
    first = end;
    end = std::min(end + kSide, layout_.height);
    return kOk;
  };
  Index::Entry entry;
  std::int64_t seen = 0;
  while (index.next(entry)) {
    ++seen;
    if (entry.tile >= layout_.tiles()) {
      request_.sink.damaged(StatusCode::bad_image);
      continue;
    }
    while (entry.tile / layout_.columns() * kSide >= end) TQ_TRY(deliver());
    TQ_TRY(put_tile(entry, first));
  }
  if (seen < layout_.tiles()) request_.sink.damaged(StatusCode::read_failed);
  while (first < layout_.height) TQ_TRY(deliver());
  return kOk;
}

// --- Writing ---

// Rows of a drawing in tiles: those of one row of tiles are coded side by side, each column in memory
// of its own.
class TileWriter {
 public:
  TileWriter(const EncodeRequest& request, const Layout& layout, StreamWriter& out)
      : request_(request), layout_(layout), out_(out) {}
  Status write();

 private:
  static constexpr std::int64_t kLineBytes = kSide / 8;

  Status take_rows(std::int32_t first);
  Status write_tile(std::int32_t column, std::uint8_t* entry);

  const EncodeRequest& request_;
  const Layout& layout_;
  StreamWriter& out_;
  std::int64_t stride_ = 0;
  RowBuffer<std::uint8_t> row_, rows_, coded_;
  ccitt::Encoder encoder_;
};

Status TileWriter::take_rows(std::int32_t first) {
  std::fill(rows_.pixels().begin(), rows_.pixels().end(), std::uint8_t{0xFF});
  const std::int32_t width = request_.image->header.biWidth;
  const std::int32_t count = std::min(kSide, layout_.height - first);
  for (std::int32_t y = 0; y < count; ++y) {
    TQ_TRY(request_.rows.row(row_.pixels(), first + y));
    pixels::copy_bits(row_.pixels(), 0, width,
                      rows_.pixels().subspan(static_cast<std::size_t>(stride_ * y),
                                             static_cast<std::size_t>(stride_)));
  }
  return kOk;
}

Status TileWriter::write_tile(std::int32_t column, std::uint8_t* entry) {
  constexpr std::int64_t kMostCoded = 0x7FFF;
  const auto line = [&](std::int32_t y) {
    return rows_.pixels().subspan(static_cast<std::size_t>(stride_ * y + kLineBytes * column),
                                  kLineBytes);
  };
  encoder_.start();
  std::uint8_t* at = coded_.data();
  bool fits = true;
  for (std::int32_t y = 0; y < kSide && fits; ++y) {
    encoder_.take_bits(line(y));
    at = encoder_.put_row(at);
    fits = at - coded_.data() <= kMostCoded;
  }
  if (fits) at = encoder_.finish(at);
  fits = fits && at - coded_.data() <= kMostCoded;
  const std::ptrdiff_t bytes = fits ? at - coded_.data() : kPlainBytes;
  entry[1] = fits ? 0 : 1;
  store_le16(&entry[2], word(bytes));
  if (fits) {
    out_.put(coded_.pixels().first(static_cast<std::size_t>(bytes)));
    return out_.status();
  }
  std::array<std::uint8_t, kLineBytes> inverted{};
  for (std::int32_t y = 0; y < kSide; ++y) {
    pixels::invert(line(y), inverted);
    out_.put(inverted);
  }
  return out_.status();
}

Status TileWriter::write() {
  const std::int32_t columns = layout_.columns();
  stride_ = kLineBytes * columns;
  TQ_TRY(row_.allocate(row_bytes(request_.image->header.biWidth, 1)));
  TQ_TRY(rows_.allocate(stride_ * kSide));
  constexpr ccitt::Coding kCoding{.end_of_block = true};
  TQ_TRY(encoder_.open(kCoding, kSide));
  constexpr std::int64_t kMostRowBytes = 16 * (kSide + 8);
  TQ_TRY(coded_.allocate(0x8000 + kMostRowBytes + ccitt::Encoder::kMostBytesAtEnd));
  RowBuffer<std::uint8_t> index;
  TQ_TRY(index.allocate(kEntryBytes * layout_.tiles()));
  std::uint8_t* entry = index.data();
  for (std::int32_t row = 0; row < layout_.rows(); ++row) {
    TQ_TRY(take_rows(row * kSide));
    for (std::int32_t column = 0; column < columns; ++column, entry += kEntryBytes) {
      if (layout_.numbered) entry[0] = byte(row * columns + column);
      TQ_TRY(write_tile(column, entry));
    }
  }
  return out_.patch_put(kHeaderBytes, index.pixels());
}

Layout layout_of(const BitmapInfoHeader& header) {
  Layout layout{
      .index = kHeaderBytes, .width = (header.biWidth + 7) / 8 * 8, .height = header.biHeight};
  layout.numbered = layout.tiles() <= kMostNumbered;
  layout.data = kHeaderBytes + kEntryBytes * layout.tiles();
  return layout;
}

}  // namespace

Status decode_jed(const DecodeRequest& request) {
  const std::int64_t start = request.start();
  Layout layout;
  {
    StreamWindow window;
    TQ_TRY(window.open(request.stream, kHeaderBytes));
    TQ_TRY(read_layout(window, start, layout));
  }
  HeaderBlock image = dib_header(layout.width, layout.height, 1);
  image.palette = pixels::grey_levels(1);
  image.header.biXPelsPerMeter = image.header.biYPelsPerMeter = kDots;
  TQ_TRY(request.sink.header(image));
  return Drawing(request, layout).decode();
}

Status can_encode_jed(const EncodeRequest& request) {
  const BitmapInfoHeader& header = request.image->header;
  if (header.biBitCount != 1) return StatusCode::wrong_depth;
  constexpr std::int32_t kMostRows = 0xFFFF, kMostColumns = 8 * 0xFFFF;
  const bool fits = header.biWidth <= kMostColumns && header.biHeight <= kMostRows &&
                    layout_of(header).tiles() <= kMostTiles;
  return fits ? StatusCode::ok : StatusCode::unsupported;
}

Status encode_jed(const EncodeRequest& request) {
  TQ_TRY(can_encode_jed(request));
  const Layout layout = layout_of(request.image->header);
  std::array<std::uint8_t, kHeaderBytes> header{};
  store_le32(&header[kIndexField], kHeaderBytes);
  store_le16(&header[kRowsField], word(layout.height));
  store_le16(&header[kRowBytesField], word(layout.width / 8));
  store_be32(&header[kDataField], static_cast<std::uint32_t>(layout.data));
  header[kTilesField] = layout.numbered ? byte(layout.tiles()) : std::uint8_t{0};
  header[kFormatField] = byte(layout.numbered ? kNumbered : kInOrder);
  StreamWriter out;
  TQ_TRY(out.open(request.stream));
  out.put(header);
  out.fill(kEntryBytes * layout.tiles(), 0);
  return TileWriter(request, layout, out).write();
}

}  // namespace tq::simple
