// Walks through the commands, and draws bitmaps.
#include <algorithm>

#include "formats/jpeg/jpeg.h"
#include "formats/pict/pict.h"
#include "formats/pict/picture.h"
#include "formats/rows.h"
#include "pixels/colours.h"

namespace tq::pict {
namespace {

using formats::RowSink;
using pixels::Bytes;

// --- Commands that draw no bitmap ---

// What is behind an opcode: so many bytes, then a count and so many bytes more. The count of a
// region includes itself.
enum class Count : std::uint8_t { none, byte, word, long_word, region };
struct Length {
  int last;  // the opcodes up to this one
  int bytes;
  Count count = Count::none;
};
// clang-format off
constexpr Length kLengths[] = {
    {0x00, 0}, {0x01, 0, Count::region}, {0x02, 8}, {0x03, 2}, {0x04, 1}, {0x05, 2}, {0x07, 4},
    {0x08, 2}, {0x0A, 8}, {0x0C, 4}, {0x0D, 2}, {0x0F, 4}, {0x10, 8}, {0x11, 1}, {0x14, 0},
    {0x16, 2}, {0x19, 0}, {0x1B, 6}, {0x1C, 0}, {0x1D, 6}, {0x1E, 0}, {0x1F, 6}, {0x20, 8},
    {0x21, 4}, {0x22, 6}, {0x23, 2}, {0x27, 0, Count::word}, {0x28, 4, Count::byte},
    {0x2A, 1, Count::byte}, {0x2B, 2, Count::byte}, {0x2F, 0, Count::word}, {0x37, 8}, {0x3F, 0},
    {0x47, 8}, {0x4F, 0}, {0x57, 8}, {0x5F, 0}, {0x67, 12}, {0x6F, 4}, {0x77, 0, Count::region},
    {0x7F, 0}, {0x87, 0, Count::region}, {0x8F, 0}, {0x9F, 0, Count::word}, {0xA0, 2},
    {0xA1, 2, Count::word}, {0xAF, 0, Count::word}, {0xCF, 0}, {0xFF, 0, Count::long_word},
};
// clang-format on

void skip_region(Input& input) {
  input.skip(std::max(input.u16(), 2) - 2);
}

void skip_command(Input& input, int opcode) {
  if (opcode > 0xFF) {
    if (opcode < 0x8000) return input.skip(2 * (opcode >> 8));
    if (opcode >= 0x8100) input.skip(input.u32());
    return;
  }
  const Length& length = *std::ranges::lower_bound(kLengths, opcode, {}, &Length::last);
  input.skip(length.bytes);
  switch (length.count) {
    case Count::none:
      return;
    case Count::byte:
      return input.skip(input.u8());
    case Count::word:
      return input.skip(input.u16());
    case Count::long_word:
      return input.skip(input.u32());
    case Count::region:
      return skip_region(input);
  }
}

Status skip_pattern(Input& input) {
  enum Kind : int { kPixmap = 1, kDithered = 2 };
  const int kind = input.u16();
  input.skip(8);
  if (kind == kDithered) input.skip(6);
  if (kind != kPixmap) return kOk;
  Bitmap pattern;
  TQ_TRY(read_pixmap(input, false, true, pattern));
  if (pattern.has_counts) find_count_bytes(input, pattern);
  skip_rows(input, pattern);
  return kOk;
}

// --- Bitmaps ---

// All of it, where what is said cannot be: some writers put the rectangle in a wrong place.
void take_source(Bitmap& bitmap) {
  if (bitmap.source.is_empty() || !bitmap.bounds.holds(bitmap.source)) {
    bitmap.source = bitmap.bounds;
  }
}

Status read_bitmap(Input& input, int opcode, Bitmap& bitmap) {
  const bool direct = opcode == kDirectBitsRect || opcode == kDirectBitsRegion;
  const bool packed = opcode != kBitsRect && opcode != kBitsRegion;
  if (direct) input.skip(4);
  TQ_TRY(read_pixmap(input, direct, packed, bitmap));
  bitmap.source = Area::read(input);
  bitmap.destination = Area::read(input);
  take_source(bitmap);
  input.skip(2);  // how it is mixed with what is there
  if (opcode % 2 != 0) skip_region(input);
  bitmap.rows_at = input.position();
  if (bitmap.has_counts) find_count_bytes(input, bitmap);
  return input.ended() ? StatusCode::read_failed : StatusCode::ok;
}

// A compressed picture: where it goes, what may hide parts of it, and a description of what follows.
// unsupported for other codings than JPEG. Leaves the input behind all of it.
Status read_compressed(Input& input, Bitmap& bitmap) {
  constexpr std::uint32_t kJpeg = 0x6A706567;
  const std::int64_t length = input.u32(), end = input.position() + length;
  input.skip(2);
  std::array<std::int32_t, 9> matrix;  // 16.16; the last of each row is of no use here
  for (std::int32_t& element : matrix) element = static_cast<std::int32_t>(input.u32());
  const std::int64_t matte_bytes = input.u32();
  input.skip(8 + 2);
  bitmap.source = Area::read(input);
  input.skip(4);
  const std::int64_t mask_bytes = input.u32();
  if (matte_bytes != 0) input.skip(std::max<std::int64_t>(input.u32(), 4) - 4 + matte_bytes);
  input.skip(mask_bytes);
  const std::int64_t description = input.position();
  const std::int64_t description_bytes = input.u32();
  const std::uint32_t coding = input.u32();
  input.skip(24);
  bitmap.bounds.right = input.u16();
  bitmap.bounds.bottom = input.u16();
  const bool cut_off = input.ended();
  input.go_to(end);
  if (cut_off) return StatusCode::read_failed;
  if (coding != kJpeg) return StatusCode::unsupported;
  take_source(bitmap);
  const auto placed = [](int side, std::int32_t scale, std::int32_t offset) {
    return static_cast<int>(std::clamp<std::int64_t>((std::int64_t{side} * scale + offset) >> 16,
                                                     INT16_MIN, INT16_MAX));
  };
  const Area& from = bitmap.source;
  bitmap.destination = {
      placed(from.top, matrix[4], matrix[7]), placed(from.left, matrix[0], matrix[6]),
      placed(from.bottom, matrix[4], matrix[7]), placed(from.right, matrix[0], matrix[6])};
  bitmap.is_jpeg = true;
  bitmap.rows_at = description + description_bytes;
  return kOk;
}

// --- The picture ---

struct Picture {
  std::int64_t start = 0;     // of the commands
  std::int64_t commands = 0;  // behind the version
  bool old = false;           // the first version: opcodes are bytes
  Area canvas;
  std::int32_t x_dpi = 0, y_dpi = 0;
};

Status read_start(Input& input, Picture& picture) {
  picture.start = input.position();
  input.skip(2);
  picture.canvas = Area::read(input);
  const int version = input.u16();
  picture.old = version == 0x1101;
  if (!picture.old && (version != 0x0011 || input.u16() != 0x02FF)) {
    return input.ended() ? StatusCode::read_failed : StatusCode::bad_image;
  }
  picture.commands = input.position();
  return picture.canvas.is_empty() ? StatusCode::bad_image : StatusCode::ok;
}

// The resolution, and the frame in its dots.
void read_header(Input& input, Picture& picture) {
  constexpr int kExtended = -2;
  const std::int64_t end = input.position() + 24;
  const int version = input.i16();
  input.skip(2);
  const std::uint32_t x = input.u32(), y = input.u32();
  const Area frame = Area::read(input);
  if (version == kExtended && !input.ended()) {
    picture.x_dpi = formats::dots_of_fixed(x);
    picture.y_dpi = formats::dots_of_fixed(y);
    if (!frame.is_empty()) picture.canvas = frame;
  }
  input.go_to(end);
}

// Calls `draw(bitmap)` for all bitmaps. The commands behind one that cannot be are not known.
template <class Draw>
Status walk(Input& input, Picture& picture, Draw&& draw) {
  Area compressed;  // a bitmap on this stands in for it where it cannot be shown
  input.go_to(picture.commands);
  while (!input.ended()) {
    if (!picture.old) input.skip((input.position() - picture.start) % 2);
    const int opcode = picture.old ? input.u8() : input.u16();
    if (input.ended() || opcode == kEnd) break;
    Bitmap bitmap;
    switch (opcode) {
      case kBitsRect:
      case kBitsRegion:
      case kPackedBitsRect:
      case kPackedBitsRegion:
      case kDirectBitsRect:
      case kDirectBitsRegion:
        TQ_TRY(read_bitmap(input, opcode, bitmap));
        if (!compressed.holds(bitmap.destination)) TQ_TRY(draw(bitmap));
        input.go_to(bitmap.rows_at);
        skip_rows(input, bitmap);
        break;
      case kCompressed: {
        const Status read = read_compressed(input, bitmap);
        if (read == StatusCode::unsupported) break;
        TQ_TRY(read);
        compressed = bitmap.destination;
        const std::int64_t next = input.position();
        TQ_TRY(draw(bitmap));
        input.go_to(next);
        break;
      }
      case kPatterns:
      case kPatterns + 1:
      case kPatterns + 2:
        TQ_TRY(skip_pattern(input));
        break;
      case kHeader:
        read_header(input, picture);
        break;
      default:
        skip_command(input, opcode);
        break;
    }
  }
  return kOk;
}

// --- One bitmap ---

bool is_whole(const Bitmap& bitmap, const Picture& picture) {
  return bitmap.destination == picture.canvas && bitmap.source == bitmap.bounds &&
         bitmap.bounds.width() == picture.canvas.width() &&
         bitmap.bounds.height() == picture.canvas.height();
}

Status decode_jpeg(const Bitmap& bitmap, const formats::DecodeRequest& request,
                   const RowSink& sink) {
  if (bitmap.rows_at > INT32_MAX) return StatusCode::read_failed;
  formats::DecodeRequest inner{.stream = request.stream,
                               .offset = static_cast<std::int32_t>(bitmap.rows_at),
                               .sink = sink,
                               .options = request.options};
  inner.options.set(IMG_OPTION_ORIENTATION, 0);  // pictures are drawn as they are stored
  return jpeg::decode_jpeg(inner);
}

HeaderBlock header_of(const Bitmap& bitmap) {
  const int bits = bitmap.layout()->bits;
  HeaderBlock image = dib_header(bitmap.bounds.width(), bitmap.bounds.height(), bits);
  if (bits == 1) image.palette = pixels::grey_levels(1);
  if (bits == 4 || bits == 8) image.palette = bitmap.colours;
  return image;
}

// Rows of the image's depth.
Status deliver(Input& input, const Bitmap& bitmap, const BitmapInfoHeader& header,
               const RowSink& sink) {
  BitmapRows rows;
  TQ_TRY(rows.open(input, bitmap));
  RowBuffer<std::uint8_t> row;
  TQ_TRY(row.allocate(row_bytes(header.biWidth, header.biBitCount)));
  for (std::int32_t y = 0; y < header.biHeight; ++y) {
    const Bytes stored = rows.next();
    if (stored.empty()) break;
    if (input.ended()) sink.damaged(StatusCode::read_failed);
    unpack(*bitmap.layout(), stored, header.biWidth, row.pixels());
    TQ_TRY(sink.row(row.pixels(), y));
  }
  return kOk;
}

// --- Several ---

// A few bytes can claim any canvas, and draw on all of it any number of times.
constexpr std::int64_t kLargestCanvas = std::int64_t{1} << 26;  // pixels
constexpr std::int64_t kMostWork = std::int64_t{1} << 27;       // pixels

// Bitmaps on white, in 24 bits.
class Canvas {
 public:
  Status open(const Area& area) {
    area_ = area;
    stride_ = row_bytes(area.width(), 24);
    TQ_TRY(pixels_.allocate(stride_ * area.height()));
    std::ranges::fill(pixels_.bytes(), std::uint8_t{255});
    return kOk;
  }

  // Where the rows of the next bitmap go, whose header and rows come to the sink. Those that are too
  // many are left out.
  void begin(const Bitmap& bitmap) { bitmap_ = bitmap; }
  RowSink sink() { return {on_header, on_row, this, &notes_}; }
  formats::DecodeNotes& notes() { return notes_; }  // of the bitmap that comes to it

  Status deliver(const RowSink& sink) {
    if (notes_.damage != StatusCode::ok) sink.damaged(notes_.damage);
    for (std::int32_t y = 0; y < area_.height(); ++y) {
      // What pads a row is 0.
      const pixels::Row row = row_at(y);
      std::fill(row.begin() + 3 * std::ptrdiff_t{area_.width()}, row.end(), std::uint8_t{0});
      TQ_TRY(sink.row(row, y));
    }
    return kOk;
  }

 private:
  static std::int32_t IMG_CB_C on_header(void* block, void* context) {
    return static_cast<Canvas*>(context)->start(*static_cast<HeaderBlock*>(block)).raw();
  }
  static std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y,
                                      std::int32_t bytes) {
    const auto* first = static_cast<const std::uint8_t*>(row);
    return static_cast<Canvas*>(context)->draw({first, static_cast<std::size_t>(bytes)}, y).raw();
  }

  Status start(const HeaderBlock& image) {
    image_ = image;
    format_ = {.width = image.header.biWidth,
               .bits = image.header.biBitCount,
               .cmyk = image.header.biCompression == 0,
               .palette = image_.palette};
    source_ = bitmap_.source;
    const Area& bounds = bitmap_.bounds;
    if (bounds.width() != format_.width || bounds.height() != image.header.biHeight) {
      source_ = {bounds.top, bounds.left, bounds.top + image.header.biHeight,
                 bounds.left + format_.width};
    }
    // What it takes to decode it, too.
    work_ += std::int64_t{format_.width} * image.header.biHeight;
    if (work_ > kMostWork) return StatusCode::stop_after_header;
    TQ_TRY(colours_.allocate(format_.width));
    TQ_TRY(row_.allocate(row_bytes(format_.width, 24)));
    TQ_TRY(part_.allocate(row_bytes(source_.width(), 24)));
    return scaled_.allocate(row_bytes(bitmap_.destination.width(), 24));
  }

  // The row of a bitmap in all rows of the canvas that are nearest to it.
  Status draw(Bytes row, std::int32_t y) {
    const Area& to = bitmap_.destination;
    const std::int64_t line = y - (source_.top - bitmap_.bounds.top);
    const std::int64_t lines = source_.height();
    if (line < 0 || line >= lines) return kOk;
    const auto first_of = [&](std::int64_t from) {
      return static_cast<int>((from * to.height() + lines - 1) / lines) + to.top;
    };
    const int first = std::max(first_of(line), area_.top);
    const int behind = std::min(first_of(line + 1), area_.bottom);
    const int left = std::max(to.left, area_.left), right = std::min(to.right, area_.right);
    if (first >= behind || left >= right) return kOk;
    work_ += to.width() + std::int64_t{behind - first} * (right - left);
    if (work_ > kMostWork) return StatusCode::stop_after_header;
    row_to_colours(row, format_, colours_.pixels());
    const Bytes four(reinterpret_cast<const std::uint8_t*>(colours_.data()),
                     4 * colours_.pixels().size());
    pack(*find_layout(pixels::Layout::bgr, 32), four, format_.width, row_.pixels());
    pixels::cut_row(row_.pixels(), format_.width, 24, source_.left - bitmap_.bounds.left,
                    part_.pixels(), source_.width());
    pixels::scale_row(part_.pixels(), source_.width(), 24, scaled_.pixels(), to.width());
    const Bytes visible = Bytes(scaled_.pixels()).subspan(3 * (left - to.left), 3 * (right - left));
    for (int i = first; i < behind; ++i) {
      std::ranges::copy(visible, row_at(i - area_.top).begin() + 3 * (left - area_.left));
    }
    return kOk;
  }

  pixels::Row row_at(std::int64_t y) {
    return pixels_.bytes().subspan(static_cast<std::size_t>(y * stride_),
                                   static_cast<std::size_t>(stride_));
  }

  Area area_;
  std::int64_t stride_ = 0;
  GlobalBlock pixels_;
  Bitmap bitmap_;
  HeaderBlock image_;
  pixels::RowFormat format_;
  Area source_;
  RowBuffer<Rgb> colours_;
  RowBuffer<std::uint8_t> row_, part_, scaled_;
  std::int64_t work_ = 0;
  formats::DecodeNotes notes_;
};

Status draw_all(const formats::DecodeRequest& request, Input& input, Picture& picture) {
  const Area area = picture.canvas;
  if (std::int64_t{area.width()} * area.height() > kLargestCanvas) return StatusCode::unsupported;
  HeaderBlock image = dib_header(area.width(), area.height(), 24);
  image.header.biXPelsPerMeter = picture.x_dpi;
  image.header.biYPelsPerMeter = picture.y_dpi;
  TQ_TRY(request.sink.header(image));
  Canvas canvas;
  TQ_TRY(canvas.open(area));
  const Status drawn = walk(input, picture, [&](const Bitmap& bitmap) -> Status {
    if (bitmap.destination.is_empty()) return kOk;
    canvas.begin(bitmap);
    if (bitmap.is_jpeg) {
      const Status decoded = decode_jpeg(bitmap, request, canvas.sink());
      if (decoded == StatusCode::out_of_memory) return decoded;
      if (decoded.failed()) canvas.notes().damaged(StatusCode::bad_image);
      canvas.notes().end();
      return kOk;
    }
    HeaderBlock header = header_of(bitmap);
    TQ_TRY(canvas.sink().header(header));
    TQ_TRY(deliver(input, bitmap, header.header, canvas.sink()));
    canvas.notes().end();
    return kOk;
  });
  if (drawn == StatusCode::out_of_memory) return drawn;
  if (drawn.failed()) canvas.notes().damaged(StatusCode::bad_image);
  return canvas.deliver(request.sink);
}

}  // namespace

Status decode_pict(const formats::DecodeRequest& request) {
  Input input;
  TQ_TRY(input.open(request.stream));
  const std::int64_t start = request.start();
  input.go_to(start + kFileHeaderBytes);
  Picture picture;
  Status begun = read_start(input, picture);
  if (begun.failed() && request.options.get(IMG_OPTION_DETECTION) == 1) {
    input.go_to(start);  // what other programs keep in memory has no file header
    begun = read_start(input, picture);
  }
  TQ_TRY(begun);
  int bitmaps = 0;
  Bitmap only;
  const Status walked = walk(input, picture, [&](const Bitmap& bitmap) {
    if (bitmaps++ == 0) only = bitmap;
    return kOk;
  });
  if (bitmaps == 0) return walked.failed() ? walked : StatusCode::unsupported;
  if (bitmaps > 1 || !is_whole(only, picture)) return draw_all(request, input, picture);
  if (only.is_jpeg) return decode_jpeg(only, request, request.sink);
  HeaderBlock image = header_of(only);
  const bool own = only.x_dpi != 0 && only.y_dpi != 0;
  image.header.biXPelsPerMeter = own ? only.x_dpi : picture.x_dpi;
  image.header.biYPelsPerMeter = own ? only.y_dpi : picture.y_dpi;
  TQ_TRY(request.sink.header(image));
  return deliver(input, only, image.header, request.sink);
}

}  // namespace tq::pict
