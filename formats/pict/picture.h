// The commands of a picture, and the bitmaps among them (Inside Macintosh: Imaging With QuickDraw,
// appendix A).
#pragma once

#include <array>

#include "formats/codec.h"
#include "io/endian.h"
#include "io/stream_window.h"
#include "pixels/rows.h"

namespace tq::pict {

enum Opcode : int {
  kPatterns = 0x12,  // to 0x14
  kBitsRect = 0x90,
  kBitsRegion = 0x91,
  kPackedBitsRect = 0x98,
  kPackedBitsRegion = 0x99,
  kDirectBitsRect = 0x9A,
  kDirectBitsRegion = 0x9B,
  kEnd = 0xFF,
  kHeader = 0x0C00,
  kCompressed = 0x8200,
};
enum Packing : int { kDefault, kUnpacked, kThreeBytes, kWords, kPlanes };

inline constexpr int kFileHeaderBytes = 512;
inline constexpr std::int64_t kWindowBytes = 65536;  // the longest row

// Reads on from a position. Behind the end all fields are 0.
class Input {
 public:
  Status open(StreamHandle stream) {
    may_guess_ = end_is_known(stream);
    return window_.open(stream, kWindowBytes);
  }

  pixels::Bytes take(std::int64_t bytes) {
    const pixels::Bytes taken = window_.at(at_, bytes);
    ended_ = ended_ || std::ssize(taken) < bytes;
    at_ += bytes;
    return taken;
  }
  int u8() {
    const pixels::Bytes byte = take(1);
    return byte.empty() ? 0 : byte[0];
  }
  int u16() {
    const pixels::Bytes field = take(2);
    return std::ssize(field) < 2 ? 0 : load_be16(field.data());
  }
  int i16() { return static_cast<std::int16_t>(u16()); }
  std::uint32_t u32() {
    const pixels::Bytes field = take(4);
    return std::ssize(field) < 4 ? 0 : load_be32(field.data());
  }
  void skip(std::int64_t bytes) { at_ += bytes; }

  std::int64_t position() const { return at_; }
  void go_to(std::int64_t position) {
    at_ = position;
    ended_ = false;
  }
  bool ended() const { return ended_; }
  bool may_guess() const { return may_guess_; }  // a guess may lead behind the end

 private:
  StreamWindow window_;
  std::int64_t at_ = 0;
  bool ended_ = false;
  bool may_guess_ = false;
};

struct Area {
  int top = 0, left = 0, bottom = 0, right = 0;

  static Area read(Input& input) {
    Area area;
    for (int* side : {&area.top, &area.left, &area.bottom, &area.right}) *side = input.i16();
    return area;
  }
  int width() const { return right - left; }
  int height() const { return bottom - top; }
  bool is_empty() const { return width() <= 0 || height() <= 0; }
  bool holds(const Area& other) const {
    return other.top >= top && other.left >= left && other.bottom <= bottom && other.right <= right;
  }
  friend bool operator==(const Area&, const Area&) = default;
};

// One that is drawn.
struct Bitmap {
  Area bounds, source, destination;
  int row_bytes = 0;
  int bits = 1, components = 1;
  bool is_pixmap = false;  // with a colour table, or colours
  bool is_direct = false;  // colours
  bool has_counts = false;
  bool long_counts = false;
  int packing = kDefault;
  std::int32_t x_dpi = 0, y_dpi = 0;
  std::array<Rgb, 256> colours{};
  std::int64_t rows_at = 0;  // in the stream
  bool is_jpeg = false;      // a JPEG stream instead of rows

  // Of a row without its count: as the layout has it, and as it is coded.
  const pixels::RowLayout* layout() const;
  std::int64_t plain_bytes() const;
};

// From the size of the rows on; `direct`: of colours, else with a colour table where the size says
// so. bad_image.
Status read_pixmap(Input& input, bool direct, bool packed, Bitmap& bitmap);
// The counts of rows above 250 bytes have two bytes. Some writers have other limits, so the first row
// is looked at, where the input stands.
void find_count_bytes(Input& input, Bitmap& bitmap);
void skip_rows(Input& input, const Bitmap& bitmap);

// The rows of a bitmap from the top.
class BitmapRows {
 public:
  Status open(Input& input, const Bitmap& bitmap);

  // A row as the layout has it; empty when there is no more.
  pixels::Bytes next();

 private:
  Input* input_ = nullptr;
  const Bitmap* bitmap_ = nullptr;
  RowBuffer<std::uint8_t> plain_;
};

}  // namespace tq::pict
