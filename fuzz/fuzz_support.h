// What the fuzz targets share: taking values from the input, claims that end the program, digests.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <memory>
#include <span>

namespace tq::fuzz {

// A claim that must hold whatever the input is.
#define TQ_CLAIM(condition)                                                            \
  do {                                                                                 \
    if (!(condition)) ::tq::fuzz::report_broken_claim(#condition, __FILE__, __LINE__); \
  } while (false)

[[noreturn]] inline void report_broken_claim(const char* claim, const char* file, int line) {
  std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, claim);
  std::abort();
}

inline bool one_of(std::int64_t value, std::initializer_list<std::int64_t> values) {
  return std::find(values.begin(), values.end(), value) != values.end();
}

// Takes values off the front of the input; an exhausted input gives zeros.
class Input {
 public:
  explicit Input(std::span<const std::uint8_t> bytes) : rest_(bytes) {}

  bool empty() const { return rest_.empty(); }
  std::span<const std::uint8_t> rest() const { return rest_; }

  std::uint8_t u8() {
    if (rest_.empty()) return 0;
    const std::uint8_t value = rest_.front();
    rest_ = rest_.subspan(1);
    return value;
  }
  std::int32_t i8() { return static_cast<std::int8_t>(u8()); }
  std::uint16_t u16() {
    const int low = u8();
    return static_cast<std::uint16_t>(low | u8() << 8);
  }
  std::uint32_t u32() {
    const std::uint32_t low = u16();
    return low | std::uint32_t{u16()} << 16;
  }
  std::int32_t below(std::int32_t limit) { return limit < 1 ? 0 : u8() % limit; }
  std::span<const std::uint8_t> take(std::size_t count) {
    const auto taken = rest_.first(std::min(count, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return taken;
  }

  // Mostly small, now and then at the edges of what an argument can hold.
  std::int32_t any_int() {
    constexpr std::int32_t kLowest = std::numeric_limits<std::int32_t>::min();
    constexpr std::int32_t kHighest = std::numeric_limits<std::int32_t>::max();
    constexpr std::int32_t kEdges[] = {kLowest, kHighest, -1,     0,         1,
                                       0x7FFF,  0x10000,  0xFFFD, 100000000, kHighest - 7};
    const std::uint8_t kind = u8();
    if (kind < 200) return kind - 20;
    if (kind < 240) return kEdges[static_cast<std::size_t>(kind) % std::size(kEdges)];
    return static_cast<std::int32_t>(u32());
  }

 private:
  std::span<const std::uint8_t> rest_;
};

// Bytes of exactly this size, so that one byte read or written too far is noticed.
class ExactBytes {
 public:
  explicit ExactBytes(std::size_t size) : data_(new std::uint8_t[size]), size_(size) {}
  explicit ExactBytes(std::span<const std::uint8_t> content) : ExactBytes(content.size()) {
    std::copy(content.begin(), content.end(), data_.get());
  }
  std::uint8_t* data() const { return data_.get(); }
  std::size_t size() const { return size_; }
  std::span<std::uint8_t> bytes() const { return {data_.get(), size_}; }

 private:
  std::unique_ptr<std::uint8_t[]> data_;
  std::size_t size_;
};

// Everything that could be seen of an operation, in one number.
class Digest {
 public:
  void add(std::span<const std::uint8_t> bytes) {
    // Eight bytes at a time; the mixing step is that of splitmix64.
    std::size_t at = 0;
    for (; at + 8 <= bytes.size(); at += 8) {
      std::uint64_t word;
      std::memcpy(&word, bytes.data() + at, sizeof word);
      mix(word);
    }
    std::uint64_t last = bytes.size();
    for (; at < bytes.size(); ++at) last = last << 8 | bytes[at];
    mix(last);
  }
  void add(std::int64_t value) { mix(static_cast<std::uint64_t>(value)); }
  friend bool operator==(const Digest&, const Digest&) = default;

 private:
  void mix(std::uint64_t word) {
    std::uint64_t z = (state_ ^ word) + 0x9E3779B97F4A7C15u;
    z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9u;
    z = (z ^ z >> 27) * 0x94D049BB133111EBu;
    state_ = z ^ z >> 31;
  }
  std::uint64_t state_ = 0;
};

}  // namespace tq::fuzz
