// The table of layouts: one row of it is a way between a file's rows and the library's.
#include <algorithm>
#include <array>
#include <bit>

#include "pixels/colours.h"
#include "pixels/kernels.h"
#include "pixels/rows.h"

namespace tq::pixels {
namespace {

using From = const std::uint8_t*;
using To = std::uint8_t*;

// As they are: bytes, and what the last one holds of pixels; the rest of it is 0.
template <int kBits, int kFlipped = 0>
void copy_pixels(From from, int width, To to) {
  const std::int64_t bits = std::int64_t{width} * kBits;
  const std::int64_t whole = bits / 8;
  if constexpr (kFlipped == 0) {
    std::memcpy(to, from, static_cast<std::size_t>(whole));
  } else {
    for (std::int64_t i = 0; i < whole; ++i) to[i] = byte(~from[i]);
  }
  if (bits % 8 != 0) to[whole] = byte((from[whole] ^ kFlipped) & 0xFF00 >> bits % 8);
}

template <int kBits, int kFlipped = 0>
void unpack_copy(From stored, std::ptrdiff_t, int width, To row) {
  copy_pixels<kBits, kFlipped>(stored, width, row);
}

template <int kBits, int kFlipped = 0>
void pack_copy(From row, int width, To stored, std::ptrdiff_t) {
  copy_pixels<kBits, kFlipped>(row, width, stored);
}

// Indices

template <int kBits>
int stored_index(From stored, int x) {
  constexpr int kPerByte = 8 / kBits;
  return stored[x / kPerByte] >> (8 - kBits - x % kPerByte * kBits) & ((1 << kBits) - 1);
}

template <int kBits>
void indices_to_4(From stored, std::ptrdiff_t, int width, To row) {
  pack_nibbles(row, width, [&](int x) { return stored_index<kBits>(stored, x) & 15; });
}

void bytes_to_1(From stored, std::ptrdiff_t, int width, To row) {
  const auto gathered = [](From from, int count) {
    int bits = 0;
    for (int i = 0; i < count; ++i) bits |= (from[i] & 1) << (7 - i);
    return byte(bits);
  };
  int x = 0;
  for (; x + 8 <= width; x += 8) *row++ = gathered(stored + x, 8);
  if (x < width) *row = gathered(stored + x, width - x);
}

template <int kBits>
void to_bytes(From row, int width, To stored, std::ptrdiff_t) {
  for_each_index(row, kBits, width, [&](int x, int index) { stored[x] = byte(index); });
}

// Planes of bits, eight pixels at a time

// A byte's bits in the lowest bits of eight nibbles, the first pixel in the highest nibble.
constexpr std::array<std::uint32_t, 256> kSpread = [] {
  std::array<std::uint32_t, 256> spread{};
  for (std::uint32_t bits = 0; bits < 256; ++bits) {
    for (int bit = 0; bit < 8; ++bit) spread[bits] |= (bits >> bit & 1) << 4 * bit;
  }
  return spread;
}();

// The opposite.
constexpr std::uint8_t gather(std::uint32_t nibbles) {
  std::uint32_t bits = nibbles & 0x11111111;
  bits = (bits | bits >> 3) & 0x03030303;
  bits = (bits | bits >> 6) & 0x000F000F;
  return byte(bits | bits >> 12);
}

std::uint32_t load_nibbles(From from) {
  std::uint32_t nibbles;
  std::memcpy(&nibbles, from, sizeof nibbles);
  return __builtin_bswap32(nibbles);
}

void store_nibbles(To to, std::uint32_t nibbles) {
  const std::uint32_t stored = __builtin_bswap32(nibbles);
  std::memcpy(to, &stored, sizeof stored);
}

template <int kPlanes>
void merge_planes(From stored, std::ptrdiff_t plane_bytes, int width, To row) {
  for (int x = 0; x < width; x += 8, ++stored, row += 4) {
    std::uint32_t nibbles = 0;
    for (int i = 0; i < kPlanes; ++i) nibbles |= kSpread[stored[i * plane_bytes]] << i;
    store_nibbles(row, nibbles);
  }
}

void split_planes(From row, int width, To stored, std::ptrdiff_t plane_bytes) {
  for (int x = 0; x < width; x += 8, ++stored, row += 4) {
    const std::uint32_t nibbles = load_nibbles(row);
    for (int i = 0; i < 4; ++i) stored[i * plane_bytes] = gather(nibbles >> i);
  }
}

// The same for pixels of a byte.
constexpr std::array<std::uint64_t, 256> kSpreadBytes = [] {
  std::array<std::uint64_t, 256> spread{};
  for (std::uint32_t bits = 0; bits < 256; ++bits) {
    for (int bit = 0; bit < 8; ++bit) {
      spread[bits] |= std::uint64_t{bits >> bit & 1} << 8 * (7 - bit);
    }
  }
  return spread;
}();

constexpr std::uint8_t gather_bytes(std::uint64_t bytes) {
  return byte((bytes & 0x0101010101010101) * 0x8040201008040201 >> 56);
}

template <int kPlanes>
void merge_to_bytes(From stored, std::ptrdiff_t plane_bytes, int width, To row) {
  for (int x = 0; x < width; x += 8, ++stored, row += 8) {
    std::uint64_t pixels = 0;
    for (int i = 0; i < kPlanes; ++i) pixels |= kSpreadBytes[stored[i * plane_bytes]] << i;
    std::memcpy(row, &pixels, static_cast<std::size_t>(std::min(width - x, 8)));
  }
}

void split_bytes(From row, int width, To stored, std::ptrdiff_t plane_bytes) {
  for (int x = 0; x < width; x += 8, ++stored, row += 8) {
    std::uint64_t pixels = 0;
    std::memcpy(&pixels, row, static_cast<std::size_t>(std::min(width - x, 8)));
    for (int i = 0; i < 8; ++i) stored[i * plane_bytes] = gather_bytes(pixels >> i);
  }
}

// Words

void swap_words(From from, To to, int width) {
  for (int x = 0; x < width; ++x, from += 2, to += 2) {
    const std::uint8_t high = from[0];
    to[0] = from[1];
    to[1] = high;
  }
}

void unpack_grey16(From stored, std::ptrdiff_t, int width, To row) {
  swap_words(stored, row, width);
}

void pack_grey16(From row, int width, To stored, std::ptrdiff_t) {
  swap_words(row, stored, width);
}

// The low bits of a channel stay 0, so full intensity is 248 or 252 and not 255.
template <int kGreenBits>
void widen_words(From stored, std::ptrdiff_t, int width, To row) {
  constexpr int kGreen = 0xFF << (8 - kGreenBits) & 0xFF;
  for (int x = 0; x < width; ++x, stored += 2, row += 3) {
    const int pixel = stored[0] | stored[1] << 8;
    row[0] = byte(pixel << 3 & 0xF8);
    row[1] = byte(pixel >> (kGreenBits - 3) & kGreen);
    row[2] = byte(pixel >> (kGreenBits + 2) & 0xF8);
  }
}

template <bool kAlpha, int kHigh = 1>
void widen_words_fully(From stored, std::ptrdiff_t, int width, To row) {
  for (int x = 0; x < width; ++x, stored += 2, row += 3) {
    const int pixel = stored[1 - kHigh] | stored[kHigh] << 8;
    const bool hidden = kAlpha && pixel < 0x8000;
    for (int i = 0; i < 3; ++i) {
      row[i] = hidden ? std::uint8_t{255} : from_5_bits(pixel >> 5 * i & 31);
    }
  }
}

// A byte for each channel

void merge_channels(From stored, std::ptrdiff_t plane_bytes, int width, To row) {
  kernels().merge_planes(stored + 2 * plane_bytes, stored + plane_bytes, stored, row, width);
}

void split_channels(From row, int width, To stored, std::ptrdiff_t plane_bytes) {
  kernels().split_planes(row, stored + 2 * plane_bytes, stored + plane_bytes, stored, width);
}

void swap_channels(From stored, std::ptrdiff_t, int width, To row) {
  kernels().swap_24(stored, row, width);
}

void swap_channels_back(From row, int width, To stored, std::ptrdiff_t) {
  kernels().swap_24(row, stored, width);
}

void split_channels_of_4(From row, int width, To stored, std::ptrdiff_t plane_bytes) {
  for (int x = 0; x < width; ++x, row += 4, ++stored) {
    for (int i = 0; i < 3; ++i) stored[i * plane_bytes] = row[2 - i];
  }
}

void merge_inks(From stored, std::ptrdiff_t plane_bytes, int width, To row) {
  for (int x = 0; x < width; ++x, row += 4) {
    for (int i = 0; i < 4; ++i) row[i] = byte(~stored[i * plane_bytes + x]);
  }
}

void split_inks(From row, int width, To stored, std::ptrdiff_t plane_bytes) {
  for (int x = 0; x < width; ++x, row += 4) {
    for (int i = 0; i < 4; ++i) stored[i * plane_bytes + x] = byte(~row[i]);
  }
}

// kStep bytes a pixel, with red at kRed, green and blue behind it.
template <int kStep, int kRed>
void turn_to_bgr(From stored, std::ptrdiff_t, int width, To row) {
  for (int x = 0; x < width; ++x, stored += kStep, row += 3) {
    const std::uint8_t red = stored[kRed];
    row[1] = stored[kRed + 1];
    row[0] = stored[kRed + 2];
    row[2] = red;
  }
}

template <int kStep>
void turn_to_rgb(From row, int width, To stored, std::ptrdiff_t) {
  for (int x = 0; x < width; ++x, row += kStep, stored += 3) {
    stored[0] = row[2];
    stored[1] = row[1];
    stored[2] = row[0];
  }
}

void drop_fourth(From row, int width, To stored, std::ptrdiff_t) {
  for (int x = 0; x < width; ++x, row += 4, stored += 3) {
    for (int i = 0; i < 3; ++i) stored[i] = row[i];
  }
}

void unpack_bgrx(From stored, std::ptrdiff_t, int width, To row) {
  drop_fourth(stored, width, row, 0);
}

void drop_first(From stored, std::ptrdiff_t, int width, To row) {
  for (int x = 0; x < width; ++x, stored += 4, row += 3) {
    for (int i = 0; i < 3; ++i) row[i] = stored[i + 1];
  }
}

void pack_xrgb(From row, int width, To stored, std::ptrdiff_t) {
  kernels().widen_24_reversed(row, stored, width);
}

void turn_words(From row, int width, To stored, std::ptrdiff_t) {
  for (int x = 0; x < width; ++x, row += 4, stored += 4) {
    stored[0] = 0;
    for (int i = 0; i < 3; ++i) stored[1 + i] = row[2 - i];
  }
}

void mix_cmyk(From stored, std::ptrdiff_t, int width, To row) {
  for (int x = 0; x < width; ++x, stored += 4, row += 3) {
    const Rgb colour = colour_of_cmyk(stored);
    row[0] = colour.blue;
    row[1] = colour.green;
    row[2] = colour.red;
  }
}

void take_grey(From stored, std::ptrdiff_t, int width, To row) {
  for (int x = 0; x < width; ++x) row[x] = stored[2 * x];
}

template <auto kLaid>
void lay_grey(From stored, std::ptrdiff_t, int width, To row) {
  for (int x = 0; x < width; ++x, stored += 2) row[x] = kLaid(stored[0], stored[1]);
}

template <auto kLaid, int kBlue>
void lay_colours(From stored, std::ptrdiff_t, int width, To row) {
  constexpr int kStep = kBlue == 0 ? 1 : -1;
  for (int x = 0; x < width; ++x, stored += 4, row += 3) {
    for (int i = 0; i < 3; ++i) row[i] = kLaid(stored[kBlue + i * kStep], stored[3]);
  }
}

constexpr RowLayout kLayouts[] = {
    {Layout::bits_1, 1, 1, 1, unpack_copy<1>, pack_copy<1>},
    {Layout::bits_1, 4, 1, 1, indices_to_4<1>, nullptr},
    {Layout::bits_1_black, 1, 1, 1, unpack_copy<1, 255>, pack_copy<1, 255>},
    {Layout::bits_2, 4, 2, 1, indices_to_4<2>, nullptr},
    {Layout::bits_4, 4, 4, 1, unpack_copy<4>, pack_copy<4>},
    {Layout::bytes, 1, 8, 1, bytes_to_1, to_bytes<1>},
    {Layout::bytes, 4, 8, 1, indices_to_4<8>, to_bytes<4>},
    {Layout::bytes, 8, 8, 1, unpack_copy<8>, pack_copy<8>},
    {Layout::bit_planes_2, 4, 1, 2, merge_planes<2>, nullptr},
    {Layout::bit_planes_3, 4, 1, 3, merge_planes<3>, nullptr},
    {Layout::bit_planes_4, 4, 1, 4, merge_planes<4>, split_planes},
    {Layout::bit_planes_5, 8, 1, 5, merge_to_bytes<5>, nullptr},
    {Layout::bit_planes_6, 8, 1, 6, merge_to_bytes<6>, nullptr},
    {Layout::bit_planes_7, 8, 1, 7, merge_to_bytes<7>, nullptr},
    {Layout::bit_planes_8, 8, 1, 8, merge_to_bytes<8>, split_bytes},
    {Layout::grey16_be, 16, 16, 1, unpack_grey16, pack_grey16},
    {Layout::grey16_le, 16, 16, 1, unpack_copy<16>, pack_copy<16>},
    {Layout::rgb555, 24, 16, 1, widen_words<5>, nullptr},
    {Layout::rgb565, 24, 16, 1, widen_words<6>, nullptr},
    {Layout::rgb555_full, 24, 16, 1, widen_words_fully<false>, nullptr},
    {Layout::rgb555_alpha, 24, 16, 1, widen_words_fully<true>, nullptr},
    {Layout::rgb555_be, 24, 16, 1, widen_words_fully<false, 0>, nullptr},
    {Layout::rgb_planes, 24, 8, 3, merge_channels, split_channels},
    {Layout::rgb_planes, 32, 8, 3, nullptr, split_channels_of_4},
    {Layout::ink_planes, 32, 8, 4, merge_inks, split_inks},
    {Layout::rgb, 24, 24, 1, swap_channels, swap_channels_back},
    {Layout::rgb, 32, 24, 1, nullptr, turn_to_rgb<4>},
    {Layout::bgr, 24, 24, 1, unpack_copy<24>, pack_copy<24>},
    {Layout::bgr, 32, 24, 1, nullptr, drop_fourth},
    {Layout::rgbx, 24, 32, 1, turn_to_bgr<4, 0>, nullptr},
    {Layout::bgrx, 24, 32, 1, unpack_bgrx, nullptr},
    {Layout::xrgb, 24, 32, 1, turn_to_bgr<4, 1>, pack_xrgb},
    {Layout::xrgb, 32, 32, 1, nullptr, turn_words},
    {Layout::xbgr, 24, 32, 1, drop_first, nullptr},
    {Layout::cmyk, 32, 32, 1, unpack_copy<32>, pack_copy<32>},
    {Layout::cmyk, 24, 32, 1, mix_cmyk, nullptr},
    {Layout::greyx, 8, 16, 1, take_grey, nullptr},
    {Layout::grey_alpha, 8, 16, 1, lay_grey<on_white>, nullptr},
    {Layout::grey_mixed, 8, 16, 1, lay_grey<mixed_on_white>, nullptr},
    {Layout::rgba, 24, 32, 1, lay_colours<on_white, 2>, nullptr},
    {Layout::bgra, 24, 32, 1, lay_colours<on_white, 0>, nullptr},
    {Layout::bgra_mixed, 24, 32, 1, lay_colours<mixed_on_white, 0>, nullptr},
};

// How many pixels both sides have room for.
int common_width(const RowLayout& layout, int width, std::ptrdiff_t plane_bytes,
                 std::ptrdiff_t row_bytes) {
  const auto pixels_in = [](std::int64_t bytes, int bits) { return bytes * 8 / bits; };
  return static_cast<int>(std::min({std::int64_t{width}, pixels_in(plane_bytes, layout.plane_bits),
                                    pixels_in(row_bytes & ~3, layout.bits)}));
}

// Clears what lies behind the whole bytes of the pixels, before those are written.
void clear_behind(Row row, int width, int bits) {
  const auto filled = static_cast<std::ptrdiff_t>(std::int64_t{width} * bits / 8);
  std::fill(row.begin() + filled, row.end(), std::uint8_t{0});
}

}  // namespace

std::span<const RowLayout> row_layouts() {
  return kLayouts;
}

const RowLayout* find_layout(Layout layout, int bits) {
  for (const RowLayout& way : kLayouts) {
    if (way.layout == layout && way.bits == bits) return &way;
  }
  return nullptr;
}

const RowLayout* find_bit_layout(std::span<const Rgb> colours) {
  const std::array<Rgb, 2>& sorted = black_and_white();
  if (colours[0] == sorted[0] && colours[1] == sorted[1]) return find_layout(Layout::bits_1, 1);
  if (colours[0] == sorted[1] && colours[1] == sorted[0]) {
    return find_layout(Layout::bits_1_black, 1);
  }
  return find_layout(Layout::bits_1, 4);
}

const RowLayout* find_black_layout(std::span<const Rgb> colours) {
  const bool white_first = brightness(colours[0]) > brightness(colours[1]);
  return find_layout(white_first ? Layout::bits_1 : Layout::bits_1_black, 1);
}

const RowLayout* find_plane_layout(int planes) {
  static constexpr Layout kOfPlanes[] = {
      Layout::bits_1,       Layout::bit_planes_2, Layout::bit_planes_3, Layout::bit_planes_4,
      Layout::bit_planes_5, Layout::bit_planes_6, Layout::bit_planes_7, Layout::bit_planes_8};
  return find_layout(kOfPlanes[planes - 1], planes <= 4 ? 4 : 8);
}

void unpack(const RowLayout& layout, Bytes stored, int width, Row row) {
  const std::ptrdiff_t plane_bytes = std::ssize(stored) / layout.planes;
  const int there = common_width(layout, width, plane_bytes, std::ssize(row));
  clear_behind(row, there, layout.bits);
  layout.unpack(stored.data(), plane_bytes, there, row.data());
}

void pack(const RowLayout& layout, Bytes row, int width, Row stored) {
  const std::ptrdiff_t plane_bytes = std::ssize(stored) / layout.planes;
  const int there = common_width(layout, width, plane_bytes, std::ssize(row));
  for (int i = 0; i < layout.planes; ++i) {
    clear_behind(stored.subspan(i * plane_bytes, plane_bytes), there, layout.plane_bits);
  }
  layout.pack(row.data(), there, stored.data(), plane_bytes);
}

namespace {

// One of the colours: its lowest bit, and its largest value.
struct Channel {
  explicit Channel(std::uint32_t mask)
      : low(mask == 0 ? 0 : std::countr_zero(mask)),
        most(mask >> low),
        bits(std::bit_width(most)) {}

  std::uint8_t operator()(std::uint32_t pixel) const {
    const std::uint32_t level = pixel >> low & most;
    if (bits > 8) return byte((std::uint64_t{level} * 255 + most / 2) / most);
    if (bits == 0) return 0;
    std::uint32_t wide = level << (8 - bits);
    for (int have = bits; have < 8; have *= 2) wide |= wide >> have;
    return byte(wide);
  }

  int low;
  std::uint32_t most;
  int bits;
};

}  // namespace

void unpack_masked(const ColourMasks& masks, Bytes stored, int bytes, bool big_endian, int width,
                   Row row) {
  const Channel red(masks.red), green(masks.green), blue(masks.blue);
  const std::ptrdiff_t there = std::min<std::ptrdiff_t>(width, std::ssize(stored) / bytes);
  clear_behind(row, static_cast<int>(there), 24);
  const std::uint8_t* from = stored.data();
  std::uint8_t* to = row.data();
  for (std::ptrdiff_t x = 0; x < there; ++x, from += bytes, to += 3) {
    std::uint32_t pixel = 0;
    for (int i = 0; i < bytes; ++i)
      pixel |= std::uint32_t{from[big_endian ? bytes - 1 - i : i]} << 8 * i;
    to[0] = blue(pixel);
    to[1] = green(pixel);
    to[2] = red(pixel);
  }
}

// In units of 2^-20.
void mix_luma_and_chroma(Row row, int width) {
  constexpr int kBits = 20;
  const auto clamped = [](int value) { return byte(std::clamp(value >> kBits, 0, 255)); };
  for (std::uint8_t* at = row.data(); width > 0; --width, at += 3) {
    const int y = (2 * at[2] + 1) << (kBits - 1), cb = at[1] - 128, cr = at[0] - 128;
    at[0] = clamped(y + 1858077 * cb);
    at[1] = clamped(y - 360853 * cb - 748826 * cr);
    at[2] = clamped(y + 1470104 * cr);
  }
}

void mirror(Row pixels, int pixel_bytes) {
  if (pixels.empty()) return;
  std::uint8_t* left = pixels.data();
  std::uint8_t* right = left + pixels.size() - pixel_bytes;
  for (; left < right; left += pixel_bytes, right -= pixel_bytes) {
    std::swap_ranges(left, left + pixel_bytes, right);
  }
}

}  // namespace tq::pixels
