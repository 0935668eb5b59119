// Bits in bytes, in both orders that formats pack them in: a reader and a writer.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <span>

#include "core/numbers.h"
#include "io/piece_source.h"

namespace tq::coding {

// Which bit of a byte comes first, and which bit of a number.
enum class BitOrder : std::uint8_t { msb_first, lsb_first };

static_assert(std::endian::native == std::endian::little);  // of the words loaded and stored

using tq::PieceSource;

// The next bits in a word: the first at its top, or at its bottom. Behind the end there are zeros.
// A plain value: a copy of it lives in the registers of a loop and is stored back behind it.
template <BitOrder kOrder>
class BitReader {
 public:
  static constexpr int kAhead = 48;  // bits that are there after fill()

  BitReader() = default;
  // A sparing one asks for no piece before it needs a bit of it: its user asks holds() about all
  // that was found by peeking.
  explicit BitReader(PieceSource source, bool sparing = false)
      : sparing_(sparing), source_(source) {}
  explicit BitReader(std::span<const std::uint8_t> bytes)
      : next_(bytes.data()), end_(bytes.data() + bytes.size()) {}

  void fill() {
    if (count_ < kAhead) refill(sparing_ ? 1 : kFull);
  }
  // Whether a code of so many bits is what the next bits are. If not, there is a byte more now.
  bool holds(int length) {
    if (length <= count_) return true;
    refill(count_ + 1);
    return false;
  }
  // Whether the data have so many more bits, at most kAhead. No piece is asked for before the one
  // at hand is used up.
  bool has(int wanted) {
    if (count_ < wanted) refill(wanted);
    return count_ - padding_ >= wanted;
  }

  std::uint64_t bits() const { return bits_; }
  std::uint32_t peek(int count) const {  // 1 to 32
    return static_cast<std::uint32_t>(kMsb ? bits_ >> (64 - count)
                                           : bits_ & ((std::uint64_t{1} << count) - 1));
  }
  void skip(int count) {
    bits_ = kMsb ? bits_ << count : bits_ >> count;
    count_ -= count;
  }
  // To the next whole byte.
  void align() { skip(count_ & 7); }

  // Whether bits were used that the data do not have.
  bool overrun() const { return count_ < padding_; }
  // Whether all that is left is zeros behind the end.
  bool at_end() const { return padding_ > 0 && count_ <= padding_; }

 private:
  static constexpr bool kMsb = kOrder == BitOrder::msb_first;
  static constexpr int kFull = 57;  // bits: another byte would not fit

  void refill(int wanted) {
    if (end_ - next_ < 8) {
      *this = refill_slowly(*this, wanted);
      return;
    }
    std::uint64_t word;
    std::memcpy(&word, next_, sizeof word);
    bits_ |= kMsb ? __builtin_bswap64(word) >> count_ : word << count_;
    const int bytes = (63 - count_) >> 3;
    next_ += bytes;
    count_ += 8 * bytes;
  }
  // By value, so that the caller's own can stay in registers.
  [[gnu::noinline]] static BitReader refill_slowly(BitReader reader, int wanted) {
    while (reader.count_ < kFull) {
      if (reader.next_ == reader.end_) {
        if (reader.count_ >= wanted) break;
        const std::span<const std::uint8_t> piece = reader.source_.next();
        reader.next_ = piece.data();
        reader.end_ = piece.data() + piece.size();
      }
      std::uint64_t next = 0;
      if (reader.next_ != reader.end_) {
        next = *reader.next_++;
      } else {
        reader.padding_ += 8;
      }
      reader.bits_ |= next << (kMsb ? 56 - reader.count_ : reader.count_);
      reader.count_ += 8;
    }
    return reader;
  }

  std::uint64_t bits_ = 0;  // `count_` of them are right, the rest may be as well
  int count_ = 0;
  int padding_ = 0;  // bits that were made up
  bool sparing_ = false;
  const std::uint8_t *next_ = nullptr, *end_ = nullptr;  // of the piece at hand
  PieceSource source_;
};

// Puts numbers behind one another. A word is stored at a time, however many of its bytes are new: there
// has to be room for them. Words of 32 bits are for processors that have no larger ones.
template <BitOrder kOrder, class Word = std::uint64_t>
class BitWriter {
 public:
  // Where the next complete byte goes. Bits that are not in one yet come along.
  void move_to(std::uint8_t* at) { next_ = at; }

  // At most 56 bits, or 32; those of `value` above `count` are 0.
  void put(Word value, int count) {
    if (kBits == 32 && count > kMost) [[unlikely]] {
      put_word(value >> 16, count - 16);
      value &= 0xFFFF;
      count = 16;
    }
    put_word(value, count);
  }
  // Zeros, until `bits` bits are missing to a whole byte.
  void align(int bits = 0) {
    if (const int missing = (16 - bits - count_) & 7; missing != 0) put(0, missing);
  }
  std::uint8_t* end() const { return next_; }  // of complete bytes

 private:
  static constexpr bool kMsb = kOrder == BitOrder::msb_first;
  static constexpr int kBits = 8 * sizeof(Word);
  static constexpr int kMost = kBits - 7;  // beside those that are not in a complete byte
  static_assert(kBits == 64 || (kBits == 32 && kMsb));

  static Word swapped(Word word) {
    return kBits == 64 ? static_cast<Word>(__builtin_bswap64(word))
                       : static_cast<Word>(__builtin_bswap32(static_cast<std::uint32_t>(word)));
  }
  void put_word(Word value, int count) {
    bits_ = kMsb ? bits_ << count | value : bits_ | value << count_;
    count_ += count;
    const Word ahead = kMsb ? swapped(bits_ << (kBits - count_)) : bits_;
    std::memcpy(next_, &ahead, sizeof ahead);
    next_ += count_ >> 3;
    if (!kMsb) bits_ >>= count_ & ~7;
    count_ &= 7;
  }

  std::uint8_t* next_ = nullptr;
  Word bits_ = 0;  // the last `count_` of them are not in a complete byte
  int count_ = 0;
};

// Reverses the bits of each byte: what is packed the other way round is read and written like this.
constexpr void reverse_bits(std::span<std::uint8_t> bytes) {
  for (std::uint8_t& value : bytes) {
    int v = value;
    v = (v >> 1 & 0x55) | (v & 0x55) << 1;
    v = (v >> 2 & 0x33) | (v & 0x33) << 2;
    value = byte(v >> 4 | v << 4);
  }
}

}  // namespace tq::coding
