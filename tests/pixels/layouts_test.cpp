// Every layout against a model that knows where the bits of one pixel are.
#include <gtest/gtest.h>

#include <vector>

#include "pixels/colours.h"
#include "pixels/rows.h"
#include "platform/cpu.h"
#include "tests/support/guarded_block.h"

namespace tq::pixels {
namespace {

using Block = std::vector<std::uint8_t>;

// `count` bits from bit `first` on, the top bit of a byte being its first.
std::uint32_t bits_at(Bytes bytes, int first, int count) {
  std::uint32_t value = 0;
  for (int i = first; i < first + count; ++i) {
    value = value << 1 | (bytes[i / 8] >> (7 - i % 8) & 1);
  }
  return value;
}

std::uint32_t bgr(int blue, int green, int red) {
  return static_cast<std::uint32_t>(blue << 16 | green << 8 | red);
}

// What pixel x of a file's row is in the library's.
std::uint32_t model(const RowLayout& way, Bytes row, int x) {
  const std::ptrdiff_t plane = std::ssize(row) / way.planes;
  const auto at = [&](int i) { return row[x * way.plane_bits / 8 + i]; };
  const int high = way.layout == Layout::rgb555_be ? 0 : 1;
  const int word = way.plane_bits == 16 ? at(1 - high) | at(high) << 8 : 0;
  const auto white = [&](int i) {
    const int alpha = at(way.plane_bits / 8 - 1);
    return (at(i) * alpha + 255 * (255 - alpha) + 127) / 255;
  };
  const auto mixed = [&](int i) { return std::min(at(i) + 255 - at(way.plane_bits / 8 - 1), 255); };
  const auto full = [&](int shift) { return (word >> shift & 31) * 33 / 4; };
  const auto ink = [&](int i) { return std::max(255 - at(i) - at(3), 0); };
  std::uint32_t value = 0;
  switch (way.layout) {
    case Layout::bits_1:
    case Layout::bits_2:
    case Layout::bits_4:
    case Layout::bytes:
      return bits_at(row, x * way.plane_bits, way.plane_bits) & ((1u << way.bits) - 1);
    case Layout::bits_1_black:
      return 1 - bits_at(row, x, 1);
    case Layout::bit_planes_2:
    case Layout::bit_planes_3:
    case Layout::bit_planes_4:
    case Layout::bit_planes_5:
    case Layout::bit_planes_6:
    case Layout::bit_planes_7:
    case Layout::bit_planes_8:
      for (int i = 0; i < way.planes; ++i)
        value |= bits_at(row, static_cast<int>(i * plane * 8) + x, 1) << i;
      return value;
    case Layout::grey16_le:
      return bits_at(row, 16 * x, 16);
    case Layout::grey16_be:
      return static_cast<std::uint32_t>(word);  // as the library's bytes are read from the left
    case Layout::rgb555:
      return bgr((word & 31) << 3, (word >> 5 & 31) << 3, (word >> 10 & 31) << 3);
    case Layout::rgb565:
      return bgr((word & 31) << 3, (word >> 5 & 63) << 2, (word >> 11) << 3);
    case Layout::rgb555_be:
    case Layout::rgb555_full:
      return bgr(full(0), full(5), full(10));
    case Layout::rgb555_alpha:
      return word < 0x8000 ? 0xFFFFFF : bgr(full(0), full(5), full(10));
    case Layout::rgb_planes:
      return bgr(row[2 * plane + x], row[plane + x], row[x]) << (way.bits - 24);
    case Layout::ink_planes:
      for (int i = 0; i < 4; ++i) value = value << 8 | (255u - row[i * plane + x]);
      return value;
    case Layout::bgr:
    case Layout::bgrx:
      return bgr(at(0), at(1), at(2)) << (way.bits - 24);
    case Layout::rgb:
    case Layout::rgbx:
      if (way.bits == 32) return bgr(at(2), at(1), at(0)) << 8;
      return bgr(at(2), at(1), at(0));
    case Layout::xrgb:
      return bgr(at(3), at(2), at(1)) << (way.bits - 24);
    case Layout::xbgr:
      return bgr(at(1), at(2), at(3));
    case Layout::cmyk:
      if (way.bits == 32) return bits_at(row, 32 * x, 32);
      return bgr(ink(2), ink(1), ink(0));
    case Layout::greyx:
      return at(0);
    case Layout::grey_alpha:
      return static_cast<std::uint32_t>(white(0));
    case Layout::grey_mixed:
      return static_cast<std::uint32_t>(mixed(0));
    case Layout::rgba:
      return bgr(white(2), white(1), white(0));
    case Layout::bgra:
      return bgr(white(0), white(1), white(2));
    case Layout::bgra_mixed:
      return bgr(mixed(0), mixed(1), mixed(2));
  }
  return value;
}

std::uint32_t state = 1;
Block noise(std::int64_t size) {
  Block bytes(static_cast<std::size_t>(size));
  for (auto& one : bytes)
    one = static_cast<std::uint8_t>((state = state * 1664525 + 1013904223) >> 24);
  return bytes;
}

// The file has `there` of `width` pixels; the rest has to be 0.
void check_unpack(const RowLayout& way, int width, int there) {
  const test::GuardedBlock stored(noise(stored_bytes(way, there)));
  const test::GuardedBlock row(noise(row_bytes(width, way.bits)));
  unpack(way, stored.bytes(), width, row.bytes());
  for (int x = 0; x < width; ++x) {
    if (x >= there && x < there + 7 - (there + 7) % 8) continue;  // of the last byte
    ASSERT_EQ(bits_at(row.bytes(), x * way.bits, way.bits),
              x < there ? model(way, stored.bytes(), x) : 0)
        << x;
  }
}

void check_pack(const RowLayout& way, int width) {
  const test::GuardedBlock row(noise(row_bytes(width, way.bits)));
  const test::GuardedBlock stored(noise(stored_bytes(way, width + 9)));
  pack(way, row.bytes(), width, stored.bytes());
  const bool inks = way.layout == Layout::cmyk || way.layout == Layout::ink_planes;
  const bool unused = way.bits == 32 && !inks;
  const std::uint32_t counted = unused ? 0xFFFFFF00 : 0xFFFFFFFF;
  for (int x = 0; x < width; ++x) {
    ASSERT_EQ(bits_at(row.bytes(), x * way.bits, way.bits) & counted, model(way, stored.bytes(), x))
        << x;
  }
  // Behind the pixels, and the byte that a layout has no colour for.
  const std::ptrdiff_t plane = std::ssize(stored.bytes()) / way.planes;
  for (int i = 1; i <= way.planes; ++i) EXPECT_EQ(stored.data()[i * plane - 1], 0);
  EXPECT_EQ(way.layout == Layout::xrgb ? stored.data()[0] : 0, 0);
}

TEST(Layouts, AgreeWithTheModelAtEveryWidth) {
  for (const bool fast : {false, true}) {
    platform::mask_cpu_features({fast, fast, fast, fast, fast});
    for (const RowLayout& way : row_layouts()) {
      EXPECT_EQ(find_layout(way.layout, way.bits), &way);
      for (int width = 1; width <= 100; ++width) {
        SCOPED_TRACE(testing::Message() << &way - row_layouts().data() << ", " << width);
        if (way.unpack != nullptr) check_unpack(way, width, width);
        if (way.unpack != nullptr) check_unpack(way, width, width / 3);
        if (way.pack != nullptr) check_pack(way, width);
      }
    }
  }
  EXPECT_EQ(find_layout(Layout::rgb555, 16), nullptr);
}

// Channels of every width: 5 and 6 bits repeat their first ones, 10 are rounded, one is on or off.
TEST(Layouts, MasksFindTheirBitsInEitherOrder) {
  const auto pixel = [](const ColourMasks& masks, Block stored, bool big_endian) {
    Block row(4, 9);
    unpack_masked(masks, stored, static_cast<int>(stored.size()), big_endian, 1, row);
    return row;
  };
  EXPECT_EQ(pixel({0xF800, 0x7E0, 0x1F}, {0x43, 0x18}, false), (Block{24, 8, 24, 0}));
  EXPECT_EQ(pixel({0xF800, 0x7E0, 0x1F}, {0x18, 0x43}, true), (Block{24, 8, 24, 0}));
  EXPECT_EQ(pixel({0xFF, 0xFF00, 0xFF0000}, {1, 2, 3}, false), (Block{3, 2, 1, 0}));
  EXPECT_EQ(pixel({0x3FF00000, 0, 0x80000000}, {0, 0, 0x30, 0x80}, false), (Block{255, 0, 1, 0}));
}

}  // namespace
}  // namespace tq::pixels
