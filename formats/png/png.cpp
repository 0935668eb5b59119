// PNG images to rows: what depth they come in, and what happens to each row. And back: grey where
// the palette is a grey ramp, else indexed, else of colours.
#include "formats/png/png.h"

#include <algorithm>

#include "core/numbers.h"
#include "formats/png/library.h"
#include "io/endian.h"
#include "pixels/colours.h"

namespace tq::png {
namespace {

using formats::DecodeRequest;
using formats::EncodeRequest;

// --- Reading ---

using Bytes = std::span<const std::uint8_t>;
using Row = std::span<std::uint8_t>;

enum class RowKind {
  as_they_are,
  inverted,       // 1 bit, white comes first in the file
  widened,        // 1 or 2 bits to 4
  grey_on_white,  // 8 bits and alpha
  colours_on_white,
  grey16_on_white,  // one level is transparent
};

struct PngImage {
  PngHeader file;
  HeaderBlock image;
  RowKind rows = RowKind::as_they_are;
  PngReader::RowForm form;
};

std::int32_t dots_per_inch(std::uint32_t per_metre) {
  const std::uint64_t dots = (std::uint64_t{per_metre} * 254 + 5000) / 10000;
  return static_cast<std::int32_t>(std::min<std::uint64_t>(dots, INT32_MAX));
}

std::uint8_t on_white(int level, int alpha) {
  return byte((level * alpha + 255 * (255 - alpha) + 127) / 255);
}

bool is_level(const PngColour& colour, int level) {
  return colour.red == level && colour.green == level && colour.blue == level;
}

// The only entry that is not fully opaque, if it is fully transparent; -1 if there is no such one.
int single_transparent_entry(const PngHeader& file) {
  int found = -1;
  for (int i = 0; i < file.entries; ++i) {
    const int alpha = file.palette[i].alpha;
    if (alpha == 255) continue;
    if (alpha != 0 || found >= 0) return -1;
    found = i;
  }
  return found;
}

void mark_transparent(int index, HeaderBlock& image) {
  image.header.biClrUsed = kTransparent | index;
}

int image_bits(int sample_bits) {
  return sample_bits == 2 ? 4 : sample_bits;
}

void choose_indexed(PngImage& png) {
  const PngHeader& file = png.file;
  int transparent = single_transparent_entry(file);
  const bool two = file.bits == 1 && file.entries == 2;
  const bool black_white = two && is_level(file.palette[0], 0) && is_level(file.palette[1], 255);
  const bool white_black = two && is_level(file.palette[0], 255) && is_level(file.palette[1], 0);
  if (white_black) {
    png.rows = RowKind::inverted;
    if (transparent >= 0) transparent ^= 1;
  } else if (file.bits <= 2 && !black_white) {
    png.rows = RowKind::widened;  // an image of 1 bit is black and white
  }
  const int bits = png.rows == RowKind::widened ? 4 : file.bits;
  png.image = dib_header(file.width, file.height, bits);
  for (int i = 0; i < file.entries; ++i) {
    const PngColour& entry = file.palette[i];
    const int alpha = transparent >= 0 ? 255 : entry.alpha;
    png.image.palette[i] = {on_white(entry.blue, alpha), on_white(entry.green, alpha),
                            on_white(entry.red, alpha), 0};
  }
  if (white_black) std::swap(png.image.palette[0], png.image.palette[1]);
  if (transparent >= 0) mark_transparent(transparent, png.image);
}

void choose_grey(PngImage& png) {
  const PngHeader& file = png.file;
  if (file.alpha) {
    png.rows = RowKind::grey_on_white;
    png.form = {.to_8_bits = true, .with_alpha = true};
  } else if (file.bits == 2) {
    png.rows = RowKind::widened;
  } else if (file.bits == 16 && file.transparent_level >= 0) {
    png.rows = RowKind::grey16_on_white;
  }
  png.image = dib_header(file.width, file.height, file.alpha ? 8 : image_bits(file.bits));
  const int last = file.bits >= 8 ? 255 : (1 << file.bits) - 1;
  for (int i = 0; i <= last; ++i) png.image.palette[i] = pixels::grey_ramp()[i * 255 / last];
  if (!file.alpha && file.bits <= 8 && file.transparent_level >= 0) {
    mark_transparent(file.transparent_level & last, png.image);
  }
}

void choose_colours(PngImage& png) {
  const bool transparent = png.file.alpha || png.file.transparent_colour;
  if (transparent) png.rows = RowKind::colours_on_white;
  png.form = {.to_8_bits = true, .with_alpha = transparent};
  png.image = dib_header(png.file.width, png.file.height, 24);
}

void choose(PngImage& png) {
  if (png.file.indexed) {
    choose_indexed(png);
  } else if (png.file.colour) {
    choose_colours(png);
  } else {
    choose_grey(png);
  }
  png.image.header.biXPelsPerMeter = dots_per_inch(png.file.x_per_metre);
  png.image.header.biYPelsPerMeter = dots_per_inch(png.file.y_per_metre);
}

// Pixels of `bits` bits, 1 or 2, to 4.
void widen(Bytes stored, std::int32_t width, int bits, Row row) {
  const int mask = (1 << bits) - 1;
  std::fill(row.begin(), row.end(), std::uint8_t{0});
  for (std::int32_t x = 0; x < width; ++x) {
    const std::size_t pixels_before = x;
    const std::size_t bit = pixels_before * bits;
    const int pixel = stored[bit / 8] >> (8 - bits - bit % 8) & mask;
    row[x / 2] |= byte(x % 2 == 0 ? pixel << 4 : pixel);
  }
}

// `count` samples of 8 bits before each alpha byte.
void lay_on_white(Bytes stored, std::int32_t width, int count, Row row) {
  const std::uint8_t* from = stored.data();
  std::uint8_t* to = row.data();
  for (std::int32_t x = 0; x < width; ++x, from += count + 1) {
    for (int i = 0; i < count; ++i) *to++ = on_white(from[i], from[count]);
  }
}

void whiten_level(Bytes stored, std::int32_t width, int level, Row row) {
  for (std::int32_t x = 0; x < width; ++x) {
    const std::uint16_t sample = load_le16(&stored[2 * x]);
    store_le16(&row[2 * x], sample == level ? std::uint16_t{0xFFFF} : sample);
  }
}

void convert(const PngImage& png, Bytes stored, Row row) {
  const std::int32_t width = png.file.width;
  switch (png.rows) {
    case RowKind::as_they_are:
      std::copy_n(stored.begin(), std::min(stored.size(), row.size()), row.begin());
      break;
    case RowKind::inverted:
      std::transform(stored.begin(), stored.end(), row.begin(),
                     [](std::uint8_t bits) { return byte(~bits); });
      break;
    case RowKind::widened:
      widen(stored, width, png.file.bits, row);
      break;
    case RowKind::grey_on_white:
      lay_on_white(stored, width, 1, row);
      break;
    case RowKind::colours_on_white:
      lay_on_white(stored, width, 3, row);
      break;
    case RowKind::grey16_on_white:
      whiten_level(stored, width, png.file.transparent_level, row);
      break;
  }
}

Status decode_rows(const DecodeRequest& request, const PngImage& png, PngReader& reader,
                   std::int64_t stored_bytes) {
  const BitmapInfoHeader& header = png.image.header;
  RowBuffer<std::uint8_t> stored, row;
  TQ_TRY(stored.allocate(stored_bytes));
  TQ_TRY(row.allocate(row_bytes(header.biWidth, header.biBitCount)));
  for (std::int32_t y = 0; y < header.biHeight; ++y) {
    const Status read = reader.read_row(stored.data());
    if (read == StatusCode::read_failed) return kOk;  // a file that is cut off keeps its rows
    TQ_TRY(read);
    convert(png, stored.pixels(), row.pixels());
    TQ_TRY(request.sink.row(row.pixels(), y));
  }
  return kOk;
}

// Every pass adds pixels to all rows, so the whole picture is held until the last one.
Status decode_interlaced(const DecodeRequest& request, const PngImage& png, PngReader& reader,
                         std::int64_t stored_bytes) {
  const BitmapInfoHeader& header = png.image.header;
  if (stored_bytes > std::int64_t{kLargestBlock} / header.biHeight) {
    return StatusCode::out_of_memory;
  }
  const auto step = static_cast<std::ptrdiff_t>(stored_bytes);
  RowBuffer<std::uint8_t> stored, row;
  TQ_TRY(stored.allocate(stored_bytes * header.biHeight));
  TQ_TRY(row.allocate(row_bytes(header.biWidth, header.biBitCount)));
  Status read = kOk;
  for (int pass = 0; pass < reader.passes() && read.ok(); ++pass) {
    for (std::int32_t y = 0; y < header.biHeight && read.ok(); ++y) {
      read = reader.read_row(stored.data() + y * step);
    }
  }
  if (read != StatusCode::read_failed) TQ_TRY(read);
  for (std::int32_t y = 0; y < header.biHeight; ++y) {
    convert(png, stored.pixels().subspan(y * step, step), row.pixels());
    TQ_TRY(request.sink.row(row.pixels(), y));
  }
  return kOk;
}

}  // namespace

Status png_available() {
  return kOk;
}

Status decode_png(const DecodeRequest& request) {
  // There is one page; a page number means the image at the current position.
  TQ_TRY(request.seek_to_start());
  PngReader reader;
  TQ_TRY(reader.open(request.stream));
  PngImage png;
  TQ_TRY(reader.read_header(png.file));
  choose(png);
  TQ_TRY(request.sink.header(png.image));
  std::int64_t stored_bytes = 0;
  TQ_TRY(reader.start_rows(png.form, stored_bytes));
  return png.file.interlaced ? decode_interlaced(request, png, reader, stored_bytes)
                             : decode_rows(request, png, reader, stored_bytes);
}

// --- Writing ---

namespace {

std::uint32_t per_metre(std::int32_t dots_per_inch) {
  if (dots_per_inch <= 0) return 0;
  const std::int64_t dots = (std::int64_t{dots_per_inch} * 10000 + 127) / 254;
  return static_cast<std::uint32_t>(std::min<std::int64_t>(dots, INT32_MAX));
}

bool is_grey_ramp(const HeaderBlock& image) {
  const int last = (1 << image.header.biBitCount) - 1;
  for (int i = 0; i <= last; ++i) {
    const int level = i * 255 / last;
    const Rgb& entry = image.palette[i];
    if (entry.blue != level || entry.green != level || entry.red != level) return false;
  }
  return true;
}

void describe_indexed(const HeaderBlock& image, PngHeader& file) {
  const bool transparent = (image.header.biClrUsed & kTransparent) != 0;
  file.bits = image.header.biBitCount;
  if (!transparent && is_grey_ramp(image)) return;
  file.indexed = file.colour = true;
  file.entries = 1 << file.bits;
  for (int i = 0; i < file.entries; ++i) {
    const Rgb& entry = image.palette[i];
    file.palette[i] = {entry.red, entry.green, entry.blue, 255};
  }
  const int index = image.header.biClrUsed & 0xFF;
  if (transparent && index < file.entries) file.palette[index].alpha = 0;
}

Status describe(const EncodeRequest& request, PngHeader& file) {
  const BitmapInfoHeader& header = request.image->header;
  file.width = header.biWidth;
  file.height = header.biHeight;
  file.x_per_metre = per_metre(header.biXPelsPerMeter);
  file.y_per_metre = per_metre(header.biYPelsPerMeter);
  switch (header.biBitCount) {
    case 1:
    case 4:
    case 8:
      describe_indexed(*request.image, file);
      return kOk;
    case 16:
      file.bits = 16;
      return kOk;
    case 24:
    case 32:
      if (request.cmyk) return StatusCode::wrong_depth;
      file.bits = 8;
      file.colour = true;
      return kOk;
    default:
      return StatusCode::wrong_depth;
  }
}

}  // namespace

Status can_encode_png(const EncodeRequest& request) {
  PngHeader file;
  return describe(request, file);
}

Status encode_png(const EncodeRequest& request) {
  const BitmapInfoHeader& header = request.image->header;
  PngHeader file;
  TQ_TRY(describe(request, file));
  PngWriter writer;
  TQ_TRY(writer.open(request.stream));
  TQ_TRY(writer.write_header(file, header.biBitCount / 8));
  RowBuffer<std::uint8_t> row;
  TQ_TRY(row.allocate(row_bytes(header.biWidth, header.biBitCount)));
  for (std::int32_t y = 0; y < header.biHeight; ++y) {
    TQ_TRY(request.rows.row(row.pixels(), y));
    TQ_TRY(writer.write_row(row.data()));
  }
  return writer.finish();
}

}  // namespace tq::png
