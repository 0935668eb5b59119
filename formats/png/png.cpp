// PNG images to rows: what depth they come in, and what happens to each row. And back: grey where
// the palette is a grey ramp, else indexed, else of colours.
#include "formats/png/png.h"

#include <algorithm>

#include "core/numbers.h"
#include "formats/png/library.h"
#include "io/endian.h"
#include "pixels/colours.h"
#include "pixels/rows.h"

namespace tq::png {
namespace {

using formats::DecodeRequest;
using formats::EncodeRequest;

// --- Reading ---

using pixels::Bytes;
using pixels::Layout;
using pixels::Row;

struct PngImage {
  PngHeader file;
  HeaderBlock image;
  PngReader::RowForm form;
  const pixels::RowLayout* layout = nullptr;  // null: rows lie in the file as in the image
  bool inverted = false;                      // 1 bit, white comes first in the file
};

void set_layout(PngImage& png, Layout layout) {
  png.layout = pixels::find_layout(layout, png.image.header.biBitCount);
}

std::int32_t dots_per_inch(std::uint32_t per_metre) {
  const std::uint64_t dots = (std::uint64_t{per_metre} * 254 + 5000) / 10000;
  return static_cast<std::int32_t>(std::min<std::uint64_t>(dots, INT32_MAX));
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

void choose_indexed(PngImage& png) {
  const PngHeader& file = png.file;
  int transparent = single_transparent_entry(file);
  const bool two = file.bits == 1 && file.entries == 2;
  const bool black_white = two && is_level(file.palette[0], 0) && is_level(file.palette[1], 255);
  const bool white_black = two && is_level(file.palette[0], 255) && is_level(file.palette[1], 0);
  png.inverted = white_black;
  if (white_black && transparent >= 0) transparent ^= 1;
  // An image of 1 bit is black and white.
  const bool widened = file.bits <= 2 && !black_white && !white_black;
  png.image = dib_header(file.width, file.height, widened ? 4 : file.bits);
  if (widened) set_layout(png, file.bits == 1 ? Layout::bits_1 : Layout::bits_2);
  for (int i = 0; i < file.entries; ++i) {
    const PngColour& entry = file.palette[i];
    const int alpha = transparent >= 0 ? 255 : entry.alpha;
    png.image.palette[i] = {pixels::on_white(entry.blue, alpha),
                            pixels::on_white(entry.green, alpha),
                            pixels::on_white(entry.red, alpha), 0};
  }
  if (white_black) std::swap(png.image.palette[0], png.image.palette[1]);
  if (transparent >= 0) mark_transparent(transparent, png.image);
}

void choose_grey(PngImage& png) {
  const PngHeader& file = png.file;
  png.form = {.to_8_bits = file.alpha, .with_alpha = file.alpha};
  const int bits = file.alpha ? 8 : file.bits;
  png.image = dib_header(file.width, file.height, bits == 2 ? 4 : bits);
  if (file.alpha) set_layout(png, Layout::grey_alpha);
  if (bits == 2) set_layout(png, Layout::bits_2);
  if (bits == 16) set_layout(png, Layout::grey16_be);
  png.image.palette = pixels::grey_levels(std::min(file.bits, 8));
  if (!file.alpha && file.bits <= 8 && file.transparent_level >= 0) {
    mark_transparent(file.transparent_level & ((1 << file.bits) - 1), png.image);
  }
}

void choose_colours(PngImage& png) {
  const bool transparent = png.file.alpha || png.file.transparent_colour;
  png.form = {.to_8_bits = true, .with_alpha = transparent};
  png.image = dib_header(png.file.width, png.file.height, 24);
  set_layout(png, transparent ? Layout::rgba : Layout::rgb);
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

// Of 16 bits.
void whiten_level(int level, std::int32_t width, Row row) {
  for (std::int32_t x = 0; x < width; ++x) {
    if (load_le16(&row[2 * x]) == level) store_le16(&row[2 * x], 0xFFFF);
  }
}

void convert(const PngImage& png, Bytes stored, Row row) {
  const std::int32_t width = png.file.width;
  if (png.layout != nullptr) {
    pixels::unpack(*png.layout, stored, width, row);
  } else if (png.inverted) {
    pixels::invert(stored, row);
  } else {
    std::copy_n(stored.begin(), std::min(stored.size(), row.size()), row.begin());
  }
  const int level = png.file.transparent_level;
  if (png.image.header.biBitCount == 16 && level >= 0) whiten_level(level, width, row);
}

// What is left of a file whose rows end early: of one that is cut off all that was read; of one whose data
// make no sense that only where files are read as other programs show them, if it is a row at least.
Status keep_rows(const DecodeRequest& request, Status read, bool has_rows) {
  if (read == StatusCode::read_failed) return kOk;
  const bool is_kept =
      read == StatusCode::bad_image && has_rows && request.options.get(IMG_OPTION_READING) == 1;
  if (!is_kept) return read;
  request.sink.damaged(StatusCode::bad_image);
  return kOk;
}

Status decode_rows(const DecodeRequest& request, const PngImage& png, PngReader& reader,
                   std::int64_t stored_bytes) {
  const BitmapInfoHeader& header = png.image.header;
  RowBuffer<std::uint8_t> stored, row;
  TQ_TRY(stored.allocate(stored_bytes));
  TQ_TRY(row.allocate(row_bytes(header.biWidth, header.biBitCount)));
  for (std::int32_t y = 0; y < header.biHeight; ++y) {
    const Status read = reader.read_row(stored.data());
    if (read.failed()) return keep_rows(request, read, y > 0);
    convert(png, stored.pixels(), row.pixels());
    TQ_TRY(request.sink.row(row.pixels(), y));
    if (request.sink.ends_at(y)) return kOk;
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
  std::int64_t rows = -1;
  for (int pass = 0; pass < reader.passes() && read.ok(); ++pass) {
    for (std::int32_t y = 0; y < header.biHeight && read.ok(); ++y, ++rows) {
      read = reader.read_row(stored.data() + y * step);
    }
  }
  if (read.failed()) {
    TQ_TRY(keep_rows(request, read, rows > 0));
    request.sink.damaged(StatusCode::read_failed);
  }
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
  request.sink.resolution(resolution_of_metres(png.file.x_per_metre, png.file.y_per_metre));
  TQ_TRY(request.sink.header(png.image));
  std::int64_t stored_bytes = 0;
  TQ_TRY(reader.start_rows(png.form, stored_bytes));
  TQ_TRY(png.file.interlaced ? decode_interlaced(request, png, reader, stored_bytes)
                             : decode_rows(request, png, reader, stored_bytes));
  // The last check sum stands behind all rows.
  const Options& options = request.options;
  const bool looks_behind =
      options.get(IMG_OPTION_STRICT) == 1 || options.get(IMG_OPTION_READING) == 1;
  const std::int32_t last = png.image.header.biHeight - 1;
  const bool is_part = request.sink.wanted != nullptr && request.sink.wanted->bottom <= last;
  if (!looks_behind || is_part || reader.lacks_rows()) return kOk;
  const Status ended = reader.finish();
  if (ended.failed()) {
    request.sink.damaged(reader.was_cut_off() ? StatusCode::read_failed : StatusCode::bad_image);
  }
  return kOk;
}

// --- Writing ---

namespace {

std::uint32_t per_metre(std::int32_t dots_per_inch) {
  if (dots_per_inch <= 0) return 0;
  const std::int64_t dots = (std::int64_t{dots_per_inch} * 10000 + 127) / 254;
  return static_cast<std::uint32_t>(std::min<std::int64_t>(dots, INT32_MAX));
}

void describe_indexed(const HeaderBlock& image, PngHeader& file) {
  const bool transparent = (image.header.biClrUsed & kTransparent) != 0;
  file.bits = image.header.biBitCount;
  const auto colours = std::span(image.palette).first(std::size_t{1} << file.bits);
  if (!transparent && pixels::is_grey_ramp(colours)) return;
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
  if (request.is_exact()) {
    file.x_per_metre = pixels_per_metre(request.resolution.x);
    file.y_per_metre = pixels_per_metre(request.resolution.y);
  } else {
    file.x_per_metre = per_metre(header.biXPelsPerMeter);
    file.y_per_metre = per_metre(header.biYPelsPerMeter);
  }
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
  TQ_TRY(writer.write_header(file));
  const int bits = header.biBitCount;
  const auto* const layout =
      pixels::find_layout(bits == 16 ? Layout::grey16_be : Layout::rgb, bits);
  RowBuffer<std::uint8_t> row, stored;
  TQ_TRY(row.allocate(row_bytes(header.biWidth, bits)));
  if (layout != nullptr) TQ_TRY(stored.allocate(pixels::stored_bytes(*layout, header.biWidth)));
  const auto write = [&](std::int32_t /*y*/, Status /*supplied*/) {
    if (layout != nullptr) pixels::pack(*layout, row.pixels(), header.biWidth, stored.pixels());
    return writer.write_row(layout != nullptr ? stored.data() : row.data());
  };
  TQ_TRY(request.rows.each(row.pixels(), header.biHeight, write));
  return writer.finish();
}

}  // namespace tq::png
