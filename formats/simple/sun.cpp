// Sun raster files, as rasterfile(5) describes them: eight numbers, a map of colours, rows of whole
// 16-bit units, maybe coded in runs.
#include <algorithm>
#include <array>
#include <cstring>

#include "formats/rows.h"
#include "formats/simple/simple.h"
#include "io/chunk_reader.h"
#include "io/endian.h"
#include "pixels/colours.h"

namespace tq::simple {
namespace {

using namespace pixels;
using Colours = std::array<Rgb, 256>;

enum Type : std::uint32_t { kOld, kStandard, kRuns, kRedFirst };
enum MapType : std::uint32_t { kNoMap, kColours, kRawMap };

constexpr std::uint32_t kMagic = 0x59A66A95;
constexpr int kHeaderBytes = 32;
constexpr std::uint32_t kLargestMap = 3 * 256;

formats::StoredRows rows_of(const RowLayout* layout, std::int64_t width) {
  if (layout == nullptr) return {};
  return {layout, (stored_bytes(*layout, width) + 1) & ~std::int64_t{1}};
}

// Reds, greens, blues.
Status read_map(StreamHandle stream, std::uint32_t bytes, Colours& colours) {
  std::array<std::uint8_t, kLargestMap> map;
  if (bytes % 3 != 0 || bytes > kLargestMap) return StatusCode::bad_image;
  const int count = static_cast<int>(bytes) / 3;
  if (read_fully(stream, std::span(map).first(bytes)) < 3 * count) return StatusCode::read_failed;
  for (int i = 0; i < count; ++i) colours[i] = {map[2 * count + i], map[count + i], map[i], 0};
  return kOk;
}

// From pixels of `depth` bits; null for a depth that there is not.
const RowLayout* choose_layout(std::uint32_t depth, bool red_first, const Colours& colours) {
  switch (depth) {
    case 1:
      return find_bit_layout(colours);
    case 4:
      return find_layout(Layout::bits_4, 4);
    case 8:
      return find_layout(Layout::bytes, 8);
    case 24:
      return find_layout(red_first ? Layout::rgb : Layout::bgr, 24);
    case 32:
      return find_layout(red_first ? Layout::xrgb : Layout::xbgr, 24);
    default:
      return nullptr;
  }
}

struct SunFile {
  HeaderBlock image;
  formats::StoredRows rows;
  bool in_runs = false;
};

// Leaves the stream before the pixels.
Status read_header(const formats::DecodeRequest& request, SunFile& file) {
  TQ_TRY(request.seek_to_start());
  const std::int64_t start = request.start();
  std::array<std::uint8_t, kHeaderBytes> bytes;
  if (read_fully(request.stream, bytes) < kHeaderBytes) return StatusCode::read_failed;
  const auto field = [&](int i) { return load_be32(&bytes[4 * i]); };
  const std::uint32_t width = field(1), height = field(2), depth = field(3);
  const std::uint32_t type = field(5), map_type = field(6), map_bytes = field(7);
  if (field(0) != kMagic || map_type > kRawMap) return StatusCode::bad_image;
  if (width > INT32_MAX || height > INT32_MAX) return StatusCode::bad_image;
  if (type > kRedFirst) return StatusCode::unsupported;

  Colours colours{};
  if (map_type == kColours && map_bytes != 0) {
    TQ_TRY(read_map(request.stream, map_bytes, colours));
  } else if (depth == 1) {
    colours = {black_and_white()[1], black_and_white()[0]};
  } else {
    colours = grey_levels(depth == 4 ? 4 : 8);
  }
  const RowLayout* const layout = choose_layout(depth, type == kRedFirst, colours);
  if (layout == nullptr) return StatusCode::bad_image;
  file.image =
      dib_header(static_cast<std::int32_t>(width), static_cast<std::int32_t>(height), layout->bits);
  if (layout->bits == 1) colours = grey_levels(1);
  if (layout->bits <= 8)
    std::copy_n(colours.begin(), 1 << layout->bits, file.image.palette.begin());
  file.rows = rows_of(layout, width);
  file.in_runs = type == kRuns;
  return seek_to(request.stream, start + kHeaderBytes + map_bytes);
}

// The bytes of coded rows. A run may begin in one row and end in another.
class Runs {
 public:
  explicit Runs(ChunkReader& input) : input_(&input) {}

  std::ptrdiff_t read(Row line) {
    std::ptrdiff_t filled = 0;
    while (filled < std::ssize(line)) {
      if (left_ == 0) {
        filled += read_plain(line.subspan(static_cast<std::size_t>(filled)));
        if (filled == std::ssize(line) || !next()) break;
      }
      const std::ptrdiff_t here = std::min<std::ptrdiff_t>(left_, std::ssize(line) - filled);
      std::fill_n(line.begin() + filled, here, value_);
      filled += here;
      left_ -= here;
    }
    return filled;
  }

 private:
  static constexpr int kEscape = 0x80;  // before a count less one and a value; before 0: itself

  // The bytes in front of the next escape, as far as they can be seen.
  std::ptrdiff_t read_plain(Row line) {
    const pixels::Bytes ahead = input_->peek_all(1);
    const std::size_t most = std::min(ahead.size(), line.size());
    if (most == 0) return 0;
    const void* const escape = std::memchr(ahead.data(), kEscape, most);
    const auto count = escape == nullptr ? static_cast<std::ptrdiff_t>(most)
                                         : static_cast<const std::uint8_t*>(escape) - ahead.data();
    std::copy_n(ahead.begin(), count, line.begin());
    input_->skip(static_cast<std::size_t>(count));
    return count;
  }

  bool next() {
    int value = input_->next(), more = 0;
    if (value == kEscape) more = input_->next();
    if (more > 0) value = input_->next();
    if (value < 0 || more < 0) return false;
    value_ = byte(value);
    left_ = more + 1;
    return true;
  }

  ChunkReader* input_;
  std::ptrdiff_t left_ = 0;  // bytes of the run
  std::uint8_t value_ = 0;
};

// How an image is saved.
formats::StoredRows saved_rows(const HeaderBlock& image) {
  const int bits = image.header.biBitCount;
  const RowLayout* const layout = bits == 1
                                      ? find_black_layout(image.palette)
                                      : find_layout(bits > 8 ? Layout::bgr : Layout::bytes, bits);
  return rows_of(layout, image.header.biWidth);
}

void write_header(const HeaderBlock& image, const formats::StoredRows& rows, StreamWriter& out) {
  const int bits = image.header.biBitCount;
  auto colours = std::span(image.palette).first(std::size_t{1} << (bits <= 8 ? bits : 0));
  if (bits == 1 || bits > 8 || (bits == 8 && is_grey_ramp(colours))) colours = {};
  out.put_be32(kMagic);
  out.put_be32(static_cast<std::uint32_t>(image.header.biWidth));
  out.put_be32(static_cast<std::uint32_t>(image.header.biHeight));
  out.put_be32(static_cast<std::uint32_t>(rows.layout->plane_bits));
  out.put_be32(static_cast<std::uint32_t>(rows.line_bytes * image.header.biHeight));
  out.put_be32(kStandard);
  out.put_be32(colours.empty() ? kNoMap : kColours);
  out.put_be32(static_cast<std::uint32_t>(3 * colours.size()));
  for (const auto channel : {&Rgb::red, &Rgb::green, &Rgb::blue}) {
    for (const Rgb& colour : colours) out.put8(colour.*channel);
  }
}

}  // namespace

Status decode_sun(const formats::DecodeRequest& request) {
  SunFile file;
  TQ_TRY(read_header(request, file));
  TQ_TRY(request.sink.header(file.image));
  ChunkReader input;
  TQ_TRY(input.open(request.stream, read_chunk_bytes(file.rows.line_bytes)));
  Runs runs(input);
  return formats::deliver_rows(file.rows, file.image.header, request.sink, [&](Row line) {
    return file.in_runs ? runs.read(line) : static_cast<std::ptrdiff_t>(input.read(line));
  });
}

namespace {

Status check(const formats::EncodeRequest& request, const formats::StoredRows& rows) {
  if (rows.layout == nullptr || request.cmyk) return StatusCode::wrong_depth;
  const bool fits = rows.line_bytes * request.image->header.biHeight <= UINT32_MAX;
  return fits ? StatusCode::ok : StatusCode::unsupported;
}

}  // namespace

Status can_encode_sun(const formats::EncodeRequest& request) {
  return check(request, saved_rows(*request.image));
}

Status encode_sun(const formats::EncodeRequest& request) {
  const formats::StoredRows rows = saved_rows(*request.image);
  TQ_TRY(check(request, rows));
  StreamWriter out;
  TQ_TRY(out.open(request.stream));
  write_header(*request.image, rows, out);
  TQ_TRY(formats::write_rows(rows, request, out));
  return out.flush();
}

}  // namespace tq::simple
