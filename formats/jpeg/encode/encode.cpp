// Writes a baseline JPEG stream: rows become planes of samples, one MCU row at a time, planes
// become blocks, and blocks become codes.
#include <algorithm>

#include "formats/jpeg/encode/encoder.h"
#include "formats/jpeg/jpeg.h"

namespace tq::jpeg {
namespace {

constexpr int kLongestSide = 65535;
constexpr int kMostBlocksOfMcu = 10;

// Frame and sampling. What the pixels do to the factors stays in the settings.
Status choose_frame(const BitmapInfoHeader& header, Pixels pixels, JpegSettings& settings,
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

// Codes an MCU row in batches whose blocks stay in the nearest cache.
class Coder {
 public:
  Coder(const EncodedFrame& frame, const Planes& planes) : frame_(frame), planes_(planes) {}

  Status start(StreamHandle stream) {
    TQ_TRY(writer_.open(stream));
    return writer_.write_header(frame_);
  }

  Status mcu_row() {
    const int most = CodeWriter::kMostBlocks / (frame_.h * frame_.v + frame_.count - 1);
    for (int first = 0; first < planes_.mcus(); first += most) {
      const int count = std::min(most, planes_.mcus() - first);
      transform(first, count);
      code(count);
      TQ_TRY(writer_.end_blocks());
    }
    return kOk;
  }

  Status finish() { return writer_.finish(); }

 private:
  void transform(int first, int count) {
    QuantisedBlock* out = blocks_.data();
    for (int i = 0; i < frame_.count; ++i) {
      const Plane& plane = planes_[i];
      for (int row = 0; row < plane.v; ++row, out += count * plane.h) {
        kernels_.forward(plane.samples + 8 * row * plane.stride + 8 * first * plane.h, plane.stride,
                         count * plane.h, i == 0 ? luminance_ : chrominance_, out);
      }
    }
  }

  void code(int count) {
    BitWriter out = writer_.bits();
    for (int x = 0; x < count; ++x) {
      const QuantisedBlock* blocks = blocks_.data();
      for (int i = 0; i < frame_.count; ++i) {
        const Plane& plane = planes_[i];
        const BlockCodes& codes = i == 0 ? kLuminanceCodes : kChrominanceCodes;
        for (int row = 0; row < plane.v; ++row, blocks += count * plane.h) {
          for (int column = 0; column < plane.h; ++column) {
            code_block(blocks[x * plane.h + column], codes, predictors_[i], out);
          }
        }
      }
    }
    writer_.bits() = out;
  }

  CodeWriter writer_;
  const EncodedFrame& frame_;
  const Planes& planes_;
  const Kernels kernels_ = kernels(Accuracy::coarse);
  const QuantiseTable luminance_ = quantise_table(frame_.luminance, Accuracy::coarse);
  const QuantiseTable chrominance_ = quantise_table(frame_.chrominance, Accuracy::coarse);
  std::array<std::int32_t, kMostEncodedComponents> predictors_{};
  // Component by component and row by row; one more for kernels that take two at a time.
  std::array<QuantisedBlock, CodeWriter::kMostBlocks + 1> blocks_;
};

}  // namespace

Status find_stream_form(const formats::EncodeRequest& request, StreamForm& form) {
  Pixels pixels = Pixels::bgr;
  TQ_TRY(choose_pixels(*request.image, pixels));
  JpegSettings settings = context().settings.jpeg;
  EncodedFrame frame;
  TQ_TRY(choose_frame(request.image->header, pixels, settings, frame));
  form = {frame.count, frame.h, frame.v};
  return kOk;
}

Status can_encode_jpeg(const formats::EncodeRequest& request) {
  StreamForm form;
  return find_stream_form(request, form);
}

Status encode_jpeg(const formats::EncodeRequest& request) {
  Pixels pixels = Pixels::bgr;
  TQ_TRY(choose_pixels(*request.image, pixels));
  EncodedFrame frame;
  // Factors that the pixels change stay so for later saves: callers rely on it.
  TQ_TRY(choose_frame(request.image->header, pixels, context().settings.jpeg, frame));
  choose_steps(context().settings.jpeg, frame);
  Planes planes;
  TQ_TRY(planes.allocate(request, pixels, frame));
  Coder coder(frame, planes);
  TQ_TRY(coder.start(request.stream));
  for (int top = 0; top < frame.height; top += 8 * frame.v) {
    TQ_TRY(planes.load(top));
    TQ_TRY(coder.mcu_row());
  }
  return coder.finish();
}

}  // namespace tq::jpeg
