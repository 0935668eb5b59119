// A module that does what the input says, behind the library: whatever it calls, with whatever
// arguments, the library keeps its images in order.
#include "fuzz/fuzz_support.h"

namespace tq::fuzz {
namespace {

std::int32_t IMG_CB_C on_header(void*, void*) {
  return 1;
}
std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y, std::int32_t bytes) {
  static_cast<Digest*>(context)->add(
      {static_cast<const std::uint8_t*>(row), static_cast<std::size_t>(bytes)});
  return y == 7 ? kAborted : 0;
}

}  // namespace

void fuzz(Bytes bytes) {
  Input in(bytes);
  const std::uint8_t kind = in.u8();
  Memory file = {'G', 'I', 'F', '8', '9', 'a', 1, 1, 1, 1};
  file.insert(file.end(), in.rest().begin(), in.rest().end());
  memory_probe::refuse_above(1 << 20);
  if ((kind & 1) != 0) IMGLOW_set_decomp_reduction(kind >> 4);
  if ((kind & 2) != 0) IMGLOW_set_decompsize(5, 5);
  if ((kind & 4) != 0) IMGLOW_set_decomp_rect(1, 1, 3, 9);
  const std::int32_t image = IMG_decompress_bitmap_block(file.data(), file.size(), 0);
  IMGLOW_set_decomp_reduction(0);
  IMGLOW_set_decompsize(0, 0);
  IMGLOW_set_decomp_rect(0, 0, 0, 0);
  TQ_CLAIM(image <= 0);
  if (image == 0) look_at(image);
  if (image < 0) TQ_CLAIM(IMG_delete_bitmap(0) == IMG_BAD_HANDLE);
  Digest digest;
  IMGLOW_decompress_bitmap_block(file.data(), file.size(), 0, on_row, &digest, on_header);
  caller_file = {.bytes = file};
  IMGLOW_set_fileio(caller_read, caller_write, caller_seek);
  const View before = image == 0 ? look_at(image) : View();
  if (image == 0) IMG_save_bitmap_fd(image, 1, IMG_TYPE_GIF);
  IMGLOW_set_fileio(nullptr, nullptr, nullptr);
  if (image == 0) {
    TQ_CLAIM(look_at(image).digest() == before.digest());
    TQ_CLAIM(IMG_delete_bitmap(image) == 0);
  }
  TQ_CLAIM(memory_probe::live_blocks() == 0 && memory_probe::tracked_blocks() == 0);
}

}  // namespace tq::fuzz
