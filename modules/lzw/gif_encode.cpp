// Writes GIF images of 1, 4 and 8 bits: 87a, or 89a with a transparent colour.
#include <algorithm>
#include <cstring>

#include "modules/lzw/gif.h"

namespace gif {
namespace {

constexpr int kBlockBytes = 255;
constexpr int kSlots = 8192;  // a power of 2 above kCodes
constexpr std::int32_t kLargestSide = 0xFFFF;

// Bytes to the stream in pieces; a short write is remembered.
class Output {
 public:
  explicit Output(std::int32_t stream) : stream_(stream) {}

  void put(int byte) {
    if (used_ == bytes_.size()) flush();
    bytes_[used_++] = static_cast<std::uint8_t>(byte);
  }
  void put16(int value) {
    put(value & 0xFF);
    put(value >> 8);
  }
  void put(const std::uint8_t* bytes, int count) {
    for (int i = 0; i < count; ++i) put(bytes[i]);
  }
  std::int32_t finish() {
    flush();
    return failed_ ? IMG_WRITE_FAILED : IMG_OK;
  }
  bool failed() const { return failed_; }

 private:
  void flush() {
    const auto count = static_cast<std::int32_t>(used_);
    if (count != 0 && !failed_) failed_ = host().write(stream_, bytes_.data(), count) != count;
    used_ = 0;
  }

  std::int32_t stream_;
  std::array<std::uint8_t, 4096> bytes_{};
  std::size_t used_ = 0;
  bool failed_ = false;
};

// Codes of growing width, gathered into blocks.
class CodeWriter {
 public:
  explicit CodeWriter(Output& output) : output_(output) {}

  void put(int code, int bits) {
    window_ |= static_cast<std::uint32_t>(code) << window_bits_;
    for (window_bits_ += bits; window_bits_ >= 8; window_bits_ -= 8, window_ >>= 8) {
      put_byte(static_cast<std::uint8_t>(window_));
    }
  }
  void finish() {
    if (window_bits_ > 0) put_byte(static_cast<std::uint8_t>(window_));
    put_block();
    output_.put(0);
  }

 private:
  void put_byte(std::uint8_t byte) {
    block_[used_++] = byte;
    if (used_ == kBlockBytes) put_block();
  }
  void put_block() {
    if (used_ == 0) return;
    output_.put(used_);
    output_.put(block_.data(), used_);
    used_ = 0;
  }

  Output& output_;
  std::array<std::uint8_t, kBlockBytes> block_{};
  int used_ = 0;
  std::uint32_t window_ = 0;
  int window_bits_ = 0;
};

// Which code stands for a known string and one more pixel.
struct Strings {
  std::array<std::uint32_t, kSlots> keys;  // code << 8 | pixel, plus 1; 0 is free
  std::array<std::uint16_t, kSlots> codes;

  void clear() { keys.fill(0); }
  int find(std::uint32_t key) {  // the slot that holds the key, or where it belongs
    std::uint32_t slot = (key * 0x9E3779B1U) >> 19;
    while (keys[slot] != 0 && keys[slot] != key) slot = (slot + 1) % kSlots;
    return static_cast<int>(slot);
  }
};

class Lzw {
 public:
  Lzw(Output& output, int code_size, Strings& strings)
      : writer_(output), strings_(strings), root_bits_(code_size + 1), clear_(1 << code_size) {
    restart();
  }

  void put(std::uint8_t pixel) {
    if (current_ < 0) {
      current_ = pixel;
      return;
    }
    const std::uint32_t key = (static_cast<std::uint32_t>(current_) << 8 | pixel) + 1;
    const int slot = strings_.find(key);
    if (strings_.keys[slot] == key) {
      current_ = strings_.codes[slot];
      return;
    }
    writer_.put(current_, bits_);
    current_ = pixel;
    if (next_ == kCodes) {
      restart();
      return;
    }
    if (next_ == 1 << bits_) ++bits_;
    strings_.keys[slot] = key;
    strings_.codes[slot] = static_cast<std::uint16_t>(next_++);
  }
  void finish() {
    if (current_ >= 0) {
      writer_.put(current_, bits_);
      // The reader takes this code for one more string.
      if (next_ < kCodes && next_ == 1 << bits_) ++bits_;
    }
    writer_.put(clear_ + 1, bits_);
    writer_.finish();
  }

 private:
  void restart() {
    writer_.put(clear_, bits_ == 0 ? root_bits_ : bits_);
    strings_.clear();
    next_ = clear_ + 2;
    bits_ = root_bits_;
  }

  CodeWriter writer_;
  Strings& strings_;
  int root_bits_, clear_;
  int next_ = 0, bits_ = 0;
  int current_ = -1;  // the code of the pixels that are not written yet
};

void put_header(Output& output, const HeaderBlock& image, bool interlaced) {
  const bool transparent = (image.colours_used & kTransparent) != 0;
  const char* signature = transparent ? "GIF89a" : "GIF87a";
  for (int i = 0; i < 6; ++i) output.put(signature[i]);
  output.put16(image.width);
  output.put16(image.height);
  output.put(0x80 | (image.bits - 1) << 4 | (image.bits - 1));  // a palette of 2, 16 or 256 colours
  output.put16(0);                                              // background, aspect
  for (int i = 0; i < 1 << image.bits; ++i) {
    output.put(image.palette[i].red);
    output.put(image.palette[i].green);
    output.put(image.palette[i].blue);
  }
  if (transparent) {
    const std::uint8_t control[] = {
        0x21, 0xF9, 4, 1, 0, 0, static_cast<std::uint8_t>(image.colours_used), 0};
    output.put(control, sizeof control);
  }
  output.put(0x2C);
  output.put16(0);
  output.put16(0);
  output.put16(image.width);
  output.put16(image.height);
  output.put(interlaced ? 0x40 : 0);
}

void put_row(Lzw& lzw, const std::uint8_t* row, std::int32_t width, int bits) {
  const int per_byte = 8 / bits, mask = (1 << bits) - 1;
  for (std::int32_t x = 0; x < width; ++x) {
    const int shift = (per_byte - 1 - x % per_byte) * bits;
    lzw.put(static_cast<std::uint8_t>(row[x / per_byte] >> shift & mask));
  }
}

}  // namespace

std::int32_t encode(std::int32_t stream, const HeaderBlock& image, img_supply_fn supply,
                    void* save_context, bool interlaced) {
  if (image.bits != 1 && image.bits != 4 && image.bits != 8) return IMG_WRONG_DEPTH;
  if (image.width < 1 || image.height < 1) return IMG_BAD_IMAGE;
  if (image.width > kLargestSide || image.height > kLargestSide) return IMG_UNSUPPORTED;
  const std::int32_t bytes = row_bytes(image.width, image.bits);
  Owned<std::uint8_t> row(static_cast<std::size_t>(bytes));
  Owned<Strings> strings(1);
  if (!row || !strings) return IMG_OUT_OF_MEMORY;

  Output output(stream);
  put_header(output, image, interlaced);
  const int code_size = std::max<int>(image.bits, 2);
  output.put(code_size);
  Lzw lzw(output, code_size, *strings.get());
  for (std::int32_t n = 0; n < image.height; ++n) {
    const std::int32_t y = interlaced ? interlaced_row(n, image.height) : n;
    if (const std::int32_t answer = supply(save_context, row.get(), y, bytes); answer < 0) {
      return answer;
    }
    put_row(lzw, row.get(), image.width, image.bits);
    if (output.failed()) return IMG_WRITE_FAILED;
  }
  lzw.finish();
  output.put(0x3B);
  return output.finish();
}

}  // namespace gif
