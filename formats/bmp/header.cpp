// BMP headers: a file header or none, an information header or an OS/2 core header, the palette.
#include "formats/bmp/header.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include "io/endian.h"
#include "pixels/colours.h"

namespace tq::bmp {
namespace {

constexpr Rgb kBlack{0, 0, 0, 0};
constexpr Rgb kWhite{255, 255, 255, 0};

BitmapInfoHeader load_info_header(const std::uint8_t* p) {
  BitmapInfoHeader info{};
  info.biWidth = load_le32(p + 4);
  info.biHeight = load_le32(p + 8);
  info.biBitCount = load_le16(p + 14);
  info.biCompression = load_le32(p + 16);
  info.biXPelsPerMeter = load_le32(p + 24);
  info.biYPelsPerMeter = load_le32(p + 28);
  info.biClrUsed = load_le32(p + 32);
  return info;
}

BitmapInfoHeader load_core_header(const std::uint8_t* p) {
  BitmapInfoHeader info{};
  info.biWidth = load_le16(p + 4);
  info.biHeight = load_le16(p + 6);
  info.biBitCount = load_le16(p + 10);
  return info;
}

// 16-bit pixels behind a file header become 24-bit ones; those of a bare DIB are grey levels of 16
// bits and stay so, unless they have bit fields. 12 bits are stored as 16.
int delivered_bits(const StoredHeader& stored) {
  const int bits = stored.info.biBitCount;
  if (bits != 16 && bits != 12) return bits;
  if (stored.info.biCompression == kBiBitFields) return 24;
  return bits == 16 && stored.has_file_header ? 24 : 16;
}

bool has_rows_of(int bits) {
  // 0 is left to the check of the geometry.
  return bits == 0 || bits == 1 || bits == 4 || bits == 8 || bits == 16 || bits == 24 || bits == 32;
}

Rows choose_rows(const StoredHeader& stored) {
  const int bits = stored.info.biBitCount;
  const std::uint32_t compression = stored.info.biCompression;
  if (compression == kBiRle4 && bits == 4) return Rows::rle4;
  if (compression == kBiRle8 && bits == 8) return Rows::rle8;
  if (compression == kLengthPrefixed) return Rows::length_prefixed;
  if (compression == kJpegData) return Rows::jpeg;
  return Rows::plain;
}

// How plain rows lie there. Rows of 5-5-5 are packed without padding, those of 5-6-5 are padded: callers
// rely on this.
void choose_layout(const StoredHeader& stored, File& file) {
  const int bits = stored.info.biBitCount;
  const BitmapInfoHeader& header = file.image.header;
  file.line_bytes = row_bytes(header.biWidth, header.biBitCount);
  if (file.rows != Rows::plain) return;
  // The masks are not read, 16 bits with bit fields are always 5-6-5: callers rely on this.
  if (stored.info.biCompression == kBiBitFields && (bits == 16 || bits == 12)) {
    file.layout = pixels::find_layout(pixels::Layout::rgb565, 24);
    file.line_bytes = row_bytes(header.biWidth, 16);
    return;
  }
  // 16-bit rows that are stored top-down are taken as rows of 24-bit pixels: callers rely on this.
  if (bits == 16 && stored.has_file_header && stored.info.biHeight > 0) {
    file.layout = pixels::find_layout(pixels::Layout::rgb555, 24);
    file.line_bytes = 2 * std::int64_t{header.biWidth};
  }
}

// The palette is looked for where a header of 40 bytes would end, however long the header is, and
// that of a core header always behind a file header, whether there is one or not: callers rely on
// this.
std::int64_t palette_position(const StoredHeader& stored) {
  const std::int64_t start = stored.start;
  if (stored.is_core()) return start + kFileHeaderBytes + kCoreHeaderBytes;
  return start + (stored.has_file_header ? kFileHeaderBytes : 0) + kInfoHeaderBytes;
}

int stored_palette_bytes(const StoredHeader& stored) {
  const int bits = stored.info.biBitCount;
  if (bits > 8) return 0;
  return (stored.is_core() ? 3 : 4) << bits;
}

// Without a file header the pixels follow the colours in use, or all colours if their count is 0.
std::int64_t pixel_position(const StoredHeader& stored) {
  if (stored.has_file_header) return std::int64_t{stored.start} + stored.pixel_offset;
  const BitmapInfoHeader& info = stored.info;
  const bool has_masks = info.biCompression == kBiBitFields &&
                         stored.header_bytes == kInfoHeaderBytes && info.biBitCount > 8;
  const int masks = has_masks ? 12 : 0;  // bytes: three words
  if (info.biClrUsed != 0 || has_masks) {
    return stored.start + kInfoHeaderBytes + masks + 4 * std::int64_t{info.biClrUsed};
  }
  return palette_position(stored) + stored_palette_bytes(stored);
}

// All entries are read, however few the file has: the others get whatever lies there. But in memory
// without a size nothing behind the image, as the memory may end with it; and of coded rows the end
// is not known.
int readable_palette_bytes(const StoredHeader& stored, const File& file) {
  const int all = stored_palette_bytes(stored);
  const std::int64_t before_pixels = file.pixels_at - palette_position(stored);
  if (before_pixels < 0 || end_is_known(stored.stream)) return all;
  const bool coded = file.rows != Rows::plain;
  const std::int64_t pixel_bytes = coded ? 0 : file.line_bytes * file.image.header.biHeight;
  return static_cast<int>(std::clamp<std::int64_t>(before_pixels + pixel_bytes, 0, all));
}

void read_palette(const StoredHeader& stored, File& file) {
  std::array<std::uint8_t, 1024> bytes{};
  if (seek_to(stored.stream, palette_position(stored)).ok()) {
    read_or_zero(stored.stream, std::span(bytes).first(readable_palette_bytes(stored, file)));
  }
  std::array<Rgb, 256>& palette = file.image.palette;
  const int count = 1 << stored.info.biBitCount;
  if (!stored.is_core()) {
    std::memcpy(palette.data(), bytes.data(), count * sizeof(Rgb));
    return;
  }
  for (int i = 0; i < count; ++i) {
    palette[i] = {bytes[3 * i], bytes[3 * i + 1], bytes[3 * i + 2], 0};
  }
}

bool same_colour(const Rgb& a, const Rgb& b) {
  return a.blue == b.blue && a.green == b.green && a.red == b.red;
}

// Two-colour images are delivered with 0 = black. Only white and black can be exchanged; any other
// pair of colours is dropped: callers rely on this. Whether the bits must be inverted.
bool force_black_and_white(std::array<Rgb, 256>& palette) {
  const bool inverted = same_colour(palette[0], kWhite) && same_colour(palette[1], kBlack);
  palette[0] = kBlack;
  palette[1] = kWhite;
  return inverted;
}

std::int32_t truncated(double value) {
  using Limits = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(std::clamp<double>(value, Limits::min(), Limits::max()));
}

std::int32_t dots_per_inch(std::int32_t pixels_per_metre) {
  return truncated(pixels_per_metre * 0.0254 + 0.5);
}

std::int32_t pixels_per_metre(std::int32_t dots_per_inch) {
  return truncated(dots_per_inch * 39.37007874015748 + 0.5);
}

// A resolution of which one side is missing stays as it is, and so do the small values of bare
// DIBs, which are dots per inch already: callers rely on this.
bool is_per_metre(const StoredHeader& stored) {
  constexpr std::int32_t kMostDotsPerInch = 2000;
  const BitmapInfoHeader& info = stored.info;
  if (info.biXPelsPerMeter == 0 || info.biYPelsPerMeter == 0) return false;
  return stored.has_file_header || info.biXPelsPerMeter > kMostDotsPerInch;
}

void put_file_header(const BitmapInfoHeader& image, StreamWriter& out) {
  const int pixels_at = kFileHeaderBytes + kInfoHeaderBytes + palette_bytes(image.biBitCount);
  out.put("BM");
  out.put_le32(image_bytes(image.biWidth, image.biHeight, image.biBitCount) + pixels_at);
  out.put_le32(0);
  out.put_le32(pixels_at);
}

void put_info_header(const EncodeRequest& request, std::uint32_t compression, StreamWriter& out) {
  const BitmapInfoHeader& image = request.image->header;
  const bool has_resolution = image.biXPelsPerMeter != 0 && image.biYPelsPerMeter != 0;
  std::int32_t x = has_resolution ? pixels_per_metre(image.biXPelsPerMeter) : 0;
  std::int32_t y = has_resolution ? pixels_per_metre(image.biYPelsPerMeter) : 0;
  if (request.is_exact()) {
    x = tq::pixels_per_metre(request.resolution.x);
    y = tq::pixels_per_metre(request.resolution.y);
  }
  out.put_le32(kInfoHeaderBytes);
  out.put_le32(image.biWidth);
  out.put_le32(image.biHeight);
  out.put_le16(1);
  out.put_le16(image.biBitCount);
  out.put_le32(compression);
  out.put_le32(image_bytes(image.biWidth, image.biHeight, image.biBitCount));
  out.put_le32(x);
  out.put_le32(y);
  out.fill(8, 0);
}

}  // namespace

void read_or_zero(StreamHandle stream, std::span<std::uint8_t> bytes) {
  const std::int32_t got = read_fully(stream, bytes);
  std::fill(bytes.begin() + got, bytes.end(), std::uint8_t{0});
}

StoredHeader read_stored_header(const DecodeRequest& request, Fields fields) {
  StoredHeader stored;
  stored.stream = request.stream;
  // A page number means the only image there is, which starts here.
  stored.start = request.start();
  if (seek_to(request.stream, stored.start).failed()) return stored;

  std::array<std::uint8_t, kFileHeaderBytes> file_header;
  read_or_zero(request.stream, file_header);
  stored.has_file_header = file_header[0] == 'B' && file_header[1] == 'M';
  stored.pixel_offset = load_le32(&file_header[10]);
  if (!stored.has_file_header) (void)seek_to(request.stream, stored.start);  // a bare DIB

  // Of a larger header the first 40 bytes are the same. A smaller one may be all that there is.
  std::array<std::uint8_t, kInfoHeaderBytes> info{};
  read_or_zero(request.stream, std::span(info).first(4));
  stored.header_bytes = load_le32(info.data());
  const bool is_short = stored.is_core() || fields == Fields::of_header;
  const std::size_t size =
      is_short ? std::clamp(stored.header_bytes, 4u, kInfoHeaderBytes) : kInfoHeaderBytes;
  read_or_zero(request.stream, std::span(info).subspan(4, size - 4));
  stored.info = stored.is_core() ? load_core_header(info.data()) : load_info_header(info.data());
  return stored;
}

Resolution exact_resolution(const StoredHeader& stored) {
  const BitmapInfoHeader& info = stored.info;
  return is_per_metre(stored) ? resolution_of_metres(info.biXPelsPerMeter, info.biYPelsPerMeter)
                              : Resolution{};
}

BitmapInfoHeader delivered_header(const StoredHeader& stored, int bits) {
  BitmapInfoHeader header = stored.info;
  header.biSize = kDibHeaderBytes;
  header.biHeight = std::max(header.biHeight, -header.biHeight);
  header.biPlanes = 1;
  header.biBitCount = word(bits);
  const bool marked = bits == 32 || header.biCompression == kRgb32;
  header.biCompression = marked ? kRgb32 : kBiRgb;
  header.biSizeImage = image_bytes(header.biWidth, header.biHeight, bits);
  if (is_per_metre(stored)) {
    header.biXPelsPerMeter = dots_per_inch(header.biXPelsPerMeter);
    header.biYPelsPerMeter = dots_per_inch(header.biYPelsPerMeter);
  }
  header.biClrUsed = 0;
  header.biClrImportant = 0;
  return header;
}

Status read_header(const DecodeRequest& request, File& file) {
  const StoredHeader stored = read_stored_header(request, Fields::all);
  file.rows = choose_rows(stored);
  file.pixels_at = stream_position(pixel_position(stored));
  if (file.rows == Rows::jpeg) return kOk;  // the JPEG data have a header of their own
  if (stored.info.biHeight == std::numeric_limits<std::int32_t>::min()) {
    return StatusCode::bad_image;  // it has no opposite
  }
  file.top_down = file.rows == Rows::plain && stored.info.biHeight < 0;

  file.resolution = exact_resolution(stored);
  file.image.header = delivered_header(stored, delivered_bits(stored));
  const int bits = file.image.header.biBitCount;
  if (!has_rows_of(bits)) return StatusCode::unsupported;
  choose_layout(stored, file);
  if (bits >= 1 && bits <= 8) read_palette(stored, file);
  if (bits == 1) file.inverted = force_black_and_white(file.image.palette);
  if (bits == 16) file.image.palette = pixels::grey_ramp();
  return kOk;
}

Status open_pixels(const DecodeRequest& request, const File& file, std::int64_t chunk_bytes,
                   ChunkReader& input) {
  if (seek_to(request.stream, file.pixels_at).failed()) return kOk;
  return input.open(request.stream, chunk_bytes);
}

Status write_header(const EncodeRequest& request, FileHeader file_header, std::uint32_t compression,
                    StreamWriter& out) {
  const BitmapInfoHeader& image = request.image->header;
  TQ_TRY(out.open(request.stream, sizeof request.image->palette));
  if (file_header == FileHeader::written) {
    put_file_header(image, out);
    TQ_TRY(out.end_write());
  }
  put_info_header(request, compression, out);
  TQ_TRY(out.end_write());
  const std::span all(reinterpret_cast<const std::uint8_t*>(request.image->palette.data()),
                      sizeof request.image->palette);
  out.put(all.first(palette_bytes(image.biBitCount)));
  return out.end_write();
}

}  // namespace tq::bmp
