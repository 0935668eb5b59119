// BMP headers as other programs understand them: Windows 3 to 5 and OS/2, masks, palettes of any
// length. The layouts are those of the Windows and the OS/2 documentation of bitmaps.
#include <algorithm>
#include <array>

#include "formats/bmp/header.h"
#include "io/endian.h"
#include "io/stream_window.h"
#include "pixels/colours.h"

namespace tq::bmp {
namespace {

constexpr std::uint32_t kHeaderWithMasks = 52, kHeaderWithAlpha = 56;
constexpr std::uint32_t kWindows4Bytes = 108, kWindows5Bytes = 124;
constexpr std::uint32_t kBiJpeg = 4, kBiPng = 5, kBiAlphaBitFields = 6;
constexpr std::uint32_t kOs2Fax = 3, kOs2Rle24 = 4;
constexpr int kMasksAt = 40;
constexpr int kThreeMasks = 12, kFourMasks = 16;  // bytes

bool is_known(const StoredHeader& stored) {
  constexpr std::uint32_t kShortestOs2 = 16;
  return stored.is_core() || stored.header_bytes >= kShortestOs2;
}

// Of version 2: as long as its writer liked.
bool is_os2(const StoredHeader& stored) {
  constexpr std::uint32_t kLongestOs2 = 64;
  const std::uint32_t bytes = stored.header_bytes;
  return bytes <= kLongestOs2 && bytes != kInfoHeaderBytes && bytes != kHeaderWithMasks &&
         bytes != kHeaderWithAlpha;
}

int bits_of(const StoredHeader& stored) {
  return stored.info.biBitCount == 12 ? 16 : stored.info.biBitCount;
}

bool has_masks(const StoredHeader& stored) {
  const std::uint32_t compression = stored.info.biCompression;
  const int bits = bits_of(stored);
  return (compression == kBiBitFields || compression == kBiAlphaBitFields) && !is_os2(stored) &&
         (bits == 16 || bits == 32);
}

// unsupported for a compression that is not known.
Status choose_rows(const StoredHeader& stored, File& file) {
  const int bits = bits_of(stored);
  const std::uint32_t compression = stored.info.biCompression;
  const auto is = [&](Rows rows) {
    file.rows = rows;
    return kOk;
  };
  if (compression == kJpegData) return is(Rows::jpeg);
  if (compression == kBiRle4 && bits == 4) return is(Rows::rle4);
  if (compression == kBiRle8 && bits == 8) return is(Rows::rle8);
  if (is_os2(stored)) {
    if (compression == kOs2Fax && bits == 1) return is(Rows::fax);
    if (compression == kOs2Rle24 && bits == 24) return is(Rows::rle24);
    return compression == kBiRgb ? is(Rows::plain) : Status(StatusCode::unsupported);
  }
  if (compression == kBiJpeg) return is(Rows::jpeg);
  if (compression == kBiPng) return is(Rows::png);
  const bool is_plain = compression == kBiRgb || compression == kRgb32 ||
                        compression == kBiBitFields || compression == kBiAlphaBitFields;
  return is_plain ? is(Rows::plain) : Status(StatusCode::unsupported);
}

// Those behind the header, which only one of 40 bytes needs.
int bytes_of_masks(const StoredHeader& stored) {
  if (!has_masks(stored) || stored.header_bytes != kInfoHeaderBytes) return 0;
  return stored.info.biCompression == kBiBitFields ? kThreeMasks : kFourMasks;
}

pixels::PixelMasks read_masks(const StoredHeader& stored) {
  if (!has_masks(stored)) return {{.red = 0x7C00, .green = 0x3E0, .blue = 0x1F}, 0, 2};
  int size = bytes_of_masks(stored);
  if (size == 0) size = stored.header_bytes >= kHeaderWithAlpha ? kFourMasks : kThreeMasks;
  std::array<std::uint8_t, kFourMasks> bytes{};
  if (seek_to(stored.stream, stored.info_at() + kMasksAt).ok()) {
    read_or_zero(stored.stream, std::span(bytes).first(static_cast<std::size_t>(size)));
  }
  // What writers put for the alpha of 16 bits is not meant.
  const int pixel_bytes = bits_of(stored) / 8;
  const std::uint32_t alpha = pixel_bytes == 4 ? load_le32(&bytes[12]) : 0;
  const pixels::ColourMasks colours{load_le32(&bytes[0]), load_le32(&bytes[4]),
                                    load_le32(&bytes[8])};
  return {colours, alpha, pixel_bytes};
}

// Where the palette and the pixels are.
struct Places {
  std::int64_t palette = 0, pixels = 0;
  int entry_bytes = 4;
  int entries = 0;  // that are read
};

// Some writers repeat the masks behind a header that holds them: the size tells.
int bytes_of_repeated_masks(const StoredHeader& stored, std::int64_t palette_end) {
  const std::uint32_t bytes = stored.header_bytes;
  const BitmapInfoHeader header = delivered_header(stored, bits_of(stored));
  if (stored.has_file_header || (bytes != kWindows4Bytes && bytes != kWindows5Bytes) ||
      stored.info.biCompression != kBiBitFields || !end_is_known(stored.stream) ||
      check_geometry(header).failed()) {
    return 0;
  }
  const std::int64_t rows = row_bytes(header.biWidth, header.biBitCount) * header.biHeight;
  return find_end(stored.stream) == palette_end + kThreeMasks + rows ? kThreeMasks : 0;
}

Places find_places(const StoredHeader& stored) {
  const int bits = bits_of(stored);
  const int most = bits <= 8 ? 1 << bits : 0;
  Places places{.palette = stored.info_at() + stored.header_bytes + bytes_of_masks(stored)};
  if (stored.is_core()) places.entry_bytes = 3;
  const std::int64_t used = stored.info.biClrUsed;
  const std::int64_t entries = used != 0 ? used : most;
  places.palette += bytes_of_repeated_masks(stored, places.palette + entries * places.entry_bytes);
  places.pixels = places.palette + entries * places.entry_bytes;
  places.entries = static_cast<int>(std::min<std::int64_t>(entries, most));
  // An offset into the headers cannot be meant.
  const std::int64_t said = std::int64_t{stored.start} + stored.pixel_offset;
  if (stored.has_file_header && said >= places.palette) {
    places.pixels = said;
    const std::int64_t room = (said - places.palette) / places.entry_bytes;
    places.entries = static_cast<int>(std::min<std::int64_t>(places.entries, room));
  }
  return places;
}

void read_palette(const StoredHeader& stored, const Places& places, std::array<Rgb, 256>& palette) {
  std::array<std::uint8_t, 1024> bytes{};
  const int size = places.entries * places.entry_bytes;
  if (seek_to(stored.stream, places.palette).ok()) {
    read_or_zero(stored.stream, std::span(bytes).first(static_cast<std::size_t>(size)));
  }
  for (int i = 0; i < places.entries; ++i) {
    const std::uint8_t* entry = &bytes[places.entry_bytes * i];
    palette[i] = {entry[0], entry[1], entry[2], 0};
  }
}

// How plain rows are delivered, and with how many bits.
int choose_layout(const StoredHeader& stored, File& file) {
  const int bits = bits_of(stored);
  file.line_bytes = (std::int64_t{stored.info.biWidth} * bits + 31) / 32 * 4;
  if (bits == 16 || has_masks(stored)) {
    file.masked = true;
    file.masks = read_masks(stored);
    return 24;
  }
  if (bits == 1) file.layout = pixels::find_bit_layout(file.image.palette);
  if (bits == 2) file.layout = pixels::find_layout(pixels::Layout::bits_2, 4);
  return file.layout != nullptr ? file.layout->bits : bits;
}

}  // namespace

Status read_shown_header(const DecodeRequest& request, File& file) {
  const StoredHeader stored = read_stored_header(request, Fields::of_header);
  if (!is_known(stored)) return StatusCode::bad_image;
  if (stored.info.biCompression == kLengthPrefixed) return read_header(request, file);
  if (stored.info.biHeight == std::numeric_limits<std::int32_t>::min()) {
    return StatusCode::bad_image;  // it has no opposite
  }
  TQ_TRY(choose_rows(stored, file));
  const Places places = find_places(stored);
  file.pixels_at = stream_position(places.pixels);
  if (file.rows == Rows::jpeg || file.rows == Rows::png) return kOk;  // with headers of their own
  constexpr int kDepths[] = {1, 2, 4, 8, 16, 24, 32};
  const int bits = bits_of(stored);
  if (std::ranges::find(kDepths, bits) == std::end(kDepths)) return StatusCode::unsupported;

  file.top_down = stored.info.biHeight < 0;
  file.blank_lines = true;
  if (bits <= 8) read_palette(stored, places, file.image.palette);
  file.resolution = exact_resolution(stored);
  file.image.header = delivered_header(stored, choose_layout(stored, file));
  if (file.image.header.biBitCount == 1) file.image.palette = pixels::grey_levels(1);
  return kOk;
}

}  // namespace tq::bmp
