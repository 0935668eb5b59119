// Rows of samples as differences to those of the pixel before (TIFF 6.0, section 14), both ways.
#pragma once

#include <cstdint>
#include <span>

#include "core/numbers.h"
#include "io/endian.h"

namespace tq::coding {

// Samples have 8, 16 or 32 bits; others have no differences.
struct SampleForm {
  int bits = 8;
  int samples = 1;  // of a pixel
  bool big_endian = false;
};

// Calls combine(sample, before) for all but the first pixel's, from the left or from the right, and
// stores what it answers.
template <class Combine>
void for_each_sample(const SampleForm& form, std::span<std::uint8_t> row, bool from_left,
                     Combine&& combine) {
  const std::ptrdiff_t bytes = form.bits / 8, pixel = bytes * form.samples;
  const auto load = [&](const std::uint8_t* p) -> std::uint32_t {
    if (bytes == 1) return *p;
    if (bytes == 2) return form.big_endian ? load_be16(p) : load_le16(p);
    return form.big_endian ? load_be32(p) : load_le32(p);
  };
  const auto store = [&](std::uint8_t* p, std::uint32_t value) {
    if (bytes == 1) {
      *p = byte(value);
    } else if (bytes == 2) {
      form.big_endian ? store_be16(p, word(value)) : store_le16(p, word(value));
    } else {
      form.big_endian ? store_be32(p, value) : store_le32(p, value);
    }
  };
  const std::ptrdiff_t count = (std::ssize(row) - pixel) / bytes;
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    std::uint8_t* const at = row.data() + pixel + (from_left ? i : count - 1 - i) * bytes;
    store(at, combine(load(at), load(at - pixel)));
  }
}

inline void add_differences(const SampleForm& form, std::span<std::uint8_t> row) {
  for_each_sample(form, row, true, [](std::uint32_t a, std::uint32_t b) { return a + b; });
}
inline void take_differences(const SampleForm& form, std::span<std::uint8_t> row) {
  for_each_sample(form, row, false, [](std::uint32_t a, std::uint32_t b) { return a - b; });
}

}  // namespace tq::coding
