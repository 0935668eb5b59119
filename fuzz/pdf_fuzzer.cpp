// Any bytes as a document: read by the library's own reader, and added to by the writer. A document
// that a page was added to can take another one; one that is refused stays as it is.
#include "formats/pdf/pdf.h"
#include "fuzz/fuzz_support.h"

namespace tq::fuzz {
namespace {

// Large pictures take time and show nothing new.
std::int32_t IMG_CB_C on_header(void* block, void*) {
  const BitmapInfoHeader& header = static_cast<const HeaderBlock*>(block)->header;
  return std::int64_t{header.biWidth} * header.biHeight > 1 << 18 ? kAborted : 1;
}
// Every byte of the row has a value.
std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t, std::int32_t bytes) {
  static_cast<Digest*>(context)->add(
      {static_cast<const std::uint8_t*>(row), static_cast<std::size_t>(bytes)});
  return 0;
}
std::int32_t IMG_CB_C black_row(void*, void* dest, std::int32_t, std::int32_t bytes) {
  std::memset(dest, 0, static_cast<std::size_t>(bytes));
  return 0;
}

Digest read(Bytes document, int fresh_byte) {
  memory_probe::fill_fresh(fresh_byte);
  Memory copy(document.begin(), document.end());
  open_memory_stream(copy.data(), copy.size());
  Digest digest;
  digest.add(formats::decode_pdf({kMemoryStream, 0, {on_header, on_row, &digest}}).raw());
  return digest;
}

// The memory stream's size is its position.
Status append(Memory& block, std::size_t size) {
  HeaderBlock header = dib_header(9, 2, 1);
  block.resize(2 * size + 8000);
  open_memory_stream(block.data(), block.size());
  seek(kMemoryStream, static_cast<std::int32_t>(size), Origin::start);
  return formats::encode_pdf({kMemoryStream, &header, {black_row, nullptr}});
}

}  // namespace

void fuzz(Bytes input) {
  TQ_CLAIM(read(input, 0x55) == read(input, 0xAA));
  Memory block(input.begin(), input.end());
  const Status added = append(block, input.size());
  if (added.failed()) {
    TQ_CLAIM(added == StatusCode::bad_image);
    TQ_CLAIM(std::equal(input.begin(), input.end(), block.begin()));
    return;
  }
  TQ_CLAIM(append(block, static_cast<std::size_t>(memory_position())).ok());
  TQ_CLAIM(memory_probe::tracked_blocks() == 0);
}

}  // namespace tq::fuzz
