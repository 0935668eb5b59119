// The LZW module's GIF codec alone: a file is decoded from a stream that is exactly as long, and
// what came out of it is encoded and decoded again.
#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "modules/lzw/gif.h"

namespace tq::fuzz {
namespace {

struct Stream {
  std::vector<std::uint8_t> bytes;
  std::size_t position = 0;
};
Stream stream;

std::int32_t IMG_CB_C read_stream(std::int32_t, void* buffer, std::int32_t count) {
  TQ_CLAIM(count > 0);
  const std::size_t left = stream.bytes.size() - std::min(stream.position, stream.bytes.size());
  const std::size_t got = std::min<std::size_t>(static_cast<std::size_t>(count), left);
  if (got != 0) std::memcpy(buffer, stream.bytes.data() + stream.position, got);
  stream.position += got;
  return static_cast<std::int32_t>(got);
}
std::int32_t IMG_CB_C write_stream(std::int32_t, void* buffer, std::int32_t count) {
  const auto* from = static_cast<const std::uint8_t*>(buffer);
  stream.bytes.insert(stream.bytes.end(), from, from + count);
  return count;
}
std::int32_t IMG_CB_C seek_stream(std::int32_t, std::int32_t offset, std::int32_t) {
  stream.position = static_cast<std::size_t>(offset);
  return offset;
}

struct Picture {
  gif::HeaderBlock header{};
  std::vector<std::vector<std::uint8_t>> rows;
  int headers = 0;

  static std::int32_t IMG_CB_C on_header(void* block, void* context) {
    auto& picture = *static_cast<Picture*>(context);
    std::memcpy(&picture.header, block, sizeof picture.header);
    TQ_CLAIM(++picture.headers == 1);
    const gif::HeaderBlock& header = picture.header;
    TQ_CLAIM(header.width > 0 && header.height > 0);
    if (std::int64_t{header.width} * header.height > 1 << 20) return IMG_STOP_AFTER_HEADER;
    picture.rows.resize(static_cast<std::size_t>(header.height));
    return 1;
  }
  static std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y,
                                      std::int32_t bytes) {
    auto& picture = *static_cast<Picture*>(context);
    TQ_CLAIM(y >= 0 && y < picture.header.height);
    TQ_CLAIM(bytes == gif::row_bytes(picture.header.width, picture.header.bits));
    TQ_CLAIM(picture.rows[y].empty());
    const auto* from = static_cast<const std::uint8_t*>(row);
    picture.rows[y].assign(from, from + bytes);
    return 0;
  }
  static std::int32_t IMG_CB_C supply(void* context, void* dest, std::int32_t y,
                                      std::int32_t bytes) {
    const auto& picture = *static_cast<Picture*>(context);
    std::memcpy(dest, picture.rows[y].data(), static_cast<std::size_t>(bytes));
    return 0;
  }
};

void fuzz(Input in) {
  gif::host() = {read_stream, write_stream, seek_stream};
  const std::uint32_t page = in.u8() % 4;
  const bool interlaced = in.u8() % 2 != 0;
  const auto rest = in.rest();
  stream = {{rest.begin(), rest.end()}};
  Picture picture;
  const std::int32_t decoded = gif::decode(page == 0 ? 0 : 0x80000000 | page, Picture::on_row,
                                           &picture, Picture::on_header, 1);
  TQ_CLAIM(decoded == IMG_OK || decoded == IMG_BAD_IMAGE || decoded == IMG_PAGE_PAST_END ||
           decoded == IMG_STOP_AFTER_HEADER);
  if (decoded != IMG_OK) return;
  const auto bytes =
      static_cast<std::size_t>(gif::row_bytes(picture.header.width, picture.header.bits));
  for (auto& row : picture.rows) row.resize(bytes);
  stream = {};
  TQ_CLAIM(gif::encode(1, picture.header, Picture::supply, &picture, interlaced) == 0);
  Picture again;
  TQ_CLAIM(gif::decode(0, Picture::on_row, &again, Picture::on_header, 1) == 0);
  // An image of 4 or 8 bits keeps its rows, unless its palette makes it black and white.
  if (again.header.bits == picture.header.bits) TQ_CLAIM(again.rows == picture.rows);
}

}  // namespace
}  // namespace tq::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tq::fuzz::fuzz(tq::fuzz::Input({data, size}));
  return 0;
}
