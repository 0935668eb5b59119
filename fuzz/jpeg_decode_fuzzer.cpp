// Decodes a JPEG stream with and without the faster kernels, from memory and in small pieces from
// the caller: the same header, the same rows, the same answer.
#include "formats/jpeg/jpeg.h"
#include "fuzz/fuzz_support.h"
#include "platform/cpu.h"

namespace tq::fuzz {
namespace {

constexpr std::int64_t kMostBytes = 64 << 10;

struct Seen {
  Digest digest;
  HeaderBlock header{};
  std::int32_t rows = 0;

  static std::int32_t IMG_CB_C on_header(void* block, void* context) {
    auto& seen = *static_cast<Seen*>(context);
    seen.header = *static_cast<HeaderBlock*>(block);
    seen.digest.add({static_cast<const std::uint8_t*>(block), sizeof seen.header});
    const BitmapInfoHeader& header = seen.header.header;
    return row_bytes(header.biWidth, 32) * header.biHeight > kMostBytes ? kAborted : 1;
  }
  static std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y,
                                      std::int32_t bytes) {
    auto& seen = *static_cast<Seen*>(context);
    const BitmapInfoHeader& header = seen.header.header;
    TQ_CLAIM(y == seen.rows++ && y < header.biHeight);
    TQ_CLAIM(bytes == row_bytes(header.biWidth, header.biBitCount));
    seen.digest.add({static_cast<const std::uint8_t*>(row), static_cast<std::size_t>(bytes)});
    return 0;
  }
};

Digest decode(StreamHandle stream, int fresh_byte, bool fast) {
  memory_probe::fill_fresh(fresh_byte);
  platform::mask_cpu_features({fast, fast, fast, fast, fast});
  Seen seen;
  const Status status = jpeg::decode_jpeg({stream, 0, {Seen::on_header, Seen::on_row, &seen}});
  TQ_CLAIM(one_of(status.raw(), {0, -1, -3, -7, -12, kAborted}));
  TQ_CLAIM(memory_probe::tracked_blocks() == 0);
  seen.digest.add(status.raw());
  return seen.digest;
}

}  // namespace

void fuzz(Bytes input) {
  Memory file(input.begin(), input.end());
  open_memory_stream(file.data(), file.size());
  const Digest fast = decode(kMemoryStream, 0xA5, true);
  open_memory_stream(file.data(), file.size());
  TQ_CLAIM(decode(kMemoryStream, 0x3C, false) == fast);
  if (input.empty() || input.back() % 4 != 0) return;
  caller_file = {.bytes = {input.begin(), input.end()},
                 .most_per_call = static_cast<std::int32_t>(1 + input.size() % 61)};
  IMGLOW_set_fileio(caller_read, nullptr, caller_seek);
  TQ_CLAIM(decode(StreamHandle{1}, 0x3C, true) == fast);
  IMGLOW_set_fileio(nullptr, nullptr, nullptr);
}

}  // namespace tq::fuzz
