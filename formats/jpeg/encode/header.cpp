// The segments in front of the picture and its scans: SOI, APP14, APP0, DQT, SOF, DHT, SOS; and the
// settings that they depend on.
#include <algorithm>
#include <string_view>

#include "formats/jpeg/encode/encoder.h"
#include "formats/jpeg/jpeg.h"

namespace tq::jpeg {
namespace {

// The steps of quality 50: Table K.1, and a chrominance table that is not K.2; callers rely on its
// values.
// clang-format off
constexpr QuantiserSteps kBaseLuminance = {
    16, 11, 10, 16, 24, 40, 51, 61,
    12, 12, 14, 19, 26, 58, 60, 55,
    14, 13, 16, 24, 40, 57, 69, 56,
    14, 17, 22, 29, 51, 87, 80, 62,
    18, 22, 37, 56, 68, 109, 103, 77,
    24, 35, 55, 64, 81, 104, 113, 92,
    49, 64, 78, 87, 103, 121, 120, 101,
    72, 92, 95, 98, 112, 100, 103, 99};
constexpr QuantiserSteps kBaseChrominance = {
    17, 18, 24, 46, 66, 99, 99, 99,
    18, 21, 26, 66, 99, 99, 99, 99,
    24, 26, 66, 99, 99, 99, 99, 99,
    47, 66, 99, 99, 99, 99, 99, 99,
    66, 99, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99};
// clang-format on

QuantiserSteps scaled(const QuantiserSteps& base, int percent) {
  QuantiserSteps steps;
  std::transform(base.begin(), base.end(), steps.begin(), [percent](int step) {
    return byte(std::clamp((step * percent + 50) / 100, 1, 255));
  });
  return steps;
}

void put_marker(StreamWriter& out, int code, int length) {
  out.put8(0xFF);
  out.put8(code);
  out.put_be16(length);
}

void put_adobe(StreamWriter& out) {
  using namespace std::string_view_literals;
  put_marker(out, 0xEE, 14);
  out.put("Adobe\1\0\x40\0\0\0"sv);
  out.put8(2);  // the first three are YCbCr
}

void put_jfif(StreamWriter& out, const EncodedFrame& frame) {
  using namespace std::string_view_literals;
  put_marker(out, 0xE0, 16);
  out.put("JFIF\0\1\0"sv);
  out.put8(frame.density_unit);
  out.put_be16(frame.x_density);
  out.put_be16(frame.y_density);
  out.put_be16(0);  // no thumbnail
}

// JFIF demands to come first.
void put_applications(StreamWriter& out, const EncodedFrame& frame) {
  const bool exact = frame.writing.exact();
  if (exact) put_jfif(out, frame);
  if (frame.count == 4) put_adobe(out);
  if (!exact) put_jfif(out, frame);
}

void put_quantisation_table(StreamWriter& out, int number, const QuantiserSteps& steps) {
  out.put8(number);
  for (const int place : kZigzag) out.put8(steps[place]);
}

void put_frame(StreamWriter& out, const EncodedFrame& frame) {
  put_marker(out, frame.writing.progressive ? 0xC2 : 0xC0, 8 + 3 * frame.count);
  out.put8(8);
  out.put_be16(frame.height);
  out.put_be16(frame.width);
  out.put8(frame.count);
  for (int i = 0; i < frame.count; ++i) {
    const EncodedComponent& component = frame.components[i];
    out.put8(i + 1);
    out.put8(component.h << 4 | component.v);
    out.put8(component.table);
  }
}

}  // namespace

void put_huffman_table(StreamWriter& out, int class_and_number, const HuffmanSpec& spec) {
  const int size = spec.size();
  put_marker(out, 0xC4, 2 + 1 + 16 + size);
  out.put8(class_and_number);
  out.put(spec.counts);
  out.put(std::span(spec.values).first(size));
}

void put_scan_header(StreamWriter& out, const EncodedFrame& frame, const EncodedScan& scan) {
  put_marker(out, 0xDA, 6 + 2 * scan.count);
  out.put8(scan.count);
  for (int i = scan.component; i < scan.component + scan.count; ++i) {
    out.put8(i + 1);
    out.put8(0x11 * frame.components[i].table);
  }
  out.put8(scan.first);
  out.put8(scan.last);
  out.put8(scan.high << 4 | scan.low);
}

void set_jpeg_quality(std::int32_t quality) {
  context().settings.jpeg.quality = std::clamp(quality, 1, 100);
}

void set_jpeg_sampling(std::int32_t horizontal, std::int32_t vertical) {
  context().settings.jpeg.h = horizontal;
  context().settings.jpeg.v = vertical;
}

void choose_steps(const JpegSettings& settings, EncodedFrame& frame) {
  const bool exact = frame.writing.exact();
  const int quality = settings.quality != 0 ? settings.quality : exact ? 75 : 50;
  const int percent = quality < 50 ? 5000 / quality : 200 - 2 * quality;
  frame.steps[0] = scaled(kBaseLuminance, percent);
  frame.steps[1] = scaled(kBaseChrominance, percent);
  if (settings.quality == 0 && !exact) {
    // Until a quality is set two steps are others: callers rely on it.
    frame.steps[1][2 * 8 + 2] = 56;
    frame.steps[1][4 * 8] = 99;
  }
}

void put_frame_header(StreamWriter& out, const EncodedFrame& frame) {
  out.put_be16(0xFFD8);
  put_applications(out, frame);
  put_marker(out, 0xDB, 132);
  for (int i = 0; i < 2; ++i) put_quantisation_table(out, i, frame.steps[i]);
  put_frame(out, frame);
}

}  // namespace tq::jpeg
