// The records of a metafile ([MS-WMF]): all numbers are little-endian, sizes count words of 16 bits.
#pragma once

#include <algorithm>

#include "io/endian.h"
#include "io/stream_window.h"
#include "pixels/rows.h"

namespace tq::wmf {

enum Function : int {
  kEnd = 0x0000,
  kSave = 0x001E,
  kRealizePalette = 0x0035,
  kCreatePalette = 0x00F7,
  kSetBackgroundMode = 0x0102,
  kSetMapMode = 0x0103,
  kSetOperation = 0x0104,
  kSetFillMode = 0x0106,
  kRestore = 0x0127,
  kSelectClipRegion = 0x012C,
  kSelectObject = 0x012D,
  kSetTextAlignment = 0x012E,
  kCreateDibPattern = 0x0142,
  kDeleteObject = 0x01F0,
  kCreatePattern = 0x01F9,
  kSetBackgroundColour = 0x0201,
  kSetTextColour = 0x0209,
  kSetWindowOrigin = 0x020B,
  kSetWindowExtent = 0x020C,
  kSetViewportOrigin = 0x020D,
  kSetViewportExtent = 0x020E,
  kOffsetWindow = 0x020F,
  kOffsetViewport = 0x0211,
  kLineTo = 0x0213,
  kMoveTo = 0x0214,
  kOffsetClip = 0x0220,
  kCreatePen = 0x02FA,
  kCreateFont = 0x02FB,
  kCreateBrush = 0x02FC,
  kPolygon = 0x0324,
  kPolyline = 0x0325,
  kScaleWindow = 0x0410,
  kScaleViewport = 0x0412,
  kExcludeClip = 0x0415,
  kIntersectClip = 0x0416,
  kEllipse = 0x0418,
  kRectangle = 0x041B,
  kSetPixel = 0x041F,
  kTextOut = 0x0521,
  kPolyPolygon = 0x0538,
  kRoundRectangle = 0x061C,
  kPatternBlt = 0x061D,
  kCreateRegion = 0x06FF,
  kArc = 0x0817,
  kPie = 0x081A,
  kChord = 0x0830,
  kBitBlt = 0x0922,
  kDibBitBlt = 0x0940,
  kExtTextOut = 0x0A32,
  kStretchBlt = 0x0B23,
  kDibStretchBlt = 0x0B41,
  kSetDibToDevice = 0x0D33,
  kStretchDib = 0x0F43,
};

// What is done with a bitmap and what is there.
enum Operation : std::uint32_t {
  kBlackness = 0x00000042,
  kDestinationInvert = 0x00550009,
  kPatternInvert = 0x005A0049,
  kSourceInvert = 0x00660046,
  kSourceAnd = 0x008800C6,
  kSourceCopy = 0x00CC0020,
  kSourcePaint = 0x00EE0086,
  kWhiteness = 0x00FF0062,
};

struct Record {
  int function = kEnd;
  std::int64_t at = 0, bytes = 0;  // its parameters in the stream

  std::int64_t end() const { return at + bytes; }
};

// Walks through records, and looks at their parameters.
class Records {
 public:
  static constexpr std::int64_t kMost = std::int64_t{1} << 22;

  Status open(StreamHandle stream) { return window_.open(stream, 4096); }
  void begin(std::int64_t at, std::int64_t end) {
    at_ = at;
    end_ = end;
    count_ = 0;
    whole_ = false;
  }

  bool next(Record& record) {
    constexpr int kHeadBytes = 6, kLeastWords = 3;
    const pixels::Bytes head = bytes(at_, kHeadBytes);
    if (std::ssize(head) < kHeadBytes || ++count_ > kMost) return false;
    const std::int64_t words = load_le32(head.data());
    record = {load_le16(&head[4]), at_ + kHeadBytes, 2 * words - kHeadBytes};
    whole_ = record.function == kEnd;
    if (words < kLeastWords || whole_) return false;
    at_ += 2 * words;
    return true;
  }
  // Whether the last one was the record that ends a metafile.
  bool whole() const { return whole_; }
  std::int64_t end() const { return end_; }

  // Parameters; 0 behind the end of a record.
  int u16(const Record& record, std::int64_t index) {
    const pixels::Bytes field = parameters(record, 2 * index, 2);
    return std::ssize(field) < 2 ? 0 : load_le16(field.data());
  }
  int i16(const Record& record, std::int64_t index) {
    return static_cast<std::int16_t>(u16(record, index));
  }
  std::uint32_t u32(const Record& record, std::int64_t index) {
    return static_cast<std::uint32_t>(u16(record, index)) |
           static_cast<std::uint32_t>(u16(record, index + 1)) << 16;
  }
  int u8(const Record& record, std::int64_t offset) {
    const pixels::Bytes field = parameters(record, offset, 1);
    return field.empty() ? 0 : field[0];
  }
  pixels::Bytes parameters(const Record& record, std::int64_t from, std::int64_t count) {
    return bytes(record.at + from, std::min(count, record.bytes - from));
  }

  pixels::Bytes bytes(std::int64_t at, std::int64_t count) {
    return window_.at(at, std::min(count, end_ - at));
  }

 private:
  StreamWindow window_;
  std::int64_t at_ = 0, end_ = 0, count_ = 0;
  bool whole_ = false;
};

}  // namespace tq::wmf
