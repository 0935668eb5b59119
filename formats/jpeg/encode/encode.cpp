// Writes a JPEG stream: rows become planes of samples, one MCU row at a time, planes become blocks,
// and blocks become codes.
#include <algorithm>

#include "formats/jpeg/encode/encoder.h"
#include "formats/jpeg/jpeg.h"

namespace tq::jpeg {
namespace {

constexpr int kLongestSide = 65535;

Writing choose_writing(const Options& options) {
  const auto is_on = [&](std::int32_t option) { return options.get(option) == 1; };
  const bool progressive = is_on(IMG_OPTION_JPEG_PROGRESSIVE);
  return {.accuracy = is_on(IMG_OPTION_JPEG_WRITING) ? Accuracy::exact : Accuracy::coarse,
          .optimised = progressive || is_on(IMG_OPTION_JPEG_OPTIMISE),
          .progressive = progressive};
}

// Sampling that callers have relied on: what the pixels do to the factors stays in the settings.
void choose_components(Pixels pixels, JpegSettings& settings, EncodedFrame& frame) {
  if (pixels == Pixels::grey) settings.h = settings.v = 1;
  if (pixels == Pixels::four) settings.h = 1;
  frame.components[0] = {settings.h, settings.v, 0};
  for (int i = 1; i < frame.count; ++i) frame.components[i].table = 1;
}

// Chroma has the lower resolution, and it alone.
void choose_exact_components(const JpegSettings& settings, EncodedFrame& frame) {
  const EncodedComponent full{settings.h, settings.v, 0};
  if (frame.count > 1) frame.components = {full, {1, 1, 1}, {1, 1, 1}, full};
}

// Where none is known coarse files say 96 dots per inch, exact ones that pixels are square.
void choose_density(const formats::EncodeRequest& request, EncodedFrame& frame) {
  const bool exact = frame.writing.exact();
  const BitmapInfoHeader& header = request.image->header;
  std::int32_t x = header.biXPelsPerMeter, y = header.biYPelsPerMeter;
  if (exact || request.is_exact()) {
    x = (request.resolution.x + 500) / 1000;
    y = (request.resolution.y + 500) / 1000;
  }
  const bool fits = x > 0 && y > 0 && std::max(x, y) <= 65535;
  const bool known = exact ? fits : x != 0;
  const int otherwise = exact ? 1 : 96;
  frame.density_unit = known || !exact ? 1 : 0;
  frame.x_density = known ? x : otherwise;
  frame.y_density = known ? y : otherwise;
}

Status choose_frame(const formats::EncodeRequest& request, Pixels pixels, JpegSettings& settings,
                    EncodedFrame& frame) {
  frame.width = request.image->header.biWidth;
  frame.height = request.image->header.biHeight;
  frame.count = pixels == Pixels::grey ? 1 : pixels == Pixels::four ? 4 : 3;
  if (frame.writing.exact()) {
    choose_exact_components(settings, frame);
  } else {
    choose_components(pixels, settings, frame);
  }
  choose_density(request, frame);
  choose_steps(settings, frame);
  if (frame.width > kLongestSide || frame.height > kLongestSide) return StatusCode::unsupported;
  if (frame.h() < 1 || frame.h() > 4 || frame.v() < 1 || frame.v() > 4 ||
      frame.mcu_blocks() > kMostBlocksOfMcu) {
    return StatusCode::unsupported;
  }
  return kOk;
}

// Rows of blocks of neighbouring MCUs, component by component.
using BlockRows = std::array<QuantisedBlock*, kMostBlocksOfMcu>;

// A block that costs least: the level of the one before it.
QuantisedBlock level_block(const QuantisedBlock& before) {
  QuantisedBlock block{};
  block.values[0] = before.values[0];
  block.present = block.values[0] != 0 ? 1 : 0;
  return block;
}

class Transformer {
 public:
  Transformer(const EncodedFrame& frame, const Planes& planes)
      : frame_(frame), planes_(planes), kernels_(kernels(frame.writing.accuracy)) {
    for (int i = 0; i < 2; ++i) tables_[i] = quantise_table(frame.steps[i], frame.writing.accuracy);
  }

  // `count` MCUs of those in the planes.
  void transform(int first, int count, const BlockRows& out) const {
    QuantisedBlock* const* rows = out.data();
    for (int i = 0; i < frame_.count; ++i) {
      const Plane& plane = planes_[i];
      const std::int16_t* samples = plane.samples + 8 * first * plane.h;
      for (int row = 0; row < plane.rows; ++row, samples += 8 * plane.stride) {
        kernels_.forward(samples, plane.stride, count * plane.h,
                         tables_[frame_.components[i].table], rows[row]);
      }
      fill_up(plane, first, count, rows);
      rows += plane.v;
    }
  }

 private:
  // Blocks of an MCU without a pixel.
  static void fill_up(const Plane& plane, int first, int count, QuantisedBlock* const* rows) {
    const int end = count * plane.h;
    for (int row = 0; row < plane.rows; ++row) {
      for (int x = plane.columns - first * plane.h; x < end; ++x) {
        rows[row][x] = level_block(rows[row][x - 1]);
      }
    }
    for (int row = plane.rows; row < plane.v; ++row) {
      for (int x = 0; x < end; ++x) {
        rows[row][x] = level_block(rows[row - 1][x / plane.h * plane.h + plane.h - 1]);
      }
    }
  }

  const EncodedFrame& frame_;
  const Planes& planes_;
  const Kernels kernels_;
  std::array<QuantiseTable, 2> tables_;
};

// Calls `visit(component, block)` for the blocks of `count` MCUs in the order of the stream.
template <class Visit>
void for_each_block(const EncodedFrame& frame, int count, const BlockRows& rows, Visit&& visit) {
  for (int mcu = 0; mcu < count; ++mcu) {
    QuantisedBlock* const* row = rows.data();
    for (int i = 0; i < frame.count; ++i) {
      const EncodedComponent component = frame.components[i];
      for (int y = 0; y < component.v; ++y, ++row) {
        const QuantisedBlock* const blocks = *row + mcu * component.h;
        for (int x = 0; x < component.h; ++x) visit(i, blocks[x]);
      }
    }
  }
}

using Predictors = std::array<std::int32_t, kMostEncodedComponents>;

// The data of a sequential scan.
class SequentialCoder {
 public:
  using Codes = std::array<const BlockCodes*, 2>;

  SequentialCoder(const EncodedFrame& frame, const Codes& codes, CodeWriter& writer)
      : frame_(frame), writer_(writer) {
    for (int i = 0; i < frame.count; ++i) codes_[i] = codes[frame.components[i].table];
  }

  // As many MCUs as there is room for.
  int most() const { return CodeWriter::kMostBlocks / frame_.mcu_blocks(); }

  Status start() {
    put_frame_header(writer_.out(), frame_);
    for (int i = 0; i < frame_.tables(); ++i) {
      put_huffman_table(writer_.out(), i, frame_.dc[i]);
      put_huffman_table(writer_.out(), 0x10 | i, frame_.ac[i]);
    }
    put_scan_header(writer_.out(), frame_, {.count = frame_.count});
    return writer_.out().flush();
  }

  Status code(int count, const BlockRows& rows) {
    BitWriter out = writer_.bits();
    for_each_block(frame_, count, rows, [&](int i, const QuantisedBlock& block) {
      code_block(block, *codes_[i], predictors_[i], out);
    });
    writer_.bits() = out;
    return writer_.end_blocks();
  }

  Status finish() {
    if (!frame_.writing.exact() && !frame_.writing.optimised) return writer_.finish();
    TQ_TRY(writer_.end_scan());
    return writer_.finish_scans();
  }

 private:
  const EncodedFrame& frame_;
  CodeWriter& writer_;
  std::array<const BlockCodes*, kMostEncodedComponents> codes_{};
  Predictors predictors_{};
};

// Codes are known: an MCU row is coded as soon as it is there, in batches whose blocks stay in the
// nearest cache.
Status encode_at_once(const EncodedFrame& frame, Planes& planes, CodeWriter& writer) {
  // One more for kernels that take two at a time.
  std::array<QuantisedBlock, CodeWriter::kMostBlocks + 1> blocks;
  const Transformer transformer(frame, planes);
  SequentialCoder coder(frame, {&kLuminanceCodes, &kChrominanceCodes}, writer);
  TQ_TRY(coder.start());
  for (int top = 0; top < frame.height; top += 8 * frame.v()) {
    TQ_TRY(planes.load(top));
    for (int first = 0; first < planes.mcus(); first += coder.most()) {
      const int count = std::min(coder.most(), planes.mcus() - first);
      BlockRows rows{};
      QuantisedBlock* next = blocks.data();
      for (int i = 0, row = 0; i < frame.count; ++i) {
        for (int y = 0; y < planes[i].v; ++y, next += count * planes[i].h) rows[row++] = next;
      }
      transformer.transform(first, count, rows);
      TQ_TRY(coder.code(count, rows));
    }
  }
  return coder.finish();
}

// All blocks are needed before the first is coded.
class StoredPicture {
 public:
  StoredPicture(EncodedFrame& frame, Planes& planes) : frame_(frame), planes_(planes) {}

  Status load() {
    TQ_TRY(store_.allocate(frame_, planes_.mcus()));
    const Transformer transformer(frame_, planes_);
    std::array<BlockCounts, 2> counts;
    Predictors predictors{};
    for (int mcu_row = 0; mcu_row < frame_.mcu_rows(); ++mcu_row) {
      TQ_TRY(planes_.load(mcu_row * 8 * frame_.v()));
      const BlockRows rows = rows_of(mcu_row, 0);
      transformer.transform(0, planes_.mcus(), rows);
      if (frame_.writing.progressive) continue;
      for_each_block(frame_, planes_.mcus(), rows, [&](int i, const QuantisedBlock& block) {
        count_block(block, predictors[i], counts[frame_.components[i].table]);
      });
    }
    if (frame_.writing.progressive) return kOk;  // every scan has codes of its own
    for (int i = 0; i < frame_.tables(); ++i) {
      frame_.dc[i] = optimal_codes(counts[i].dc);
      frame_.ac[i] = optimal_codes(counts[i].ac);
    }
    return kOk;
  }

  Status write(CodeWriter& writer) {
    if (frame_.writing.progressive) {
      return write_progressive(frame_, planes_, store_, writer);
    }
    const BlockCodes luminance = block_codes(frame_.dc[0], frame_.ac[0]);
    const BlockCodes chrominance = block_codes(frame_.dc[1], frame_.ac[1]);
    SequentialCoder coder(frame_, {&luminance, &chrominance}, writer);
    TQ_TRY(coder.start());
    for (int mcu_row = 0; mcu_row < frame_.mcu_rows(); ++mcu_row) {
      for (int first = 0; first < planes_.mcus(); first += coder.most()) {
        const int count = std::min(coder.most(), planes_.mcus() - first);
        TQ_TRY(coder.code(count, rows_of(mcu_row, first)));
      }
    }
    return coder.finish();
  }

 private:
  BlockRows rows_of(int mcu_row, int first) const {
    BlockRows rows{};
    for (int i = 0, row = 0; i < frame_.count; ++i) {
      const auto [h, v, table] = frame_.components[i];
      for (int y = 0; y < v; ++y) rows[row++] = store_.row(i, mcu_row * v + y) + first * h;
    }
    return rows;
  }

  EncodedFrame& frame_;
  Planes& planes_;
  BlockStore store_;
};

}  // namespace

Status BlockStore::allocate(const EncodedFrame& frame, int mcus) {
  std::uint64_t total = 0;
  std::array<std::uint64_t, kMostEncodedComponents> starts{};
  for (int i = 0; i < frame.count; ++i) {
    const EncodedComponent& component = frame.components[i];
    parts_[i].columns = mcus * component.h;
    starts[i] = total;
    total += std::uint64_t{1} * parts_[i].columns * component.v * frame.mcu_rows() + 1;
  }
  TQ_TRY(room_.allocate((total + 1) * sizeof(QuantisedBlock)));
  // Blocks of memory begin wherever the system likes.
  constexpr std::uintptr_t kAlignment = alignof(QuantisedBlock);
  const std::uintptr_t ahead = -reinterpret_cast<std::uintptr_t>(room_.data()) & (kAlignment - 1);
  auto* const blocks = reinterpret_cast<QuantisedBlock*>(room_.data() + ahead);
  for (int i = 0; i < frame.count; ++i) parts_[i].blocks = blocks + starts[i];
  return kOk;
}

Status find_stream_form(const formats::EncodeRequest& request, StreamForm& form) {
  EncodedFrame frame;
  frame.writing = choose_writing(request.options);
  Pixels pixels = Pixels::bgr;
  TQ_TRY(choose_pixels(request, frame.writing.accuracy, pixels));
  JpegSettings settings = context().settings.jpeg;
  TQ_TRY(choose_frame(request, pixels, settings, frame));
  form = {frame.count, frame.h(), frame.v()};
  return kOk;
}

Status can_encode_jpeg(const formats::EncodeRequest& request) {
  StreamForm form;
  return find_stream_form(request, form);
}

Status encode_jpeg(const formats::EncodeRequest& request) {
  EncodedFrame frame;
  frame.writing = choose_writing(request.options);
  Pixels pixels = Pixels::bgr;
  TQ_TRY(choose_pixels(request, frame.writing.accuracy, pixels));
  // Factors that the pixels change stay so for later saves: callers rely on it.
  TQ_TRY(choose_frame(request, pixels, context().settings.jpeg, frame));
  Planes planes;
  TQ_TRY(planes.allocate(request, pixels, frame));
  CodeWriter writer;
  TQ_TRY(writer.open(request.stream));
  if (!frame.writing.optimised) return encode_at_once(frame, planes, writer);
  StoredPicture picture(frame, planes);
  TQ_TRY(picture.load());
  return picture.write(writer);
}

}  // namespace tq::jpeg
