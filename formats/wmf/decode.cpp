// How large a metafile is, and whether it is a bitmap or has to be drawn.
#include "formats/bmp/bmp.h"
#include "formats/wmf/player.h"
#include "formats/wmf/wmf.h"

namespace tq::wmf {
namespace {

using formats::DecodeRequest;
using formats::RowSink;

constexpr std::uint32_t kPlaceableKey = 0x9AC6CDD7;
constexpr int kPlaceableBytes = 22, kHeaderBytes = 18;
constexpr std::int32_t kDotsPerInch = 96, kLongestSide = 4096;

// Behind it the records begin. bad_image for another header.
Status check_header(Records& records, std::int64_t at) {
  constexpr int kMemory = 1, kDisk = 2, kHeaderWords = 9;
  const pixels::Bytes header = records.bytes(at, kHeaderBytes);
  if (std::ssize(header) < kHeaderBytes) return StatusCode::read_failed;
  const int type = load_le16(&header[0]);
  const bool known = (type == kMemory || type == kDisk) && load_le16(&header[2]) == kHeaderWords;
  return known ? StatusCode::ok : StatusCode::bad_image;
}

// bad_image for a picture of no size.
Status choose_size(Frame& frame) {
  const std::int64_t wide = std::abs(std::int64_t{frame.right} - frame.left);
  const std::int64_t high = std::abs(std::int64_t{frame.bottom} - frame.top);
  if (frame.inch < 1 || wide == 0 || high == 0) return StatusCode::bad_image;
  const auto dots = [](std::int64_t units, std::int64_t factor, std::int64_t divisor) {
    return std::max<std::int64_t>((2 * units * factor + divisor) / (2 * divisor), 1);
  };
  const std::int64_t longest = std::max(wide, high);
  const bool fits = dots(longest, kDotsPerInch, frame.inch) <= kLongestSide;
  const std::int64_t factor = fits ? kDotsPerInch : kLongestSide;
  const std::int64_t divisor = fits ? frame.inch : longest;
  frame.width = static_cast<std::int32_t>(dots(wide, factor, divisor));
  frame.height = static_cast<std::int32_t>(dots(high, factor, divisor));
  return kOk;
}

Status read_placeable(Records& records, std::int64_t at, Frame& frame) {
  const pixels::Bytes header = records.bytes(at, kPlaceableBytes);
  if (std::ssize(header) < kPlaceableBytes) return StatusCode::read_failed;
  const auto side = [&](int offset) {
    return static_cast<std::int16_t>(load_le16(&header[offset]));
  };
  frame = {.left = side(6), .top = side(8), .right = side(10), .bottom = side(12)};
  frame.inch = load_le16(&header[14]);
  return choose_size(frame);
}

// What the first window shows, at so many units per inch; bad_image without one.
Status find_window(Records& records, std::int64_t at, std::int64_t end, const Part& part,
                   Frame& frame) {
  constexpr std::int32_t kHundredthsPerInch = 2540;
  bool has_origin = false, has_extent = false;
  int x = 0, y = 0, width = 0, height = 0;
  records.begin(at, end);
  Record record;
  while ((!has_extent || !has_origin) && records.next(record)) {
    if (record.function == kSetWindowOrigin && !has_origin) {
      y = records.i16(record, 0);
      x = records.i16(record, 1);
      has_origin = true;
    } else if (record.function == kSetWindowExtent && !has_extent) {
      height = records.i16(record, 0);
      width = records.i16(record, 1);
      has_extent = true;
    }
  }
  const bool has_size = part.width > 0 && part.height > 0;
  if (!has_extent && has_size) {
    width = part.width;
    height = part.height;
  }
  frame = {.left = x, .top = y, .right = x + width, .bottom = y + height, .inch = kDotsPerInch};
  if (!has_size) return choose_size(frame);
  Frame sized{.right = part.width, .bottom = part.height, .inch = kHundredthsPerInch};
  TQ_TRY(choose_size(sized));
  if (width == 0 || height == 0) return StatusCode::bad_image;
  frame.width = sized.width;
  frame.height = sized.height;
  // What is drawn in units of its own has the size that the width is said to have.
  const std::int64_t inch = std::int64_t{kHundredthsPerInch} * std::abs(width) / part.width;
  frame.inch = static_cast<std::int32_t>(std::clamp<std::int64_t>(inch, 1, UINT16_MAX));
  return kOk;
}

// Of the picture, in thousandths of a dot per inch, when so many dots cover it.
Resolution resolution_of(const Frame& frame, std::int64_t width, std::int64_t height) {
  const auto thousandths = [&](std::int64_t dots, double units) {
    const double value = 1000.0 * double(dots) * frame.inch / units + 0.5;
    return value <= double(Resolution::kMost) ? static_cast<std::int32_t>(value) : 0;
  };
  return {thousandths(width, frame.units_wide()), thousandths(height, frame.units_high())};
}

void set_resolution(BitmapInfoHeader& header, Resolution resolution) {
  header.biXPelsPerMeter = (resolution.x + 500) / 1000;
  header.biYPelsPerMeter = (resolution.y + 500) / 1000;
}

// A bitmap that covers the picture, which says how large it is.
class SizedBitmap {
 public:
  SizedBitmap(const RowSink& sink, const Frame& frame) : sink_(sink), frame_(frame) {}
  RowSink sink() { return {on_header, on_row, this, sink_.notes}; }

 private:
  static std::int32_t IMG_CB_C on_header(void* block, void* context) {
    const auto& self = *static_cast<SizedBitmap*>(context);
    BitmapInfoHeader& header = static_cast<HeaderBlock*>(block)->header;
    const Resolution exact = resolution_of(self.frame_, header.biWidth, header.biHeight);
    self.sink_.resolution(exact);
    set_resolution(header, exact);
    return self.sink_.on_header == nullptr ? 0 : self.sink_.on_header(block, self.sink_.context);
  }
  static std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y,
                                      std::int32_t bytes) {
    const auto& self = *static_cast<SizedBitmap*>(context);
    return self.sink_.on_row == nullptr ? 0 : self.sink_.on_row(row, self.sink_.context, y, bytes);
  }

  const RowSink& sink_;
  const Frame& frame_;
};

// Whether all of it is seen, on all of the picture but for a unit at each side.
bool is_whole(const Blit& blit, const Frame& frame, const BitmapInfoHeader& header) {
  // A unit of a picture of few of them is much of it.
  const auto covers = [](std::int64_t from, std::int64_t to, std::int64_t side, std::int64_t unit) {
    const std::int64_t most = std::min(unit, side / 8) + 1;
    return std::abs(from) <= most && std::abs(to - side) <= most;
  };
  return covers(blit.from.x, blit.to.x, frame.width * kDot, blit.unit.x) &&
         covers(blit.from.y, blit.to.y, frame.height * kDot, blit.unit.y) && blit.x == 0 &&
         blit.y == 0 && blit.width == header.biWidth && blit.height == header.biHeight &&
         blit.first_row == 0 && blit.rows >= header.biHeight;
}

bool is_one_bitmap(const DecodeRequest& request, const Player& player, const Frame& frame) {
  const Blit& blit = player.first_blit();
  if (player.drawn() != 1 || blit.at == 0 || blit.is_old || blit.operation != kSourceCopy)
    return false;
  BitmapInfoHeader header{};
  const Status status = read_header(request, blit, header);
  return status == StatusCode::stop_after_header && is_whole(blit, frame, header);
}

Status draw(const DecodeRequest& request, Records& records, const Frame& frame, std::int64_t at,
            std::int64_t end) {
  // As many dots as a player needs at most ten seconds for, fewer for files of few bytes.
  constexpr std::int64_t kMostWork = std::int64_t{1} << 31, kLeastWork = std::int64_t{1} << 28;
  constexpr std::int64_t kWorkPerByte = 1 << 11;
  HeaderBlock image = dib_header(frame.width, frame.height, 24);
  const Resolution exact = resolution_of(frame, frame.width, frame.height);
  request.sink.resolution(exact);
  set_resolution(image.header, exact);
  TQ_TRY(request.sink.header(image));
  Canvas canvas;
  TQ_TRY(canvas.open(frame.width, frame.height,
                     std::min(kMostWork, kLeastWork + kWorkPerByte * (end - at))));
  Player player;
  TQ_TRY(player.open(request, records, frame, &canvas));
  TQ_TRY(player.play(at, end));
  return canvas.deliver(request.sink);
}

Status decode_records(const DecodeRequest& request, Records& records, const Frame& frame,
                      std::int64_t at, std::int64_t end) {
  Player player;
  TQ_TRY(player.open(request, records, frame, nullptr));
  TQ_TRY(player.play(at, end));
  const bool whole = records.whole();
  if (is_one_bitmap(request, player, frame)) {
    return decode_bitmap(request, player.first_blit(), SizedBitmap(request.sink, frame).sink());
  }
  if (!whole) request.sink.damaged(StatusCode::read_failed);
  return draw(request, records, frame, at, end);
}

}  // namespace

Status decode_part(const DecodeRequest& request, const Part& part) {
  Records records;
  TQ_TRY(records.open(request.stream));
  const std::int64_t end = std::min(part.end, find_end(request.stream));
  records.begin(part.at, end);
  const pixels::Bytes key = records.bytes(part.at, 4);
  if (std::ssize(key) < 4) return StatusCode::read_failed;
  const bool placeable = load_le32(key.data()) == kPlaceableKey;
  const std::int64_t header = part.at + (placeable ? kPlaceableBytes : 0);
  Frame frame;
  if (placeable) TQ_TRY(read_placeable(records, part.at, frame));
  TQ_TRY(check_header(records, header));
  const std::int64_t at = header + kHeaderBytes;
  if (!placeable) TQ_TRY(find_window(records, at, end, part, frame));
  return decode_records(request, records, frame, at, end);
}

Status decode_wmf(const DecodeRequest& request) {
  return decode_part(request, {.at = request.start()});
}

}  // namespace tq::wmf
