// Netpbm's bitmaps, grey maps and pixmaps as pbm(5), pgm(5) and ppm(5) describe them: numbers in text,
// then rows in text (P1 to P3) or in bytes (P4 to P6). Of those in bytes a file may hold several.
#include "formats/rows.h"
#include "formats/simple/simple.h"
#include "io/chunk_reader.h"
#include "pixels/colours.h"
#include "platform/text.h"

namespace tq::simple {
namespace {

using formats::DecodeRequest;
using formats::EncodeRequest;
using pixels::Layout;
using pixels::Row;

constexpr int kDeepest = 65535, kLargestByte = 255;
constexpr std::int64_t kChunk = 32768;

constexpr bool is_space(int character) {
  return character == ' ' || (character >= '\t' && character <= '\r');
}

// A comment counts as the end of its line. Below 0 at the end.
int next_character(ChunkReader& input) {
  int character = input.next();
  if (character != '#') return character;
  while (character >= 0 && character != '\n' && character != '\r') character = input.next();
  return character;
}

int skip_spaces(ChunkReader& input) {
  int character = next_character(input);
  while (is_space(character)) character = next_character(input);
  return character;
}

// And takes the one character behind it, from which on rows may be bytes.
Status read_number(ChunkReader& input, std::int32_t& number) {
  int character = skip_spaces(input);
  if (character < 0) return StatusCode::read_failed;
  std::int64_t value = 0;
  if (character < '0' || character > '9') return StatusCode::bad_image;
  for (; character >= '0' && character <= '9'; character = next_character(input)) {
    value = std::min<std::int64_t>(10 * value + character - '0', INT32_MAX);
  }
  number = static_cast<std::int32_t>(value);
  return kOk;
}

struct Form {
  bool in_text = false;
  int samples = 1;      // of a pixel
  int most = 1;         // that a sample may be; 1 is black in pictures of 1 bit
  bool is_bits = true;  // 1 of a pixel
  std::int32_t width = 0, height = 0;

  int bits() const { return is_bits ? 1 : 8 * samples; }
  int sample_bytes() const { return most > kLargestByte ? 2 : 1; }
  std::int64_t line_bytes() const {
    const std::int64_t line = std::int64_t{width} * samples;
    return is_bits ? (line + 7) / 8 : line * sample_bytes();
  }
  // Of samples of a byte each, as they are once they have been read.
  formats::StoredRows rows() const {
    const Layout layout = is_bits        ? Layout::bits_1_black
                          : samples == 1 ? Layout::bytes
                                         : Layout::rgb;
    return {pixels::find_layout(layout, bits()), line_bytes() / sample_bytes()};
  }
};

Status read_header(ChunkReader& input, Form& form) {
  const int mark = input.next(), kind = input.next();
  if (kind < 0) return StatusCode::read_failed;
  if (mark != 'P' || kind < '1' || kind > '6') return StatusCode::bad_image;
  form = {.in_text = kind <= '3',
          .samples = kind == '3' || kind == '6' ? 3 : 1,
          .is_bits = kind == '1' || kind == '4'};
  TQ_TRY(read_number(input, form.width));
  TQ_TRY(read_number(input, form.height));
  if (!form.is_bits) TQ_TRY(read_number(input, form.most));
  const bool usable = form.width > 0 && form.height > 0 && form.most >= 1 && form.most <= kDeepest;
  return usable ? StatusCode::ok : StatusCode::bad_image;
}

// Whether there was so much.
bool skip(ChunkReader& input, std::int64_t bytes) {
  while (bytes > 0) {
    const std::ptrdiff_t there = std::ssize(input.peek_all(1));
    if (there == 0) return false;
    const auto here = static_cast<std::size_t>(std::min<std::int64_t>(bytes, there));
    input.skip(here);
    bytes -= static_cast<std::int64_t>(here);
  }
  return true;
}

// From the end of a header to the next one: false where there is none. Some writers end a picture with
// a line feed.
bool skip_picture(ChunkReader& input, const Form& form) {
  if (form.in_text || !skip(input, form.line_bytes() * form.height)) return false;
  for (;;) {
    const auto next = input.peek(1);
    if (next.empty()) return false;
    if (!is_space(next[0])) return next[0] == 'P';
    input.skip(1);
  }
}

// The samples of a picture, row by row, as bytes.
class SampleReader {
 public:
  SampleReader(ChunkReader& input, const Form& form, const formats::RowSink& sink)
      : input_(&input), form_(form), sink_(&sink) {}

  Status open() { return form_.sample_bytes() == 1 ? kOk : deep_.allocate(form_.line_bytes()); }

  // How many bytes of a line there were.
  std::ptrdiff_t read(Row line) {
    ++lines_;
    if (form_.in_text) return form_.is_bits ? read_bits(line) : read_numbers(line);
    if (form_.sample_bytes() == 2) return read_deep(line);
    const auto there = static_cast<std::ptrdiff_t>(input_->read(line));
    if (form_.most == kLargestByte || form_.is_bits) return there;
    for (std::ptrdiff_t i = 0; i < there; ++i) line[i] = level(line[i]);
    return there;
  }

 private:
  std::uint8_t level(std::int32_t sample) const {
    return byte((std::min(sample, form_.most) * kLargestByte + form_.most / 2) / form_.most);
  }

  std::ptrdiff_t read_deep(Row line) {
    const auto there = static_cast<std::ptrdiff_t>(input_->read(deep_.pixels())) / 2;
    for (std::ptrdiff_t i = 0; i < there; ++i) {
      line[i] = level(deep_[2 * i] << 8 | deep_[2 * i + 1]);
    }
    return there;
  }

  std::ptrdiff_t read_numbers(Row line) {
    for (std::ptrdiff_t i = 0; i < std::ssize(line); ++i) {
      std::int32_t sample = 0;
      const Status read =
          has_ended_ ? Status(StatusCode::read_failed) : read_number(*input_, sample);
      if (read.failed()) return end(read, i);
      line[i] = level(sample);
    }
    // The last number that is there may not be all of it.
    if (lines_ < form_.height && input_->peek(1).empty()) sink_->damaged(StatusCode::read_failed);
    return std::ssize(line);
  }

  // Digits need nothing between them.
  std::ptrdiff_t read_bits(Row line) {
    std::ranges::fill(line, std::uint8_t{0});
    for (std::int32_t x = 0; x < form_.width; ++x) {
      const int digit = has_ended_ ? -1 : skip_spaces(*input_);
      if (digit != '0' && digit != '1') {
        return end(digit < 0 ? StatusCode::read_failed : StatusCode::bad_image, (x + 7) / 8);
      }
      if (digit == '1') line[x / 8] |= byte(128 >> x % 8);
    }
    return std::ssize(line);
  }

  // Behind what makes no sense nothing does.
  std::ptrdiff_t end(Status reason, std::ptrdiff_t there) {
    if (!has_ended_ && reason == StatusCode::bad_image) sink_->damaged(StatusCode::bad_image);
    has_ended_ = true;
    return there;
  }

  ChunkReader* input_;
  Form form_;
  const formats::RowSink* sink_;
  bool has_ended_ = false;
  std::int32_t lines_ = 0;  // that were asked for
  RowBuffer<std::uint8_t> deep_;
};

// --- Writing ---

// Levels or colours of a row, as it leaves.
struct SavedRows {
  char kind = '6';
  bool levels_of_palette = false, colours_of_palette = false;
  formats::StoredRows stored{};
};

SavedRows saved_rows(const HeaderBlock& image) {
  const int bits = image.header.biBitCount;
  const std::int64_t width = image.header.biWidth;
  if (bits == 1) {
    return {.kind = '4', .stored = {pixels::find_black_layout(image.palette), (width + 7) / 8}};
  }
  if (bits > 8) return {.stored = {pixels::find_layout(Layout::rgb, bits), 3 * width}};
  const auto colours = std::span(image.palette).first(std::size_t{1} << bits);
  const bool greys =
      std::ranges::all_of(colours, [](Rgb c) { return c.red == c.green && c.red == c.blue; });
  if (greys) {
    return {.kind = '5',
            .levels_of_palette = true,
            .stored = {pixels::find_layout(Layout::bytes, 8), width}};
  }
  return {.colours_of_palette = true, .stored = {pixels::find_layout(Layout::rgb, 32), 3 * width}};
}

Status write_rows(const EncodeRequest& request, const SavedRows& saved, StreamWriter& out) {
  const HeaderBlock& image = *request.image;
  const std::int32_t width = image.header.biWidth;
  const int bits = image.header.biBitCount;
  RowBuffer<std::uint8_t> row, levels, line;
  RowBuffer<Rgb> colours;
  TQ_TRY(row.allocate(row_bytes(width, bits)));
  TQ_TRY(line.allocate(saved.stored.line_bytes));
  if (saved.levels_of_palette) TQ_TRY(levels.allocate(row_bytes(width, 8)));
  if (saved.colours_of_palette) TQ_TRY(colours.allocate(width));
  for (std::int32_t y = 0; y < image.header.biHeight; ++y) {
    TQ_TRY(request.rows.row(row.pixels(), y));
    pixels::Bytes from = row.pixels();
    if (saved.levels_of_palette) {
      pixels::for_each_index(row.data(), bits, width,
                             [&](int x, int i) { levels[x] = image.palette[i].red; });
      from = levels.pixels();
    }
    if (saved.colours_of_palette) {
      pixels::row_to_colours(row.pixels(), {.width = width, .bits = bits, .palette = image.palette},
                             colours.pixels());
      from = {reinterpret_cast<const std::uint8_t*>(colours.data()), 4 * colours.size()};
    }
    pixels::pack(*saved.stored.layout, from, width, line.pixels());
    out.put(line.pixels());
    TQ_TRY(out.status());
  }
  return out.flush();
}

}  // namespace

Status decode_pnm(const DecodeRequest& request) {
  TQ_TRY(request.seek_to_start());
  ChunkReader input;
  TQ_TRY(input.open(request.stream, kChunk));
  Form form;
  TQ_TRY(read_header(input, form));
  for (std::int32_t page = std::max(request.page, 0); page > 0; --page) {
    if (!skip_picture(input, form) || read_header(input, form).failed()) {
      return StatusCode::page_past_end;
    }
  }
  HeaderBlock image = dib_header(form.width, form.height, form.bits());
  if (form.bits() <= 8) image.palette = pixels::grey_levels(form.bits());
  TQ_TRY(request.sink.header(image));
  SampleReader samples(input, form, request.sink);
  TQ_TRY(samples.open());
  return formats::deliver_rows(form.rows(), image.header, request.sink,
                               [&](Row line) { return samples.read(line); });
}

// Where memory does not say where it ends, nothing is looked for behind the first picture.
Status count_pnm_pages(StreamHandle stream) {
  ChunkReader input;
  TQ_TRY(input.open(stream, kChunk));
  Form form;
  TQ_TRY(read_header(input, form));
  std::int32_t pages = 1;
  if (!end_is_known(stream)) return Status::from_raw(pages);
  while (pages < INT32_MAX && skip_picture(input, form) && read_header(input, form).ok()) ++pages;
  return Status::from_raw(pages);
}

Status can_encode_pnm(const EncodeRequest& request) {
  return formats::check_plain(request, INT32_MAX);
}

Status encode_pnm(const EncodeRequest& request) {
  TQ_TRY(can_encode_pnm(request));
  const SavedRows saved = saved_rows(*request.image);
  StreamWriter out;
  TQ_TRY(out.open(request.stream));
  const BitmapInfoHeader& header = request.image->header;
  char text[48];
  platform::print_text(text, "P%c\n%d %d\n%s", saved.kind, int{header.biWidth},
                       int{header.biHeight}, saved.kind == '4' ? "" : "255\n");
  out.put(std::string_view(text));
  return write_rows(request, saved, out);
}

}  // namespace tq::simple
