// What the parts of the encoder are to each other: rows of pixels become planes of samples, planes
// become quantised blocks, and blocks become codes.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "coding/bits.h"
#include "core/context.h"
#include "core/memory.h"
#include "formats/codec.h"
#include "formats/jpeg/dsp/kernels.h"
#include "io/stream_writer.h"

namespace tq::jpeg {

inline constexpr int kMostEncodedComponents = 4;
inline constexpr int kMostBlocksOfMcu = 10;

using QuantiserSteps = std::array<std::uint8_t, kBlock>;  // row by row

struct EncodedComponent {
  int h = 1, v = 1;  // sampling factors
  int table = 0;     // of its quantiser steps and its codes: 0 luminance, 1 chrominance
};

// How a picture is written. By itself as callers have relied on.
struct Writing {
  Accuracy accuracy = Accuracy::coarse;
  bool optimised = false;  // Huffman codes made for the picture
  bool progressive = false;

  bool exact() const { return accuracy == Accuracy::exact; }
};

struct EncodedFrame {
  Writing writing;
  int width = 0, height = 0;
  int count = 0;                                                    // of components: 1, 3 or 4
  std::array<EncodedComponent, kMostEncodedComponents> components;  // none has more than the first
  int density_unit = 1, x_density = 0, y_density = 0;
  std::array<QuantiserSteps, 2> steps{};  // by table
  std::array<HuffmanSpec, 2> dc = {kDcLuminance, kDcChrominance};
  std::array<HuffmanSpec, 2> ac = {kAcLuminance, kAcChrominance};

  int h() const { return components[0].h; }
  int v() const { return components[0].v; }
  int tables() const { return count == 1 ? 1 : 2; }
  int mcu_rows() const { return (height + 8 * v() - 1) / (8 * v()); }
  int mcu_blocks() const {
    int sum = 0;
    for (int i = 0; i < count; ++i) sum += components[i].h * components[i].v;
    return sum;
  }
};

// The steps of the quality that is set.
void choose_steps(const JpegSettings& settings, EncodedFrame& frame);

// A scan of neighbouring components.
struct EncodedScan {
  int component = 0, count = 0;
  int first = 0, last = kBlock - 1;  // of the spectral band
  int high = 0, low = 0;             // successive approximation
};

// From SOI to the frame; then what comes in front of the data of a scan.
void put_frame_header(StreamWriter& out, const EncodedFrame& frame);
void put_huffman_table(StreamWriter& out, int class_and_number, const HuffmanSpec& spec);
void put_scan_header(StreamWriter& out, const EncodedFrame& frame, const EncodedScan& scan);

// How the rows that are supplied hold their pixels.
enum class Pixels : std::uint8_t { grey, palette, bgr, bgrx, four };

Status choose_pixels(const formats::EncodeRequest& request, Accuracy accuracy, Pixels& pixels);

struct Plane {
  std::int16_t* samples = nullptr;
  std::ptrdiff_t stride = 0;  // samples
  int width = 0;              // samples that come from pixels
  int padded_width = 0;
  int h = 1, v = 1;           // blocks of an MCU
  int columns = 0, rows = 0;  // of blocks that are transformed; others keep their neighbour's level
};

// Rows of pixels to planes of samples, one MCU row at a time.
class Planes {
 public:
  // The request and the frame have to live as long as this.
  Status allocate(const formats::EncodeRequest& request, Pixels pixels, const EncodedFrame& frame);

  int mcus() const { return mcus_; }
  const Plane& operator[](int i) const { return planes_[i]; }
  // Blocks that hold pixels, of the picture.
  int columns(int i) const;
  int rows(int i) const;

  // From row `top` of the picture on.
  Status load(int top);

 private:
  // Whether row `y` is the first of those that the component has one row of samples for.
  bool begins_row(int i, int y) const { return y * planes_[i].v % frame_->v() == 0; }
  std::int16_t* row_of(int i, int y) const {
    return planes_[i].samples + planes_[i].stride * (y * planes_[i].v / frame_->v());
  }
  const std::uint8_t* greys();
  const std::uint8_t* colours();
  void convert(int y);
  void convert_exactly(int y, bool last);
  void narrow(int i, std::int16_t* out);
  void pad(std::int16_t* row, int width, int padded_width) const {
    std::fill(row + width, row + padded_width, row[width - 1]);
  }
  void repeat_last(int y);

  const formats::EncodeRequest* request_ = nullptr;
  const EncodedFrame* frame_ = nullptr;
  Pixels pixels_ = Pixels::bgr;
  bool ramp_ = false;  // every index is its own grey level
  Kernels kernels_{};
  int mcus_ = 0;
  std::array<Plane, kMostEncodedComponents> planes_{};
  GlobalBlock samples_;
  // Chroma of a row of samples before its pixels become fewer: blue difference, red difference.
  GlobalBlock full_chroma_;
  std::array<std::array<std::int16_t*, 4>, 2> full_rows_{};
  RowBuffer<std::uint8_t, 3 * kKernelMargin> row_;        // as it is supplied
  RowBuffer<std::uint8_t, 3 * kKernelMargin> looked_up_;  // as the kernels take it
};

// Codes without stuffed bytes; code_block keeps a copy in registers.
using BitWriter = coding::BitWriter<coding::BitOrder::msb_first, std::size_t>;

// The code of every symbol.
struct EncodeTable {
  std::array<std::uint16_t, 256> code;
  std::array<std::uint8_t, 256> length;
};
EncodeTable encode_table(const HuffmanSpec& spec);

// Values of at least -kSmall and below kSmall have code and bits in one entry: bits << 8 | length.
inline constexpr int kSmall = 32;
struct BlockCodes {
  EncodeTable dc, ac;
  std::array<std::uint32_t, 16 * 2 * kSmall> small;
};
extern const BlockCodes kLuminanceCodes, kChrominanceCodes;  // the typical Huffman tables
BlockCodes block_codes(const HuffmanSpec& dc, const HuffmanSpec& ac);

// `predictor` is the DC value of the component's last block.
void code_block(const QuantisedBlock& block, const BlockCodes& codes, std::int32_t& predictor,
                BitWriter& writer);

// How often symbols come, and the codes for them: ITU-T T.81 Annex K.2.
using SymbolCounts = std::array<std::uint64_t, 257>;
struct BlockCounts {
  SymbolCounts dc{}, ac{};
};
void count_block(const QuantisedBlock& block, std::int32_t& predictor, BlockCounts& counts);
HuffmanSpec optimal_codes(SymbolCounts counts);

// All blocks of a picture, where they have to be gone through more than once.
class BlockStore {
 public:
  Status allocate(const EncodedFrame& frame, int mcus);

  // Kernels may write a block more than the row has: rows are filled from the top.
  QuantisedBlock* row(int component, int y) const {
    return parts_[component].blocks + std::ptrdiff_t{y} * parts_[component].columns;
  }

 private:
  struct Part {
    QuantisedBlock* blocks = nullptr;
    int columns = 0;
  };
  GlobalBlock room_;
  std::array<Part, kMostEncodedComponents> parts_{};
};

// Codes on their way to the stream: a zero byte is stuffed behind each 0xFF. Pieces have exactly
// kPiece bytes: callers with output functions of their own see them.
class CodeWriter {
 public:
  // Blocks that can be coded before the data have to move on.
  static constexpr int kMostBlocks = 128;

  Status open(StreamHandle stream);

  // For headers, which go in front of blocks, in a write of their own.
  StreamWriter& out() { return out_; }

  BitWriter& bits() { return bits_; }

  // Stuffs what has been coded; whole pieces are written.
  Status end_blocks();
  // The same if a block more might not find room.
  Status make_room() {
    const bool full = bits_.end() - codes_.data() > kCodeBytes - kMostOfBlock;
    return full ? end_blocks() : kOk;
  }

  // When the blocks have ended: pads with zero bits, which callers rely on, to 16 bits; writes what
  // is left, and EOI in a write of its own.
  Status finish();

  // The same as the standard has it: pads a scan with ones to a byte; then writes EOI and all.
  Status end_scan();
  Status finish_scans();

 private:
  static constexpr int kPiece = 20000;
  // A block has 64 codes of 27 bits at most; whole groups of eight bytes are written. One of a
  // progressive scan may come with what had waited for it.
  static constexpr int kCodeBytes = kMostBlocks * 216 + 16;
  static constexpr int kMostOfBlock = 1024;

  StreamWriter out_;
  GlobalBlock codes_;
  BitWriter bits_;
  bool odd_ = false;  // whether an odd number of bytes has been coded, without stuffed ones
};

// All scans of a progressive picture.
Status write_progressive(const EncodedFrame& frame, const Planes& planes, const BlockStore& store,
                         CodeWriter& writer);

}  // namespace tq::jpeg
