// What the parts of the encoder are to each other: rows of pixels become planes of samples, planes
// become quantised blocks, and blocks become codes.
#pragma once

#include <array>
#include <cstdint>

#include "coding/bits.h"
#include "core/context.h"
#include "core/memory.h"
#include "formats/codec.h"
#include "formats/jpeg/dsp/kernels.h"
#include "io/stream_writer.h"

namespace tq::jpeg {

inline constexpr int kMostEncodedComponents = 4;

using QuantiserSteps = std::array<std::uint8_t, kBlock>;  // row by row

struct EncodedFrame {
  int width = 0, height = 0;
  int count = 0;     // of components: 1, 3 or 4
  int h = 1, v = 1;  // sampling factors of the first; the others have 1
  int x_density = 0, y_density = 0;
  QuantiserSteps luminance{}, chrominance{};
};

// The steps of the quality that is set.
void choose_steps(const JpegSettings& settings, EncodedFrame& frame);

// From SOI to SOS.
void put_header(StreamWriter& out, const EncodedFrame& frame);

// How the rows that are supplied hold their pixels.
enum class Pixels : std::uint8_t { grey, palette, bgr, four };

Status choose_pixels(const HeaderBlock& image, Pixels& pixels);

struct Plane {
  std::int16_t* samples = nullptr;
  std::ptrdiff_t stride = 0;  // samples
  int width = 0;              // samples that come from pixels
  int padded_width = 0;
  int h = 1, v = 1;  // blocks of an MCU
};

// Rows of pixels to planes of samples, one MCU row at a time.
class Planes {
 public:
  // The request and the frame have to live as long as this.
  Status allocate(const formats::EncodeRequest& request, Pixels pixels, const EncodedFrame& frame);

  int mcus() const { return mcus_; }
  const Plane& operator[](int i) const { return planes_[i]; }

  // From row `top` of the picture on.
  Status load(int top);

 private:
  bool has_chroma(int y) const { return y % frame_->v == 0; }
  std::int16_t* row_of(int i, int y) const {
    return planes_[i].samples + planes_[i].stride * (i == 0 ? y : y / frame_->v);
  }
  const std::uint8_t* greys();
  const std::uint8_t* colours();
  void convert(int y);
  void repeat_last(int y);

  const formats::EncodeRequest* request_ = nullptr;
  const EncodedFrame* frame_ = nullptr;
  Pixels pixels_ = Pixels::bgr;
  bool ramp_ = false;  // every index is its own grey level
  Kernels kernels_{};
  int mcus_ = 0;
  std::array<Plane, kMostEncodedComponents> planes_{};
  GlobalBlock samples_;
  RowBuffer<std::uint8_t, 3 * kKernelMargin> row_;        // as it is supplied
  RowBuffer<std::uint8_t, 3 * kKernelMargin> looked_up_;  // as the kernels take it
};

// Codes without stuffed bytes; code_block keeps a copy in registers.
using BitWriter = coding::BitWriter<coding::BitOrder::msb_first>;

struct BlockCodes;
extern const BlockCodes kLuminanceCodes, kChrominanceCodes;  // the typical Huffman tables

// `predictor` is the DC value of the component's last block.
void code_block(const QuantisedBlock& block, const BlockCodes& codes, std::int32_t& predictor,
                BitWriter& writer);

// Codes on their way to the stream: a zero byte is stuffed behind each 0xFF. Pieces have exactly
// kPiece bytes: callers with output functions of their own see them.
class CodeWriter {
 public:
  // Blocks that can be coded before the data have to move on.
  static constexpr int kMostBlocks = 128;

  Status open(StreamHandle stream);

  // In front of the first block; in a write of its own.
  Status write_header(const EncodedFrame& frame);

  BitWriter& bits() { return bits_; }

  // Stuffs what has been coded; whole pieces are written.
  Status end_blocks();

  // When the blocks have ended: pads with zero bits, which callers rely on, to 16 bits; writes what
  // is left, and EOI in a write of its own.
  Status finish();

 private:
  static constexpr int kPiece = 20000;
  // A block has 64 codes of 26 bits at most; whole groups of eight bytes are written.
  static constexpr int kCodeBytes = kMostBlocks * 208 + 16;

  StreamWriter out_;
  GlobalBlock codes_;
  BitWriter bits_;
  bool odd_ = false;  // whether an odd number of bytes has been coded, without stuffed ones
};

}  // namespace tq::jpeg
