// Pictures to measure with, and memcpy of as many bytes beside them.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "core/dib.h"
#include "include/tarnquill.h"

namespace tq::bench {

using Bytes = std::vector<std::uint8_t>;

inline void put(Bytes& bytes, std::uint32_t value, int count) {
  for (int i = 0; i < count; ++i) bytes.push_back(static_cast<std::uint8_t>(value >> 8 * i));
}

// A BMP file with a grey palette below 16 bits; `rows` come as they lie in the file.
inline Bytes bmp_file(std::int32_t width, std::int32_t height, int bits, const Bytes& rows,
                      std::uint32_t compression = 0) {
  const int palette = palette_bytes(bits);
  Bytes file = {'B', 'M'};
  put(file, static_cast<std::uint32_t>(54 + palette) + static_cast<std::uint32_t>(rows.size()), 4);
  put(file, 0, 4);
  put(file, static_cast<std::uint32_t>(54 + palette), 4);
  put(file, 40, 4);
  put(file, static_cast<std::uint32_t>(width), 4);
  put(file, static_cast<std::uint32_t>(height), 4);
  put(file, 1, 2);
  put(file, static_cast<std::uint32_t>(bits), 2);
  put(file, compression, 4);
  file.resize(54);
  const int entries = palette / 4;
  for (int i = 0; i < entries; ++i) {
    const auto level = static_cast<std::uint32_t>(i * 255 / (entries - 1));
    put(file, level * 0x010101, 4);
  }
  file.insert(file.end(), rows.begin(), rows.end());
  return file;
}

// Bytes that no run-length coder can shorten.
inline Bytes noise(std::size_t count) {
  Bytes bytes(count);
  std::uint32_t state = 1;
  for (std::uint8_t& byte : bytes) {
    byte = static_cast<std::uint8_t>((state = state * 1664525 + 1013904223) >> 24);
  }
  return bytes;
}

// 8-bit rows in runs of 1 to 23 equal pixels, 12 on average, as drawings have them.
inline Bytes runs(std::size_t count) {
  Bytes bytes;
  bytes.reserve(count + 32);
  for (std::uint32_t state = 1; bytes.size() < count;) {
    state = state * 1664525 + 1013904223;
    bytes.insert(bytes.end(), (state >> 24) % 23 + 1, static_cast<std::uint8_t>(state >> 16));
  }
  bytes.resize(count);
  return bytes;
}

inline std::int32_t load(const Bytes& file) {
  return IMG_decompress_bitmap_block(file.data(), file.size(), 0);
}

inline void report_bytes(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * state.iterations());
}

}  // namespace tq::bench
