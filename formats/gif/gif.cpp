// GIF files: their blocks, and rows of images between pixels of a byte each.
#include "formats/gif/gif.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <utility>

#include "coding/lzw.h"
#include "io/endian.h"
#include "io/stream_writer.h"
#include "pixels/colours.h"
#include "pixels/rows.h"

namespace tq::gif {
namespace {

constexpr int kBlockBytes = 255;
constexpr int kScreenBytes = 13, kDescriptorBytes = 9;
constexpr int kHasPalette = 0x80, kInterlaced = 0x40;             // flags of screen and image
constexpr int kExtension = 0x21, kImage = 0x2C, kTrailer = 0x3B;  // what follows
constexpr int kGraphicControl = 0xF9;                             // an extension

// The n-th row in an interlaced file: every eighth, those between, and so on.
constexpr std::int32_t interlaced_row(std::int32_t n, std::int32_t height) {
  constexpr struct { std::int32_t first, step; } kPasses[] = {{0, 8}, {4, 8}, {2, 4}, {1, 2}};
  for (const auto& pass : kPasses) {
    const std::int32_t rows = height > pass.first ? (height - pass.first - 1) / pass.step + 1 : 0;
    if (n < rows) return pass.first + n * pass.step;
    n -= rows;
  }
  return height - 1;
}

// Reads exactly what the format says is there: the stream may be memory that ends with the file.
class Input {
 public:
  explicit Input(StreamHandle stream) : stream_(stream) {}

  bool read(std::span<std::uint8_t> bytes) const {
    return read_fully(stream_, bytes) == std::ssize(bytes);
  }
  int byte() const {
    std::array<std::uint8_t, 1> value{};
    return read(value) ? value[0] : -1;
  }

  // The bytes of data sub-blocks one after the other.
  void begin_blocks() {
    next_ = std::max(byte(), 0);
    block_ = {};
  }
  int block_byte() {
    if (block_.empty() && !fetch()) return -1;
    const int value = block_.front();
    block_ = block_.subspan(1);
    return value;
  }
  std::span<const std::uint8_t> next_piece() {
    if (block_.empty()) fetch();
    return std::exchange(block_, {});
  }
  // False when the data end before their terminator.
  bool skip_blocks() {
    while (next_ != 0) {
      if (!fetch()) return false;
    }
    return true;
  }

 private:
  // A block and the length of the one behind it, which is always there, are read at once.
  bool fetch() {
    if (next_ == 0) return false;
    const int got = read_fully(stream_, std::span(buffer_).first(next_ + 1));
    block_ = std::span(buffer_).first(std::min(got, next_));
    next_ = got > next_ ? buffer_[next_] : 0;
    return !block_.empty();
  }

  StreamHandle stream_;
  std::array<std::uint8_t, kBlockBytes + 1> buffer_{};
  std::span<const std::uint8_t> block_{};  // what is left of the one in the buffer
  int next_ = 0;                           // bytes in the following block
};

struct Frame {
  std::int32_t width = 0, height = 0;
  bool interlaced = false;
  int colours = 0;
  std::array<Rgb, 256> palette{};
  int transparent = -1;
};

bool read_palette(const Input& input, int flags, Frame& frame) {
  if ((flags & kHasPalette) == 0) return true;
  frame.colours = 2 << (flags & 7);
  std::array<std::uint8_t, 3 * 256> bytes{};
  if (!input.read(std::span(bytes).first(3 * frame.colours))) return false;
  for (int i = 0; i < frame.colours; ++i) {
    frame.palette[i] = {bytes[3 * i + 2], bytes[3 * i + 1], bytes[3 * i], 0};
  }
  return true;
}

// Of the graphic control extension only the transparent colour counts.
bool read_extension(Input& input, Frame& frame) {
  const int label = input.byte();
  if (label < 0) return false;
  input.begin_blocks();
  if (label == kGraphicControl) {
    const int flags = input.block_byte();
    input.block_byte();
    input.block_byte();
    const int index = input.block_byte();
    frame.transparent = flags >= 0 && (flags & 1) != 0 && index >= 0 ? index : -1;
  }
  return input.skip_blocks();
}

// Leaves the input at the pixels of frame `wanted`.
Status find_frame(Input& input, std::int32_t wanted, Frame& frame) {
  std::array<std::uint8_t, kScreenBytes> screen{};
  if (!input.read(screen) || std::memcmp(screen.data(), "GIF", 3) != 0) {
    return StatusCode::bad_image;
  }
  Frame global;
  if (!read_palette(input, screen[10], global)) return StatusCode::bad_image;
  frame = global;
  for (std::int32_t found = 0;;) {
    const int introducer = input.byte();
    if (introducer == kExtension) {
      if (!read_extension(input, frame)) return StatusCode::bad_image;
      continue;
    }
    if (introducer != kImage) return found == 0 ? StatusCode::bad_image : StatusCode::page_past_end;
    std::array<std::uint8_t, kDescriptorBytes> descriptor{};
    if (!input.read(descriptor)) return StatusCode::bad_image;
    frame.width = load_le16(&descriptor[4]);
    frame.height = load_le16(&descriptor[6]);
    frame.interlaced = (descriptor[8] & kInterlaced) != 0;
    if (!read_palette(input, descriptor[8], frame)) return StatusCode::bad_image;
    if (found++ == wanted) return kOk;
    if (input.byte() < 0) return StatusCode::page_past_end;  // the pixels' bits
    input.begin_blocks();
    if (!input.skip_blocks()) return StatusCode::page_past_end;
    frame = global;
  }
}

// How the pixels of a frame lie in rows of an image.
struct Packing {
  int bits = 8;
  bool inverted = false;  // 1 bit: white comes first in the file

  static Packing choose(Frame& frame) {
    if (frame.colours == 0) frame.palette = pixels::grey_ramp();
    if (frame.colours == 0 || frame.colours > 16) return {};
    // Two colours other than black and white are kept in an image of 4 bits.
    if (frame.colours != 2) return {4, false};
    const pixels::RowLayout& way = *pixels::find_bit_layout(frame.palette);
    const bool inverted = way.layout == pixels::Layout::bits_1_black;
    if (inverted) {
      std::swap(frame.palette[0], frame.palette[1]);
      if (frame.transparent >= 0) frame.transparent ^= 1;
    }
    return {way.bits, inverted};
  }
};

Status decode_rows(Input& input, const Frame& frame, const Packing& packing,
                   const formats::RowSink& sink) {
  const int pixel_bits = input.byte();
  if (pixel_bits < 0) return kOk;
  if (pixel_bits < 1 || pixel_bits > 8) return StatusCode::bad_image;
  input.begin_blocks();
  RowBuffer<lzw::GifDecoder> decoder;  // one
  RowBuffer<std::uint8_t> indices, row;
  TQ_TRY(decoder.allocate(1));
  TQ_TRY(indices.allocate(frame.width));
  TQ_TRY(row.allocate(row_bytes(frame.width, packing.bits)));
  lzw::GifDecoder& codes = decoder[0];
  codes.start(pixel_bits, coding::PieceSource::of(input));
  const auto* const layout = pixels::find_layout(pixels::Layout::bytes, packing.bits);
  std::ptrdiff_t there = frame.width;
  for (std::int32_t n = 0; n < frame.height && there == frame.width; ++n) {
    there = codes.read(indices.pixels());
    if (there == 0) break;
    if (there < frame.width) sink.damaged(StatusCode::read_failed);
    std::fill(indices.data() + there, indices.data() + frame.width, std::uint8_t{0});
    if (packing.inverted) pixels::invert(indices.pixels(), indices.pixels());
    pixels::unpack(*layout, indices.pixels(), frame.width, row.pixels());
    TQ_TRY(sink.row(row.pixels(), frame.interlaced ? interlaced_row(n, frame.height) : n));
  }
  return kOk;
}

// Gathers bytes into data sub-blocks.
class BlockWriter {
 public:
  explicit BlockWriter(StreamWriter& out) : out_(out) {}

  void put(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
      const auto part = bytes.first(std::min(std::ssize(bytes), kBlockBytes - used_));
      std::copy(part.begin(), part.end(), block_.begin() + used_);
      used_ += std::ssize(part);
      bytes = bytes.subspan(part.size());
      if (used_ == kBlockBytes) put_block();
    }
  }
  void finish() {
    if (used_ != 0) put_block();
    out_.put8(0);
  }

 private:
  void put_block() {
    const auto block = std::span(block_).first(std::exchange(used_, 0));
    out_.put8(byte(block.size()));
    out_.put(block);
  }

  StreamWriter& out_;
  std::array<std::uint8_t, kBlockBytes> block_{};
  std::ptrdiff_t used_ = 0;
};

void put_header(StreamWriter& out, const HeaderBlock& image, bool interlaced) {
  const BitmapInfoHeader& header = image.header;
  const bool transparent = (header.biClrUsed & kTransparent) != 0;
  out.put(std::string_view(transparent ? "GIF89a" : "GIF87a"));
  out.put_le16(header.biWidth);
  out.put_le16(header.biHeight);
  // A palette of 2, 16 or 256 colours.
  out.put8(kHasPalette | (header.biBitCount - 1) << 4 | (header.biBitCount - 1));
  out.put_le16(0);  // background, aspect
  for (const Rgb& colour : std::span(image.palette).first(1 << header.biBitCount)) {
    out.put8(colour.red);
    out.put8(colour.green);
    out.put8(colour.blue);
  }
  if (transparent) {
    for (const int value : {kExtension, kGraphicControl, 4, 1, 0, 0}) out.put8(value);
    out.put_le16(byte(header.biClrUsed));
  }
  out.put8(kImage);
  out.put_le32(0);  // where on the screen
  out.put_le16(header.biWidth);
  out.put_le16(header.biHeight);
  out.put8(interlaced ? kInterlaced : 0);
}

Status encode_frame(const formats::EncodeRequest& request, bool interlaced) {
  constexpr std::int32_t kLargestSide = 0xFFFF, kPieceBytes = 4096;
  const BitmapInfoHeader& header = request.image->header;
  const std::int32_t width = header.biWidth, height = header.biHeight;
  const int bits = header.biBitCount;
  if (bits != 1 && bits != 4 && bits != 8) return StatusCode::wrong_depth;
  if (width < 1 || height < 1) return StatusCode::bad_image;
  if (width > kLargestSide || height > kLargestSide) return StatusCode::unsupported;

  RowBuffer<std::uint8_t> row, indices, coded;
  RowBuffer<lzw::GifEncoder> encoder;  // one
  StreamWriter out;
  TQ_TRY(row.allocate(row_bytes(width, bits)));
  TQ_TRY(indices.allocate(width));
  TQ_TRY(coded.allocate(lzw::GifEncoder::most_bytes(width)));
  TQ_TRY(encoder.allocate(1));
  TQ_TRY(out.open(request.stream, kPieceBytes));

  put_header(out, *request.image, interlaced);
  const int pixel_bits = std::max(bits, 2);
  out.put8(pixel_bits);
  lzw::GifEncoder& codes = encoder[0];
  codes.start(pixel_bits);
  BlockWriter blocks(out);
  const auto* const layout = pixels::find_layout(pixels::Layout::bytes, bits);
  const auto taken = indices.pixels();
  std::uint8_t* const start = coded.data();
  for (std::int32_t n = 0; n < height; ++n) {
    TQ_TRY(request.rows.row(row.pixels(), interlaced ? interlaced_row(n, height) : n));
    pixels::pack(*layout, row.pixels(), width, indices.pixels());
    blocks.put({start, codes.put(taken, start)});
    TQ_TRY(out.status());
  }
  blocks.put({start, codes.finish(start)});
  blocks.finish();
  out.put8(kTrailer);
  return out.flush();
}

}  // namespace

Status decode(const formats::DecodeRequest& request) {
  (void)request.seek_to_start();  // a pipe that cannot seek stands there
  Input input(request.stream);
  Frame frame;
  TQ_TRY(find_frame(input, std::max(request.page, 0), frame));
  if (frame.width < 1 || frame.height < 1) return StatusCode::bad_image;
  const Packing packing = Packing::choose(frame);
  HeaderBlock block = dib_header(frame.width, frame.height, packing.bits);
  block.palette = frame.palette;
  if (frame.transparent >= 0) block.header.biClrUsed = kTransparent | frame.transparent;
  TQ_TRY(request.sink.header(block));
  return decode_rows(input, frame, packing, request.sink);
}

Status encode(const formats::EncodeRequest& request) {
  return encode_frame(request, false);
}

Status encode_interlaced(const formats::EncodeRequest& request) {
  return encode_frame(request, true);
}

}  // namespace tq::gif
