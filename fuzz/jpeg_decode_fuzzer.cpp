// Decodes a JPEG stream with and without the faster kernels, from memory and in small pieces from
// the caller: the same header, the same rows, the same answer.
#include "formats/jpeg/jpeg.h"
#include "fuzz/fuzz_support.h"
#include "platform/cpu.h"
#include "tests/support/memory_file.h"

namespace tq::fuzz {
namespace {

constexpr std::int64_t kMostBytes = 400 << 10;
constexpr std::int32_t kTooLarge = -777;

struct Seen {
  Digest digest;
  HeaderBlock header{};
  std::int32_t rows = 0;
  bool streamed = false;

  static std::int32_t IMG_CB_C on_header(void* block, void* context) {
    auto& seen = *static_cast<Seen*>(context);
    seen.header = *static_cast<HeaderBlock*>(block);
    seen.digest.add({static_cast<const std::uint8_t*>(block), sizeof seen.header});
    const BitmapInfoHeader& header = seen.header.header;
    return row_bytes(header.biWidth, 32) * header.biHeight > kMostBytes ? kTooLarge : 1;
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

void finish(const formats::DecodeRequest& request, Seen& seen) {
  const Status status = formats::decode_jpeg(request);
  TQ_CLAIM(one_of(status.raw(), {0, -1, -3, -7, -12, kTooLarge}));
  TQ_CLAIM(memory_probe::tracked_blocks() == 0);
  seen.digest.add(status.raw());
}

Digest decode_memory(std::span<const std::uint8_t> file) {
  const ExactBytes copy(file);
  open_memory_stream(copy.data(), copy.size());
  Seen seen;
  finish({kMemoryStream, 0, {Seen::on_header, Seen::on_row, &seen}}, seen);
  return seen.digest;
}

Digest decode_pieces(std::span<const std::uint8_t> file, std::int32_t piece) {
  test::MemoryFile stream({file.begin(), file.end()});
  stream.most_per_call = piece;
  Seen seen;
  finish({test::MemoryFile::kHandle, 0, {Seen::on_header, Seen::on_row, &seen}}, seen);
  return seen.digest;
}

}  // namespace
}  // namespace tq::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tq;
  if (size == 0) return 0;
  const std::span<const std::uint8_t> file(data, size);
  memory_probe::fill_fresh(0xA5);
  const fuzz::Digest plain = fuzz::decode_memory(file);
  memory_probe::fill_fresh(0x3C);
  platform::mask_cpu_features({});
  TQ_CLAIM(fuzz::decode_memory(file) == plain);
  platform::mask_cpu_features({true, true, true, true, true});
  if (data[size - 1] % 4 == 0)
    TQ_CLAIM(fuzz::decode_pieces(file, static_cast<std::int32_t>(1 + size % 61)) == plain);
  return 0;
}
