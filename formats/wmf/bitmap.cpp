// Bitmaps among the records, and how their rows come to the canvas.
#include "formats/bmp/bmp.h"
#include "formats/wmf/player.h"

namespace tq::wmf {
namespace {

using pixels::Bytes;

constexpr int kNone = -1;
constexpr int kOldHeadBytes = 10, kOldPatternBytes = 32;  // before the rows

// Where the fields of a record stand, in words; the operation comes first, or there is none.
struct Fields {
  int function;
  bool has_operation;
  int source_size;  // height, width
  int source;       // y, x
  int size;         // height, width
  int place;        // y, x
  int bitmap;
};
constexpr Fields kFields[] = {
    {kStretchDib, true, 3, 5, 7, 9, 11}, {kDibStretchBlt, true, 2, 4, 6, 8, 10},
    {kStretchBlt, true, 2, 4, 6, 8, 10}, {kDibBitBlt, true, kNone, 2, 4, 6, 8},
    {kBitBlt, true, kNone, 2, 4, 6, 8},  {kSetDibToDevice, false, kNone, 3, 5, 7, 9},
};

Mix mix_of(Operation operation) {
  switch (operation) {
    case kSourceAnd:
      return Mix::both;
    case kSourcePaint:
      return Mix::either;
    case kSourceInvert:
      return Mix::differing;
    case kBlackness:
      return Mix::black;
    case kWhiteness:
      return Mix::white;
    case kDestinationInvert:
      return Mix::inverse;
    default:
      return Mix::copy;
  }
}

std::int32_t IMG_CB_C stop_after_header(void* block, void* context) {
  *static_cast<BitmapInfoHeader*>(context) = static_cast<HeaderBlock*>(block)->header;
  return Status(StatusCode::stop_after_header).raw();
}

// Puts each row of a bitmap where it is seen.
class Painter {
 public:
  Painter(const Blit& blit, const Clip& clip, Canvas& canvas)
      : blit_(blit), clip_(clip), canvas_(canvas) {
    place(blit.from.x, blit.to.x, blit.width, left_, right_, x_mirrored_);
    place(blit.from.y, blit.to.y, blit.height, top_, bottom_, y_mirrored_);
    width_ = std::abs(blit.width);
    height_ = std::abs(blit.height);
    x_ = std::min(blit.x, blit.x + blit.width);
    y_ = std::min(blit.y, blit.y + blit.height);
  }

  // Whether there is anything to see.
  bool is_visible() const {
    const Area seen = Area{left_, top_, right_, bottom_}.cut_to(clip_.area);
    return width_ > 0 && height_ > 0 && !seen.is_empty();
  }

  formats::RowSink sink() { return {on_header, on_row, this, &notes_}; }

  // What was not there of the rows that there should be.
  void end(const formats::RowSink& sink) {
    const std::int64_t rows = std::min<std::int64_t>(notes_.height, blit_.rows);
    if (notes_.rows >= rows) return;
    const bool said = notes_.damage != StatusCode::ok;
    sink.damaged(said ? notes_.damage : StatusCode::read_failed);
  }

  Status begin(const HeaderBlock& image) {
    constexpr std::int64_t kLargest = std::int64_t{1} << 26, kDotsPerWork = 4;
    image_ = image;
    const BitmapInfoHeader& header = image.header;
    format_ = {.width = header.biWidth,
               .bits = header.biBitCount,
               .cmyk = header.biCompression == 0,
               .palette = image_.palette};
    const std::int64_t dots = std::int64_t{header.biWidth} * header.biHeight;
    if (dots > kLargest) return StatusCode::unsupported;
    TQ_TRY(check_geometry(header));
    if (!canvas_.spend(dots / kDotsPerWork)) return StatusCode::stop_after_header;
    if (blit_.is_old) y_ = header.biHeight - y_ - height_;
    TQ_TRY(colours_.allocate(header.biWidth));
    seen_ = Area{left_, 0, right_, 1}.cut_to({clip_.area.left, 0, clip_.area.right, 1});
    TQ_TRY(columns_.allocate(std::max(seen_.right - seen_.left, 0)));
    for (std::int32_t x = seen_.left; x < seen_.right; ++x) {
      const std::int64_t column = (std::int64_t{x} - left_) * width_ / (right_ - left_);
      const std::int64_t from = x_ + (x_mirrored_ ? width_ - 1 - column : column);
      const bool there = from >= 0 && from < header.biWidth;
      columns_[x - seen_.left] = there ? static_cast<std::int32_t>(from) : kNone;
    }
    return kOk;
  }

  // Row y from the top.
  Status draw(Bytes row, std::int32_t y) {
    const std::int64_t from_bottom = image_.header.biHeight - 1 - y + blit_.first_row;
    if (from_bottom - blit_.first_row >= blit_.rows) return kOk;
    // Of the rows that are seen, counted from their top.
    const std::int64_t upper = y_ + height_ - 1 - from_bottom;
    if (upper < 0 || upper >= height_) return kOk;
    const std::int64_t line = y_mirrored_ ? height_ - 1 - upper : upper;
    const std::int64_t high = bottom_ - std::int64_t{top_};
    const auto first_of = [&](std::int64_t lines) {
      return static_cast<std::int32_t>((lines * high + height_ - 1) / height_) + top_;
    };
    const std::int32_t first = std::max(first_of(line), clip_.area.top);
    const std::int32_t behind = std::min(first_of(line + 1), clip_.area.bottom);
    if (first >= behind) return kOk;
    row_to_colours(row, format_, colours_.pixels());
    for (std::int32_t to = first; to < behind; ++to) {
      if (canvas_.is_spent()) return StatusCode::stop_after_header;
      paint(to);
    }
    return kOk;
  }

 private:
  static std::int32_t IMG_CB_C on_header(void* block, void* context) {
    return static_cast<Painter*>(context)->begin(*static_cast<HeaderBlock*>(block)).raw();
  }
  static std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y,
                                      std::int32_t bytes) {
    const auto* first = static_cast<const std::uint8_t*>(row);
    return static_cast<Painter*>(context)->draw({first, static_cast<std::size_t>(bytes)}, y).raw();
  }

  static void place(std::int64_t from, std::int64_t to, std::int64_t source, std::int32_t& first,
                    std::int32_t& behind, bool& mirrored) {
    first = to_dots(std::min(from, to));
    behind = to_dots(std::max(from, to));
    mirrored = (from > to) != (source < 0);
  }

  // What the columns of a bitmap do not reach stays as it is.
  void paint(std::int32_t y) {
    const std::int32_t count = seen_.right - seen_.left;
    std::int32_t x = 0;
    while (x < count) {
      const std::int32_t first = x;
      const bool there = columns_[x] != kNone;
      while (x < count && (columns_[x] != kNone) == there) ++x;
      if (!there) continue;
      canvas_.paint(clip_, mix_of(blit_.operation), y, seen_.left + first, seen_.left + x,
                    [&](std::int32_t at) { return colours_[columns_[at - seen_.left]]; });
    }
  }

  const Blit& blit_;
  const Clip& clip_;
  Canvas& canvas_;
  std::int32_t left_ = 0, top_ = 0, right_ = 0, bottom_ = 0;
  bool x_mirrored_ = false, y_mirrored_ = false;
  std::int64_t x_ = 0, y_ = 0, width_ = 0, height_ = 0;  // of the bitmap; y from its last row
  HeaderBlock image_;
  pixels::RowFormat format_;
  Area seen_;
  RowBuffer<Rgb> colours_;
  RowBuffer<std::int32_t> columns_;  // that the dots of a row show
  formats::DecodeNotes notes_;
};

// A bitmap for a device, of 1 bit: rows of whole words from the top. bad_image, unsupported for more bits.
Status draw_old(const Blit& blit, Records& records, Painter& painter) {
  constexpr int kHeadBytes = kOldHeadBytes;
  const Bytes head = records.bytes(blit.at, kHeadBytes);
  if (std::ssize(head) < kHeadBytes) return StatusCode::read_failed;
  const int width = load_le16(&head[2]), height = load_le16(&head[4]);
  const int line_bytes = load_le16(&head[6]);
  if (head[8] != 1 || head[9] != 1) return StatusCode::unsupported;
  if (width == 0 || height == 0 || 8 * line_bytes < width) return StatusCode::bad_image;
  HeaderBlock image = dib_header(width, height, 1);
  image.palette = {Rgb{0, 0, 0, 0}, Rgb{255, 255, 255, 0}};
  TQ_TRY(painter.begin(image));
  for (std::int32_t y = 0; y < height; ++y) {
    const std::int64_t at = blit.at + blit.head_bytes + std::int64_t{y} * line_bytes;
    const int bytes = (width + 7) / 8;
    const Bytes row = records.bytes(at, std::min<std::int64_t>(bytes, blit.end - at));
    if (std::ssize(row) < bytes) return StatusCode::read_failed;
    TQ_TRY(painter.draw(row, y));
  }
  return kOk;
}

}  // namespace

Status decode_bitmap(const formats::DecodeRequest& request, const Blit& blit,
                     const formats::RowSink& sink) {
  formats::DecodeRequest bitmap = request;
  bitmap.offset = static_cast<std::int32_t>(blit.at);
  bitmap.page = -1;
  bitmap.sink = sink;
  return bmp::decode_part(bitmap, blit.end);
}

Status read_header(const formats::DecodeRequest& request, const Blit& blit,
                   BitmapInfoHeader& header) {
  return decode_bitmap(request, blit, {.on_header = stop_after_header, .context = &header});
}

// False for a record that is cut off, or has no bitmap.
bool Player::find_blit(const Record& record, Blit& blit) const {
  const Fields* const fields = std::ranges::find(kFields, record.function, &Fields::function);
  if (fields == std::end(kFields)) return false;
  const auto word = [&](int index) { return records_->i16(record, index); };
  blit.at = record.at + 2 * fields->bitmap;
  blit.end = std::min(record.end(), records_->end());
  constexpr int kShortestHeader = 10;  // one that has none may have a word more
  if (blit.end - blit.at < kShortestHeader) return false;
  blit.is_old = record.function == kBitBlt || record.function == kStretchBlt;
  if (fields->has_operation) blit.operation = Operation{records_->u32(record, 0)};
  const int height = word(fields->size), width = word(fields->size + 1);
  const bool scaled = fields->source_size != kNone;
  blit.height = scaled ? word(fields->source_size) : height;
  blit.width = scaled ? word(fields->source_size + 1) : width;
  blit.y = word(fields->source);
  blit.x = word(fields->source + 1);
  if (!fields->has_operation) {
    blit.rows = records_->u16(record, 1);
    blit.first_row = records_->u16(record, 2);
  }
  const double y = word(fields->place), x = word(fields->place + 1);
  blit.from = map(x, y);
  blit.to = map(x + width, y + height);
  blit.unit = {state_.x.length(1), state_.y.length(1)};
  return true;
}

Status Player::draw_blit(const Blit& blit) {
  Painter painter(blit, state_.clip, *canvas_);
  if (!painter.is_visible() || canvas_->is_spent()) return kOk;
  const Status drawn = blit.is_old ? draw_old(blit, *records_, painter)
                                   : decode_bitmap(*request_, blit, painter.sink());
  if (drawn == StatusCode::out_of_memory) return drawn;
  const bool stopped = drawn == StatusCode::stop_after_header;
  if (drawn.failed() && !stopped) request_->sink.damaged(StatusCode::bad_image);
  if (!blit.is_old && !stopped) painter.end(request_->sink);
  return kOk;
}

// The upper left part of the brush's pattern, or grey for one that makes no sense.
Status Player::load_pattern() {
  constexpr int kMostSide = 64;
  constexpr std::int64_t kMostWork = std::int64_t{1} << 27;
  const Brush& brush = state_.ink.brush;
  if (brush.kind != Brush::Kind::pattern || brush.at == tile_at_) return kOk;
  tile_at_ = brush.at;
  Blit blit;
  blit.at = brush.at;
  blit.end = brush.end;
  blit.head_bytes = kOldPatternBytes;
  blit.is_old = brush.is_old;
  BitmapInfoHeader header{};
  const Bytes head = records_->bytes(blit.at, kOldHeadBytes);
  if (brush.is_old && std::ssize(head) == kOldHeadBytes) {
    header.biWidth = load_le16(&head[2]);
    header.biHeight = load_le16(&head[4]);
  } else if (!brush.is_old && read_header(*request_, blit, header).raw() !=
                                  Status(StatusCode::stop_after_header).raw()) {
    header = {};
  }
  const std::int32_t width = std::min(header.biWidth, kMostSide);
  const std::int32_t height = std::min(header.biHeight, kMostSide);
  Canvas& tile = painting_.tile();
  if (width > 0 && height > 0) {
    if (!canvas_->spend(std::int64_t{header.biWidth} * header.biHeight / 4)) return kOk;
    TQ_TRY(tile.open(width, height, kMostWork));
    blit.width = width;
    blit.height = height;
    blit.y = brush.is_old ? 0 : header.biHeight - height;
    blit.to = {width * kDot, height * kDot};
    const Clip clip{.area = tile.area()};
    Painter painter(blit, clip, tile);
    const Status drawn = brush.is_old ? draw_old(blit, *records_, painter)
                                      : decode_bitmap(*request_, blit, painter.sink());
    if (drawn.ok() || drawn == StatusCode::out_of_memory) return drawn;
  }
  request_->sink.damaged(StatusCode::bad_image);
  constexpr Rgb kGrey{128, 128, 128, 0};
  TQ_TRY(tile.open(1, 1, kMostWork));
  tile.fill({.area = tile.area()}, Mix::copy, 0, 0, 1, kGrey);
  return kOk;
}

}  // namespace tq::wmf
