// The same files and pixels on every machine and with every set of kernels: digests of what the
// encoder writes, which djpeg and Pillow read alike, and of what the decoder makes of it.
#include <gtest/gtest.h>

#include <string_view>

#include "formats/jpeg/jpeg.h"
#include "platform/cpu.h"
#include "tests/support/codec_runs.h"
#include "tests/support/digest.h"

namespace tq::test {
namespace {

// Wide enough for several batches of blocks, and no multiple of a block.
constexpr int kWidth = 1107, kHeight = 37;

// Gentle slopes with a little noise, pure noise, and blocks of the darkest and the brightest.
enum class Content : std::uint8_t { slopes, noise, extremes };
std::vector<Bytes> rows_of(Content content, int bits, int width) {
  std::vector<Bytes> rows;
  std::uint32_t random = 1;
  for (int y = 0; y < kHeight; ++y) {
    Bytes row(static_cast<std::size_t>(row_bytes(width, bits)));
    const int bytes = bits / 8;
    for (int i = 0; i < width * bytes; ++i) {
      const int x = i / bytes, channel = i % bytes;
      random = random * 1664525 + 1013904223;
      const auto noise = static_cast<int>(random >> 24);
      const int slope = (x * (channel + 1) / 4 + y * 3) % 240 + noise % 12;
      const int extreme = (x * x / 50 + y * (channel + 2)) % 7 < 3 ? 0 : 255;
      row[static_cast<std::size_t>(i)] =
          static_cast<std::uint8_t>(content == Content::slopes  ? slope
                                    : content == Content::noise ? noise
                                                                : extreme);
    }
    rows.push_back(row);
  }
  return rows;
}

enum class Palette : std::uint8_t { grey, colour };
struct Case {
  int bits;
  Palette palette;
  int h, v;
  std::uint64_t files, pixels;
};
const Case kCases[] = {
    {8, Palette::grey, 1, 1, 0x7DF1C28F21C66338, 0x7FE4C81DB3239836},
    {8, Palette::colour, 2, 1, 0x5F7A850A471F1180, 0xD411FC35A4F4CCEA},
    {24, Palette::grey, 1, 1, 0x6C34B952B469C0BA, 0x273164D06909E1D2},
    {24, Palette::grey, 2, 1, 0xD75E0272E7CC193C, 0x5622C4C859034F66},
    {24, Palette::grey, 2, 2, 0x52D39421E124B240, 0x0C0F3F236FFBBE87},
    {24, Palette::grey, 3, 1, 0xBCA46888EED3AA2F, 0xBBBBB99E09AA60FF},
    {24, Palette::grey, 4, 2, 0xC53348AE53117D87, 0xCD8C11E0CD93FCC6},
    {32, Palette::grey, 1, 2, 0x13C8D3609537BB62, 0x83F0493A802C9A53},
};

void encode_and_decode(const Case& c, int width, const std::vector<int>& qualities, Digest& files,
                       Digest& pixels) {
  HeaderBlock image = dib_header(width, kHeight, c.bits);
  for (std::size_t i = 0; i < 256; ++i) {
    const auto level = static_cast<std::uint8_t>(255 - i);
    image.palette[i] = {level, level, level, 0};
    if (c.palette == Palette::colour) image.palette[i].red = static_cast<std::uint8_t>(i * 7);
  }
  for (const int quality : qualities) {
    for (const Content content : {Content::slopes, Content::noise, Content::extremes}) {
      jpeg::set_jpeg_quality(quality);
      jpeg::set_jpeg_sampling(c.h, c.v);
      GivenRows given(rows_of(content, c.bits, width));
      MemoryFile file;
      ASSERT_EQ(jpeg::encode_jpeg({MemoryFile::kHandle, &image, given.supplier()}), kOk);
      files.add(file.bytes);
      // Between the header and the rest of the data whole pieces are written, which callers see.
      for (std::size_t i = 1; i + 2 < file.counts.size(); ++i) EXPECT_EQ(file.counts[i], 20000);
      file.install(false, false, false);
      for (const Bytes& row : decoded(jpeg::decode_jpeg, file.bytes).image()) pixels.add(row);
    }
  }
}

TEST(JpegDigest, FilesAndPixelsAreTheSameEverywhere) {
  const platform::CpuFeatures sets[] = {
      {}, {.sse2 = true}, {.sse2 = true, .ssse3 = true}, {true, true, true, true, true}};
  for (const platform::CpuFeatures& features : sets) {
    platform::mask_cpu_features(features);
    for (const Case& c : kCases) {
      Digest files, pixels;
      // Every step at its largest, some in between, every step 1.
      encode_and_decode(c, kWidth, {1, 30, 75, 90, 100}, files, pixels);
      EXPECT_EQ(std::pair(files.value(), pixels.value()), std::pair(c.files, c.pixels))
          << c.bits << " bits, " << c.h << " x " << c.v << ", AVX2 " << features.avx2 << std::hex
          << ": 0x" << files.value() << ", 0x" << pixels.value();
    }
  }
}

TEST(JpegDigest, EveryWidthIsTheSameWithAllKernels) {
  for (const Case& c : kCases) {
    for (int width = 1; width <= 100; ++width) {
      Digest files[2], pixels[2];
      for (const bool fast : {false, true}) {
        platform::mask_cpu_features({fast, fast, fast, fast, fast});
        encode_and_decode(c, width, {90}, files[fast], pixels[fast]);
      }
      ASSERT_EQ(files[0].value(), files[1].value()) << c.bits << " bits, width " << width;
      ASSERT_EQ(pixels[0].value(), pixels[1].value()) << c.bits << " bits, width " << width;
    }
  }
}

}  // namespace
}  // namespace tq::test
