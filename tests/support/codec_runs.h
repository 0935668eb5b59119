// Codecs at work between vectors, and the pictures that they are given.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/bmp_file.h"
#include "tests/support/collecting_sink.h"
#include "tests/support/memory_file.h"

namespace tq::test {

// The header of rows of this size, with a palette from black to white.
inline HeaderBlock grey_image(int width, int height, int bits) {
  HeaderBlock image = dib_header(width, height, bits);
  std::ranges::copy(grey_palette(bits <= 8 ? 1 << bits : 256), image.palette.begin());
  return image;
}

inline Bytes encoded(formats::Encoder encode, HeaderBlock image, const std::vector<Bytes>& rows,
                     std::int32_t variant = 0) {
  const formats::FileType type{.code = 0, .name = "", .title = "", .variant = variant};
  GivenRows given(rows);
  const MemoryFile file;
  EXPECT_EQ(encode({MemoryFile::kHandle, &image, given.supplier(), &type}), kOk);
  return file.bytes;
}

inline CollectingSink decoded(formats::Decoder decode, Bytes file, std::int32_t status = 0) {
  CollectingSink sink;
  open_memory_stream(file.data(), file.size());
  EXPECT_EQ(decode({.stream = kMemoryStream, .sink = sink.sink()}).raw(), status);
  return sink;
}

}  // namespace tq::test
