// PCX images: the 128-byte header, palettes in it and behind the pixels, and scan lines of one to
// four planes.
#include <algorithm>
#include <array>

#include "coding/byte_runs.h"
#include "core/context.h"
#include "formats/pcx/pcx.h"
#include "io/chunk_reader.h"
#include "io/endian.h"
#include "io/stream_window.h"
#include "pixels/colours.h"
#include "pixels/rows.h"

namespace tq::pcx {
namespace {

using pixels::Bytes;
using pixels::Layout;
using pixels::Row;

// --- Header ---

constexpr int kHeaderBytes = 128;

// What rows can be. Those of one plane are the library's but for their length.
struct Form {
  int bits, planes;  // bits of a pixel in each plane
  int pixel_bits;    // of the library
  std::optional<Layout> layout{};
};
constexpr Form kForms[] = {
    {1, 1, 1}, {1, 3, 4, Layout::bit_planes_3}, {1, 4, 4, Layout::bit_planes_4}, {4, 1, 4},
    {8, 1, 8}, {8, 3, 24, Layout::rgb_planes},
};
// Four colours.
constexpr Form kMoreForms[] = {{2, 1, 4, Layout::bits_2}, {1, 2, 4, Layout::bit_planes_2}};

struct Header {
  std::int32_t width = 0, height = 0;  // below 1 when the corners are the wrong way round
  const Form* form = nullptr;
  int bytes_per_line = 0;  // of one plane
  int line_bytes = 0;      // of all
  bool coded = true;       // in runs
  int version = 0;
  int x_dpi = 0, y_dpi = 0;
  bool grey = false;
  std::array<Rgb, 16> colours{};
};

Rgb load_colour(const std::uint8_t* p) {
  return {p[2], p[1], p[0], 0};
}

const Form* find_form(std::span<const Form> forms, int bits, int planes) {
  // Some writers name the depth of a pixel where that of a plane belongs.
  if (bits == 4 && planes == 4) bits = 1;
  if (bits == 16) bits = 4;
  for (const Form& form : forms) {
    if (form.bits == bits && form.planes == planes) return &form;
  }
  return nullptr;
}

// cannot_open when there are not 128 bytes; bad_image for lines of no bytes, which would never end;
// unsupported for a form that is not known.
Status read_header(StreamHandle stream, std::int32_t start, bool as_shown, Header& file) {
  // What lies behind the header must have a position.
  if (start > INT32_MAX - kHeaderBytes) return StatusCode::cannot_open;
  std::array<std::uint8_t, kHeaderBytes> bytes{};
  seek(stream, start, Origin::start);
  if (read_fully(stream, bytes) < kHeaderBytes) return StatusCode::cannot_open;
  const auto field = [&](int at) { return load_le16(&bytes[at]); };
  file.version = bytes[1];
  file.width = field(8) - field(4) + 1;
  file.height = field(10) - field(6) + 1;
  file.x_dpi = field(12);
  file.y_dpi = field(14);
  for (int i = 0; i < 16; ++i) file.colours[i] = load_colour(&bytes[16 + 3 * i]);
  const int planes = bytes[65];
  file.bytes_per_line = field(66);
  file.line_bytes = file.bytes_per_line * planes;
  file.grey = field(68) == 2;
  if (file.line_bytes == 0) return StatusCode::bad_image;
  file.form = find_form(kForms, bytes[3], planes);
  if (as_shown) {
    file.coded = bytes[2] != 0;
    if (file.form == nullptr) file.form = find_form(kMoreForms, bytes[3], planes);
  }
  return file.form != nullptr ? StatusCode::ok : StatusCode::unsupported;
}

// --- Scan lines ---

// Gathers the scan lines of a file one after the other. Runs may cross from one into the next.
class Lines {
 public:
  // The stream stands behind the header.
  Status open(StreamHandle stream, const Header& file) {
    const std::ptrdiff_t line_bytes = line_bytes_ = file.line_bytes;
    gather_ = file.coded ? &Lines::gather_runs : &Lines::gather_bytes;
    TQ_TRY(buffer_.allocate(line_bytes_ + coding::kMarkedRunRoom));
    const std::int64_t budget = context().settings.read_budget;
    return input_.open(stream, line_bytes > budget ? 4 * std::int64_t{line_bytes} : budget);
  }

  // The next scan line; `more` is false when there is none. What a cut-off line lacks is 0.
  // read_failed when there is not one byte of pixels, bad_image for a run that reaches more than a
  // whole line too far.
  Status next(Bytes& line, bool& more);
  bool is_short() const { return held_ < line_bytes_; }

  std::int64_t bytes_taken() const { return taken_; }

 private:
  Status gather_runs();
  Status gather_bytes();
  void skip(std::ptrdiff_t bytes) {
    input_.skip(bytes);
    taken_ += bytes;
  }

  ChunkReader input_;
  RowBuffer<std::uint8_t> buffer_;
  std::ptrdiff_t line_bytes_ = 0;
  Status (Lines::*gather_)() = nullptr;
  std::int64_t taken_ = 0;   // bytes of the file
  std::ptrdiff_t held_ = 0;  // bytes of the buffer in use
  bool lent_ = false;        // the caller still looks at the first line
  bool started_ = false;
  bool ended_ = false;
};

// How few coded bytes can fill so many of a line. Memory that does not say where it ends may end
// behind them.
std::ptrdiff_t fewest_coded(std::ptrdiff_t missing) {
  constexpr int kLongest = coding::kLongestMarkedRun;
  return 2 * (missing / kLongest) + std::min<std::ptrdiff_t>(missing % kLongest, 2);
}

Status Lines::gather_runs() {
  while (held_ < line_bytes_) {
    Bytes input = input_.peek_all(fewest_coded(line_bytes_ - held_));
    // The run's value.
    if (input.size() == 1 && input[0] >= coding::kRunMark) input = input_.peek_all(2);
    if (input.empty() && !started_) return StatusCode::read_failed;
    started_ = true;
    const auto [taken, put] = coding::expand_marked_runs(input, buffer_.pixels().subspan(held_));
    skip(taken);
    held_ += put;
    if (held_ > 2 * line_bytes_) return StatusCode::bad_image;
    ended_ = taken == 0;
    if (ended_) break;
  }
  return kOk;
}

Status Lines::gather_bytes() {
  const Bytes input = input_.peek(line_bytes_ - held_);
  if (input.empty() && !started_) return StatusCode::read_failed;
  started_ = true;
  std::copy(input.begin(), input.end(), buffer_.data() + held_);
  held_ += std::ssize(input);
  ended_ = held_ < line_bytes_;
  skip(std::ssize(input));
  return kOk;
}

Status Lines::next(Bytes& line, bool& more) {
  if (lent_) {
    held_ = std::max<std::ptrdiff_t>(held_ - line_bytes_, 0);
    std::copy_n(buffer_.data() + line_bytes_, held_, buffer_.data());
    lent_ = false;
  }
  if (held_ < line_bytes_ && !ended_) TQ_TRY((this->*gather_)());
  more = held_ > 0;
  if (held_ < line_bytes_)
    std::fill(buffer_.data() + held_, buffer_.data() + line_bytes_, std::uint8_t{0});
  lent_ = more;
  line = buffer_.pixels().first(line_bytes_);
  return kOk;
}

// From behind the header; `end` becomes the position behind the last scan line, where memory then
// stands. bad_image when they end early or run too far.
Status skip_rows(StreamHandle stream, std::int32_t start, const Header& file, std::int64_t& end) {
  end = std::int64_t{start} + kHeaderBytes;
  TQ_TRY(seek_to(stream, end));
  Lines lines;
  TQ_TRY(lines.open(stream, file));
  for (std::int32_t y = 0; y < file.height; ++y) {
    Bytes line;
    bool more = false;
    TQ_TRY(lines.next(line, more));
    if (!more) return StatusCode::bad_image;
  }
  end += lines.bytes_taken();
  return kOk;
}

// --- Palettes ---

constexpr int kPaletteBytes = 768;  // 256 entries of red, green, blue
constexpr int kPaletteMarker = 12;
using PaletteBytes = std::array<std::uint8_t, kPaletteBytes>;

constexpr Rgb kBlack{0, 0, 0, 0};
constexpr Rgb kWhite{255, 255, 255, 0};

template <class Colours>
void fill(const Colours& colours, HeaderBlock& image) {
  std::copy(colours.begin(), colours.end(), image.palette.begin());
}

// A two-entry colour map; black, white is what images have. Whether the bits have to be inverted.
bool normalise_two_colours(HeaderBlock& image) {
  const Rgb zero = image.palette[0], one = image.palette[1];
  const bool inverted = one == kBlack && zero != kBlack;
  const bool useless = zero == one && (zero == kBlack || zero == kWhite);
  if (inverted || useless) fill(pixels::black_and_white(), image);
  return inverted;
}

// Whether a small colour map says that the rows are inverted.
bool read_small_palette(const Header& file, HeaderBlock& image) {
  const int bits = file.form->pixel_bits;
  if (file.grey) {
    image.palette = pixels::grey_levels(bits);
  } else if (file.version == 0 || file.version == 3) {
    if (bits == 1) {
      fill(pixels::black_and_white(), image);
    } else {
      fill(pixels::sixteen_colours(), image);
    }
  } else {
    std::copy_n(file.colours.begin(), 1 << bits, image.palette.begin());
    return bits == 1 && normalise_two_colours(image);
  }
  return false;
}

// Behind the pixels, for memory whose end is unknown.
Status find_palette(StreamHandle stream, std::int32_t start, const Header& file) {
  std::int64_t end = 0;
  TQ_TRY(skip_rows(stream, start, file, end));
  std::array<std::uint8_t, 1> marker{};
  if (read(stream, marker) != 1 || marker[0] != kPaletteMarker) return StatusCode::bad_image;
  return kOk;
}

// The last 768 bytes before `end`, whatever stands before them; callers rely on nothing else.
bool read_palette_before(StreamHandle stream, std::int32_t end, PaletteBytes& bytes) {
  const std::int32_t from = end - kPaletteBytes;
  return from >= 0 && seek(stream, from, Origin::start) == from &&
         read_fully(stream, bytes) == kPaletteBytes;
}

bool read_palette_at_end(StreamHandle stream, std::int32_t start, const Header& file,
                         PaletteBytes& bytes) {
  if (!end_is_known(stream)) {
    if (find_palette(stream, start, file).failed()) return false;
  } else if (seek(stream, -kPaletteBytes, Origin::end) < 0) {
    return false;
  }
  return read_fully(stream, bytes) == kPaletteBytes;
}

void fill_large_palette(const PaletteBytes& bytes, HeaderBlock& image) {
  for (int i = 0; i < 256; ++i) image.palette[i] = load_colour(&bytes[3 * i]);
}

void read_large_palette(StreamHandle stream, const Extent& extent, const Header& file,
                        HeaderBlock& image) {
  PaletteBytes bytes{};
  const bool found = (extent.end && read_palette_before(stream, *extent.end, bytes)) ||
                     read_palette_at_end(stream, extent.start, file, bytes);
  if (!found) return fill(pixels::grey_ramp(), image);
  fill_large_palette(bytes, image);
}

// The first 4 or 16 colours of the header, unless they are all black.
void read_shown_small_palette(const Header& file, HeaderBlock& image) {
  constexpr std::array<Rgb, 4> kFourColours{Rgb{0, 0, 0, 0}, Rgb{255, 255, 0, 0},
                                            Rgb{255, 0, 255, 0}, Rgb{255, 255, 255, 0}};
  const int bits = file.form->bits * file.form->planes;
  if (bits == 1) return fill(pixels::black_and_white(), image);
  const auto colours = std::span(file.colours).first(bits == 2 ? 4 : 16);
  const bool any = std::ranges::any_of(colours, [](const Rgb& c) { return c != kBlack; });
  if (any) return fill(colours, image);
  return bits == 2 ? fill(kFourColours, image) : fill(pixels::sixteen_colours(), image);
}

// Finds the marked palette at the end of the image, or behind its pixels where more follows.
bool find_shown_palette(StreamHandle stream, const Extent& extent, const Header& file,
                        PaletteBytes& bytes) {
  if (!end_is_known(stream)) {
    return find_palette(stream, extent.start, file).ok() &&
           read_fully(stream, bytes) == kPaletteBytes;
  }
  const std::int64_t end = extent.end ? std::int64_t{*extent.end} : find_end(stream);
  const auto marks = [&](std::int64_t at) {
    std::array<std::uint8_t, 1> marker{};
    return seek_to(stream, at).ok() && read(stream, marker) == 1 && marker[0] == kPaletteMarker;
  };
  std::int64_t at = end - kPaletteBytes - 1;
  if (at >= extent.start + kHeaderBytes && marks(at)) {
    return read_fully(stream, bytes) == kPaletteBytes;
  }
  const std::int64_t last = at;
  if (skip_rows(stream, extent.start, file, at).failed() || seek_to(stream, at).failed())
    return false;
  ChunkReader input;
  if (input.open(stream, 4096).failed()) return false;
  for (; at <= last; ++at) {
    const int value = input.next();
    if (value < 0) break;
    if (value == kPaletteMarker) return input.read(bytes) == kPaletteBytes;
  }
  return false;
}

// As other programs see it.
void read_shown_palette(StreamHandle stream, const Extent& extent, const Header& file,
                        HeaderBlock& image) {
  const int bits = file.form->pixel_bits;
  if (bits < 8) return read_shown_small_palette(file, image);
  PaletteBytes bytes{};
  if (bits != 8) return;
  if (!find_shown_palette(stream, extent, file, bytes)) return fill(pixels::grey_ramp(), image);
  fill_large_palette(bytes, image);
}

// Whether the rows have to be inverted: the file's 0 is white.
bool read_palette(StreamHandle stream, const Extent& extent, const Header& file,
                  HeaderBlock& image) {
  const int bits = file.form->pixel_bits;
  if (bits < 8) return read_small_palette(file, image);
  if (bits == 8) read_large_palette(stream, extent, file, image);
  return false;
}

// --- Rows ---

Status decode_rows(const DecodeRequest& request, const Header& file, bool inverted) {
  const Form& form = *file.form;
  const auto* const layout =
      form.layout ? pixels::find_layout(*form.layout, form.pixel_bits) : nullptr;
  Lines lines;
  TQ_TRY(lines.open(request.stream, file));
  RowBuffer<std::uint8_t> row;
  TQ_TRY(row.allocate(row_bytes(file.width, form.pixel_bits)));
  // Of one plane. Pixels for which it has no bytes are 0; what it has beyond them comes along.
  const std::ptrdiff_t bytes =
      std::min<std::ptrdiff_t>(file.bytes_per_line, std::ssize(row.pixels()));
  for (std::int32_t y = 0; y < file.height; ++y) {
    Bytes line;
    bool more = false;
    TQ_TRY(lines.next(line, more));
    if (!more) return kOk;  // a file that is cut off keeps the rows it has
    if (lines.is_short()) request.sink.damaged(StatusCode::read_failed);
    if (layout != nullptr) {
      unpack(*layout, line, file.width, row.pixels());
    } else if (inverted) {
      pixels::invert(line.first(bytes), row.pixels());
    } else {
      std::copy_n(line.begin(), bytes, row.data());
    }
    TQ_TRY(request.sink.row(row.pixels(), y));
    if (request.sink.ends_at(y)) return kOk;
  }
  return kOk;
}

}  // namespace

Status decode_image(const DecodeRequest& request, const Extent& extent) {
  Header file;
  const bool as_shown = request.options.get(IMG_OPTION_READING) == 1;
  TQ_TRY(read_header(request.stream, extent.start, as_shown, file));
  HeaderBlock image = dib_header(file.width, file.height, file.form->pixel_bits);
  image.header.biXPelsPerMeter = file.x_dpi;
  image.header.biYPelsPerMeter = file.y_dpi;
  bool inverted = false;
  if (as_shown) {
    read_shown_palette(request.stream, extent, file, image);
  } else {
    inverted = read_palette(request.stream, extent, file, image);
  }

  seek(request.stream, extent.start + kHeaderBytes, Origin::start);
  TQ_TRY(request.sink.header(image));
  TQ_TRY(decode_rows(request, file, inverted));
  return Status::from_raw(1);  // and not 0; callers rely on it
}

Status decode_pcx(const DecodeRequest& request) {
  // There is one page; a page number means the image at the current position.
  const std::int32_t start = request.start();
  return decode_image(request, {.start = start});
}

}  // namespace tq::pcx
