// Pixel maps and their rows.
#include "coding/packbits.h"
#include "formats/pict/picture.h"
#include "formats/rows.h"
#include "pixels/colours.h"

namespace tq::pict {
namespace {

using pixels::find_layout;
using pixels::Layout;

constexpr int kPixmapFlag = 0x8000, kRowBytesMask = 0x3FFF;
constexpr int kShortestPacked = 8;      // shorter rows are never packed
constexpr int kLongestByteCount = 250;  // of a row whose count is a byte

Status read_colour_table(Input& input, std::array<Rgb, 256>& colours) {
  constexpr int kInOrder = 0x8000;
  input.skip(4);
  const bool in_order = (input.u16() & kInOrder) != 0;
  const int entries = input.u16() + 1;
  if (entries > std::ssize(colours)) return StatusCode::bad_image;
  for (int i = 0; i < entries; ++i) {
    const int value = input.u16();
    const int index = in_order ? i : value;
    const int red = input.u16(), green = input.u16(), blue = input.u16();
    if (index < std::ssize(colours)) {
      colours[index] = {byte(blue >> 8), byte(green >> 8), byte(red >> 8), 0};
    }
  }
  return kOk;
}

void read_fields(Input& input, Bitmap& bitmap) {
  input.skip(2);  // version
  bitmap.packing = input.u16();
  input.skip(4);
  bitmap.x_dpi = formats::dots_of_fixed(input.u32());
  bitmap.y_dpi = formats::dots_of_fixed(input.u32());
  input.skip(2);  // kind of pixels
  bitmap.bits = input.u16();
  bitmap.components = input.u16();
  input.skip(2 + 12);
}

Status choose_packing(Bitmap& bitmap) {
  if (bitmap.row_bytes < kShortestPacked) {
    bitmap.packing = kUnpacked;
  } else if (bitmap.packing == kDefault) {
    bitmap.packing = bitmap.bits == 16 ? kWords : kPlanes;
  }
  bitmap.has_counts = bitmap.packing == kWords || bitmap.packing == kPlanes;
  const int packing = bitmap.packing, components = bitmap.components;
  const bool known = packing == kUnpacked || packing == (bitmap.bits == 16 ? kWords : kPlanes) ||
                     (packing == kThreeBytes && bitmap.bits == 32);
  const bool counted = packing != kPlanes || components == 3 || components == 4;
  return known && counted ? StatusCode::ok : StatusCode::bad_image;
}

bool is_depth(const Bitmap& bitmap) {
  if (bitmap.is_direct) return bitmap.bits == 16 || bitmap.bits == 32;
  return bitmap.bits == 1 || bitmap.bits == 2 || bitmap.bits == 4 || bitmap.bits == 8;
}

std::int64_t next_count(Input& input, const Bitmap& bitmap) {
  return bitmap.long_counts ? input.u16() : input.u8();
}

// Whether the next row, with its count, becomes as many bytes as it has to.
bool is_row(Input& input, const Bitmap& bitmap) {
  const std::int64_t bytes = next_count(input, bitmap);
  const pixels::Bytes coded = input.take(bytes);
  const std::int64_t expanded = packbits::expanded_bytes(coded, bitmap.packing == kWords ? 2 : 1);
  return std::ssize(coded) == bytes && expanded == bitmap.plain_bytes();
}

}  // namespace

const pixels::RowLayout* Bitmap::layout() const {
  if (!is_pixmap) return find_layout(Layout::bits_1_black, 1);
  switch (bits) {
    case 1:
      return pixels::find_bit_layout(colours);
    case 2:
      return find_layout(Layout::bits_2, 4);
    case 4:
      return find_layout(Layout::bits_4, 4);
    case 8:
      return find_layout(Layout::bytes, 8);
    case 16:
      return find_layout(Layout::rgb555_be, 24);
    default:
      return find_layout(packing == kPlanes       ? Layout::rgb_planes
                         : packing == kThreeBytes ? Layout::rgb
                                                  : Layout::xrgb,
                         24);
  }
}

std::int64_t Bitmap::plain_bytes() const {
  if (packing == kPlanes) return std::int64_t{components} * bounds.width();
  return is_direct && packing == kThreeBytes ? row_bytes / 4 * 3 : row_bytes;
}

Status read_pixmap(Input& input, bool direct, bool packed, Bitmap& bitmap) {
  const int row_bytes = input.u16();
  bitmap.row_bytes = row_bytes & kRowBytesMask;
  bitmap.is_direct = direct;
  bitmap.is_pixmap = direct || (row_bytes & kPixmapFlag) != 0;
  bitmap.bounds = Area::read(input);
  if (bitmap.is_pixmap) read_fields(input, bitmap);
  if (bitmap.bounds.is_empty() || !is_depth(bitmap) ||
      bitmap.row_bytes * 8 < bitmap.bounds.width() * bitmap.bits) {
    return StatusCode::bad_image;
  }
  if (direct) return choose_packing(bitmap);
  bitmap.packing = kUnpacked;
  bitmap.has_counts = packed && bitmap.row_bytes >= kShortestPacked;
  return bitmap.is_pixmap ? read_colour_table(input, bitmap.colours) : kOk;
}

void find_count_bytes(Input& input, Bitmap& bitmap) {
  const std::int64_t start = input.position();
  bitmap.long_counts = bitmap.row_bytes > kLongestByteCount;
  if (input.may_guess() && !is_row(input, bitmap)) {
    input.go_to(start);
    bitmap.long_counts = !bitmap.long_counts;
    if (!is_row(input, bitmap)) bitmap.long_counts = !bitmap.long_counts;
  }
  input.go_to(start);
}

void skip_rows(Input& input, const Bitmap& bitmap) {
  const int rows = bitmap.bounds.height();
  if (!bitmap.has_counts) return input.skip(bitmap.plain_bytes() * rows);
  for (int i = 0; i < rows && !input.ended(); ++i) input.skip(next_count(input, bitmap));
}

Status BitmapRows::open(Input& input, const Bitmap& bitmap) {
  input_ = &input;
  bitmap_ = &bitmap;
  input.go_to(bitmap.rows_at);
  return bitmap.has_counts ? plain_.allocate(bitmap.plain_bytes()) : kOk;
}

pixels::Bytes BitmapRows::next() {
  pixels::Bytes row;
  if (input_->ended()) return row;
  if (!bitmap_->has_counts) {
    row = input_->take(bitmap_->plain_bytes());
  } else {
    const pixels::Bytes coded = input_->take(next_count(*input_, *bitmap_));
    if (coded.empty()) return row;
    const std::ptrdiff_t there = bitmap_->packing == kWords
                                     ? packbits::decode<2>(coded, plain_.pixels())
                                     : packbits::decode(coded, plain_.pixels());
    std::fill(plain_.pixels().begin() + there, plain_.pixels().end(), std::uint8_t{0});
    row = plain_.pixels();
  }
  // Of four planes the first is alpha.
  const bool alpha = bitmap_->packing == kPlanes && bitmap_->components == 4;
  return alpha ? row.subspan(row.size() / 4) : row;
}

}  // namespace tq::pict
