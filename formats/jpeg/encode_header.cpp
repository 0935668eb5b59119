// SOI, APP14, APP0, DQT, SOF0, DHT, SOS.
#include "formats/jpeg/encode_header.h"

#include <string_view>

#include "formats/jpeg/typical_tables.h"

namespace tq::formats {
namespace {

constexpr std::size_t kMostHeaderBytes = 1024;

// Bytes in the order of the file. There is room for all of them.
class HeaderBytes {
 public:
  void u8(int value) { bytes_[size_++] = static_cast<std::uint8_t>(value); }
  void u16(int value) {
    u8(value >> 8);
    u8(value);
  }
  void marker(int code, int length) {
    u16(0xFF00 | code);
    u16(length);
  }
  void text(std::string_view characters) {
    for (const char c : characters) u8(c);
  }
  std::span<std::uint8_t> bytes() { return std::span(bytes_).first(size_); }

 private:
  std::array<std::uint8_t, kMostHeaderBytes> bytes_;
  std::size_t size_ = 0;
};

void put_quantiser(HeaderBytes& out, int number, const std::array<std::uint8_t, kBlock>& table) {
  out.u8(number);
  for (const std::uint8_t place : kZigzag) out.u8(table[place]);
}

void put_huffman(HeaderBytes& out, int class_and_number, const HuffmanSpec& spec) {
  const int size = spec.size();
  out.marker(0xC4, 2 + 1 + 16 + size);
  out.u8(class_and_number);
  for (const int count : spec.counts) out.u8(count);
  for (int i = 0; i < size; ++i) out.u8(spec.values[i]);
}

void put_applications(HeaderBytes& out, const EncodedFrame& frame) {
  using namespace std::string_view_literals;
  if (frame.count == 4) {
    out.marker(0xEE, 14);
    out.text("Adobe");
    out.u16(0x0100);
    out.u16(0x4000);
    out.u16(0);
    out.u8(2);  // the first three are YCbCr
  }
  out.marker(0xE0, 16);
  out.text("JFIF\0\1\0"sv);
  out.u8(1);  // dots per inch
  const bool known = frame.x_density != 0;
  out.u16(known ? frame.x_density : 96);
  out.u16(known ? frame.y_density : 96);
  out.u16(0);  // no thumbnail
}

void put_frame(HeaderBytes& out, const EncodedFrame& frame) {
  out.marker(0xC0, 8 + 3 * frame.count);
  out.u8(8);
  out.u16(frame.height);
  out.u16(frame.width);
  out.u8(frame.count);
  for (int i = 0; i < frame.count; ++i) {
    out.u8(i + 1);
    out.u8(i == 0 ? frame.h << 4 | frame.v : 0x11);
    out.u8(i == 0 ? 0 : 1);
  }
}

void put_scan(HeaderBytes& out, const EncodedFrame& frame) {
  out.marker(0xDA, 6 + 2 * frame.count);
  out.u8(frame.count);
  for (int i = 0; i < frame.count; ++i) {
    out.u8(i + 1);
    out.u8(i == 0 ? 0x00 : 0x11);
  }
  out.u8(0);
  out.u8(63);
  out.u8(0);
}

}  // namespace

Status write_jpeg_header(StreamHandle stream, const EncodedFrame& frame,
                         const JpegEncoderSettings& settings) {
  HeaderBytes out;
  out.u16(0xFFD8);
  put_applications(out, frame);
  out.marker(0xDB, 132);
  put_quantiser(out, 0, settings.luminance);
  put_quantiser(out, 1, settings.chrominance);
  put_frame(out, frame);
  put_huffman(out, 0x00, kDcLuminance);
  put_huffman(out, 0x10, kAcLuminance);
  if (frame.count > 1) {
    put_huffman(out, 0x01, kDcChrominance);
    put_huffman(out, 0x11, kAcChrominance);
  }
  put_scan(out, frame);
  const std::span<std::uint8_t> bytes = out.bytes();
  const auto size = static_cast<std::int32_t>(bytes.size());
  return write(stream, bytes) == size ? kOk : StatusCode::write_failed;
}

}  // namespace tq::formats
