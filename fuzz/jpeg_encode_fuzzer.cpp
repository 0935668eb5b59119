// Saves pixels with any settings, with and without the faster kernels: the same file, and one that
// decodes to the same size.
#include "formats/jpeg/jpeg.h"
#include "fuzz/fuzz_support.h"
#include "platform/cpu.h"

namespace tq::fuzz {
namespace {

std::int32_t IMG_CB_C supply(void* context, void* dest, std::int32_t y, std::int32_t count) {
  const Bytes pixels = *static_cast<const Bytes*>(context);
  auto* const out = static_cast<std::uint8_t*>(dest);
  for (std::int32_t i = 0; i < count; ++i) {
    out[i] = pixels[static_cast<std::size_t>(y * count + i) % pixels.size()];
  }
  return 0;
}
std::int32_t IMG_CB_C keep_header(void* block, void* context) {
  *static_cast<HeaderBlock*>(context) = *static_cast<HeaderBlock*>(block);
  return 1;
}

}  // namespace

void fuzz(Bytes bytes) {
  Input input(bytes);
  constexpr int kDepths[] = {8, 24, 32, 8, 24, 4, 16, 1};
  const int bits = kDepths[input.below(8)];
  // Now and then wide enough for several batches of blocks.
  const std::int32_t size = input.u8(), width = 1 + (size < 200 ? size % 50 : 2 * size);
  HeaderBlock image = dib_header(width, 1 + input.below(24), bits);
  image.header.biXPelsPerMeter = input.i8();
  const std::int32_t quality = input.i8() + 40;
  const std::int32_t h = input.i8() % 8, v = input.i8() % 8;
  const bool grey = input.below(2) == 0;
  for (std::size_t i = 0; i < 256; ++i) {
    const auto level = static_cast<std::uint8_t>(i * 7);
    image.palette[i] = {level, grey ? level : static_cast<std::uint8_t>(i), level, 0};
  }
  const std::uint8_t black = 0;
  Bytes pixels = input.empty() ? Bytes(&black, 1) : input.rest();
  const std::size_t room = 2000 + 27u * width * image.header.biHeight;
  Memory files[] = {Memory(room), Memory(room)};
  std::int32_t status[2] = {};
  for (int i = 0; i < 2; ++i) {
    jpeg::set_jpeg_quality(quality);
    jpeg::set_jpeg_sampling(h, v);
    const bool fast = i == 0;
    platform::mask_cpu_features({fast, fast, fast, fast, fast});
    memory_probe::fill_fresh(fast ? 0xA5 : 0x3C);
    open_memory_stream(files[i].data(), files[i].size());
    status[i] = jpeg::encode_jpeg({kMemoryStream, &image, {supply, &pixels}}).raw();
    files[i].resize(static_cast<std::size_t>(memory_position()));
  }
  TQ_CLAIM(status[0] == status[1] && files[0] == files[1]);
  TQ_CLAIM(memory_probe::tracked_blocks() == 0);
  TQ_CLAIM(one_of(status[0], {0, -7, -21}));
  if (status[0] < 0) return;
  HeaderBlock read;
  open_memory_stream(files[0].data(), files[0].size());
  TQ_CLAIM(jpeg::decode_jpeg({kMemoryStream, 0, {keep_header, nullptr, &read}}) == kOk);
  TQ_CLAIM(read.header.biWidth == image.header.biWidth);
  TQ_CLAIM(read.header.biHeight == image.header.biHeight);
  TQ_CLAIM(memory_position() + 2u == files[0].size());  // in front of EOI
}

}  // namespace tq::fuzz
