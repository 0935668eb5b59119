// LZW: codes for strings of pixels, or of bytes, which grow to 12 bits with what they can stand for.
// GIF packs them from the lowest bit of a byte on; TIFF (TIFF 6.0, section 13) from the highest, and
// lets them grow one string early; old TIFF files are like GIF.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <span>

#include "coding/bits.h"
#include "core/memory.h"
#include "core/numbers.h"

namespace tq::lzw {

inline constexpr int kMostBits = 12;  // of a code
inline constexpr int kCodes = 1 << kMostBits;

// Tables and all, so that an object of it is a block of memory and nothing else. Strings are kept and
// written eight pixels at a time.
template <coding::BitOrder kOrder, bool kEarly>
class Decoder {
 public:
  // Pixels have 1 to 8 bits; the first codes have one more.
  void start(int pixel_bits, coding::PieceSource data) {
    reader_ = coding::BitReader<kOrder>(data);
    rest_ = {};
    clear_ = 1 << pixel_bits;
    first_bits_ = pixel_bits + 1;
    for (int i = 0; i < clear_; ++i) strings_[i] = String(byte(i));
    growth_ = begin();
  }

  // Fills `pixels`. Returns how many there were: fewer at the end of the data, or where they make
  // no sense.
  std::ptrdiff_t read(std::span<std::uint8_t> pixels) {
    std::uint8_t* to = take_rest(pixels.data(), pixels.data() + pixels.size());
    std::uint8_t* const end = pixels.data() + pixels.size();
    coding::BitReader<kOrder> reader = reader_;
    Growth growth = growth_;
    while (to != end) {
      if (!reader.has(growth.bits)) break;
      const auto code = static_cast<int>(reader.peek(growth.bits));
      reader.skip(growth.bits);
      if (code == clear_) {
        growth = begin();
        continue;
      }
      if (!learn(code, growth)) break;
      const String& string = growth.previous;
      const int length = string.length();
      if (end - to >= length + kBlock) {
        spell(string, to);
        to += length;
      } else {
        spell(string, string_.data());
        rest_ = std::span(string_).first(length);
        to = take_rest(to, end);
      }
    }
    reader_ = reader;
    growth_ = growth;
    return to - pixels.data();
  }

 private:
  static constexpr int kBlock = 8;  // pixels

  // The pixels behind the last whole block, or the last block, the first of them lowest; and in one
  // word what is kept beside them: the code of what stands before that, the length, the first pixel.
  struct String {
    String() = default;
    explicit String(std::uint8_t pixel) : block(pixel), rest(std::uint64_t{pixel} << 32 | 1) {}
    int length() const { return static_cast<int>(rest & 0xFFFF); }
    int prefix() const { return static_cast<int>(rest >> 16 & 0xFFFF); }
    std::uint64_t first() const { return rest >> 32; }

    String longer(std::uint64_t pixel, int code) const {
      String made;
      const auto in_block = static_cast<int>(rest % kBlock);
      made.block = in_block != 0 ? block | pixel << 8 * in_block : pixel;
      made.rest = rest + 1;
      if (in_block == 0) made.rest += static_cast<std::uint64_t>(code - prefix()) << 16;
      return made;
    }
    std::uint64_t block = 0, rest = 0;
  };
  struct Growth {
    int next = 0, bits = 0;  // the code of the next new string, bits of codes now
    int code = -1;           // the one before
    String previous{};       // what it stands for: it need not be looked up again
  };

  Growth begin() const { return {.next = clear_ + 2, .bits = first_bits_}; }

  std::uint8_t* take_rest(std::uint8_t* to, std::uint8_t* end) {
    const auto part = rest_.first(std::min(std::ssize(rest_), end - to));
    rest_ = rest_.subspan(part.size());
    return std::copy(part.begin(), part.end(), to);
  }

  // The string of the code before, with the first pixel of the present one, is new. Whether the
  // present one makes sense; one that does not changes nothing.
  bool learn(int code, Growth& growth) {
    const int next = growth.next;
    if (growth.code < 0) {  // the first code is a pixel
      if (code >= clear_) return false;
      growth.previous = strings_[code];
    } else {
      if (code == clear_ + 1 || code > next || (code == next && next == kCodes)) return false;
      const String previous = growth.previous;
      const String present =
          code == next ? previous.longer(previous.first(), growth.code) : strings_[code];
      if (next < kCodes) {
        strings_[next] = previous.longer(present.first(), growth.code);
        growth.next = next + 1;
        if (growth.next + kEarly == 1 << growth.bits && growth.bits < kMostBits) ++growth.bits;
      }
      growth.previous = present;
    }
    growth.code = code;
    return true;
  }

  // Writes a string, and up to the end of its last block.
  void spell(const String& string, std::uint8_t* to) const {
    int at = (string.length() - 1) & -kBlock;
    std::memcpy(to + at, &string.block, kBlock);
    for (int code = string.prefix(); at > 0; code = strings_[code].prefix()) {
      at -= kBlock;
      std::memcpy(to + at, &strings_[code].block, kBlock);
    }
  }

  coding::BitReader<kOrder> reader_;
  std::array<String, kCodes> strings_;                // by their codes
  std::array<std::uint8_t, kCodes + kBlock> string_;  // one that did not fit
  std::span<const std::uint8_t> rest_{};              // what is left of it
  int clear_ = 0, first_bits_ = 0;  // the code that forgets all; the one behind it ends
  Growth growth_;
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
    int current = current_;
    for (const std::uint8_t pixel : pixels) {
      if (current < 0) {
        restart();
        current = pixel;
        continue;
      }
      const std::uint32_t key = current << 8 | pixel;
      std::uint32_t slot = key * 0x9E3779B1 >> 18, entry = slots_[slot];
      while (entry != 0 && entry >> kMostBits != key) entry = slots_[slot = (slot + 1) % kSlots];
      if (entry != 0) {
        current = entry % kCodes;
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
  static constexpr int kSlots = 4 * kCodes;
  static constexpr int kFull = kEarly ? kCodes - 2 : kCodes;  // codes; others clear as soon

  // A new string, or none any more.
  void learn(std::uint32_t key, std::uint32_t slot) {
    if (next_ < kFull) {
      if (next_ + kEarly == 1 << bits_) ++bits_;
      slots_[slot] = key << kMostBits | next_++;
      if (!kEarly || next_ < kFull) return;
    }
    restart();
  }
  void restart() {
    writer_.put(clear_, bits_);
    slots_.fill(0);
    next_ = clear_ + 2;
    bits_ = first_bits_;
  }

  coding::BitWriter<kOrder> writer_;
  // A string's code, one more pixel, and the code of both, which is above 0; 0 in a free slot.
  std::array<std::uint32_t, kSlots> slots_;
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
