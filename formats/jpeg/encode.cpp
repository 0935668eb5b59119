// Writes a baseline JPEG stream: rows become planes of samples, one MCU row at a time, and planes
// become coded blocks.
#include <algorithm>
#include <bit>
#include <cstring>

#include "core/memory.h"
#include "formats/jpeg/bit_writer.h"
#include "formats/jpeg/encode_header.h"
#include "formats/jpeg/huffman.h"
#include "formats/jpeg/jpeg.h"
#include "formats/jpeg/kernels.h"
#include "formats/jpeg/quantise.h"
#include "formats/jpeg/typical_tables.h"

namespace tq::formats {
namespace {

constexpr int kLongestSide = 65535;
constexpr int kMostBlocksOfMcu = 10;
constexpr int kMargin = kKernelMargin;

constexpr EncodeTable kDcCodes[] = {encode_table(kDcLuminance), encode_table(kDcChrominance)};
constexpr EncodeTable kAcCodes[] = {encode_table(kAcLuminance), encode_table(kAcChrominance)};

// How the rows that are supplied hold their pixels.
enum class Pixels : std::uint8_t { grey, palette, bgr, four };

bool has_grey_palette(const HeaderBlock& image) {
  return std::all_of(image.palette.begin(), image.palette.end(), [](const Rgb& entry) {
    return entry.red == entry.green && entry.green == entry.blue;
  });
}

Status choose_pixels(const HeaderBlock& image, Pixels& pixels) {
  switch (image.header.biBitCount) {
    case 8:
      pixels = has_grey_palette(image) ? Pixels::grey : Pixels::palette;
      return kOk;
    case 24:
      pixels = Pixels::bgr;
      return kOk;
    case 32:
      pixels = Pixels::four;
      return kOk;
    default:
      return StatusCode::wrong_depth;
  }
}

// Frame and sampling. What the pixels do to the factors stays in the settings.
Status choose_frame(const BitmapInfoHeader& header, Pixels pixels, JpegEncoderSettings& settings,
                    EncodedFrame& frame) {
  if (pixels == Pixels::grey) settings.h = settings.v = 1;
  if (pixels == Pixels::four) settings.h = 1;
  frame.width = header.biWidth;
  frame.height = header.biHeight;
  frame.count = pixels == Pixels::grey ? 1 : pixels == Pixels::four ? 4 : 3;
  frame.h = settings.h;
  frame.v = settings.v;
  frame.x_density = header.biXPelsPerMeter;
  frame.y_density = header.biYPelsPerMeter;
  if (frame.width > kLongestSide || frame.height > kLongestSide) return StatusCode::unsupported;
  if (frame.h < 1 || frame.h > 4 || frame.v < 1 || frame.v > 4 ||
      frame.h * frame.v + frame.count - 1 > kMostBlocksOfMcu) {
    return StatusCode::unsupported;
  }
  return kOk;
}

struct Plane {
  std::int16_t* samples = nullptr;
  std::ptrdiff_t stride = 0;  // samples
  int width = 0;              // samples that come from pixels
  int padded_width = 0;
  int h = 1, v = 1;  // blocks of an MCU
};

// The samples of one MCU row.
class Planes {
 public:
  Status allocate(const EncodeRequest& request, Pixels pixels, const EncodedFrame& frame) {
    request_ = &request;
    pixels_ = pixels;
    frame_ = &frame;
    kernels_ = jpeg_kernels();
    mcus_ = (frame.width + 8 * frame.h - 1) / (8 * frame.h);
    std::uint64_t total = 0;
    std::array<std::uint64_t, kMostEncodedComponents> starts{};
    for (int i = 0; i < frame.count; ++i) {
      Plane& plane = planes_[i];
      plane.h = i == 0 ? frame.h : 1;
      plane.v = i == 0 ? frame.v : 1;
      const int decimation = frame.h / plane.h;
      plane.width = (frame.width + decimation - 1) / decimation;
      plane.padded_width = 8 * mcus_ * plane.h;
      plane.stride = plane.padded_width + kMargin;
      starts[i] = total;
      total += static_cast<std::uint64_t>(plane.stride) * 8 * plane.v;
    }
    TQ_TRY(samples_.allocate((total + kMargin) * sizeof(std::int16_t)));
    for (int i = 0; i < frame.count; ++i) {
      planes_[i].samples = reinterpret_cast<std::int16_t*>(samples_.data()) + starts[i];
    }
    row_bytes_ = static_cast<std::size_t>(row_bytes(frame.width, request.image->header.biBitCount));
    TQ_TRY(row_.allocate(static_cast<std::int64_t>(row_bytes_) + 3 * kMargin));
    TQ_TRY(bgr_.allocate(3 * (std::int64_t{frame.width} + kMargin)));
    return kOk;
  }

  int mcus() const { return mcus_; }
  const Plane& operator[](int i) const { return planes_[i]; }

  // From row `top` of the picture on.
  Status load(int top) {
    const int height = 8 * frame_->v;
    for (int y = 0; y < height; ++y) {
      if (top + y < frame_->height) {
        TQ_TRY(request_->rows.row(row_.pixels().first(row_bytes_), top + y));
        convert(y);
      } else {
        repeat_last(y);
      }
    }
    return kOk;
  }

 private:
  bool has_chroma(int y) const { return y % frame_->v == 0; }
  std::int16_t* row_of(int i, int y) const {
    return planes_[i].samples + planes_[i].stride * (i == 0 ? y : y / frame_->v);
  }

  // Blue, green, red of the supplied row.
  const std::uint8_t* colours() {
    std::uint8_t* out = bgr_.data();
    if (pixels_ == Pixels::bgr) return row_.data();
    if (pixels_ == Pixels::palette) {
      for (int x = 0; x < frame_->width; ++x, out += 3) {
        const Rgb& entry = request_->image->palette[row_.data()[x]];
        out[0] = entry.blue;
        out[1] = entry.green;
        out[2] = entry.red;
      }
    } else {
      // The first of four bytes is taken for red: callers rely on it.
      const std::uint8_t* four = row_.data();
      for (int x = 0; x < frame_->width; ++x, four += 4, out += 3) {
        out[0] = four[2];
        out[1] = four[1];
        out[2] = four[0];
      }
    }
    return bgr_.data();
  }

  void convert(int y) {
    const int width = frame_->width;
    if (pixels_ == Pixels::grey) {
      std::int16_t* out = row_of(0, y);
      for (int x = 0; x < width; ++x) {
        out[x] = static_cast<std::int16_t>(request_->image->palette[row_.data()[x]].red - 128);
      }
    } else {
      const std::uint8_t* bgr = colours();
      kernels_.bgr_to_luma(bgr, row_of(0, y), width);
      if (has_chroma(y)) {
        kernels_.bgr_to_chroma(bgr, frame_->h, row_of(1, y), row_of(2, y), width);
      }
    }
    if (pixels_ == Pixels::four && has_chroma(y)) {
      std::int16_t* out = row_of(3, y);
      for (int x = 0; x < width; x += frame_->h) {
        *out++ = static_cast<std::int16_t>(127 - row_.data()[4 * x + 3]);
      }
    }
    for (int i = 0; i < frame_->count; ++i) {
      if (i != 0 && !has_chroma(y)) break;
      const Plane& plane = planes_[i];
      std::int16_t* const out = row_of(i, y);
      std::fill(out + plane.width, out + plane.padded_width, out[plane.width - 1]);
    }
  }

  void repeat_last(int y) {
    for (int i = 0; i < frame_->count; ++i) {
      if (i != 0 && !has_chroma(y)) break;
      const Plane& plane = planes_[i];
      std::memcpy(row_of(i, y), row_of(i, y) - plane.stride,
                  static_cast<std::size_t>(plane.padded_width) * sizeof(std::int16_t));
    }
  }

  const EncodeRequest* request_ = nullptr;
  const EncodedFrame* frame_ = nullptr;
  Pixels pixels_ = Pixels::bgr;
  JpegKernels kernels_{};
  int mcus_ = 0;
  std::array<Plane, kMostEncodedComponents> planes_{};
  GlobalBlock samples_;
  RowBuffer<std::uint8_t> row_, bgr_;
  std::size_t row_bytes_ = 0;
};

// The number of bits of an amount, and the bits that stand for the value.
struct Coded {
  int size;
  std::uint32_t bits;
};
Coded coded(std::int32_t value) {
  const auto amount = static_cast<std::uint32_t>(value < 0 ? -value : value);
  const int size = std::bit_width(amount);
  const auto bits = static_cast<std::uint32_t>(value - (value < 0 ? 1 : 0));
  return {size, bits & ((1u << size) - 1)};
}

// The largest values that have codes; at quality 100 others can come up.
constexpr std::int32_t kMostDifference = 2047, kMostCoefficient = 1023;

void code_block(const QuantisedBlock& block, const EncodeTable& dc, const EncodeTable& ac,
                std::int32_t& predictor, BitSink& sink) {
  BitSink out = sink;
  const std::int32_t difference =
      std::clamp<std::int32_t>(block.values[0] - predictor, -kMostDifference, kMostDifference);
  predictor += difference;
  const Coded first = coded(difference);
  out.put(static_cast<std::uint32_t>(dc.code[first.size]) << first.size | first.bits,
          dc.length[first.size] + first.size);
  int last = 0;
  for (std::uint64_t present = block.present & ~std::uint64_t{1}; present != 0;
       present &= present - 1) {
    const int k = std::countr_zero(present);
    int run = k - last - 1;
    for (; run > 15; run -= 16) out.put(ac.code[0xF0], ac.length[0xF0]);
    const Coded value =
        coded(std::clamp<std::int32_t>(block.values[k], -kMostCoefficient, kMostCoefficient));
    const auto symbol = static_cast<std::size_t>(run << 4 | value.size);
    out.put(static_cast<std::uint32_t>(ac.code[symbol]) << value.size | value.bits,
            ac.length[symbol] + value.size);
    last = k;
  }
  if (last != kBlock - 1) out.put(ac.code[0], ac.length[0]);
  sink = out;
}

class Coder {
 public:
  explicit Coder(StreamHandle stream) : writer_(stream) {}

  Status allocate(const JpegEncoderSettings& settings) {
    kernels_ = jpeg_kernels();
    quantisers_[0] = quantise_table(settings.luminance);
    quantisers_[1] = quantise_table(settings.chrominance);
    return writer_.allocate();
  }

  Status mcu(const Planes& planes, int components, int x) {
    for (int i = 0; i < components; ++i) {
      const Plane& plane = planes[i];
      for (int row = 0; row < plane.v; ++row) {
        for (int column = 0; column < plane.h; ++column) {
          TQ_TRY(block(plane.samples + 8 * row * plane.stride + 8 * (x * plane.h + column),
                       plane.stride, i));
        }
      }
    }
    return kOk;
  }

  Status finish() { return writer_.finish(); }

 private:
  Status block(const std::int16_t* samples, std::ptrdiff_t stride, int component) {
    const std::size_t kind = component == 0 ? 0 : 1;
    alignas(32) std::int16_t coefficients[kBlock];
    QuantisedBlock quantised;
    kernels_.forward(samples, stride, coefficients);
    kernels_.quantise(coefficients, quantisers_[kind], quantised);
    code_block(quantised, kDcCodes[kind], kAcCodes[kind], predictors_[component], writer_.bits());
    return writer_.end_block();
  }

  JpegKernels kernels_{};
  BitWriter writer_;
  std::array<QuantiseTable, 2> quantisers_;
  std::array<std::int32_t, kMostEncodedComponents> predictors_{};
};

}  // namespace

Status can_encode_jpeg(const EncodeRequest& request) {
  Pixels pixels = Pixels::bgr;
  TQ_TRY(choose_pixels(*request.image, pixels));
  JpegEncoderSettings settings = jpeg_encoder_settings();
  EncodedFrame frame;
  return choose_frame(request.image->header, pixels, settings, frame);
}

Status encode_jpeg(const EncodeRequest& request) {
  Pixels pixels = Pixels::bgr;
  TQ_TRY(choose_pixels(*request.image, pixels));
  EncodedFrame frame;
  // Factors that the pixels change stay so for later saves: callers rely on it.
  TQ_TRY(choose_frame(request.image->header, pixels, jpeg_encoder_settings(), frame));
  const JpegEncoderSettings settings = jpeg_encoder_settings();
  Planes planes;
  TQ_TRY(planes.allocate(request, pixels, frame));
  Coder coder(request.stream);
  TQ_TRY(coder.allocate(settings));
  TQ_TRY(write_jpeg_header(request.stream, frame, settings));
  for (int top = 0; top < frame.height; top += 8 * frame.v) {
    TQ_TRY(planes.load(top));
    for (int x = 0; x < planes.mcus(); ++x) TQ_TRY(coder.mcu(planes, frame.count, x));
  }
  return coder.finish();
}

}  // namespace tq::formats
