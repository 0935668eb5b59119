// A document's pages, as far as they are small.
#pragma once

#include "core/memory.h"
#include "formats/pdf/page/document.h"
#include "fuzz/fuzz_support.h"

namespace tq::fuzz {

struct PageSink {
  static constexpr std::int64_t kMostPixels = 1 << 20;

  Digest digest;
  std::int32_t width = 0, height = 0, bits = 0;
  bool fits = false;

  static std::int32_t IMG_CB_C header(void* block, void* context) {
    auto& self = *static_cast<PageSink*>(context);
    const BitmapInfoHeader& header = static_cast<HeaderBlock*>(block)->header;
    TQ_CLAIM(self.height == 0);
    self.fits = check_geometry(header).ok();  // else no rows come
    self.width = header.biWidth;
    self.height = header.biHeight;
    self.bits = header.biBitCount;
    self.digest.add({static_cast<const std::uint8_t*>(block), sizeof(HeaderBlock)});
    const bool is_large = self.fits && std::int64_t{self.width} * self.height > kMostPixels;
    return is_large ? IMG_STOP_AFTER_HEADER : 1;
  }
  static std::int32_t IMG_CB_C row(void* row, void* context, std::int32_t y, std::int32_t bytes) {
    auto& self = *static_cast<PageSink*>(context);
    TQ_CLAIM(self.fits && y >= 0 && y < self.height && bytes > 0);
    TQ_CLAIM(self.bits == 1 || bytes == row_bytes(self.width, self.bits));
    self.digest.add({static_cast<const std::uint8_t*>(row), static_cast<std::size_t>(bytes)});
    return 0;
  }
};

inline Digest digest_of_pages(Bytes bytes) {
  constexpr std::int32_t kMostPages = 8;
  Memory copy(bytes.begin(), bytes.end());
  open_memory_stream(copy.data(), copy.size());
  Digest digest;
  pdf::page::Document document;
  std::int32_t count = 0;
  const Status opened = document.open(kMemoryStream, 0);
  digest.add(opened.raw());
  if (opened.ok()) digest.add(pdf::page::count_pages(document.file(), count).raw());
  digest.add(count);
  for (std::int32_t page = 0; page < std::min(count, kMostPages); ++page) {
    PageSink sink;
    seek(kMemoryStream, 0, Origin::start);
    bool left_out = false;
    const formats::DecodeRequest request{
        .stream = kMemoryStream, .sink = {PageSink::header, PageSink::row, &sink}, .page = page};
    const Status decoded = pdf::page::decode_document(request, left_out);
    TQ_CLAIM(decoded.failed() || sink.fits);
    digest.add(decoded.raw());
    digest.add(sink.digest);
    pdf::page::StoredPicture stored;
    pdf::page::Page found;
    if (find_page(document.file(), page, found).ok()) {
      digest.add(find_stored_picture(document.file(), found, stored).raw());
    }
  }
  TQ_CLAIM(memory_probe::tracked_blocks() >= 0);
  return digest;
}

}  // namespace tq::fuzz
