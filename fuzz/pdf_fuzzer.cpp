// Any bytes as a document: read by the library's own reader, and added to by the writer. A document
// that a page was added to can take another one; one that is refused stays as it is.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "core/dib.h"
#include "formats/pdf/pdf.h"

namespace tq {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::int32_t IMG_CB_C ignore_row(void* row, void*, std::int32_t, std::int32_t bytes) {
  // Every byte of the row has a value.
  std::uint32_t sum = 0;
  for (std::int32_t i = 0; i < bytes; ++i) sum += static_cast<std::uint8_t*>(row)[i];
  return sum == 0xFFFFFFFF ? -1 : 0;
}

// Large pictures take time and show nothing new.
std::int32_t IMG_CB_C take_header(void* block, void*) {
  const BitmapInfoHeader& header = static_cast<const HeaderBlock*>(block)->header;
  return std::int64_t{header.biWidth} * header.biHeight > 1 << 18 ? -777 : 1;
}

std::int32_t IMG_CB_C black_row(void*, void* dest, std::int32_t, std::int32_t bytes) {
  std::memset(dest, 0, static_cast<std::size_t>(bytes));
  return 0;
}

// The memory stream's size is its position.
Status append(Bytes& block, std::int32_t size) {
  HeaderBlock header = dib_header(9, 2, 1);
  open_memory_stream(block.data(), block.size());
  seek(kMemoryStream, size, Origin::start);
  return formats::encode_pdf({kMemoryStream, &header, {black_row, nullptr}});
}

}  // namespace
}  // namespace tq

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tq;
  Bytes block(data, data + size);
  open_memory_stream(block.data(), block.size());
  static_cast<void>(formats::decode_pdf({kMemoryStream, 0, {take_header, ignore_row, nullptr}}));

  const Bytes before = block;
  block.resize(2 * size + 40000);
  const Status added = append(block, static_cast<std::int32_t>(size));
  if (added.failed()) {
    if (added != StatusCode::bad_image || !std::equal(before.begin(), before.end(), block.begin()))
      std::abort();
    return 0;
  }
  const std::int32_t end = memory_position();
  block.resize(2 * block.size());
  if (append(block, end).failed()) std::abort();
  return 0;
}
