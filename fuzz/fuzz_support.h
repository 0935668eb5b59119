// What the fuzz targets share: taking values from the input, claims that end the program, digests,
// a caller's file, and images as a caller sees them.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <span>
#include <vector>

#include "core/dib.h"
#include "include/tarnquill.h"

namespace tq::fuzz {

using Bytes = std::span<const std::uint8_t>;
using Memory = std::vector<std::uint8_t>;  // made in one go it ends with its last byte

void fuzz(Bytes input);  // each target's own

inline constexpr std::int32_t kAborted = -777;  // a callback's own answer

// A claim that must hold whatever the input is.
#define TQ_CLAIM(condition)                                                            \
  do {                                                                                 \
    if (!(condition)) ::tq::fuzz::report_broken_claim(#condition, __FILE__, __LINE__); \
  } while (false)

[[noreturn]] inline void report_broken_claim(const char* claim, const char* file, int line) {
  std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, claim);
  std::abort();
}

inline bool one_of(std::int64_t value, std::initializer_list<std::int64_t> values) {
  return std::find(values.begin(), values.end(), value) != values.end();
}

// Takes values off the front of the input; an exhausted input gives zeros.
class Input {
 public:
  explicit Input(Bytes bytes) : rest_(bytes) {}

  bool empty() const { return rest_.empty(); }
  Bytes rest() const { return rest_; }

  std::uint8_t u8() {
    if (rest_.empty()) return 0;
    const std::uint8_t value = rest_.front();
    rest_ = rest_.subspan(1);
    return value;
  }
  std::int32_t i8() { return static_cast<std::int8_t>(u8()); }
  std::int32_t below(std::int32_t limit) { return u8() % limit; }
  Bytes take(std::size_t count) {
    const auto taken = rest_.first(std::min(count, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return taken;
  }

  // Mostly small, now and then at the edges of what an argument can hold.
  std::int32_t any_int() {
    constexpr std::int32_t kEdges[] = {INT32_MIN, INT32_MAX, -1,     0,         1,
                                       0x7FFF,    0x10000,   0xFFFD, 100000000, INT32_MAX - 7};
    const std::uint8_t kind = u8();
    if (kind < 200) return kind - 20;
    if (kind < 240) return kEdges[kind % std::size(kEdges)];
    return static_cast<std::int32_t>(u8() * 0x1000193u);
  }

 private:
  Bytes rest_;
};

// Everything that could be seen of an operation, in one number.
class Digest {
 public:
  void add(Bytes bytes) {
    std::int64_t word;
    for (; bytes.size() >= sizeof word; bytes = bytes.subspan(sizeof word)) {
      std::memcpy(&word, bytes.data(), sizeof word);
      add(word);
    }
    for (const std::uint8_t byte : bytes) add(byte);
  }
  void add(std::int64_t value) {
    state_ = std::rotl(state_ ^ static_cast<std::uint64_t>(value), 29) * 0x9E3779B97F4A7C15;
  }
  void add(const Digest& other) { add(static_cast<std::int64_t>(other.state_)); }
  friend bool operator==(const Digest&, const Digest&) = default;

 private:
  std::uint64_t state_ = 0xCBF29CE484222325;
};

// The file behind the caller's I/O functions. It hands out less than it is asked for, fails in one
// call, and lets `before_call` work first, whose negative answer is a failure as well.
struct CallerFile {
  Memory bytes{};
  std::int32_t most_per_call = 0, failing_call = 0;  // 0: as many as asked for, none
  std::int32_t (*before_call)() = nullptr;
  std::int64_t position = 0;
  std::int32_t calls = 0;

  std::int64_t size() const { return static_cast<std::int64_t>(bytes.size()); }
  bool fails() { return (before_call != nullptr && before_call() < 0) || ++calls == failing_call; }
};
inline CallerFile caller_file;

inline std::int32_t IMG_CB_C caller_read(std::int32_t, void* buffer, std::int32_t count) {
  TQ_CLAIM(count > 0);
  std::memset(buffer, 0x99, static_cast<std::size_t>(count));  // all of it must be there
  CallerFile& file = caller_file;
  if (file.fails()) return -1;
  if (file.position < 0 || file.position >= file.size()) return 0;
  std::int64_t got = std::min<std::int64_t>(count, file.size() - file.position);
  if (file.most_per_call != 0) got = std::min<std::int64_t>(got, file.most_per_call);
  std::memcpy(buffer, &file.bytes[static_cast<std::size_t>(file.position)],
              static_cast<std::size_t>(got));
  file.position += got;
  return static_cast<std::int32_t>(got);
}

inline std::int32_t IMG_CB_C caller_write(std::int32_t, void* buffer, std::int32_t count) {
  constexpr std::int64_t kMostBytes = 256 << 10;
  TQ_CLAIM(count > 0);
  CallerFile& file = caller_file;
  if (file.fails()) return count / 2;
  const std::int64_t end = file.position + count;
  if (file.position < 0 || end > kMostBytes) return 0;
  if (end > file.size()) file.bytes.resize(static_cast<std::size_t>(end));
  std::memcpy(&file.bytes[static_cast<std::size_t>(file.position)], buffer,
              static_cast<std::size_t>(count));
  std::memset(buffer, 0x66, static_cast<std::size_t>(count));  // a caller may scribble on it
  file.position = end;
  return count;
}

inline std::int32_t IMG_CB_C caller_seek(std::int32_t, std::int32_t offset, std::int32_t origin) {
  TQ_CLAIM(origin >= 0 && origin <= 2);
  CallerFile& file = caller_file;
  if (file.fails()) return -1;
  const std::int64_t from[] = {0, file.position, file.size()};
  const std::int64_t to = from[origin] + offset;
  if (to < 0 || to > INT32_MAX) return -1;
  file.position = to;
  return static_cast<std::int32_t>(to);
}

// An image as it can be seen through the interface.
struct View {
  std::int32_t width = 0, height = 0, bits = 0;
  bool has_pixels = false;  // false after a registration that failed
  bool in_runs = false;
  HeaderBlock header{};       // entries that the depth has not: 0
  Memory rows{};              // from the top, as they are copied out
  Memory block{};             // where the image's address points to
  std::int32_t crop[4] = {};  // x, y, width, height

  // The rows with zeros behind the last pixel.
  Memory pixels() const {
    Memory cleared = rows;
    // Depths without a rule take a byte per pixel.
    const int stored_bits = bits == 1 || bits == 4 || bits >= 16 ? bits : 8;
    const std::int64_t used_bits = std::int64_t{width} * stored_bits;
    const auto used = static_cast<std::size_t>((used_bits + 7) / 8);
    const auto stride = static_cast<std::size_t>(row_bytes(width, bits));
    for (std::size_t row = 0; row < cleared.size(); row += stride) {
      std::fill_n(&cleared[row] + used, stride - used, std::uint8_t{0});
      if (used_bits % 8 != 0) {
        cleared[row + used - 1] &= static_cast<std::uint8_t>(0xFF00 >> used_bits % 8);
      }
    }
    return cleared;
  }
  Digest digest() const {
    Digest all;
    all.add({reinterpret_cast<const std::uint8_t*>(&header), sizeof header});
    all.add(rows);
    all.add(block);
    for (const std::int32_t value : crop) all.add(value);
    return all;
  }
};

// Everything that is said of an image must agree.
inline View look_at(std::int32_t image) {
  View view;
  std::int32_t &x = view.crop[0], &y = view.crop[1], &w = view.crop[2], &h = view.crop[3];
  TQ_CLAIM(IMG_get_croprect(image, &x, &y, &w, &h) == 0);
  const std::intptr_t address = IMG_bitmap_info(image, &view.width, &view.height, &view.bits);
  TQ_CLAIM(address != IMG_BAD_HANDLE);
  if (address == IMG_OUT_OF_MEMORY) return view;
  view.has_pixels = true;
  TQ_CLAIM(view.width > 0 && view.height > 0 && view.bits > 0 && view.bits <= 32);
  TQ_CLAIM(x >= 0 && y >= 0 && w >= 0 && h >= 0 && x + w <= view.width && y + h <= view.height);
  TQ_CLAIM(IMGLOW_get_bitmap_header(image, &view.header) == 0);
  const BitmapInfoHeader& header = view.header.header;
  TQ_CLAIM(header.biSize == 40 && header.biWidth == view.width && header.biHeight == view.height &&
           header.biBitCount == view.bits);
  view.in_runs = header.biCompression == kInRuns;
  Memory palette(static_cast<std::size_t>(palette_bytes(view.bits)));
  TQ_CLAIM(IMG_get_bitmap_palette(image, palette.data()) ==
           static_cast<std::int32_t>(palette.size() / 4));
  TQ_CLAIM(std::equal(palette.begin(), palette.end(),
                      reinterpret_cast<const std::uint8_t*>(view.header.palette.data())));
  view.rows.reserve(static_cast<std::size_t>(dib_bytes(view.width, view.height, view.bits)));
  Memory row(static_cast<std::size_t>(row_bytes(view.width, view.bits)));
  TQ_CLAIM(IMGLOW_get_raster(image, row.data(), view.height, 1) == IMG_UNSUPPORTED);
  for (std::int32_t line = 0; line < view.height; ++line) {
    TQ_CLAIM(IMGLOW_get_raster(image, row.data(), line, 0) == 0);
    view.rows.insert(view.rows.end(), row.begin(), row.end());
  }
  const auto* const block = reinterpret_cast<const std::uint8_t*>(address);
  if (!view.in_runs) view.block.assign(block, block + 40 + palette.size() + view.rows.size());
  return view;
}

}  // namespace tq::fuzz
