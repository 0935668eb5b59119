// GIF files: their blocks, and rows of images between pixels of a byte each.
#include "formats/gif/gif.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "coding/lzw.h"
#include "formats/gif/blocks.h"
#include "io/stream_writer.h"
#include "pixels/colours.h"
#include "pixels/rows.h"

namespace tq::gif {
namespace {

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
  const bool in_place = packing.bits == 8 && !packing.inverted;
  const pixels::Row read = in_place ? row.pixels().first(indices.size()) : indices.pixels();
  std::ptrdiff_t there = frame.width;
  for (std::int32_t n = 0; n < frame.height && there == frame.width; ++n) {
    there = codes.read(read);
    if (there == 0) break;
    if (there < frame.width) sink.damaged(StatusCode::read_failed);
    std::fill(read.data() + there, read.data() + frame.width, std::uint8_t{0});
    if (packing.inverted) pixels::invert(read, read);
    if (!in_place) pixels::unpack(*layout, read, frame.width, row.pixels());
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
