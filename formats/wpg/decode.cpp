// Of the records of both versions the largest bitmap.
#include <array>

#include "formats/rows.h"
#include "formats/wpg/records.h"
#include "formats/wpg/wpg.h"
#include "io/chunk_reader.h"
#include "io/endian.h"
#include "io/stream_window.h"
#include "pixels/colours.h"

namespace tq::wpg {
namespace {

using namespace pixels;
using Colours = std::array<Rgb, 256>;

// --- Colours of files that have none ---

constexpr Rgb rgb(int red, int green, int blue) {
  return {byte(blue), byte(green), byte(red), 0};
}

// Those of the display adapters of the time: 16 colours, 16 greys, nine rings of hues.
constexpr Colours default_colours() {
  constexpr int kGreys[] = {0, 20, 32, 44, 56, 68, 80, 96, 112, 128, 144, 160, 180, 200, 224, 252};
  constexpr int kRings[9][5] = {{0, 16, 31, 47, 63}, {31, 39, 47, 55, 63}, {45, 49, 54, 58, 63},
                                {0, 7, 14, 21, 28},  {14, 17, 21, 24, 28}, {20, 22, 24, 26, 28},
                                {0, 4, 8, 12, 16},   {8, 10, 12, 14, 16},  {11, 12, 13, 15, 16}};
  constexpr int kHues = 24, kBrown = 6;
  Colours colours{};
  for (int i = 0; i < 16; ++i) {
    const int low = i < 8 ? 0 : 0x54, high = i < 8 ? 0xA8 : 0xFC;
    colours[i] =
        rgb((i & 4) != 0 ? high : low, (i & 2) != 0 ? high : low, (i & 1) != 0 ? high : low);
    colours[16 + i] = rgb(kGreys[i], kGreys[i], kGreys[i]);
  }
  colours[kBrown].green = 0x54;
  int next = 32;
  for (const auto& ring : kRings) {
    // From the lowest level to the highest in four steps, four at the highest, and back.
    const auto level = [&](int hue) {
      hue = (hue + kHues) % kHues;
      if (hue < 4) return 4 * ring[hue];
      if (hue < 12) return 4 * ring[4];
      return hue < 16 ? 4 * ring[16 - hue] : 4 * ring[0];
    };
    for (int hue = 0; hue < kHues; ++hue)
      colours[next++] = rgb(level(hue), level(hue - 8), level(hue + 8));
  }
  return colours;
}

// Made by the compiler once, not in the code of whoever takes them.
constexpr Colours kDefaultColours = default_colours();

// --- Records ---

struct Bitmap {
  std::int32_t width = 0, height = 0;
  int bits = 0;
  bool in_runs = true;
  std::int32_t x_dpi = 0, y_dpi = 0;
  std::int64_t at = 0, end = 0;  // of the rows in the stream
  bool has_colours = false;
  Colours colours{};

  std::int64_t row_bytes() const { return (std::int64_t{width} * bits + 7) / 8; }
};

// Reads on from a position. Behind the end all fields are 0.
class Input {
 public:
  Status open(StreamHandle stream) { return window_.open(stream, 1024); }

  int u8() {
    const Bytes byte = window_.at(at_++, 1);
    ended_ = ended_ || byte.empty();
    return byte.empty() ? 0 : byte[0];
  }
  int u16() {
    const int low = u8();
    return low | u8() << 8;
  }
  std::int64_t length() {
    const int first = u8();
    if (first != 0xFF) return first;
    const int words = u16();
    return (words & 0x8000) == 0 ? words : std::int64_t{words & 0x7FFF} << 16 | u16();
  }
  std::int64_t position() const { return at_; }
  void go_to(std::int64_t position) { at_ = position; }
  bool ended() const { return ended_; }

 private:
  StreamWindow window_;
  std::int64_t at_ = 0;
  bool ended_ = false;
};

// Looks through the records for the largest bitmap.
class Graphic {
 public:
  // unsupported when there is none.
  Status open(const formats::DecodeRequest& request) {
    TQ_TRY(input_.open(request.stream));
    const std::int64_t start = request.start();
    input_.go_to(start);
    if (input_.u16() != 0x57FF || input_.u16() != 0x4350) return failed();
    const int low = input_.u16();
    const std::int64_t first = start + (std::int64_t{input_.u16()} << 16 | low);
    (void)input_.u8();
    const int type = input_.u8(), version = input_.u16() & 0xFF, key = input_.u16();
    if (input_.ended()) return StatusCode::read_failed;
    if (type != kGraphic || (version != 1 && version != 2) || key != 0)
      return StatusCode::unsupported;
    if (first < start + kHeaderBytes) return StatusCode::bad_image;
    is_second_ = version == 2;
    input_.go_to(first);
    while (read_record()) {
    }
    if (largest_.bits != 0) return kOk;
    return input_.ended() ? StatusCode::read_failed : StatusCode::unsupported;
  }

  const Bitmap& bitmap() const { return largest_; }
  bool is_second() const { return is_second_; }

 private:
  Status failed() const { return input_.ended() ? StatusCode::read_failed : StatusCode::bad_image; }

  // False behind the last one.
  bool read_record() {
    if (is_second_) (void)input_.u8();
    const int type = input_.u8();
    if (is_second_) (void)input_.length();
    const std::int64_t bytes = input_.length(), end = input_.position() + bytes;
    if (input_.ended() || type == (is_second_ ? kEnd2 : kEnd1)) return false;
    if (type == (is_second_ ? kColours2 : kColours1)) {
      read_colours(end);
    } else if (is_second_ ? type == kBitmap2 : type == kBitmap1 || type == kTurnedBitmap1) {
      read_bitmap(type, end);
    }
    if (input_.ended()) return false;
    input_.go_to(end);
    return true;
  }

  void read_colours(std::int64_t end) {
    const int first = input_.u16(), count = input_.u16();
    for (int i = first; i < first + count && i < 256 && input_.position() < end; ++i) {
      const int red = input_.u8(), green = input_.u8(), blue = input_.u8();
      if (is_second_) (void)input_.u8();
      colours_[i] = rgb(red, green, blue);
    }
    has_colours_ = true;
  }

  void read_bitmap(int type, std::int64_t end) {
    constexpr int kPlaceBytes = 10, kRuns = 1;
    if (!is_second_ && type == kTurnedBitmap1) input_.go_to(input_.position() + kPlaceBytes);
    Bitmap bitmap;
    bitmap.width = input_.u16();
    bitmap.height = input_.u16();
    if (is_second_) {
      const int code = input_.u8(), coding = input_.u8();
      bitmap.bits = code == 8 ? 24 : code == 4 ? 8 : code == 3 ? 4 : code <= 2 ? code : 0;
      bitmap.in_runs = coding == kRuns;
      if (coding > kRuns) bitmap.bits = 0;
    } else {
      bitmap.bits = input_.u16();
      bitmap.x_dpi = input_.u16();
      bitmap.y_dpi = input_.u16();
      if (bitmap.bits > 8) bitmap.bits = 0;
    }
    bitmap.at = input_.position();
    bitmap.end = end;
    const auto dots = [](const Bitmap& of) { return std::int64_t{of.width} * of.height; };
    const bool known = bitmap.bits == 24 || (bitmap.bits > 0 && 8 % bitmap.bits == 0);
    if (input_.ended() || !known || dots(bitmap) <= dots(largest_)) return;
    bitmap.has_colours = has_colours_;
    bitmap.colours = colours_;
    largest_ = bitmap;
  }

  Input input_;
  bool is_second_ = false, has_colours_ = false;
  Colours colours_ = kDefaultColours;
  Bitmap largest_;
};

// --- Rows ---

// Cells repeated, cells by themselves, rows again. A row is where the one above was, and what is not
// filled yet is still of that one.
class Rows {
 public:
  Rows(ChunkReader& input, const Bitmap& bitmap, bool is_second)
      : input_(&input),
        left_(bitmap.end - bitmap.at),
        in_runs_(bitmap.in_runs),
        is_second_(is_second) {}

  std::ptrdiff_t read(Row line) {
    if (!in_runs_) return read_plain(line);
    std::ptrdiff_t filled = 0;
    while (filled < std::ssize(line)) {
      if (again_ > 0) {
        --again_;
        if (is_first_) std::ranges::fill(line, std::uint8_t{0xFF});
        filled = std::ssize(line);
      } else if (count_ > 0) {
        filled += take(line.subspan(static_cast<std::size_t>(filled)));
      } else if (!(is_second_ ? next_second() : next_first())) {
        break;
      } else if (again_ > 0 && filled > 0) {
        // Rows do not come again in the middle of another: nothing behind it can be trusted.
        is_damaged_ = true;
        left_ = again_ = 0;
        break;
      }
    }
    is_first_ = false;
    return filled;
  }

  bool is_damaged() const { return is_damaged_; }
  bool is_unsupported() const { return is_unsupported_; }

 private:
  static constexpr int kMostCell = 8;

  int next_byte() { return left_-- > 0 ? input_->next() : -1; }
  // No code comes any more, whatever is behind this one.
  bool end() {
    left_ = 0;
    return false;
  }

  std::ptrdiff_t read_plain(Row line) {
    const auto most = std::clamp<std::int64_t>(left_, 0, std::ssize(line));
    left_ -= std::ssize(line);
    return static_cast<std::ptrdiff_t>(input_->read(line.first(static_cast<std::size_t>(most))));
  }

  // Bytes of a run, or of what stands for itself.
  std::ptrdiff_t take(Row line) {
    const std::ptrdiff_t here = std::min(count_, std::ssize(line));
    for (std::ptrdiff_t i = 0; i < here; ++i) {
      if (is_literal_) {
        const int value = next_byte();
        if (value < 0) {
          count_ = 0;
          left_ = 0;
          return i;
        }
        cell_[at_] = byte(value);
      }
      line[i] = cell_[at_];
      at_ = at_ + 1 < size_ ? at_ + 1 : 0;
    }
    count_ -= here;
    return here;
  }

  void begin(std::int64_t cells, bool literal) {
    count_ = static_cast<std::ptrdiff_t>(cells * size_);
    is_literal_ = literal;
    at_ = 0;
  }
  void begin_run(std::int64_t cells, int value) {
    cell_.fill(byte(value));
    begin(cells, false);
  }
  bool read_cell() {
    for (int i = 0; i < size_; ++i) {
      const int value = next_byte();
      if (value < 0) return false;
      cell_[i] = byte(value);
    }
    return true;
  }

  bool next_first() {
    const int code = next_byte();
    if (code < 0) return false;
    if (code > 0 && code < 0x80) {
      begin(code, true);
      return true;
    }
    const int value = next_byte();
    if (value < 0) return false;
    if (code == 0) {
      again_ = value;
    } else {
      begin_run(code == 0x80 ? value : code & 0x7F, code == 0x80 ? 0xFF : value);
    }
    return true;
  }

  bool next_second() {
    enum Code : int {
      kSize = 0x7D,
      kDifferences = 0x7E,
      kZeros = 0x7F,
      kLast = 0xFD,
      kAgain = 0xFE,
      kOnes = 0xFF
    };
    const int code = next_byte();
    if (code < 0) return false;
    if (code == kDifferences) {
      is_unsupported_ = true;
      return end();
    }
    if (code < kSize) {
      begin(code + 1, true);
      return true;
    }
    if (code > kZeros && code < kLast) {
      if (!read_cell()) return false;
      begin(code - kZeros, false);
      return true;
    }
    const int value = next_byte();
    if (value < 0) return false;
    if (code == kSize) {
      if (value < 1 || value > kMostCell) {
        is_damaged_ = true;
        return end();
      }
      size_ = value;
      return true;
    }
    if (code == kAgain) again_ = value + 1;
    if (code == kLast) begin(value + 1, false);
    if (code == kZeros || code == kOnes) begin_run(value + 1, code == kOnes ? 0xFF : 0);
    return true;
  }

  ChunkReader* input_;
  std::int64_t left_;  // bytes of the record
  bool in_runs_, is_second_;
  bool is_first_ = true, is_literal_ = false, is_damaged_ = false, is_unsupported_ = false;
  std::array<std::uint8_t, kMostCell> cell_{};
  int size_ = 1, at_ = 0;
  std::ptrdiff_t count_ = 0;  // bytes that come yet
  int again_ = 0;             // rows
};

const RowLayout* choose_layout(const Bitmap& bitmap, bool is_second, Colours& colours) {
  switch (bitmap.bits) {
    case 1:
      if (!is_second || !bitmap.has_colours) colours = grey_levels(1);
      return find_bit_layout(colours);
    case 2:
      if (!bitmap.has_colours) {
        colours = {rgb(0, 0, 0), rgb(0, 0xAA, 0xAA), rgb(0xAA, 0, 0xAA), rgb(0xAA, 0xAA, 0xAA)};
      }
      return find_layout(Layout::bits_2, 4);
    case 4:
      return find_layout(Layout::bits_4, 4);
    case 8:
      return find_layout(Layout::bytes, 8);
    default:
      return find_layout(Layout::rgb, 24);
  }
}

}  // namespace

Status decode_wpg(const formats::DecodeRequest& request) {
  Graphic graphic;
  TQ_TRY(graphic.open(request));
  const Bitmap& bitmap = graphic.bitmap();
  Colours colours = bitmap.colours;
  const RowLayout* const layout = choose_layout(bitmap, graphic.is_second(), colours);
  HeaderBlock image = dib_header(bitmap.width, bitmap.height, layout->bits);
  image.header.biXPelsPerMeter = bitmap.x_dpi;
  image.header.biYPelsPerMeter = bitmap.y_dpi;
  if (layout->bits == 1) colours = grey_levels(1);
  if (layout->bits <= 8) std::copy_n(colours.begin(), 1 << layout->bits, image.palette.begin());
  TQ_TRY(request.sink.header(image));
  TQ_TRY(seek_to(request.stream, bitmap.at));
  ChunkReader input;
  TQ_TRY(input.open(request.stream, read_chunk_bytes(bitmap.row_bytes())));
  Rows rows(input, bitmap, graphic.is_second());
  TQ_TRY(formats::deliver_rows({layout, bitmap.row_bytes()}, image.header, request.sink,
                               [&](Row line) {
                                 const std::ptrdiff_t there = rows.read(line);
                                 if (rows.is_damaged()) request.sink.damaged(StatusCode::bad_image);
                                 return there;
                               }));
  return rows.is_unsupported() ? StatusCode::unsupported : StatusCode::ok;
}

}  // namespace tq::wpg
