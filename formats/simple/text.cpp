// Plain text as pages of 80 columns and 66 lines, on letter paper at 200 dots per inch.
#include "formats/codec.h"
#include "formats/simple/simple.h"
#include "formats/stroke_font.h"
#include "io/chunk_reader.h"
#include "pixels/colours.h"
#include "pixels/rows.h"

namespace tq::simple {
namespace {

constexpr std::int32_t kWidth = 1700, kHeight = 2200, kDotsPerInch = 200;
constexpr int kColumns = 80, kLines = 66;
constexpr int kCellWidth = 20, kCellHeight = 32, kLeft = 50, kTop = 44;
constexpr std::int64_t kChunk = 32768;

// Follows the text from place to place.
class Cursor {
 public:
  Cursor(StreamHandle stream, ChunkReader& input)
      : input_(&input), ends_with_zero_(!end_is_known(stream)) {}

  std::int32_t page() const { return page_; }
  int line() const { return line_; }
  int column() const { return column_; }

  // The next character that is to be seen, at the cursor; below 0 behind the last one. `until(page, line)`
  // ends the search before something goes on there.
  template <class Until>
  int next(Until&& until) {
    enum Control : int {
      kBack = 8,
      kTab,
      kLineFeed,
      kFormFeed = 12,
      kReturn,
      kEndOfText = 26,
      kDelete = 127
    };
    for (;;) {
      const int character = peek();
      if (character < 0 || character == kEndOfText) return -1;
      if (character == 0 && ends_with_zero_) return -1;
      const bool seen = character >= ' ' && character != kDelete;
      const bool moves =
          seen || (character >= kBack && character <= kReturn && character != kVertical);
      if (seen && column_ >= kColumns) end_line();
      if (moves && until(page_, line_)) return -1;
      take();
      const bool after_return = was_return_, after_full_page = was_full_page_;
      was_return_ = character == kReturn;
      if (moves) was_full_page_ = false;
      if (seen) {
        ++column_;
        return character;
      }
      if (character == kBack) column_ = std::max(column_ - 1, 0);
      if (character == kTab) column_ = std::min((column_ / 8 + 1) * 8, kColumns);
      if (character == kReturn || (character == kLineFeed && !after_return)) end_line();
      if (character == kLineFeed && after_return) was_full_page_ = after_full_page;
      if (character == kFormFeed && !after_full_page) end_page();
    }
  }

 private:
  static constexpr int kVertical = 11;

  int peek() {
    const auto next = input_->peek(1);
    return next.empty() ? -1 : next[0];
  }
  void take() { input_->skip(1); }
  void end_line() {
    column_ = 0;
    if (++line_ < kLines) return;
    end_page();
    was_full_page_ = true;
  }
  void end_page() {
    column_ = line_ = 0;
    ++page_;
  }

  ChunkReader* input_;
  bool ends_with_zero_;  // in memory that does not say where it ends
  std::int32_t page_ = 0;
  int line_ = 0, column_ = 0;
  bool was_return_ = false, was_full_page_ = false;
};

// The dots of a line of text: 0 is black.
class Band {
 public:
  Status open() {
    stride_ = row_bytes(kWidth, 1);
    TQ_TRY(dots_.allocate(stride_ * kCellHeight));
    clear();
    return kOk;
  }
  void clear() {
    std::ranges::fill(dots_.pixels(), std::uint8_t{0});
    for (int y = 0; y < kCellHeight; ++y) set_white(row(y));
  }
  pixels::Row row(int y) {
    return dots_.pixels().subspan(static_cast<std::size_t>(y * stride_),
                                  static_cast<std::size_t>(stride_));
  }

  // Over what is there.
  void draw(int column, int character) {
    constexpr int kBeside = 2, kAbove = 2;
    constexpr int kWide = kCellWidth - 2 * kBeside - 1, kHigh = kCellHeight - 2 * kAbove - 1;
    const formats::Glyph glyph = formats::glyph_of(byte(character));
    const int left = kLeft + column * kCellWidth + kBeside;
    const auto x_of = [&](int x) { return left + x * kWide / formats::kGlyphWidth; };
    const auto y_of = [](int y) { return kAbove + y * kHigh / formats::kGlyphHeight; };
    for (int i = 0; i < glyph.count; ++i) {
      const formats::Stroke& stroke = glyph.strokes[static_cast<std::size_t>(i)];
      draw_line(x_of(stroke.from_x), y_of(stroke.from_y), x_of(stroke.to_x), y_of(stroke.to_y));
    }
  }

 private:
  static void set_white(pixels::Row row) {
    std::fill_n(row.begin(), kWidth / 8, std::uint8_t{0xFF});
    row[kWidth / 8] = byte(0xFF << (8 - kWidth % 8));
  }

  // Two dots wide.
  void draw_line(int x, int y, int to_x, int to_y) {
    const int steps = std::max({std::abs(to_x - x), std::abs(to_y - y), 1});
    for (int i = 0; i <= steps; ++i) {
      const int at_x = x + ((to_x - x) * 2 * i + steps) / (2 * steps);
      const int at_y = y + ((to_y - y) * 2 * i + steps) / (2 * steps);
      for (int dot = 0; dot < 4; ++dot) {
        const int dot_x = at_x + dot % 2;
        row(at_y + dot / 2)[dot_x / 8] &= byte(~(0x80 >> dot_x % 8));
      }
    }
  }

  RowBuffer<std::uint8_t> dots_;
  std::int64_t stride_ = 0;
};

Status open_text(StreamHandle stream, std::int64_t start, ChunkReader& input) {
  TQ_TRY(seek_to(stream, start));
  return input.open(stream, kChunk);
}

}  // namespace

Status decode_text(const formats::DecodeRequest& request) {
  const std::int32_t page = request.has_page() ? request.page : 0;
  ChunkReader input;
  TQ_TRY(open_text(request.stream, request.start(), input));
  Cursor cursor(request.stream, input);
  bool there = page == 0;
  while (!there && cursor.next([&](std::int32_t at, int) { return there = at == page; }) >= 0) {
  }
  if (!there) return StatusCode::page_past_end;

  HeaderBlock image = dib_header(kWidth, kHeight, 1);
  image.palette = pixels::grey_levels(1);
  image.header.biXPelsPerMeter = image.header.biYPelsPerMeter = kDotsPerInch;
  TQ_TRY(request.sink.header(image));
  Band band;
  TQ_TRY(band.open());
  std::int32_t y = 0;
  const auto deliver = [&](int rows) -> Status {
    for (int i = 0; i < rows; ++i) TQ_TRY(request.sink.row(band.row(i % kCellHeight), y++));
    band.clear();
    return kOk;
  };
  TQ_TRY(deliver(kTop));
  for (int line = 0; line < kLines; ++line) {
    const auto is_behind = [&](std::int32_t at_page, int at_line) {
      return at_page > page || at_line > line;
    };
    for (int character = 0; (character = cursor.next(is_behind)) >= 0;) {
      band.draw(cursor.column() - 1, character);
    }
    TQ_TRY(deliver(kCellHeight));
  }
  return deliver(kTop);
}

Status count_text_pages(StreamHandle stream) {
  ChunkReader input;
  TQ_TRY(open_text(stream, position(stream), input));
  Cursor cursor(stream, input);
  std::int32_t last = 0;
  while (cursor.next([&](std::int32_t page, int) {
    last = page;
    return false;
  }) >= 0) {
  }
  return Status::from_raw(last + 1);
}

}  // namespace tq::simple
