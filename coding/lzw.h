// LZW: codes for strings of pixels, or of bytes, which grow to 12 bits with what they can stand for.
// GIF packs them from the lowest bit of a byte on; TIFF (TIFF 6.0, section 13) from the highest, and
// lets them grow one string early; old TIFF files are like GIF.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

#include "coding/bits.h"
#include "core/memory.h"
#include "core/numbers.h"

namespace tq::lzw {

inline constexpr int kMostBits = 12;  // of a code
inline constexpr int kCodes = 1 << kMostBits;

// Tables and all, so that an object of it is a block of memory and nothing else.
template <coding::BitOrder kOrder, bool kEarly>
class Decoder {
 public:
  // Pixels have 1 to 8 bits; the first codes have one more.
  void start(int pixel_bits, coding::PieceSource data) {
    reader_ = coding::BitReader<kOrder>(data);
    rest_ = {};
    clear_ = 1 << pixel_bits;
    first_bits_ = pixel_bits + 1;
    for (int i = 0; i < clear_; ++i) strings_[i] = {.length = 1, .first = byte(i), .last = byte(i)};
    reset();
  }

  // Fills `pixels`. Returns how many there were: fewer at the end of the data, or where they make
  // no sense.
  std::ptrdiff_t read(std::span<std::uint8_t> pixels) {
    std::uint8_t* to = pixels.data();
    std::uint8_t* const end = to + pixels.size();
    coding::BitReader<kOrder> reader = reader_;
    while (to != end) {
      if (!rest_.empty()) {
        const auto part = rest_.first(std::min(std::ssize(rest_), end - to));
        to = std::copy(part.begin(), part.end(), to);
        rest_ = rest_.subspan(part.size());
        continue;
      }
      const int code = next_string(reader);
      if (code < 0) break;
      const int length = strings_[code].length;
      if (length <= end - to) {
        spell(code, to += length);
      } else {
        spell(code, string_.data() + length);
        rest_ = std::span(string_).first(length);
      }
    }
    reader_ = reader;
    return to - pixels.data();
  }

 private:
  // A string is that of another code and a pixel more.
  struct String {
    std::uint16_t prefix = 0, length = 0;
    std::uint8_t first = 0, last = 0;
  };

  void reset() {
    next_ = clear_ + 2;
    bits_ = first_bits_;
    previous_ = -1;
  }
  // The code of the next string, or -1.
  int next_string(coding::BitReader<kOrder>& reader) {
    int code = clear_;
    while (true) {
      if (!reader.has(bits_)) return -1;
      code = reader.peek(bits_);
      reader.skip(bits_);
      if (code != clear_) break;
      reset();
    }
    if (previous_ < 0) {  // the first code is a pixel
      if (code >= clear_) return -1;
    } else {
      if (code == clear_ + 1 || code > next_ || (code == next_ && next_ == kCodes)) return -1;
      if (next_ < kCodes) learn(code);
    }
    previous_ = code;
    return code;
  }
  // The string of the code before, with the first pixel of the present one.
  void learn(int code) {
    String* const strings = strings_.data();
    const String& before = strings[previous_];
    String& added = strings[next_];
    added.prefix = word(previous_);
    added.length = word(before.length + 1);
    added.first = before.first;
    added.last = code == next_ ? before.first : strings[code].first;
    if (++next_ + kEarly == 1 << bits_ && bits_ < kMostBits) ++bits_;
  }
  // Writes a string that ends there.
  void spell(int code, std::uint8_t* end) const {
    const String* const strings = strings_.data();
    for (int left = strings[code].length; left > 0; --left) {
      *--end = strings[code].last;
      code = strings[code].prefix;
    }
  }

  coding::BitReader<kOrder> reader_;
  std::array<String, kCodes> strings_;           // by their codes
  std::array<std::uint8_t, kCodes + 1> string_;  // one that did not fit
  std::span<const std::uint8_t> rest_{};         // what is left of it
  int clear_ = 0, first_bits_ = 0;  // the code that forgets all; the one behind it ends
  int next_ = 0, bits_ = 0;         // the code of the next new string, bits of codes now
  int previous_ = -1;
};

template <coding::BitOrder kOrder, bool kEarly>
class Encoder {
 public:
  // Pixels have 2 to 8 bits.
  void start(int pixel_bits) {
    writer_ = {};
    clear_ = 1 << pixel_bits;
    first_bits_ = bits_ = pixel_bits + 1;
    current_ = -1;
    next_ = clear_ + 2;
  }

  // How far behind `out` the codes of so many pixels, or the last ones, are written at most.
  static constexpr std::int64_t most_bytes(std::int64_t pixels) { return 2 * pixels + 32; }

  // The end of the complete bytes. The next codes go on there.
  std::uint8_t* put(std::span<const std::uint8_t> pixels, std::uint8_t* out) {
    writer_.move_to(out);
    const std::uint32_t* const keys = keys_.data();
    int current = current_;
    for (const std::uint8_t pixel : pixels) {
      if (current < 0) {
        restart();
        current = pixel;
        continue;
      }
      const std::uint32_t key = (current << 8 | pixel) + 1;
      std::uint32_t slot = key * 0x9E3779B1 >> 19;
      while (keys[slot] != 0 && keys[slot] != key) slot = (slot + 1) % kSlots;
      if (keys[slot] == key) {
        current = codes_[slot];
        continue;
      }
      writer_.put(current, bits_);
      current = pixel;
      learn(key, slot);
    }
    current_ = current;
    return writer_.end();
  }

  // Behind the last pixel; completes the last byte.
  std::uint8_t* finish(std::uint8_t* out) {
    writer_.move_to(out);
    if (current_ >= 0) {
      writer_.put(current_, bits_);
      // The decoder takes this code for one more string.
      if (next_ < kFull && next_ + kEarly == 1 << bits_) ++bits_;
    }
    writer_.put(clear_ + 1, bits_);
    writer_.align();
    return writer_.end();
  }

 private:
  static constexpr int kSlots = 2 * kCodes;
  static constexpr int kFull = kEarly ? kCodes - 2 : kCodes;  // codes; others clear as soon

  // A new string, or none any more.
  void learn(std::uint32_t key, std::uint32_t slot) {
    if (next_ < kFull) {
      if (next_ + kEarly == 1 << bits_) ++bits_;
      keys_[slot] = key;
      codes_[slot] = word(next_++);
      if (!kEarly || next_ < kFull) return;
    }
    restart();
  }
  void restart() {
    writer_.put(clear_, bits_);
    std::fill_n(keys_.data(), kSlots, 0u);
    next_ = clear_ + 2;
    bits_ = first_bits_;
  }

  coding::BitWriter<kOrder> writer_;
  // Which code stands for a string's code and one more pixel. A key of 0 is a free slot.
  std::array<std::uint32_t, kSlots> keys_;
  std::array<std::uint16_t, kSlots> codes_;
  int clear_ = 0, first_bits_ = 0;  // the code that forgets all strings; the one behind it ends
  int next_ = 0, bits_ = 0;         // the code of the next new string, bits of codes now
  int current_ = -1;                // the code of the pixels that are not written yet
};

using GifDecoder = Decoder<coding::BitOrder::lsb_first, false>;
using GifEncoder = Encoder<coding::BitOrder::lsb_first, false>;
using TiffDecoder = Decoder<coding::BitOrder::msb_first, true>;
using OldTiffDecoder = Decoder<coding::BitOrder::lsb_first, false>;
using TiffEncoder = Encoder<coding::BitOrder::msb_first, true>;

}  // namespace tq::lzw
